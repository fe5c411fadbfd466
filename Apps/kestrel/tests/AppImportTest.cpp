// The host program loads the built module and prints the imported sample,
// run from the repository root as the README's command does.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <nlohmann/json.hpp>

namespace {

std::string run(const std::string& command, int& status) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (!pipe) return out;
    char buffer[4096];
    size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        out.append(buffer, n);
    status = pclose(pipe);
    return out;
}

TEST(AppImport, SampleSceneTreeWithGeometryMaterialsAndTextures) {
    int status = -1;
    const std::string out =
        run(std::string("cd " KSQDX_SAMPLES_DIR "/.. && " KESTREL_APP_PATH " --plugin-dir ") +
                KESTREL_PLUGIN_DIR + " --no-progress import samples/showroom.qdx 2>&1",
            status);
    ASSERT_EQ(status, 0) << out;
    for (const char* text :
         {"showroom [Transform3D]", "Turntable_mat_1 [Geometry]", "Tyre_RR [Geometry] shared by 4",
          "HiddenHelper [Geometry] hidden", "3 UV slots [0: 24x2] [1: 24x2] [7: 24x4], 24 colours",
          "material \"Paint\" (UPlasticMaterial)", "texture diffuse: textures/paint.png"})
        EXPECT_NE(out.find(text), std::string::npos) << text << "\n" << out;
}

TEST(AppImport, JsonOutputParsesDespitePluginDiagnostics) {
    // The loader prints texture and unit diagnostics to standard output; the
    // program must keep them out of the JSON that scripts read.
    int status = -1;
    const std::string out =
        run(std::string("cd " KSQDX_SAMPLES_DIR " && " KESTREL_APP_PATH " --plugin-dir ") +
                KESTREL_PLUGIN_DIR + " --no-progress import --json showroom.qdx 2>/dev/null",
            status);
    ASSERT_EQ(status, 0) << out;
    const nlohmann::json tree = nlohmann::json::parse(out, nullptr, false);
    ASSERT_FALSE(tree.is_discarded()) << out.substr(0, 400);
    EXPECT_NE(out.find("\"showroom\""), std::string::npos);
}

} // namespace
