// The kestrel program end to end, through its command line, with the
// test-only plug-in module loaded from its own folder.
#include <algorithm>

#include <cstdio>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <kestrel/osg/Image.h>

#include "AppSupport.h"

namespace {

AppRun run(const std::string& args, const std::string& env = "") {
    return runApp(args, env);
}

const std::string kPlugins = "--plugin-dir '" KESTREL_TEST_PLUGIN_DIR "' ";

void writeScene(const std::string& path) {
    std::ofstream(path) << "ktst 1\n"
                           "group Car -1 0 0 5\n"
                           "mesh Body 0 4 0 0 0 1 0 0 1 1 0 0 1 0\n"
                           "group Wheels 0 1 2 3\n";
}

// A mesh with a textured material; the texture is a real 2x2 PNG.
void writeTexturedScene(const TempDir& dir) {
    std::vector<osg::UInt8> px(2 * 2 * 3, 200);
    auto img = osg::Image::create();
    img->set(2, 2, 3, osg::Image::UInt8Type, px.data());
    img->write(dir.file("wood.png"));
    std::ofstream(dir.file("textured.ktst")) << "ktst 1\n"
                                                "mesh Plank -1 3 0 0 0 1 0 0 0 1 0\n"
                                                "material Oak 0 0.5 0.25 0 wood.png\n";
}

} // namespace

TEST(KestrelApp, HelpWorksForEveryCommand) {
    for (const char* c : {"--help", "formats --help", "import --help", "convert --help",
                          "validate --help", "render --help"}) {
        AppRun r = run(c);
        EXPECT_EQ(r.code, 0) << c;
        EXPECT_NE(r.out.find("Usage"), std::string::npos) << c;
    }
    EXPECT_EQ(run("").code, 2);
    EXPECT_EQ(run("import").code, 2); // FILE is required
    EXPECT_EQ(run("--no-such-flag formats").code, 2);
    EXPECT_EQ(run("render x.ktst -o y.png --size 0x5").code, 2);
    AppRun help = run("--help");
    EXPECT_NE(help.out.find("0 success, 1 the work failed, 2 wrong usage"), std::string::npos);
    AppRun version = run("--version");
    EXPECT_EQ(version.code, 0);
    EXPECT_NE(version.out.find("kestrel "), std::string::npos) << version.out;
}

TEST(KestrelApp, FormatsListsTypesFromLoadedPlugins) {
    AppRun r = run(kPlugins + "formats");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("Test Scene"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("ktst"), std::string::npos);
    EXPECT_NE(r.out.find("read/write"), std::string::npos);

    AppRun j =
        run("formats --json", "KESTREL_PLUGIN_PATH='/nonexistent:" KESTREL_TEST_PLUGIN_DIR "'");
    ASSERT_EQ(j.code, 0) << j.err;
    // The default plug-in folder may hold further modules; look for ours.
    auto list = nlohmann::json::parse(j.out);
    auto it = std::find_if(list.begin(), list.end(),
                           [](const nlohmann::json& e) { return e["name"] == "Test Scene"; });
    ASSERT_NE(it, list.end()) << j.out;
    EXPECT_EQ((*it)["suffixes"][0]["suffix"], "ktst");
    EXPECT_TRUE((*it)["read"].get<bool>());
    EXPECT_TRUE((*it)["write"].get<bool>());
}

