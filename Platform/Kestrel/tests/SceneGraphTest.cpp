// Node tree rules, shared cores, cloning, attachments and the change list.
#include <thread>

#include <gtest/gtest.h>

#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Animation.h>
#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Metadata.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>

using namespace osg;

namespace {
NodePtr makeNode(const std::string& name, const NodeCorePtr& core) {
    NodePtr n = Node::create();
    n->setName(name);
    n->setCore(core);
    return n;
}
} // namespace

TEST(Node, ChildHasOneParentAndCyclesAreRefused) {
    auto a = makeNode("a", Group::create());
    auto b = makeNode("b", Group::create());
    auto c = makeNode("c", Group::create());
    a->addChild(c);
    b->addChild(c); // moves
    EXPECT_EQ(a->getNChildren(), 0u);
    EXPECT_EQ(c->getParent(), b);
    EXPECT_FALSE(c->addChild(b)); // b is c's ancestor
    EXPECT_FALSE(c->addChild(c));
    b->addChild(a);
    a->insertChild(0, makeNode("d", NullFC));
    EXPECT_EQ(b->getChild(1), a);
    EXPECT_TRUE(b->subChild(c));
    EXPECT_TRUE(c->getParent() == NullFC);
    EXPECT_EQ(b->getNChildren(), 1u);
}

TEST(Node, ChildOutlivesItsParentWithoutDanglingLinks) {
    NodePtr child = makeNode("child", Group::create());
    {
        NodePtr parent = makeNode("parent", Group::create());
        parent->addChild(child);
    }
    EXPECT_TRUE(child->getParent() == NullFC);
}

TEST(Node, SharedCoresKnowTheirNodes) {
    auto geo = Geometry::create();
    auto a = makeNode("a", geo);
    {
        auto b = makeNode("b", geo);
        EXPECT_EQ(geo->getNParents(), 2u);
    }
    EXPECT_EQ(geo->getNParents(), 1u);
    a->setCore(NullFC);
    EXPECT_EQ(geo->getNParents(), 0u);
}

TEST(Handles, CompareCastAndNull) {
    NodeCorePtr core = Transform3D::create();
    EXPECT_TRUE(Transform3DPtr::dcast(core));
    EXPECT_TRUE(TransformPtr::dcast(core));
    EXPECT_FALSE(GeometryPtr::dcast(core));
    EXPECT_TRUE(GeometryPtr::dcast(NodeCorePtr()) == NullFC);
    TransformPtr t = TransformPtr::dcast(core);
    EXPECT_TRUE(t == core);
    EXPECT_TRUE(core->getType().isDerivedFrom(Group::getClassType()));
    EXPECT_STREQ(core->getTypeName(), "Transform3D");
}

TEST(CloneFullTree, SharesCoresAndCopiesStructure) {
    auto root = makeNode("root", Group::create());
    auto mid = makeNode("mid", Transform3D::create());
    auto leaf = makeNode("leaf", Geometry::create());
    mid->setTraversalMask(0);
    root->addChild(mid);
    mid->addChild(leaf);
    auto anim = AnimAttachment::create();
    mid->addAttachment(anim);

    NodePtr copy = ksNodeUtils::cloneFullTree(root, true);
    ASSERT_TRUE(copy);
    EXPECT_NE(copy, root);
    ASSERT_EQ(copy->getNChildren(), 1u);
    NodePtr cmid = copy->getChild(0);
    EXPECT_NE(cmid, mid);
    EXPECT_EQ(cmid->getName(), "mid");
    EXPECT_EQ(cmid->getTraversalMask(), 0u);
    EXPECT_EQ(cmid->getCore(), mid->getCore());
    EXPECT_EQ(cmid->getChild(0)->getCore(), leaf->getCore());
    EXPECT_EQ(leaf->getCore()->getNParents(), 2u);
    EXPECT_TRUE(cmid->findAttachment<AnimAttachment>());
    EXPECT_NE(cmid->findAttachment<AnimAttachment>(), anim);
    // The copy's structure is its own.
    cmid->subChild(0u);
    EXPECT_EQ(mid->getNChildren(), 1u);

    NodePtr deep = ksNodeUtils::cloneFullTree(root, false);
    EXPECT_NE(deep->getChild(0)->getCore(), mid->getCore());
    EXPECT_STREQ(deep->getChild(0)->getCore()->getTypeName(), "Transform3D");
}

