// Cameras, lights and skeletons on import: the values the host gets from
// the file's attributes, what degrades to a plain node, and joints.
#include <cmath>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/osg/Joint.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

class CameraLightTest : public PluginTest {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ksUberCameraPool::the().reset();
        ksConstraintManager::the().clear();
    }
    void TearDown() override {
        ksUberCameraPool::the().reset();
        ksConstraintManager::the().clear();
        PluginTest::TearDown();
    }
};

QdxNode* addNode(QdxScene* s, QdxNode* parent, const char* name, QdxNodeAttribute* attribute) {
    QdxNode* n = QdxNode::Create(s, name);
    parent->AddChild(n);
    if (attribute) n->SetNodeAttribute(attribute);
    return n;
}

TEST_F(CameraLightTest, SkeletonNodesBecomeJointsAndEqualInstancesShareTheirClone) {
    Imported r = import(writeScene("skeleton.qdx", [](QdxScene* s) {
        // Both under groups: the axis conversion only touches the root's
        // children.
        QdxNode* parent = addNode(s, s->GetRootNode(), "Body", nullptr);
        QdxSkeleton* shared = nullptr;
        for (const char* name : {"Hip", "Knee", "Ankle"}) {
            auto* bone = QdxSkeleton::Create(s, name);
            bone->SetSkeletonType(shared ? QdxSkeleton::eLimbNode : QdxSkeleton::eRoot);
            parent = addNode(s, parent, name, bone);
            parent->LclTranslation.Set(QdxDouble3(0, 10, 0));
            if (!shared) shared = bone;
        }
        QdxNode* group = addNode(s, s->GetRootNode(), "Group", nullptr);
        addNode(s, group, "Twin", shared)->LclTranslation.Set(QdxDouble3(0, 10, 0));
    }));
    ASSERT_TRUE(r.root);
    for (const char* name : {"Hip", "Knee", "Ankle"}) {
        osg::NodePtr n = r.node(name);
        ASSERT_TRUE(n) << name;
        EXPECT_TRUE(osg::JointPtr::dcast(n->getCore())) << name;
    }
    EXPECT_EQ(r.node("Ankle")->getParent(), r.node("Knee"));
    EXPECT_EQ(r.node("Knee")->getParent(), r.node("Hip"));
    // The twin reuses the hip's joint: a clone of its subtree sharing cores.
    osg::NodePtr twin = r.node("Group")->getChild(0);
    ASSERT_TRUE(twin);
    EXPECT_EQ(twin->getCore(), r.node("Hip")->getCore());
}

} // namespace
