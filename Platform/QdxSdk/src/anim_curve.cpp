// Animation curves: keys and evaluation.
#include <algorithm>
#include <cmath>
#include <vector>

#include "impl.h"
#include "qdxsdk/anim.h"

namespace qdxsdk {

using detail::ArrayKind;

QDX_IMPLEMENT_OBJECT(QdxAnimCurve, QdxObject, "QdxAnimCurve")

namespace {
constexpr double kTicks = static_cast<double>(QdxTime::kTicksPerSecond);
} // namespace

QdxAnimCurve::QdxAnimCurve(QdxManager& m, const char* name) : QdxObject(m, name) {
    PreExtrapolation = AddProperty(QdxEnumDT, "PreExtrapolation", static_cast<int>(eConstant));
    PostExtrapolation = AddProperty(QdxEnumDT, "PostExtrapolation", static_cast<int>(eConstant));
    mTime = AddOwnArray("KeyTime", ArrayKind::Int64);
    mValue = AddOwnArray("KeyValue", ArrayKind::Double);
    mInterp = AddOwnArray("KeyInterpolation", ArrayKind::Int32);
    mConstant = AddOwnArray("KeyConstantMode", ArrayKind::Int32);
    mTangent = AddOwnArray("KeyTangentMode", ArrayKind::Int32);
    mDeriv = AddOwnArray("KeyDerivatives", ArrayKind::Double); // left, right
    mWeight = AddOwnArray("KeyWeights", ArrayKind::Double);    // left, right
}

#define QDX_CURVE_ARRAYS                                                                           \
    auto& A = const_cast<QdxAnimCurve*>(this)->Arrays();                                           \
    auto& times = A[static_cast<size_t>(mTime)].Elements<int64_t>();                               \
    auto& values = A[static_cast<size_t>(mValue)].Elements<double>();                              \
    auto& interp = A[static_cast<size_t>(mInterp)].Elements<int32_t>();                            \
    auto& cmode = A[static_cast<size_t>(mConstant)].Elements<int32_t>();                           \
    auto& tmode = A[static_cast<size_t>(mTangent)].Elements<int32_t>();                            \
    auto& deriv = A[static_cast<size_t>(mDeriv)].Elements<double>();                               \
    auto& weight = A[static_cast<size_t>(mWeight)].Elements<double>();                             \
    (void)times, (void)values, (void)interp, (void)cmode, (void)tmode, (void)deriv, (void)weight;

int QdxAnimCurve::KeyGetCount() const {
    const auto& A = Arrays();
    size_t n = A[static_cast<size_t>(mTime)].Elements<int64_t>().size();
    // A curve read from a file is checked for consistent arrays; guard anyway.
    n = std::min({n, A[static_cast<size_t>(mValue)].Elements<double>().size(),
                  A[static_cast<size_t>(mInterp)].Elements<int32_t>().size(),
                  A[static_cast<size_t>(mConstant)].Elements<int32_t>().size(),
                  A[static_cast<size_t>(mTangent)].Elements<int32_t>().size(),
                  A[static_cast<size_t>(mDeriv)].Elements<double>().size() / 2,
                  A[static_cast<size_t>(mWeight)].Elements<double>().size() / 2});
    return static_cast<int>(n);
}

void QdxAnimCurve::KeyClear() {
    QDX_CURVE_ARRAYS
    times.clear(), values.clear(), interp.clear(), cmode.clear(), tmode.clear(), deriv.clear(),
        weight.clear();
}

int QdxAnimCurve::KeyFind(QdxTime time) const {
    QDX_CURVE_ARRAYS
    auto it = std::lower_bound(times.begin(), times.end(), time.Get());
    return it != times.end() && *it == time.Get() ? static_cast<int>(it - times.begin()) : -1;
}

int QdxAnimCurve::KeyAdd(QdxTime time, int* lastIndex) {
    QDX_CURVE_ARRAYS
    auto it = std::lower_bound(times.begin(), times.end(), time.Get());
    size_t at = static_cast<size_t>(it - times.begin());
    if (it != times.end() && *it == time.Get()) {
        if (lastIndex) *lastIndex = static_cast<int>(at);
        return static_cast<int>(at);
    }
    double v = times.empty() ? 0.0 : Evaluate(time);
    int in = times.empty() ? eInterpolationCubic : interp[at > 0 ? at - 1 : 0];
    times.insert(times.begin() + static_cast<long>(at), time.Get());
    values.insert(values.begin() + static_cast<long>(at), v);
    interp.insert(interp.begin() + static_cast<long>(at), in);
    cmode.insert(cmode.begin() + static_cast<long>(at), eConstantStandard);
    tmode.insert(tmode.begin() + static_cast<long>(at), eTangentAuto);
    deriv.insert(deriv.begin() + static_cast<long>(at * 2), {0.0, 0.0});
    weight.insert(weight.begin() + static_cast<long>(at * 2), {sDefaultWeight, sDefaultWeight});
    if (lastIndex) *lastIndex = static_cast<int>(at);
    return static_cast<int>(at);
}

void QdxAnimCurve::KeySet(int index, QdxTime time, double value, EInterpolationType interpolation,
                          ETangentMode tangentMode, double rightDerivative, double leftDerivative,
                          double rightWeight, double leftWeight) {
    if (index < 0 || index >= KeyGetCount()) return;
    QDX_CURVE_ARRAYS
    size_t i = static_cast<size_t>(index);
    times[i] = time.Get();
    values[i] = value;
    interp[i] = interpolation;
    tmode[i] = tangentMode;
    deriv[2 * i] = leftDerivative;
    deriv[2 * i + 1] = rightDerivative;
    weight[2 * i] = leftWeight;
    weight[2 * i + 1] = rightWeight;
}

bool QdxAnimCurve::KeyRemove(int index) {
    return KeyRemove(index, index);
}

bool QdxAnimCurve::KeyRemove(int first, int last) {
    int n = KeyGetCount();
    if (first < 0 || last < first || last >= n) return false;
    QDX_CURVE_ARRAYS
    auto cut = [&](auto& v, int stride) {
        v.erase(v.begin() + first * stride, v.begin() + (last + 1) * stride);
    };
    cut(times, 1), cut(values, 1), cut(interp, 1), cut(cmode, 1), cut(tmode, 1), cut(deriv, 2),
        cut(weight, 2);
    return true;
}

int QdxAnimCurve::KeyRemoveMarked(const std::vector<char>& remove) {
    QDX_CURVE_ARRAYS
    size_t n = static_cast<size_t>(KeyGetCount());
    size_t out = 0;
    for (size_t i = 0; i < n; ++i) {
        if (i < remove.size() && remove[i]) continue;
        if (out != i) {
            times[out] = times[i], values[out] = values[i], interp[out] = interp[i];
            cmode[out] = cmode[i], tmode[out] = tmode[i];
            deriv[2 * out] = deriv[2 * i], deriv[2 * out + 1] = deriv[2 * i + 1];
            weight[2 * out] = weight[2 * i], weight[2 * out + 1] = weight[2 * i + 1];
        }
        ++out;
    }
    times.resize(out), values.resize(out), interp.resize(out), cmode.resize(out), tmode.resize(out),
        deriv.resize(2 * out), weight.resize(2 * out);
    return static_cast<int>(n - out);
}

void QdxAnimCurve::KeyAppend(const long long* t, const double* v, int count,
                             EInterpolationType interpolation) {
    QDX_CURVE_ARRAYS
    for (int k = 0; k < count; ++k) {
        times.push_back(t[k]);
        values.push_back(v[k]);
        interp.push_back(interpolation);
        cmode.push_back(eConstantStandard);
        tmode.push_back(eTangentAuto);
        deriv.insert(deriv.end(), {0.0, 0.0});
        weight.insert(weight.end(), {sDefaultWeight, sDefaultWeight});
    }
}

#define QDX_KEY_GUARD(fallback)                                                                    \
    if (index < 0 || index >= KeyGetCount()) return fallback;                                      \
    QDX_CURVE_ARRAYS                                                                               \
    size_t i = static_cast<size_t>(index);

QdxTime QdxAnimCurve::KeyGetTime(int index) const {
    QDX_KEY_GUARD(QdxTime())
    return QdxTime(times[i]);
}
void QdxAnimCurve::KeySetTime(int index, QdxTime t) {
    QDX_KEY_GUARD()
    times[i] = t.Get();
}
double QdxAnimCurve::KeyGetValue(int index) const {
    QDX_KEY_GUARD(0.0)
    return values[i];
}
void QdxAnimCurve::KeySetValue(int index, double v) {
    QDX_KEY_GUARD()
    values[i] = v;
}
QdxAnimCurveDef::EInterpolationType QdxAnimCurve::KeyGetInterpolation(int index) const {
    QDX_KEY_GUARD(eInterpolationCubic)
    return static_cast<EInterpolationType>(interp[i]);
}
void QdxAnimCurve::KeySetInterpolation(int index, EInterpolationType t) {
    QDX_KEY_GUARD()
    interp[i] = t;
}
QdxAnimCurveDef::EConstantMode QdxAnimCurve::KeyGetConstantMode(int index) const {
    QDX_KEY_GUARD(eConstantStandard)
    return static_cast<EConstantMode>(cmode[i]);
}
void QdxAnimCurve::KeySetConstantMode(int index, EConstantMode m) {
    QDX_KEY_GUARD()
    cmode[i] = m;
}
QdxAnimCurveDef::ETangentMode QdxAnimCurve::KeyGetTangentMode(int index) const {
    QDX_KEY_GUARD(eTangentAuto)
    return static_cast<ETangentMode>(tmode[i]);
}
void QdxAnimCurve::KeySetTangentMode(int index, ETangentMode m) {
    QDX_KEY_GUARD()
    tmode[i] = m;
}
double QdxAnimCurve::KeyGetLeftDerivative(int index) const {
    QDX_KEY_GUARD(0.0)
    return deriv[2 * i];
}
void QdxAnimCurve::KeySetLeftDerivative(int index, double d) {
    QDX_KEY_GUARD()
    deriv[2 * i] = d;
}
double QdxAnimCurve::KeyGetRightDerivative(int index) const {
    QDX_KEY_GUARD(0.0)
    return deriv[2 * i + 1];
}
void QdxAnimCurve::KeySetRightDerivative(int index, double d) {
    QDX_KEY_GUARD()
    deriv[2 * i + 1] = d;
}
double QdxAnimCurve::KeyGetLeftTangentWeight(int index) const {
    QDX_KEY_GUARD(sDefaultWeight)
    return weight[2 * i];
}
void QdxAnimCurve::KeySetLeftTangentWeight(int index, double w) {
    QDX_KEY_GUARD()
    weight[2 * i] = w;
}
double QdxAnimCurve::KeyGetRightTangentWeight(int index) const {
    QDX_KEY_GUARD(sDefaultWeight)
    return weight[2 * i + 1];
}
void QdxAnimCurve::KeySetRightTangentWeight(int index, double w) {
    QDX_KEY_GUARD()
    weight[2 * i + 1] = w;
}

bool QdxAnimCurve::GetTimeInterval(QdxTimeSpan& span) const {
    int n = KeyGetCount();
    if (n == 0) return false;
    span.Set(KeyGetTime(0), KeyGetTime(n - 1));
    return true;
}

namespace {
// A weight below the threshold gives a degenerate handle; the key's other
// side stands in for it (tested once: the stand-in is used as it is).
double UsableWeight(double own, double otherSide) {
    return own < QdxAnimCurveDef::sMinUsableWeight ? otherSide : own;
}

// Parameter s in [0, 1] with X(s) = u for the normalised Bezier abscissa
// X(s) = 3a s(1-s)^2 + 3b s^2(1-s) + s^3 (monotonic for a, b in [0, 1]).
double SolveAbscissa(double a, double b, double u) {
    auto X = [&](double s) {
        double r = 1 - s;
        return 3 * a * s * r * r + 3 * b * s * s * r + s * s * s;
    };
    auto dX = [&](double s) {
        double r = 1 - s;
        return 3 * a * r * r + 6 * (b - a) * s * r + 3 * (1 - b) * s * s;
    };
    double lo = 0, hi = 1, s = u;
    for (int it = 0; it < 100; ++it) {
        double x = X(s) - u;
        if (std::fabs(x) < 1e-15) return s;
        if (x > 0)
            hi = s;
        else
            lo = s;
        double d = dX(s);
        double next = d > 1e-12 ? s - x / d : 0.5 * (lo + hi);
        if (!(next > lo && next < hi)) next = 0.5 * (lo + hi);
        if (std::fabs(next - s) < 1e-16) return next;
        s = next;
    }
    return s;
}
} // namespace

double QdxAnimCurve::EvaluateInside(long long t, int* lastIndex) const {
    QDX_CURVE_ARRAYS
    size_t n = static_cast<size_t>(KeyGetCount());
    size_t k;
    if (lastIndex && *lastIndex >= 0 && static_cast<size_t>(*lastIndex) + 1 < n &&
        times[static_cast<size_t>(*lastIndex)] <= t &&
        t < times[static_cast<size_t>(*lastIndex) + 1]) {
        k = static_cast<size_t>(*lastIndex);
    } else {
        k = static_cast<size_t>(
            std::upper_bound(times.begin(), times.begin() + static_cast<long>(n), t) -
            times.begin());
        k = k == 0 ? 0 : k - 1;
    }
    if (lastIndex) *lastIndex = static_cast<int>(k);
    if (k + 1 >= n) return values[n - 1];
    double t0 = static_cast<double>(times[k]) / kTicks,
           t1 = static_cast<double>(times[k + 1]) / kTicks;
    double v0 = values[k], v1 = values[k + 1];
    double dt = t1 - t0;
    double u = dt > 0 ? (static_cast<double>(t) / kTicks - t0) / dt : 0.0;
    switch (interp[k]) {
    case eInterpolationConstant:
        return cmode[k] == eConstantNext ? v1 : v0;
    case eInterpolationLinear:
        return v0 + (v1 - v0) * u;
    default:
        break;
    }
    double wr = std::clamp(UsableWeight(weight[2 * k + 1], weight[2 * k]), 0.0, 1.0);
    double wl = std::clamp(UsableWeight(weight[2 * (k + 1)], weight[2 * (k + 1) + 1]), 0.0, 1.0);
    double dr = deriv[2 * k + 1], dl = deriv[2 * (k + 1)];
    double y1 = v0 + dr * wr * dt, y2 = v1 - dl * wl * dt;
    if (v0 == v1 && y1 == v0 && y2 == v1) return v0; // flat: exact, whatever the rounding
    double s = (wr == sDefaultWeight && wl == sDefaultWeight) ? u : SolveAbscissa(wr, 1 - wl, u);
    double r = 1 - s;
    return r * r * r * v0 + 3 * r * r * s * y1 + 3 * r * s * s * y2 + s * s * s * v1;
}

double QdxAnimCurve::Evaluate(QdxTime time, int* lastIndex) const {
    int n = KeyGetCount();
    if (n == 0) return 0.0;
    QDX_CURVE_ARRAYS
    if (n == 1) return values[0];
    long long first = times[0], last = times[static_cast<size_t>(n) - 1];
    long long t = time.Get();
    if (t >= first && t <= last) return EvaluateInside(t, lastIndex);
    bool before = t < first;
    EExtrapolationType mode = before ? GetPreExtrapolation() : GetPostExtrapolation();
    long long span = last - first;
    switch (mode) {
    case eRepetition:
    case eMirrorRepetition: {
        if (span <= 0) break;
        long long rel = t - first;
        long long cycle = rel >= 0 ? rel / span : -((-rel + span - 1) / span);
        long long in = rel - cycle * span;
        if (mode == eMirrorRepetition && (cycle % 2 != 0)) in = span - in;
        return EvaluateInside(first + in, nullptr);
    }
    case eKeepSlope: {
        size_t k = before ? 0 : static_cast<size_t>(n) - 1;
        double slope;
        size_t seg = before ? 0 : static_cast<size_t>(n) - 2;
        double segDt = static_cast<double>(times[seg + 1] - times[seg]) / kTicks;
        if (interp[seg] == eInterpolationLinear)
            slope = segDt > 0 ? (values[seg + 1] - values[seg]) / segDt : 0.0;
        else if (interp[seg] == eInterpolationCubic)
            slope = before ? deriv[1] : deriv[2 * k];
        else
            slope = 0.0;
        double dt = static_cast<double>(t - times[k]) / kTicks;
        return values[k] + slope * dt;
    }
    default:
        break;
    }
    return before ? values[0] : values[static_cast<size_t>(n) - 1];
}

} // namespace qdxsdk

namespace qdxsdk {

bool QdxAnimCurve::FinishRead(QdxStatus& status) {
    QDX_CURVE_ARRAYS
    size_t n = times.size();
    bool ok = values.size() == n && interp.size() == n && cmode.size() == n && tmode.size() == n &&
              deriv.size() == 2 * n && weight.size() == 2 * n;
    for (size_t i = 1; ok && i < n; ++i)
        ok = times[i - 1] < times[i];
    if (!ok)
        status.SetCode(QdxStatus::eInvalidFile,
                       std::string("Animation curve '") + GetName() + "' has inconsistent keys");
    return ok;
}

} // namespace qdxsdk