TEST(CloneFullTree, InstancesEditTheirOwnAttachments) {
    auto node = makeNode("n", Group::create());
    auto anim = AnimAttachment::create();
    auto curve = AnimCurve::create();
    curve->setChannel("translation", "x");
    curve->addPoint(Pnt2f(0, 1), Vec2f(), Vec2f(), 1, 1, true, false);
    auto group = AnimNode::create();
    group->addChild(curve);
    anim->getRoot()->addChild(group);
    node->addAttachment(anim);
    auto meta = Metadata::create();
    auto set = MetadataSet::create();
    set->getMetadata()["colour"] = "red";
    meta->addMetadataSet(set);
    node->addAttachment(meta);
    auto skin = SkinAttachment::create();
    auto cluster = DeformerCluster::create();
    cluster->setWeights({{0, 0.5f}});
    skin->addJoint(cluster);
    node->addAttachment(skin);
    auto cache = TimeShapeCache::create();
    auto shape = TimeShapeData::create();
    shape->editPositions().push_back(Pnt3f(1, 2, 3));
    cache->addShape(shape);
    node->getCore()->addAttachment(cache);

    for (bool shareCores : {true, false}) {
        NodePtr copy = ksNodeUtils::cloneFullTree(node, shareCores);
        // Edit everything the copy holds...
        auto canim = copy->findAttachment<AnimAttachment>();
        ASSERT_TRUE(canim);
        std::vector<AnimCurvePtr> curves;
        canim->getRoot()->collectCurves(curves);
        ASSERT_EQ(curves.size(), 1u);
        EXPECT_EQ(curves[0]->getChannel(), "translation");
        curves[0]->editControlPoints()[0].point[1] = 7.f;
        auto cmeta = copy->findAttachment<Metadata>();
        ASSERT_TRUE(cmeta);
        ASSERT_TRUE(cmeta->findMetadataSet(set->getName()));
        cmeta->getMetadataSets()[0]->getMetadata()["colour"] = "blue";
        auto cskin = copy->findAttachment<SkinAttachment>();
        ASSERT_TRUE(cskin && cskin->getJoints().size() == 1u);
        cskin->getJoints()[0]->editWeights()[0].weight = 1.f;
        // ...and the original still has its own values.
        EXPECT_EQ(curve->getControlPoints()[0].point[1], 1.f);
        EXPECT_EQ(set->getMetadata()["colour"], "red");
        EXPECT_EQ(cluster->getWeights()[0].weight, 0.5f);
        // A shared core keeps its attachments; a copied core gets copies.
        auto ccache = copy->getCore()->findAttachment<TimeShapeCache>();
        ASSERT_TRUE(ccache && ccache->getShapes().size() == 1u);
        EXPECT_EQ(ccache == cache, shareCores);
        if (!shareCores) {
            ccache->getShapes()[0]->editPositions()[0] = Pnt3f();
            EXPECT_EQ(shape->getPositions()[0], Pnt3f(1, 2, 3));
        }
    }
}

TEST(Attachments, OnePerTypeAndBinding) {
    auto node = makeNode("n", Group::create());
    auto m1 = Metadata::create();
    auto m2 = Metadata::create();
    node->addAttachment(m1);
    node->addAttachment(m2); // replaces
    node->addAttachment(AnimAttachment::create(), 1);
    EXPECT_EQ(node->findAttachment<Metadata>(), m2);
    EXPECT_TRUE(node->findAttachment<AnimAttachment>() == NullFC);
    EXPECT_TRUE(node->findAttachment<AnimAttachment>(1));
    node->subAttachment(m2);
    EXPECT_TRUE(node->findAttachment<Metadata>() == NullFC);
}

