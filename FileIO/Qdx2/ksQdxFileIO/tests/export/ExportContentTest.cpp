// What the converters write, read back with the SDK: nodes and transforms,
// meshes, surfaces, materials and textures.
#include <kestrel/ksLights.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>

#include "TestKit.h"
#include "ksQdxWriter.h"

using namespace qdxtest;
using qdxsdk::QdxLayerElement;
using qdxsdk::QdxSurfaceMaterial;
using qdxsdk::QdxVector4;
namespace fs = std::filesystem;

namespace {

using ExportContent = PluginTest;

TEST_F(ExportContent, HierarchyVisibilitySwitchesAndSkippedNodes) {
    auto sw = osg::Switch::create();
    sw->setChoice(1);
    auto none = osg::Switch::create();
    auto hidden = makeGroup("Hidden", {makeGroup("UnderHidden", {})});
    hidden->setTraversalMask(0xFFFFFFFEu);
    auto light = ksLights::createLight("PointLight", "Lamp");
    light->addChild(makeNode(osg::Transform::create(), "LightTransforms", {makeGroup("H", {})}));
    auto root = makeGroup(
        "Root",
        {makeNode(sw, "Sw", {makeGroup("c0", {}), makeGroup("c1", {}), makeGroup("c2", {})}),
         makeNode(none, "None", {makeGroup("n0", {})}), hidden, light,
         makeNode(osg::NodeCorePtr(), "NoCore", {makeGroup("UnderNoCore", {})})});
    ASSERT_TRUE(exportTo(root, file("n.qdx")));
    ReadBack back(file("n.qdx"));
    ASSERT_TRUE(back.ok);
    ASSERT_EQ(back.root()->GetChildCount(), 4);
    EXPECT_STREQ(back.root()->GetChild(2)->GetName(), "Hidden");
    for (auto [name, visible] : {std::pair{"c0", false},
                                 {"c1", true},
                                 {"c2", false},
                                 {"n0", false},
                                 {"Hidden", false},
                                 {"UnderHidden", true}}) {
        ASSERT_NE(back[name], nullptr) << name;
        EXPECT_EQ(back[name]->GetVisibility(), visible) << name;
    }
    EXPECT_EQ(back["Lamp"]->GetChildCount(), 0);
    EXPECT_EQ(back["UnderNoCore"], nullptr);
}

// Every transform kind, nested, in a metre scene: the SDK's world matrix of
// each node maps points as the host's does, in centimetres.
TEST_F(ExportContent, WorldSpacePlacementSurvives) {
    setUnit(ksSceneData::Meter);
    osg::Matrix plain = osg::Matrix::translation(osg::Vec3f(1, -2, 0.5f));
    plain.mult(osg::Matrix::rotation(osg::Quaternion::fromAxisDeg(osg::Vec3f(0, 0, 1), 30)));
    plain.mult(osg::Matrix::scale(osg::Vec3f(2, 2, 2)));
    auto matrixCore = osg::Transform::create();
    matrixCore->setMatrix(plain);
    auto pivoted = osg::Transform3D::create();
    pivoted->setTranslation(osg::Vec3f(3, 0, 1));
    pivoted->setEulerRotation(osg::Vec3f(10, 20, 30));
    pivoted->setScale(osg::Vec3f(1, 2, 3));
    pivoted->setRotatePivot(osg::Vec3f(0.5f, 0.25f, 0));
    pivoted->setScalePivot(osg::Vec3f(-1, 0, 2));
    pivoted->setRotatePivotTranslation(osg::Vec3f(0.1f, 0.2f, 0.3f));
    pivoted->setScalePivotTranslation(osg::Vec3f(0.3f, 0, -0.2f));
    pivoted->setEulerRotationOrientation(osg::Vec3f(0, 45, 90));
    auto geometry = makeQuad();
    auto own = osg::Transform3D::create();
    own->setTranslation(osg::Vec3f(0, 0, 4));
    own->setEulerRotation(osg::Vec3f(90, 0, 0));
    geometry->setTransform(own);
    auto root = makeGroup(
        "Root", {makeNode(matrixCore, "M", {makeNode(pivoted, "P", {makeNode(geometry, "G")})})});
    ASSERT_TRUE(exportTo(root, file("w.qdx")));
    ReadBack back(file("w.qdx"));
    ASSERT_TRUE(back.ok);
    for (const char* name : {"M", "P", "G"}) {
        osg::Matrix world = ksNodeUtils::findNode(root, name)->getWorldMatrix();
        qdxsdk::QdxAMatrix exported = back[name]->EvaluateGlobalTransform();
        for (const osg::Vec3f& p : {osg::Vec3f(0, 0, 0), osg::Vec3f(1, 0, 0), osg::Vec3f(0, 1, 0),
                                    osg::Vec3f(0.3f, -0.7f, 2)}) {
            QdxVector4 got = exported.MultT(QdxVector4(p[0] * 100, p[1] * 100, p[2] * 100));
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(got[k], world.multPnt(p)[k] * 100, 1e-3) << name;
        }
    }
    EXPECT_DOUBLE_EQ(back["G"]->GetMesh()->GetControlPointAt(2)[1], 2000.0);
}

TEST_F(ExportContent, MeshLayersAndSharing) {
    auto quad = makeQuad({0, 2});
    auto occlusion = osg::GeoTexCoords4f::create();
    occlusion->setValues({{0.1f, 0.2f, 0.3f, 1}, {1, 1, 1, 0.5f}, {0, 0, 0, 0}, {1, 1, 1, 1}});
    quad->setTexCoords7(occlusion);
    quad->editIndexMapping()[0] |= osg::MapTexCoords7;
    // Normals and UVs with an index of their own are gathered per position.
    auto indexed = makeQuad({});
    auto normals = osg::GeoNormals3f::create();
    normals->setValues({{0, 0, -1}, {0, 0, 1}});
    auto uv = osg::GeoTexCoords3f::create();
    uv->setValues({{0.5f, 0.25f, 9}, {0.75f, 1, 9}});
    indexed->setNormals(normals);
    indexed->setTexSlot(uv, 1);
    auto indices = osg::GeoIndicesUI32::create();
    indices->setValues({0, 1, 0, 1, 1, 0, 2, 1, 1, 0, 1, 0, 2, 1, 1, 3, 1, 1}); // pos, normal, uv
    indexed->setIndices(indices);
    indexed->setIndexMapping({osg::MapPosition, osg::MapNormal, osg::MapTexCoords1});
    // Nothing to write as a mesh: too few points, lines only; a triangle
    // naming a missing position is dropped.
    auto twoPoints = makeQuad();
    osg::GeoPositions3fPtr::dcast(twoPoints->getPositions())->setValues({{0, 0, 0}, {1, 0, 0}});
    auto lines = makeQuad();
    osg::GeoPTypesUI8Ptr::dcast(lines->getTypes())->setValues({osg::PrimLines});
    auto bad = makeQuad();
    osg::GeoIndicesUI32Ptr::dcast(bad->getIndices())->setValues({0, 1, 9, 0, 2, 3});
    auto root = makeGroup("Root", {makeNode(quad, "A"), makeNode(quad, "B"), makeNode(indexed, "I"),
                                   makeNode(twoPoints, "Two"), makeNode(lines, "Lines"),
                                   makeNode(bad, "Bad")});

    setUnit(ksSceneData::Meter);
    for (bool colours : {true, false}) {
        ASSERT_TRUE(exportTo(root, file("m.qdx"), colours ? "qdx_export_vertex_colors=1" : ""));
        ReadBack back(file("m.qdx"));
        ASSERT_TRUE(back.ok);
        qdxsdk::QdxMesh* mesh = back["A"]->GetMesh();
        ASSERT_NE(mesh, nullptr);
        EXPECT_EQ(mesh, back["B"]->GetMesh());
        EXPECT_EQ(back["I"]->GetMesh()->GetLayer(0)->GetVertexColors(), nullptr);
        auto* ao = mesh->GetLayer(0)->GetVertexColors();
        ASSERT_EQ(ao != nullptr, colours);
        if (!colours) continue;
        EXPECT_STREQ(ao->GetName(), "AmbientOcclusionData");
        EXPECT_FLOAT_EQ(float(ao->GetDirectArray().GetAt(1).mAlpha), 0.5f);

        EXPECT_DOUBLE_EQ(mesh->GetControlPointAt(2)[1], 2000.0);
        EXPECT_DOUBLE_EQ(mesh->GetLayer(0)->GetNormals()->GetDirectArray().GetAt(3)[1],
                         double(0.8f));
        ASSERT_EQ(mesh->GetPolygonCount(), 2);
        EXPECT_EQ(mesh->GetPolygonVertex(1, 2), 3);
        EXPECT_EQ(mesh->GetLayer(0)->GetMaterials()->GetMappingMode(), QdxLayerElement::eAllSame);
        EXPECT_EQ(mesh->GetLayer(1)->GetUVs(), nullptr);
        EXPECT_STREQ(mesh->GetLayer(0)->GetUVs()->GetName(), "Material UV Set");
        EXPECT_STREQ(mesh->GetLayer(2)->GetUVs()->GetName(), "UV Set 3");
        EXPECT_DOUBLE_EQ(mesh->GetLayer(2)->GetUVs()->GetDirectArray().GetAt(1)[0], 12.0);

        qdxsdk::QdxMesh* gathered = back["I"]->GetMesh();
        const double u[4] = {0.5, 0.5, 0.75, 0.75};
        for (int i = 0; i < 4; ++i) {
            EXPECT_EQ(gathered->GetLayer(0)->GetNormals()->GetDirectArray().GetAt(i)[2], 1.0);
            EXPECT_EQ(gathered->GetLayer(1)->GetUVs()->GetDirectArray().GetAt(i)[0], u[i]);
        }
        EXPECT_EQ(back["Two"]->GetNodeAttribute(), nullptr);
        EXPECT_EQ(back["Lines"]->GetNodeAttribute(), nullptr);
        EXPECT_EQ(back["Bad"]->GetMesh()->GetPolygonCount(), 1);
    }
}

// Strips and fans make more corners than the stream has vertices: every
// triangle is written, in order and with the winding the host gives it.
TEST_F(ExportContent, StripsAndFansBecomeTrianglesInOrder) {
    auto g = makeQuad();
    osg::GeoPTypesUI8Ptr::dcast(g->getTypes())
        ->setValues({osg::PrimTriangleStrip, osg::PrimTriangleFan});
    osg::GeoPLengthsUI32Ptr::dcast(g->getLengths())->setValues({6, 5});
    osg::GeoIndicesUI32Ptr::dcast(g->getIndices())->setValues({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
    std::vector<osg::Vec3f> points, normals;
    for (int i = 0; i < 11; ++i) {
        points.emplace_back(float(i), float(i % 2), 0);
        normals.emplace_back(0, 0, 1);
    }
    osg::GeoPositions3fPtr::dcast(g->getPositions())->setValues(points);
    osg::GeoNormals3fPtr::dcast(g->getNormals())->setValues(normals);
    setUnit(ksSceneData::Centimeter);
    ASSERT_TRUE(exportTo(makeGroup("Root", {makeNode(g, "S")}), file("s.qdx")));
    ReadBack back(file("s.qdx"));
    ASSERT_TRUE(back.ok);
    qdxsdk::QdxMesh* mesh = back["S"]->GetMesh();
    ASSERT_NE(mesh, nullptr);
    const int expected[7][3] = {{0, 1, 2}, {2, 1, 3}, {2, 3, 4}, {4, 3, 5},
                                {6, 7, 8}, {6, 8, 9}, {6, 9, 10}};
    ASSERT_EQ(mesh->GetPolygonCount(), 7);
    ASSERT_EQ(mesh->GetPolygonVertexCount(), 21);
    for (int p = 0; p < 7; ++p) {
        ASSERT_EQ(mesh->GetPolygonSize(p), 3);
        for (int c = 0; c < 3; ++c)
            EXPECT_EQ(mesh->GetPolygonVertex(p, c), expected[p][c]) << p << " " << c;
    }
}

TEST_F(ExportContent, SurfacesKeepOrdersKnotsPointsAndTrimLoops) {
    setUnit(ksSceneData::Centimeter);
    auto surface = osg::Surface::create();
    surface->setDimU(2);
    surface->setDimV(1);
    surface->setKnotsU({0, 0, 0, 1, 1, 1});
    surface->setKnotsV({0, 0, 1, 1});
    auto cps = osg::GeoPositions4f::create();
    for (int u = 0; u < 3; ++u) // homogeneous, V running fastest
        for (int v = 0; v < 2; ++v) {
            float w = u == 1 ? 0.5f : 1.f;
            cps->push_back(osg::Vec4f(float(u) * w, float(v) * w, float(u * v) * w, w));
        }
    surface->setControlPoints(cps);
    auto untrimmed = osg::SurfacePtr::dcast(surface->shallowCopy());
    surface->addCurve(1, {0, 0, 1, 1}, {{0.1f, 0.1f, 1}, {0.9f, 0.1f, 1}}, true);
    surface->addCurve(2, {0, 0, 0, 1, 1, 1}, {{0.9f, 0.1f, 1}, {1, 1, 2}, {0.1f, 0.1f, 1}}, false);
    surface->addCurve(1, {0, 0, 1, 1}, {{0.4f, 0.4f, 1}, {0.6f, 0.6f, 1}}, true);
    ASSERT_TRUE(exportTo(makeGroup("Root", {makeNode(surface, "T1"), makeNode(surface, "T2"),
                                            makeNode(untrimmed, "Plain")}),
                         file("s.qdx")));
    ReadBack back(file("s.qdx"));
    ASSERT_TRUE(back.ok);
    qdxsdk::QdxTrimNurbsSurface* trimmed = back["T1"]->GetTrimNurbsSurface();
    ASSERT_TRUE(trimmed && back["Plain"]->GetNurbsSurface());
    EXPECT_EQ(trimmed, back["T2"]->GetTrimNurbsSurface());
    for (qdxsdk::QdxNurbsSurface* n :
         {back["Plain"]->GetNurbsSurface(), trimmed->GetNurbsSurface()}) {
        ASSERT_NE(n, nullptr);
        EXPECT_EQ(std::pair(n->GetUOrder(), n->GetVOrder()), std::pair(3, 2));
        ASSERT_EQ(std::pair(n->GetUCount(), n->GetVCount()), std::pair(3, 2));
        EXPECT_EQ(n->GetUKnotVector()[3], 1.0);
        EXPECT_EQ(n->GetControlPointAt(4), QdxVector4(1, 1, 1, 0.5)); // U runs fastest
        EXPECT_EQ(n->GetControlPointAt(2)[0], 2.0);
    }
    ASSERT_EQ(trimmed->GetBoundaryCount(), 2);
    ASSERT_EQ(trimmed->GetBoundary(0)->GetCurveCount(), 2);
    EXPECT_EQ(trimmed->GetBoundary(1)->GetCurveCount(), 1);
    qdxsdk::QdxNurbsCurve* quadratic = trimmed->GetBoundary(0)->GetCurve(1);
    EXPECT_EQ(quadratic->GetOrder(), 3);
    ASSERT_EQ(quadratic->GetKnotCount(), 6);
    EXPECT_EQ(quadratic->GetControlPointAt(1), QdxVector4(0.5, 0.5, 0, 2));
}

TEST_F(ExportContent, MaterialsAreSharedAndTexturesWrittenBesideTheFile) {
    auto image = [&](const std::string& name) {
        auto img = osg::Image::create();
        const osg::UInt8 pixels[12] = {255, 0, 0, 0, 255, 0, 0, 0, 255, 9, 9, 9};
        img->set(2, 2, 3, osg::Image::UInt8Type, pixels);
        fs::create_directories(file("maps"));
        img->write(file("maps/" + name)); // the image now bears that path
        return img;
    };
    auto plastic = osg::UPlasticMaterial::create();
    plastic->setName("Paint");
    plastic->setDiffuseColor(osg::Color3f(0.5f, 0.25f, 1.f));
    plastic->setIncandescenceColor(osg::Color4f(0.5f, 0.25f, 0.f, 2.f));
    plastic->setColorMap(image("wood.png"));
    plastic->setUseColorTexture(true);
    plastic->getDiffuseComponentSettings()->setRepeat(osg::Vec2f(2, 2));
    plastic->setSpecularMap(image("unused.png")); // switched off: not written
    auto see = plastic->getTransparencyComponentSettings();
    see->setImage(image("mask.png"));
    see->setUseTexture(true);
    see->setOffset(osg::Vec2f(0.25f, 0));
    auto chunk = osg::MaterialChunk::create();
    chunk->setDiffuse(osg::Color4f(0.1f, 0.2f, 0.3f, 1));
    chunk->setShininess(64.f);
    auto classic = osg::ChunkMaterial::create();
    classic->addChunk(chunk);
    auto brdf = osg::UBRDFMaterial::create();
    brdf->setName("Brdf");
    brdf->setDiffuseColor(osg::Color3f(1, 0, 0));
    auto mesh = [](const osg::MaterialPtr& m, const std::string& name) {
        auto g = makeQuad();
        g->setMaterial(m);
        return makeNode(g, name);
    };
    const std::string out = file("out/scene.qdx");
    fs::create_directories(file("out"));
    ASSERT_TRUE(
        exportTo(makeGroup("Root", {mesh(plastic, "A"), mesh(plastic, "B"), mesh(classic, "C"),
                                    mesh(osg::ChunkMaterial::create(), "E"), mesh(brdf, "R")}),
                 out));
    ReadBack back(out);
    ASSERT_TRUE(back.ok);
    auto colour = [](QdxSurfaceMaterial* m, const char* name, int k) {
        return m->FindProperty(name).Get<qdxsdk::QdxDouble3>()[k];
    };
    QdxSurfaceMaterial* paint = back["A"]->GetMaterial(0);
    ASSERT_NE(paint, nullptr);
    EXPECT_EQ(paint, back["B"]->GetMaterial(0));
    EXPECT_EQ(back.scene->GetMaterialCount(), 3);
    EXPECT_EQ(colour(paint, QdxSurfaceMaterial::sDiffuse, 1), 0.25);
    EXPECT_EQ(colour(paint, QdxSurfaceMaterial::sEmissive, 0), 1.0);
    EXPECT_EQ(back["A"]->GetShadingMode(), qdxsdk::QdxNode::eTextureShading);
    auto* wood =
        paint->FindProperty(QdxSurfaceMaterial::sDiffuse).GetSrcObject<qdxsdk::QdxFileTexture>();
    auto* mask = paint->FindProperty(QdxSurfaceMaterial::sTransparentColor)
                     .GetSrcObject<qdxsdk::QdxFileTexture>();
    ASSERT_TRUE(wood && mask);
    EXPECT_EQ(paint->FindProperty(QdxSurfaceMaterial::sTransparencyFactor).Get<double>(), 1.0);
    EXPECT_EQ(fs::path(wood->GetFileName()), fs::path(file("out/Textures/wood.png")));
    EXPECT_EQ(wood->GetScaleU(), 2.0);
    EXPECT_EQ(wood->GetTranslationU(), -0.5);
    EXPECT_EQ(mask->GetTranslationU(), -0.25);
    auto written = osg::Image::create();
    ASSERT_TRUE(written->read(wood->GetFileName()));
    EXPECT_EQ(written->getPixels()[4], 255);
    EXPECT_TRUE(fs::exists(file("out/Textures/mask.png")));
    EXPECT_FALSE(fs::exists(file("out/Textures/unused.png")));

    EXPECT_FLOAT_EQ(float(colour(back["C"]->GetMaterial(0), QdxSurfaceMaterial::sDiffuse, 2)),
                    0.3f);
    EXPECT_EQ(back["C"]->GetMaterial(0)->FindProperty(QdxSurfaceMaterial::sShininess).Get<double>(),
              64.0);
    EXPECT_EQ(back["E"]->GetMaterialCount(), 0);
    EXPECT_STREQ(back["R"]->GetMaterial(0)->GetName(), "Brdf"); // a name only
    EXPECT_NE(colour(back["R"]->GetMaterial(0), QdxSurfaceMaterial::sDiffuse, 0), 1.0);
}

} // namespace
