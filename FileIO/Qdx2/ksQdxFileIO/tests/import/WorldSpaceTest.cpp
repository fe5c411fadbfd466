// The physical scene survives the import: for the bundled samples and for
// seeded random scenes, every polygon corner of the imported geometry lies
// where the SDK puts the file's corner, in the host's unit and axes.
#include <cmath>
#include <map>
#include <random>

#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>

#include "ImportSupport.h"

using namespace importtest;
using namespace qdxsdk;

namespace {

struct HostSetting {
    int unit; // ksSceneData length unit code
    int up;   // 0 Y, 1 Z
};

using Corners = std::map<std::string, std::vector<QdxVector4>>;

// World-space corners of every mesh of the file, per host node name (a mesh
// split by material gives one entry per material child).
Corners expectedCorners(const std::string& path, const HostSetting& host) {
    Corners result;
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "");
    QdxImporter* importer = QdxImporter::Create(manager, "");
    EXPECT_TRUE(importer->Initialize(path.c_str()) && importer->Import(scene));
    (host.up == 1 ? QdxAxisSystem::ToveZUp : QdxAxisSystem::ToveYUp).ConvertScene(scene);
    (host.unit == 4   ? QdxSystemUnit::m
     : host.unit == 2 ? QdxSystemUnit::cm
                      : QdxSystemUnit::mm)
        .ConvertScene(scene);
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
        for (const auto& [material, polygons] : groups) {
            std::string name = node->GetName();
            if (split) name += "_mat_" + std::to_string(material);
            auto& corners = result[name];
            for (int p : polygons)
                for (int c = 0; c < mesh->GetPolygonSize(p); ++c)
                    corners.push_back(
                        world.MultT(mesh->GetControlPointAt(mesh->GetPolygonVertex(p, c))));
        }
    }
    manager->Destroy();
    return result;
}

class WorldSpace : public ImportTest, public ::testing::WithParamInterface<HostSetting> {
protected:
    void SetUp() override {
        ImportTest::SetUp();
        const HostSetting host = GetParam();
        ksSceneDataManager::getSceneData(0)->setLengthUnit(host.unit);
        ksSceneDataManager::getSceneData(0)->setUpAxis(host.up);
    }

    void expectSameCorners(const std::string& path) {
        const Corners expected = expectedCorners(path, GetParam());
        ASSERT_FALSE(expected.empty());
        Imported r = import(path);
        ASSERT_TRUE(r.root);
        double extent = 1.0;
        for (const auto& [name, corners] : expected)
            for (const QdxVector4& p : corners)
                extent = std::max({extent, std::abs(p[0]), std::abs(p[1]), std::abs(p[2])});
        const double tolerance = 2e-6 * extent;
        for (const auto& [name, corners] : expected) {
            osg::NodePtr node = r.node(name);
            ASSERT_TRUE(node) << name;
            const std::vector<osg::Pnt3f> got = worldCorners(node);
            ASSERT_EQ(got.size(), corners.size()) << name;
            for (size_t i = 0; i < got.size(); ++i)
                for (int k = 0; k < 3; ++k)
                    ASSERT_NEAR(got[i][k], corners[i][k], tolerance)
                        << name << " corner " << i << " axis " << k;
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
        for (int i = 0; i < 2; ++i) {
            QdxMesh* mesh = makeMesh();
            _shared.push_back({mesh, randomValues()});
        }
        fill(scene->GetRootNode(), 0);
    }

private:
    struct Values {
        QdxDouble3 t, r, s;
        QdxVector4 rotationPivot, rotationOffset, scalingPivot, scalingOffset, pre, post;
        EQdxRotationOrder order;
    };
    struct Shared {
        QdxMesh* mesh;
        Values values;
    };

    double u(double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(_rng); }
    QdxVector4 v(double lo, double hi) { return QdxVector4(u(lo, hi), u(lo, hi), u(lo, hi)); }
    QdxDouble3 d3(double lo, double hi) { return QdxDouble3(u(lo, hi), u(lo, hi), u(lo, hi)); }

    Values randomValues() {
        return Values{d3(-10, 10), QdxDouble3(u(-180, 180), u(-80, 80), u(-180, 180)),
                      d3(0.5, 2),  v(-2, 2),
                      v(-2, 2),    v(-2, 2),
                      v(-2, 2),    v(-90, 90),
                      v(-90, 90),  static_cast<EQdxRotationOrder>(_rng() % 6)};
    }

    void apply(QdxNode* n, const Values& x) {
        const auto S = QdxNode::eSourcePivot;
        n->SetRotationActive(true);
        n->SetTransformationInheritType(eInheritRSrs);
        n->LclTranslation.Set(x.t);
        n->LclRotation.Set(x.r);
        n->LclScaling.Set(x.s);
        n->SetRotationPivot(S, x.rotationPivot);
        n->SetRotationOffset(S, x.rotationOffset);
        n->SetScalingPivot(S, x.scalingPivot);
        n->SetScalingOffset(S, x.scalingOffset);
        n->SetPreRotation(S, x.pre);
        n->SetPostRotation(S, x.post);
        n->SetRotationOrder(S, x.order);
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
                apply(n, _rng() % 2 ? shared.values : randomValues());
                n->SetNodeAttribute(shared.mesh);
                continue;
            }
            apply(n, randomValues());
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

INSTANTIATE_TEST_SUITE_P(HostUnitsAndAxes, WorldSpace,
                         ::testing::Values(HostSetting{1, 1}, HostSetting{2, 1}, HostSetting{4, 1},
                                           HostSetting{1, 0}, HostSetting{2, 0},
                                           HostSetting{4, 0}));

} // namespace
