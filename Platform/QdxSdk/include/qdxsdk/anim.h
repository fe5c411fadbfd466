// Animation: stacks of layers; a layer holds curve nodes, each animating one
// property through one curve per channel; curves hold keys.
//
// A cubic segment from key k to key k+1 is the Bezier curve in (time, value)
// with control points
//   P0 = (t0, v0), P1 = P0 + wr0 * dt * (1, dr0),
//   P2 = P3 - wl1 * dt * (1, dl1), P3 = (t1, v1),   dt = t1 - t0,
// where dr/dl are a key's right/left derivatives (value per second) and
// wr/wl its right/left tangent weights (1/3 gives a plain Hermite segment).
// A weight below sMinUsableWeight (0.001) is replaced by the same key's
// weight on its other side; weights are then clamped to [0, 1], so the
// segment's time stays monotonic. Outside the keys, pre- and
// post-extrapolation apply (constant by default: the end key's value).
#pragma once

#include <vector>

#include "qdxsdk/object.h"
#include "qdxsdk/time.h"

namespace qdxsdk {

class QdxAnimLayer;
class QdxAnimCurve;
class QdxAnimCurveNode;
class QdxScene;

class QdxAnimStack : public QdxObject {
    QDX_DECLARE_OBJECT(QdxAnimStack)
public:
    QdxTimeSpan GetLocalTimeSpan() const;
    void SetLocalTimeSpan(const QdxTimeSpan& span);
    QdxTimeSpan GetReferenceTimeSpan() const;
    void SetReferenceTimeSpan(const QdxTimeSpan& span);
    bool AddMember(QdxAnimLayer* layer);
    int GetLayerCount() const;
    QdxAnimLayer* GetLayer(int index) const;

    QdxPropertyT<QdxString> Description;
    QdxPropertyT<QdxTime> LocalStart, LocalStop, ReferenceStart, ReferenceStop;
};

class QdxAnimLayer : public QdxObject {
    QDX_DECLARE_OBJECT(QdxAnimLayer)
public:
    // How this layer's value combines with the layers below it. Additive
    // adds weight * value (scaling multiplies by value ^ weight); override
    // blends towards the value by the weight.
    enum EBlendMode { eBlendAdditive = 0, eBlendOverride = 1, eBlendOverridePassthrough = 2 };
    QdxPropertyT<double> Weight; // percent
    QdxPropertyT<bool> Mute, Solo, Lock;
    QdxPropertyT<int> BlendMode;
    int GetCurveNodeCount() const;
    QdxAnimCurveNode* GetCurveNode(int index) const;
};

// Animates one property: one channel (a double property of the curve node)
// per component, each with connected curves; a channel without a curve
// keeps its value.
class QdxAnimCurveNode : public QdxObject {
    QDX_DECLARE_OBJECT(QdxAnimCurveNode)
public:
    // A curve node with one channel per component of property's value,
    // connected to property and to layer (when given).
    static QdxAnimCurveNode* CreateTypedCurveNode(QdxProperty& property, QdxScene* scene);

