// Animation on import: which host curves the file's curves become, their
// points, tangents and codes, the layers as blocks, and the camera and light
// channels with their unit changes.
#include <cmath>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksAnimManager.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/Animation.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

using Def = QdxAnimCurveDef;

QdxTime seconds(double s) {
    QdxTime t;
    t.SetSecondDouble(s);
    return t;
}

// Sets a key with hand-set tangents, so the key reducer keeps it.
int key(QdxAnimCurve* curve, double at, double value, Def::EInterpolationType type,
        double right = 0.0, double left = 0.0, double rightWeight = Def::sDefaultWeight,
        double leftWeight = Def::sDefaultWeight) {
    const QdxTime t = seconds(at);
    const int index = curve->KeyAdd(t);
    curve->KeySet(index, t, value, type, Def::eTangentUser, right, left, rightWeight, leftWeight);
    return index;
}

// An animated node below a group (the axis conversion moves only the
// root's children), with its attribute.
QdxNode* addNode(QdxScene* s, const char* name, QdxNodeAttribute* attribute = nullptr) {
    QdxNode* group = QdxNode::Create(s, (std::string(name) + "Group").c_str());
    s->GetRootNode()->AddChild(group);
    QdxNode* n = QdxNode::Create(s, name);
    group->AddChild(n);
    if (attribute) n->SetNodeAttribute(attribute);
    return n;
}

std::vector<QdxAnimLayer*> addStack(QdxScene* s, const char* stackName,
                                    const std::vector<const char*>& names) {
    QdxAnimStack* stack = QdxAnimStack::Create(s, stackName);
    std::vector<QdxAnimLayer*> layers;
    for (const char* name : names) {
        layers.push_back(QdxAnimLayer::Create(s, name));
        stack->AddMember(layers.back());
    }
    return layers;
}

// The curve of a channel component with points: ungrouped, or in the
// block of that name.
osg::AnimCurvePtr curveOf(const osg::NodePtr& node, const std::string& channel,
                          const std::string& component, const std::string& block = "") {
    if (!node) return {};
    auto attachment = node->findAttachment<osg::AnimAttachment>();
    if (!attachment) return {};
    osg::AnimNodePtr parent = attachment->getRoot();
    if (!block.empty()) {
        osg::AnimNodePtr found;
        for (const auto& child : parent->getChildren())
            if (!osg::AnimCurvePtr::dcast(child) && child->getName() == block) found = child;
        if (!found) return {};
        parent = found;
    }
    for (const auto& child : parent->getChildren()) {
        auto curve = osg::AnimCurvePtr::dcast(child);
        if (curve && curve->getChannel() == channel && curve->getComponent() == component &&
            curve->size() > 0)
            return curve;
    }
    return {};
}

std::vector<std::string> blockNames(const osg::NodePtr& node) {
    std::vector<std::string> names;
    auto attachment = node ? node->findAttachment<osg::AnimAttachment>() : osg::AnimAttachmentPtr();
    if (!attachment) return names;
    for (const auto& child : attachment->getRoot()->getChildren())
        if (!osg::AnimCurvePtr::dcast(child)) names.push_back(child->getName());
    return names;
}

class AnimationTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ksSceneDataManager::getSceneData(0)->setUpAxis(0);
        setUnit(ksSceneData::Centimeter);
    }
};

