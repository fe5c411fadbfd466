// Cameras and lights: the lens relations and their guards against bad
// values, aiming at targets along each attribute's own axes, and the world
// eye and emission frames surviving axis and unit conversion and both file
// flavours.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "qdxsdk/qdxsdk.h"
#include "scene_builder.h"

using namespace qdxsdk;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

class CamerasLights : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "scene");
    }
    void TearDown() override { manager->Destroy(); }
    QdxNode* AddNode(QdxNode* parent, const char* name, QdxDouble3 t) {
        QdxNode* n = QdxNode::Create(scene, name);
        n->LclTranslation.Set(t);
        (parent ? parent : scene->GetRootNode())->AddChild(n);
        return n;
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
};

QdxVector4 Unit(const QdxVector4& v) {
    double l = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return QdxVector4(v[0] / l, v[1] / l, v[2] / l, 0);
}
double Dot(const QdxVector4& a, const QdxVector4& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
void ExpectVec(const QdxVector4& expected, const QdxVector4& actual, double tol,
               const std::string& what) {
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(expected[k], actual[k], tol) << what << " component " << k;
}

} // namespace

TEST_F(CamerasLights, LensRelationsFollowTheApertureMode) {
    QdxCamera* cam = QdxCamera::Create(scene, "cam");
    cam->SetApertureWidth(1.0);
    cam->SetApertureHeight(0.5);
    EXPECT_DOUBLE_EQ(cam->GetFilmAspectRatio(), 2.0);
    // A 25.4 mm film behind a 12.7 mm lens sees 90 degrees.
    EXPECT_NEAR(cam->ComputeFieldOfView(12.7, true), 90.0, 1e-12);
    EXPECT_NEAR(cam->ComputeFocalLength(90.0, true), 12.7, 1e-12);
    EXPECT_NEAR(cam->ComputeFocalLength(cam->ComputeFieldOfView(50.0, false), false), 50.0, 1e-9);

    cam->FocalLength.Set(12.7);
    cam->FieldOfView.Set(30.0);
    cam->SetApertureMode(QdxCamera::eFocalLength);
    EXPECT_DOUBLE_EQ(cam->GetEffectiveFocalLength(), 12.7);
    EXPECT_NEAR(cam->GetHorizontalFieldOfView(), 90.0, 1e-12);
    cam->SetApertureMode(QdxCamera::eHorizontal);
    EXPECT_NEAR(cam->GetHorizontalFieldOfView(), 30.0, 1e-12);
    cam->SetApertureMode(QdxCamera::eVertical);
    EXPECT_NEAR(cam->GetVerticalFieldOfView(), 30.0, 1e-12);
    EXPECT_GT(cam->GetHorizontalFieldOfView(), 30.0); // the wider film sees more
}

TEST_F(CamerasLights, BadValuesNeverReachDerivedValues) {
    QdxCamera* cam = QdxCamera::Create(scene, "cam");
    const double bad[] = {0.0, -1.0, kNaN, kInf, -kInf};
    for (double v : bad) {
        SCOPED_TRACE(v);
        cam->FilmWidth.Set(v);
        cam->FilmHeight.Set(v);
        cam->AspectWidth.Set(v);
        cam->FocalLength.Set(v);
        cam->FieldOfView.Set(v);
        EXPECT_EQ(cam->GetFilmAspectRatio(), 1.0);
        EXPECT_EQ(cam->GetImageAspectRatio(), 1.0);
        for (auto mode : {QdxCamera::eHorizAndVert, QdxCamera::eHorizontal, QdxCamera::eVertical,
                          QdxCamera::eFocalLength}) {
            cam->SetApertureMode(mode);
            EXPECT_EQ(cam->GetEffectiveFocalLength(), 0.0);
            EXPECT_EQ(cam->GetHorizontalFieldOfView(), 0.0);
            EXPECT_EQ(cam->GetVerticalFieldOfView(), 0.0);
        }
    }
    // Extreme but valid values stay finite.
    for (double v : {1e-320, 1e300}) {
        cam->FilmWidth.Set(v);
        cam->FilmHeight.Set(1.0 / v);
        cam->FieldOfView.Set(v);
        for (double d : {cam->GetFilmAspectRatio(), cam->GetEffectiveFocalLength(),
                         cam->GetHorizontalFieldOfView(), cam->GetVerticalFieldOfView()})
            EXPECT_TRUE(std::isfinite(d)) << v;
    }
    // Good film, impossible angles.
    cam->FilmWidth.Set(1.0);
    for (double fov : {180.0, 200.0, kNaN, -10.0})
        EXPECT_EQ(cam->ComputeFocalLength(fov, true), 0.0) << fov;
    EXPECT_EQ(cam->ComputeFieldOfView(kInf, true), 0.0);
    // Out-of-range enumeration values read from a file fall back to defaults.
    cam->ApertureMode.Set(77);
    cam->ProjectionType.Set(-3);
    cam->GateFit.Set(99);
    EXPECT_EQ(cam->GetApertureMode(), QdxCamera::eVertical);
    EXPECT_EQ(cam->GetProjectionType(), QdxCamera::ePerspective);
    EXPECT_EQ(cam->GetGateFit(), QdxCamera::eFitNone);
    // A light keeps an unknown type for its reader to reject.
    QdxLight* light = QdxLight::Create(scene, "light");
    light->LightType.Set(42);
    EXPECT_EQ(static_cast<int>(light->GetLightType()), 42);
    EXPECT_FALSE(light->HasDirection());
}

