#pragma once
// Constraints. An AimConstraint turns its constrained node so that the
// node's local -Z axis points at the weighted average of its target nodes'
// world positions, with local +Y towards the weighted average of its up
// nodes (the scene's up axis when it has none). Each target or up entry is a
// ConstraintObject that refers to a node and carries a weight.
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
