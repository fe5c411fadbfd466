// The qdx tool: exit codes and outputs.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include <nlohmann/json.hpp>

#include "scene_builder.h"

using namespace qdxtest;

namespace {
int RunTool(const std::string& args, std::string* out = nullptr) {
    std::string cmd = std::string(QDX_TOOL) + " " + args + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return -1;
    char buf[4096];
    std::string text;
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        text.append(buf, n);
    int status = pclose(p);
    if (out) *out = text;
    return WEXITSTATUS(status);
}
} // namespace

TEST(QdxTool, InfoDumpConvertAndErrors) {
    std::string dir = MakeTempDir("tool");
    qdxsdk::QdxManager* m = qdxsdk::QdxManager::Create();
    qdxsdk::QdxScene* s = qdxsdk::QdxScene::Create(m, "");
    BuildEverythingScene(s);
    std::string in = dir + "/in.qdx";
    ASSERT_TRUE(ExportScene(s, in, 0, 2));
    std::string out;
    EXPECT_EQ(RunTool("info " + in, &out), 0);
    EXPECT_NE(out.find("binary"), std::string::npos);
    EXPECT_NE(out.find("QDX200"), std::string::npos);
    EXPECT_NE(out.find("QdxMesh"), std::string::npos);
    EXPECT_EQ(RunTool("dump --json " + in, &out), 0);
    EXPECT_NE(out.find("\"connections\""), std::string::npos);
    EXPECT_EQ(RunTool("convert " + in + " " + dir + "/out.qdx --format ascii --version 1"), 0);
    qdxsdk::QdxScene* back = qdxsdk::QdxScene::Create(m, "");
    ASSERT_TRUE(ImportScene(back, dir + "/out.qdx"));
    EXPECT_EQ(CompareScenes(s, back), "");
    // One exit-code scheme: 1 the work failed (with the system's reason),
    // 2 wrong usage.
    EXPECT_EQ(RunTool("info " + dir + "/absent.qdx", &out), 1);
    EXPECT_NE(out.find("absent.qdx': No such file or directory"), std::string::npos) << out;
    EXPECT_EQ(RunTool("info " + dir, &out), 1);
    EXPECT_NE(out.find("Is a directory"), std::string::npos) << out;
    EXPECT_EQ(RunTool("convert " + in + " " + dir + "/no/such/dir/x.qdx", &out), 1);
    EXPECT_NE(out.find("No such file or directory"), std::string::npos) << out;
    EXPECT_EQ(RunTool("convert " + in + " x --format weird"), 2);
    EXPECT_EQ(RunTool("info", &out), 2);
    EXPECT_EQ(RunTool("--help", &out), 0);
    EXPECT_NE(out.find("convert"), std::string::npos);
    EXPECT_NE(out.find("0 success, 1 the work failed, 2 wrong usage"), std::string::npos);
    EXPECT_EQ(RunTool("--version", &out), 0);
    EXPECT_NE(out.find("qdx "), std::string::npos);

    std::string text;
    ASSERT_EQ(RunTool("info --json " + in + " 2>/dev/null", &text), 0);
    auto info = nlohmann::json::parse(text, nullptr, false);
    ASSERT_FALSE(info.is_discarded()) << text;
    EXPECT_EQ(info["flavour"], "binary");
    EXPECT_EQ(info["version"], "QDX200");
    EXPECT_GT(info["classes"]["QdxMesh"].get<int>(), 0);
    m->Destroy();
    std::filesystem::remove_all(dir);
}
