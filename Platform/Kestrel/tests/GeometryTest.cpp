// Geometry: triangle iteration, validation, vertex merging, flattening of
// transforms and shells.
#include <gtest/gtest.h>

#include <kestrel/ksLog.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOptimize.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/TimeShapeCache.h>
#include <kestrel/osg/UberLight.h>

using namespace osg;

namespace {

GeometryPtr makeGeometry(const std::vector<UInt8>& types, const std::vector<UInt32>& lengths,
                         const std::vector<Pnt3f>& positions, const std::vector<UInt32>& indices) {
    auto g = Geometry::create();
    auto t = GeoPTypesUI8::create();
    t->setValues(types);
    auto l = GeoPLengthsUI32::create();
    l->setValues(lengths);
    auto p = GeoPositions3f::create();
    p->setValues(positions);
    g->setTypes(t);
    g->setLengths(l);
    g->setPositions(p);
    if (!indices.empty()) {
        auto i = GeoIndicesUI32::create();
        i->setValues(indices);
        g->setIndices(i);
    }
    g->setIndexMapping({MapPosition});
    return g;
}

NodePtr nodeWith(const NodeCorePtr& core, const std::string& name = "") {
    auto n = Node::create();
    n->setCore(core);
    n->setName(name);
    return n;
}

std::vector<std::array<UInt32, 3>> triangles(const GeometryPtr& g) {
    std::vector<std::array<UInt32, 3>> out;
    for (auto it = g->beginTriangles(); it != g->endTriangles(); ++it)
        out.push_back({it.getPositionIndex(0), it.getPositionIndex(1), it.getPositionIndex(2)});
    return out;
}

std::vector<Pnt3f> worldPositions(const NodePtr& node) {
    auto g = GeometryPtr::dcast(node->getCore());
    auto p = GeoPositions3fPtr::dcast(g->getPositions());
    Matrix m = node->getWorldMatrix();
    std::vector<Pnt3f> out;
    for (const auto& v : p->getField())
        out.push_back(m.multPnt(v));
    return out;
}

void expectSamePoints(const std::vector<Pnt3f>& a, const std::vector<Pnt3f>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i)
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(a[i][k], b[i][k], 1e-4f) << "point " << i;
}

const std::vector<Pnt3f> kSix = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}, {2, 1, 0}};

} // namespace

TEST(TriangleIterator, SplitsEveryFaceTypeAndSkipsLines) {
    // polygon of 4, quads of 4, strip of 4, fan of 4, a line strip, triangles of 3
    auto g = makeGeometry(
        {PrimPolygon, PrimQuads, PrimTriangleStrip, PrimTriangleFan, PrimLineStrip, PrimTriangles},
        {4, 4, 4, 4, 2, 3}, kSix, {0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 0, 1, 2, 3, 4, 5, 1, 4, 5});
    auto t = triangles(g);
    std::vector<std::array<UInt32, 3>> expected = {
        {0, 1, 2}, {0, 2, 3}, // polygon (fan)
        {0, 1, 2}, {0, 2, 3}, // quad
        {0, 1, 2}, {2, 1, 3}, // strip, second triangle turned
        {0, 1, 2}, {0, 2, 3}, // fan
        {1, 4, 5}};           // triangles after the skipped line strip
    EXPECT_EQ(t, expected);
    EXPECT_EQ(g->countTriangles(), 9u);
}

TEST(TriangleIterator, StopsAtPrimitivesThatRunPastTheIndex) {
    auto g = makeGeometry({PrimTriangles, PrimTriangles}, {3, 6}, kSix, {0, 1, 2, 3, 4});
    EXPECT_EQ(g->countTriangles(), 1u);
    auto empty = Geometry::create();
    EXPECT_EQ(empty->countTriangles(), 0u);
}

