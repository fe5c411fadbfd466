// Curve filters: constant-key reduction and resampling.
#include <algorithm>
#include <cmath>
#include <vector>

#include "qdxsdk/anim.h"

namespace qdxsdk {

bool QdxAnimCurveFilter::Apply(QdxAnimCurve** curves, int count, QdxStatus* status) {
    bool ok = true;
    for (int i = 0; i < count; ++i)
        if (curves[i]) ok &= Apply(*curves[i], status);
    return ok;
}

bool QdxAnimCurveFilter::Apply(QdxAnimCurveNode& node, QdxStatus* status) {
    bool ok = true;
    for (unsigned int c = 0; c < node.GetChannelsCount(); ++c)
        for (int i = 0; i < node.GetCurveCount(c); ++i)
            ok &= Apply(*node.GetCurve(c, static_cast<unsigned int>(i)), status);
    return ok;
}

bool QdxAnimCurveFilter::Apply(QdxAnimStack* stack, QdxStatus* status) {
    if (!stack) return false;
    bool ok = true;
    for (int l = 0; l < stack->GetLayerCount(); ++l) {
        QdxAnimLayer* layer = stack->GetLayer(l);
        for (int n = 0; n < layer->GetCurveNodeCount(); ++n)
            ok &= Apply(*layer->GetCurveNode(n), status);
    }
    return ok;
}

namespace {
// True when the curve is constant on [key a, key b] given the keys' values.
bool SegmentFlat(const QdxAnimCurve& c, int a, int b, double tol) {
    if (std::fabs(c.KeyGetValue(a) - c.KeyGetValue(b)) > tol) return false;
    if (c.KeyGetInterpolation(a) != QdxAnimCurveDef::eInterpolationCubic) return true;
    return c.KeyGetRightDerivative(a) == 0.0 && c.KeyGetLeftDerivative(b) == 0.0;
}
} // namespace

bool QdxAnimCurveFilterConstantKeyReducer::Apply(QdxAnimCurve& curve, QdxStatus* status) {
    if (status) status->Clear();
    int n = curve.KeyGetCount();
    if (n == 0) return true;
    bool preConstant = curve.GetPreExtrapolation() == QdxAnimCurveDef::eConstant;
    bool postConstant = curve.GetPostExtrapolation() == QdxAnimCurveDef::eConstant;
    std::vector<char> keep(static_cast<size_t>(n), 1);
    int prevKept = -1;
    for (int i = 0; i < n; ++i) {
        QdxTime t = curve.KeyGetTime(i);
        bool inSpan = t >= mStart && t <= mStop;
        bool pinned = !inSpan ||
                      (mKeepNotPureAuto &&
                       curve.KeyGetInterpolation(i) == QdxAnimCurveDef::eInterpolationCubic &&
                       curve.KeyGetTangentMode(i) != QdxAnimCurveDef::eTangentAuto) ||
                      (mKeepEnds && (i == 0 || i == n - 1));
        bool leftFlat, rightFlat;
        if (prevKept < 0)
            leftFlat = preConstant; // nothing kept before: extrapolation side
        else
            leftFlat = SegmentFlat(curve, prevKept, i, mTolerance);
        if (i + 1 < n) {
            rightFlat = SegmentFlat(curve, i, i + 1, mTolerance);
            // The segment that replaces both must be flat as well.
            if (prevKept >= 0)
                rightFlat = rightFlat && SegmentFlat(curve, prevKept, i + 1, mTolerance);
        } else {
            rightFlat = postConstant && prevKept >= 0;
        }
        // The first key may go only when the next key carries the same value on.
        if (prevKept < 0 && i + 1 >= n) rightFlat = false;
        if (!pinned && leftFlat && rightFlat) {
            keep[static_cast<size_t>(i)] = 0;
            continue;
        }
        prevKept = i;
    }
    int kept = 0;
    for (char k : keep)
        kept += k;
    if (kept == 0) keep[static_cast<size_t>(n) - 1] = 1;
    for (int i = n - 1; i >= 0; --i)
        if (!keep[static_cast<size_t>(i)]) curve.KeyRemove(i);
    if (!mKeepOneKey && curve.KeyGetCount() == 1 && n > 1) {
        // A single flat key: hand its value to the channels and drop it.
        double v = curve.KeyGetValue(0);
        for (int d = 0; d < curve.GetDstPropertyCount(); ++d)
            curve.GetDstProperty(d).Set(v);
        curve.KeyClear();
    }
    return true;
}

bool QdxAnimCurveFilterResample::Apply(QdxAnimCurve& curve, QdxStatus* status) {
    if (status) status->Clear();
    int n = curve.KeyGetCount();
    long long period = mPeriod.Get();
    if (n < 2 || period <= 0) return n < 2;
    long long first = curve.KeyGetTime(0).Get(), last = curve.KeyGetTime(n - 1).Get();
    long long from = std::max(first, mStart.Get()), to = std::min(last, mStop.Get());
    if (from > to) return true;
    std::vector<long long> times;
    if (mKeysOnFrame) {
        long long k0 = from >= 0 ? (from + period - 1) / period : -((-from) / period);
        long long k1 = to >= 0 ? to / period : -((-to + period - 1) / period);
        for (long long k = k0; k <= k1; ++k)
            times.push_back(k * period);
    } else {
        for (long long t = from; t <= to; t += period)
            times.push_back(t);
        if (times.empty() || times.back() != to) times.push_back(to);
    }
    // Keys outside the resampled span stay as they are.
    std::vector<long long> outside;
    for (int i = 0; i < n; ++i) {
        long long t = curve.KeyGetTime(i).Get();
        if (t < from || t > to || mIntelligent) outside.push_back(t);
    }
    std::vector<long long> all = times;
    all.insert(all.end(), outside.begin(), outside.end());
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    std::vector<double> values(all.size()), slopes(all.size());
    double h = std::min(static_cast<double>(period) / QdxTime::kTicksPerSecond * 0.25, 1e-3);
    for (size_t i = 0; i < all.size(); ++i) {
        QdxTime t(all[i]);
        values[i] = curve.Evaluate(t);
        QdxTime a, b;
        a.SetSecondDouble(t.GetSecondDouble() - h);
        b.SetSecondDouble(t.GetSecondDouble() + h);
        double span = b.GetSecondDouble() - a.GetSecondDouble();
        slopes[i] = span > 0 ? (curve.Evaluate(b) - curve.Evaluate(a)) / span : 0.0;
    }
    curve.KeyClear();
    curve.KeyAppend(all.data(), values.data(), static_cast<int>(all.size()),
                    QdxAnimCurveDef::eInterpolationCubic);
    for (size_t i = 0; i < all.size(); ++i) {
        int k = static_cast<int>(i);
        curve.KeySetTangentMode(k, QdxAnimCurveDef::eTangentUser);
        curve.KeySetLeftDerivative(k, slopes[i]);
        curve.KeySetRightDerivative(k, slopes[i]);
    }
    return true;
}

} // namespace qdxsdk