TEST_F(AnimationTest, KeysBecomePointsWithScaledTangentsAndTheirCodes) {
    setUnit(ksSceneData::Millimeter);
    Imported r = import(writeScene("keys.qdx", [](QdxScene* s) {
        QdxAnimLayer* layer = addStack(s, "Take", {"BaseLayer"})[0];
        QdxNode* n = addNode(s, "Box");
        QdxAnimCurve* x = n->LclTranslation.GetCurve(layer, "X", true);
        key(x, 0.0, 10.0, Def::eInterpolationCubic, 2.0, 0.0, 0.0, 0.5); // right weight unusable
        key(x, 1.0, 20.0, Def::eInterpolationCubic, 3.0, -1.0, 0.25, 0.5);
        key(x, 3.0, 5.0, Def::eInterpolationCubic, 0.0, 4.0, 0.4, 0.0005); // left unusable
        QdxAnimCurve* y = n->LclTranslation.GetCurve(layer, "Y", true);
        key(y, 0.0, 1.0, Def::eInterpolationLinear);
        key(y, 2.0, 3.0, Def::eInterpolationConstant);
        y->KeySetConstantMode(1, Def::eConstantNext);
        key(y, 4.0, 7.0, Def::eInterpolationConstant);
    }));
    ASSERT_TRUE(r.root);
    const osg::NodePtr box = r.node("Box");
    // One layer: its curves sit directly under the attachment, no block.
    EXPECT_TRUE(blockNames(box).empty());
    osg::AnimCurvePtr x = curveOf(box, "translation", "X");
    ASSERT_TRUE(x);
    ASSERT_EQ(x->size(), 3u);
    const auto& p = x->getControlPoints();
    // Values and tangents in millimetres; each side's time offset is the
    // weight times the neighbouring interval.
    EXPECT_FLOAT_EQ(p[0].point[1], 100.f);
    EXPECT_FLOAT_EQ(p[0].outTangent[0], 0.5f);
    EXPECT_FLOAT_EQ(p[0].outTangent[1], 2.f * 0.5f * 10.f);
    EXPECT_FLOAT_EQ(p[0].inTangent[0], -0.5f);
    EXPECT_FLOAT_EQ(p[1].point[0], 1.f);
    EXPECT_FLOAT_EQ(p[1].inTangent[0], -0.5f);
    EXPECT_FLOAT_EQ(p[1].inTangent[1], 0.5f * 10.f);
    EXPECT_FLOAT_EQ(p[1].outTangent[0], 0.5f);
    EXPECT_FLOAT_EQ(p[1].outTangent[1], 3.f * 0.5f * 10.f);
    EXPECT_FLOAT_EQ(p[2].point[1], 50.f);
    EXPECT_FLOAT_EQ(p[2].inTangent[0], -0.8f);
    EXPECT_FLOAT_EQ(p[2].inTangent[1], -4.f * 0.8f * 10.f);
    EXPECT_FLOAT_EQ(p[2].outTangent[1], 4.f * 0.8f * 10.f);
    for (const osg::CCPnt& point : p) {
        EXPECT_EQ(point.inType, osg::AnimCurve::Bezier);
        EXPECT_EQ(point.outType, osg::AnimCurve::Bezier);
    }

    osg::AnimCurvePtr y = curveOf(box, "translation", "Y");
    ASSERT_TRUE(y);
    ASSERT_EQ(y->size(), 3u);
    EXPECT_EQ(y->getControlPoints()[0].outType, osg::AnimCurve::Linear);
    // A constant-next key holds its own value.
    EXPECT_EQ(y->getControlPoints()[1].outType, osg::AnimCurve::Step);
    EXPECT_FLOAT_EQ(y->getControlPoints()[1].point[1], 30.f);
    EXPECT_FLOAT_EQ(y->evaluate(3.f), 30.f);
}

TEST_F(AnimationTest, EveryLayerOfEveryTakeKeepsABlockButTheFirstLayer) {
    Imported r = import(writeScene("layers.qdx", [](QdxScene* s) {
        std::vector<QdxAnimLayer*> layers = addStack(s, "Take1", {"BaseLayer", "L2"});
        layers[1]->BlendMode.Set(QdxAnimLayer::eBlendOverride);
        layers[1]->Weight.Set(40.0);
        layers.push_back(addStack(s, "Take2", {"Other"})[0]);
        QdxNode* n = addNode(s, "Cube");
        for (size_t i = 0; i < layers.size(); ++i) {
            QdxAnimCurve* c = n->LclTranslation.GetCurve(layers[i], "X", true);
            const double v = static_cast<double>(i) + 1.0;
            key(c, 0.0, v, Def::eInterpolationLinear);
            key(c, 1.0, 10.0 * v, Def::eInterpolationLinear);
        }
    }));
    ASSERT_TRUE(r.root);
    const osg::NodePtr cube = r.node("Cube");
    EXPECT_EQ(blockNames(cube), (std::vector<std::string>{"Cube_L2", "Cube_Other"}));
    osg::AnimCurvePtr base = curveOf(cube, "translation", "X");
    osg::AnimCurvePtr second = curveOf(cube, "translation", "X", "Cube_L2");
    osg::AnimCurvePtr take2 = curveOf(cube, "translation", "X", "Cube_Other");
    ASSERT_TRUE(base && second && take2);
    EXPECT_FLOAT_EQ(base->getControlPoints()[1].point[1], 10.f);
    EXPECT_FLOAT_EQ(second->getControlPoints()[1].point[1], 20.f);
    EXPECT_FLOAT_EQ(take2->getControlPoints()[1].point[1], 30.f);
    // A block blends as its layer does.
    const osg::AnimNodePtr l2 = second->getParent();
    EXPECT_EQ(l2->getBlendMode(), osg::AnimNode::BlendMode::Override);
    EXPECT_DOUBLE_EQ(l2->getWeight(), 40.0);
}

