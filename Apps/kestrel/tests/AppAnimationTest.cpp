// `kestrel import` on an animated file written with the SDK's API: the tree
// and the JSON list each node's channels, blocks and key ranges, and --time
// or --frame evaluate the scene before showing local and world transforms.
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <qdxsdk/qdxsdk.h>

#include "AppSupport.h"

using namespace qdxsdk;
using nlohmann::json;

namespace {

const std::string kPlugins = "--plugin-dir '" KESTREL_PLUGIN_DIR "' --unit cm --up z ";

QdxTime sec(double s) {
    QdxTime t;
    t.SetSecondDouble(s);
    return t;
}

void linearKeys(QdxAnimCurve* curve, double v0, double v1) {
    curve->KeySet(curve->KeyAdd(sec(0)), sec(0), v0, QdxAnimCurveDef::eInterpolationLinear);
    curve->KeySet(curve->KeyAdd(sec(1)), sec(1), v1, QdxAnimCurveDef::eInterpolationLinear);
}

// Arm (translation X 0 -> 10 cm over a second) carries Hand (5 cm up Y, and a
// second layer adding 0 -> 4 cm in Z, and in Y the 5 cm its curve node
// stores); 50 frames per second, Z up, cm. Also
// gives the SDK's own local translations of Arm and Hand at 0.5 s.
bool writeAnimated(const std::string& path, QdxVector4& arm05, QdxVector4& hand05) {
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "animated");
    QdxGlobalSettings& settings = scene->GetGlobalSettings();
    settings.SetAxisSystem(QdxAxisSystem::ToveZUp);
    settings.SetSystemUnit(QdxSystemUnit::cm);
    settings.SetTimeMode(QdxTime::eFrames50);
    QdxAnimStack* stack = QdxAnimStack::Create(scene, "Take");
    QdxAnimLayer* base = QdxAnimLayer::Create(scene, "Base");
    QdxAnimLayer* extra = QdxAnimLayer::Create(scene, "Extra");
    stack->AddMember(base);
    stack->AddMember(extra);
    QdxNode* arm = QdxNode::Create(scene, "Arm");
    scene->GetRootNode()->AddChild(arm);
    QdxNode* hand = QdxNode::Create(scene, "Hand");
    arm->AddChild(hand);
    hand->LclTranslation.Set(QdxDouble3(0, 5, 0));
    linearKeys(arm->LclTranslation.GetCurve(base, "X", true), 0, 10);
    linearKeys(hand->LclTranslation.GetCurve(extra, "Z", true), 0, 4);
    arm05 = arm->EvaluateLocalTranslation(sec(0.5));
    hand05 = hand->EvaluateLocalTranslation(sec(0.5));
    QdxExporter* exporter = QdxExporter::Create(manager, "");
    const bool ok = exporter->Initialize(path.c_str(), 0) && exporter->Export(scene);
    manager->Destroy();
    return ok;
}

// Translation column of an evaluated matrix ("local" or "world").
double at(const json& node, const char* matrix, int row) {
    return node["evaluated"][matrix][row][3].get<double>();
}

} // namespace

TEST(AppAnimation, ImportListsChannelsAndEvaluatesAtATimeOrFrame) {
    TempDir dir;
    const std::string file = dir.file("animated.qdx");
    QdxVector4 arm, hand;
    ASSERT_TRUE(writeAnimated(file, arm, hand));
    ASSERT_EQ(arm[0], 5.0);
    ASSERT_EQ(hand[2], 2.0);

    AppRun tree = runApp(kPlugins + "import '" + file + "'");
    ASSERT_EQ(tree.code, 0) << tree.err;
    for (const char* text :
         {"translationX: 2 keys, 0 .. 1 s", "translationZ: 2 keys, 0 .. 1 s in",
          "translationY: 1 keys, 0 .. 0 s in", ": additive, weight 100%, 2 curves"})
        EXPECT_NE(tree.out.find(text), std::string::npos) << text << "\n" << tree.out;
    EXPECT_EQ(tree.out.find("at "), std::string::npos) << "no time asked for";
    EXPECT_EQ(tree.out.find(" 0 curves"), std::string::npos) << "no empty block or attachment";

    AppRun timed = runApp(kPlugins + "import '" + file + "' --time 0.5");
    ASSERT_EQ(timed.code, 0) << timed.err;
    EXPECT_NE(timed.out.find("at 0.5 s: local=((1 0 0 5) (0 1 0 0) (0 0 1 0) (0 0 0 1))"),
              std::string::npos)
        << timed.out;

    // Evaluating twice in one run, or at a frame, never accumulates: each
    // import starts from the file, and --frame 25 at 50 fps is 0.5 s.
    for (const std::string& when : {std::string("--time 0.5"), std::string("--frame 25")}) {
        AppRun j = runApp(kPlugins + "import --json '" + file + "' " + when);
        ASSERT_EQ(j.code, 0) << j.err;
        const json root = json::parse(j.out, nullptr, false);
        const json* armNode = findNode(root, "Arm");
        const json* handNode = findNode(root, "Hand");
        ASSERT_TRUE(armNode && handNode && handNode->contains("evaluated")) << j.out;
        EXPECT_DOUBLE_EQ((*handNode)["evaluated"]["time"].get<double>(), 0.5) << when;
        for (int row = 0; row < 3; ++row) {
            EXPECT_NEAR(at(*armNode, "local", row), arm[row], 1e-5) << when;
            EXPECT_NEAR(at(*handNode, "local", row), hand[row], 1e-5) << when;
            EXPECT_NEAR(at(*handNode, "world", row), arm[row] + hand[row], 1e-5) << when;
        }
        const json& channels = (*handNode)["animation"]["channels"];
        ASSERT_EQ(channels.size(), 2u);
        EXPECT_EQ(channels[0]["channel"], "translationY");
        EXPECT_EQ(channels[1]["channel"], "translationZ");
        EXPECT_EQ(channels[1]["block"], (*handNode)["animation"]["blocks"][0]["name"]);
    }

    AppRun both = runApp(kPlugins + "import '" + file + "' --time 1 --frame 2");
    EXPECT_EQ(both.code, 2);
    AppRun bad = runApp(kPlugins + "import '" + file + "' --time nan");
    EXPECT_EQ(bad.code, 2);
}
