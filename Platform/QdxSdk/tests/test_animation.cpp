// Curve evaluation, layer blending, curve filters and time.
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <random>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
class Animation : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "");
        stack = QdxAnimStack::Create(scene, "stack");
        base = QdxAnimLayer::Create(scene, "base");
        stack->AddMember(base);
        node = QdxNode::Create(scene, "node");
        scene->GetRootNode()->AddChild(node);
    }
    void TearDown() override { manager->Destroy(); }
    QdxTime Sec(double s) {
        QdxTime t;
        t.SetSecondDouble(s);
        return t;
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    QdxAnimStack* stack = nullptr;
    QdxAnimLayer* base = nullptr;
    QdxNode* node = nullptr;
};

struct P2 {
    double x, y;
};
P2 Lerp(P2 a, P2 b, double s) {
    return {a.x + (b.x - a.x) * s, a.y + (b.y - a.y) * s};
}
P2 DeCasteljau(const P2 p[4], double s) {
    P2 a = Lerp(p[0], p[1], s), b = Lerp(p[1], p[2], s), c = Lerp(p[2], p[3], s);
    P2 d = Lerp(a, b, s), e = Lerp(b, c, s);
    return Lerp(d, e, s);
}
} // namespace

TEST_F(Animation, WeightedCubicMatchesAnIndependentBezier) {
    std::mt19937 rng(7);
    auto u = [&](double lo, double hi) {
        return std::uniform_real_distribution<double>(lo, hi)(rng);
    };
    QdxAnimCurve* c = QdxAnimCurve::Create(scene, "c");
    for (int trial = 0; trial < 50; ++trial) {
        c->KeyClear();
        double t0 = u(-1, 1), t1 = t0 + u(0.1, 3);
        double v0 = u(-5, 5), v1 = u(-5, 5), dr = u(-10, 10), dl = u(-10, 10);
        double wr = u(0.01, 0.99), wl = u(0.01, 0.99);
        int k0 = c->KeyAdd(Sec(t0)), k1 = c->KeyAdd(Sec(t1));
        c->KeySet(k0, Sec(t0), v0, QdxAnimCurveDef::eInterpolationCubic,
                  QdxAnimCurveDef::eTangentUser, dr, 0, wr, 1.0 / 3);
        c->KeySet(k1, Sec(t1), v1, QdxAnimCurveDef::eInterpolationCubic,
                  QdxAnimCurveDef::eTangentUser, 0, dl, 1.0 / 3, wl);
        // Key times are ticks: use the stored ones for the reference curve.
        double a = c->KeyGetTime(0).GetSecondDouble(), b = c->KeyGetTime(1).GetSecondDouble();
        double dt = b - a;
        P2 p[4] = {
            {a, v0}, {a + wr * dt, v0 + dr * wr * dt}, {b - wl * dt, v1 - dl * wl * dt}, {b, v1}};
        for (int i = 0; i <= 20; ++i) {
            QdxTime t = Sec(a + dt * i / 20.0);
            double x = t.GetSecondDouble(), lo = 0, hi = 1;
            for (int it = 0; it < 200; ++it) {
                double mid = 0.5 * (lo + hi);
                (DeCasteljau(p, mid).x < x ? lo : hi) = mid;
            }
            double expected = DeCasteljau(p, 0.5 * (lo + hi)).y;
            EXPECT_NEAR(c->Evaluate(t), expected, 1e-9 * std::max(1.0, std::fabs(expected)));
        }
    }
}

