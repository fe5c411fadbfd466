#pragma once
#include <string>
#include <vector>

#include <kestrel/osg/AnimNode.h>
#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>

namespace osg {

KS_FC_TYPEDEFS(AnimNode)
KS_FC_TYPEDEFS(AnimCurve)
KS_FC_TYPEDEFS(AnimAttachment)

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

    // Value at time t (seconds); holds the first/last value outside. The
    // segment after a point follows the point's outType. A cubic handle
    // longer than its segment, or pointing backwards in time, is shortened
    // along its direction to the segment (or to nothing).
    Real32 evaluate(Real32 t) const;
    // The same in double precision (the points themselves are float).
    Real64 evaluateDouble(Real64 t) const;

private:
    std::string _channel, _component;
    std::vector<CCPnt> _points;
    bool _sampled = false;
};

} // namespace osg
