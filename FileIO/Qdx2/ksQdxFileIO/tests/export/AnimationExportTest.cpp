// Animation on export: host curves built with the animation manager are
// written, read back with the SDK and evaluated there, frame by frame,
// against the host's own evaluation of the same curves.
#include <cmath>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksAnimManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/ksUberCameraUtils.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

constexpr double kFps = 24.0;

// The curve of a channel component of node, every keyable channel of the
// node having its curves.
osg::AnimCurvePtr hostCurve(const osg::NodePtr& node, const std::string& channel,
                            const std::string& component) {
    ksAnimManager& anim = ksAnimManager::the();
    osg::AnimAttachmentPtr attachment = anim.getAnimAttachment(node);
    if (!attachment) {
        attachment = anim.createAnimAttachment(node);
        std::vector<ksAnimManager::ksOSGChannelData> channels;
        anim.getKeyableChannels(node, channels);
        for (const auto& c : channels)
            anim.createChannelCurveNode(c, attachment);
    }
    return anim.findChannelCurve(channel, component, attachment);
}

void addKey(const osg::AnimCurvePtr& c, double frame, float value, osg::UInt32 type,
            osg::Vec2f in = {}, osg::Vec2f out = {}) {
    c->addPoint(osg::Pnt2f(float(frame / kFps), value), in, out, type, type, true, false);
}

// The file's value of a property channel at a frame, every layer combined.
double fileValue(const QdxProperty& property, int channel, double frame) {
    QdxTime t;
    t.SetSecondDouble(frame / kFps);
    double v[4] = {0, 0, 0, 0};
    EXPECT_TRUE(property.EvaluateDoubles(t, v, 4));
    return v[channel];
}

void expectRelNear(double actual, double expected, const std::string& what) {
    EXPECT_NEAR(actual, expected, 1e-4 * std::max(1.0, std::fabs(expected))) << what;
}

class AnimationExport : public PluginTest {};

TEST_F(AnimationExport, TransformCurvesKeepTheirValuesOnEveryFrame) {
    // Centimetres keep lengths as they are; the meter case checks the unit.
    for (int unit : {ksSceneData::Centimeter, ksSceneData::Meter}) {
        SCOPED_TRACE(unit);
        resetHost();
        setUnit(unit);
        const double s = unit == ksSceneData::Meter ? 100.0 : 1.0;
        osg::NodePtr cube = makeNode(osg::Transform3D::create(), "Cube");
        osg::NodePtr root = makeGroup("Top", {cube});

        // Cubic keys with long, uneven handles: the weights are not 1/3.
        osg::AnimCurvePtr tx = hostCurve(cube, "translation", "X");
        addKey(tx, 0, 0.f, osg::AnimCurve::Bezier, {-1.f, 0.f}, {0.3f, 4.f});
        addKey(tx, 12, 2.f, osg::AnimCurve::Bezier, {-0.05f, -1.f}, {0.2f, 0.5f});
        addKey(tx, 30, -1.f, osg::AnimCurve::Bezier, {-1.f, 3.f}, {0.1f, 0.f});
        // Two full turns: the angles stay as they are, never wrapped.
        osg::AnimCurvePtr ry = hostCurve(cube, "eulerRotation", "Y");
        addKey(ry, 0, 0.f, osg::AnimCurve::Linear);
        addKey(ry, 24, 720.f, osg::AnimCurve::Linear);
        // A step that holds, and smooth points.
        osg::AnimCurvePtr sz = hostCurve(cube, "scale", "Z");
        addKey(sz, 0, 1.f, osg::AnimCurve::Step);
        addKey(sz, 10, 3.f, osg::AnimCurve::Step);
        osg::AnimCurvePtr sx = hostCurve(cube, "scale", "X");
        addKey(sx, 0, 1.f, osg::AnimCurve::Smooth);
        addKey(sx, 8, 2.f, osg::AnimCurve::Smooth);
        addKey(sx, 20, 0.5f, osg::AnimCurve::Smooth);
        osg::AnimCurvePtr vis = hostCurve(cube, "visible", "");
        addKey(vis, 0, 1.f, osg::AnimCurve::Step);
        addKey(vis, 15, 0.f, osg::AnimCurve::Step);

        const std::string path = file("transform.qdx");
        ASSERT_TRUE(exportTo(root, path));
        ReadBack b(path);
        ASSERT_TRUE(b.ok);
        QdxAnimStack* stack = b.scene->GetCurrentAnimationStack();
        ASSERT_NE(stack, nullptr);
        EXPECT_STREQ(stack->GetName(), "AnimStack0");
        ASSERT_EQ(stack->GetLayerCount(), 1);
        EXPECT_STREQ(stack->GetLayer(0)->GetName(), "Layer0");
        EXPECT_EQ(stack->LocalStart.Get().Get(), 0);
        EXPECT_EQ(stack->LocalStop.Get().Get(), QdxTime::kTicksPerSecond * 30 / 24);

        QdxNode* n = b["Cube"];
        ASSERT_NE(n, nullptr);
        for (int f = -2; f <= 32; ++f) {
            const float t = float(f / kFps);
            SCOPED_TRACE(f);
            expectRelNear(fileValue(n->LclTranslation, 0, f), tx->evaluateDouble(t) * s, "tx");
            expectRelNear(fileValue(n->LclRotation, 1, f), ry->evaluateDouble(t), "ry");
            expectRelNear(fileValue(n->LclScaling, 2, f), sz->evaluateDouble(t), "sz");
            expectRelNear(fileValue(n->LclScaling, 0, f), sx->evaluateDouble(t), "sx");
            expectRelNear(fileValue(n->Visibility, 0, f), vis->evaluateDouble(t), "visible");
            // Channels without curves keep the node's own value.
            expectRelNear(fileValue(n->LclTranslation, 1, f), 0.0, "ty");
            expectRelNear(fileValue(n->LclScaling, 1, f), 1.0, "sy");
        }
    }
}

