// Cameras, lights and skeletons on import: the values the host gets from
// the file's attributes, what degrades to a plain node, and joints.
#include <cmath>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/ksUberCameraUtils.h>
#include <kestrel/osg/Joint.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class CameraLightTest : public PluginTest {};

QdxNode* addNode(QdxScene* s, QdxNode* parent, const char* name, QdxNodeAttribute* attribute) {
    QdxNode* n = QdxNode::Create(s, name);
    parent->AddChild(n);
    if (attribute) n->SetNodeAttribute(attribute);
    return n;
}

TEST_F(CameraLightTest, SkeletonNodesBecomeJointsAndEqualInstancesShareTheirClone) {
    Imported r = import(writeScene("skeleton.qdx", [](QdxScene* s) {
        // Both under groups: the axis conversion only touches the root's
        // children.
        QdxNode* parent = addNode(s, s->GetRootNode(), "Body", nullptr);
        QdxSkeleton* shared = nullptr;
        for (const char* name : {"Hip", "Knee", "Ankle"}) {
            auto* bone = QdxSkeleton::Create(s, name);
            bone->SetSkeletonType(shared ? QdxSkeleton::eLimbNode : QdxSkeleton::eRoot);
            parent = addNode(s, parent, name, bone);
            parent->LclTranslation.Set(QdxDouble3(0, 10, 0));
            if (!shared) shared = bone;
        }
        QdxNode* group = addNode(s, s->GetRootNode(), "Group", nullptr);
        addNode(s, group, "Twin", shared)->LclTranslation.Set(QdxDouble3(0, 10, 0));
    }));
    ASSERT_TRUE(r.root);
    for (const char* name : {"Hip", "Knee", "Ankle"}) {
        osg::NodePtr n = r.node(name);
        ASSERT_TRUE(n) << name;
        EXPECT_TRUE(osg::JointPtr::dcast(n->getCore())) << name;
    }
    EXPECT_EQ(r.node("Ankle")->getParent(), r.node("Knee"));
    EXPECT_EQ(r.node("Knee")->getParent(), r.node("Hip"));
    // The twin shares the hip's joint core but not its children.
    osg::NodePtr twin = r.node("Twin");
    ASSERT_TRUE(twin);
    EXPECT_EQ(twin->getParent(), r.node("Group"));
    EXPECT_EQ(twin->getNChildren(), 0u);
    EXPECT_EQ(twin->getCore(), r.node("Hip")->getCore());
}

struct LightCase {
    const char* name;
    int type, decay, shape;
    double inner, outer;
};

TEST_F(CameraLightTest, LightsGetTheirTypeValueAttenuationConeAndScaling) {
    setUnit(ksSceneData::Millimeter);
    const LightCase cases[] = {
        {"PointNone", QdxLight::ePoint, QdxLight::eNone, 0, 0, 0},
        {"PointLinear", QdxLight::ePoint, QdxLight::eLinear, 0, 0, 0},
        {"PointCubic", QdxLight::ePoint, QdxLight::eCubic, 0, 0, 0},
        {"Sun", QdxLight::eDirectional, QdxLight::eQuadratic, 0, 0, 0},
        {"SpotHard", QdxLight::eSpot, QdxLight::eNone, 0, 40, 40},
        {"SpotSoft", QdxLight::eSpot, QdxLight::eNone, 0, 30, 50},
        {"Panel", QdxLight::eArea, QdxLight::eLinear, QdxLight::eRectangle, 0, 0},
        {"Globe", QdxLight::eArea, QdxLight::eQuadratic, QdxLight::eSphere, 0, 0},
        {"Fog", QdxLight::eVolume, QdxLight::eNone, 0, 0, 0},
        {"Odd", 9, QdxLight::eNone, 0, 0, 0},
    };
    Imported r = import(writeScene("lights.qdx", [&](QdxScene* s) {
        // Under a group: the axis conversion only touches the root's children.
        QdxNode* group = addNode(s, s->GetRootNode(), "Lights", nullptr);
        for (const LightCase& c : cases) {
            auto* light = QdxLight::Create(s, c.name);
            light->LightType.Set(c.type);
            light->DecayType.Set(c.decay);
            light->AreaLightShape.Set(c.shape);
            light->InnerAngle.Set(c.inner);
            light->OuterAngle.Set(c.outer);
            light->Color.Set(QdxDouble3(0.25, 0.5, 0.75));
            light->CastShadows.Set(std::string(c.name) == "Sun");
            light->CastLight.Set(std::string(c.name) != "PointCubic");
            addNode(s, group, c.name, light)->LclScaling.Set(QdxDouble3(2, 3, 4));
        }
    }));
    ASSERT_TRUE(r.root);
    const double pi = 3.14159265358;
    struct Expected {
        const char* name;
        const char* type;
        float value;
        osg::UInt32 attenuation;
    };
    for (const Expected& e : {Expected{"PointNone", "PointLight", float(pi), 0},
                              Expected{"PointLinear", "PointLight", float(pi / 100), 1},
                              Expected{"PointCubic", "PointLight", float(pi / 10000), 2},
                              Expected{"Sun", "DirectionalLight", float(pi / 10000), 2},
                              Expected{"SpotHard", "SpotLight", float(pi), 0},
                              Expected{"Panel", "RectangularLight", 1.f, 1},
                              Expected{"Globe", "SphericalLight", 1.f, 2}}) {
        SCOPED_TRACE(e.name);
        osg::NodePtr n = r.node(e.name);
        ASSERT_TRUE(ksLights::isLight(n));
        EXPECT_EQ(ksLights::getTypeName(n), e.type);
        EXPECT_FLOAT_EQ(ksLights::getLightValue(n), e.value);
        EXPECT_EQ(ksLights::getAttenuation(n), e.attenuation);
        EXPECT_EQ(ksLights::getDiffuse(n), osg::Color3f(0.25f, 0.5f, 0.75f));
        EXPECT_EQ(ksLights::getGlossy(n), osg::Color3f(0.25f, 0.5f, 0.75f));
        EXPECT_EQ(ksLights::getOn(n), std::string(e.name) != "PointCubic");
        EXPECT_EQ(ksLights::getShadowIntensity(n), std::string(e.name) == "Sun" ? 1.f : 0.f);
        // Millimetres from centimetres: the light scale and an area light's
        // size follow the unit, other lights keep the file's scaling.
        EXPECT_FLOAT_EQ(ksLights::getLightScale(n), 10.f);
        const float k = ksLights::isAreaLight(n) ? 10.f : 1.f;
        const osg::Vec3f scale = ksLights::getLight(n)->getScale();
        EXPECT_NEAR(scale[0], 2 * k, 1e-5f);
        EXPECT_NEAR(scale[1], 3 * k, 1e-5f);
        EXPECT_NEAR(scale[2], 4 * k, 1e-5f);
    }
    // A cone without a soft edge still gets a sliver of penumbra.
    EXPECT_FLOAT_EQ(ksLights::getConeAngle(r.node("SpotHard")), 20.f);
    EXPECT_FLOAT_EQ(ksLights::getPenumbraAngle(r.node("SpotHard")), 0.01f);
    EXPECT_FLOAT_EQ(ksLights::getConeAngle(r.node("SpotSoft")), 15.f);
    EXPECT_FLOAT_EQ(ksLights::getPenumbraAngle(r.node("SpotSoft")), 10.f);
    // Kinds the host has no light for stay in the tree as plain transforms.
    for (const char* name : {"Fog", "Odd"}) {
        ASSERT_TRUE(r.node(name)) << name;
        EXPECT_FALSE(ksLights::isLight(r.node(name))) << name;
        EXPECT_TRUE(osg::Transform3DPtr::dcast(r.node(name)->getCore())) << name;
    }
    EXPECT_NE(r.out.find("Found volumetric light. Not supported so far!\n"), std::string::npos);
    EXPECT_NE(r.out.find("Found unknown light type.\n"), std::string::npos);
}

