#pragma once
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(AnimNode)
KS_FC_TYPEDEFS(AnimCurve)
KS_FC_TYPEDEFS(AnimAttachment)

class AnimNode : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(AnimNode, FieldContainer)
public:
    static constexpr BitVector ChildrenFieldMask = 1ull << 1;

    AnimNode() = default;
    AnimNode(const AnimNode& o); // copies the name only, not the children
    ~AnimNode() override;

    AnimNodePtr getParent() const;
    UInt32 getNChildren() const { return static_cast<UInt32>(_children.size()); }
    AnimNodePtr getChild(UInt32 i) const;
    const std::vector<AnimNodePtr>& getChildren() const { return _children; }
    // Appends (moving from the old parent); refuses cycles.
    bool addChild(const AnimNodePtr& child);
    bool subChild(const AnimNodePtr& child);
    // All curves in this subtree, depth first.
    void collectCurves(std::vector<AnimCurvePtr>& out) const;

private:
    std::vector<AnimNodePtr> _children;
    AnimNode* _parent = nullptr;
};

} // namespace osg
