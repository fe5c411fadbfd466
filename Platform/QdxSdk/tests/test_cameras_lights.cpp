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

    // A target at a position read as NaN leaves the node's own rotation,
    // and the frame holds no NaN direction.
    target->LclTranslation.Set(QdxDouble3(kNaN, 0, 0));
    ExpectVec(QdxVector4(0, 0, 0),
              lightNode->EvaluateLocalRotation(QdxTime(), QdxNode::eSourcePivot, true), 1e-12,
              "NaN target");
    auto nanFrame = light->EvaluateWorldFrame(lightNode);
    for (int k = 0; k < 3; ++k)
        EXPECT_TRUE(std::isfinite(nanFrame.forward[k]) && std::isfinite(nanFrame.up[k]));
}

namespace {

// Where every camera and light of a scene is, at a few frames: eye or light
// position, viewing or emission direction and up direction, plus the
// camera's own world-space position, interest and up values.
struct Frames {
    std::vector<QdxVector4> points, directions;
};

const char* const kViewers[] = {"freeCam", "aimedCam", "spot", "sun", "panel", "bulb", "aimedSpot"};

Frames Measure(QdxScene* scene) {
    Frames out;
    for (int frame : {0, 7, 12}) {
        QdxTime t;
        t.SetFrame(frame, QdxTime::eFrames24);
        for (const char* name : kViewers) {
            QdxNode* n = scene->GetRootNode()->FindChild(name, true);
            if (!n) {
                ADD_FAILURE() << "missing " << name;
                continue;
            }
            QdxNodeAttribute* a = n->GetNodeAttribute();
            auto f = a->EvaluateWorldFrame(n, t);
            out.points.push_back(f.position);
            QdxLight* light = n->GetLight();
            if (light && !light->HasDirection()) continue;
            out.directions.push_back(f.forward);
            out.directions.push_back(f.up);
            if (QdxCamera* cam = n->GetCamera()) {
                out.points.push_back(QdxVector4(cam->Position.Get()));
                out.points.push_back(QdxVector4(cam->InterestPosition.Get()));
                QdxDouble3 up = cam->UpVector.Get();
                out.directions.push_back(QdxVector4(up[0], up[1], up[2], 0));
            }
        }
    }
    return out;
}

// Expects after == (scale * c) applied to before: points scaled and turned,
// directions only turned.
void ExpectSamePhysically(const Frames& before, const Frames& after, const QdxAMatrix& c,
                          double scale, const std::string& what) {
    ASSERT_EQ(before.points.size(), after.points.size()) << what;
    ASSERT_EQ(before.directions.size(), after.directions.size()) << what;
    auto check = [&](const QdxVector4& expected, const QdxVector4& actual, size_t i) {
        double len = std::sqrt(Dot(expected, expected));
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(actual[k], expected[k], 1e-5 * std::max(1.0, len))
                << what << ", value " << i << " component " << k;
    };
    for (size_t i = 0; i < before.points.size(); ++i)
        check(c.MultT(before.points[i]) * scale, after.points[i], i);
    for (size_t i = 0; i < before.directions.size(); ++i)
        check(c.MultR(before.directions[i]), after.directions[i], i);
}

// Cameras and lights under a parent with pivots, offsets, pre- and
// post-rotations, a rotation order and animation; optionally a root node
// that moves the whole scene.
void BuildRig(QdxScene* scene, bool movedRoot) {
    const auto S = QdxNode::eSourcePivot;
    scene->GetGlobalSettings().SetTimeMode(QdxTime::eFrames24);
    scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::cm);
    QdxAnimStack* stack = QdxAnimStack::Create(scene, "stack");
    QdxAnimLayer* layer = QdxAnimLayer::Create(scene, "base");
    stack->AddMember(layer);
    QdxNode* root = scene->GetRootNode();
    if (movedRoot) {
        root->LclTranslation.Set(QdxDouble3(5, -3, 2));
        root->LclRotation.Set(QdxDouble3(15, 40, -25));
        root->LclScaling.Set(QdxDouble3(1.5, 1.5, 1.5));
    }
    auto add = [&](QdxNode* parent, const char* name, QdxDouble3 t, QdxDouble3 r) {
        QdxNode* n = QdxNode::Create(scene, name);
        n->LclTranslation.Set(t);
        n->LclRotation.Set(r);
        parent->AddChild(n);
        return n;
    };
    QdxNode* rig = add(root, "rig", QdxDouble3(10, 4, -6), QdxDouble3(20, -35, 50));
    rig->SetRotationActive(true);
    rig->SetRotationPivot(S, QdxVector4(1, 2, -1));
    rig->SetRotationOffset(S, QdxVector4(-0.5, 0.25, 3));
    rig->SetScalingPivot(S, QdxVector4(2, -1, 0.5));
    rig->SetPreRotation(S, QdxVector4(-30, 10, 5));
    rig->SetPostRotation(S, QdxVector4(12, -8, 40));
    rig->SetRotationOrder(S, eEulerYZX);
    for (const char* ch : {"X", "Y", "Z"}) {
        QdxAnimCurve* c = rig->LclRotation.GetCurve(layer, ch, true);
        QdxAnimCurve* tc = rig->LclTranslation.GetCurve(layer, ch, true);
        for (int f : {0, 12}) {
            QdxTime t;
            t.SetFrame(f, QdxTime::eFrames24);
            c->KeySet(c->KeyAdd(t), t, f == 0 ? 10.0 : -70.0,
                      QdxAnimCurveDef::eInterpolationLinear);
            tc->KeySet(tc->KeyAdd(t), t, f == 0 ? 1.0 : 9.0, QdxAnimCurveDef::eInterpolationLinear);
        }
    }

