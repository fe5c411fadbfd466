#pragma once
// Animation: curves, the animation node tree and the animation attachment.
//
// An AnimAttachment on a node keeps a tree of AnimNodes under its root.
// Curves (AnimCurve, an AnimNode) animate one component of one channel of
// the node ("translation"/"X", "visible"/"" ...). Curves directly under the
// root are "ungrouped"; named group nodes ("blocks") hold curves of one
// take or layer. ksAnimManager creates, finds and groups curves.
//
// A curve is a list of control points (time in seconds, value), each with
// in and out tangents relative to the point and an interpolation code for
// the segment before (inType) and after (outType) it:
//   0 step: the value holds until the next point
//   1 linear
//   2 smooth: cubic with automatic (Catmull-Rom) tangents
//   3 cubic through points sampled on frames, with the stored tangents
//   5 cubic with the stored tangents
// A cubic segment from p to q is the Bezier (p, p + out(p), q + in(q), q),
// in time and value; tangents are (time offset, value offset).
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

struct CCPnt {
    Pnt2f point;      // (time in seconds, value)
    Vec2f inTangent;  // relative to point
    Vec2f outTangent; // relative to point
    UInt32 inType = 1;
    UInt32 outType = 1;
    bool isKey = true;           // a key set by the user, not a generated point
    bool tangentsBroken = false; // in and out tangents may point differently
};

class AnimCurve : public AnimNode {
    KS_FIELD_CONTAINER_DECL(AnimCurve, AnimNode)
public:
    static constexpr BitVector ControlPointsFieldMask = 1ull << 2;
    static constexpr BitVector ChannelFieldMask = 1ull << 3;
    enum Interpolation : UInt32 { Step = 0, Linear = 1, Smooth = 2, Sampled = 3, Bezier = 5 };

    const std::string& getChannel() const { return _channel; }
    const std::string& getComponent() const { return _component; }
    void setChannel(const std::string& channel, const std::string& component);

    void reserve(UInt32 n) { _points.reserve(n); }
    // Appends a point; record ControlPointsFieldMask when done adding.
    void addPoint(const Pnt2f& point, const Vec2f& inTangent, const Vec2f& outTangent,
                  UInt32 inType, UInt32 outType, bool isKey, bool tangentsBroken);
    const std::vector<CCPnt>& getControlPoints() const { return _points; }
    std::vector<CCPnt>& editControlPoints() { return _points; }
    UInt32 size() const { return static_cast<UInt32>(_points.size()); }
    void clear();

    // Makes the point list consistent: sortByTime sorts points by time
    // (stable), removeDuplicates drops points whose time equals the previous
    // point's, sampled marks the curve as sampled on frames. Returns true when
    // the times are strictly increasing afterwards.
    bool verify(bool sortByTime, bool removeDuplicates, bool sampled);
    bool isSampled() const { return _sampled; }

    // Value at time t (seconds); holds the first/last value outside.
    Real32 evaluate(Real32 t) const;

private:
    std::string _channel, _component;
    std::vector<CCPnt> _points;
    bool _sampled = false;
};

class AnimAttachment : public Attachment {
    KS_FIELD_CONTAINER_DECL(AnimAttachment, Attachment)
public:
    AttachmentPtr clone() const override;
    static constexpr BitVector RootFieldMask = 1ull << 2;
    static constexpr BitVector ChannelsFieldMask = 1ull << 3;

    AnimAttachment();
    AnimAttachment(const AnimAttachment& o); // shares the tree
    AnimNodePtr getRoot() const { return _root; }

    // Channels (name, component) that have curve nodes on this attachment;
    // filled by ksAnimManager::createChannelCurveNode.
    struct Channel {
        std::string name, component;
    };
    const std::vector<Channel>& getChannels() const { return _channels; }
    void addChannel(const std::string& name, const std::string& component);
    bool hasChannel(const std::string& name, const std::string& component) const;

private:
    AnimNodePtr _root;
    std::vector<Channel> _channels;
};

} // namespace osg