TEST_F(CameraLightTest, CamerasGetSensorFrustumClippingAndFieldOfViewMode) {
    for (int unit : {ksSceneData::Centimeter, ksSceneData::Millimeter}) {
        SCOPED_TRACE(unit);
        resetHost();
        setUnit(unit);
        const QdxCamera::EApertureMode modes[] = {QdxCamera::eHorizAndVert, QdxCamera::eHorizontal,
                                                  QdxCamera::eVertical, QdxCamera::eFocalLength};
        Imported r = import(writeScene("cameras.qdx", [&](QdxScene* s) {
            for (int i = 0; i < 4; ++i) {
                auto* c = QdxCamera::Create(s, "cam");
                c->SetApertureMode(modes[i]);
                c->SetApertureWidth(1.0);
                c->SetApertureHeight(0.5);
                c->FilmOffsetX.Set(0.1);
                c->FilmOffsetY.Set(-0.2);
                c->FocalLength.Set(35.0);
                c->SetNearPlane(5.0);
                c->SetFarPlane(500.0);
                c->Roll.Set(12.0);
                c->FocusDistance.Set(150.0);
                c->OrthoZoom.Set(1.0);
                c->UseDepthOfField.Set(i == 1);
                c->UseMotionBlur.Set(i == 2);
                if (i == 3) c->ProjectionType.Set(QdxCamera::eOrthogonal);
                addNode(s, s->GetRootNode(), ("Cam" + std::to_string(i)).c_str(), c);
            }
        }));
        ASSERT_TRUE(r.root);
        const float perCm = unit == ksSceneData::Millimeter ? 10.f : 1.f;
        const osg::UInt32 fovModes[] = {0, 1, 0, 1};
        for (int i = 0; i < 4; ++i) {
            osg::NodePtr n = r.node("Cam" + std::to_string(i));
            auto c = ksUberCameraUtils::getCamera(n);
            ASSERT_TRUE(c) << i;
            EXPECT_EQ(c->getFovMode(), fovModes[i]) << i;
            EXPECT_FLOAT_EQ(c->getSensorSize()[0], 25.4f);
            EXPECT_FLOAT_EQ(c->getSensorSize()[1], 12.7f);
            EXPECT_FLOAT_EQ(c->getPrincipalPointOffset()[0], 2.54f);
            EXPECT_FLOAT_EQ(c->getPrincipalPointOffset()[1], -5.08f);
            EXPECT_FLOAT_EQ(c->getFocalLength(), 35.f);
            EXPECT_FLOAT_EQ(c->getRoll(), 12.f);
            EXPECT_FLOAT_EQ(c->getNear(), 5.f * perCm);
            EXPECT_FLOAT_EQ(c->getFar(), 500.f * perCm);
            EXPECT_FLOAT_EQ(c->getVisualizationScale(), perCm);
            // An orthographic view 30 cm across at zoom 1.
            EXPECT_EQ(c->getFrustumSides(),
                      osg::Vec4f(-15.f * perCm, 15.f * perCm, -15.f * perCm, 15.f * perCm));
            EXPECT_EQ(c->getDepthOfField(), i == 1);
            EXPECT_EQ(c->getMotionBlur(), i == 2);
            EXPECT_EQ(c->getProjectionMode(), i == 3 ? 1u : 0u);
        }
    }
}

} // namespace
