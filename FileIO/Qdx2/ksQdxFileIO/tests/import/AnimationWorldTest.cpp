// Animated scenes keep their motion: for seeded random hierarchies whose
// nodes animate translation, rotation and scaling with step, linear and
// weighted cubic keys, the host's world matrix of every node at every frame
// is the one the SDK evaluates from the file, in the host's unit and axes.
#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksSceneDataManager.h>

#include "RandomTransform.h"
#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

using Def = QdxAnimCurveDef;

constexpr int kFrames = 24;
constexpr double kFps = 24.0;

// Points that fix an affine map: the origin and the ends of the three axes.
const QdxVector4 kProbes[] = {QdxVector4(0, 0, 0), QdxVector4(1, 0, 0), QdxVector4(0, 1, 0),
                              QdxVector4(0, 0, 1)};

// The times the scenes are compared at: every frame. Where the pivot
// conversion has to bake a node's motion it keeps it on frames only.
std::vector<double> sampleTimes() {
    std::vector<double> times;
    for (int frame = 0; frame <= kFrames; ++frame)
        times.push_back(frame / kFps);
    return times;
}

// Per node name, per sample time, the probes in world space.
using Motion = std::map<std::string, std::vector<std::vector<QdxVector4>>>;

Motion expectedMotion(const std::string& path, const HostSetting& host) {
    Motion result;
    ReadBack file(path);
    EXPECT_TRUE(file.ok);
    QdxScene* scene = file.scene;
    convertToHost(scene, host.unit, host.up);
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        if (node == scene->GetRootNode()) continue;
        auto& samples = result[node->GetName()];
        for (double at : sampleTimes()) {
            QdxTime time;
            time.SetSecondDouble(at);
            const QdxAMatrix world = node->EvaluateGlobalTransform(time);
            auto& probes = samples.emplace_back();
            for (const QdxVector4& p : kProbes)
                probes.push_back(world.MultT(p));
        }
    }
    return result;
}

// Random hierarchies of plain nodes with every transform feature, most of
// them animated in one layer: each animated component gets two to four
// keys on frames, each key step, linear or cubic with random slopes and
// weights (some below the usable minimum); a curve stays cubic after its
// first cubic key.
class RandomMotion {
public:
    explicit RandomMotion(unsigned seed) : _rng(seed) {}

    void build(QdxScene* scene) {
        _scene = scene;
        scene->GetGlobalSettings().SetTimeMode(QdxTime::eFrames24);
        QdxAnimStack* stack = QdxAnimStack::Create(scene, "Take");
        _layer = QdxAnimLayer::Create(scene, "BaseLayer");
        stack->AddMember(_layer);
        fill(scene->GetRootNode(), 0);
    }

private:
    double u(double lo, double hi) { return _random.u(lo, hi); }

    void animate(QdxPropertyT<QdxDouble3>& property, double lo, double hi) {
        const QdxDouble3 rest = property.Get();
        for (int axis = 0; axis < 3; ++axis) {
            if (_rng() % 3 == 0) continue;
            const char* names[] = {"X", "Y", "Z"};
            QdxAnimCurve* curve = property.GetCurve(_layer, names[axis], true);
            const int keys = 2 + static_cast<int>(_rng() % 3);
            int frame = 0;
            bool cubic = false;
            for (int k = 0; k < keys && frame <= kFrames; ++k) {
                QdxTime time;
                time.SetSecondDouble(frame / kFps);
                auto type = static_cast<Def::EInterpolationType>(2 << (_rng() % 3));
                // The host takes a cubic segment's end handle from the end
                // point, which a step or linear key leaves flat.
                if (cubic) type = Def::eInterpolationCubic;
                cubic = type == Def::eInterpolationCubic;
                const auto weight = [&] { return _rng() % 5 == 0 ? 0.0 : u(0.1, 0.6); };
                curve->KeySet(curve->KeyAdd(time), time, rest[axis] + u(lo, hi), type,
                              Def::eTangentUser, u(-40, 40), u(-40, 40), weight(), weight());
                frame += 1 + static_cast<int>(_rng() % 12);
            }
        }
    }

    void fill(QdxNode* parent, int depth) {
        const int children = 1 + static_cast<int>(_rng() % 3);
        for (int i = 0; i < children; ++i) {
            std::string name = "M";
            name += std::to_string(_count++);
            QdxNode* n = QdxNode::Create(_scene, name.c_str());
            parent->AddChild(n);
            _random.apply(n);
            if (_rng() % 4 != 0) {
                animate(n->LclTranslation, -5, 5);
                animate(n->LclRotation, -60, 60);
                if (_rng() % 2) animate(n->LclScaling, -0.3, 0.3);
            }
            if (depth < 2 && _rng() % 2) fill(n, depth + 1);
        }
    }

    std::mt19937 _rng;
    RandomTransform _random{_rng};
    QdxScene* _scene = nullptr;
    QdxAnimLayer* _layer = nullptr;
    int _count = 0;
};

class AnimationWorld : public PluginTest, public ::testing::WithParamInterface<HostSetting> {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ksSceneDataManager::getSceneData(0)->setLengthUnit(GetParam().unit);
        ksSceneDataManager::getSceneData(0)->setUpAxis(GetParam().up);
    }

    void expectSameMotion(const std::string& path) {
        const Motion expected = expectedMotion(path, GetParam());
        ASSERT_FALSE(expected.empty());
        Imported r = import(path);
        ASSERT_TRUE(r.root);
        ksAnimEvaluator& evaluator = ksAnimEvaluator::the();
        evaluator.updateSceneAnimParentMap(r.root);
        ASSERT_FALSE(evaluator.getAnimatedNodes().empty());
        const std::vector<double> times = sampleTimes();
        for (size_t s = 0; s < times.size(); ++s) {
            evaluator.evaluate(static_cast<osg::Real32>(times[s]));
            for (const auto& [name, samples] : expected) {
                const osg::NodePtr node = r.node(name);
                ASSERT_TRUE(node) << name;
                const osg::Matrix world = node->getWorldMatrix();
                const std::vector<QdxVector4>& probes = samples[s];
                double extent = 1.0;
                for (const QdxVector4& p : probes)
                    extent = std::max({extent, std::abs(p[0]), std::abs(p[1]), std::abs(p[2])});
                for (size_t i = 0; i < probes.size(); ++i) {
                    const QdxVector4& q = kProbes[i];
                    const osg::Pnt3f got =
                        world.multPnt(osg::Pnt3f(static_cast<float>(q[0]), static_cast<float>(q[1]),
                                                 static_cast<float>(q[2])));
                    for (int k = 0; k < 3; ++k)
                        ASSERT_NEAR(got[k], probes[i][k], 1e-4 * extent)
                            << name << " at " << times[s] << " s, probe " << i << " axis " << k;
                }
            }
        }
    }
};

TEST_P(AnimationWorld, RandomMotionIsKeptAtEveryFrame) {
    for (unsigned seed = 1; seed <= 4 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomMotion motion(seed);
        const int format = static_cast<int>(seed % 2);
        expectSameMotion(writeScene(
            format ? "motion-text.qdx" : "motion.qdx", [&](QdxScene* s) { motion.build(s); },
            format));
    }
}

INSTANTIATE_TEST_SUITE_P(HostUnitsAndAxes, AnimationWorld, ::testing::ValuesIn(kHostSettings));

} // namespace
