// Animated scenes keep their motion: for seeded random hierarchies whose
// nodes animate translation, rotation and scaling in two layers (a base and
// an additive or overriding one with a weight) with step, linear and
// weighted cubic keys, the host's world matrix of every node is the one the
// SDK evaluates from the file, in the host's unit and axes.
#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include <kestrel/ksAnimEvaluator.h>

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

// Every frame and every half frame.
std::vector<double> sampleTimes() {
    std::vector<double> times;
    for (int half = 0; half <= 2 * kFrames; ++half)
        times.push_back(half / (2.0 * kFps));
    return times;
}

bool onFrame(std::size_t sample) {
    return sample % 2 == 0;
}

// A node whose rotation needs no conversion (XYZ order, no pre- or
// post-rotation) keeps its curves as they are. Any other animated node has
// its motion baked on frames, linear between them, so that it (and every
// node below it) agrees with the file on frames only.
bool keepsCurves(QdxNode* node) {
    const auto S = QdxNode::eSourcePivot;
    const QdxVector4 pre = node->GetPreRotation(S), post = node->GetPostRotation(S);
    return node->GetRotationOrder(S) == eEulerXYZ && pre[0] == 0 && pre[1] == 0 && pre[2] == 0 &&
           post[0] == 0 && post[1] == 0 && post[2] == 0;
}

// Per node name: whether it agrees between frames, and per sample time the
// probes in world space.
struct Track {
    bool betweenFrames = true;
    std::vector<std::vector<QdxVector4>> samples;
};
using Motion = std::map<std::string, Track>;

Motion expectedMotion(const std::string& path, const HostSetting& host) {
    Motion result;
    ReadBack file(path);
    EXPECT_TRUE(file.ok);
    QdxScene* scene = file.scene;
    std::map<QdxNode*, bool> exact;
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        bool keeps = true;
        for (QdxNode* n = node; n && n != scene->GetRootNode(); n = n->GetParent())
            keeps = keeps && keepsCurves(n);
        exact[node] = keeps;
    }
    convertToHost(scene, host.unit, host.up);
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        if (node == scene->GetRootNode()) continue;
        Track& track = result[node->GetName()];
        track.betweenFrames = exact[node];
        for (double at : sampleTimes()) {
            QdxTime time;
            time.SetSecondDouble(at);
            const QdxAMatrix world = node->EvaluateGlobalTransform(time);
            auto& probes = track.samples.emplace_back();
            for (const QdxVector4& p : kProbes)
                probes.push_back(world.MultT(p));
        }
    }
    return result;
}

// Random hierarchies below a still top node, with every transform feature
// (a third of the nodes without pre- and post-rotation, in XYZ order), most
// of them animated: each animated component gets two to four keys on
// frames, each key step, linear or cubic with random slopes and weights
// (some below the usable minimum), cubic segments also ending on step or
// linear keys. Half the animated nodes also animate in the second layer,
// whose curve nodes store values of their own on the axes they do not key.
class RandomMotion {
public:
    explicit RandomMotion(unsigned seed) : _rng(seed) {}

    void build(QdxScene* scene) {
        _scene = scene;
        scene->GetGlobalSettings().SetTimeMode(QdxTime::eFrames24);
        QdxAnimStack* stack = QdxAnimStack::Create(scene, "Take");
        _base = QdxAnimLayer::Create(scene, "BaseLayer");
        _second = QdxAnimLayer::Create(scene, "Second");
        _additive = _rng() % 2 == 0;
        _second->BlendMode.Set(_additive ? QdxAnimLayer::eBlendAdditive
                                         : QdxAnimLayer::eBlendOverride);
        _second->Weight.Set(u(20, 100));
        stack->AddMember(_base);
        stack->AddMember(_second);
        QdxNode* top = QdxNode::Create(scene, "Top");
        scene->GetRootNode()->AddChild(top);
        fill(top, 0);
    }

private:
    double u(double lo, double hi) { return _random.u(lo, hi); }

