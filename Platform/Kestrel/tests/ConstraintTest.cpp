// Aim constraints: the world frame they give the constrained node, their up
// rules, evaluation order and scope, and their behaviour when nodes go away.
#include <gtest/gtest.h>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>

using namespace osg;

namespace {

NodePtr transformNode(const NodePtr& parent, const Vec3f& t, const Vec3f& rotation = Vec3f(),
                      const Vec3f& scale = Vec3f(1, 1, 1)) {
    auto core = Transform3D::create();
    core->setTranslation(t);
    core->setEulerRotation(rotation);
    core->setScale(scale);
    NodePtr n = Node::create();
    n->setCore(core);
    if (parent) parent->addChild(n);
    return n;
}

Pnt3f worldPosition(const NodePtr& n) {
    return n->getWorldMatrix().multPnt(Pnt3f());
}

Vec3f unit(Vec3f v) {
    v.normalize();
    return v;
}

// The node looks along its -Z at target, and its +Y is the part of upHint
// across the look direction.
void expectAims(const NodePtr& node, const Pnt3f& target, const Vec3f& upHint) {
    const Matrix w = node->getWorldMatrix();
    const Vec3f look = unit(w.multVec(Vec3f(0, 0, -1)));
    const Vec3f up = unit(w.multVec(Vec3f(0, 1, 0)));
    EXPECT_TRUE(look.equals(unit(target - worldPosition(node)), 1e-4f))
        << look[0] << " " << look[1] << " " << look[2];
    EXPECT_NEAR(up.dot(look), 0.f, 1e-4f);
    EXPECT_GT(up.dot(unit(upHint)), 0.f);
    EXPECT_NEAR(up.dot(unit(look.cross(upHint))), 0.f, 1e-4f);
}

class AimConstraintTest : public ::testing::Test {
protected:
    void SetUp() override {
        ksSceneDataManager::reset();
        ksConstraintManager::the().clear();
    }
    void TearDown() override {
        ksConstraintManager::the().clear();
        ksSceneDataManager::reset();
    }
    ksConstraintManager& cm = ksConstraintManager::the();
};

TEST_F(AimConstraintTest, AimsAtTargetsInEveryOctantUnderTransformedParents) {
    struct Parent {
        Vec3f t, r, s;
    };
    const Parent parents[] = {
        {Vec3f(), Vec3f(), Vec3f(1, 1, 1)},
        {Vec3f(5, -3, 2), Vec3f(30, -50, 70), Vec3f(2, 2, 2)},
        {Vec3f(-1, 4, 0), Vec3f(180, 0, 90), Vec3f(0.5f, 0.5f, 0.5f)},
    };
    for (const Parent& p : parents)
        for (int octant = 0; octant < 8; ++octant)
            for (bool withUp : {false, true}) {
                SCOPED_TRACE(testing::Message()
                             << "octant " << octant << " up " << withUp << " parent r " << p.r[0]);
                cm.clear();
                NodePtr root = transformNode(NodePtr(), Vec3f());
                NodePtr parent = transformNode(root, p.t, p.r, p.s);
                NodePtr camera = ksUberCameraPool::the().createCameraNode("shot", parent);
                auto core = ksUberCameraUtils::getCamera(camera);
                core->setTranslation(Vec3f(1, 2, 3));
                core->setEulerRotationOrientation(Vec3f(0, 90, 0));
                core->setEulerRotation(Vec3f(12, -34, 56));
                const Pnt3f eye = worldPosition(camera);
                const Vec3f offset((octant & 1) ? 7.f : -7.f, (octant & 2) ? 5.f : -5.f,
                                   (octant & 4) ? 3.f : -3.f);
                // Targets live in another transformed branch of the same tree.
                NodePtr branch = transformNode(root, Vec3f(2, 0, 1), Vec3f(0, 0, 45));
                Matrix toBranch = branch->getWorldMatrix();
                ASSERT_TRUE(toBranch.invert());
                NodePtr target = transformNode(branch, toBranch.multPnt(eye + offset));
                const Vec3f upDir(-2, 1, 9);
                NodePtr up = transformNode(branch, toBranch.multPnt(eye + upDir));

                cm->createAimConstraint({target},
                                        withUp ? std::vector<NodePtr>{up} : std::vector<NodePtr>{},
                                        camera, false);
                EXPECT_EQ(cm.evaluate(root), 1u);
                // Without an up node: the scene's up axis (Z) as the parent sees it.
                const Vec3f hint =
                    withUp ? upDir : parent->getWorldMatrix().multVec(Vec3f(0, 0, 1));
                expectAims(camera, eye + offset, hint);
                EXPECT_TRUE(worldPosition(camera).equals(eye, 1e-4f));
                EXPECT_EQ(core->getEulerRotationOrientation(), Vec3f(0, 90, 0));
            }
}

TEST_F(AimConstraintTest, FollowsTheScenesUpAxisAndAvoidsAParallelUp) {
    ksSceneDataManager::getSceneData(0)->setUpAxis(ksSceneData::YUp);
    NodePtr root = transformNode(NodePtr(), Vec3f());
    NodePtr camera = ksUberCameraPool::the().createCameraNode("yup", root);
    NodePtr target = transformNode(root, Vec3f(4, 1, -2));
    cm.createAimConstraint({target}, {}, camera, false);
    EXPECT_EQ(cm.evaluate(root), 1u);
    expectAims(camera, Pnt3f(4, 1, -2), Vec3f(0, 1, 0));

    // Looking straight along the up axis still gives a proper frame.
    Transform3DPtr::dcast(target->getCore())->setTranslation(Vec3f(0, 10, 0));
    NodePtr up = transformNode(root, Vec3f(0, -3, 0)); // right behind: no use as up
    cm.clear();
    cm.createAimConstraint({target}, {up}, camera, false);
    EXPECT_EQ(cm.evaluate(root), 1u);
    const Matrix w = camera->getWorldMatrix();
    EXPECT_TRUE(unit(w.multVec(Vec3f(0, 0, -1))).equals(Vec3f(0, 1, 0), 1e-4f));
    EXPECT_NEAR(w.det(), 1.f, 1e-4f);
}

TEST_F(AimConstraintTest, AimsAtTheWeightedCentreAndKeepsAnOffsetWhenAsked) {
    NodePtr root = transformNode(NodePtr(), Vec3f());
    NodePtr a = transformNode(root, Vec3f(10, 0, 0));
    NodePtr b = transformNode(root, Vec3f(0, 10, 0));
    NodePtr camera = ksUberCameraPool::the().createCameraNode("centre", root);
    AimConstraintPtr c = cm.createAimConstraint({a}, {}, camera, false);
    c->addTarget(b, 3.f);
    EXPECT_EQ(cm.update(), 1u);
    expectAims(camera, Pnt3f(2.5f, 7.5f, 0), Vec3f(0, 0, 1));

    cm.clear();
    auto core = ksUberCameraUtils::getCamera(camera);
    core->setEulerRotation(Vec3f(10, 20, 30));
    const Quaternion before = core->getRotation();
    cm.createAimConstraint({a}, {}, camera, true);
    EXPECT_EQ(cm.update(), 1u);
    EXPECT_TRUE(core->getRotation().equals(before, 1e-4f));
    // Moving the target turns the node by the aim's change only.
    Transform3DPtr::dcast(a->getCore())->setTranslation(Vec3f(0, 0, -10));
    cm.update();
    EXPECT_FALSE(core->getRotation().equals(before, 1e-2f));
}

TEST_F(AimConstraintTest, TurnsNodesBeforeThoseThatDependOnThem) {
    NodePtr root = transformNode(NodePtr(), Vec3f());
    // The second camera aims at a point carried ahead of the first one, and
    // its constraint is registered first.
    NodePtr leader = ksUberCameraPool::the().createCameraNode("leader", root);
    NodePtr ahead = transformNode(leader, Vec3f(0, 0, -5));
    NodePtr follower = ksUberCameraPool::the().createCameraNode("follower", root);
    ksUberCameraUtils::getCamera(follower)->setTranslation(Vec3f(0, 0, 10));
    NodePtr goal = transformNode(root, Vec3f(10, 0, 0));
    cm.createAimConstraint({ahead}, {}, follower, false);
    cm.createAimConstraint({goal}, {}, leader, false);
    EXPECT_EQ(cm.evaluate(root), 2u);
    EXPECT_TRUE(worldPosition(ahead).equals(Pnt3f(5, 0, 0), 1e-4f));
    expectAims(follower, Pnt3f(5, 0, 0), Vec3f(0, 0, 1));

    // Only constraints inside the evaluated subtree are applied.
    NodePtr other = transformNode(NodePtr(), Vec3f());
    EXPECT_EQ(cm.evaluate(other), 0u);
    EXPECT_EQ(cm.evaluate(NodePtr()), 0u);
}

TEST_F(AimConstraintTest, DeletedNodesAreIgnoredOrDropped) {
    NodePtr root = transformNode(NodePtr(), Vec3f());
    NodePtr camera = ksUberCameraPool::the().createCameraNode("lost", root);
    NodePtr near = transformNode(root, Vec3f(10, 0, 0));
    NodePtr far = transformNode(root, Vec3f(0, 10, 0));
    AimConstraintPtr c = cm.createAimConstraint({near, far}, {}, camera, false);
    ASSERT_EQ(c->getTargets().size(), 2u);
    EXPECT_EQ(cm.findAimConstraintForTarget(camera), c);
    EXPECT_TRUE(cm.findAimConstraintForTarget(near) == NullFC);

    // A deleted target no longer counts; the constraint does not keep it alive.
    std::weak_ptr<Node> watch = near.shared();
    root->subChild(near);
    near = NodePtr();
    EXPECT_TRUE(watch.expired());
    EXPECT_TRUE(c->getTargets()[0]->getReferenceNode() == NullFC);
    EXPECT_EQ(cm.evaluate(root), 1u);
    expectAims(camera, Pnt3f(0, 10, 0), Vec3f(0, 0, 1));

    // A target taken out of the scene but still held elsewhere is ignored too.
    root->subChild(far);
    const Quaternion before = ksUberCameraUtils::getCamera(camera)->getRotation();
    EXPECT_EQ(cm.evaluate(root), 0u);
    EXPECT_TRUE(ksUberCameraUtils::getCamera(camera)->getRotation().equals(before, 0.f));

    // Deleting the constrained node drops its constraint.
    ASSERT_EQ(cm.getAimConstraints().size(), 1u);
    root->subChild(camera);
    camera = NodePtr();
    EXPECT_EQ(cm.update(), 0u);
    EXPECT_TRUE(cm.getAimConstraints().empty());
    EXPECT_TRUE(c->getConstrainedNode() == NullFC);

    // Null entries and a null constrained node.
    EXPECT_TRUE(cm.createAimConstraint({NodePtr()}, {}, root, false));
    EXPECT_TRUE(cm.createAimConstraint({far}, {}, NodePtr(), false) == NullFC);
    EXPECT_EQ(cm.update(), 0u);
}

} // namespace