TEST_F(AnimationExport, TheRotationOrientationIsTakenOffTheAngles) {
    osg::NodePtr cube = makeNode(osg::Transform3D::create(), "Cube");
    osg::Transform3DPtr::dcast(cube->getCore())->setEulerRotationOrientation({0, 0, 30});
    osg::AnimCurvePtr rz = hostCurve(cube, "eulerRotation", "Z");
    addKey(rz, 0, 30.f, osg::AnimCurve::Linear);
    addKey(rz, 10, 130.f, osg::AnimCurve::Linear);
    const std::string path = file("orientation.qdx");
    ASSERT_TRUE(exportTo(makeGroup("Top", {cube}), path));
    ReadBack b(path);
    ASSERT_TRUE(b.ok);
    expectRelNear(fileValue(b["Cube"]->LclRotation, 2, 0), 0.0, "first");
    expectRelNear(fileValue(b["Cube"]->LclRotation, 2, 5), 50.0, "middle");
}

TEST_F(AnimationExport, CameraAndLightChannelsAreWrittenInTheFileUnits) {
    osg::NodePtr rig = makeGroup("Rig", {});
    osg::NodePtr cam = ksUberCameraPool::the().createCameraNode("Cam", rig);
    osg::NodePtr spot = ksLights::createLight("SpotLight", "Spot", rig);
    ksLights::setAttenuation(spot, 1);
    ksLights::setConeAngle(spot, 20.f);
    osg::NodePtr point = ksLights::createLight("PointLight", "Lamp", rig);
    ksLights::setAttenuation(point, 0);
    osg::NodePtr area = ksLights::createLight("RectangularLight", "Panel", rig);

    auto ramp = [](const osg::AnimCurvePtr& c, float a, float b) {
        addKey(c, 0, a, osg::AnimCurve::Linear);
        addKey(c, 10, b, osg::AnimCurve::Linear);
    };
    ramp(hostCurve(cam, "focalLength", ""), 35.f, 70.f);
    ramp(hostCurve(cam, "sensorSize", "X"), 25.4f, 50.8f);
    ramp(hostCurve(cam, "principalPointOffset", "Y"), 25.4f, 0.f);
    ramp(hostCurve(spot, "intensity", ""), 1.f, 2.f);
    ramp(hostCurve(spot, "coneAngle", ""), 10.f, 30.f);
    ramp(hostCurve(spot, "penumbraAngle", ""), 5.f, 0.f);
    ramp(hostCurve(spot, "diffuse", "G"), 0.25f, 0.75f);
    ramp(hostCurve(point, "intensity", ""), 1.f, 2.f);
    ramp(hostCurve(area, "intensity", ""), 1.f, 2.f);
    // The penumbra alone, over a cone that stands still.
    osg::NodePtr still = ksLights::createLight("SpotLight", "Still", rig);
    ksLights::setConeAngle(still, 20.f);
    ramp(hostCurve(still, "penumbraAngle", ""), 5.f, 15.f);

    const std::string path = file("camlight.qdx");
    ASSERT_TRUE(exportTo(makeGroup("Top", {rig}), path));
    ReadBack b(path);
    ASSERT_TRUE(b.ok);
    QdxCamera* c = b["Cam"]->GetCamera();
    QdxLight* s = b["Spot"]->GetLight();
    ASSERT_TRUE(c && s);
    for (int f : {0, 5, 10}) {
        SCOPED_TRACE(f);
        const double u = f / 10.0;
        expectRelNear(fileValue(c->FocalLength, 0, f), 35.0 + 35.0 * u, "focal length");
        expectRelNear(fileValue(c->FilmWidth, 0, f), 1.0 + u, "film width");
        expectRelNear(fileValue(c->FilmOffsetY, 0, f), -(1.0 - u), "film offset y");
        expectRelNear(fileValue(s->Intensity, 0, f), (1.0 + u) / 0.000314159265358, "spot");
        const double cone = 10.0 + 20.0 * u, penumbra = 5.0 - 5.0 * u;
        expectRelNear(fileValue(s->InnerAngle, 0, f), 2.0 * cone, "inner");
        expectRelNear(fileValue(s->OuterAngle, 0, f), 2.0 * (cone + penumbra), "outer");
        expectRelNear(fileValue(s->Color, 1, f), 0.25 + 0.5 * u, "green");
        expectRelNear(fileValue(b["Lamp"]->GetLight()->Intensity, 0, f),
                      (1.0 + u) / 0.0314159265358, "point");
        expectRelNear(fileValue(b["Panel"]->GetLight()->Intensity, 0, f), (1.0 + u) / 0.01, "area");
        expectRelNear(fileValue(b["Still"]->GetLight()->OuterAngle, 0, f),
                      2.0 * (20.0 + 5.0 + 10.0 * u), "outer over a still cone");
    }
}

