// Transform3D composition, world matrices and matrix/rotation round trips,
// checked against values worked out by hand.

#include <gtest/gtest.h>

#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Transform.h>

using namespace osg;

namespace {
void expectNear(const Vec3f& a, const Vec3f& b, float tol = 1e-5f) {
    EXPECT_NEAR(a[0], b[0], tol);
    EXPECT_NEAR(a[1], b[1], tol);
    EXPECT_NEAR(a[2], b[2], tol);
}
} // namespace

TEST(Transform3D, PivotsAndPivotTranslationsFollowTheDocumentedOrder) {
    auto t = Transform3D::create();
    t->setTranslation(Vec3f(10, 0, 0));
    t->setEulerRotation(Vec3f(0, 0, 90));
    t->setRotatePivot(Vec3f(1, 0, 0));
    t->setRotatePivotTranslation(Vec3f(0, 0, 5));
    t->setScale(Vec3f(2, 1, 1));
    t->setScalePivot(Vec3f(0, 1, 0));
    t->setScalePivotTranslation(Vec3f(0, 3, 0));
    // (1,1,0): -Sp (1,0,0), S (2,0,0), +Sp (2,1,0), Spt (2,4,0), -Rp (1,4,0),
    // R (-4,1,0), +Rp (-3,1,0), Rpt (-3,1,5), T (7,1,5).
    expectNear(t->getMatrix().multPnt(Pnt3f(1, 1, 0)), Pnt3f(7, 1, 5));

    // The orientation turns after R: X by 90 maps (-4,1,0) to (-4,0,1).
    t->setEulerRotationOrientation(Vec3f(90, 0, 0));
    expectNear(t->getMatrix().multPnt(Pnt3f(1, 1, 0)), Pnt3f(7, 0, 6));
}

TEST(Transform3D, EulerRotationAppliesXFirst) {
    auto t = Transform3D::create();
    t->setEulerRotation(Vec3f(90, 0, 90));
    // X then Z: (0,1,0) -> (0,0,1) -> (0,0,1). Z first would give (-1,0,0).
    expectNear(t->getMatrix().multPnt(Pnt3f(0, 1, 0)), Pnt3f(0, 0, 1));
}

TEST(Transform3D, FullRotationCombinesOrientationAndEulerAngles) {
    auto t = Transform3D::create();
    t->setEulerRotation(Vec3f(0, 0, 30));
    t->setEulerRotationOrientation(Vec3f(0, 0, 60));
    expectNear(Transform3D::convertQuatToEuler(t->getRotation(), 0), Vec3f(0, 0, 90), 1e-4f);

    t->setEulerRotation(Vec3f(20, -35, 50));
    t->setEulerRotationOrientation(Vec3f());
    expectNear(Transform3D::convertQuatToEuler(t->getRotation(), 0), Vec3f(20, -35, 50), 1e-3f);
}

TEST(Transform3D, SetMatrixDecomposesIntoEquivalentValues) {
    auto a = Transform3D::create();
    a->setTranslation(Vec3f(1, -2, 3));
    a->setEulerRotation(Vec3f(10, 20, 30));
    a->setScale(Vec3f(2, 3, -1));
    auto b = Transform3D::create();
    b->setMatrix(a->getMatrix());
    EXPECT_TRUE(b->getMatrix().equals(a->getMatrix(), 1e-5f));
    expectNear(b->getTranslation(), Vec3f(1, -2, 3));
}

TEST(Matrix, InverseOfASingularMatrixIsTheIdentity) {
    Matrix m = Matrix::scale(Vec3f(0, 1, 1));
    Matrix inv;
    EXPECT_FALSE(m.inverse(inv));
    EXPECT_EQ(inv, Matrix());

    Matrix r = Quaternion::fromEulerXYZDeg(Vec3f(30, 40, 50)).getMatrix();
    r.setTranslate(Vec3f(4, 5, 6));
    ASSERT_TRUE(r.inverse(inv));
    EXPECT_TRUE((r * inv).equals(Matrix(), 1e-5f));
}

