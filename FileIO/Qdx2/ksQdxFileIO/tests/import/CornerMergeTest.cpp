// Per-corner meshes without deformers are merged while they are built; a
// mesh with a deformer is built a vertex per corner and merged afterwards.
// Both must give the same geometry, byte for byte.
#include <cstring>
#include <random>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class CornerMergeTest : public PluginTest {};

struct MeshShape {
    unsigned seed = 1;
    int polygons = 4096 * 2 + 37; // the last block part-full
    int uvSets = 2;
    bool unmappedCorner = false; // one UV corner without a value
};

// The values of a layer element from a few distinct ones, so that many
// corners are equal; by control point, by polygon vertex, directly or
// through an index.
template <class Element, class Value>
void fillElement(Element* e, QdxLayerElement::EMappingMode mapping, bool indexed, int entries,
                 std::mt19937& rng, Value (*make)(int)) {
    e->SetMappingMode(mapping);
    e->SetReferenceMode(indexed ? QdxLayerElement::eIndexToDirect : QdxLayerElement::eDirect);
    const int distinct = indexed ? 5 : entries;
    for (int i = 0; i < distinct; ++i)
        e->GetDirectArray().Add(make(static_cast<int>(rng() % 3)));
    if (indexed)
        for (int i = 0; i < entries; ++i)
            e->GetIndexArray().Add(static_cast<int>(rng() % 5));
}

// A seeded random mesh: control points on a small lattice (several at one
// position, some at exactly zero), polygons of three to five corners, a
// few corners at no control point, and normals, colours and UV sets in the
// layouts the seed picks.
void buildMesh(QdxScene* s, const char* name, const MeshShape& shape, bool withDeformer) {
    std::mt19937 rng(shape.seed);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    const int pointCount = 3000;
    std::vector<QdxVector4> points;
    for (int i = 0; i < pointCount; ++i)
        points.emplace_back(pick(30) * 0.5, pick(30) * 0.25, pick(3) == 0 ? 0.0 : 1.0);
    std::vector<std::vector<int>> polygons;
    for (int p = 0; p < shape.polygons; ++p) {
        polygons.emplace_back();
        for (int c = 3 + pick(3); c > 0; --c)
            polygons.back().push_back(pick(pointCount));
    }
    QdxMesh* mesh = addMesh(s, s->GetRootNode(), name, points, polygons)->GetMesh();
    const int corners = mesh->GetPolygonVertexCount();
    for (int k = 0; k < 20; ++k)
        mesh->GetPolygonVertices()[pick(corners)] = pointCount + pick(4);

    // Normals: none, by control point, or by corner (direct or indexed).
    const int normalLayout = static_cast<int>(shape.seed % 4);
    if (normalLayout > 0) {
        const bool perPoint = normalLayout == 1;
        fillElement(
            mesh->CreateElementNormal(),
            perPoint ? QdxLayerElement::eByControlPoint : QdxLayerElement::eByPolygonVertex,
            normalLayout == 3, perPoint ? pointCount : corners, rng,
            +[](int v) { return QdxVector4(0, v, 1 - v, 0); });
    }
    // Colours by control point, all of them or fewer (which also keeps the
    // mesh out of the control-point layout).
    const bool fullColours = normalLayout >= 2 && shape.seed % 2 == 0;
    fillElement(
        mesh->CreateElementVertexColor(), QdxLayerElement::eByControlPoint, false,
        fullColours ? pointCount : pointCount - 700, rng,
        +[](int v) { return QdxColor(v, 0.5, 0.25, 1); });
    // The first UV set by corner; the others by corner or by control point.
    for (int t = 0; t < shape.uvSets; ++t) {
        const std::string setName = "uv" + std::to_string(t);
        const bool perPoint = t > 0 && pick(2) == 0;
        QdxLayerElementUV* uv = mesh->CreateElementUV(setName.c_str());
        fillElement(
            uv, perPoint ? QdxLayerElement::eByControlPoint : QdxLayerElement::eByPolygonVertex,
            pick(2) == 0, perPoint ? pointCount : corners, rng,
            +[](int v) { return QdxVector2(v, v * 0.5); });
        if (t == 0 && shape.unmappedCorner) {
            uv->SetReferenceMode(QdxLayerElement::eIndexToDirect);
            uv->GetIndexArray().Clear();
            for (int i = 0; i < corners; ++i)
                uv->GetIndexArray().Add(i == corners / 2 ? -1
                                                         : i % uv->GetDirectArray().GetCount());
        }
    }
    // A skin without clusters changes nothing but the way the mesh is built.
    if (withDeformer) mesh->AddDeformer(QdxSkin::Create(s, ""));
}

