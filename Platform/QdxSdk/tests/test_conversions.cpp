// Axis, unit and pivot conversion keep every world-space vertex where it
// was, on random scenes with every transform feature and animation.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
constexpr int kFrames = 24;
constexpr double kFps = 24.0;

struct RandomScene {
    std::mt19937 rng;
    QdxScene* scene;
    QdxAnimLayer* layer = nullptr;

    double U(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
    QdxVector4 V(double lo, double hi) { return QdxVector4(U(lo, hi), U(lo, hi), U(lo, hi)); }

    void Animate(QdxPropertyT<QdxDouble3>& prop, double lo, double hi) {
        for (const char* ch : {"X", "Y", "Z"}) {
            if (rng() % 3 == 0) continue;
            QdxAnimCurve* c = prop.GetCurve(layer, ch, true);
            for (int f = 0; f <= kFrames; f += 4 + static_cast<int>(rng() % 5)) {
                QdxTime t;
                t.SetFrame(f, QdxTime::eFrames24);
                int k = c->KeyAdd(t);
                auto interp = rng() % 2 ? QdxAnimCurveDef::eInterpolationCubic
                                        : QdxAnimCurveDef::eInterpolationLinear;
                c->KeySet(k, t, U(lo, hi), interp, QdxAnimCurveDef::eTangentUser, U(-5, 5),
                          U(-5, 5), U(0.1, 0.6), U(0.1, 0.6));
            }
        }
    }

    void Fill(QdxNode* parent, int depth) {
        int children = depth == 0 ? 3 : 1 + static_cast<int>(rng() % 2);
        for (int i = 0; i < children && depth < 3; ++i) {
            QdxNode* n = QdxNode::Create(scene, "n");
            parent->AddChild(n);
            const auto S = QdxNode::eSourcePivot;
            n->SetRotationActive(true);
            n->LclTranslation.Set(QdxDouble3(U(-10, 10), U(-10, 10), U(-10, 10)));
            n->LclRotation.Set(QdxDouble3(U(-180, 180), U(-80, 80), U(-180, 180)));
            n->LclScaling.Set(QdxDouble3(U(0.5, 2), U(0.5, 2), U(0.5, 2)));
            n->SetRotationOffset(S, V(-2, 2));
            n->SetRotationPivot(S, V(-2, 2));
            n->SetScalingOffset(S, V(-2, 2));
            n->SetScalingPivot(S, V(-2, 2));
            n->SetPreRotation(S, V(-90, 90));
            n->SetPostRotation(S, V(-90, 90));
            n->SetRotationOrder(S, static_cast<EQdxRotationOrder>(rng() % 6));
            n->SetGeometricTranslation(S, V(-3, 3));
            n->SetGeometricRotation(S, V(-45, 45));
            n->SetGeometricScaling(S, QdxVector4(U(0.5, 2), U(0.5, 2), U(0.5, 2)));
            n->SetTransformationInheritType(static_cast<EQdxTransformInheritType>(rng() % 3));
            if (rng() % 2) Animate(n->LclTranslation, -10, 10);
            if (rng() % 2) Animate(n->LclRotation, -170, 170);
            if (rng() % 3 == 0) Animate(n->LclScaling, 0.5, 2);
            QdxMesh* mesh = QdxMesh::Create(scene, "m");
            mesh->InitControlPoints(4);
            for (int p = 0; p < 4; ++p)
                mesh->SetControlPointAt(V(-5, 5), p);
            n->SetNodeAttribute(mesh);
            Fill(n, depth + 1);
        }
    }

    RandomScene(QdxManager* m, unsigned seed) : rng(seed) {
        scene = QdxScene::Create(m, "random");
        scene->GetGlobalSettings().SetTimeMode(QdxTime::eFrames24);
        QdxAnimStack* stack = QdxAnimStack::Create(scene, "stack");
        layer = QdxAnimLayer::Create(scene, "base");
        stack->AddMember(layer);
        Fill(scene->GetRootNode(), 0);
    }
};

// World positions of every mesh vertex at every frame, in member order.
std::vector<QdxVector4> WorldPoints(QdxScene* scene, QdxNode::EPivotSet set) {
    std::vector<QdxVector4> out;
    for (int f = 0; f <= kFrames; ++f) {
        QdxTime t;
        t.SetFrame(f, QdxTime::eFrames24);
        for (int i = 0; i < scene->GetNodeCount(); ++i) {
            QdxNode* n = scene->GetNode(i);
            QdxMesh* mesh = n->GetMesh();
            if (!mesh) continue;
            QdxAMatrix world = n->EvaluateGlobalTransform(t, set) * n->GetGeometricTransform(set);
            for (int p = 0; p < mesh->GetControlPointsCount(); ++p)
                out.push_back(world.MultT(mesh->GetControlPointAt(p)));
        }
    }
    return out;
}

void ExpectSame(const std::vector<QdxVector4>& expected, const std::vector<QdxVector4>& actual,
                const char* what) {
    ASSERT_EQ(expected.size(), actual.size());
    double worst = 0;
    for (size_t i = 0; i < expected.size(); ++i)
        for (int k = 0; k < 3; ++k) {
            double scale = std::max(1.0, std::fabs(expected[i][k]));
            worst = std::max(worst, std::fabs(expected[i][k] - actual[i][k]) / scale);
        }
    EXPECT_LE(worst, 1e-9) << what;
}

std::vector<QdxVector4> Transformed(const std::vector<QdxVector4>& pts, const QdxAMatrix& m) {
    std::vector<QdxVector4> out;
    for (const auto& p : pts)
        out.push_back(m.MultT(p));
    return out;
}

// What the importer does before pivot conversion: a neutral destination set
// that keeps the source pivots and offsets.
void PrepareDestination(QdxNode* n) {
    const auto S = QdxNode::eSourcePivot, D = QdxNode::eDestinationPivot;
    n->SetPivotState(S, QdxNode::ePivotActive);
    n->SetPivotState(D, QdxNode::ePivotActive);
    n->SetRotationOrder(D, eEulerXYZ);
    n->SetRotationActive(true);
    n->SetPreRotation(D, QdxVector4(0, 0, 0));
    n->SetPostRotation(D, QdxVector4(0, 0, 0));
    n->SetGeometricTranslation(D, QdxVector4(0, 0, 0));
    n->SetGeometricRotation(D, QdxVector4(0, 0, 0));
    n->SetGeometricScaling(D, QdxVector4(1, 1, 1));
    n->SetRotationPivot(D, n->GetRotationPivot(S));
    n->SetScalingPivot(D, n->GetScalingPivot(S));
    n->SetRotationOffset(D, n->GetRotationOffset(S));
    n->SetScalingOffset(D, n->GetScalingOffset(S));
    for (int i = 0; i < n->GetChildCount(); ++i)
        PrepareDestination(n->GetChild(i));
}

class Conversions : public ::testing::TestWithParam<unsigned> {
protected:
    void SetUp() override { manager = QdxManager::Create(); }
    void TearDown() override { manager->Destroy(); }
    QdxManager* manager = nullptr;
};
} // namespace

