// Object model behaviour that the formats and the plug-in rely on.
#include <gtest/gtest.h>

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