TEST_F(Animation, ConstantLinearAndExtrapolation) {
    QdxAnimCurve* c = QdxAnimCurve::Create(scene, "c");
    c->KeySet(c->KeyAdd(Sec(0)), Sec(0), 1.0, QdxAnimCurveDef::eInterpolationConstant);
    c->KeySet(c->KeyAdd(Sec(1)), Sec(1), 3.0, QdxAnimCurveDef::eInterpolationLinear);
    c->KeySet(c->KeyAdd(Sec(2)), Sec(2), 5.0, QdxAnimCurveDef::eInterpolationLinear);
    EXPECT_EQ(c->Evaluate(Sec(0.5)), 1.0);
    c->KeySetConstantMode(0, QdxAnimCurveDef::eConstantNext);
    EXPECT_EQ(c->Evaluate(Sec(0.5)), 3.0);
    EXPECT_DOUBLE_EQ(c->Evaluate(Sec(1.5)), 4.0);
    EXPECT_EQ(c->Evaluate(Sec(-3)), 1.0);
    EXPECT_EQ(c->Evaluate(Sec(9)), 5.0);
    c->SetPostExtrapolation(QdxAnimCurveDef::eKeepSlope);
    EXPECT_NEAR(c->Evaluate(Sec(3)), 7.0, 1e-9);
    c->SetPostExtrapolation(QdxAnimCurveDef::eRepetition);
    EXPECT_NEAR(c->Evaluate(Sec(3.5)), c->Evaluate(Sec(1.5)), 1e-9);
    c->SetPreExtrapolation(QdxAnimCurveDef::eMirrorRepetition);
    EXPECT_NEAR(c->Evaluate(Sec(-0.5)), c->Evaluate(Sec(0.5)), 1e-9);
    EXPECT_EQ(QdxAnimCurve::Create(scene, "empty")->Evaluate(Sec(1)), 0.0);
}

TEST_F(Animation, LayersCombineByBlendMode) {
    node->LclTranslation.Set(QdxDouble3(0, 0, 0));
    node->LclTranslation.GetCurve(base, "X", true)->KeyAdd(Sec(0));
    node->LclTranslation.GetCurve(base, "X", false)->KeySetValue(0, 10.0);
    QdxAnimLayer* add = QdxAnimLayer::Create(scene, "add");
    stack->AddMember(add);
    add->Weight.Set(50.0);
    QdxAnimCurve* c = node->LclTranslation.GetCurve(add, "X", true);
    c->KeySetValue(c->KeyAdd(Sec(0)), 4.0);
    EXPECT_DOUBLE_EQ(node->EvaluateLocalTranslation(Sec(0))[0], 12.0);
    add->BlendMode.Set(QdxAnimLayer::eBlendOverride);
    EXPECT_DOUBLE_EQ(node->EvaluateLocalTranslation(Sec(0))[0], 7.0);
    add->Mute.Set(true);
    EXPECT_DOUBLE_EQ(node->EvaluateLocalTranslation(Sec(0))[0], 10.0);
    // Scaling layers multiply.
    add->Mute.Set(false);
    add->BlendMode.Set(QdxAnimLayer::eBlendAdditive);
    add->Weight.Set(100.0);
    node->LclScaling.GetCurve(base, "Y", true)
        ->KeySetValue(node->LclScaling.GetCurve(base, "Y", false)->KeyAdd(Sec(0)), 2.0);
    QdxAnimCurve* s = node->LclScaling.GetCurve(add, "Y", true);
    s->KeySetValue(s->KeyAdd(Sec(0)), 3.0);
    EXPECT_DOUBLE_EQ(node->EvaluateLocalScaling(Sec(0))[1], 6.0);
}

