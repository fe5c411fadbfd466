// Animation: keyable channels, the attachment's curve tree, curve values,
// the evaluator and time-shape caches.
#include <gtest/gtest.h>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/TimeShapeCache.h>

using namespace osg;

namespace {

NodePtr nodeWith(const NodeCorePtr& core) {
    NodePtr n = Node::create();
    n->setCore(core);
    return n;
}

std::vector<std::string> channelIds(const NodePtr& node) {
    std::vector<ksAnimManager::ksOSGChannelData> list;
    ksAnimManager::the().getKeyableChannels(node, list);
    std::vector<std::string> out;
    for (const auto& c : list) {
        if (c.components.empty()) out.push_back(c.name);
        for (const auto& comp : c.components)
            out.push_back(c.name + comp);
    }
    return out;
}

bool has(const std::vector<std::string>& v, const std::string& s) {
    return std::find(v.begin(), v.end(), s) != v.end();
}

AnimAttachmentPtr prepared(const NodePtr& node) {
    auto& m = ksAnimManager::the();
    AnimAttachmentPtr a = m.createAnimAttachment(node);
    std::vector<ksAnimManager::ksOSGChannelData> list;
    m.getKeyableChannels(node, list);
    for (const auto& c : list)
        m.createChannelCurveNode(c, a);
    return a;
}

} // namespace

TEST(KeyableChannels, DependOnTheCoreType) {
    auto transform = channelIds(nodeWith(Transform3D::create()));
    EXPECT_EQ(transform,
              (std::vector<std::string>{"translationX", "translationY", "translationZ",
                                        "eulerRotationX", "eulerRotationY", "eulerRotationZ",
                                        "scaleX", "scaleY", "scaleZ", "visible"}));
    EXPECT_EQ(channelIds(nodeWith(Group::create())), (std::vector<std::string>{"visible"}));
    EXPECT_TRUE(channelIds(Node::create()).empty());
    EXPECT_TRUE(has(channelIds(nodeWith(Geometry::create())), "translationX"));

    auto camera = channelIds(ksUberCameraPool::the().createCameraNode("cam", NullFC));
    for (const char* c :
         {"focalLength", "fov", "near", "far", "sensorSizeX", "sensorSizeY", "roll",
          "principalPointOffsetX", "principalPointOffsetY", "focusDistance", "translationX"})
        EXPECT_TRUE(has(camera, c)) << c;

    auto spot = channelIds(ksLights::createLight("SpotLight", "spot"));
    for (const char* c : {"diffuseR", "glossyB", "intensity", "coneAngle", "penumbraAngle"})
        EXPECT_TRUE(has(spot, c)) << c;
    auto point = channelIds(ksLights::createLight("PointLight", "point"));
    EXPECT_TRUE(has(point, "intensity"));
    EXPECT_FALSE(has(point, "coneAngle"));
    EXPECT_FALSE(has(point, "diffuseA"));
}

TEST(ChannelCurves, AreUngroupedUntilABlockTakesThem) {
    auto& m = ksAnimManager::the();
    NodePtr node = nodeWith(Transform3D::create());
    AnimAttachmentPtr a = prepared(node);
    EXPECT_EQ(m.getAnimAttachment(node), a);
    EXPECT_EQ(a->getRoot()->getNChildren(), 10u);

    AnimCurvePtr tx = m.findChannelCurve("translation", "X", a);
    ASSERT_TRUE(tx);
    EXPECT_EQ(tx->getParent(), a->getRoot());
    EXPECT_EQ(m.findChannelCurve("translation", "X", a), tx);
    EXPECT_TRUE(m.findChannelCurve("focalLength", "", a) == NullFC);
    EXPECT_TRUE(m.findChannelCurve("translation", "W", a) == NullFC);
    EXPECT_TRUE(m.findChannelCurve("visible", "", a));

    AnimNodePtr block = m.createBlock(a, "Cube_L2");
    ASSERT_TRUE(block);
    EXPECT_EQ(block->getName(), "Cube_L2");
    EXPECT_EQ(block->getNChildren(), 10u);
    EXPECT_EQ(tx->getParent(), block);
    EXPECT_EQ(a->getRoot()->getNChildren(), 1u);

    // The channel is still keyable: a new ungrouped curve takes its place.
    AnimCurvePtr tx2 = m.findChannelCurve("translation", "X", a);
    ASSERT_TRUE(tx2);
    EXPECT_NE(tx2, tx);
    EXPECT_EQ(tx2->getParent(), a->getRoot());
    AnimNodePtr second = m.createBlock(a, "Cube_L3");
    EXPECT_EQ(second->getNChildren(), 1u);
    EXPECT_EQ(block->getNChildren(), 10u);
}