    bool AddChannel(const char* name, double value);
    unsigned int GetChannelsCount() const;
    int GetChannelIndex(const char* name) const;
    QdxString GetChannelName(int channel) const;
    double GetChannelValue(unsigned int channel, double defaultValue) const;
    bool SetChannelValue(unsigned int channel, double value);
    bool ConnectToChannel(QdxAnimCurve* curve, unsigned int channel, bool inFront = false);
    bool DisconnectFromChannel(QdxAnimCurve* curve, unsigned int channel);
    int GetCurveCount(unsigned int channel, const char* curveNodeName = nullptr) const;
    QdxAnimCurve* GetCurve(unsigned int channel, unsigned int index = 0) const;
    QdxAnimCurve* CreateCurve(const char* curveNodeName, unsigned int channel);
    // True when any channel has a curve with keys.
    bool IsAnimated(bool recursive = false) const;
    // The animated property (first destination property), invalid if none.
    QdxProperty GetAnimatedProperty() const;
    QdxAnimLayer* GetLayer() const;
};

class QdxAnimCurveDef {
public:
    enum EInterpolationType {
        eInterpolationConstant = 2,
        eInterpolationLinear = 4,
        eInterpolationCubic = 8
    };
    enum EConstantMode { eConstantStandard = 0, eConstantNext = 256 };
    enum ETangentMode {
        eTangentAuto = 256,
        eTangentTCB = 512,
        eTangentUser = 1024,
        eTangentGenericBreak = 2048,
        eTangentBreak = eTangentGenericBreak | eTangentUser,
        eTangentAutoBreak = eTangentGenericBreak | eTangentAuto,
        eTangentGenericClamp = 4096
    };
    enum EExtrapolationType {
        eConstant = 1,
        eRepetition = 2,
        eMirrorRepetition = 3,
        eKeepSlope = 4
    };
    static constexpr double sDefaultWeight = 1.0 / 3.0;
    static constexpr double sMinUsableWeight = 0.001;
};

class QdxAnimCurve : public QdxObject, public QdxAnimCurveDef {
    QDX_DECLARE_OBJECT(QdxAnimCurve)
public:
    void KeyModifyBegin() {}
    void KeyModifyEnd() {}
    int KeyGetCount() const;
    void KeyClear();
    // Inserts (or finds) a key at time; returns its index. A new key copies
    // its neighbour's interpolation and is cubic on an empty curve.
    int KeyAdd(QdxTime time, int* lastIndex = nullptr);
    // Sets every field of a key. Derivatives in value per second.
    void KeySet(int index, QdxTime time, double value,
                EInterpolationType interpolation = eInterpolationCubic,
                ETangentMode tangentMode = eTangentAuto, double rightDerivative = 0.0,
                double leftDerivative = 0.0, double rightWeight = sDefaultWeight,
                double leftWeight = sDefaultWeight);
    bool KeyRemove(int index);
    bool KeyRemove(int startIndex, int endIndex);
    // Removes every key whose entry in remove is non-zero, in one pass
    // (entries past the end keep their keys); returns how many went.
    int KeyRemoveMarked(const std::vector<char>& remove);
    // Keys in bulk (appends; times must stay increasing).
    void KeyAppend(const long long* times, const double* values, int count,
                   EInterpolationType interpolation);

    QdxTime KeyGetTime(int index) const;
    void KeySetTime(int index, QdxTime time);
    double KeyGetValue(int index) const;
    void KeySetValue(int index, double value);
    EInterpolationType KeyGetInterpolation(int index) const;
    void KeySetInterpolation(int index, EInterpolationType type);
    EConstantMode KeyGetConstantMode(int index) const;
    void KeySetConstantMode(int index, EConstantMode mode);
    ETangentMode KeyGetTangentMode(int index) const;
    void KeySetTangentMode(int index, ETangentMode mode);
    double KeyGetLeftDerivative(int index) const;
    void KeySetLeftDerivative(int index, double d);
    double KeyGetRightDerivative(int index) const;
    void KeySetRightDerivative(int index, double d);
    double KeyGetLeftTangentWeight(int index) const;
    void KeySetLeftTangentWeight(int index, double w);
    double KeyGetRightTangentWeight(int index) const;
    void KeySetRightTangentWeight(int index, double w);
    // Index of the key at exactly time, or -1.
    int KeyFind(QdxTime time) const;

    // The curve's value at time; extrapolation outside the keys. An empty
    // curve gives 0. lastIndex, when given, speeds up ordered evaluation.
    double Evaluate(QdxTime time, int* lastIndex = nullptr) const;
    bool GetTimeInterval(QdxTimeSpan& span) const;

    void SetPreExtrapolation(EExtrapolationType t) { PreExtrapolation.Set(t); }
    EExtrapolationType GetPreExtrapolation() const {
        return static_cast<EExtrapolationType>(PreExtrapolation.Get());
    }
    void SetPostExtrapolation(EExtrapolationType t) { PostExtrapolation.Set(t); }
    EExtrapolationType GetPostExtrapolation() const {
        return static_cast<EExtrapolationType>(PostExtrapolation.Get());
    }