TEST_P(Conversions, AxisConversionKeepsThePhysicalScene) {
    RandomScene r(manager, GetParam());
    auto before = WorldPoints(r.scene, QdxNode::eSourcePivot);
    ASSERT_TRUE(QdxAxisSystem::ToveZUp.ConvertScene(r.scene));
    EXPECT_TRUE(r.scene->GetGlobalSettings().GetAxisSystem() == QdxAxisSystem::ToveZUp);
    QdxAMatrix c = QdxAxisSystem::ToveZUp.GetConversionFrom(QdxAxisSystem::ToveYUp);
    ExpectSame(Transformed(before, c), WorldPoints(r.scene, QdxNode::eSourcePivot), "to Z up");
    ASSERT_TRUE(QdxAxisSystem::ToveYUp.ConvertScene(r.scene));
    ExpectSame(before, WorldPoints(r.scene, QdxNode::eSourcePivot), "and back");
}

TEST_P(Conversions, UnitConversionScalesEveryLength) {
    RandomScene r(manager, GetParam());
    r.scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::Inch);
    auto before = WorldPoints(r.scene, QdxNode::eSourcePivot);
    ASSERT_TRUE(QdxSystemUnit::cm.ConvertScene(r.scene));
    EXPECT_EQ(r.scene->GetGlobalSettings().GetSystemUnit().GetScaleFactor(), 1.0);
    QdxAMatrix s;
    for (int i = 0; i < 3; ++i)
        s.m[i][i] = 2.54;
    ExpectSame(Transformed(before, s), WorldPoints(r.scene, QdxNode::eSourcePivot), "inch to cm");
    // No hidden scale: node scalings are untouched.
    QdxNode* n = r.scene->GetRootNode()->GetChild(0);
    EXPECT_LT(n->LclScaling.Get()[0], 2.0 + 1e-12);
}

TEST_P(Conversions, PivotConversionKeepsWorldPositions) {
    for (bool reduce : {false, true}) {
        RandomScene r(manager, GetParam());
        auto before = WorldPoints(r.scene, QdxNode::eSourcePivot);
        PrepareDestination(r.scene->GetRootNode());
        r.scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot,
                                                               kFps, reduce);
        ExpectSame(before, WorldPoints(r.scene, QdxNode::eDestinationPivot), "pivot conversion");
        // The destination set is neutral: no pre/post rotation, no geometry offset.
        QdxNode* n = r.scene->GetRootNode()->GetChild(0);
        EXPECT_TRUE(n->GetPreRotation(QdxNode::eDestinationPivot) == QdxVector4(0, 0, 0));
        EXPECT_TRUE(n->GetGeometricTransform(QdxNode::eDestinationPivot).IsIdentity());
    }
}