TEST(AnimCurve, EvaluatesStepLinearAndBezierSegments) {
    auto c = AnimCurve::create();
    c->addPoint(Pnt2f(1, 10), Vec2f(), Vec2f(), 0, 1, true, false);
    c->addPoint(Pnt2f(0, 0), Vec2f(), Vec2f(), 1, 0, true, false); // out of order
    c->addPoint(Pnt2f(2, 20), Vec2f(-0.5f, 0), Vec2f(0.5f, 0), 1, 5, true, false);
    c->addPoint(Pnt2f(3, 40), Vec2f(-0.5f, 0), Vec2f(0.5f, 0), 5, 5, true, false);
    c->addPoint(Pnt2f(3, 99), Vec2f(), Vec2f(), 5, 5, true, false); // duplicate time
    EXPECT_FALSE(c->verify(true, false, false));
    EXPECT_TRUE(c->verify(true, true, true));
    EXPECT_TRUE(c->isSampled());
    ASSERT_EQ(c->size(), 4u);
    EXPECT_EQ(c->evaluate(-1.f), 0.f);
    EXPECT_EQ(c->evaluate(0.5f), 0.f);           // step after the first point
    EXPECT_EQ(c->evaluate(1.5f), 15.f);          // linear
    EXPECT_NEAR(c->evaluate(2.5f), 30.f, 1e-4f); // flat tangents: symmetric midpoint
    EXPECT_LT(c->evaluate(2.25f), 25.f);         // ease in
    EXPECT_EQ(c->evaluate(10.f), 40.f);
}

TEST(AnimCurve, SmoothSegmentsPassThroughTheirPoints) {
    auto c = AnimCurve::create();
    for (float t : {0.f, 1.f, 2.f, 3.f})
        c->addPoint(Pnt2f(t, t * t), Vec2f(), Vec2f(), 2, 2, true, false);
    ASSERT_TRUE(c->verify(true, false, false));
    for (float t : {0.f, 1.f, 2.f, 3.f})
        EXPECT_FLOAT_EQ(c->evaluate(t), t * t);
    float mid = c->evaluate(1.5f);
    EXPECT_GT(mid, 1.f);
    EXPECT_LT(mid, 4.f);
    EXPECT_NEAR(mid, 2.25f, 0.2f);
    EXPECT_EQ(AnimCurve::create()->evaluate(1.f), 0.f);
}

TEST(AnimEvaluator, WritesCurveValuesIntoTheScene) {
    auto root = nodeWith(Group::create());
    auto t3d = Transform3D::create();
    auto node = nodeWith(t3d);
    root->addChild(node);
    auto& m = ksAnimManager::the();
    AnimAttachmentPtr a = prepared(node);
    AnimCurvePtr ty = m.findChannelCurve("translation", "Y", a);
    ty->addPoint(Pnt2f(0, 0), Vec2f(), Vec2f(), 1, 1, true, false);
    ty->addPoint(Pnt2f(1, 8), Vec2f(), Vec2f(), 1, 1, true, false);
    m.createBlock(a, "take"); // curves in blocks are applied too (added to the rest value 0)
    AnimCurvePtr vis = m.findChannelCurve("visible", "", a);
    vis->addPoint(Pnt2f(0, 1), Vec2f(), Vec2f(), 0, 0, true, false);
    vis->addPoint(Pnt2f(1, 0), Vec2f(), Vec2f(), 0, 0, true, false);

    auto& e = ksAnimEvaluator::the();
    e.updateSceneAnimParentMap(root);
    EXPECT_EQ(e.getAnimatedNodes(), std::vector<NodePtr>{node});
    EXPECT_EQ(e.getAnimParent(node), root);
    EXPECT_EQ(e.evaluate(0.25f), 2u);
    EXPECT_FLOAT_EQ(t3d->getTranslation()[1], 2.f);
    EXPECT_EQ(node->getTraversalMask(), 0xFFFFFFFFu);
    e.evaluate(1.f);
    EXPECT_EQ(node->getTraversalMask(), 0u);
}

namespace {
// A key held from time 0 (one point is a constant curve).
void constant(const AnimCurvePtr& c, float v) {
    c->clear();
    c->addPoint(Pnt2f(0, v), Vec2f(), Vec2f(), 1, 1, true, false);
}
AnimCurvePtr curveIn(const AnimNodePtr& parent, const char* channel, const char* component) {
    AnimCurvePtr c = AnimCurve::create();
    c->setChannel(channel, component);
    parent->addChild(c);
    return c;
}
void ramp(const AnimCurvePtr& c, float v0, float v1) {
    c->clear();
    c->addPoint(Pnt2f(0, v0), Vec2f(), Vec2f(), 1, 1, true, false);
    c->addPoint(Pnt2f(1, v1), Vec2f(), Vec2f(), 1, 1, true, false);
}
} // namespace

