// Node conversion: instances versus duplicates, visibility, attribute kinds
// imported as plain transforms, and the rotation orientation.
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Transform.h>

#include "ImportSupport.h"

using namespace importtest;
using namespace qdxsdk;

namespace {

class NodeTest : public ImportTest {};

// Three nodes share one mesh: A and C with equal transforms, B moved.
void sharedMesh(QdxScene* s, const QdxDouble3& bTranslation) {
    // All under equal groups: the axis conversion only touches the root's
    // children.
    QdxNode* root = s->GetRootNode();
    QdxNode* groupA = QdxNode::Create(s, "GroupA");
    root->AddChild(groupA);
    groupA->LclTranslation.Set(QdxDouble3(5, 0, 0));
    QdxNode* a = addMesh(s, groupA, "A", quadPoints(), {{0, 1, 2, 3}});
    QdxNodeAttribute* mesh = a->GetNodeAttribute();
    for (const char* name : {"B", "C"}) {
        QdxNode* group = QdxNode::Create(s, (std::string("Group") + name).c_str());
        root->AddChild(group);
        group->LclTranslation.Set(QdxDouble3(5, 0, 0));
        QdxNode* n = QdxNode::Create(s, name);
        group->AddChild(n);
        n->SetNodeAttribute(mesh);
        if (std::string(name) == "B") n->LclTranslation.Set(bTranslation);
    }
}

TEST_F(NodeTest, EqualTransformsShareTheGeometryOthersAreDuplicated) {
    Imported r = import(writeScene("inst.qdx", [](QdxScene* s) { sharedMesh(s, {1, 0, 0}); }));
    ASSERT_TRUE(r.root);
    auto a = r.node("A"), b = r.node("B"), c = r.node("C");
    ASSERT_TRUE(a && b && c);
    EXPECT_EQ(a->getCore(), c->getCore());
    EXPECT_NE(a->getCore(), b->getCore());
    EXPECT_EQ(r.count(ksLog::Warning,
                      "Instances of B have different transforms, creating duplicates instead!"),
              1u);
    // The duplicate is a full geometry of its own.
    auto geometry = osg::GeometryPtr::dcast(b->getCore());
    ASSERT_TRUE(geometry);
    EXPECT_EQ(geometry->getPositions()->size(), 4u);
    EXPECT_EQ(r.count(ksLog::Warning, "Instances of C"), 0u);
}

TEST_F(NodeTest, TransformsEqualOnlyUpToTheLastBit) {
    Imported r = import(writeScene("nearly.qdx", [](QdxScene* s) {
        sharedMesh(s, {1e-12, 0, 0});
    }));
    ASSERT_TRUE(r.root);
    EXPECT_NE(r.node("A")->getCore(), r.node("B")->getCore());
    EXPECT_EQ(r.count(ksLog::Warning, "Instances of B"), 1u);
}

TEST_F(NodeTest, InvisibleNodesStayInTheTreeWithAnEmptyMask) {
    Imported r = import(writeScene("hidden.qdx", [](QdxScene* s) {
        QdxNode* hidden = addMesh(s, s->GetRootNode(), "Hidden", quadPoints(), {{0, 1, 2, 3}});
        hidden->SetVisibility(false);
        QdxNode* child = QdxNode::Create(s, "Child");
        hidden->AddChild(child);
    }));
    ASSERT_TRUE(r.root);
    ASSERT_TRUE(r.node("Hidden"));
    EXPECT_EQ(r.node("Hidden")->getTraversalMask(), 0u);
    ASSERT_TRUE(r.node("Child"));
    EXPECT_EQ(r.node("Child")->getTraversalMask(), 0xFFFFFFFFu);
    EXPECT_EQ(r.node("Child")->getParent(), r.node("Hidden"));
}

TEST_F(NodeTest, UnconvertedAttributesBecomeNamedTransforms) {
    Imported r = import(writeScene("kinds.qdx", [](QdxScene* s) {
        QdxNode* root = s->GetRootNode();
        for (const char* name : {"Cam", "Lamp", "Bone", "Spot"}) {
            QdxNode* n = QdxNode::Create(s, name);
            root->AddChild(n);
            n->LclTranslation.Set(QdxDouble3(1, 0, 0));
        }
        root->GetChild(0)->SetNodeAttribute(QdxCamera::Create(s, "cam"));
        root->GetChild(1)->SetNodeAttribute(QdxLight::Create(s, "point"));
        root->GetChild(2)->SetNodeAttribute(QdxSkeleton::Create(s, "bone"));
        root->GetChild(3)->SetNodeAttribute(QdxMarker::Create(s, "marker"));
    }));
    ASSERT_TRUE(r.root);
    for (const char* name : {"Cam", "Lamp", "Bone", "Spot"}) {
        auto t =
            osg::Transform3DPtr::dcast(r.node(name) ? r.node(name)->getCore() : osg::NodeCorePtr());
        ASSERT_TRUE(t) << name;
        EXPECT_TRUE(t->getTranslation().equals(osg::Vec3f(10.f, 0.f, 0.f), 1e-4f)) << name;
    }
    EXPECT_EQ(r.count(ksLog::Warning, "has no core"), 0u);
}

TEST_F(NodeTest, APostRotationLeftOnACameraBecomesItsInverseOrientation) {
    Imported r = import(writeScene("camera.qdx", [](QdxScene* s) {
        QdxNode* n = QdxNode::Create(s, "Cam");
        s->GetRootNode()->AddChild(n);
        n->SetNodeAttribute(QdxCamera::Create(s, "cam"));
        n->SetPreRotation(QdxNode::eDestinationPivot, QdxVector4(10, 0, 0, 0));
        n->SetPostRotation(QdxNode::eDestinationPivot, QdxVector4(0, 45, 0, 0));
        n->SetPreRotation(QdxNode::eSourcePivot, QdxVector4(10, 0, 0, 0));
        n->SetPostRotation(QdxNode::eSourcePivot, QdxVector4(0, 45, 0, 0));
        n->SetRotationActive(true);
    }));
    ASSERT_TRUE(r.root);
    auto t = osg::Transform3DPtr::dcast(r.node("Cam")->getCore());
    ASSERT_TRUE(t);
    const osg::Vec3f o = t->getEulerRotationOrientation();
    EXPECT_NEAR(o[0], 10.f, 1e-3f);
    EXPECT_NEAR(o[1], -45.f, 1e-3f);
    EXPECT_NEAR(o[2], 0.f, 1e-3f);
}

} // namespace