TEST_F(CamerasLights, TargetsAimEachAttributeAlongItsOwnAxes) {
    // A rotated, scaled parent so that the aim is solved in the parent's space.
    QdxNode* parent = AddNode(nullptr, "parent", QdxDouble3(1, 2, 3));
    parent->LclRotation.Set(QdxDouble3(30, -20, 70));
    parent->LclScaling.Set(QdxDouble3(2, 2, 2));
    QdxNode* target = AddNode(nullptr, "target", QdxDouble3(10, -4, 7));
    QdxNode* upNode = AddNode(nullptr, "up", QdxDouble3(0, 0, 50));

    QdxNode* camNode = AddNode(parent, "cam", QdxDouble3(1, 1, 1));
    camNode->SetRotationActive(true);
    camNode->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(10, 20, 30));
    camNode->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(0, 90, 0));
    camNode->SetRotationOrder(QdxNode::eSourcePivot, eEulerZXY);
    camNode->SetGeometricRotation(QdxNode::eSourcePivot, QdxVector4(0, 0, 25));
    QdxCamera* cam = QdxCamera::Create(scene, "cam");
    camNode->SetNodeAttribute(cam);
    camNode->SetTarget(target);
    camNode->SetTargetUp(upNode);

    QdxNode* lightNode = AddNode(parent, "light", QdxDouble3(-2, 0, 1));
    lightNode->SetRotationActive(true);
    lightNode->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(90, 0, 0));
    QdxLight* light = QdxLight::Create(scene, "light");
    light->SetLightType(QdxLight::eSpot);
    lightNode->SetNodeAttribute(light);
    lightNode->SetTarget(target);

    QdxVector4 there = target->EvaluateGlobalTransform().GetT();
    auto c = cam->EvaluateWorldFrame(camNode);
    ExpectVec(Unit(there - c.position), c.forward, 1e-12, "camera forward");
    // Up leans towards the up node: perpendicular to forward, on its side.
    QdxVector4 toUp = Unit(upNode->EvaluateGlobalTransform().GetT() - c.position);
    EXPECT_NEAR(Dot(c.up, c.forward), 0.0, 1e-12);
    QdxVector4 expectedUp = Unit(toUp - c.forward * Dot(toUp, c.forward));
    ExpectVec(expectedUp, c.up, 1e-12, "camera up");

    auto l = light->EvaluateWorldFrame(lightNode);
    ExpectVec(Unit(there - l.position), l.forward, 1e-12, "light emission");
    // Without an up node the light's up axis leans towards the scene's up.
    EXPECT_NEAR(Dot(l.up, l.forward), 0.0, 1e-12);
    EXPECT_GT(l.up[1], 0.0);

    // In a Z-up scene the same rule uses +Z.
    scene->GetGlobalSettings().SetAxisSystem(QdxAxisSystem::ToveZUp);
    EXPECT_GT(light->EvaluateWorldFrame(lightNode).up[2], 0.0);

    // A target on the node itself leaves the node's own rotation.
    target->LclTranslation.Set(QdxDouble3(0, 0, 0));
    QdxNode* self = AddNode(nullptr, "self", QdxDouble3(0, 0, 0));
    self->LclRotation.Set(QdxDouble3(0, 45, 0));
    self->SetNodeAttribute(QdxLight::Create(scene, "l2"));
    self->SetTarget(target);
    ExpectVec(QdxVector4(0, 45, 0),
              self->EvaluateLocalRotation(QdxTime(), QdxNode::eSourcePivot, true), 1e-12,
              "degenerate aim");
}
