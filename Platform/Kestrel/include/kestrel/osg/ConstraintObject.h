#pragma once
#include <vector>

#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(ConstraintObject)
KS_FC_TYPEDEFS(AimConstraint)

class ConstraintObject : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(ConstraintObject, FieldContainer)
public:
    NodePtr getReferenceNode() const { return _node; }
    void setReferenceNode(const NodePtr& node);
    Real32 getWeight() const { return _weight; }
    void setWeight(Real32 w);

private:
    NodePtr _node;
    Real32 _weight = 1.f;
};

} // namespace osg