TEST_F(Animation, ReducerRemovesOnlyRedundantKeys) {
    std::mt19937 rng(11);
    for (int trial = 0; trial < 40; ++trial) {
        QdxAnimCurve* c = QdxAnimCurve::Create(scene, "c");
        double v = 0;
        for (int f = 0; f < 40; ++f) {
            QdxTime t;
            t.SetFrame(f, QdxTime::eFrames24);
            if (rng() % 3 == 0) v = static_cast<double>(rng() % 5);
            auto interp = static_cast<QdxAnimCurveDef::EInterpolationType>(2 << (rng() % 3));
            bool flat = rng() % 4 != 0;
            c->KeySet(c->KeyAdd(t), t, v, interp,
                      rng() % 5 == 0 ? QdxAnimCurveDef::eTangentUser
                                     : QdxAnimCurveDef::eTangentAuto,
                      flat ? 0.0 : 1.0, flat ? 0.0 : -1.0);
        }
        // A repeating side pins the span that repeats.
        if (trial % 3 == 1) c->SetPostExtrapolation(QdxAnimCurveDef::eRepetition);
        if (trial % 3 == 2) c->SetPreExtrapolation(QdxAnimCurveDef::eMirrorRepetition);
        std::vector<double> before;
        for (int i = -500; i <= 500; ++i)
            before.push_back(c->Evaluate(QdxTime(i * 141120000LL / 240)));
        int keys = c->KeyGetCount();
        QdxAnimCurveFilterConstantKeyReducer r;
        r.SetKeepOneKey(true);
        r.SetKeepNotPureAutoKeys(trial % 2 == 0);
        ASSERT_TRUE(r.Apply(*c));
        EXPECT_LE(c->KeyGetCount(), keys);
        EXPECT_GE(c->KeyGetCount(), 1);
        for (int i = -500; i <= 500; ++i)
            ASSERT_EQ(c->Evaluate(QdxTime(i * 141120000LL / 240)),
                      before[static_cast<size_t>(i + 500)])
                << "trial " << trial << " sample " << i;
    }
    // A flat run loses its inner keys; a peak stays.
    QdxAnimCurve* c = QdxAnimCurve::Create(scene, "flat");
    double vals[] = {1, 1, 1, 1, 2, 1};
    for (int i = 0; i < 6; ++i)
        c->KeySet(c->KeyAdd(Sec(i)), Sec(i), vals[i], QdxAnimCurveDef::eInterpolationLinear);
    QdxAnimCurveFilterConstantKeyReducer r;
    r.Apply(*c);
    ASSERT_EQ(c->KeyGetCount(), 3);
    EXPECT_EQ(c->KeyGetValue(1), 2.0);
}

TEST_F(Animation, ReducerIsLinearInTheKeyCount) {
    // Long flat runs between changes: a key-by-key erase would move the
    // tail once per removed key.
    const int n = 400000;
    std::vector<long long> times(n);
    std::vector<double> values(n);
    for (int i = 0; i < n; ++i) {
        times[static_cast<size_t>(i)] = i * 141120000LL / 24;
        values[static_cast<size_t>(i)] = (i / 1000) % 2;
    }
    QdxAnimCurve* c = QdxAnimCurve::Create(scene, "long");
    c->KeyAppend(times.data(), values.data(), n, QdxAnimCurveDef::eInterpolationLinear);
    QdxAnimCurveFilterConstantKeyReducer r;
    auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(r.Apply(*c));
    double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // The two ends of every run, except the outer ends that extrapolation holds.
    EXPECT_EQ(c->KeyGetCount(), 2 * (n / 1000) - 2);
    EXPECT_LT(seconds, 5.0);
    EXPECT_EQ(c->Evaluate(QdxTime(times[1500])), 1.0);
}