TEST(ChangeList, RecordsWhichFieldsWereWritten) {
    ChangeList& cl = ChangeList::current();
    cl.clear();
    auto t = Transform3D::create();
    auto node = Node::create();
    auto child = Node::create();
    t->setTranslation(Vec3f(1, 2, 3));
    t->setScale(Vec3f(2, 2, 2));
    node->addChild(child);
    EXPECT_EQ(cl.getMask(t->getId()) & Transform3D::TranslationFieldMask,
              Transform3D::TranslationFieldMask);
    EXPECT_TRUE(cl.getMask(t->getId()) & Transform3D::ScaleFieldMask);
    EXPECT_FALSE(cl.getMask(t->getId()) & Transform3D::RotationFieldMask);
    EXPECT_TRUE(cl.getMask(node->getId()) & Node::ChildrenFieldMask);

    // Consecutive writes to one container fold into one entry.
    std::size_t before = cl.getEntries().size();
    t->setEulerRotation(Vec3f(1, 0, 0));
    t->setEulerRotation(Vec3f(2, 0, 0));
    EXPECT_EQ(cl.getEntries().size(), before + 1);
    EXPECT_STREQ(cl.getEntries().back().typeName, "Transform3D");

    recordChange(node, Node::AttachmentsFieldMask);
    EXPECT_TRUE(cl.getMask(node->getId()) & Node::AttachmentsFieldMask);

    cl.setEnabled(false);
    t->setScale(Vec3f(3, 3, 3));
    cl.setEnabled(true);
    EXPECT_EQ(cl.getEntries().back().containerId, node->getId());
    cl.clear();
    EXPECT_TRUE(cl.getEntries().empty());
}

TEST(NodeUtils, NamesCanBeMadeUniqueAmongSiblings) {
    auto parent = makeNode("p", Group::create());
    auto a = makeNode("Body", Group::create());
    parent->addChild(a);
    auto b = Node::create();
    ksNodeUtils::setName(b, "Body", true, parent);
    EXPECT_EQ(ksNodeUtils::getName(b), "Body_1");
    ksNodeUtils::setName(b, "Other", false);
    EXPECT_EQ(ksNodeUtils::getName(b), "Other");
    EXPECT_EQ(ksNodeUtils::getName(NullFC), "");
    parent->addChild(b);
    EXPECT_EQ(ksNodeUtils::findNode(parent, "Other"), b);
}

TEST(Node, InsertAndReplaceKeepTheOrderWhenMovingWithinOneParent) {
    auto p = makeNode("p", Group::create());
    std::vector<NodePtr> c;
    for (const char* n : {"a", "b", "c", "d"}) {
        c.push_back(makeNode(n, NullFC));
        p->addChild(c.back());
    }
    auto names = [&] {
        std::string s;
        for (const auto& ch : p->getChildren())
            s += ch->getName();
        return s;
    };
    p->insertChild(3, c[0]); // a moves behind c
    EXPECT_EQ(names(), "bcad");
    p->insertChild(0, c[3]);
    EXPECT_EQ(names(), "dbca");
    auto e = makeNode("e", NullFC);
    EXPECT_TRUE(p->replaceChild(1, e));
    EXPECT_EQ(names(), "deca");
    EXPECT_TRUE(c[1]->getParent() == NullFC);
    EXPECT_FALSE(p->replaceChild(9, c[1]));
    EXPECT_EQ(p->findChild(c[1]), -1);
}

TEST(ChangeList, EachThreadRecordsIntoItsOwnList) {
    ChangeList::current().clear();
    auto t = Transform3D::create();
    std::size_t otherCount = 99;
    std::thread worker([&] {
        t->setScale(Vec3f(2, 2, 2));
        otherCount = ChangeList::current().getEntries().size();
    });
    worker.join();
    EXPECT_EQ(otherCount, 1u);
    EXPECT_TRUE(ChangeList::current().getEntries().empty());
}
