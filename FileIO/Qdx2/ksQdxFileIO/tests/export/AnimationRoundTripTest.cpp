// Animation through export and back: seeded random animated scenes (pivots,
// two layers, a camera and a spot light) are imported, exported and
// imported again; every animated node's world matrix, evaluated by the
// host at every frame, is the same both times.
#include <cmath>
#include <map>
#include <random>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

constexpr double kFps = 24.0;
constexpr int kFrames = 36;
// Relative to the largest matrix element. Export resamples every curve on
// frames from the file's own evaluation of the keys written, so frames agree
// only where that evaluation is the host's, including cubic segments that
// end on a step or linear key.
constexpr double kTolerance = 1e-4;

// Random keys on one channel of a curve node: cubic with uneven weights,
// linear and constant, on frames and between them.
void randomCurve(QdxAnimCurveNode* curveNode, unsigned int channel, std::mt19937& rng, double base,
                 double range) {
    std::uniform_real_distribution<double> value(-range, range), unit(0.0, 1.0);
    QdxAnimCurve* curve = curveNode->CreateCurve(curveNode->GetName(), channel);
    double frame = std::floor(unit(rng) * 4.0);
    while (frame < kFrames) {
        QdxTime t;
        t.SetSecondDouble(frame / kFps);
        const int k = curve->KeyAdd(t);
        const double pick = unit(rng);
        const auto interpolation = pick < 0.6    ? QdxAnimCurveDef::eInterpolationCubic
                                   : pick < 0.85 ? QdxAnimCurveDef::eInterpolationLinear
                                                 : QdxAnimCurveDef::eInterpolationConstant;
        curve->KeySet(k, t, base + value(rng), interpolation, QdxAnimCurveDef::eTangentUser,
                      value(rng) * 3.0, value(rng) * 3.0, 0.1 + 0.5 * unit(rng),
                      0.1 + 0.5 * unit(rng));
        // Mostly whole frames, sometimes a fraction between them.
        frame += 2.0 + std::floor(unit(rng) * 6.0) + (unit(rng) < 0.2 ? 0.5 : 0.0);
    }
}

void animate(QdxProperty& property, QdxAnimLayer* layer, std::mt19937& rng, double base,
             double range, bool additive) {
    QdxAnimCurveNode* curveNode = property.GetCurveNode(layer, true);
    for (unsigned int c = 0; c < curveNode->GetChannelsCount() && c < 3; ++c) {
        if (additive) curveNode->SetChannelValue(c, property.GetName() == "Lcl Scaling" ? 1 : 0);
        if (std::uniform_int_distribution<int>(0, 2)(rng) != 0)
            randomCurve(curveNode, c, rng, additive ? 0.0 : base, range);
    }
}

QdxVector4 randomVector(std::mt19937& rng, double range) {
    std::uniform_real_distribution<double> d(-range, range);
    const double x = d(rng), y = d(rng), z = d(rng);
    return QdxVector4(x, y, z);
}

QdxDouble3 randomDouble3(std::mt19937& rng, double range) {
    const QdxVector4 v = randomVector(rng, range);
    return QdxDouble3(v[0], v[1], v[2]);
}