TEST_F(Animation, ResampledStepsAndRampsDoNotOvershoot) {
    QdxTime period;
    period.SetSecondDouble(1.0 / 24);
    QdxAnimCurveFilterResample r;
    r.SetPeriodTime(period);
    r.SetKeysOnFrame(true);
    auto check = [&](QdxAnimCurve* c, double lo, double hi, bool increasing) {
        ASSERT_TRUE(r.Apply(*c));
        double prev = lo;
        for (int i = 0; i <= 24 * 40; ++i) {
            double v = c->Evaluate(Sec(i / 240.0));
            EXPECT_GE(v, lo - 1e-12) << c->GetName() << " at " << i / 240.0;
            EXPECT_LE(v, hi + 1e-12) << c->GetName() << " at " << i / 240.0;
            if (increasing) {
                EXPECT_GE(v, prev - 1e-12) << c->GetName() << " at " << i / 240.0;
            }
            prev = v;
        }
    };
    // Steps, one of them exactly on a frame, one between frames.
    QdxAnimCurve* steps = QdxAnimCurve::Create(scene, "steps");
    double at[] = {0, 0.5, 0.77, 2};
    double val[] = {0, 1, 3, 3};
    for (int i = 0; i < 4; ++i)
        steps->KeySet(steps->KeyAdd(Sec(at[i])), Sec(at[i]), val[i],
                      QdxAnimCurveDef::eInterpolationConstant);
    check(steps, 0, 3, true);
    // A steep cubic ramp into a plateau: the derivative of the original is
    // large next to the flat part.
    QdxAnimCurve* ramp = QdxAnimCurve::Create(scene, "ramp");
    ramp->KeySet(ramp->KeyAdd(Sec(0)), Sec(0), 0, QdxAnimCurveDef::eInterpolationLinear);
    ramp->KeySet(ramp->KeyAdd(Sec(0.03)), Sec(0.03), 10, QdxAnimCurveDef::eInterpolationLinear);
    ramp->KeySet(ramp->KeyAdd(Sec(3)), Sec(3), 10, QdxAnimCurveDef::eInterpolationLinear);
    check(ramp, 0, 10, true);
    // A smooth hump keeps its shape: extrema of the data are left alone.
    QdxAnimCurve* hump = QdxAnimCurve::Create(scene, "hump");
    for (double t : {0.0, 1.0, 2.0})
        hump->KeySet(hump->KeyAdd(Sec(t)), Sec(t), t == 1.0 ? 1.0 : 0.0,
                     QdxAnimCurveDef::eInterpolationCubic, QdxAnimCurveDef::eTangentUser,
                     t == 0.0 ? 2.0 : (t == 2.0 ? -2.0 : 0.0), t == 2.0 ? -2.0 : 0.0);
    QdxAnimCurve* copy = QdxAnimCurve::Create(scene, "copy");
    for (int i = 0; i < 3; ++i) {
        copy->KeySet(copy->KeyAdd(hump->KeyGetTime(i)), hump->KeyGetTime(i), hump->KeyGetValue(i),
                     QdxAnimCurveDef::eInterpolationCubic, QdxAnimCurveDef::eTangentUser,
                     hump->KeyGetRightDerivative(i), hump->KeyGetLeftDerivative(i));
    }
    ASSERT_TRUE(r.Apply(*hump));
    for (int i = 0; i <= 480; ++i)
        EXPECT_NEAR(hump->Evaluate(Sec(i / 240.0)), copy->Evaluate(Sec(i / 240.0)), 2e-4);
}

TEST_F(Animation, ResamplerPutsKeysOnFramesMatchingTheCurve) {
    QdxAnimCurve* c = QdxAnimCurve::Create(scene, "c");
    double times[] = {0.013, 0.4, 1.27};
    for (int i = 0; i < 3; ++i)
        c->KeySet(c->KeyAdd(Sec(times[i])), Sec(times[i]), i * 3.0 - 1,
                  QdxAnimCurveDef::eInterpolationCubic, QdxAnimCurveDef::eTangentUser, 2.0, -1.0,
                  0.3, 0.2);
    std::vector<std::pair<QdxTime, double>> reference;
    for (int f = 1; f <= 30; ++f) {
        QdxTime t;
        t.SetFrame(f, QdxTime::eFrames24);
        reference.push_back({t, c->Evaluate(t)});
    }
    QdxAnimCurveFilterResample r;
    QdxTime period;
    period.SetSecondDouble(1.0 / 24);
    r.SetPeriodTime(period);
    r.SetKeysOnFrame(true);
    r.SetIntelligentMode(false);
    ASSERT_TRUE(r.Apply(*c));
    ASSERT_EQ(c->KeyGetCount(), 30);
    for (int i = 0; i < c->KeyGetCount(); ++i) {
        EXPECT_EQ(c->KeyGetTime(i).Get() % period.Get(), 0);
        EXPECT_EQ(c->KeyGetInterpolation(i), QdxAnimCurveDef::eInterpolationCubic);
    }
    for (const auto& [t, v] : reference)
        EXPECT_NEAR(c->Evaluate(t), v, 1e-12);
}

