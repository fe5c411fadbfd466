// Object model behaviour that the formats and the plug-in rely on.
#include <algorithm>
#include <gtest/gtest.h>

#include <random>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
class ObjectModel : public ::testing::Test {
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
        // Polygon ranges of every length read the same corners, in order.
        const int polygons = mesh->GetPolygonCount();
        for (int step = 1; step <= polygons + 1; ++step) {
            size_t from = 0;
            for (int first = 0; first < polygons; first += step) {
                std::vector<T> part;
                std::vector<uint8_t> partUnmapped;
                ASSERT_EQ(
                    e->GetPolygonVertexValues(*mesh, first, step, part, &partUnmapped, reversed),
                    maps);
                ASSERT_LE(from + part.size(), values.size());
                ASSERT_EQ(partUnmapped.size(), part.size());
                for (size_t i = 0; i < part.size(); ++i, ++from) {
                    EXPECT_TRUE(Same(part[i], values[from]));
                    EXPECT_EQ(partUnmapped[i], unmapped[from]);
                }
            }
            EXPECT_EQ(from, values.size());
        }
        const bool every =
            std::find(unmapped.begin(), unmapped.end(), uint8_t(1)) == unmapped.end();
        EXPECT_EQ(e->MapsEveryCorner(*mesh), every);
    }
    // Ranges of the direct array, and ranges that leave it.
    const auto& direct = e->GetDirectArray();
    const int count = direct.GetCount();
    std::vector<T> range;
    for (int first = 0; first <= count; ++first) {
        ASSERT_TRUE(direct.GetRange(first, count - first, range));
        ASSERT_EQ(range.size(), static_cast<size_t>(count - first));
        for (int i = first; i < count; ++i)
            EXPECT_TRUE(Same(range[static_cast<size_t>(i - first)], direct.GetAt(i)));
    }
    EXPECT_FALSE(direct.GetRange(-1, 1, range));
    EXPECT_FALSE(direct.GetRange(0, count + 1, range));
    EXPECT_FALSE(direct.GetRange(count + 1, 0, range));
    EXPECT_TRUE(range.empty());
}
} // namespace

TEST_F(ObjectModel, ConnectionsAndCriteria) {
    QdxNode* root = scene->GetRootNode();
    ASSERT_NE(root, nullptr);
    EXPECT_STREQ(root->GetName(), "RootNode");
    QdxNode* a = QdxNode::Create(scene, "a");
    QdxNode* b = QdxNode::Create(scene, "b");
    root->AddChild(a);
    a->AddChild(b);
    EXPECT_FALSE(b->AddChild(a)); // no cycles
    EXPECT_EQ(root->GetChildCount(true), 2);
    QdxSurfacePhong* phong = QdxSurfacePhong::Create(scene, "p");
    QdxSurfaceLambert* lambert = QdxSurfaceLambert::Create(scene, "l");
    EXPECT_EQ(a->AddMaterial(phong), 0);
    EXPECT_EQ(a->AddMaterial(lambert), 1);
    EXPECT_EQ(a->GetMaterial(1), lambert);
    EXPECT_EQ(a->GetSrcObjectCount(QdxCriteria::ObjectType(QdxSurfaceMaterial::ClassId)), 2);
    EXPECT_EQ(a->GetSrcObjectCount(QdxCriteria::ObjectTypeStrict(QdxSurfaceLambert::ClassId)), 1);
    EXPECT_TRUE(QdxSurfacePhong::ClassId.Is(QdxSurfaceMaterial::ClassId));
    EXPECT_FALSE(QdxSurfaceMaterial::ClassId.Is(QdxSurfacePhong::ClassId));
    QdxFileTexture* tex = QdxFileTexture::Create(scene, "t");
    QdxProperty diffuse = phong->FindProperty(QdxSurfaceMaterial::sDiffuse);
    ASSERT_TRUE(diffuse.IsValid());
    diffuse.ConnectSrcObject(tex);
    EXPECT_EQ(diffuse.GetSrcObject<QdxTexture>(0), tex);
    tex->Destroy();
    EXPECT_EQ(diffuse.GetSrcObjectCount(), 0);
    QdxMesh* mesh = QdxMesh::Create(scene, "m");
    a->SetNodeAttribute(mesh);
    b->SetNodeAttribute(mesh);
    EXPECT_EQ(mesh->GetNodeCount(), 2);
    EXPECT_EQ(b->GetMesh(), mesh);
    EXPECT_EQ(b->GetCamera(), nullptr);
    EXPECT_EQ(mesh->GetAttributeType(), 4);
}

