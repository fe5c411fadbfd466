// Cameras and lights keep their place in the world: for seeded random
// scenes, every imported camera's eye and viewing direction (after the aim
// constraints act) and every light's position and emission direction are
// those of the file's node, evaluated with its targets, in the host's unit
// and axes.
#include <algorithm>
#include <cmath>
#include <map>
#include <random>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksUberCameraPool.h>

#include "RandomTransform.h"
#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

// A node's world frame: where it is, where it looks (cameras) or shines
// (lights), and a second axis that fixes its roll: a camera's up, a
// light's +X (which both sides share).
struct Frame {
    QdxVector4 position, forward, side;
    bool camera = false;
    bool aimed = false;
    bool directed = true; // point lights shine everywhere
};

QdxVector4 unit(const QdxVector4& v) {
    const double n = std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
    return n > 0 ? QdxVector4(v[0] / n, v[1] / n, v[2] / n, 0) : v;
}

std::map<std::string, Frame> expectedFrames(const std::string& path, const HostSetting& host) {
    std::map<std::string, Frame> result;
    ReadBack file(path);
    EXPECT_TRUE(file.ok);
    QdxScene* scene = file.scene;
    convertToHost(scene, host.unit, host.up);
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        const bool camera = node->GetCamera() != nullptr;
        if (!camera && !node->GetLight()) continue;
        const QdxAMatrix world =
            node->EvaluateGlobalTransform(QdxTime(), QdxNode::eSourcePivot, true);
        Frame& f = result[node->GetName()];
        f.position = world.MultT(QdxVector4(0, 0, 0));
        // Cameras look along +X with +Y up, lights shine along -Y.
        f.forward = unit(world.MultR(camera ? QdxVector4(1, 0, 0, 0) : QdxVector4(0, -1, 0, 0)));
        f.side = unit(world.MultR(camera ? QdxVector4(0, 1, 0, 0) : QdxVector4(1, 0, 0, 0)));
        f.camera = camera;
        f.aimed = node->GetTarget() != nullptr;
        f.directed = camera || node->GetLight()->LightType.Get() != QdxLight::ePoint;
    }
    return result;
}

// Random hierarchies of transformed groups (pivots, offsets, pre- and
// post-rotations, every rotation order) with cameras and lights as leaves;
// some cameras aim at other leaves, some of those with an up node.
class RandomRig {
public:
    explicit RandomRig(unsigned seed) : _rng(seed) {}

    void build(QdxScene* scene) {
        _scene = scene;
        fill(scene->GetRootNode(), 0);
        for (QdxNode* camera : _cameras) {
            if (_rng() % 3 == 0 || _leaves.size() < 2) continue;
            QdxNode* target = pick(camera);
            camera->SetTarget(target);
            if (_rng() % 2) camera->SetTargetUp(pick(camera));
        }
    }

private:
    QdxNode* pick(QdxNode* not_) {
        QdxNode* n = not_;
        while (n == not_)
            n = _leaves[_rng() % _leaves.size()];
        return n;
    }

    // Groups get every pivot and offset. The host turns a camera's or
    // light's view axis in its post-rotation, which the node's own rotation
    // and scaling pivots would carry along, so leaves keep theirs at the
    // origin.
    void transform(QdxNode* n, bool pivots) {
        RandomTransform::Options options;
        options.pivots = pivots;
        options.uniformScale = true;
        _random.apply(n, options);
    }

    QdxNode* leaf(QdxNode* parent) {
        std::string name = "L";
        name += std::to_string(_count++);
        QdxNode* n = QdxNode::Create(_scene, name.c_str());
        parent->AddChild(n);
        const unsigned kind = _rng() % 6;
        if (kind == 0) {
            auto* camera = QdxCamera::Create(_scene, name.c_str());
            if (_rng() % 2) camera->ProjectionType.Set(QdxCamera::eOrthogonal);
            n->SetNodeAttribute(camera);
            _cameras.push_back(n);
        } else if (kind < 5) {
            auto* light = QdxLight::Create(_scene, name.c_str());
            light->LightType.Set(static_cast<int>(kind - 1)); // point .. area
            light->AreaLightShape.Set(static_cast<int>(_rng() % 2));
            n->SetNodeAttribute(light);
        }
        transform(n, false);
        _leaves.push_back(n);
        return n;
    }

    void fill(QdxNode* parent, int depth) {
        const int children = 2 + static_cast<int>(_rng() % 3);
        for (int i = 0; i < children; ++i) {
            if (depth == 2 || _rng() % 3 == 0) {
                leaf(parent);
                continue;
            }
            std::string name = "G";
            name += std::to_string(_count++);
            QdxNode* group = QdxNode::Create(_scene, name.c_str());
            parent->AddChild(group);
            transform(group, true);
            fill(group, depth + 1);
        }
    }

    std::mt19937 _rng;
    RandomTransform _random{_rng};
    QdxScene* _scene = nullptr;
    std::vector<QdxNode*> _cameras, _leaves;
    int _count = 0;
};

class CameraLightWorld : public HostSettingTest {
protected:
    void expectSameFrames(const std::string& path) {
        const auto expected = expectedFrames(path, GetParam());
        ASSERT_FALSE(expected.empty());
        Imported r = import(path);
        ASSERT_TRUE(r.root);
        ksConstraintManager::the().update();
        double extent = 1.0;
        for (const auto& [name, f] : expected)
            for (int k = 0; k < 3; ++k)
                extent = std::max(extent, std::abs(f.position[k]));
        for (const auto& [name, f] : expected) {
            osg::NodePtr node = r.node(name);
            ASSERT_TRUE(node) << name;
            const osg::Matrix world = node->getWorldMatrix();
            const osg::Pnt3f eye = world.multPnt(osg::Pnt3f(0, 0, 0));
            osg::Vec3f forward = world.multVec(osg::Vec3f(0, 0, -1));
            osg::Vec3f side = world.multVec(f.camera ? osg::Vec3f(0, 1, 0) : osg::Vec3f(1, 0, 0));
            forward.normalize();
            side.normalize();
            for (int k = 0; k < 3; ++k) {
                EXPECT_NEAR(eye[k], f.position[k], 1e-4 * extent) << name << " position " << k;
                if (!f.directed) continue;
                EXPECT_NEAR(forward[k], f.forward[k], 1e-4) << name << " direction " << k;
                // An aimed camera's roll follows the host's up rule.
                if (!f.aimed) {
                    EXPECT_NEAR(side[k], f.side[k], 1e-4) << name << " roll " << k;
                }
            }
        }
    }
};

TEST_P(CameraLightWorld, RandomRigsKeepEveryCameraAndLightFrame) {
    for (unsigned seed = 1; seed <= 6 && !HasFailure(); ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomRig rig(seed);
        const int format = static_cast<int>(seed % 2);
        expectSameFrames(writeScene(
            format ? "rig-text.qdx" : "rig.qdx", [&](QdxScene* s) { rig.build(s); }, format));
    }
}

INSTANTIATE_TEST_SUITE_P(HostUnitsAndAxes, CameraLightWorld, ::testing::ValuesIn(kHostSettings));

} // namespace