TEST_F(Animation, PivotConversionBakesAnimatedRotationAtEveryFrame) {
    node->SetRotationActive(true);
    node->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(0, 0, 90));
    QdxAnimCurve* c = node->LclRotation.GetCurve(base, "X", true);
    c->KeySet(c->KeyAdd(Sec(0)), Sec(0), 0.0, QdxAnimCurveDef::eInterpolationLinear);
    c->KeySet(c->KeyAdd(Sec(1)), Sec(1), 90.0, QdxAnimCurveDef::eInterpolationLinear);
    node->ConvertPivotAnimationRecursive(stack, QdxNode::eDestinationPivot, 24.0, false);
    QdxAnimCurve* x = node->LclRotation.GetCurve(base, "X", false);
    ASSERT_NE(x, nullptr);
    EXPECT_EQ(x->KeyGetCount(), 25);
    QdxTime half;
    half.SetFrame(12, QdxTime::eFrames24);
    QdxAMatrix expected = QdxEulerToMatrix(QdxVector4(0, 0, 90), eEulerXYZ) *
                          QdxEulerToMatrix(QdxVector4(45, 0, 0), eEulerXYZ);
    QdxAMatrix actual = node->EvaluateLocalTransform(half, QdxNode::eDestinationPivot);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            EXPECT_NEAR(actual.m[i][j], expected.m[i][j], 1e-12);
}

TEST(Time, TicksFramesAndModes) {
    EXPECT_EQ(QdxTime::kTicksPerSecond, 141120000LL);
    EXPECT_EQ(QdxTime::GetFrameRate(QdxTime::eFrames24), 24.0);
    EXPECT_EQ(QdxTime::GetFrameRate(QdxTime::ePAL), 25.0);
    EXPECT_EQ(QdxTime::ConvertFrameRateToTimeMode(30.0, 1e-8), QdxTime::eFrames30);
    EXPECT_EQ(QdxTime::ConvertFrameRateToTimeMode(59.94, 1e-8), QdxTime::eFrames59dot94);
    EXPECT_EQ(QdxTime::ConvertFrameRateToTimeMode(17.0, 1e-8), QdxTime::eCustom);
    QdxTime t;
    t.SetFrame(48, QdxTime::eFrames24);
    EXPECT_EQ(t.Get(), 2 * 141120000LL);
    EXPECT_EQ(t.GetSecondDouble(), 2.0);
    EXPECT_EQ(t.GetFrameCount(QdxTime::eFrames24), 48);
    t.SetFrame(-7, QdxTime::eFrames30);
    EXPECT_EQ(t.GetFrameCount(QdxTime::eFrames30), -7);
    EXPECT_EQ(t.GetMilliSeconds(), -233);
    QdxTimeSpan span(QdxTime(10), QdxTime(20));
    span.UnionAssignment(QdxTimeSpan(QdxTime(5), QdxTime(15)));
    EXPECT_EQ(span.GetStart().Get(), 5);
    EXPECT_EQ(span.GetStop().Get(), 20);
    QdxDateTime d;
    EXPECT_TRUE(d.fromString("2024-02-29T13:14:15"));
    EXPECT_EQ(d.toString(), "2024-02-29T13:14:15");
    EXPECT_FALSE(d.fromString("yesterday"));
    EXPECT_EQ(d.day(), 29);
}

TEST_F(Animation, ReducerOptionsAndSpan) {
    auto flat = [&](const char* name) {
        QdxAnimCurve* c = QdxAnimCurve::Create(scene, name);
        for (int i = 0; i < 5; ++i)
            c->KeySet(c->KeyAdd(Sec(i)), Sec(i), 2.0, QdxAnimCurveDef::eInterpolationCubic,
                      i == 2 ? QdxAnimCurveDef::eTangentUser : QdxAnimCurveDef::eTangentAuto);
        return c;
    };
    QdxAnimCurveFilterConstantKeyReducer r;
    QdxAnimCurve* a = flat("a");
    r.SetKeepNotPureAutoKeys(true);
    r.SetKeepOneKey(true);
    r.Apply(a);
    ASSERT_EQ(a->KeyGetCount(), 1);
    EXPECT_EQ(a->KeyGetTime(0), Sec(2)); // the hand-made key survives
    QdxAnimCurve* b = flat("b");
    r.SetKeepNotPureAutoKeys(false);
    r.SetStartTime(Sec(2.5));
    r.Apply(b);
    EXPECT_EQ(b->KeyGetCount(), 3); // keys before the span stay, those inside go
    // Without keep-one-key a flat curve empties and its channel keeps the value.
    QdxAnimCurveNode* cn = node->LclTranslation.GetCurveNode(base, true);
    QdxAnimCurve* c = cn->CreateCurve("c", 1);
    for (int i = 0; i < 3; ++i)
        c->KeySet(c->KeyAdd(Sec(i)), Sec(i), 6.0, QdxAnimCurveDef::eInterpolationLinear);
    QdxAnimCurveFilterConstantKeyReducer dropAll;
    dropAll.Apply(*cn);
    EXPECT_EQ(c->KeyGetCount(), 0);
    EXPECT_EQ(cn->GetChannelValue(1, 0.0), 6.0);
    EXPECT_EQ(node->EvaluateLocalTranslation(Sec(1))[1], 6.0);
}