TEST_F(ObjectModel, TypedQueriesFollowEveryChangeOfTheSources) {
    // The typed query keeps its hits across appends; removals, other classes
    // and other criteria in between must never leave it stale.
    QdxNode* parent = QdxNode::Create(scene, "parent");
    std::vector<QdxNode*> expected;
    std::mt19937 random(7);
    const auto check = [&] {
        ASSERT_EQ(parent->GetChildCount(), static_cast<int>(expected.size()));
        for (size_t i = 0; i < expected.size(); ++i)
            ASSERT_EQ(parent->GetChild(static_cast<int>(i)), expected[i]) << i;
    };
    for (int step = 0; step < 400; ++step) {
        switch (random() % 5) {
        case 0:
        case 1: {
            QdxNode* child = QdxNode::Create(scene, "c");
            ASSERT_TRUE(parent->AddChild(child));
            expected.push_back(child);
            break;
        }
        case 2:
            if (!expected.empty()) {
                const size_t at = random() % expected.size();
                ASSERT_EQ(parent->RemoveChild(expected[at]), expected[at]);
                expected.erase(expected.begin() + static_cast<long>(at));
            }
            break;
        case 3: // a source of another class, and a query with other criteria
            parent->ConnectSrcObject(QdxSurfacePhong::Create(scene, "m"));
            (void)parent->GetSrcObjectCount(QdxCriteria::ObjectType(QdxSurfaceMaterial::ClassId));
            break;
        default:
            break;
        }
        check();
    }
}

TEST_F(ObjectModel, PropertiesFlagsAndWalk) {
    QdxNode* n = QdxNode::Create(scene, "n");
    QdxProperty p = QdxProperty::Create(n, QdxColor3DT, "Tint");
    EXPECT_TRUE(p.Is(QdxColor3DT));
    EXPECT_FALSE(p.Is(QdxDouble3DT));
    EXPECT_FALSE(QdxProperty::Create(n, QdxIntDT, "Tint").IsValid());
    EXPECT_TRUE(p.ModifyFlag(QdxPropertyFlags::eUserDefined, true));
    EXPECT_TRUE(p.GetFlag(QdxPropertyFlags::eUserDefined));
    EXPECT_TRUE(p.Set(QdxColor(0.1, 0.2, 0.3)));
    EXPECT_EQ(p.Get<QdxDouble3>()[2], 0.3);
    EXPECT_FALSE(p.Set(std::string("no")));
    QdxProperty e = QdxProperty::Create(n, QdxEnumDT, "E");
    e.AddEnumValue("a");
    e.AddEnumValue("b");
    EXPECT_EQ(e.GetEnumCount(), 2);
    EXPECT_TRUE(e.Set(1.7));
    EXPECT_EQ(e.Get<int>(), 1);
    int userDefined = 0, total = 0;
    for (QdxProperty q = n->RootProperty.GetFirstDescendent(); q.IsValid();
         q = n->RootProperty.GetNextDescendent(q), ++total)
        userDefined += q.GetFlag(QdxPropertyFlags::eUserDefined);
    EXPECT_EQ(userDefined, 1);
    EXPECT_EQ(total, n->GetPropertyCount());
    EXPECT_EQ(n->FindProperty("lcl translation", false).GetName(), QdxString("Lcl Translation"));
}