// A layer's curve node reads its stored value on axes without keys, on top
// of the property's own value (not its animated one): the host's rest value
// plus its blocks must give what the file's layers give. Layers without
// curves on a node give it no block, and a still node no attachment.
TEST_F(AnimationTest, LayersAddTheirStoredValuesAndOnlyLayersWithCurvesMakeBlocks) {
    const std::string path = writeScene("stored.qdx", [](QdxScene* s) {
        std::vector<QdxAnimLayer*> layers = addStack(s, "Take", {"Base", "Add", "Empty"});
        layers[1]->Weight.Set(50.0);
        QdxNode* n = addNode(s, "Cube");
        n->LclTranslation.Set(QdxDouble3(0, 3, 0));
        QdxAnimCurve* base = n->LclTranslation.GetCurve(layers[0], "X", true);
        key(base, 0.0, 1.0, Def::eInterpolationLinear);
        key(base, 1.0, 2.0, Def::eInterpolationLinear);
        QdxAnimCurveNode* added = n->LclTranslation.GetCurveNode(layers[1], true);
        added->SetChannelValue(1, 4.0);
        added->SetChannelValue(2, 0.0);
        QdxAnimCurve* z = added->CreateCurve("Z", 2);
        key(z, 0.0, 0.0, Def::eInterpolationLinear);
        key(z, 1.0, 8.0, Def::eInterpolationLinear);
        addNode(s, "Still");
    });
    Imported r = import(path);
    ASSERT_TRUE(r.root);
    const osg::NodePtr cube = r.node("Cube");
    EXPECT_EQ(blockNames(cube), std::vector<std::string>{"Cube_Add"});
    EXPECT_FALSE(r.node("Still")->findAttachment<osg::AnimAttachment>());
    // The stored X of the additive layer is 0 and adds nothing.
    EXPECT_FALSE(curveOf(cube, "translation", "X", "Cube_Add"));
    const osg::AnimCurvePtr held = curveOf(cube, "translation", "Y", "Cube_Add");
    ASSERT_TRUE(held);
    EXPECT_EQ(held->size(), 1u);

    ReadBack file(path);
    ASSERT_TRUE(file.ok);
    QdxNode* original = file["Cube"];
    ksAnimEvaluator& evaluator = ksAnimEvaluator::the();
    evaluator.updateSceneAnimParentMap(r.root);
    for (double at : {0.0, 0.5, 1.0}) {
        const QdxVector4 expected = original->EvaluateLocalTranslation(seconds(at));
        for (int axis = 0; axis < 3; ++axis) {
            osg::Real64 got = 0.0;
            ASSERT_TRUE(evaluator.evaluateChannel(cube, "translation",
                                                  std::string(1, char('X' + axis)), at, got));
            EXPECT_NEAR(got, expected[axis], 1e-5) << "axis " << axis << " at " << at;
        }
    }
}