void buildRandomScene(QdxScene* scene, unsigned int seed) {
    std::mt19937 rng(seed);
    scene->GetGlobalSettings().SetFrameRate(kFps);
    QdxAnimStack* stack = QdxAnimStack::Create(scene, "Take 001");
    QdxAnimLayer* base = QdxAnimLayer::Create(scene, "BaseLayer");
    QdxAnimLayer* second = QdxAnimLayer::Create(scene, "Second");
    stack->AddMember(base);
    stack->AddMember(second);
    QdxNode* parent = scene->GetRootNode();
    for (int i = 0; i < 5; ++i) {
        const std::string name = std::string(1, char('A' + i)) + "node";
        QdxNode* node = QdxNode::Create(scene, name.c_str());
        if (i == 3) {
            QdxCamera* camera = QdxCamera::Create(scene, "Cam");
            node->SetNodeAttribute(camera);
            animate(camera->FocalLength, base, rng, 35.0, 10.0, false);
        } else if (i == 4) {
            QdxLight* light = QdxLight::Create(scene, "Spot");
            light->LightType.Set(QdxLight::eSpot);
            node->SetNodeAttribute(light);
        }
        const auto src = QdxNode::eSourcePivot;
        node->SetPivotState(src, QdxNode::ePivotActive);
        node->LclTranslation.Set(randomDouble3(rng, 20.0));
        node->LclRotation.Set(randomDouble3(rng, 60.0));
        node->SetRotationPivot(src, randomVector(rng, 5.0));
        node->SetScalingPivot(src, randomVector(rng, 5.0));
        node->SetRotationOffset(src, randomVector(rng, 3.0));
        node->SetPreRotation(src, randomVector(rng, 30.0));
        animate(node->LclTranslation, base, rng, 0.0, 20.0, false);
        animate(node->LclRotation, base, rng, 0.0, 90.0, false);
        animate(node->LclScaling, base, rng, 1.0, 0.5, false);
        animate(node->LclTranslation, second, rng, 0.0, 5.0, true);
        animate(node->LclRotation, second, rng, 0.0, 20.0, true);
        // A chain, with one node on the side.
        parent->AddChild(node);
        if (i != 1) parent = node;
    }
}

using WorldTrack = std::map<std::string, std::vector<osg::Matrix>>;

// World matrix of every animated node below root at every frame.
WorldTrack evaluate(const osg::NodePtr& root) {
    WorldTrack track;
    ksAnimEvaluator& evaluator = ksAnimEvaluator::the();
    evaluator.updateSceneAnimParentMap(root);
    const std::vector<osg::NodePtr> animated = evaluator.getAnimatedNodes();
    for (int f = 0; f <= kFrames; ++f) {
        evaluator.evaluate(float(f / kFps));
        for (const osg::NodePtr& n : animated)
            // The import's top node is named after the file.
            if (n != root) track[ksNodeUtils::getName(n)].push_back(n->getWorldMatrix());
    }
    return track;
}

class AnimationRoundTrip : public PluginTest, public ::testing::WithParamInterface<unsigned int> {};

TEST_P(AnimationRoundTrip, KeepsEveryAnimatedWorldMatrixOnEveryFrame) {
    const unsigned int seed = GetParam();
    const std::string first =
        writeScene("random.qdx", [seed](QdxScene* s) { buildRandomScene(s, seed); });
    Imported a = import(first);
    ASSERT_TRUE(a.root);
    const WorldTrack before = evaluate(a.root);
    ASSERT_GE(before.size(), 5u);

    // Exported from a fresh import: evaluating moved the first one's nodes.
    Imported fresh = import(first);
    ASSERT_TRUE(fresh.root);
    const std::string second = file("again.qdx");
    ASSERT_TRUE(exportTo(fresh.root, second));
    Imported b = import(second);
    ASSERT_TRUE(b.root);
    const WorldTrack after = evaluate(b.root);
    for (const auto& [name, matrices] : before) {
        SCOPED_TRACE(name);
        auto it = after.find(name);
        ASSERT_NE(it, after.end());
        ASSERT_EQ(it->second.size(), matrices.size());
        for (std::size_t f = 0; f < matrices.size(); ++f) {
            const osg::Matrix& x = matrices[f];
            const osg::Matrix& y = it->second[f];
            double size = 1.0;
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j)
                    size = std::max(size, std::fabs(double(x[i][j])));
            for (int i = 0; i < 4; ++i)
                for (int j = 0; j < 4; ++j)
                    ASSERT_NEAR(y[i][j], x[i][j], kTolerance * size)
                        << "frame " << f << " element " << i << j;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, AnimationRoundTrip, ::testing::Values(1u, 2u, 3u, 4u));

} // namespace