TEST(KestrelApp, ImportPrintsTheSceneGraph) {
    TempDir dir;
    writeScene(dir.file("car.KTST"));
    AppRun r = run(kPlugins + "import '" + dir.file("car.KTST") + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(r.err, ""); // no progress bar when stderr is not a terminal
    EXPECT_NE(r.out.find("Car [Transform3D]"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("translation=(0 0 5)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Body [Geometry]"), std::string::npos);
    EXPECT_NE(r.out.find("1 primitives (1 polygon)"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("4 vertices"), std::string::npos);
    EXPECT_NE(r.out.find("2 triangles"), std::string::npos);

    AppRun j = run(kPlugins + "import --json '" + dir.file("car.KTST") + "' --options ktst=upper");
    ASSERT_EQ(j.code, 0) << j.err;
    auto tree = nlohmann::json::parse(j.out);
    EXPECT_EQ(tree["name"], "CAR");
    ASSERT_EQ(tree["children"].size(), 2u);
    EXPECT_EQ(tree["children"][0]["geometry"]["positions"], 4);
    EXPECT_EQ(tree["children"][1]["transform"]["translation"], nlohmann::json::array({1, 2, 3}));

    AppRun s = run(kPlugins + "import --stats '" + dir.file("car.KTST") + "'");
    ASSERT_EQ(s.code, 0) << s.err;
    EXPECT_NE(s.out.find("nodes:            3"), std::string::npos) << s.out;
    EXPECT_NE(s.out.find("triangles:        2"), std::string::npos) << s.out;
}

TEST(KestrelApp, ImportShowsMaterialsAndTextures) {
    TempDir dir;
    writeTexturedScene(dir);
    AppRun r = run(kPlugins + "import '" + dir.file("textured.ktst") + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("material \"Oak\" (UPlasticMaterial) diffuse=(0.5 0.25 0)"),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("texture diffuse: " + dir.file("wood.png") + " (2x2)"), std::string::npos)
        << r.out;
    AppRun s = run(kPlugins + "import --stats --json '" + dir.file("textured.ktst") + "'");
    ASSERT_EQ(s.code, 0) << s.err;
    auto j = nlohmann::json::parse(s.out);
    EXPECT_EQ(j["statistics"]["materials"], 1);
    EXPECT_EQ(j["statistics"]["textures"], 1);
    EXPECT_EQ(j["tree"]["material"]["textures"]["diffuse"]["width"], 2);
}

TEST(KestrelApp, ConvertWritesThroughTheHandler) {
    TempDir dir;
    writeScene(dir.file("in.ktst"));
    AppRun r =
        run(kPlugins + "convert '" + dir.file("in.ktst") + "' '" + dir.file("out.ktst") + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    AppRun back = run(kPlugins + "import --json '" + dir.file("out.ktst") + "'");
    ASSERT_EQ(back.code, 0) << back.err;
    auto tree = nlohmann::json::parse(back.out);
    EXPECT_EQ(tree["children"][0]["name"], "Body");
}

TEST(KestrelApp, FailuresGiveMessagesAndNonZeroExitCodes) {
    TempDir dir;
    writeScene(dir.file("in.ktst"));
    std::ofstream(dir.file("broken.ktst")) << "something else";
    std::ofstream(dir.file("scene.nosuchformat")) << "x";

    AppRun noPlugin = run("import '" + dir.file("scene.nosuchformat") + "'");
    EXPECT_EQ(noPlugin.code, 1);
    EXPECT_NE(noPlugin.err.find("no plug-in reads this suffix"), std::string::npos) << noPlugin.err;

    AppRun missing = run(kPlugins + "import '" + dir.file("missing.ktst") + "'");
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("No such file or directory"), std::string::npos) << missing.err;

    AppRun broken = run(kPlugins + "import '" + dir.file("broken.ktst") + "'");
    EXPECT_EQ(broken.code, 1);
    EXPECT_NE(broken.err.find("could not read"), std::string::npos) << broken.err;

    AppRun badOut =
        run(kPlugins + "convert '" + dir.file("in.ktst") + "' '" + dir.file("x.unknown") + "'");
    EXPECT_EQ(badOut.code, 1);
    EXPECT_NE(badOut.err.find("no plug-in writes this suffix"), std::string::npos) << badOut.err;

    AppRun badUnit = run(kPlugins + "--unit parsec formats");
    EXPECT_EQ(badUnit.code, 2);
    EXPECT_NE(badUnit.err.find("unknown length unit"), std::string::npos);
    AppRun badOption = run(kPlugins + "formats --options nosuffix");
    EXPECT_EQ(badOption.code, 2);
    EXPECT_NE(badOption.err.find("SUFFIX=OPTIONS"), std::string::npos);
}

TEST(KestrelApp, VeryDeepHierarchiesPrintWithoutRecursion) {
    // Each group is the child of the one before; a recursive printer would
    // exhaust the stack long before the end.
    TempDir dir;
    {
        std::ofstream f(dir.file("deep.ktst"));
        f << "ktst 1\n";
        for (int i = 0; i < 50000; ++i)
            f << "group G" << i << " " << i - 1 << " 0 0 1\n";
    }
    AppRun tree = run(kPlugins + "import '" + dir.file("deep.ktst") + "'");
    ASSERT_EQ(tree.code, 0) << tree.err.substr(0, 400);
    EXPECT_NE(tree.out.find("G49999 [Transform3D]"), std::string::npos);
    AppRun j = run(kPlugins + "import --json --stats '" + dir.file("deep.ktst") + "'");
    ASSERT_EQ(j.code, 0) << j.err.substr(0, 400);
    EXPECT_NE(j.out.find("\"G49999\""), std::string::npos);
    EXPECT_NE(j.out.find("\"nodes\": 50000"), std::string::npos);
}