TEST_F(AnimationTest, CameraChannelsChangeUnitsAndTheVerticalOffsetSign) {
    Imported r = import(writeScene("camera.qdx", [](QdxScene* s) {
        QdxAnimLayer* layer = addStack(s, "Take", {"BaseLayer"})[0];
        QdxCamera* camera = QdxCamera::Create(s, "cam");
        addNode(s, "Cam", camera);
        for (QdxProperty* p :
             std::initializer_list<QdxProperty*>{&camera->FilmOffsetX, &camera->FilmOffsetY,
                                                 &camera->FilmWidth, &camera->FocalLength}) {
            QdxAnimCurve* c = p->GetCurve(layer, nullptr, true);
            key(c, 0.0, 1.0, Def::eInterpolationLinear);
            key(c, 1.0, 2.0, Def::eInterpolationLinear);
        }
    }));
    ASSERT_TRUE(r.root);
    const osg::NodePtr cam = r.node("Cam");
    const struct {
        const char* channel;
        const char* component;
        float perUnit;
    } expected[] = {{"principalPointOffset", "X", 25.4f},
                    {"principalPointOffset", "Y", -25.4f},
                    {"sensorSize", "X", 25.4f},
                    {"focalLength", "", 1.f}};
    for (const auto& e : expected) {
        osg::AnimCurvePtr c = curveOf(cam, e.channel, e.component);
        ASSERT_TRUE(c) << e.channel << e.component;
        ASSERT_EQ(c->size(), 2u);
        EXPECT_FLOAT_EQ(c->getControlPoints()[0].point[1], e.perUnit) << e.channel << e.component;
        EXPECT_FLOAT_EQ(c->getControlPoints()[1].point[1], 2.f * e.perUnit);
    }
}

TEST_F(AnimationTest, SpotAnglesAreHalvedAndThePenumbraFollowsTheInnerCone) {
    for (bool animatedInner : {false, true}) {
        SCOPED_TRACE(animatedInner ? "animated inner angle" : "constant inner angle");
        resetHost();
        setUnit(ksSceneData::Centimeter);
        Imported r = import(writeScene("spot.qdx", [&](QdxScene* s) {
            QdxAnimLayer* layer = addStack(s, "Take", {"BaseLayer"})[0];
            QdxLight* light = QdxLight::Create(s, "spot");
            light->LightType.Set(QdxLight::eSpot);
            light->DecayType.Set(QdxLight::eNone);
            light->InnerAngle.Set(30.0);
            light->OuterAngle.Set(40.0);
            addNode(s, "Spot", light);
            QdxAnimCurve* outer = light->OuterAngle.GetCurve(layer, nullptr, true);
            key(outer, 0.0, 50.0, Def::eInterpolationCubic);
            key(outer, 1.0, 70.0, Def::eInterpolationCubic);
            QdxAnimCurve* intensity = light->Intensity.GetCurve(layer, nullptr, true);
            key(intensity, 0.0, 100.0, Def::eInterpolationLinear);
            key(intensity, 1.0, 200.0, Def::eInterpolationLinear);
            if (animatedInner) {
                QdxAnimCurve* inner = light->InnerAngle.GetCurve(layer, nullptr, true);
                key(inner, 0.0, 30.0, Def::eInterpolationLinear);
                key(inner, 1.0, 50.0, Def::eInterpolationLinear);
            }
        }));
        ASSERT_TRUE(r.root);
        const osg::NodePtr spot = r.node("Spot");
        osg::AnimCurvePtr penumbra = curveOf(spot, "penumbraAngle", "");
        ASSERT_TRUE(penumbra);
        EXPECT_FLOAT_EQ(penumbra->getControlPoints()[0].point[1], 10.f);
        osg::AnimCurvePtr intensity = curveOf(spot, "intensity", "");
        ASSERT_TRUE(intensity);
        EXPECT_FLOAT_EQ(intensity->getControlPoints()[0].point[1],
                        static_cast<float>(100.0 * 0.0314159265358));
        if (!animatedInner) {
            EXPECT_EQ(penumbra->size(), 2u);
            EXPECT_FLOAT_EQ(penumbra->getControlPoints()[1].point[1], 20.f);
            EXPECT_EQ(penumbra->getControlPoints()[0].outType, osg::AnimCurve::Bezier);
            continue;
        }
        // One point per host frame over the second, each the
        // halved difference of the two cones there.
        osg::AnimCurvePtr cone = curveOf(spot, "coneAngle", "");
        ASSERT_TRUE(cone);
        EXPECT_FLOAT_EQ(cone->getControlPoints()[1].point[1], 25.f);
        EXPECT_TRUE(penumbra->isSampled());
        const auto frames = static_cast<osg::UInt32>(std::lround(ksAnimManager::the().fps()));
        ASSERT_EQ(penumbra->size(), frames + 1);
        EXPECT_FLOAT_EQ(penumbra->getControlPoints()[frames].point[1], 10.f);
        for (const osg::CCPnt& point : penumbra->getControlPoints())
            EXPECT_EQ(point.outType, osg::AnimCurve::Sampled);
    }
}