TEST_P(Conversions, PivotConversionToArbitraryPivots) {
    RandomScene r(manager, GetParam());
    auto before = WorldPoints(r.scene, QdxNode::eSourcePivot);
    std::mt19937 rng(GetParam() + 99);
    auto u = [&] { return std::uniform_real_distribution<double>(-3, 3)(rng); };
    for (int i = 0; i < r.scene->GetNodeCount(); ++i) {
        QdxNode* n = r.scene->GetNode(i);
        const auto D = QdxNode::eDestinationPivot;
        n->SetRotationPivot(D, QdxVector4(u(), u(), u()));
        n->SetScalingPivot(D, QdxVector4(u(), u(), u()));
        n->SetRotationOffset(D, QdxVector4(u(), u(), u()));
        n->SetPreRotation(D, QdxVector4(10 * u(), 10 * u(), 10 * u()));
        n->SetRotationOrder(D, static_cast<EQdxRotationOrder>(rng() % 6));
    }
    r.scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot,
                                                           kFps);
    ExpectSame(before, WorldPoints(r.scene, QdxNode::eDestinationPivot), "arbitrary pivots");
}

TEST_P(Conversions, ImportOrderAxisThenCentimetresThenPivots) {
    RandomScene r(manager, GetParam());
    r.scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::m);
    auto before = WorldPoints(r.scene, QdxNode::eSourcePivot);
    ASSERT_TRUE(QdxAxisSystem::ToveZUp.ConvertScene(r.scene));
    ASSERT_TRUE(QdxSystemUnit::cm.ConvertScene(r.scene, QdxSystemUnit::DefaultConversionOptions));
    PrepareDestination(r.scene->GetRootNode());
    r.scene->GetRootNode()->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot,
                                                           kFps, true);
    QdxAMatrix s;
    for (int i = 0; i < 3; ++i)
        s.m[i][i] = 100.0;
    QdxAMatrix expected = s * QdxAxisSystem::ToveZUp.GetConversionFrom(QdxAxisSystem::ToveYUp);
    ExpectSame(Transformed(before, expected), WorldPoints(r.scene, QdxNode::eDestinationPivot),
               "axis, unit and pivots");
}

INSTANTIATE_TEST_SUITE_P(Seeds, Conversions, ::testing::Values(1u, 2u, 3u, 4u, 5u, 6u));

TEST(AxisSystem, KnownSystemsAndComparison) {
    EXPECT_TRUE(QdxAxisSystem::ToveYUp == QdxAxisSystem(QdxAxisSystem::eYAxis));
    EXPECT_FALSE(QdxAxisSystem::ToveYUp == QdxAxisSystem::ToveZUp);
    // Y up to Z up maps +Y onto +Z and +Z onto -Y.
    QdxAMatrix c = QdxAxisSystem::ToveZUp.GetConversionFrom(QdxAxisSystem::ToveYUp);
    QdxVector4 y = c.MultR(QdxVector4(0, 1, 0, 0)), z = c.MultR(QdxVector4(0, 0, 1, 0));
    EXPECT_NEAR(y[2], 1.0, 1e-15);
    EXPECT_NEAR(z[1], -1.0, 1e-15);
    QdxManager* m = QdxManager::Create();
    QdxScene* s = QdxScene::Create(m, "");
    QdxAxisSystem left(QdxAxisSystem::eYAxis, QdxAxisSystem::eParityOdd,
                       QdxAxisSystem::eLeftHanded);
    EXPECT_FALSE(left.ConvertScene(s));
    m->Destroy();
}

TEST(SystemUnit, FactorsAndNames) {
    EXPECT_EQ(QdxSystemUnit::mm.GetScaleFactor(), 0.1);
    EXPECT_EQ(QdxSystemUnit::m.GetScaleFactor(), 100.0);
    EXPECT_STREQ(QdxSystemUnit::cm.GetScaleFactorAsString(true).Buffer(), "cm");
    EXPECT_STREQ(QdxSystemUnit::mm.GetScaleFactorAsString(false).Buffer(), "millimeter");
    EXPECT_STREQ(QdxSystemUnit::Inch.GetScaleFactorAsString().Buffer(), "inch");
    EXPECT_DOUBLE_EQ(QdxSystemUnit::m.GetConversionFactorTo(QdxSystemUnit::mm), 1000.0);
}
