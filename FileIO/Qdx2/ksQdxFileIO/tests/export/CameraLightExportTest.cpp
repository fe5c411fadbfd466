// Cameras and lights on export: the values written for the host's cores,
// and host -> file -> host round trips that keep them, their frames, the
// camera targets and the sharing of light cores.
#include <cmath>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/ksUberCameraUtils.h>
#include <kestrel/osg/Constraint.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class CameraLightExport : public PluginTest {
protected:
    // A scene of every light kind (two nodes sharing the spot's core), an
    // aimed and a free perspective camera and an orthographic one.
    osg::NodePtr makeScene() {
        osg::NodePtr root = makeGroup("Top", {});
        osg::NodePtr rig = makeNode(osg::Transform3D::create(), "Rig");
        auto rigT = osg::Transform3DPtr::dcast(rig->getCore());
        rigT->setTranslation(osg::Vec3f(100, -50, 20));
        rigT->setEulerRotation(osg::Vec3f(10, 20, 30));
        root->addChild(rig);
        struct Kind {
            const char* type;
            osg::UInt32 attenuation;
        };
        int i = 0;
        for (const Kind& k :
             {Kind{"PointLight", 0}, Kind{"DirectionalLight", 1}, Kind{"SpotLight", 2},
              Kind{"RectangularLight", 1}, Kind{"SphericalLight", 0}, Kind{"DiskLight", 2}}) {
            osg::NodePtr n = ksLights::createLight(k.type, k.type, rig);
            ksLights::setAttenuation(n, k.attenuation);
            ksLights::setLightValue(n, 0.5f + float(i));
            ksLights::setDiffuse(n, osg::Color3f(0.1f * float(i), 0.5f, 1.f));
            ksLights::setShadowIntensity(n, i % 2 ? 1.f : 0.f);
            auto core = ksLights::getLight(n);
            core->setTranslation(osg::Vec3f(float(i) * 10, 5, -3));
            core->setEulerRotation(osg::Vec3f(float(i) * 7, 45, -20));
            ++i;
        }
        osg::NodePtr spot = ksNodeUtils::findNode(rig, "SpotLight");
        ksLights::setConeAngle(spot, 30.f);
        ksLights::setPenumbraAngle(spot, 5.f);
        osg::NodePtr twin = makeNode(spot->getCore(), "SpotTwin");
        rig->addChild(twin);

        osg::NodePtr target = makeNode(osg::Transform3D::create(), "Target");
        osg::Transform3DPtr::dcast(target->getCore())->setTranslation(osg::Vec3f(300, 40, 10));
        osg::NodePtr up = makeNode(osg::Transform3D::create(), "Up");
        osg::Transform3DPtr::dcast(up->getCore())->setTranslation(osg::Vec3f(0, 0, 500));
        root->addChild(target);
        root->addChild(up);
        for (const char* name : {"Aimed", "Free", "Ortho"}) {
            osg::NodePtr n = ksUberCameraPool::the().createCameraNode(name, rig);
            auto c = ksUberCameraUtils::getCamera(n);
            c->setTranslation(osg::Vec3f(-200, 30, 60));
            c->setEulerRotation(osg::Vec3f(5, 60, 15));
            c->setSensorSize(osg::Vec2f(24.f, 18.f));
            c->setPrincipalPointOffset(osg::Vec2f(1.5f, -0.5f));
            c->setFocalLength(28.f);
            c->setNear(12.f);
            c->setFar(9000.f);
            c->setRoll(3.f);
            c->setFocusDistance(700.f);
            c->setDepthOfField(true);
            c->setFovMode(std::string(name) == "Free" ? 0u : 1u);
            if (std::string(name) == "Ortho") {
                c->setProjectionMode(1);
                c->setFrustumSides(osg::Vec4f(-150.f, 150.f, -150.f, 150.f));
            }
        }
        ksConstraintManager::the().createAimConstraint({target}, {up},
                                                       ksNodeUtils::findNode(rig, "Aimed"), false);
        // The viewer's own camera stays out of the file.
        root->addChild(ksUberCameraPool::the().getDefaultCamera());
        ksConstraintManager::the().update();
        return root;
    }
};

TEST_F(CameraLightExport, WritesIntensityFactorsConeFilmAndZoomAndSkipsTheDefaultCamera) {
    // Millimetres: lengths are written in centimetres.
    const std::string path = file("rig.qdx");
    ASSERT_TRUE(exportTo(makeScene(), path));
    ReadBack b(path);
    ASSERT_TRUE(b.ok);
    EXPECT_EQ(b["Perspective"], nullptr);
    QdxLight* spot = b["SpotLight"]->GetLight();
    EXPECT_DOUBLE_EQ(spot->InnerAngle.Get(), 60.0);
    EXPECT_DOUBLE_EQ(spot->OuterAngle.Get(), 70.0);
    EXPECT_FLOAT_EQ(float(spot->Intensity.Get()), 2.5f * 318309.88f);
    EXPECT_FLOAT_EQ(float(b["PointLight"]->GetLight()->Intensity.Get()), 0.5f * 31.830988f);
    EXPECT_FLOAT_EQ(float(b["DirectionalLight"]->GetLight()->Intensity.Get()), 1.5f * 3183.0989f);
    QdxLight* disk = b["DiskLight"]->GetLight();
    EXPECT_EQ(disk->AreaLightShape.Get(), QdxLight::eRectangle);
    EXPECT_FLOAT_EQ(float(disk->Intensity.Get()), 550.f);
    QdxCamera* ortho = b["Ortho"]->GetCamera();
    EXPECT_NEAR(ortho->OrthoZoom.Get(), 1.0, 1e-6); // 300 mm across
    EXPECT_NEAR(ortho->GetApertureWidth(), 24.0 / 25.4, 1e-6);
    EXPECT_NEAR(ortho->FilmOffsetX.Get(), 1.5 / 25.4, 1e-6);
    EXPECT_NEAR(ortho->GetNearPlane(), 1.2, 1e-5);
}