TEST_F(AnimationTest, AreaLightsScaleWithTheUnitAndVolumeLightsStayStill) {
    setUnit(ksSceneData::Millimeter);
    Imported r = import(writeScene("lights.qdx", [](QdxScene* s) {
        QdxAnimLayer* layer = addStack(s, "Take", {"BaseLayer"})[0];
        for (int type : {QdxLight::eArea, QdxLight::eVolume}) {
            QdxLight* light = QdxLight::Create(s, "light");
            light->LightType.Set(type);
            QdxNode* n = addNode(s, type == QdxLight::eArea ? "Area" : "Volume", light);
            for (QdxProperty* p : {static_cast<QdxProperty*>(&n->LclScaling),
                                   static_cast<QdxProperty*>(&light->Intensity)}) {
                QdxAnimCurve* c = p->GetCurve(layer, nullptr, true);
                key(c, 0.0, 2.0, Def::eInterpolationLinear);
                key(c, 1.0, 3.0, Def::eInterpolationLinear);
            }
        }
    }));
    ASSERT_TRUE(r.root);
    osg::AnimCurvePtr scale = curveOf(r.node("Area"), "scale", "X");
    osg::AnimCurvePtr intensity = curveOf(r.node("Area"), "intensity", "");
    ASSERT_TRUE(scale && intensity);
    EXPECT_FLOAT_EQ(scale->getControlPoints()[0].point[1], 20.f);
    EXPECT_FLOAT_EQ(intensity->getControlPoints()[0].point[1], 0.02f);
    const osg::NodePtr volume = r.node("Volume");
    ASSERT_TRUE(volume);
    EXPECT_FALSE(volume->findAttachment<osg::AnimAttachment>());
    size_t said = 0;
    for (size_t at = r.out.find("Volume lights are not supported\n"); at != std::string::npos;
         at = r.out.find("Volume lights are not supported\n", at + 1))
        ++said;
    EXPECT_EQ(said, 1u);
}

// A million keys are converted silently; one more asks for patience.
TEST_F(AnimationTest, OnlyCurvesOfMoreThanAMillionKeysWarn) {
    Imported r = import(writeScene("long.qdx", [](QdxScene* s) {
        QdxAnimLayer* layer = addStack(s, "Take", {"BaseLayer"})[0];
        for (int count : {1000000, 1000001}) {
            QdxNode* n = addNode(s, count == 1000000 ? "Million" : "MillionAndOne");
            std::vector<long long> times(static_cast<size_t>(count));
            std::vector<double> values(static_cast<size_t>(count));
            for (int i = 0; i < count; ++i) {
                times[static_cast<size_t>(i)] = i * (QdxTime::kTicksPerSecond / 24);
                values[static_cast<size_t>(i)] = i % 2;
            }
            n->Visibility.GetCurve(layer, nullptr, true)
                ->KeyAppend(times.data(), values.data(), count, Def::eInterpolationConstant);
        }
    }));
    ASSERT_TRUE(r.root);
    EXPECT_EQ(r.count(ksLog::Warning, "more than 1 million"), 1u);
    EXPECT_EQ(r.count(ksLog::Warning, "channel visible of node MillionAndOne."), 1u);
    osg::AnimCurvePtr million = curveOf(r.node("Million"), "visible", "");
    ASSERT_TRUE(million);
    EXPECT_EQ(million->size(), 1000000u);
}

} // namespace
