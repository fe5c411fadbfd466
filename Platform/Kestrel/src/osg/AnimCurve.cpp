#include <algorithm>
#include <cmath>
#include <utility>

#include <kestrel/osg/AnimCurve.h>

#include <kestrel/osg/Animation.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(AnimCurve)

void AnimCurve::setChannel(const std::string& channel, const std::string& component) {
    _channel = channel;
    _component = component;
    setName(component.empty() ? channel : channel + component);
    changed(ChannelFieldMask);
}

void AnimCurve::addPoint(const Pnt2f& point, const Vec2f& inTangent, const Vec2f& outTangent,
                         UInt32 inType, UInt32 outType, bool isKey, bool tangentsBroken) {
    CCPnt p;
    p.point = point;
    p.inTangent = inTangent;
    p.outTangent = outTangent;
    p.inType = inType;
    p.outType = outType;
    p.isKey = isKey;
    p.tangentsBroken = tangentsBroken;
    _points.push_back(p);
}

void AnimCurve::clear() {
    _points.clear();
    changed(ControlPointsFieldMask);
}

bool AnimCurve::verify(bool sortByTime, bool removeDuplicates, bool sampled) {
    if (sortByTime)
        std::stable_sort(_points.begin(), _points.end(),
                         [](const CCPnt& a, const CCPnt& b) { return a.point[0] < b.point[0]; });
    if (removeDuplicates) {
        auto it = std::unique(_points.begin(), _points.end(), [](const CCPnt& a, const CCPnt& b) {
            return a.point[0] == b.point[0];
        });
        _points.erase(it, _points.end());
    }
    _sampled = sampled;
    changed(ControlPointsFieldMask);
    for (std::size_t i = 1; i < _points.size(); ++i)
        if (!(_points[i - 1].point[0] < _points[i].point[0])) return false;
    return true;
}

namespace {
// Cubic Bezier in one dimension.
double bez(double a, double b, double c, double d, double s) {
    double u = 1 - s;
    return u * u * u * a + 3 * u * u * s * b + 3 * u * s * s * c + s * s * s * d;
}
} // namespace

Real32 AnimCurve::evaluate(Real32 t) const {
    return (evaluateDouble(t));
}

Real64 AnimCurve::evaluateDouble(Real64 t) const {
    if (_points.empty()) return 0.0;
    if (t <= _points.front().point[0]) return _points.front().point[1];
    if (t >= _points.back().point[0]) return _points.back().point[1];
    auto it = std::upper_bound(_points.begin(), _points.end(), t,
                               [](Real64 v, const CCPnt& p) { return v < p.point[0]; });
    const CCPnt& q = *it;
    const CCPnt& p = *(it - 1);
    double t0 = p.point[0], t1 = q.point[0], v0 = p.point[1], v1 = q.point[1];
    double dt = t1 - t0;
    if (dt <= 0) return q.point[1];
    double s = (t - t0) / dt;
    switch (p.outType) {
    case Step:
        return p.point[1];
    case Linear:
        return (v0 + (v1 - v0) * s);
    case Smooth: {
        // Catmull-Rom slopes from the neighbours.
        std::size_t i = static_cast<std::size_t>(it - _points.begin()) - 1;
        auto slope = [&](std::size_t k) {
            std::size_t a = k > 0 ? k - 1 : k, b = k + 1 < _points.size() ? k + 1 : k;
            double ta = _points[a].point[0], tb = _points[b].point[0];
            return tb > ta ? (_points[b].point[1] - _points[a].point[1]) / (tb - ta) : 0.0;
        };
        double m0 = slope(i) * dt, m1 = slope(i + 1) * dt;
        double s2 = s * s, s3 = s2 * s;
        return ((2 * s3 - 3 * s2 + 1) * v0 + (s3 - 2 * s2 + s) * m0 + (-2 * s3 + 3 * s2) * v1 +
                (s3 - s2) * m1);
    }
    default: {
        // Bezier in (time, value): find the parameter whose time is t. A
        // handle reaching past the segment (or backwards) is shortened along
        // its own direction, so time stays monotonic and the slope is kept.
        auto handle = [dt](const Vec2f& tangent, double sign) {
            double dx = sign * tangent[0], dy = tangent[1];
            if (!(dx > 0)) return std::pair<double, double>(0.0, 0.0);
            double k = dx > dt ? dt / dx : 1.0;
            return std::pair<double, double>(sign * dx * k, dy * k);
        };
        auto [ox, oy] = handle(p.outTangent, 1.0);
        auto [ix, iy] = handle(q.inTangent, -1.0);
        double x1 = t0 + ox, x2 = t1 + ix;
        double y1 = v0 + oy, y2 = v1 + iy;
        double lo = 0, hi = 1, u = s;
        for (int k = 0; k < 60; ++k) {
            u = 0.5 * (lo + hi);
            if (bez(t0, x1, x2, t1, u) < t)
                lo = u;
            else
                hi = u;
        }
        return (bez(v0, y1, y2, v1, u));
    }
    }
}

} // namespace osg