    QdxNode* freeCam = add(rig, "freeCam", QdxDouble3(3, 1, 2), QdxDouble3(5, 60, -10));
    freeCam->SetRotationActive(true);
    freeCam->SetPostRotation(S, QdxVector4(0, 90, 0));
    freeCam->SetRotationOrder(S, eEulerZXY);
    freeCam->SetGeometricRotation(S, QdxVector4(0, 0, 15));
    QdxCamera* cam = QdxCamera::Create(scene, "freeCam");
    cam->Position.Set(QdxDouble3(1, 2, 3));
    cam->InterestPosition.Set(QdxDouble3(-4, 0, 8));
    cam->UpVector.Set(QdxDouble3(0, 0.6, 0.8));
    freeCam->SetNodeAttribute(cam);

    QdxNode* target = add(root, "target", QdxDouble3(-7, 3, 12), QdxDouble3(0, 0, 0));
    QdxNode* upNode = add(rig, "upNode", QdxDouble3(0, 40, 3), QdxDouble3(0, 0, 0));
    QdxNode* aimedCam = add(rig, "aimedCam", QdxDouble3(-2, 5, 1), QdxDouble3(0, 0, 0));
    aimedCam->SetNodeAttribute(QdxCamera::Create(scene, "aimedCam"));
    aimedCam->SetTarget(target);
    aimedCam->SetTargetUp(upNode);

    struct LightSpec {
        const char* name;
        QdxLight::EType type;
        QdxDouble3 t, r;
    };
    const LightSpec lights[] = {{"spot", QdxLight::eSpot, {4, -2, 1}, {30, 0, 70}},
                                {"sun", QdxLight::eDirectional, {0, 9, 0}, {-45, 10, 0}},
                                {"panel", QdxLight::eArea, {1, 1, 1}, {0, 80, 20}},
                                {"bulb", QdxLight::ePoint, {-3, 2, 6}, {0, 0, 0}},
                                {"aimedSpot", QdxLight::eSpot, {6, 6, -2}, {0, 0, 0}}};
    for (const LightSpec& ls : lights) {
        QdxNode* n = add(rig, ls.name, ls.t, ls.r);
        n->SetRotationActive(true);
        n->SetPostRotation(S, QdxVector4(90, 0, 0));
        n->SetRotationOrder(S, eEulerXZY);
        QdxLight* light = QdxLight::Create(scene, ls.name);
        light->SetLightType(ls.type);
        n->SetNodeAttribute(light);
    }
    rig->FindChild("aimedSpot")->SetTarget(target);
}

} // namespace

// For every file flavour, target axis system and unit, the cameras' eyes,
// viewing and up directions and the lights' positions and emission
// directions are the same physical quantities after the file is read back
// and converted.
TEST(CameraLightConversion, WorldFramesSurviveFilesAxesAndUnits) {
    const std::string dir = qdxtest::MakeTempDir("camlight");
    const QdxAxisSystem xUp(QdxAxisSystem::eXAxis, QdxAxisSystem::eParityEven,
                            QdxAxisSystem::eRightHanded, -1, 1);
    const QdxAxisSystem* axes[] = {&QdxAxisSystem::ToveZUp, &xUp, &QdxAxisSystem::ToveYUp};
    const QdxSystemUnit* units[] = {&QdxSystemUnit::mm, &QdxSystemUnit::m, &QdxSystemUnit::Inch};
    for (bool movedRoot : {false, true}) {
        QdxManager* manager = QdxManager::Create();
        QdxScene* scene = QdxScene::Create(manager, "rig");
        BuildRig(scene, movedRoot);
        const Frames before = Measure(scene);
        for (int format : {0, 1}) {
            std::string path = dir + "/rig" + std::to_string(format) + ".qdx";
            ASSERT_TRUE(qdxtest::ExportScene(scene, path, format, 3));
            for (const QdxAxisSystem* axis : axes)
                for (const QdxSystemUnit* unit : units) {
                    std::string what = std::string(movedRoot ? "moved root" : "plain root") +
                                       ", format " + std::to_string(format) + ", to " +
                                       unit->GetScaleFactorAsString().Buffer();
                    QdxScene* read = QdxScene::Create(manager, "read");
                    ASSERT_TRUE(qdxtest::ImportScene(read, path)) << what;
                    ExpectSamePhysically(before, Measure(read), QdxAMatrix(), 1.0,
                                         what + ", as read");
                    ASSERT_TRUE(axis->ConvertScene(read)) << what;
                    ASSERT_TRUE(unit->ConvertScene(read)) << what;
                    double f = QdxSystemUnit::cm.GetConversionFactorTo(*unit);
                    ExpectSamePhysically(before, Measure(read),
                                         axis->GetConversionFrom(QdxAxisSystem::ToveYUp), f, what);
                    read->Destroy();
                }
        }
        manager->Destroy();
    }
}
