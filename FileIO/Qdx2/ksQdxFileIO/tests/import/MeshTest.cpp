// Mesh import: per-material split, UV slots, the two layouts, reversed UVs
// of "abc" files, vertex colours and positions in the host unit.
#include <kestrel/ksMaterials.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Transform.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class MeshTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ksSceneDataManager::getSceneData(0)->setLengthUnit(ksSceneData::Centimeter);
        ksSceneDataManager::getSceneData(0)->setUpAxis(ksSceneData::YUp);
    }
};

// Three quads side by side over eight control points.
std::vector<QdxVector4> stripPoints() {
    std::vector<QdxVector4> p;
    for (int x = 0; x <= 3; ++x) {
        p.emplace_back(x, 0, 0);
        p.emplace_back(x, 1, 0);
    }
    return p;
}
const std::vector<std::vector<int>> kStrip = {{0, 2, 3, 1}, {2, 4, 5, 3}, {4, 6, 7, 5}};

QdxSurfaceLambert* material(QdxScene* s, const char* name) {
    return QdxSurfaceLambert::Create(s, name);
}

void setMaterialIndices(QdxNode* node, std::initializer_list<int> indices) {
    QdxLayerElementMaterial* e = node->GetMesh()->CreateElementMaterial();
    e->SetMappingMode(indices.size() == 1 ? QdxLayerElement::eAllSame
                                          : QdxLayerElement::eByPolygon);
    e->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    for (int i : indices)
        e->GetIndexArray().Add(i);
}

// A UV set per polygon corner whose u is a tag and v counts the corners.
void cornerUVs(QdxMesh* mesh, const char* name, double tag) {
    QdxLayerElementUV* uv = mesh->CreateElementUV(name);
    uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    for (int i = 0; i < mesh->GetPolygonVertexCount(); ++i)
        uv->GetDirectArray().Add(QdxVector2(tag, i));
}

TEST_F(MeshTest, PolygonsAreSplitIntoOneChildPerMaterial) {
    Imported r = import(writeScene("split.qdx", [](QdxScene* s) {
        QdxNode* n = addMesh(s, s->GetRootNode(), "Body", stripPoints(), kStrip);
        for (const char* m : {"M0", "M1", "M2", "M3"})
            n->AddMaterial(material(s, m));
        setMaterialIndices(n, {0, 3, 0});
        QdxLayerElementVertexColor* colors = n->GetMesh()->CreateElementVertexColor();
        colors->SetMappingMode(QdxLayerElement::eByControlPoint);
        for (int i = 0; i < 8; ++i)
            colors->GetDirectArray().Add(QdxColor(1, 0, 0, 1));
    }));
    ASSERT_TRUE(r.root);
    osg::NodePtr group = r.node("Body");
    ASSERT_TRUE(group);
    EXPECT_TRUE(osg::Transform3DPtr::dcast(group->getCore()));
    ASSERT_EQ(group->getNChildren(), 2u);
    EXPECT_EQ(ksNodeUtils::getName(group->getChild(0)), "Body_mat_0");
    EXPECT_EQ(ksNodeUtils::getName(group->getChild(1)), "Body_mat_3");

    auto first = r.geometry("Body_mat_0"), second = r.geometry("Body_mat_3");
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->getLengths()->size(), 2u);
    EXPECT_EQ(second->getLengths()->size(), 1u);
    EXPECT_EQ(ksMaterials::getName(first->getMaterial()), "M0");
    EXPECT_EQ(ksMaterials::getName(second->getMaterial()), "M3");
    // Polygons 0 and 2 in order: the first corner of polygon 2 is at x = 2.
    auto positions = osg::GeoPositions3fPtr::dcast(first->getPositions());
    EXPECT_EQ(positions->getValue(4), osg::Pnt3f(2.f, 0.f, 0.f));
    // Vertex colours never reach the per-material children.
    EXPECT_FALSE(first->getTexSlot(7));
    EXPECT_EQ(first->getIndexMapping(),
              std::vector<osg::UInt16>{osg::MapPosition | osg::MapNormal});
}

TEST_F(MeshTest, FewerThanTwoMaterialEntriesGiveOneGeometryWithSlotZero) {
    Imported r = import(writeScene("single.qdx", [](QdxScene* s) {
        QdxNode* one = addMesh(s, s->GetRootNode(), "One", stripPoints(), kStrip);
        one->AddMaterial(material(s, "First"));
        one->AddMaterial(material(s, "Second"));
        setMaterialIndices(one, {1});
        QdxNode* none = addMesh(s, s->GetRootNode(), "None", stripPoints(), kStrip);
        none->AddMaterial(material(s, "Only"));
        QdxNode* zero = addMesh(s, s->GetRootNode(), "Zero", stripPoints(), kStrip);
        zero->AddMaterial(material(s, "Z"));
        setMaterialIndices(zero, {0, 0, 0});
    }));
    ASSERT_TRUE(r.root);
    ASSERT_TRUE(r.geometry("One"));
    EXPECT_EQ(ksMaterials::getName(r.geometry("One")->getMaterial()), "First");
    ASSERT_TRUE(r.geometry("None"));
    EXPECT_EQ(ksMaterials::getName(r.geometry("None")->getMaterial()), "Only");
    // Per polygon but one material only: a group with a single child.
    ASSERT_TRUE(r.node("Zero"));
    EXPECT_EQ(r.node("Zero")->getNChildren(), 1u);
    EXPECT_TRUE(r.geometry("Zero_mat_0"));
}

