#pragma once
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(AnimNode)
KS_FC_TYPEDEFS(AnimCurve)
KS_FC_TYPEDEFS(AnimAttachment)

// A node of an animation attachment's tree. A group node directly under the
// attachment's root is a block (one layer of animation); its blend mode and
// weight say how its curves combine with the value below it (see
// ksAnimEvaluator for the rule). Curves and the root ignore them.
class AnimNode : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(AnimNode, FieldContainer)
public:
    static constexpr BitVector ChildrenFieldMask = 1ull << 1;
    // Above the masks AnimCurve adds.
    static constexpr BitVector BlendModeFieldMask = 1ull << 4;
    static constexpr BitVector WeightFieldMask = 1ull << 5;

    // Additive adds weight * value (the scale channel multiplies by
    // value ^ weight); Override and OverridePassthrough blend from the value
    // below towards the block's value by the weight.
    enum class BlendMode : UInt32 { Additive = 0, Override = 1, OverridePassthrough = 2 };

    AnimNode() = default;
    AnimNode(const AnimNode& o); // copies name, blend mode and weight, not the children
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

    BlendMode getBlendMode() const { return _blendMode; }
    void setBlendMode(BlendMode mode);
    // In percent: 100 applies the block fully, 0 not at all. A non-finite
    // weight is ignored.
    Real64 getWeight() const { return _weight; }
    void setWeight(Real64 percent);

private:
    std::vector<AnimNodePtr> _children;
    AnimNode* _parent = nullptr;
    BlendMode _blendMode = BlendMode::Additive;
    Real64 _weight = 100.0;
};

} // namespace osg
