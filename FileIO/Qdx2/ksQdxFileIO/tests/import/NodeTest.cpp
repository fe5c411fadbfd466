// Node conversion: instances versus duplicates, visibility, attribute kinds
// imported as plain transforms, and the rotation orientation.
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg/Transform.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class NodeTest : public PluginTest {};

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
    // Moved by 1 or by a rounding error: either way B is a duplicate.
    for (double dx : {1.0, 1e-12}) {
        Imported r = import(writeScene("inst.qdx", [dx](QdxScene* s) {
            sharedMesh(s, {dx, 0, 0});
        }));
        ASSERT_TRUE(r.root);
        auto a = r.node("A"), b = r.node("B"), c = r.node("C");
        ASSERT_TRUE(a && b && c);
        EXPECT_EQ(a->getCore(), c->getCore());
        EXPECT_NE(a->getCore(), b->getCore());
        EXPECT_EQ(r.count(ksLog::Warning,
                          "Instances of B have different transforms, creating duplicates instead!"),
                  1u);
        EXPECT_EQ(r.count(ksLog::Warning, "Instances of C"), 0u);
        auto geometry = osg::GeometryPtr::dcast(b->getCore());
        ASSERT_TRUE(geometry);
        EXPECT_EQ(geometry->getPositions()->size(), 4u);
    }
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
