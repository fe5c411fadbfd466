// Mesh corner lookups: the bulk per-corner values and the per-corner calls
// must agree on every corner, whatever the element's modes and however bad
// its indices.
#include <gtest/gtest.h>

#include <random>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
class Geometry : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "scene");
    }
    void TearDown() override { manager->Destroy(); }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
};

const QdxLayerElement::EMappingMode kMappings[] = {QdxLayerElement::eNone,
                                                   QdxLayerElement::eByControlPoint,
                                                   QdxLayerElement::eByPolygonVertex,
                                                   QdxLayerElement::eByPolygon,
                                                   QdxLayerElement::eByEdge,
                                                   QdxLayerElement::eAllSame};
const QdxLayerElement::EReferenceMode kReferences[] = {
    QdxLayerElement::eDirect, QdxLayerElement::eIndex, QdxLayerElement::eIndexToDirect};

// A random mesh with `points` control points; corners may name control
// points that do not exist.
QdxMesh* RandomMesh(QdxScene* scene, std::mt19937& rng, int points) {
    QdxMesh* mesh = QdxMesh::Create(scene, "m");
    mesh->InitControlPoints(points);
    const int polygons = std::uniform_int_distribution<int>(0, 6)(rng);
    for (int p = 0; p < polygons; ++p) {
        mesh->BeginPolygon();
        const int size = std::uniform_int_distribution<int>(1, 5)(rng);
        for (int c = 0; c < size; ++c)
            mesh->AddPolygon(std::uniform_int_distribution<int>(-1, points + 1)(rng));
        mesh->EndPolygon();
    }
    return mesh;
}

// Direct values are distinct, so a wrong index shows as a wrong value;
// index entries include negatives and entries past the direct array.
template <class E, class T> void FillRandom(E* e, std::mt19937& rng, T (*make)(int)) {
    const int direct = std::uniform_int_distribution<int>(0, 8)(rng);
    for (int i = 0; i < direct; ++i)
        e->GetDirectArray().Add(make(i));
    const int index = std::uniform_int_distribution<int>(0, 20)(rng);
    for (int i = 0; i < index; ++i)
        e->GetIndexArray().Add(std::uniform_int_distribution<int>(-2, direct + 2)(rng));
}

QdxVector2 MakeUV(int i) {
    return QdxVector2(i + 1, -i);
}
QdxVector4 MakeNormal(int i) {
    return QdxVector4(i + 1, 0, -i, 0);
}
QdxColor MakeColor(int i) {
    return QdxColor(i + 1, 0.5, -i, 0.25);
}

// What a corner should read, worked out from the modes directly.
template <class E> int ExpectedDirectIndex(const E* e, const QdxMesh* mesh, int p, int c) {
    int i = -1;
    switch (e->GetMappingMode()) {
    case QdxLayerElement::eByControlPoint:
        i = mesh->GetPolygonVertex(p, c);
        break;
    case QdxLayerElement::eByPolygonVertex:
        i = mesh->GetPolygonVertexIndex(p) + c;
        break;
    case QdxLayerElement::eByPolygon:
        i = p;
        break;
    case QdxLayerElement::eAllSame:
        i = 0;
        break;
    default:
        return -1;
    }
    if (e->GetReferenceMode() != QdxLayerElement::eDirect) {
        const auto& index = e->GetIndexArray();
        if (i < 0 || i >= index.GetCount()) return -1;
        i = index.GetInts()[i];
    }
    return i >= 0 && i < e->GetDirectArray().GetCount() ? i : -1;
}

bool Same(const QdxVector2& a, const QdxVector2& b) {
    return a[0] == b[0] && a[1] == b[1];
}
bool Same(const QdxVector4& a, const QdxVector4& b) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2] && a[3] == b[3];
}
bool Same(const QdxColor& a, const QdxColor& b) {
    return a.mRed == b.mRed && a.mGreen == b.mGreen && a.mBlue == b.mBlue && a.mAlpha == b.mAlpha;
}

// Checks the bulk values, forwards and reversed, against the expected
// index and against the mesh's per-corner call `single`.
template <class E, class T, class Single>
void CheckAgreement(const QdxMesh* mesh, const E* e, T (*make)(int), Single single) {
    const bool maps = e->MapsPolygonVertices();
    for (bool reversed : {false, true}) {
        std::vector<T> values;
        std::vector<uint8_t> unmapped;
        ASSERT_EQ(e->GetPolygonVertexValues(*mesh, values, &unmapped, reversed), maps);
        ASSERT_EQ(values.size(), static_cast<size_t>(mesh->GetPolygonVertexCount()));
        ASSERT_EQ(unmapped.size(), values.size());
        size_t at = 0;
        for (int p = 0; p < mesh->GetPolygonCount(); ++p) {
            const int size = mesh->GetPolygonSize(p);
            for (int k = 0; k < size; ++k, ++at) {
                const int c = reversed ? size - 1 - k : k;
                const int expected = ExpectedDirectIndex(e, mesh, p, c);
                SCOPED_TRACE(::testing::Message()
                             << "polygon " << p << " corner " << c << " mapping "
                             << e->GetMappingMode() << " reference " << e->GetReferenceMode());
                EXPECT_EQ(unmapped[at], expected < 0 ? 1 : 0);
                EXPECT_TRUE(Same(values[at], expected < 0 ? T() : make(expected)));
                T one;
                EXPECT_EQ(single(p, c, one), expected >= 0);
                EXPECT_TRUE(Same(one, values[at]));
            }
        }
    }
}
} // namespace