TEST(AnimEvaluator, BlocksCombineAsLayersOverTheRestValues) {
    auto& e = ksAnimEvaluator::the();
    auto root = nodeWith(Group::create());
    auto t3d = Transform3D::create();
    t3d->setTranslation(Vec3f(1, 2, 3));
    t3d->setScale(Vec3f(1, 2, 1));
    auto node = nodeWith(t3d);
    root->addChild(node);
    AnimAttachmentPtr a = ksAnimManager::the().createAnimAttachment(node);
    AnimNodePtr add = ksAnimManager::the().createBlock(a, "add");
    EXPECT_EQ(add->getBlendMode(), AnimNode::BlendMode::Additive);
    EXPECT_EQ(add->getWeight(), 100.0);
    add->setWeight(50);
    AnimNodePtr over = ksAnimManager::the().createBlock(a, "over");
    over->setBlendMode(AnimNode::BlendMode::Override);
    over->setWeight(25);

    // Base (ungrouped, after the blocks in child order on purpose): X ramps
    // 0 -> 10, scale Y is 2; Y and Z keep their rest values.
    ramp(curveIn(a->getRoot(), "translation", "X"), 0, 10);
    constant(curveIn(a->getRoot(), "scale", "Y"), 2);
    // Additive at 50%: X += 0.5 * 4, Y += 0.5 * 6, scale Y *= 3 ^ 0.5.
    constant(curveIn(add, "translation", "X"), 4);
    constant(curveIn(add, "translation", "Y"), 6);
    constant(curveIn(add, "scale", "Y"), 3);
    // Override at 25% on X; its curve on Z has no points and counts as absent.
    constant(curveIn(over, "translation", "X"), 100);
    curveIn(over, "translation", "Z");

    e.updateSceneAnimParentMap(root);
    auto expectAt = [&](double t) {
        double x = 10 * t + 0.5 * 4;
        x += (100 - x) * 0.25;
        double y = 2 + 0.5 * 6, sy = 2 * std::sqrt(3.0);
        double v = 0;
        ASSERT_TRUE(e.evaluateChannel(node, "translation", "X", t, v));
        EXPECT_NEAR(v, x, 1e-9);
        ASSERT_TRUE(e.evaluateChannel(node, "scale", "Y", t, v));
        EXPECT_NEAR(v, sy, 1e-9);
        e.evaluate(t);
        EXPECT_NEAR(t3d->getTranslation()[0], x, 1e-5);
        EXPECT_NEAR(t3d->getTranslation()[1], y, 1e-5);
        EXPECT_FLOAT_EQ(t3d->getTranslation()[2], 3.f);
        EXPECT_NEAR(t3d->getScale()[1], sy, 1e-5);
        EXPECT_FLOAT_EQ(t3d->getScale()[0], 1.f);
    };
    // Evaluating again, backwards in time, or after a new update starts from
    // the same rest values.
    expectAt(0.5);
    expectAt(0.5);
    expectAt(0.0);
    e.updateSceneAnimParentMap(root);
    expectAt(1.0);
    double rest = 0;
    ASSERT_TRUE(e.getRestValue(node, "translation", "Y", rest));
    EXPECT_EQ(rest, 2.0);
    EXPECT_FALSE(e.evaluateChannel(node, "focalLength", "", 0, rest));

    // Override passes through by its weight: at 100% it replaces the value.
    over->setBlendMode(AnimNode::BlendMode::OverridePassthrough);
    over->setWeight(100);
    over->setWeight(std::nan("")); // ignored
    double v = 0;
    ASSERT_TRUE(e.evaluateChannel(node, "translation", "X", 0.3, v));
    EXPECT_DOUBLE_EQ(v, 100.0);

    // Copies keep the blend settings of their blocks.
    auto copy = FCPtr<AnimAttachment>::dcast(a->clone());
    const auto& blocks = copy->getRoot()->getChildren();
    ASSERT_EQ(blocks.size(), a->getRoot()->getChildren().size());
    EXPECT_EQ(blocks[1]->getName(), "over");
    EXPECT_EQ(blocks[1]->getBlendMode(), AnimNode::BlendMode::OverridePassthrough);
    EXPECT_EQ(blocks[1]->getWeight(), 100.0);
}

TEST(TimeShapeCache, ReturnsTheSampleAtOrBeforeATime) {
    auto cache = TimeShapeCache::create();
    for (float t : {0.5f, 0.f, 1.f}) {
        auto s = TimeShapeData::create();
        s->setTime(t);
        s->editPositions().push_back(Pnt3f(t, 0, 0));
        cache->addShape(s);
    }
    ASSERT_EQ(cache->getShapes().size(), 3u);
    EXPECT_EQ(cache->getShapes()[1]->getTime(), 0.5f);
    EXPECT_EQ(cache->getShapeAt(0.7f)->getTime(), 0.5f);
    EXPECT_EQ(cache->getShapeAt(5.f)->getTime(), 1.f);
    EXPECT_EQ(cache->getShapeAt(-1.f)->getTime(), 0.f);
}
