// The physical scene survives the import: for the bundled samples and for
// seeded random scenes, every polygon corner of the imported geometry lies
// where the SDK puts the file's corner, in the host's unit and axes.
#include <cmath>
#include <map>
#include <random>

#include <kestrel/ksAnimEvaluator.h>
#include <kestrel/ksNodeUtils.h>

#include "RandomTransform.h"
#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

// Per mesh node name: the world-space corners of each geometry the node
// becomes (a mesh split by material gives one per material, in ascending
// order, as the node's first children).
using Corners = std::map<std::string, std::vector<std::vector<QdxVector4>>>;

Corners expectedCorners(const std::string& path, const HostSetting& host) {
    Corners result;
    ReadBack file(path);
    EXPECT_TRUE(file.ok);
    QdxScene* scene = file.scene;
    convertToHost(scene, host.unit, host.up);
    for (int i = 0; i < scene->GetNodeCount(); ++i) {
        QdxNode* node = scene->GetNode(i);
        QdxMesh* mesh = node->GetMesh();
        if (!mesh) continue;
        const QdxAMatrix world = node->EvaluateGlobalTransform() * node->GetGeometricTransform();
        QdxLayerElementArrayTemplate<int>* materials = nullptr;
        const bool split =
            mesh->GetMaterialIndices(&materials) && materials && materials->GetCount() >= 2;
        std::map<int, std::vector<int>> groups;
        for (int p = 0; p < mesh->GetPolygonCount(); ++p)
            groups[split ? materials->GetAt(p) : 0].push_back(p);
        auto& geometries = result[node->GetName()];
        for (const auto& [material, polygons] : groups) {
            auto& corners = geometries.emplace_back();
            for (int p : polygons)
                for (int c = 0; c < mesh->GetPolygonSize(p); ++c)
                    corners.push_back(
                        world.MultT(mesh->GetControlPointAt(mesh->GetPolygonVertex(p, c))));
        }
    }
    return result;
}

class WorldSpace : public HostSettingTest {
protected:
    void expectSameCorners(const std::string& path) {
        const Corners expected = expectedCorners(path, GetParam());
        ASSERT_FALSE(expected.empty());
        Imported r = import(path);
        ASSERT_TRUE(r.root);
        // Animated samples are compared posed at time 0: the imported
        // transforms are the rest values the animation starts from.
        ksAnimEvaluator::the().updateSceneAnimParentMap(r.root);
        ksAnimEvaluator::the().evaluate(0.0);
        double extent = 1.0;
        for (const auto& [name, geometries] : expected)
            for (const auto& corners : geometries)
                for (const QdxVector4& p : corners)
                    extent = std::max({extent, std::abs(p[0]), std::abs(p[1]), std::abs(p[2])});
        const double tolerance = 2e-6 * extent;
        for (const auto& [name, geometries] : expected) {
            osg::NodePtr node = r.node(name);
            ASSERT_TRUE(node) << name;
            const bool split = !osg::GeometryPtr::dcast(node->getCore());
            ASSERT_GE(split ? node->getNChildren() : 1u, geometries.size()) << name;
            for (size_t g = 0; g < geometries.size(); ++g) {
                const auto got =
                    worldCorners(split ? node->getChild(static_cast<osg::UInt32>(g)) : node);
                const auto& corners = geometries[g];
                ASSERT_EQ(got.size(), corners.size()) << name << " geometry " << g;
                for (size_t i = 0; i < got.size(); ++i)
                    for (int k = 0; k < 3; ++k)
                        ASSERT_NEAR(got[i][k], corners[i][k], tolerance)
                            << name << " geometry " << g << " corner " << i << " axis " << k;
            }
        }
    }
};

// Random hierarchy: every transform feature of a node, rotation orders,
// non-uniform scaling (inherited as a plain matrix product), geometric
// transforms, meshes with and without several materials, and meshes shared
// by leaves with equal transforms (instances) or different ones.
class RandomScene {
public:
    explicit RandomScene(unsigned seed) : _rng(seed) {}