    QdxPropertyT<int> PreExtrapolation, PostExtrapolation;
    bool FinishRead(QdxStatus& status) override;

private:
    double EvaluateInside(long long t, int* lastIndex) const;
    int mTime = -1, mValue = -1, mInterp = -1, mConstant = -1, mTangent = -1, mDeriv = -1,
        mWeight = -1;
};

// Curve filters work on keys inside [start, stop] (the whole curve unless
// set) and apply to a curve, a curve node or every curve of a stack.
class QdxAnimCurveFilter {
public:
    virtual ~QdxAnimCurveFilter() = default;
    virtual bool Apply(QdxAnimCurve& curve, QdxStatus* status = nullptr) = 0;
    bool Apply(QdxAnimCurve* curve, QdxStatus* status = nullptr) {
        return curve && Apply(*curve, status);
    }
    bool Apply(QdxAnimCurve** curves, int count, QdxStatus* status = nullptr);
    bool Apply(QdxAnimCurveNode& node, QdxStatus* status = nullptr);
    bool Apply(QdxAnimStack* stack, QdxStatus* status = nullptr);
    void SetStartTime(QdxTime t) { mStart = t; }
    void SetStopTime(QdxTime t) { mStop = t; }
    QdxTime GetStartTime() const { return mStart; }
    QdxTime GetStopTime() const { return mStop; }

protected:
    QdxTime mStart = QdxTime(QdxTime::kMinusInfinite);
    QdxTime mStop = QdxTime(QdxTime::kInfinite);
};

// Removes keys that do not change the curve: a key goes when the curve is
// flat (equal values, no slope) on both sides of it, so the curve's value
// is the same at every time afterwards.
class QdxAnimCurveFilterConstantKeyReducer : public QdxAnimCurveFilter {
public:
    bool Apply(QdxAnimCurve& curve, QdxStatus* status = nullptr) override;
    using QdxAnimCurveFilter::Apply;
    // Keep cubic keys whose tangents were set by hand (not auto).
    void SetKeepNotPureAutoKeys(bool keep) { mKeepNotPureAuto = keep; }
    bool GetKeepNotPureAutoKeys() const { return mKeepNotPureAuto; }
    // Keep one key when every key would go (else the curve may end empty
    // and its channel keeps the key's value).
    void SetKeepOneKey(bool keep) { mKeepOneKey = keep; }
    bool GetKeepOneKey() const { return mKeepOneKey; }
    void SetKeepFirstAndLastKeys(bool keep) { mKeepEnds = keep; }
    // Values closer than this count as equal (0: exact).
    void SetValueTolerance(double t) { mTolerance = t; }

private:
    bool mKeepNotPureAuto = false;
    bool mKeepOneKey = false;
    bool mKeepEnds = false;
    double mTolerance = 0.0;
};

// Replaces the keys by samples every period from the first to the last key
// (on whole multiples of the period with keys-on-frame), cubic with
// derivatives from the original curve. Intelligent mode also keeps the
// original key times.
class QdxAnimCurveFilterResample : public QdxAnimCurveFilter {
public:
    bool Apply(QdxAnimCurve& curve, QdxStatus* status = nullptr) override;
    using QdxAnimCurveFilter::Apply;
    void SetKeysOnFrame(bool on) { mKeysOnFrame = on; }
    bool GetKeysOnFrame() const { return mKeysOnFrame; }
    void SetPeriodTime(QdxTime period) { mPeriod = period; }
    QdxTime GetPeriodTime() const { return mPeriod; }
    void SetIntelligentMode(bool on) { mIntelligent = on; }
    bool GetIntelligentMode() const { return mIntelligent; }

private:
    bool mKeysOnFrame = false;
    bool mIntelligent = false;
    QdxTime mPeriod = QdxTime(QdxTime::kTicksPerSecond / 30);
};

} // namespace qdxsdk
