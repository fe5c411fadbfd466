#pragma once
#include <vector>

#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(ConstraintObject)
KS_FC_TYPEDEFS(AimConstraint)

class AimConstraint : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(AimConstraint, FieldContainer)
public:
    // The constrained node (the one that is turned).
    NodePtr getConstrainedNode() const { return _constrained; }
    void setConstrainedNode(const NodePtr& node);
    const std::vector<ConstraintObjectPtr>& getTargets() const { return _targets; }
    const std::vector<ConstraintObjectPtr>& getUpTargets() const { return _ups; }
    void addTarget(const NodePtr& node, Real32 weight = 1.f);
    void addUpTarget(const NodePtr& node, Real32 weight = 1.f);
    bool getMaintainOffset() const { return _maintainOffset; }
    void setMaintainOffset(bool on);
    // World rotation applied after the aim rotation (identity unless the
    // constraint keeps an offset).
    const Quaternion& getOffset() const { return _offset; }
    void setOffset(const Quaternion& q);

private:
    NodePtr _constrained;
    std::vector<ConstraintObjectPtr> _targets, _ups;
    bool _maintainOffset = false;
    Quaternion _offset;
};

} // namespace osg