TEST_F(Animation, ResamplerModes) {
    QdxAnimCurve* c = QdxAnimCurve::Create(scene, "c");
    double times[] = {0.01, 0.3};
    for (double t : times)
        c->KeySet(c->KeyAdd(Sec(t)), Sec(t), t * 10, QdxAnimCurveDef::eInterpolationLinear);
    QdxAnimCurveFilterResample r;
    QdxTime period;
    period.SetSecondDouble(0.1);
    r.SetPeriodTime(period);
    r.SetIntelligentMode(true);
    r.Apply(*c);
    // Frames 0.1, 0.2, 0.3 plus the original 0.01.
    ASSERT_EQ(c->KeyGetCount(), 4);
    EXPECT_EQ(c->KeyGetTime(0), Sec(0.01));
    EXPECT_NEAR(c->Evaluate(Sec(0.2)), 2.0, 1e-12);
    QdxAnimCurve* d = QdxAnimCurve::Create(scene, "d");
    for (double t : times)
        d->KeySet(d->KeyAdd(Sec(t)), Sec(t), t * 10, QdxAnimCurveDef::eInterpolationLinear);
    QdxAnimCurveFilterResample plain;
    plain.SetPeriodTime(period);
    plain.Apply(*d); // from the first key every period, then the last key
    ASSERT_EQ(d->KeyGetCount(), 4);
    EXPECT_EQ(d->KeyGetTime(0), Sec(0.01));
    EXPECT_EQ(d->KeyGetTime(3), Sec(0.3));
}

TEST_F(Animation, CurveNodesFollowThePropertyType) {
    QdxLight* light = QdxLight::Create(scene, "light");
    QdxAnimCurveNode* color = light->Color.GetCurveNode(base, true);
    ASSERT_EQ(color->GetChannelsCount(), 3u);
    EXPECT_EQ(color->GetChannelName(0), QdxString("R"));
    EXPECT_EQ(color->GetChannelValue(0, -1.0), 1.0); // starts at the property's value
    EXPECT_EQ(light->Color.GetCurveNode(base, true), color);
    QdxAnimCurveNode* intensity = light->Intensity.GetCurveNode(base, true);
    EXPECT_EQ(intensity->GetChannelsCount(), 1u);
    EXPECT_FALSE(intensity->IsAnimated());
    QdxAnimCurve* c = light->Intensity.GetCurve(base, nullptr, true);
    c->KeySet(c->KeyAdd(Sec(0)), Sec(0), 10.0, QdxAnimCurveDef::eInterpolationLinear);
    c->KeySet(c->KeyAdd(Sec(1)), Sec(1), 30.0, QdxAnimCurveDef::eInterpolationLinear);
    EXPECT_TRUE(intensity->IsAnimated());
    EXPECT_EQ(intensity->GetAnimatedProperty(), light->Intensity);
    EXPECT_DOUBLE_EQ(light->Intensity.EvaluateValue(Sec(0.5)), 20.0);
    EXPECT_EQ(light->Intensity.Get(), 100.0); // the static value is untouched
    QdxProperty text = QdxProperty::Create(light, QdxStringDT, "text");
    EXPECT_EQ(text.GetCurveNode(base, true), nullptr); // not animatable
}