    void build(QdxScene* scene) {
        _scene = scene;
        for (int i = 0; i < 2; ++i)
            _shared.push_back({makeMesh(), static_cast<unsigned>(_rng())});
        fill(scene->GetRootNode(), 0);
    }

private:
    // A mesh for several leaves, and the seed of its instances' transform.
    struct Shared {
        QdxMesh* mesh;
        unsigned seed;
    };

    double u(double lo, double hi) { return _random.u(lo, hi); }
    QdxVector4 v(double lo, double hi) { return _random.v(lo, hi); }

    // Random local transform values; equal seeds give equal values.
    void applyTransform(QdxNode* n, unsigned seed) {
        std::mt19937 rng(seed);
        RandomTransform(rng).apply(n);
    }

    QdxMesh* makeMesh() {
        QdxMesh* mesh = QdxMesh::Create(_scene, "mesh");
        const int points = 4 + static_cast<int>(_rng() % 4);
        mesh->InitControlPoints(points);
        for (int p = 0; p < points; ++p)
            mesh->SetControlPointAt(v(-5, 5), p);
        const int polygons = 1 + static_cast<int>(_rng() % 4);
        std::vector<int> materials;
        for (int p = 0; p < polygons; ++p) {
            const int size = 3 + static_cast<int>(_rng() % 2);
            mesh->BeginPolygon();
            for (int c = 0; c < size; ++c)
                mesh->AddPolygon(static_cast<int>(_rng() % static_cast<unsigned>(points)));
            mesh->EndPolygon();
            materials.push_back(static_cast<int>(_rng() % 3));
        }
        if (_rng() % 2) {
            QdxLayerElementMaterial* e = mesh->CreateElementMaterial();
            e->SetMappingMode(QdxLayerElement::eByPolygon);
            e->SetReferenceMode(QdxLayerElement::eIndexToDirect);
            for (int m : materials)
                e->GetIndexArray().Add(m);
        }
        return mesh;
    }

    void fill(QdxNode* parent, int depth) {
        const int children = depth == 0 ? 3 : static_cast<int>(_rng() % 3);
        for (int i = 0; i < children && depth < 3; ++i) {
            std::string name = "N";
            name += std::to_string(_count++);
            QdxNode* n = QdxNode::Create(_scene, name.c_str());
            parent->AddChild(n);
            const bool leaf = depth == 2 || _rng() % 3 == 0;
            if (leaf && _rng() % 2) {
                // A shared mesh: its own transform (an instance) or another.
                const Shared& shared = _shared[_rng() % _shared.size()];
                applyTransform(n, _rng() % 2 ? shared.seed : static_cast<unsigned>(_rng()));
                n->SetNodeAttribute(shared.mesh);
                continue;
            }
            applyTransform(n, static_cast<unsigned>(_rng()));
            if (_rng() % 4 != 0) {
                n->SetNodeAttribute(makeMesh());
                const auto S = QdxNode::eSourcePivot;
                n->SetGeometricTranslation(S, v(-3, 3));
                n->SetGeometricRotation(S, v(-45, 45));
                n->SetGeometricScaling(S, QdxVector4(u(0.5, 2), u(0.5, 2), u(0.5, 2)));
            }
            if (!leaf) fill(n, depth + 1);
        }
    }

    std::mt19937 _rng;
    RandomTransform _random{_rng};
    QdxScene* _scene = nullptr;
    std::vector<Shared> _shared;
    int _count = 0;
};

TEST_P(WorldSpace, RandomScenesKeepEveryCorner) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomScene random(seed);
        const int format = static_cast<int>(seed % 2);
        const std::string file = format ? "random-text.qdx" : "random.qdx";
        expectSameCorners(writeScene(
            file, [&](QdxScene* s) { random.build(s); }, format));
    }
}

TEST_P(WorldSpace, SamplesKeepEveryCorner) {
    for (const char* name : {"showroom.qdx", "showroom-text.qdx"})
        expectSameCorners(std::string(KSQDX_SAMPLES_DIR).append("/").append(name));
}

INSTANTIATE_TEST_SUITE_P(HostUnitsAndAxes, WorldSpace, ::testing::ValuesIn(kHostSettings));

} // namespace