TEST(VerifyGeometry, FindsBrokenIndicesAndLengths) {
    auto root = nodeWith(Group::create(), "root");
    auto good = nodeWith(makeGeometry({PrimTriangles}, {3}, kSix, {0, 1, 2}), "good");
    auto outOfRange = nodeWith(makeGeometry({PrimTriangles}, {3}, kSix, {0, 1, 6}), "range");
    auto badLengths = nodeWith(makeGeometry({PrimTriangles}, {4}, kSix, {0, 1, 2}), "lengths");
    auto badTypes =
        nodeWith(makeGeometry({PrimTriangles, PrimTriangles}, {3}, kSix, {0, 1, 2}), "types");
    // An out-of-range normal index is found through the index mapping.
    auto g = makeGeometry({PrimTriangles}, {3}, kSix, {0, 1, 5});
    auto normals = GeoNormals3f::create();
    normals->setValues({{0, 0, 1}, {0, 0, 1}, {0, 0, 1}});
    g->setNormals(normals);
    g->setIndexMapping({MapPosition | MapNormal});
    auto badNormals = nodeWith(g, "normals");
    for (auto n : {good, outOfRange, badLengths, badTypes, badNormals})
        root->addChild(n);

    ksLogCapture log;
    std::vector<NodePtr> bad;
    EXPECT_FALSE(ksNodeUtils::verifyGeometry(root, bad, 0));
    EXPECT_EQ(bad, (std::vector<NodePtr>{outOfRange, badLengths, badTypes, badNormals}));
    EXPECT_EQ(log.count(ksLog::Warning, "node range:"), 1u);
    EXPECT_EQ(root->getNChildren(), 5u);

    bad.clear();
    EXPECT_FALSE(ksNodeUtils::verifyGeometry(root, bad, ksNodeUtils::VerifyRemove));
    EXPECT_EQ(root->getNChildren(), 1u);
    bad.clear();
    EXPECT_TRUE(ksNodeUtils::verifyGeometry(root, bad, 0));
}

TEST(GeoOptimizer, MergesEqualVerticesAndRemapsIndexAndSkin) {
    // Two triangles of a quad written per corner: corners 2/3 and 0/5 repeat.
    std::vector<Pnt3f> corners = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 0}};
    std::vector<UInt32> idx = {0, 1, 2, 3, 4, 5};
    auto g = makeGeometry({PrimTriangles}, {6}, corners, idx);
    auto uv = GeoTexCoords2f::create();
    uv->setValues({{0, 0}, {1, 0}, {1, 1}, {1, 1}, {0, 1}, {0.5f, 0}}); // corner 5 differs in UV
    g->setTexSlot(uv, 0);
    g->setIndexMapping({MapPosition | MapTexCoords});
    auto skin = SkinAttachment::create();
    auto cluster = DeformerCluster::create();
    cluster->setWeights({{2, 0.5f}, {3, 0.5f}, {4, 1.f}});
    skin->addJoint(cluster);
    g->addAttachment(skin);

    EXPECT_EQ(ksGeoOptimizer::mergeVertices(g), 1u);
    auto pos = GeoPositions3fPtr::dcast(g->getPositions());
    auto ind = GeoIndicesUI32Ptr::dcast(g->getIndices());
    ASSERT_EQ(pos->size(), 5u);
    ASSERT_EQ(g->getTexSlot(0)->size(), 5u);
    for (std::size_t k = 0; k < idx.size(); ++k)
        EXPECT_EQ(pos->getValue(ind->getField()[k]), corners[k]) << "corner " << k;
    EXPECT_EQ(ind->getField()[2], ind->getField()[3]);
    EXPECT_NE(ind->getField()[0], ind->getField()[5]);
    EXPECT_EQ(cluster->getWeights(), (std::vector<IndexWeight>{{2, 0.5f}, {3, 1.f}}));

    // Nothing left to merge; vertex-animated geometry is left alone.
    EXPECT_EQ(ksGeoOptimizer::mergeVertices(g), 0u);
    auto animated = makeGeometry({PrimTriangles}, {6}, corners, idx);
    animated->addAttachment(TimeShapeCache::create());
    EXPECT_EQ(ksGeoOptimizer::mergeVertices(animated), 0u);
}

