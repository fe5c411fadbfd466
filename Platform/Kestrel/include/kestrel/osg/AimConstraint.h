#pragma once
// An aim constraint turns its constrained node so that the node's local -Z
// axis points at the weighted average world position of its targets, with
// its local +Y towards the weighted average of its up nodes. Without a
// usable up node the up direction is the scene's up axis as seen by the
// constrained node's parent (it turns with the parent).
//
// The constraint does not keep its nodes alive; entries whose node has been
// deleted are ignored, and a constraint whose constrained node has been
// deleted is expired (ksConstraintManager drops it).
#include <memory>
#include <vector>

#include <kestrel/osg/ConstraintObject.h>
#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(AimConstraint)

class AimConstraint : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(AimConstraint, FieldContainer)
public:
    static constexpr BitVector ConstrainedNodeFieldMask = 1ull << 1;
    static constexpr BitVector TargetsFieldMask = 1ull << 2;
    static constexpr BitVector UpTargetsFieldMask = 1ull << 3;
    static constexpr BitVector MaintainOffsetFieldMask = 1ull << 4;
    static constexpr BitVector OffsetFieldMask = 1ull << 5;

    // The constrained node (the one that is turned); null once deleted.
    NodePtr getConstrainedNode() const { return NodePtr(_constrained.lock()); }
    void setConstrainedNode(const NodePtr& node);
    bool isExpired() const { return _constrained.expired(); }
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

    // The world rotation that aims the constrained node, or false when there
    // is nothing to aim at: no constrained node, no live target in the
    // constrained node's tree, or the targets' centre at the node's origin.
    // sceneUp is the scene's up axis (the constrained node's parent turns it).
    bool computeAimRotation(const Vec3f& sceneUp, Quaternion& rotation) const;
    // Turns the constrained node (its Transform3D rotation; the rotation
    // orientation is kept) to the aim rotation followed by the offset.
    // False when it could not.
    bool apply(const Vec3f& sceneUp) const;

private:
    std::weak_ptr<Node> _constrained;
    std::vector<ConstraintObjectPtr> _targets, _ups;
    bool _maintainOffset = false;
    Quaternion _offset;
};

} // namespace osg
