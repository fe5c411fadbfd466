// A NURBS surface node carries its own transform like a geometry node, and
// keeps its world placement through transform flushing and shell conversion.
#include <vector>

#include <gtest/gtest.h>

#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOptimize.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/Transform.h>

using namespace osg;

namespace {
// A bilinear 2 x 3 patch with uneven weights, under a rotated, moved parent.
NodePtr makeScene(NodePtr& surfaceNode) {
    auto surface = Surface::create();
    surface->setDimU(1);
    surface->setDimV(1);
    surface->setKnotsU({0, 0, 1, 1});
    surface->setKnotsV({0, 0, 0.5f, 1, 1});
    auto cps = GeoPositions4f::create();
    const float w[] = {1, 2, 1, 0.5f, 1, 4};
    for (int i = 0; i < 6; ++i) {
        const Pnt3f p(float(i / 3), float(i % 3), float(i) * 0.25f);
        cps->editField().push_back(Pnt4f(p[0] * w[i], p[1] * w[i], p[2] * w[i], w[i]));
    }
    surface->setControlPoints(cps);
    surfaceNode = Node::create();
    surfaceNode->setCore(surface);

    auto parent = Node::create();
    auto t = Transform3D::create();
    t->setTranslation(Vec3f(10, 0, -3));
    t->setEulerRotation(Vec3f(0, 0, 90));
    parent->setCore(t);
    parent->addChild(surfaceNode);
    auto root = Node::create();
    root->setCore(Group::create());
    root->addChild(parent);
    return root;
}

std::vector<Pnt3f> worldControlPoints(const NodePtr& node) {
    auto s = SurfacePtr::dcast(node->getCore());
    std::vector<Pnt3f> out;
    for (const Pnt4f& h : s->getControlPoints()->getField())
        out.push_back(node->getWorldMatrix().multPnt(Pnt3f(h[0] / h[3], h[1] / h[3], h[2] / h[3])));
    return out;
}

void expectSamePoints(const std::vector<Pnt3f>& a, const std::vector<Pnt3f>& b) {
    ASSERT_EQ(a.size(), b.size());
    for (std::size_t i = 0; i < a.size(); ++i)
        EXPECT_TRUE(a[i].equals(b[i], 1e-4f)) << "point " << i;
}
} // namespace

TEST(SurfaceTransform, TakesTransformValuesAndKeepsWorldPlacement) {
    NodePtr surfaceNode;
    NodePtr root = makeScene(surfaceNode);
    EXPECT_TRUE(ksNodeUtils::takesTransformValues(surfaceNode));
    EXPECT_FALSE(ksNodeUtils::takesTransformValues(root)); // a plain group
    ASSERT_TRUE(ksNodeUtils::setTransformNodeValues(surfaceNode, Vec3f(0, 5, 0), Vec3f(),
                                                    Vec3f(30, 0, 0), Vec3f(1, 0, 0), Vec3f(),
                                                    Vec3f(2, 2, 2), Vec3f(), Vec3f()));
    auto own = ksNodeUtils::getTransform3D(surfaceNode);
    ASSERT_TRUE(own);
    EXPECT_EQ(own, SurfacePtr::dcast(surfaceNode->getCore())->getTransform());
    EXPECT_FALSE(surfaceNode->getLocalMatrix().equals(Matrix(), 1e-6f));
    const std::vector<Pnt3f> world = worldControlPoints(surfaceNode);

    // Flushing bakes the parent's and the surface's own transform into the
    // homogeneous control points.
    {
        NodePtr copy = ksNodeUtils::cloneFullTree(root, false);
        EXPECT_EQ(ksOptimize::flushTransformations(copy), 1u);
        NodePtr s = copy->getChild(0)->getChild(0);
        EXPECT_FALSE(SurfacePtr::dcast(s->getCore())->getTransform());
        EXPECT_TRUE(s->getWorldMatrix().equals(Matrix(), 0.f));
        expectSamePoints(worldControlPoints(s), world);
        // The original is untouched.
        expectSamePoints(worldControlPoints(surfaceNode), world);
    }

    // Shell conversion: the parent becomes a geometry carrying the parent's
    // transform; the surface child and the coarse tessellation stay in place.
    {
        NodePtr copy = ksNodeUtils::cloneFullTree(root, false);
        NodePtr shell = copy->getChild(0);
        EXPECT_EQ(ksNodeUtils::convertToShellRecursiveOptions(copy, true), 1u);
        ASSERT_TRUE(ksNodeUtils::isShellGeometry(shell));
        expectSamePoints(worldControlPoints(shell->getChild(0)), world);
        auto geo = GeometryPtr::dcast(shell->getCore());
        auto pos = GeoPositions3fPtr::dcast(geo->getPositions());
        ASSERT_TRUE(pos);
        std::vector<Pnt3f> tess;
        for (const Pnt3f& p : pos->getField())
            tess.push_back(shell->getWorldMatrix().multPnt(p));
        expectSamePoints(tess, world);
    }
}

TEST(SurfaceTransform, InstancesOfASurfaceFlushToTheirOwnPlaces) {
    NodePtr surfaceNode;
    NodePtr root = makeScene(surfaceNode);
    ksNodeUtils::setTransformNodeValues(surfaceNode, Vec3f(1, 2, 3), Vec3f(), Vec3f(), Vec3f(),
                                        Vec3f(), Vec3f(1, 1, 1), Vec3f(), Vec3f());
    // A second parent at another place shares the surface core.
    NodePtr other = Node::create();
    auto t = Transform3D::create();
    t->setTranslation(Vec3f(-7, 0, 0));
    other->setCore(t);
    NodePtr instance = Node::create();
    instance->setCore(surfaceNode->getCore());
    other->addChild(instance);
    root->addChild(other);
    const auto worldA = worldControlPoints(surfaceNode);
    const auto worldB = worldControlPoints(other->getChild(0));
    EXPECT_EQ(ksOptimize::flushTransformations(root), 2u);
    expectSamePoints(worldControlPoints(root->getChild(0)->getChild(0)), worldA);
    expectSamePoints(worldControlPoints(root->getChild(1)->getChild(0)), worldB);
}