TEST(WorldMatrix, AccumulatesThroughTheHierarchyAndDrawableTransforms) {
    auto parentCore = Transform3D::create();
    parentCore->setTranslation(Vec3f(0, 0, 10));
    parentCore->setScale(Vec3f(2, 2, 2));
    auto parent = Node::create();
    parent->setCore(parentCore);

    auto childCore = Transform3D::create();
    childCore->setTranslation(Vec3f(1, 0, 0));
    auto child = Node::create();
    child->setCore(childCore);
    parent->addChild(child);

    // A geometry placed by its own drawable transform.
    auto geo = Geometry::create();
    auto geoXform = Transform3D::create();
    geoXform->setEulerRotation(Vec3f(0, 0, 90));
    geo->setTransform(geoXform);
    auto leaf = Node::create();
    leaf->setCore(geo);
    child->addChild(leaf);

    expectNear(child->getWorldMatrix().multPnt(Pnt3f()), Pnt3f(2, 0, 10));
    // (1,0,0) -> rotate (0,1,0) -> +child (1,1,0) -> *2 +(0,0,10) = (2,2,10)
    expectNear(leaf->getWorldMatrix().multPnt(Pnt3f(1, 0, 0)), Pnt3f(2, 2, 10));
}

TEST(SetTransformNodeValues, WritesIntoTheCoreOrTheDrawableTransform) {
    auto node = Node::create();
    ASSERT_TRUE(ksNodeUtils::setTransformNodeValues(node, Vec3f(1, 2, 3), Vec3f(), Vec3f(0, 0, 90),
                                                    Vec3f(), Vec3f(), Vec3f(1, 1, 1), Vec3f(),
                                                    Vec3f()));
    auto t = Transform3DPtr::dcast(node->getCore());
    ASSERT_TRUE(t);
    expectNear(t->getTranslation(), Vec3f(1, 2, 3));

    auto geoNode = Node::create();
    auto geo = Geometry::create();
    geoNode->setCore(geo);
    ASSERT_TRUE(ksNodeUtils::setTransformNodeValues(geoNode, Vec3f(5, 0, 0), Vec3f(), Vec3f(),
                                                    Vec3f(), Vec3f(), Vec3f(2, 2, 2), Vec3f(),
                                                    Vec3f()));
    ASSERT_TRUE(geo->getTransform());
    expectNear(geoNode->getWorldMatrix().multPnt(Pnt3f(1, 0, 0)), Pnt3f(7, 0, 0));

    auto groupNode = Node::create();
    groupNode->setCore(Group::create());
    EXPECT_FALSE(ksNodeUtils::setTransformNodeValues(groupNode, Vec3f(1, 0, 0), Vec3f(), Vec3f(),
                                                     Vec3f(), Vec3f(), Vec3f(1, 1, 1), Vec3f(),
                                                     Vec3f()));
}

TEST(SetTransformNodeValues, CanKeepChildrenInPlace) {
    auto node = Node::create();
    node->setCore(Transform3D::create());
    auto child = Node::create();
    auto childCore = Transform3D::create();
    childCore->setTranslation(Vec3f(0, 1, 0));
    child->setCore(childCore);
    node->addChild(child);
    Pnt3f before = child->getWorldMatrix().multPnt(Pnt3f());
    ksNodeUtils::setTransformNodeValues(node, Vec3f(3, 0, 0), Vec3f(), Vec3f(0, 0, 45), Vec3f(),
                                        Vec3f(), Vec3f(2, 2, 2), Vec3f(), Vec3f(), 0, "", true);
    expectNear(child->getWorldMatrix().multPnt(Pnt3f()), before, 1e-4f);
}

TEST(Matrix, DecompositionKeepsAMirroringScale) {
    Matrix m = Matrix::translation(Vec3f(1, 2, 3)) *
               Quaternion::fromEulerXYZDeg(Vec3f(0, 30, 0)).getMatrix() *
               Matrix::scale(Vec3f(2, 3, -4));
    Vec3f t, s;
    Quaternion r, so;
    m.getTransform(t, r, s, so);
    expectNear(t, Vec3f(1, 2, 3));
    expectNear(s, Vec3f(2, 3, -4), 1e-4f);
    Matrix again;
    again.setTransform(t, r, s);
    EXPECT_TRUE(again.equals(m, 1e-4f));
}