TEST_F(CameraLightExport, RoundTripsKeepEveryFieldFrameTargetAndSharing) {
    for (int unit : {ksSceneData::Millimeter, ksSceneData::Meter}) {
        for (const char* format : {"binary", "ascii"}) {
            SCOPED_TRACE(std::string(format) + " unit " + std::to_string(unit));
            resetHost();
            setUnit(unit);
            osg::NodePtr before = makeScene();
            const std::string path = file(std::string("trip-") + format + ".qdx");
            ASSERT_TRUE(exportTo(before, path, std::string("qdx_version=1,qdx_format=") + format));
            Imported r = import(path);
            ASSERT_TRUE(r.root);
            ksConstraintManager::the().update();

            auto near = [](osg::Vec3f a, osg::Vec3f b, float scale, const char* what) {
                // Directions compare as unit vectors: an area light's size
                // (its scaling) follows the unit on import.
                if (scale == 1.f) {
                    a.normalize();
                    b.normalize();
                }
                for (int k = 0; k < 3; ++k)
                    EXPECT_NEAR(a[k], b[k], 1e-4f * scale) << what << " " << k;
            };
            const osg::NodePtr rigBefore = ksNodeUtils::findNode(before, "Rig");
            for (const auto& n : rigBefore->getChildren()) {
                const std::string name = ksNodeUtils::getName(n);
                SCOPED_TRACE(name);
                osg::NodePtr m = r.node(name);
                ASSERT_TRUE(m);
                const osg::Matrix wa = n->getWorldMatrix(), wb = m->getWorldMatrix();
                near(wa.multPnt(osg::Pnt3f()), wb.multPnt(osg::Pnt3f()), 1000.f, "position");
                near(wa.multVec(osg::Vec3f(0, 0, -1)), wb.multVec(osg::Vec3f(0, 0, -1)), 1.f,
                     "direction");
                if (ksLights::isLight(n)) {
                    ASSERT_TRUE(ksLights::isLight(m));
                    // A disk light comes back as the rectangle it was written as.
                    const std::string type = ksLights::getTypeName(n);
                    EXPECT_EQ(ksLights::getTypeName(m),
                              type == "DiskLight" ? "RectangularLight" : type);
                    EXPECT_FLOAT_EQ(ksLights::getLightValue(m), ksLights::getLightValue(n));
                    EXPECT_EQ(ksLights::getAttenuation(m), ksLights::getAttenuation(n));
                    EXPECT_EQ(ksLights::getDiffuse(m), ksLights::getDiffuse(n));
                    EXPECT_EQ(ksLights::getShadowIntensity(m), ksLights::getShadowIntensity(n));
                    if (ksLights::isSpotLight(n)) {
                        EXPECT_FLOAT_EQ(ksLights::getConeAngle(m), ksLights::getConeAngle(n));
                        EXPECT_FLOAT_EQ(ksLights::getPenumbraAngle(m),
                                        ksLights::getPenumbraAngle(n));
                    }
                    continue;
                }
                auto a = ksUberCameraUtils::getCamera(n), b = ksUberCameraUtils::getCamera(m);
                ASSERT_TRUE(a && b);
                near(wa.multVec(osg::Vec3f(0, 1, 0)), wb.multVec(osg::Vec3f(0, 1, 0)), 1.f, "up");
                EXPECT_EQ(b->getProjectionMode(), a->getProjectionMode());
                EXPECT_EQ(b->getFovMode(), a->getFovMode());
                EXPECT_FLOAT_EQ(b->getSensorSize()[0], a->getSensorSize()[0]);
                EXPECT_FLOAT_EQ(b->getSensorSize()[1], a->getSensorSize()[1]);
                EXPECT_FLOAT_EQ(b->getPrincipalPointOffset()[0], a->getPrincipalPointOffset()[0]);
                EXPECT_FLOAT_EQ(b->getPrincipalPointOffset()[1], a->getPrincipalPointOffset()[1]);
                EXPECT_FLOAT_EQ(b->getFocalLength(), a->getFocalLength());
                EXPECT_FLOAT_EQ(b->getNear(), a->getNear());
                EXPECT_FLOAT_EQ(b->getFar(), a->getFar());
                EXPECT_FLOAT_EQ(b->getRoll(), a->getRoll());
                EXPECT_EQ(b->getDepthOfField(), a->getDepthOfField());
                EXPECT_EQ(b->getMotionBlur(), a->getMotionBlur());
                for (int k = 0; k < 4 && a->getProjectionMode() == 1; ++k) {
                    EXPECT_FLOAT_EQ(b->getFrustumSides()[k], a->getFrustumSides()[k]);
                }
            }
            // The twin still shares the spot's core; the aimed camera still aims.
            EXPECT_EQ(r.node("SpotTwin")->getCore(), r.node("SpotLight")->getCore());
            auto aim = ksConstraintManager::the().findAimConstraintForTarget(r.node("Aimed"));
            ASSERT_TRUE(aim);
            ASSERT_EQ(aim->getTargets().size(), 1u);
            EXPECT_EQ(aim->getTargets()[0]->getReferenceNode(), r.node("Target"));
            ASSERT_EQ(aim->getUpTargets().size(), 1u);
            EXPECT_EQ(aim->getUpTargets()[0]->getReferenceNode(), r.node("Up"));
        }
    }
}

} // namespace