TEST_F(MeshTest, UVSetsTakeReservedSlotsThenTheSmallestFreeOne) {
    Imported r = import(writeScene("uvs.qdx", [](QdxScene* s) {
        QdxNode* a = addMesh(s, s->GetRootNode(), "Three", stripPoints(), kStrip);
        cornerUVs(a->GetMesh(), "map1", 1);
        cornerUVs(a->GetMesh(), "Lightmap UV Set", 2);
        cornerUVs(a->GetMesh(), "extra", 3);
        QdxNode* b = addMesh(s, s->GetRootNode(), "Six", stripPoints(), kStrip);
        int tag = 10;
        for (const char* name : {"a", "b", "UV Set 4", "c", "d", "e"})
            cornerUVs(b->GetMesh(), name, tag++);
    }));
    ASSERT_TRUE(r.root);
    auto three = r.geometry("Three");
    ASSERT_TRUE(three);
    const std::pair<osg::UInt32, float> expected[] = {{0, 1.f}, {1, 2.f}, {2, 3.f}};
    for (const auto& [slot, tag] : expected) {
        auto uv = osg::GeoTexCoords2fPtr::dcast(three->getTexSlot(slot));
        ASSERT_TRUE(uv) << slot;
        EXPECT_EQ(uv->size(), 12u);
        EXPECT_EQ(uv->getValue(5), osg::Vec2f(tag, 5.f)) << slot;
    }
    EXPECT_EQ(three->getIndexMapping()[0], osg::MapPosition | osg::MapNormal | osg::MapTexCoords |
                                               osg::MapTexCoords1 | osg::MapTexCoords2);

    // "UV Set 4" keeps slot 3; a, b, c, d fill 0, 1, 2, 4; e is dropped.
    auto six = r.geometry("Six");
    ASSERT_TRUE(six);
    const std::pair<osg::UInt32, float> slots[] = {
        {0, 10.f}, {1, 11.f}, {3, 12.f}, {2, 13.f}, {4, 14.f}};
    for (const auto& [slot, tag] : slots) {
        auto uv = osg::GeoTexCoords2fPtr::dcast(six->getTexSlot(slot));
        ASSERT_TRUE(uv) << slot;
        EXPECT_EQ(uv->getValue(0)[0], tag) << slot;
    }
    EXPECT_FALSE(six->getTexSlot(5));
    EXPECT_FALSE(six->getTexSlot(7));
}

TEST_F(MeshTest, ControlPointLayoutOnlyWithUVsPerControlPoint) {
    Imported r = import(writeScene("layouts.qdx", [](QdxScene* s) {
        // Normals per control point, no UVs: one vertex per corner.
        QdxNode* corners = addMesh(s, s->GetRootNode(), "Corners", stripPoints(), kStrip);
        QdxLayerElementNormal* normals = corners->GetMesh()->CreateElementNormal();
        normals->SetMappingMode(QdxLayerElement::eByControlPoint);
        for (int i = 0; i < 8; ++i)
            normals->GetDirectArray().Add(QdxVector4(0, 0, 1, 0));

        // UVs per control point and colours of the same count: shared
        // vertices, colours copied per control point.
        QdxNode* points = addMesh(s, s->GetRootNode(), "Points", stripPoints(), kStrip);
        QdxLayerElementUV* uv = points->GetMesh()->CreateElementUV("map1");
        uv->SetMappingMode(QdxLayerElement::eByControlPoint);
        QdxLayerElementVertexColor* colors = points->GetMesh()->CreateElementVertexColor();
        colors->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        for (int i = 0; i < 8; ++i) {
            uv->GetDirectArray().Add(QdxVector2(i, 0));
            colors->GetDirectArray().Add(QdxColor(i / 8.0, 0, 0, 1));
        }
    }));
    ASSERT_TRUE(r.root);
    auto corners = r.geometry("Corners");
    ASSERT_TRUE(corners);
    EXPECT_EQ(corners->getVertexCount(), 12u);
    EXPECT_EQ(corners->getNormals()->size(), corners->getPositions()->size());
    EXPECT_EQ(corners->getIndexMapping()[0], osg::MapPosition | osg::MapNormal);

    auto points = r.geometry("Points");
    ASSERT_TRUE(points);
    EXPECT_EQ(points->getPositions()->size(), 8u);
    EXPECT_EQ(points->getVertexCount(), 12u);
    auto colors = osg::GeoTexCoords4fPtr::dcast(points->getTexSlot(7));
    ASSERT_TRUE(colors);
    ASSERT_EQ(colors->size(), 8u);
    // Corner 1 of polygon 1 is control point 4: position, UV and colour agree.
    const osg::UInt32 v = points->getPropertyIndex(5, osg::MapPosition);
    EXPECT_EQ(v, 4u);
    EXPECT_EQ(colors->getValue(v), osg::Vec4f(0.5f, 0.f, 0.f, 1.f));
    EXPECT_EQ(osg::GeoTexCoords2fPtr::dcast(points->getTexSlot(0))->getValue(v),
              osg::Vec2f(4.f, 0.f));
    EXPECT_EQ(points->getIndexMapping()[0],
              osg::MapPosition | osg::MapTexCoords | osg::MapTexCoords7);
}