    void keys(QdxAnimCurve* curve, double rest, double lo, double hi) {
        const int count = 2 + static_cast<int>(_rng() % 3);
        int frame = 0;
        for (int k = 0; k < count && frame <= kFrames; ++k) {
            QdxTime time;
            time.SetSecondDouble(frame / kFps);
            const auto type = static_cast<Def::EInterpolationType>(2 << (_rng() % 3));
            const auto weight = [&] { return _rng() % 5 == 0 ? 0.0 : u(0.1, 0.6); };
            // Slopes in proportion to the range, so that a scaling factor
            // that a layer raises to its weight stays positive.
            const double slope = 40.0 * std::min(1.0, (hi - lo) / 10.0);
            curve->KeySet(curve->KeyAdd(time), time, rest + u(lo, hi), type, Def::eTangentUser,
                          u(-slope, slope), u(-slope, slope), weight(), weight());
            frame += 1 + static_cast<int>(_rng() % 12);
        }
    }

    void animate(QdxPropertyT<QdxDouble3>& property, double lo, double hi) {
        const QdxDouble3 rest = property.Get();
        const char* names[] = {"X", "Y", "Z"};
        for (int axis = 0; axis < 3; ++axis)
            if (_rng() % 3 != 0)
                keys(property.GetCurve(_base, names[axis], true), rest[axis], lo, hi);
    }

    // The second layer: an additive one adds around nothing (1 for
    // scaling), an overriding one moves towards values around the rest.
    void animateSecond(QdxPropertyT<QdxDouble3>& property, double lo, double hi, bool scaling) {
        QdxAnimCurveNode* curveNode = property.GetCurveNode(_second, true);
        const QdxDouble3 rest = property.Get();
        for (unsigned int axis = 0; axis < 3; ++axis) {
            const double around = _additive ? (scaling ? 1.0 : 0.0) : rest[static_cast<int>(axis)];
            curveNode->SetChannelValue(axis, _rng() % 2 ? around : around + u(lo, hi));
            if (_rng() % 2) keys(curveNode->CreateCurve(names(axis), axis), around, lo, hi);
        }
    }
    static const char* names(unsigned int axis) { return axis == 0 ? "X" : axis == 1 ? "Y" : "Z"; }

    void fill(QdxNode* parent, int depth) {
        const int children = 1 + static_cast<int>(_rng() % 3);
        for (int i = 0; i < children; ++i) {
            std::string name = "M";
            name += std::to_string(_count++);
            QdxNode* n = QdxNode::Create(_scene, name.c_str());
            parent->AddChild(n);
            _random.apply(n);
            if (_rng() % 3 == 0) {
                const auto S = QdxNode::eSourcePivot;
                n->SetRotationOrder(S, eEulerXYZ);
                n->SetPreRotation(S, QdxVector4(0, 0, 0));
                n->SetPostRotation(S, QdxVector4(0, 0, 0));
            }
            if (_rng() % 4 != 0 || _count == 1) {
                const bool scaling = _rng() % 2;
                animate(n->LclTranslation, -5, 5);
                animate(n->LclRotation, -60, 60);
                if (scaling) animate(n->LclScaling, -0.3, 0.3);
                if (_rng() % 2) {
                    animateSecond(n->LclTranslation, -3, 3, false);
                    animateSecond(n->LclRotation, -30, 30, false);
                    if (scaling) animateSecond(n->LclScaling, -0.2, 0.2, true);
                }
            }
            if (depth < 2 && _rng() % 2) fill(n, depth + 1);
        }
    }

    std::mt19937 _rng;
    RandomTransform _random{_rng};
    QdxScene* _scene = nullptr;
    QdxAnimLayer* _base = nullptr;
    QdxAnimLayer* _second = nullptr;
    bool _additive = true;
    int _count = 0;
};

class AnimationWorld : public HostSettingTest {
protected:
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
            // The host keeps point times in single precision: a step on a
            // frame is met at the frame's single-precision time.
            evaluator.evaluate(static_cast<osg::Real32>(times[s]));
            for (const auto& [name, track] : expected) {
                if (!onFrame(s) && !track.betweenFrames) continue;
                const osg::NodePtr node = r.node(name);
                ASSERT_TRUE(node) << name;
                const osg::Matrix world = node->getWorldMatrix();
                const std::vector<QdxVector4>& probes = track.samples[s];
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

TEST_P(AnimationWorld, RandomLayeredMotionIsKept) {
    for (unsigned seed = 1; seed <= 6 && !HasFailure(); ++seed) {
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
