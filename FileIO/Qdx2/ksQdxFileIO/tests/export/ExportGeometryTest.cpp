// Geometry export: meshes with normals, UV sets and occlusion colours,
// geometry that cannot become a mesh, NURBS and trimmed surfaces.
#include "ExportTestUtil.h"

using namespace exporttest;
using qdxsdk::QdxLayerElement;

namespace {

class ExportGeometry : public ::testing::Test {
protected:
    void SetUp() override { resetHost(); }
    void TearDown() override { resetHost(); }
    TempDir dir;
};

TEST_F(ExportGeometry, MeshCarriesPointsNormalsAndUVSlots) {
    ksSceneDataManager::getSceneData(0)->setLengthUnit(ksSceneData::Meter);
    auto geometry = makeQuad({0, 2});
    const std::string file = dir.file("mesh.qdx");
    ASSERT_TRUE(ksQdxWriter::write(makeGroup("Root", {makeNode(geometry, "Quad")}), file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;
    qdxsdk::QdxMesh* mesh = back.find("Quad")->GetMesh();
    ASSERT_NE(mesh, nullptr);

    const auto& positions = osg::GeoPositions3fPtr::dcast(geometry->getPositions())->getField();
    const auto& normals = osg::GeoNormals3fPtr::dcast(geometry->getNormals())->getField();
    ASSERT_EQ(mesh->GetControlPointsCount(), 4);
    auto* normalElement = mesh->GetLayer(0)->GetNormals();
    ASSERT_NE(normalElement, nullptr);
    EXPECT_EQ(normalElement->GetMappingMode(), QdxLayerElement::eByControlPoint);
    for (int i = 0; i < 4; ++i) {
        qdxsdk::QdxVector4 p = mesh->GetControlPointAt(i);
        qdxsdk::QdxVector4 n = normalElement->GetDirectArray().GetAt(i);
        for (int k = 0; k < 3; ++k) {
            EXPECT_DOUBLE_EQ(p[k], positions[size_t(i)][k] * 100.0);
            EXPECT_DOUBLE_EQ(n[k], normals[size_t(i)][k]);
        }
    }

    ASSERT_EQ(mesh->GetPolygonCount(), 2);
    const int expected[2][3] = {{0, 1, 2}, {0, 2, 3}};
    for (int p = 0; p < 2; ++p)
        for (int k = 0; k < 3; ++k)
            EXPECT_EQ(mesh->GetPolygonVertex(p, k), expected[p][k]);
    auto* materials = mesh->GetLayer(0)->GetMaterials();
    ASSERT_NE(materials, nullptr);
    EXPECT_EQ(materials->GetMappingMode(), QdxLayerElement::eAllSame);
    EXPECT_EQ(materials->GetIndexArray().GetAt(0), 0);

    ASSERT_GE(mesh->GetLayerCount(), 3);
    EXPECT_EQ(mesh->GetLayer(1)->GetUVs(), nullptr);
    const std::pair<int, const char*> sets[] = {{0, "Material UV Set"}, {2, "UV Set 3"}};
    for (const auto& [layer, name] : sets) {
        auto* uv = mesh->GetLayer(layer)->GetUVs(QdxLayerElement::eTextureDiffuse);
        ASSERT_NE(uv, nullptr) << name;
        EXPECT_STREQ(uv->GetName(), name);
        for (int i = 0; i < 4; ++i) {
            EXPECT_DOUBLE_EQ(uv->GetDirectArray().GetAt(i)[0], positions[size_t(i)][0] + layer);
            EXPECT_DOUBLE_EQ(uv->GetDirectArray().GetAt(i)[1], positions[size_t(i)][1]);
        }
    }
}

// Normals and UVs with an index of their own are gathered per position.
TEST_F(ExportGeometry, SeparatelyIndexedPropertiesFollowThePositions) {
    auto geometry = makeQuad({});
    auto normals = osg::GeoNormals3f::create();
    normals->setValues({{0, 0, -1}, {0, 0, 1}});
    auto uv = osg::GeoTexCoords3f::create();
    uv->setValues({{0.5f, 0.25f, 9}, {0.75f, 1, 9}});
    geometry->setNormals(normals);
    geometry->setTexSlot(uv, 1);
    auto indices = osg::GeoIndicesUI32::create();
    // position, normal, uv per corner
    indices->setValues({0, 1, 0, 1, 1, 0, 2, 1, 1, 0, 1, 0, 2, 1, 1, 3, 1, 1});
    geometry->setIndices(indices);
    geometry->setIndexMapping({osg::MapPosition, osg::MapNormal, osg::MapTexCoords1});

    const std::string file = dir.file("indexed.qdx");
    ASSERT_TRUE(ksQdxWriter::write(makeGroup("Root", {makeNode(geometry, "G")}), file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;
    qdxsdk::QdxMesh* mesh = back.find("G")->GetMesh();
    ASSERT_NE(mesh, nullptr);
    auto* n = mesh->GetLayer(0)->GetNormals();
    auto* t = mesh->GetLayer(1)->GetUVs();
    ASSERT_TRUE(n && t);
    EXPECT_STREQ(t->GetName(), "Lightmap UV Set");
    const double u[4] = {0.5, 0.5, 0.75, 0.75};
    for (int i = 0; i < 4; ++i) {
        EXPECT_DOUBLE_EQ(n->GetDirectArray().GetAt(i)[2], 1.0) << i;
        EXPECT_DOUBLE_EQ(t->GetDirectArray().GetAt(i)[0], u[i]) << i;
    }
}

TEST_F(ExportGeometry, OcclusionColoursOnlyWhenAskedAndPresent) {
    auto withColours = makeQuad();
    auto occlusion = osg::GeoTexCoords4f::create();
    occlusion->setValues(
        {{0.1f, 0.2f, 0.3f, 1}, {1, 1, 1, 0.5f}, {0, 0, 0, 0}, {0.5f, 0.5f, 0.5f, 1}});
    withColours->setTexCoords7(occlusion);
    withColours->editIndexMapping()[0] |= osg::MapTexCoords7;
    auto root = makeGroup("Root", {makeNode(withColours, "AO"), makeNode(makeQuad(), "Plain")});

    for (const char* options :
         {"qdx_export_vertex_colors=true", "", "qdx_export_vertex_colors=0"}) {
        SCOPED_TRACE(options);
        const std::string file = dir.file("ao.qdx");
        ASSERT_TRUE(ksQdxWriter::write(root, file, options));
        ReadBack back(file);
        ASSERT_TRUE(back.ok) << back.error;
        EXPECT_EQ(back.find("Plain")->GetMesh()->GetLayer(0)->GetVertexColors(), nullptr);
        auto* colours = back.find("AO")->GetMesh()->GetLayer(0)->GetVertexColors();
        if (std::string(options) != "qdx_export_vertex_colors=true") {
            EXPECT_EQ(colours, nullptr);
            continue;
        }
        ASSERT_NE(colours, nullptr);
        EXPECT_STREQ(colours->GetName(), "AmbientOcclusionData");
        qdxsdk::QdxColor c = colours->GetDirectArray().GetAt(1);
        EXPECT_FLOAT_EQ(float(c.mRed), 1.f);
        EXPECT_FLOAT_EQ(float(c.mAlpha), 0.5f);
        EXPECT_FLOAT_EQ(float(colours->GetDirectArray().GetAt(0).mBlue), 0.3f);
    }
}

TEST_F(ExportGeometry, GeometryWithoutTrianglesBecomesAPlainNode) {
    auto twoPoints = makeQuad();
    osg::GeoPositions3fPtr::dcast(twoPoints->getPositions())->setValues({{0, 0, 0}, {1, 0, 0}});
    auto lines = makeQuad();
    auto types = osg::GeoPTypesUI8::create();
    types->setValues({osg::PrimLines});
    lines->setTypes(types);
    auto badIndex = makeQuad();
    osg::GeoIndicesUI32Ptr::dcast(badIndex->getIndices())->setValues({0, 1, 9, 0, 2, 3});

    const std::string file = dir.file("degenerate.qdx");
    ASSERT_TRUE(
        ksQdxWriter::write(makeGroup("Root", {makeNode(twoPoints, "Two"), makeNode(lines, "Lines"),
                                              makeNode(badIndex, "Bad")}),
                           file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;
    EXPECT_EQ(back.find("Two")->GetNodeAttribute(), nullptr);
    EXPECT_EQ(back.find("Lines")->GetNodeAttribute(), nullptr);
    // A triangle naming a missing position is dropped, the rest is kept.
    ASSERT_NE(back.find("Bad")->GetMesh(), nullptr);
    EXPECT_EQ(back.find("Bad")->GetMesh()->GetPolygonCount(), 1);
}

// A rational bi-quadratic/linear surface with two trim loops, in a
// centimetre scene so that the numbers stay readable.
TEST_F(ExportGeometry, SurfacesKeepOrdersKnotsPointsAndTrimLoops) {
    ksSceneDataManager::getSceneData(0)->setLengthUnit(ksSceneData::Centimeter);
    auto surface = osg::Surface::create();
    surface->setDimU(2);
    surface->setDimV(1);
    surface->setKnotsU({0, 0, 0, 1, 1, 1});
    surface->setKnotsV({0, 0, 1, 1});
    auto cps = osg::GeoPositions4f::create();
    // (u, v) at u * 2 + v, homogeneous
    for (int u = 0; u < 3; ++u)
        for (int v = 0; v < 2; ++v) {
            float w = (u == 1) ? 0.5f : 1.f;
            cps->push_back(osg::Vec4f(float(u) * w, float(v) * w, float(u * v) * w, w));
        }
    surface->setControlPoints(cps);
    auto untrimmed = osg::SurfacePtr::dcast(surface->shallowCopy());
    surface->addCurve(1, {0, 0, 1, 1}, {{0.1f, 0.1f, 1}, {0.9f, 0.1f, 1}}, true);
    surface->addCurve(2, {0, 0, 0, 1, 1, 1}, {{0.9f, 0.1f, 1}, {1.0f, 1.0f, 2}, {0.1f, 0.1f, 1}},
                      false);
    surface->addCurve(1, {0, 0, 1, 1}, {{0.4f, 0.4f, 1}, {0.6f, 0.6f, 1}}, true);

    const std::string file = dir.file("surfaces.qdx");
    ASSERT_TRUE(ksQdxWriter::write(
        makeGroup("Root", {makeNode(surface, "Trimmed"), makeNode(untrimmed, "Plain")}), file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;

    qdxsdk::QdxNurbsSurface* plain = back.find("Plain")->GetNurbsSurface();
    qdxsdk::QdxTrimNurbsSurface* trimmed = back.find("Trimmed")->GetTrimNurbsSurface();
    ASSERT_TRUE(plain && trimmed);
    ASSERT_NE(trimmed->GetNurbsSurface(), nullptr);
    for (qdxsdk::QdxNurbsSurface* n : {plain, trimmed->GetNurbsSurface()}) {
        EXPECT_EQ(n->GetUOrder(), 3);
        EXPECT_EQ(n->GetVOrder(), 2);
        ASSERT_EQ(n->GetUCount(), 3);
        ASSERT_EQ(n->GetVCount(), 2);
        ASSERT_EQ(n->GetUKnotCount(), 6);
        EXPECT_DOUBLE_EQ(n->GetUKnotVector()[3], 1.0);
        // U runs fastest; points are Euclidean with their weight.
        qdxsdk::QdxVector4 p = n->GetControlPointAt(1 * 3 + 1);
        EXPECT_DOUBLE_EQ(p[0], 1.0);
        EXPECT_DOUBLE_EQ(p[1], 1.0);
        EXPECT_DOUBLE_EQ(p[2], 1.0);
        EXPECT_DOUBLE_EQ(p[3], 0.5);
        EXPECT_DOUBLE_EQ(n->GetControlPointAt(2)[0], 2.0);
    }

    ASSERT_EQ(trimmed->GetBoundaryCount(), 2);
    ASSERT_EQ(trimmed->GetBoundary(0)->GetCurveCount(), 2);
    ASSERT_EQ(trimmed->GetBoundary(1)->GetCurveCount(), 1);
    qdxsdk::QdxNurbsCurve* quadratic = trimmed->GetBoundary(0)->GetCurve(1);
    EXPECT_EQ(quadratic->GetOrder(), 3);
    EXPECT_EQ(quadratic->GetDimension(), qdxsdk::QdxNurbsCurve::e2D);
    ASSERT_EQ(quadratic->GetControlPointsCount(), 3);
    ASSERT_EQ(quadratic->GetKnotCount(), 6);
    EXPECT_DOUBLE_EQ(quadratic->GetKnotVector()[5], 1.0);
    qdxsdk::QdxVector4 p = quadratic->GetControlPointAt(1);
    EXPECT_DOUBLE_EQ(p[0], 0.5);
    EXPECT_DOUBLE_EQ(p[1], 0.5);
    EXPECT_DOUBLE_EQ(p[2], 0.0);
    EXPECT_DOUBLE_EQ(p[3], 2.0);
    EXPECT_NEAR(trimmed->GetBoundary(1)->GetCurve(0)->GetControlPointAt(1)[0], 0.6, 1e-6);
}

} // namespace