TEST_F(MeshTest, AbcFilesReverseTheCornerOrderOfUVsOnly) {
    const auto build = [](QdxScene* s) {
        QdxNode* n = addMesh(s, s->GetRootNode(), "Quad", quadPoints(), {{0, 1, 2, 3}});
        cornerUVs(n->GetMesh(), "map1", 0);
    };
    Imported abc = import(writeScene("quad.abc", build));
    Imported qdx = import(writeScene("quad.qdx", build));
    ASSERT_TRUE(abc.root && qdx.root);
    auto reversed = osg::GeoTexCoords2fPtr::dcast(abc.geometry("Quad")->getTexSlot(0));
    auto forward = osg::GeoTexCoords2fPtr::dcast(qdx.geometry("Quad")->getTexSlot(0));
    ASSERT_TRUE(reversed && forward);
    for (osg::UInt32 c = 0; c < 4; ++c) {
        EXPECT_EQ(forward->getValue(c)[1], float(c));
        EXPECT_EQ(reversed->getValue(c)[1], float(3 - c));
    }
    EXPECT_EQ(worldCorners(abc.node("Quad")), worldCorners(qdx.node("Quad")));
}

TEST_F(MeshTest, CornerLayoutCarriesColoursNormalsAndScaledPositions) {
    ksSceneDataManager::getSceneData(0)->setLengthUnit(ksSceneData::Millimeter);
    Imported r = import(writeScene("colours.qdx", [](QdxScene* s) {
        QdxNode* n = addMesh(s, s->GetRootNode(), "Quad", quadPoints(2), {{0, 1, 2, 3}});
        // An invalid corner becomes the origin.
        n->GetMesh()->GetPolygonVertices()[3] = 9;
        QdxLayerElementVertexColor* colors = n->GetMesh()->CreateElementVertexColor();
        colors->SetMappingMode(QdxLayerElement::eByControlPoint);
        for (int i = 0; i < 4; ++i)
            colors->GetDirectArray().Add(QdxColor(0.25 * i, 0.5, 1, 0.75));
        QdxLayerElementNormal* normals = n->GetMesh()->CreateElementNormal();
        normals->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        for (int i = 0; i < 4; ++i)
            normals->GetDirectArray().Add(QdxVector4(0, 0, 1, 0));
    }));
    ASSERT_TRUE(r.root);
    auto g = r.geometry("Quad");
    ASSERT_TRUE(g);
    EXPECT_EQ(g->getTypes()->getComponent(0, 0), 9.0);
    EXPECT_EQ(g->getLengths()->getComponent(0, 0), 4.0);
    auto positions = osg::GeoPositions3fPtr::dcast(g->getPositions());
    EXPECT_EQ(positions->getValue(g->getPropertyIndex(1, osg::MapPosition)),
              osg::Pnt3f(10.f, 0.f, 20.f));
    EXPECT_EQ(positions->getValue(g->getPropertyIndex(3, osg::MapPosition)),
              osg::Pnt3f(0.f, 0.f, 0.f));
    auto colors = osg::GeoTexCoords4fPtr::dcast(g->getTexSlot(7));
    ASSERT_TRUE(colors);
    EXPECT_EQ(colors->getValue(g->getPropertyIndex(2, osg::MapTexCoords7)),
              osg::Vec4f(0.5f, 0.5f, 1.f, 0.75f));
    EXPECT_EQ(g->getIndexMapping()[0], osg::MapPosition | osg::MapNormal | osg::MapTexCoords7);
}

