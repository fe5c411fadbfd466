// Cameras, the camera pool and its default camera, lights and joints.
#include <gtest/gtest.h>

#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/osg/ChangeList.h>

using namespace osg;

namespace {

// Clip-space point (after the perspective divide) of a camera-space point.
Pnt3f project(const UberCameraPtr& cam, const Pnt3f& p) {
    return cam->getProjectionMatrix().multFullPnt(p);
}

TEST(UberCamera, AnglesOfViewFollowTheSensorSideOfTheMode) {
    auto cam = UberCamera::create();
    cam->setSensorSize(Vec2f(36, 24));
    cam->setFocalLength(50);
    EXPECT_FLOAT_EQ(cam->getAspect(), 1.5f);
    EXPECT_NEAR(cam->getHorizontalFov(), 39.5978f, 1e-3f);
    EXPECT_NEAR(cam->getVerticalFov(), 26.9915f, 1e-3f);
    cam->setFovMode(UberCamera::HorizontalFov);
    EXPECT_FLOAT_EQ(cam->getFov(), cam->getHorizontalFov());
    cam->setFovMode(UberCamera::VerticalFov);
    EXPECT_FLOAT_EQ(cam->getFov(), cam->getVerticalFov());

    // setFov solves for the focal length on the mode's side.
    cam->setFov(90);
    EXPECT_NEAR(cam->getFocalLength(), 12.f, 1e-4f);
    cam->setFovMode(UberCamera::HorizontalFov);
    cam->setFov(90);
    EXPECT_NEAR(cam->getFocalLength(), 18.f, 1e-4f);
    cam->setFov(0); // no such lens: unchanged
    EXPECT_NEAR(cam->getFocalLength(), 18.f, 1e-4f);

    cam->setFocalLength(0);
    EXPECT_EQ(cam->getFov(), 0.f);
    cam->setSensorSize(Vec2f(36, 0));
    EXPECT_EQ(cam->getAspect(), 1.f);
}

TEST(UberCamera, ViewVolumeOfAPerspectiveCamera) {
    auto cam = UberCamera::create();
    cam->setSensorSize(Vec2f(36, 24));
    cam->setFocalLength(50);
    cam->setNear(10);
    cam->setFar(1000);
    Vec4f sides = cam->getNearPlaneSides();
    EXPECT_TRUE(sides.equals(Vec4f(-3.6f, 3.6f, -2.4f, 2.4f), 1e-5f));
    // The corners of the near plane and the centre of the far plane reach
    // the edges of clip space.
    EXPECT_TRUE(project(cam, Pnt3f(3.6f, 2.4f, -10)).equals(Pnt3f(1, 1, -1), 1e-5f));
    EXPECT_TRUE(project(cam, Pnt3f(-3.6f, -2.4f, -10)).equals(Pnt3f(-1, -1, -1), 1e-5f));
    EXPECT_NEAR(project(cam, Pnt3f(0, 0, -1000))[2], 1.f, 1e-4f);
    // A point on the sensor's edge ray stays on the edge at any depth.
    EXPECT_NEAR(project(cam, Pnt3f(36.f, 0, -100))[0], 1.f, 1e-5f);

    // The principal point offset shifts the view volume.
    cam->setPrincipalPointOffset(Vec2f(2, -1));
    sides = cam->getNearPlaneSides();
    EXPECT_TRUE(sides.equals(Vec4f(-3.2f, 4.0f, -2.6f, 2.2f), 1e-5f));
    EXPECT_TRUE(project(cam, Pnt3f(0.4f, -0.2f, -10)).equals(Pnt3f(0, 0, -1), 1e-5f));

    // Degenerate set-ups give the identity rather than infinities.
    cam->setFar(5);
    EXPECT_EQ(cam->getProjectionMatrix(), Matrix());
    cam->setFar(1000);
    cam->setNear(0);
    EXPECT_EQ(cam->getProjectionMatrix(), Matrix());
}

TEST(UberCamera, ViewVolumeOfAnOrthographicCamera) {
    auto cam = UberCamera::create();
    cam->setProjectionMode(UberCamera::Orthographic);
    cam->setFrustumSides(Vec4f(-15, 15, -10, 10));
    cam->setNear(1);
    cam->setFar(101);
    EXPECT_EQ(cam->getNearPlaneSides(), Vec4f(-15, 15, -10, 10));
    EXPECT_TRUE(project(cam, Pnt3f(15, 10, -1)).equals(Pnt3f(1, 1, -1), 1e-5f));
    EXPECT_TRUE(project(cam, Pnt3f(-15, -10, -101)).equals(Pnt3f(-1, -1, 1), 1e-5f));
    EXPECT_TRUE(project(cam, Pnt3f(7.5f, 0, -51)).equals(Pnt3f(0.5f, 0, 0), 1e-5f));
    cam->setFrustumSides(Vec4f(1, 1, -1, 1));
    EXPECT_EQ(cam->getProjectionMatrix(), Matrix());
}

TEST(UberCamera, FrameFollowsTheNodeAndSettersRecordChanges) {
    auto& pool = ksUberCameraPool::the();
    NodePtr parent = Node::create();
    auto parentCore = Transform3D::create();
    parentCore->setTranslation(Vec3f(0, 0, 10));
    parentCore->setEulerRotation(Vec3f(0, 90, 0)); // -Z turns to -X
    parent->setCore(parentCore);
    NodePtr node = pool.createCameraNode("Shot", parent);
    auto cam = ksUberCameraUtils::getCamera(node);
    cam->setTranslation(Vec3f(0, 0, 2));
    cam->setFocusDistance(4);
    Pnt3f from, at;
    Vec3f up;
    cam->getFromAtUp(from, at, up);
    EXPECT_TRUE(from.equals(Pnt3f(2, 0, 10), 1e-5f));
    EXPECT_TRUE(at.equals(Pnt3f(-2, 0, 10), 1e-5f));
    EXPECT_TRUE(up.equals(Vec3f(0, 1, 0), 1e-5f));

    ChangeList::current().clear();
    cam->setRoll(15);
    EXPECT_EQ(cam->getRoll(), 15.f);
    EXPECT_NE(ChangeList::current().getMask(cam->getId()) & UberCamera::CameraFieldMask, 0u);
}

TEST(CameraPool, HasOneDefaultCameraThatExportsCanRecognise) {
    auto& pool = ksUberCameraPool::the();
    NodePtr def = pool.getDefaultCamera();
    ASSERT_TRUE(ksUberCameraUtils::isCamera(def));
    EXPECT_TRUE(ksUberCameraUtils::isDefaultCamera(def));
    EXPECT_TRUE(ksUberCameraUtils::isDefaultCamera(ksUberCameraUtils::getCamera(def)));
    // A node that shares the default camera's core is that camera too.
    NodePtr shared = Node::create();
    shared->setCore(def->getCore());
    EXPECT_TRUE(ksUberCameraUtils::isDefaultCamera(shared));

    NodePtr cam = pool->createCameraNode("Shot", NullFC);
    EXPECT_EQ(cam->getParent(), pool.getRoot());
    EXPECT_FALSE(ksUberCameraUtils::isDefaultCamera(cam));
    EXPECT_FALSE(ksUberCameraUtils::isDefaultCamera(ksUberCameraUtils::getCamera(cam)));
    EXPECT_FALSE(ksUberCameraUtils::isDefaultCamera(NodePtr()));
    EXPECT_FALSE(ksUberCameraUtils::isDefaultCamera(Node::create()));
    EXPECT_EQ(ksUberCameraUtils::getName(cam), "Shot");
    EXPECT_EQ(ksUberCameraUtils::getName(ksUberCameraUtils::getCamera(cam)), "Shot");

    NodePtr active = pool.createCameraNode("Active", NullFC, true);
    EXPECT_EQ(pool.getActiveCamera(), active);
    pool.setActiveCamera(Node::create()); // not a camera: ignored
    EXPECT_EQ(pool.getActiveCamera(), active);

    pool.reset();
    EXPECT_EQ(pool.getRoot()->getNChildren(), 1u);
    EXPECT_EQ(pool.getActiveCamera(), def);
    EXPECT_TRUE(ksUberCameraUtils::isDefaultCamera(pool.getRoot()->getChild(0)));
}

TEST(Lights, EveryTypeHasItsNameAndPredicates) {
    struct Expect {
        const char* name;
        bool point, directional, spot, rectangular, spherical, disk, area;
    };
    const Expect types[] = {
        {"PointLight", true, false, false, false, false, false, false},
        {"DirectionalLight", false, true, false, false, false, false, false},
        {"SpotLight", false, false, true, false, false, false, false},
        {"RectangularLight", false, false, false, true, false, false, true},
        {"SphericalLight", false, false, false, false, true, false, true},
        {"DiskLight", false, false, false, false, false, true, true},
    };
    NodePtr parent = Node::create();
    for (const Expect& e : types) {
        SCOPED_TRACE(e.name);
        NodePtr light = ksLights::createLight(e.name, std::string("my") + e.name, parent);
        ASSERT_TRUE(light);
        EXPECT_EQ(light->getParent(), parent);
        EXPECT_EQ(light->getName(), std::string("my") + e.name);
        EXPECT_TRUE(ksLights::isLight(light));
        EXPECT_EQ(ksLights::getTypeName(light), e.name);
        EXPECT_EQ(ksLights::isPointLight(light), e.point);
        EXPECT_EQ(ksLights::isDirectionalLight(light), e.directional);
        EXPECT_EQ(ksLights::isSpotLight(light), e.spot);
        EXPECT_EQ(ksLights::isRectangularLight(light), e.rectangular);
        EXPECT_EQ(ksLights::isSphericalLight(light), e.spherical);
        EXPECT_EQ(ksLights::isDiskLight(light), e.disk);
        EXPECT_EQ(ksLights::isAreaLight(light), e.area);
    }
    EXPECT_TRUE(ksLights::createLight("VolumeLight", "v") == NullFC);
    EXPECT_TRUE(ksLights::createLight("pointlight", "p") == NullFC);
    // Nothing is a light but a light.
    NodePtr plain = Node::create();
    plain->setCore(Transform3D::create());
    EXPECT_FALSE(ksLights::isLight(plain));
    EXPECT_FALSE(ksLights::isPointLight(plain));
    EXPECT_FALSE(ksLights::isAreaLight(NodePtr()));
    EXPECT_EQ(ksLights::getTypeName(plain), "");
}

TEST(Lights, FieldsAreSetAndReadThroughTheService) {
    NodePtr spot = ksLights::createLight("SpotLight", "Key");
    auto core = ksLights::getLight(spot);
    ChangeList::current().clear();
    ksLights::setOn(spot, false);
    ksLights::setShadowIntensity(spot, 0.75f);
    ksLights::setGroundShadowIntensity(spot, 0.5f);
    ksLights::setLightScale(spot, 10);
    ksLights::setDiffuse(spot, Color3f(1, 0.5f, 0));
    ksLights::setGlossy(spot, Color3f(0, 0.5f, 1));
    ksLights::setLightValue(spot, 3.14159265358f);
    ksLights::setAttenuation(spot, UberLight::LinearAttenuation);
    ksLights::setConeAngle(spot, 30);
    ksLights::setPenumbraAngle(spot, 5);
    ksLights::setAreaSize(spot, Vec2f(2, 3));
    EXPECT_NE(ChangeList::current().getMask(core->getId()) & UberLight::LightFieldMask, 0u);

    EXPECT_FALSE(ksLights::getOn(spot));
    EXPECT_EQ(ksLights::getShadowIntensity(spot), 0.75f);
    EXPECT_TRUE(core->getCastShadows());
    EXPECT_EQ(ksLights::getGroundShadowIntensity(spot), 0.5f);
    EXPECT_EQ(ksLights::getLightScale(spot), 10.f);
    EXPECT_EQ(ksLights::getDiffuse(spot), Color3f(1, 0.5f, 0));
    EXPECT_EQ(ksLights::getGlossy(spot), Color3f(0, 0.5f, 1));
    EXPECT_FLOAT_EQ(ksLights::getLightValue(spot), 3.14159265358f);
    EXPECT_EQ(ksLights::getAttenuation(spot), UInt32(UberLight::LinearAttenuation));
    EXPECT_EQ(ksLights::getConeAngle(spot), 30.f);
    EXPECT_EQ(ksLights::getPenumbraAngle(spot), 5.f);
    EXPECT_EQ(ksLights::getAreaSize(spot), Vec2f(2, 3));
    ksLights::setShadowIntensity(spot, 0);
    EXPECT_FALSE(core->getCastShadows());

    // Setters leave other nodes alone; getters give zeros.
    NodePtr plain = Node::create();
    ksLights::setLightValue(plain, 5);
    ksLights::setAreaSize(NodePtr(), Vec2f(1, 1));
    EXPECT_EQ(ksLights::getLightValue(plain), 0.f);
    EXPECT_EQ(ksLights::getAreaSize(plain), Vec2f());
    EXPECT_FALSE(ksLights::getOn(plain));
}

TEST(Lights, EmitAlongMinusZOfTheirNode) {
    NodePtr parent = Node::create();
    auto parentCore = Transform3D::create();
    parentCore->setTranslation(Vec3f(1, 2, 3));
    parentCore->setEulerRotation(Vec3f(90, 0, 0));
    parent->setCore(parentCore);
    NodePtr light = ksLights::createLight("DirectionalLight", "Sun", parent);
    ksLights::getLight(light)->setTranslation(Vec3f(0, 0, 1));
    Pnt3f position;
    Vec3f direction;
    ksLights::getLight(light)->getPositionDirection(position, direction);
    EXPECT_TRUE(position.equals(Pnt3f(1, 1, 3), 1e-5f));
    EXPECT_TRUE(direction.equals(Vec3f(0, 1, 0), 1e-5f));

    // A light's helper transform node is recognised as such.
    NodePtr helper = Node::create();
    helper->setCore(Transform::create());
    helper->setName("LightTransforms");
    EXPECT_FALSE(ksNodeUtils::isLightTransforms(helper));
    light->addChild(helper);
    EXPECT_TRUE(ksNodeUtils::isLightTransforms(helper));
}

} // namespace