// Also after playback: the static values written are the rest values, not
// the last evaluated ones, and a block without curves makes no layer.
TEST_F(AnimationExport, BlocksBecomeLayersThatAddOnlyWhatTheyAnimate) {
    ksAnimManager& anim = ksAnimManager::the();
    osg::NodePtr cube = makeNode(osg::Transform3D::create(), "Cube");
    osg::Transform3DPtr::dcast(cube->getCore())->setTranslation({7, 8, 9});
    osg::NodePtr ball = makeNode(osg::Transform3D::create(), "Ball");
    // The layer's curves: the X translation of both nodes, grouped.
    for (const osg::NodePtr& n : {cube, ball}) {
        osg::AnimCurvePtr x = hostCurve(n, "translation", "X");
        addKey(x, 0, 0.f, osg::AnimCurve::Linear);
        addKey(x, 10, 5.f, osg::AnimCurve::Linear);
        anim.createBlock(anim.getAnimAttachment(n), ksNodeUtils::getName(n) + "_Wobble");
    }
    // An override block at half weight on the cube's rotation.
    osg::AnimCurvePtr rx = hostCurve(cube, "eulerRotation", "X");
    addKey(rx, 0, 40.f, osg::AnimCurve::Linear);
    addKey(rx, 10, 80.f, osg::AnimCurve::Linear);
    osg::AnimNodePtr over = anim.createBlock(anim.getAnimAttachment(cube), "Cube_Over");
    over->setBlendMode(osg::AnimNode::BlendMode::Override);
    over->setWeight(50.0);
    anim.createBlock(anim.getAnimAttachment(cube), "Cube_Empty");
    // The base layer's curve of the cube, ungrouped.
    osg::AnimCurvePtr base = hostCurve(cube, "translation", "X");
    addKey(base, 0, 100.f, osg::AnimCurve::Linear);
    addKey(base, 10, 200.f, osg::AnimCurve::Linear);

    setUnit(ksSceneData::Centimeter);
    const std::string path = file("layers.qdx");
    const osg::NodePtr top = makeGroup("Top", {cube, ball});
    ksAnimEvaluator::the().updateSceneAnimParentMap(top);
    ksAnimEvaluator::the().evaluate(7 / kFps);
    ASSERT_TRUE(exportTo(top, path));
    ReadBack b(path);
    ASSERT_TRUE(b.ok);
    QdxAnimStack* stack = b.scene->GetCurrentAnimationStack();
    ASSERT_NE(stack, nullptr);
    ASSERT_EQ(stack->GetLayerCount(), 3);
    EXPECT_STREQ(stack->GetLayer(0)->GetName(), "Layer0");
    EXPECT_STREQ(stack->GetLayer(1)->GetName(), "Wobble");
    EXPECT_EQ(stack->GetLayer(1)->BlendMode.Get(), QdxAnimLayer::eBlendAdditive);
    EXPECT_STREQ(stack->GetLayer(2)->GetName(), "Over");
    EXPECT_EQ(stack->GetLayer(2)->BlendMode.Get(), QdxAnimLayer::eBlendOverride);
    EXPECT_DOUBLE_EQ(stack->GetLayer(2)->Weight.Get(), 50.0);
    // Both nodes' blocks share the one layer; only the cube is in the base.
    EXPECT_EQ(b["Cube"]->LclTranslation.Get(), QdxDouble3(7, 8, 9));
    EXPECT_EQ(b["Cube"]->LclRotation.Get()[0], 0.0);
    EXPECT_NE(b["Cube"]->LclTranslation.GetCurveNode(stack->GetLayer(0)), nullptr);
    EXPECT_EQ(b["Ball"]->LclTranslation.GetCurveNode(stack->GetLayer(0)), nullptr);
    for (int f : {0, 5, 10}) {
        SCOPED_TRACE(f);
        expectRelNear(fileValue(b["Cube"]->LclTranslation, 0, f), 100.0 + 10.0 * f + 0.5 * f,
                      "cube x");
        // The layer animates X only: Y and Z are not added twice.
        expectRelNear(fileValue(b["Cube"]->LclTranslation, 1, f), 8.0, "cube y");
        expectRelNear(fileValue(b["Cube"]->LclTranslation, 2, f), 9.0, "cube z");
        expectRelNear(fileValue(b["Ball"]->LclTranslation, 0, f), 0.5 * f, "ball x");
        expectRelNear(fileValue(b["Cube"]->LclRotation, 0, f), 0.5 * (40.0 + 4.0 * f), "cube rx");
    }
}

} // namespace