// Every corner gets a normal, even from a mesh that has none, and a
// per-corner UV that the SDK finds unmapped (negative index or one past the
// values) takes no place in the UV property.
TEST_F(MeshTest, CornersWithoutNormalsOrMappedUVs) {
    Imported r = import(writeScene("corners.qdx", [](QdxScene* s) {
        addMesh(s, s->GetRootNode(), "Plain", stripPoints(), kStrip);
        QdxNode* split = addMesh(s, s->GetRootNode(), "Split", stripPoints(), kStrip);
        split->AddMaterial(material(s, "A"));
        split->AddMaterial(material(s, "B"));
        setMaterialIndices(split, {0, 1, 0});
        QdxLayerElementUV* uv = split->GetMesh()->CreateElementUV("map1");
        uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        uv->SetReferenceMode(QdxLayerElement::eIndexToDirect);
        for (int i = 0; i < 12; ++i) {
            uv->GetDirectArray().Add(QdxVector2(i, 0));
            uv->GetIndexArray().Add(i == 1 ? -1 : i == 5 ? 99 : i);
        }
    }));
    ASSERT_TRUE(r.root);
    auto plain = r.geometry("Plain");
    ASSERT_TRUE(plain && plain->getNormals());
    EXPECT_TRUE(plain->getIndexMapping()[0] & osg::MapNormal);
    EXPECT_EQ(plain->getNormals()->size(), plain->getPositions()->size());

    auto first = r.geometry("Split_mat_0"), second = r.geometry("Split_mat_1");
    ASSERT_TRUE(first && second && first->getNormals());
    EXPECT_EQ(first->getNormals()->size(), 8u);
    EXPECT_EQ(osg::GeoNormals3fPtr::dcast(first->getNormals())->getValue(3),
              osg::Vec3f(0.f, 0.f, 0.f));
    auto us = [](const osg::GeometryPtr& g) {
        std::vector<float> u;
        for (const osg::Vec2f& v : osg::GeoTexCoords2fPtr::dcast(g->getTexSlot(0))->getField())
            u.push_back(v[0]);
        return u;
    };
    EXPECT_EQ(us(first), (std::vector<float>{0, 2, 3, 8, 9, 10, 11}));
    EXPECT_EQ(us(second), (std::vector<float>{4, 6, 7}));
}

// Skin weights reach every vertex made from a weighted control point: each
// corner of the corner layout, and each per-material child on its own.
TEST_F(MeshTest, SkinWeightsFollowEveryCornerOfTheirControlPoint) {
    Imported r = import(writeScene("skin.qdx", [](QdxScene* s) {
        QdxNode* joint = QdxNode::Create(s, "Joint");
        s->GetRootNode()->AddChild(joint);
        auto skin = [&](QdxNode* node) {
            QdxSkin* deformer = QdxSkin::Create(s, "");
            QdxCluster* cluster = QdxCluster::Create(s, "");
            cluster->AddControlPointIndex(2, 0.5);
            cluster->SetLink(joint);
            deformer->AddCluster(cluster);
            node->GetMesh()->AddDeformer(deformer);
        };
        QdxNode* whole = addMesh(s, s->GetRootNode(), "Whole", stripPoints(), kStrip);
        cornerUVs(whole->GetMesh(), "map1", 1); // every corner distinct: nothing merges
        skin(whole);
        QdxNode* split = addMesh(s, s->GetRootNode(), "Split", stripPoints(), kStrip);
        split->AddMaterial(material(s, "A"));
        split->AddMaterial(material(s, "B"));
        setMaterialIndices(split, {0, 1, 0});
        skin(split);
    }));
    ASSERT_TRUE(r.root);
    osg::NodePtr joint = r.node("Joint");
    ASSERT_TRUE(joint);
    auto weights = [&](const char* name) {
        auto skin = r.geometry(name)->findAttachment<osg::SkinAttachment>();
        EXPECT_TRUE(skin && skin->getJoints().size() == 1u) << name;
        if (!skin || skin->getJoints().empty()) return std::vector<osg::IndexWeight>{};
        EXPECT_EQ(skin->getJoints()[0]->getNode(), joint) << name;
        return skin->getJoints()[0]->getWeights();
    };
    // Control point 2 is corner 1 of polygon 0 and corner 0 of polygon 1.
    const auto whole = weights("Whole");
    ASSERT_EQ(whole.size(), 2u);
    auto positions = osg::GeoPositions3fPtr::dcast(r.geometry("Whole")->getPositions());
    for (const osg::IndexWeight& w : whole) {
        EXPECT_EQ(positions->getValue(w.index), osg::Pnt3f(1.f, 0.f, 0.f));
        EXPECT_EQ(w.weight, 0.5f);
    }
    EXPECT_NE(whole[0].index, whole[1].index);
    EXPECT_EQ(weights("Split_mat_0"), (std::vector<osg::IndexWeight>{{1, 0.5f}}));
    EXPECT_EQ(weights("Split_mat_1"), (std::vector<osg::IndexWeight>{{0, 0.5f}}));
}

} // namespace