TEST_F(Animation, QuaternionInterpolationFollowsTheShortestArc) {
    const auto S = QdxNode::eSourcePivot;
    for (const char* ch : {"X", "Y"}) {
        QdxAnimCurve* c = node->LclRotation.GetCurve(base, ch, true);
        c->KeySet(c->KeyAdd(Sec(0)), Sec(0), 0.0, QdxAnimCurveDef::eInterpolationLinear);
        c->KeySet(c->KeyAdd(Sec(1)), Sec(1), 90.0, QdxAnimCurveDef::eInterpolationLinear);
    }
    QdxVector4 euler = node->EvaluateLocalRotation(Sec(0.5), S);
    EXPECT_NEAR(euler[0], 45.0, 1e-12);
    node->SetQuaternionInterpolation(S, eQuatInterpSlerp);
    auto q = [&](double s) {
        return QdxEulerToMatrix(node->EvaluateLocalRotation(Sec(s), S), eEulerXYZ).GetQ();
    };
    auto angle = [](const QdxQuaternion& a, const QdxQuaternion& b) {
        return 2 * std::acos(std::min(1.0, std::fabs(a.Dot(b))));
    };
    QdxQuaternion q0 = q(0), qm = q(0.5), q1 = q(1), qa = q(0.25);
    EXPECT_NEAR(angle(q0, qm), angle(qm, q1), 1e-9);     // constant speed
    EXPECT_NEAR(angle(q0, qa) * 2, angle(q0, qm), 1e-9); // along one arc
    EXPECT_NEAR(angle(q0, qm) + angle(qm, q1), angle(q0, q1), 1e-9);
    EXPECT_GT(std::fabs(node->EvaluateLocalRotation(Sec(0.5), S)[0] - 45.0), 1e-3);
    // Keys themselves are unchanged.
    QdxVector4 end = node->EvaluateLocalRotation(Sec(1), S);
    EXPECT_NEAR(end[0], 90.0, 1e-9);
}

namespace {
void Linear(QdxAnimCurve* c, std::initializer_list<std::pair<double, double>> keys) {
    for (auto [t, v] : keys) {
        QdxTime at;
        at.SetSecondDouble(t);
        c->KeySet(c->KeyAdd(at), at, v, QdxAnimCurveDef::eInterpolationLinear);
    }
}

double MaxDifference(const QdxAMatrix& a, const QdxAMatrix& b) {
    double d = 0;
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            d = std::max(d, std::fabs(a.m[i][j] - b.m[i][j]));
    return d;
}
} // namespace

TEST_F(Animation, PivotConversionKeepsEveryLayerOfEveryStack) {
    // Pivots, offsets and a pre-rotation under animated rotation: a bake is
    // needed. A second, additive layer and a second stack must survive.
    node->SetRotationActive(true);
    node->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(10, 0, 30));
    node->SetRotationPivot(QdxNode::eSourcePivot, QdxVector4(1, 2, 0));
    node->SetScalingPivot(QdxNode::eSourcePivot, QdxVector4(0, -1, 3));
    node->SetRotationOffset(QdxNode::eSourcePivot, QdxVector4(0.5, 0, 0));
    QdxAnimLayer* l2 = QdxAnimLayer::Create(scene, "L2");
    stack->AddMember(l2);
    Linear(node->LclRotation.GetCurve(base, "Z", true), {{0, 0}, {2, 180}});
    Linear(node->LclTranslation.GetCurve(base, "X", true), {{0, 0}, {1, 5}});
    Linear(node->LclScaling.GetCurve(base, "Y", true), {{0, 1}, {2, 3}});
    QdxAnimCurve* extra = node->LclTranslation.GetCurve(l2, "Y", true);
    Linear(extra, {{0.5, 0}, {1.5, 2}});
    QdxAnimStack* take2 = QdxAnimStack::Create(scene, "take2");
    QdxAnimLayer* take2base = QdxAnimLayer::Create(scene, "take2base");
    take2->AddMember(take2base);
    Linear(node->LclRotation.GetCurve(take2base, "X", true), {{0, -40}, {1, 40}});

    auto worldAt = [&](QdxAnimStack* s, double seconds) {
        scene->SetCurrentAnimationStack(s);
        return node->EvaluateGlobalTransform(Sec(seconds));
    };
    std::vector<QdxAMatrix> before[2];
    for (int f = 0; f <= 48; ++f) {
        before[0].push_back(worldAt(stack, f / 24.0));
        before[1].push_back(worldAt(take2, f / 24.0));
    }
    scene->SetCurrentAnimationStack(stack);
    scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 24.0,
                                                         false);
    EXPECT_EQ(node->GetPreRotation(QdxNode::eSourcePivot), QdxVector4(0, 0, 0));
    for (int f = 0; f <= 48; ++f) {
        EXPECT_LT(MaxDifference(worldAt(stack, f / 24.0), before[0][static_cast<size_t>(f)]), 1e-9)
            << "frame " << f;
        EXPECT_LT(MaxDifference(worldAt(take2, f / 24.0), before[1][static_cast<size_t>(f)]), 1e-9)
            << "take2 frame " << f;
    }
    // The additive layer is untouched, not folded into the base.
    ASSERT_EQ(node->LclTranslation.GetCurve(l2, "Y", false), extra);
    EXPECT_EQ(extra->KeyGetCount(), 2);
    EXPECT_EQ(stack->GetLayerCount(), 2);
}