TEST(GeoOptimizer, BuildsAnIndexForUnindexedGeometry) {
    auto g = makeGeometry({PrimTriangles}, {6},
                          {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}}, {});
    g->setIndexMapping({});
    EXPECT_EQ(ksGeoOptimizer::mergeVertices(g), 2u);
    auto ind = GeoIndicesUI32Ptr::dcast(g->getIndices());
    ASSERT_TRUE(ind);
    EXPECT_EQ(ind->getField(), (std::vector<UInt32>{0, 1, 2, 2, 1, 3}));
    EXPECT_EQ(g->getIndexMapping(), (std::vector<UInt16>{MapPosition}));
    EXPECT_EQ(g->countTriangles(), 2u);
}

TEST(FlushTransformations, KeepsWorldPositionsAndNormals) {
    auto rootT = Transform3D::create();
    rootT->setTranslation(Vec3f(0, 0, 10));
    auto root = nodeWith(rootT, "root");
    auto midT = Transform3D::create();
    midT->setScale(Vec3f(2, 1, 1));
    midT->setEulerRotation(Vec3f(0, 0, 90));
    auto mid = nodeWith(midT, "mid");
    root->addChild(mid);

    auto g = makeGeometry({PrimTriangles}, {3}, {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}, {0, 1, 2});
    auto n = GeoNormals3f::create();
    n->setValues({{1, 0, 0}, {1, 0, 0}, {1, 0, 0}});
    g->setNormals(n);
    auto own = Transform3D::create();
    own->setTranslation(Vec3f(0, 0, 1));
    g->setTransform(own);
    auto leafA = nodeWith(g, "a");
    mid->addChild(leafA);
    // The same geometry also placed elsewhere, untransformed.
    auto leafB = nodeWith(g, "b");
    root->addChild(leafB);
    // A light keeps its pose.
    auto lightCore = UberLight::create();
    lightCore->setTranslation(Vec3f(1, 0, 0));
    auto light = nodeWith(lightCore, "light");
    mid->addChild(light);

    auto beforeA = worldPositions(leafA);
    auto beforeB = worldPositions(leafB);
    Pnt3f lightBefore = light->getWorldMatrix().multPnt(Pnt3f());

    EXPECT_EQ(ksOptimize::flushTransformations(root), 2u);
    expectSamePoints(worldPositions(leafA), beforeA);
    expectSamePoints(worldPositions(leafB), beforeB);
    EXPECT_NE(leafA->getCore(), leafB->getCore()); // the shared core was split
    EXPECT_TRUE(rootT->getMatrix().equals(Matrix(), 0.f));
    EXPECT_TRUE(midT->getMatrix().equals(Matrix(), 0.f));
    EXPECT_TRUE(GeometryPtr::dcast(leafA->getCore())->getTransform() == NullFC);
    Pnt3f lightAfter = light->getWorldMatrix().multPnt(Pnt3f());
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(lightAfter[k], lightBefore[k], 1e-4f);
    // Normal (1,0,0) under Rz(90) * scale(2,1,1): stays unit length, points to +Y.
    auto na = GeoNormals3fPtr::dcast(GeometryPtr::dcast(leafA->getCore())->getNormals());
    EXPECT_NEAR(na->getValue(0)[1], 1.f, 1e-5f);
    EXPECT_NEAR(na->getValue(0).length(), 1.f, 1e-5f);
}