TEST_F(ObjectModel, MeshLayersAndCornerQueries) {
    QdxMesh* mesh = QdxMesh::Create(scene, "m");
    mesh->InitControlPoints(4);
    QdxLayerElementUV* uv = mesh->CreateElementUV("map1");
    uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    uv->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    uv->GetDirectArray().Add(QdxVector2(0.5, 0.25));
    mesh->BeginPolygon();
    mesh->AddPolygon(0, 0);
    mesh->AddPolygon(1, 0);
    mesh->AddPolygon(2);
    mesh->EndPolygon();
    uv->GetIndexArray().Add(-1);
    EXPECT_EQ(mesh->GetPolygonCount(), 1);
    EXPECT_EQ(mesh->GetPolygonSize(0), 3);
    EXPECT_EQ(mesh->GetPolygonVertex(0, 2), 2);
    EXPECT_EQ(mesh->GetPolygonVertex(0, 3), -1);
    EXPECT_EQ(mesh->GetPolygonVertex(1, 0), -1);
    QdxVector2 v;
    bool unmapped = true;
    EXPECT_TRUE(mesh->GetPolygonVertexUV(0, 1, "map1", v, unmapped));
    EXPECT_FALSE(unmapped);
    EXPECT_EQ(v[0], 0.5);
    EXPECT_TRUE(mesh->GetPolygonVertexUV(0, 2, "map1", v, unmapped));
    EXPECT_TRUE(unmapped);
    EXPECT_EQ(mesh->GetTextureUVIndex(0, 0), 0);
    QdxStringList names;
    mesh->GetUVSetNames(names);
    ASSERT_EQ(names.GetCount(), 1);
    EXPECT_EQ(names[0], QdxString("map1"));
    QdxLayerElementArrayTemplate<QdxVector2>* arr = nullptr;
    EXPECT_TRUE(mesh->GetTextureUV(&arr, QdxLayerElement::eTextureDiffuse));
    EXPECT_EQ(arr->GetCount(), 1);
    EXPECT_EQ(arr->GetAt(7)[0], 0.0); // out of range reads are harmless
    QdxLayerElementArrayTemplate<int>* mats = nullptr;
    EXPECT_FALSE(mesh->GetMaterialIndices(&mats));
}

TEST_F(ObjectModel, NurbsKnotCountsFollowTypes) {
    QdxNurbsSurface* s = QdxNurbsSurface::Create(scene, "s");
    s->SetOrder(4, 3);
    s->InitControlPoints(6, QdxNurbsSurface::ePeriodic, 4, QdxNurbsSurface::eClosed);
    EXPECT_EQ(s->GetUKnotCount() - s->GetUOrder(), 6 + 3);
    EXPECT_EQ(s->GetVKnotCount() - s->GetVOrder(), 4 + 1);
    EXPECT_EQ(s->GetControlPointsCount(), 24);
    EXPECT_FALSE(s->IsRational());
    QdxNurbsCurve* c = QdxNurbsCurve::Create(scene, "c");
    c->SetOrder(4);
    c->InitControlPoints(5, QdxNurbsCurve::eOpen);
    EXPECT_EQ(c->GetKnotCount(), 9);
    QdxTrimNurbsSurface* t = QdxTrimNurbsSurface::Create(scene, "t");
    t->SetNurbsSurface(s);
    EXPECT_EQ(t->GetControlPointsCount(), 24);
    EXPECT_EQ(t->GetBoundary(0, 3), nullptr);
}

TEST_F(ObjectModel, DestroyingTheSceneFreesEverything) {
    int before = manager->GetObjectCount();
    QdxScene* other = QdxScene::Create(manager, "other");
    QdxNode* n = QdxNode::Create(other, "n");
    other->GetRootNode()->AddChild(n);
    n->SetNodeAttribute(QdxMesh::Create(other, "m"));
    other->ForceKill();
    EXPECT_EQ(manager->GetObjectCount(), before);
}

