// Curve filters: constant-key reduction and resampling.
#include <algorithm>
#include <cmath>
#include <utility>
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

// Keeps the resampled cubic from overshooting where the samples are
// monotone: at a sample whose two neighbouring secants have the same sign
// (or one is flat), each side's slope gets that side's sign and at most
// three times its secant, which keeps a Hermite segment monotone. Where the
// secants change sign the sample is an extremum of the data and its slopes
// stay as the curve had them.
void LimitSlopes(const std::vector<long long>& times, const std::vector<double>& values,
                 std::vector<double>& left, std::vector<double>& right) {
    size_t m = times.size();
    auto secant = [&](size_t j) { // segment j -> j + 1
        double dt = static_cast<double>(times[j + 1] - times[j]) / QdxTime::kTicksPerSecond;
        return dt > 0 ? (values[j + 1] - values[j]) / dt : 0.0;
    };
    auto limit = [](double d, double s) {
        if (s == 0.0 || d * s <= 0.0) return 0.0;
        return s > 0 ? std::min(d, 3 * s) : std::max(d, 3 * s);
    };
    for (size_t i = 0; i < m; ++i) {
        bool hasL = i > 0, hasR = i + 1 < m;
        double sl = hasL ? secant(i - 1) : 0.0, sr = hasR ? secant(i) : 0.0;
        if (hasL && hasR && sl * sr < 0) continue; // extremum of the data
        if (hasL) left[i] = limit(left[i], sl);
        if (hasR) right[i] = limit(right[i], sr);
        // An end sample has one side only: both slopes are that side's.
        if (!hasL) left[i] = right[i];
        if (!hasR) right[i] = left[i];
    }
}
} // namespace

bool QdxAnimCurveFilterConstantKeyReducer::Apply(QdxAnimCurve& curve, QdxStatus* status) {
    if (status) status->Clear();
    int n = curve.KeyGetCount();
    if (n == 0) return true;
    bool preConstant = curve.GetPreExtrapolation() == QdxAnimCurveDef::eConstant;
    bool postConstant = curve.GetPostExtrapolation() == QdxAnimCurveDef::eConstant;
    // A repeating side repeats the span between the end keys: keep both.
    auto repeats = [](QdxAnimCurveDef::EExtrapolationType e) {
        return e == QdxAnimCurveDef::eRepetition || e == QdxAnimCurveDef::eMirrorRepetition;
    };
    bool keepEnds =
        mKeepEnds || repeats(curve.GetPreExtrapolation()) || repeats(curve.GetPostExtrapolation());
    std::vector<char> keep(static_cast<size_t>(n), 1);
    int prevKept = -1;
    for (int i = 0; i < n; ++i) {
        QdxTime t = curve.KeyGetTime(i);
        bool inSpan = t >= mStart && t <= mStop;
        bool pinned = !inSpan ||
                      (mKeepNotPureAuto &&
                       curve.KeyGetInterpolation(i) == QdxAnimCurveDef::eInterpolationCubic &&
                       curve.KeyGetTangentMode(i) != QdxAnimCurveDef::eTangentAuto) ||
                      (keepEnds && (i == 0 || i == n - 1));
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
    if (std::find(keep.begin(), keep.end(), 1) == keep.end()) keep.back() = 1;
    for (char& k : keep)
        k = !k;
    curve.KeyRemoveMarked(keep);
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
    // One-sided derivatives of the original curve, so that a step at a
    // sample does not leak into both of its segments.
    size_t m = all.size();
    std::vector<double> values(m), left(m), right(m);
    double h = std::min(static_cast<double>(period) / QdxTime::kTicksPerSecond * 0.25, 1e-3);
    auto at = [&](double seconds) {
        QdxTime t;
        t.SetSecondDouble(seconds);
        return std::pair<double, double>(curve.Evaluate(t), t.GetSecondDouble());
    };
    for (size_t i = 0; i < m; ++i) {
        QdxTime t(all[i]);
        double x = t.GetSecondDouble();
        values[i] = curve.Evaluate(t);
        auto [va, xa] = at(x - h);
        auto [vb, xb] = at(x + h);
        left[i] = x > xa ? (values[i] - va) / (x - xa) : 0.0;
        right[i] = xb > x ? (vb - values[i]) / (xb - x) : 0.0;
    }
    if (m > 0) left[0] = right[0], right[m - 1] = left[m - 1];
    LimitSlopes(all, values, left, right);
    curve.KeyClear();
    curve.KeyAppend(all.data(), values.data(), static_cast<int>(all.size()),
                    QdxAnimCurveDef::eInterpolationCubic);
    for (size_t i = 0; i < all.size(); ++i) {
        int k = static_cast<int>(i);
        curve.KeySetTangentMode(k, QdxAnimCurveDef::eTangentUser);
        curve.KeySetLeftDerivative(k, left[i]);
        curve.KeySetRightDerivative(k, right[i]);
        if (left[i] != right[i]) curve.KeySetTangentMode(k, QdxAnimCurveDef::eTangentBreak);
    }
    return true;
}

} // namespace qdxsdk
