// Node export: hierarchy, visibility, switches, skipped helper nodes,
// instancing, and world-space placement of every kind of transform.
#include <cmath>

#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>

#include "ExportTestUtil.h"

using namespace exporttest;

namespace {

class ExportNodes : public ::testing::Test {
protected:
    void SetUp() override { resetHost(); }
    void TearDown() override { resetHost(); }
    TempDir dir;
};

TEST_F(ExportNodes, HierarchyVisibilityAndSwitches) {
    auto choose = [](osg::Int32 choice) {
        auto sw = osg::Switch::create();
        sw->setChoice(choice);
        return sw;
    };
    auto hidden = makeGroup("Hidden", {makeGroup("UnderHidden", {})});
    hidden->setTraversalMask(0xFFFFFFFEu);
    auto light = ksLights::createLight("PointLight", "Lamp", osg::NodePtr());
    ASSERT_TRUE(light);
    light->addChild(
        makeNode(osg::Transform::create(), "LightTransforms", {makeGroup("UnderHelper", {})}));
    auto root = makeGroup(
        "Root", {makeNode(choose(1), "Sw1",
                          {makeGroup("c0", {}), makeGroup("c1", {}), makeGroup("c2", {})}),
                 makeNode(choose(osg::Switch::NONE), "SwNone", {makeGroup("n0", {})}), hidden,
                 light, makeNode(osg::NodeCorePtr(), "NoCore", {makeGroup("UnderNoCore", {})})});

    const std::string file = dir.file("nodes.qdx");
    ASSERT_TRUE(ksQdxWriter::write(root, file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;

    ASSERT_EQ(back.root()->GetChildCount(), 4);
    const char* order[] = {"Sw1", "SwNone", "Hidden", "Lamp"};
    for (int i = 0; i < 4; ++i)
        EXPECT_STREQ(back.root()->GetChild(i)->GetName(), order[i]);
    auto visible = [&](const char* name) {
        qdxsdk::QdxNode* n = back.find(name);
        EXPECT_NE(n, nullptr) << name;
        return n && n->GetVisibility();
    };
    EXPECT_FALSE(visible("c0"));
    EXPECT_TRUE(visible("c1"));
    EXPECT_FALSE(visible("c2"));
    EXPECT_FALSE(visible("n0"));
    EXPECT_FALSE(visible("Hidden"));
    EXPECT_TRUE(visible("UnderHidden"));
    EXPECT_TRUE(visible("Sw1"));
    EXPECT_EQ(back.find("Lamp")->GetChildCount(), 0);
    EXPECT_EQ(back.find("UnderHelper"), nullptr);
    EXPECT_EQ(back.find("UnderNoCore"), nullptr);
}

TEST_F(ExportNodes, SharedCoresAreWrittenOnce) {
    auto geometry = makeQuad();
    auto surface = osg::Surface::create();
    surface->setDimU(1);
    surface->setDimV(1);
    surface->setKnotsU({0, 0, 1, 1});
    surface->setKnotsV({0, 0, 1, 1});
    auto cps = osg::GeoPositions4f::create();
    cps->setValues({{0, 0, 0, 1}, {0, 1, 0, 1}, {1, 0, 0, 1}, {1, 1, 0, 1}});
    surface->setControlPoints(cps);
    surface->addCurve(1, {0, 0, 1, 1}, {{0, 0, 1}, {1, 1, 1}}, true);
    auto root = makeGroup("Root", {makeNode(geometry, "A"), makeNode(geometry, "B"),
                                   makeNode(surface, "S1"), makeNode(surface, "S2")});
    const std::string file = dir.file("instances.qdx");
    ASSERT_TRUE(ksQdxWriter::write(root, file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;
    ASSERT_NE(back.find("A")->GetMesh(), nullptr);
    EXPECT_EQ(back.find("A")->GetMesh(), back.find("B")->GetMesh());
    EXPECT_EQ(back.find("A")->GetMesh()->GetNodeCount(), 2);
    ASSERT_NE(back.find("S1")->GetTrimNurbsSurface(), nullptr);
    EXPECT_EQ(back.find("S1")->GetTrimNurbsSurface(), back.find("S2")->GetTrimNurbsSurface());
}

// Every transform kind, nested, in a metre scene: the SDK's world matrix of
// each node maps points exactly as the host's does, in centimetres.
TEST_F(ExportNodes, WorldSpacePlacementSurvives) {
    ksSceneDataManager::getSceneData(0)->setLengthUnit(ksSceneData::Meter);
    const double s = 100.0;

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
    const std::string file = dir.file("world.qdx");
    ASSERT_TRUE(ksQdxWriter::write(root, file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok) << back.error;

    for (const char* name : {"M", "P", "G"}) {
        SCOPED_TRACE(name);
        osg::NodePtr host = ksNodeUtils::findNode(root, name);
        osg::Matrix world = host->getWorldMatrix();
        qdxsdk::QdxAMatrix exported = back.find(name)->EvaluateGlobalTransform();
        for (const osg::Vec3f& p : {osg::Vec3f(0, 0, 0), osg::Vec3f(1, 0, 0), osg::Vec3f(0, 1, 0),
                                    osg::Vec3f(0.3f, -0.7f, 2)}) {
            osg::Vec3f expected = world.multPnt(p);
            qdxsdk::QdxVector4 got =
                exported.MultT(qdxsdk::QdxVector4(p[0] * s, p[1] * s, p[2] * s));
            for (int k = 0; k < 3; ++k)
                EXPECT_NEAR(got[k], expected[k] * s, 1e-3) << k;
        }
    }
    // Mesh control points are in the node's own frame.
    qdxsdk::QdxVector4 cp = back.find("G")->GetMesh()->GetControlPointAt(2);
    EXPECT_DOUBLE_EQ(cp[0], 10.0 * s);
    EXPECT_DOUBLE_EQ(cp[1], 20.0 * s);
}

} // namespace