TEST(Shells, GroupsOfSurfacesBecomeShellGeometry) {
    auto root = nodeWith(Group::create(), "root");
    auto shellT = Transform3D::create();
    shellT->setTranslation(Vec3f(5, 0, 0));
    auto shell = nodeWith(shellT, "shell");
    root->addChild(shell);
    for (int i = 0; i < 2; ++i) {
        auto s = Surface::create();
        s->setDimU(1);
        s->setDimV(1);
        s->setKnotsU({0, 0, 1, 1});
        s->setKnotsV({0, 0, 1, 1});
        auto cps = GeoPositions4f::create();
        cps->setValues({{0, 0, 0, 1}, {0, 2, 0, 2}, {1, 0, 0, 1}, {1, 1, 0, 1}});
        s->setControlPoints(cps);
        shell->addChild(nodeWith(s, "patch"));
    }
    auto mixed = nodeWith(Group::create(), "mixed");
    mixed->addChild(nodeWith(Surface::create()));
    mixed->addChild(nodeWith(Group::create()));
    root->addChild(mixed);

    EXPECT_FALSE(ksNodeUtils::isShellGeometry(shell));
    EXPECT_EQ(ksNodeUtils::convertToShellRecursiveOptions(root, true), 1u);
    EXPECT_TRUE(ksNodeUtils::isShellGeometry(shell));
    EXPECT_FALSE(ksNodeUtils::isShellGeometry(mixed));
    auto geo = GeometryPtr::dcast(shell->getCore());
    ASSERT_TRUE(geo);
    EXPECT_EQ(shell->getWorldMatrix().multPnt(Pnt3f()), Pnt3f(5, 0, 0));
    EXPECT_EQ(geo->countTriangles(), 4u); // one quad per surface
    // Homogeneous (0,2,0,2) is the point (0,1,0).
    EXPECT_EQ(GeoPositions3fPtr::dcast(geo->getPositions())->getValue(1), Pnt3f(0, 1, 0));
}

TEST(Surface, TrimmingCurvesFormLoops) {
    auto s = Surface::create();
    std::vector<Real64> knots = {0, 0, 1, 1};
    std::vector<Pnt3f> pts = {{0, 0, 1}, {1, 0, 1}};
    for (bool newLoop : {true, false, false, true, false})
        s->addCurve(1, knots, pts, newLoop);
    EXPECT_EQ(s->getNumCurves(), 5u);
    EXPECT_EQ(s->getCurvesPerLoop(), (std::vector<UInt32>{3, 2}));
    EXPECT_EQ(s->getKnots().size(), 20u);
    EXPECT_EQ(s->getCurveControlPointCounts(), (std::vector<UInt32>(5, 2u)));
    s->removeCurves();
    EXPECT_EQ(s->getNumCurves(), 0u);
}

TEST(Geometry, InterleavedIndexAddressesEachPropertyThroughItsMappingEntry) {
    // Two values per vertex: position index, then normal index.
    auto g =
        makeGeometry({PrimTriangles}, {3}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {2, 0, 0, 0, 1, 0});
    auto normals = GeoNormals3f::create();
    normals->setValues({{0, 0, 1}});
    g->setNormals(normals);
    g->setIndexMapping({MapPosition, MapNormal});
    EXPECT_EQ(g->getIndexStride(), 2u);
    EXPECT_EQ(g->getVertexCount(), 3u);
    EXPECT_EQ(g->findMappingIndex(MapNormal), 1);
    EXPECT_EQ(g->findMappingIndex(MapTexCoords), -1);
    auto it = g->beginTriangles();
    ASSERT_FALSE(it.isAtEnd());
    EXPECT_EQ(it.getPositionIndex(0), 2u);
    EXPECT_EQ(it.getPositionIndex(1), 0u);
    EXPECT_EQ(it.getNormalIndex(2), 0u);
    EXPECT_EQ(it.getPosition(0), Pnt3f(0, 1, 0));
    std::vector<NodePtr> bad;
    EXPECT_TRUE(ksNodeUtils::verifyGeometry(nodeWith(g), bad));
    // Interleaved geometry is not merged.
    EXPECT_EQ(ksGeoOptimizer::mergeVertices(g), 0u);
}