// The bulk corner values and the per-corner calls agree on every corner,
// whatever the modes and however bad the indices.
TEST_F(ObjectModel, BulkAndPerCornerLookupsAgreeForEveryMode) {
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

TEST_F(ObjectModel, CornersWithoutValues) {
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

// Every data type gets a default of its own storage, converts numbers the
// documented way and animates with as many channels as it has components.
TEST_F(ObjectModel, EveryDataTypeHasAMatchingDefaultConversionsAndChannels) {
    struct Case {
        const QdxDataType& type;
        int channels; // 0: cannot be animated
    };
    const Case cases[] = {{QdxBoolDT, 1},      {QdxIntDT, 1},      {QdxFloatDT, 1},
                          {QdxDoubleDT, 1},    {QdxDouble2DT, 2},  {QdxDouble3DT, 3},
                          {QdxDouble4DT, 4},   {QdxColor3DT, 3},   {QdxColor4DT, 4},
                          {QdxDouble4x4DT, 0}, {QdxStringDT, 0},   {QdxStringListDT, 0},
                          {QdxDateTimeDT, 0},  {QdxLongLongDT, 1}, {QdxEnumDT, 1},
                          {QdxTimeDT, 1},      {QdxReferenceDT, 0}};
    QdxNode* n = QdxNode::Create(scene, "n");
    QdxAnimStack* stack = QdxAnimStack::Create(scene, "stack");
    QdxAnimLayer* layer = QdxAnimLayer::Create(scene, "layer");
    stack->ConnectSrcObject(layer);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.type.GetName());
        EXPECT_TRUE(QdxDataType::FromName(c.type.GetName()).Is(c.type));
        QdxProperty p = QdxProperty::Create(n, c.type, c.type.GetName());
        ASSERT_TRUE(p.IsValid());
        EXPECT_EQ(p.RawValue()->index(), detail::StorageIndex(c.type.GetType()));
        EXPECT_EQ(*p.RawValue(), detail::DefaultValue(c.type.GetType()));
        QdxAnimCurveNode* cn = p.GetCurveNode(layer, true);
        EXPECT_EQ(cn ? static_cast<int>(cn->GetChannelsCount()) : 0, c.channels);
        bool scalar = c.channels == 1;
        EXPECT_EQ(p.Set(2.75), scalar);
        if (scalar)
            EXPECT_EQ(p.Get<double>(), c.type.Is(QdxBoolDT)                              ? 1.0
                                       : c.type.Is(QdxFloatDT) || c.type.Is(QdxDoubleDT) ? 2.75
                                                                                         : 2.0);
        else
            EXPECT_EQ(p.Get<int>(), 0);
    }
    // Large integers stay exact through the integer alternatives.
    QdxProperty big = QdxProperty::Create(n, QdxLongLongDT, "Big");
    ASSERT_TRUE(big.Set((1LL << 60) + 1));
    EXPECT_EQ(big.Get<long long>(), (1LL << 60) + 1);
}

TEST_F(ObjectModel, ReleasedArraysFreeStorageButKeepSharedElements) {
    QdxMesh* mesh = QdxMesh::Create(scene, "m");
    QdxMesh* other = QdxMesh::Create(scene, "other");
    mesh->InitControlPoints(3);
    mesh->BeginPolygon();
    for (int i = 0; i < 3; ++i)
        mesh->AddPolygon(i);
    mesh->EndPolygon();
    QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    normals->GetDirectArray().Add(QdxVector4(0, 0, 1, 0));
    QdxLayerElementUV* shared = mesh->CreateElementUV("map1");
    shared->GetDirectArray().Add(QdxVector2(0.5, 0.25));
    ASSERT_TRUE(other->ConnectSrcObject(shared));

    mesh->ReleaseArrays();
    EXPECT_EQ(mesh->GetControlPointsCount(), 0);
    EXPECT_EQ(mesh->GetPolygonCount(), 0);
    EXPECT_EQ(mesh->GetPolygonVertexCount(), 0);
    for (const auto& a : mesh->Arrays())
        EXPECT_EQ(a.Data(), nullptr) << a.name << " keeps its storage";
    // The element of this mesh alone is emptied but stays in its layer; the
    // one another geometry also uses keeps its values.
    ASSERT_EQ(mesh->GetElementNormal(), normals);
    EXPECT_EQ(normals->GetDirectArray().GetCount(), 0);
    EXPECT_EQ(shared->GetDirectArray().GetCount(), 1);
    // The emptied mesh takes new data like a fresh one.
    mesh->InitControlPoints(2);
    EXPECT_EQ(mesh->GetControlPointsCount(), 2);
}