TEST_F(Animation, PivotConversionShiftsWithoutBakingWhenTheOffsetIsConstant) {
    // A rotation offset and pivot equal to the scaling pivot with static
    // rotation and scaling: translation moves by a constant, keys stay keys.
    node->SetRotationOffset(QdxNode::eSourcePivot, QdxVector4(3, 0, -1));
    node->SetRotationPivot(QdxNode::eSourcePivot, QdxVector4(1, 1, 1));
    node->SetScalingPivot(QdxNode::eSourcePivot, QdxVector4(1, 1, 1));
    node->LclRotation.Set(QdxDouble3(0, 45, 0));
    QdxAnimLayer* over = QdxAnimLayer::Create(scene, "over");
    over->BlendMode.Set(QdxAnimLayer::eBlendOverride);
    over->Weight.Set(50.0);
    stack->AddMember(over);
    QdxAnimCurve* x = node->LclTranslation.GetCurve(base, "X", true);
    x->KeySet(x->KeyAdd(Sec(0)), Sec(0), 0.0, QdxAnimCurveDef::eInterpolationCubic,
              QdxAnimCurveDef::eTangentUser, 7.0, 7.0);
    x->KeySet(x->KeyAdd(Sec(1)), Sec(1), 4.0, QdxAnimCurveDef::eInterpolationCubic,
              QdxAnimCurveDef::eTangentUser, -3.0, -3.0);
    Linear(node->LclTranslation.GetCurve(over, "Z", true), {{0, 1}, {1, -1}});
    std::vector<QdxAMatrix> before;
    for (int i = -10; i <= 50; ++i)
        before.push_back(node->EvaluateGlobalTransform(Sec(i / 37.0)));
    scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 24.0,
                                                         false);
    EXPECT_EQ(x->KeyGetCount(), 2);
    for (int i = -10; i <= 50; ++i)
        EXPECT_LT(MaxDifference(node->EvaluateGlobalTransform(Sec(i / 37.0)),
                                before[static_cast<size_t>(i + 10)]),
                  1e-12)
            << "at " << i / 37.0;
}

TEST_F(Animation, PivotConversionBakeIsBoundedByTheAnimatedSpan) {
    node->SetRotationActive(true);
    node->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(0, 20, 0));
    // A year of animation at 24 frames per second would be 750 million
    // frames.
    Linear(node->LclRotation.GetCurve(base, "X", true), {{0, 0}, {365.0 * 86400, 90}});
    scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 24.0,
                                                         false);
    QdxAnimCurve* c = node->LclRotation.GetCurve(base, "X", false);
    ASSERT_NE(c, nullptr);
    EXPECT_LE(c->KeyGetCount(), 300000);
    EXPECT_GE(c->KeyGetCount(), 2);
    std::vector<std::string> notes = QdxGetConversionNotes(scene);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_NE(notes[0].find("coarser"), std::string::npos);
}