void expectSameBytes(const osg::GeoPropertyPtr& a, const osg::GeoPropertyPtr& b,
                     const std::string& what) {
    ASSERT_EQ(bool(a), bool(b)) << what;
    if (!a) return;
    ASSERT_EQ(a->size(), b->size()) << what;
    ASSERT_EQ(a->getElementSize(), b->getElementSize()) << what;
    EXPECT_EQ(std::memcmp(a->getData(), b->getData(), std::size_t(a->size()) * a->getElementSize()),
              0)
        << what;
}

void expectSameGeometry(const osg::GeometryPtr& a, const osg::GeometryPtr& b) {
    ASSERT_TRUE(a && b);
    expectSameBytes(a->getTypes(), b->getTypes(), "types");
    expectSameBytes(a->getLengths(), b->getLengths(), "lengths");
    expectSameBytes(a->getIndices(), b->getIndices(), "index");
    expectSameBytes(a->getPositions(), b->getPositions(), "positions");
    expectSameBytes(a->getNormals(), b->getNormals(), "normals");
    for (osg::UInt32 slot = 0; slot < osg::Geometry::MaxTexSlots; ++slot)
        expectSameBytes(a->getTexSlot(slot), b->getTexSlot(slot), "slot " + std::to_string(slot));
    EXPECT_EQ(a->getIndexMapping(), b->getIndexMapping());
}

TEST_F(CornerMergeTest, MergedWhileBuiltEqualsMergedAfterwards) {
    for (unsigned seed = 1; seed <= 6; ++seed) {
        SCOPED_TRACE(seed);
        MeshShape shape;
        shape.seed = seed;
        shape.uvSets = seed % 3 == 0 ? 3 : 2;
        if (seed == 4) shape.polygons = 4096 * 2; // ends on a block boundary
        // "abc" files read per-corner UVs last corner first.
        const std::string fileName = seed % 2 ? "mesh.abc" : "mesh.qdx";
        Imported r = import(writeScene(fileName, [&](QdxScene* s) {
            buildMesh(s, "Merged", shape, false);
            buildMesh(s, "Afterwards", shape, true);
        }));
        ASSERT_TRUE(r.root);
        auto merged = r.geometry("Merged");
        expectSameGeometry(merged, r.geometry("Afterwards"));
        ASSERT_TRUE(merged);
        // Equal corners did merge.
        EXPECT_LT(merged->getPositions()->size(), merged->getIndices()->size());
    }
}

// A UV set that leaves a corner without a value is shorter than the
// positions; such a mesh keeps a vertex per corner, unmerged.
TEST_F(CornerMergeTest, UnmappedUVCornerKeepsAVertexPerCorner) {
    MeshShape shape;
    shape.seed = 2;
    shape.polygons = 300;
    shape.unmappedCorner = true;
    Imported r = import(writeScene("unmapped.qdx", [&](QdxScene* s) {
        buildMesh(s, "Merged", shape, false);
        buildMesh(s, "Afterwards", shape, true);
    }));
    ASSERT_TRUE(r.root);
    auto g = r.geometry("Merged");
    expectSameGeometry(g, r.geometry("Afterwards"));
    ASSERT_TRUE(g && g->getTexSlot(0));
    EXPECT_EQ(g->getPositions()->size(), g->getIndices()->size());
    EXPECT_EQ(g->getTexSlot(0)->size() + 1, g->getIndices()->size());
}

} // namespace