TEST_F(Geometry, BulkAndPerCornerLookupsAgreeForEveryMode) {
    std::mt19937 rng(1234);
    for (int round = 0; round < 40; ++round) {
        const int points = std::uniform_int_distribution<int>(0, 6)(rng);
        for (auto mapping : kMappings)
            for (auto reference : kReferences) {
                QdxMesh* mesh = RandomMesh(scene, rng, points);
                QdxLayerElementUV* uv = mesh->CreateElementUV("uv");
                QdxLayerElementNormal* normal = mesh->CreateElementNormal();
                QdxLayerElementVertexColor* color = mesh->CreateElementVertexColor();
                for (QdxLayerElement* e :
                     {static_cast<QdxLayerElement*>(uv), static_cast<QdxLayerElement*>(normal),
                      static_cast<QdxLayerElement*>(color)}) {
                    e->SetMappingMode(mapping);
                    e->SetReferenceMode(reference);
                }
                FillRandom(uv, rng, MakeUV);
                FillRandom(normal, rng, MakeNormal);
                FillRandom(color, rng, MakeColor);
                CheckAgreement(mesh, uv, MakeUV, [&](int p, int c, QdxVector2& v) {
                    bool unmapped = false;
                    const bool found = mesh->GetPolygonVertexUV(p, c, "uv", v, unmapped);
                    EXPECT_EQ(found, uv->MapsPolygonVertices());
                    return !unmapped;
                });
                CheckAgreement(mesh, normal, MakeNormal, [&](int p, int c, QdxVector4& n) {
                    return mesh->GetPolygonVertexNormal(p, c, n);
                });
                CheckAgreement(mesh, color, MakeColor, [&](int p, int c, QdxColor& k) {
                    return mesh->GetPolygonVertexColor(p, c, k);
                });
                mesh->Destroy();
            }
    }
}

TEST_F(Geometry, CornersWithoutValues) {
    QdxMesh* mesh = QdxMesh::Create(scene, "m");
    mesh->InitControlPoints(3);
    const int sizes[] = {3};
    const int corners[] = {0, 1, 2};
    mesh->AddPolygons(sizes, 1, corners);

    // No normal element: false and a zero normal, which callers may still use.
    QdxVector4 n(9, 9, 9, 9);
    EXPECT_FALSE(mesh->GetPolygonVertexNormal(0, 0, n));
    EXPECT_TRUE(Same(n, QdxVector4(0, 0, 0, 0)));

    // An index past the UV data: unmapped with UV (0, 0).
    QdxLayerElementUV* uv = mesh->CreateElementUV("uv");
    uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    uv->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    uv->GetDirectArray().Add(QdxVector2(0.5, 0.75));
    for (int i : {0, 5, -3})
        uv->GetIndexArray().Add(i);
    QdxVector2 v(9, 9);
    bool unmapped = true;
    EXPECT_TRUE(mesh->GetPolygonVertexUV(0, 0, "uv", v, unmapped));
    EXPECT_FALSE(unmapped);
    EXPECT_TRUE(Same(v, QdxVector2(0.5, 0.75)));
    for (int c : {1, 2, 3, -1}) {
        v = QdxVector2(9, 9);
        EXPECT_TRUE(mesh->GetPolygonVertexUV(0, c, "uv", v, unmapped));
        EXPECT_TRUE(unmapped);
        EXPECT_TRUE(Same(v, QdxVector2(0, 0)));
    }
    EXPECT_EQ(mesh->GetTextureUVIndex(0, 1), 5); // the stored index, unchecked
    EXPECT_FALSE(mesh->GetPolygonVertexUV(0, 0, "other", v, unmapped));
    EXPECT_TRUE(unmapped);

    // A normal element whose data runs out: per-corner false, still zero.
    QdxLayerElementNormal* normal = mesh->CreateElementNormal();
    normal->SetMappingMode(QdxLayerElement::eByControlPoint);
    normal->GetDirectArray().Add(QdxVector4(0, 0, 1, 0));
    EXPECT_TRUE(mesh->GetPolygonVertexNormal(0, 0, n));
    EXPECT_TRUE(Same(n, QdxVector4(0, 0, 1, 0)));
    EXPECT_FALSE(mesh->GetPolygonVertexNormal(0, 1, n));
    EXPECT_TRUE(Same(n, QdxVector4(0, 0, 0, 0)));

    // Reversed corners read the polygon last to first; without the unmapped
    // vector the call still fills every corner.
    std::vector<QdxVector2> values;
    EXPECT_TRUE(uv->GetPolygonVertexValues(*mesh, values, nullptr, true));
    ASSERT_EQ(values.size(), 3u);
    EXPECT_TRUE(Same(values[2], QdxVector2(0.5, 0.75)));
    EXPECT_TRUE(Same(values[0], QdxVector2(0, 0)));

    // Edge mapping cannot be resolved per corner.
    uv->SetMappingMode(QdxLayerElement::eByEdge);
    std::vector<uint8_t> flags;
    EXPECT_FALSE(uv->GetPolygonVertexValues(*mesh, values, &flags));
    EXPECT_EQ(flags, std::vector<uint8_t>(3, 1));
    EXPECT_FALSE(mesh->GetPolygonVertexUV(0, 0, "uv", v, unmapped));
}
