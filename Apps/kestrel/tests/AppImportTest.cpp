// The program with the Qdx plug-in on the bundled sample scene: quiet
// output, textures found from anywhere, statistics, honest conversions,
// batches, checks and pictures.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <kestrel/osg/Image.h>
#include <qdxsdk/qdxsdk.h>

#include "AppSupport.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const std::string kSamples = KSQDX_SAMPLES_DIR;
const std::string kSample = kSamples + "/showroom.qdx";
const std::string kPlugins = "--plugin-dir '" KESTREL_PLUGIN_DIR "' ";

AppRun run(const std::string& args, const std::string& prefix = "cd / &&") {
    return runApp(kPlugins + args, prefix);
}

json parse(const std::string& text) {
    return json::parse(text, nullptr, false);
}

} // namespace

TEST(AppImport, SampleSceneTreeFromAnotherFolder) {
    // Started from "/", the import still runs beside the scene and finds its
    // textures.
    AppRun r = run("import '" + kSample + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* text :
         {"showroom [Transform3D]", "Turntable_mat_1 [Geometry]", "Tyre_RR [Geometry] shared by 4",
          "HiddenHelper [Geometry] hidden", "3 UV slots [0: 24x2] [1: 24x2] [7: 24x4], 24 colours",
          "material \"Paint\" (UPlasticMaterial)", "texture diffuse: textures/paint.png"})
        EXPECT_NE(r.out.find(text), std::string::npos) << text << "\n" << r.out;
    // Quiet by default: the plug-in's diagnostics and warnings are captured.
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.out.find("Loaded texture"), std::string::npos);

    AppRun v = run("-v import '" + kSample + "'");
    ASSERT_EQ(v.code, 0);
    EXPECT_NE(v.err.find("Loaded texture 'textures/paint.png'"), std::string::npos) << v.err;
    EXPECT_NE(v.err.find("Instances of SpareTyre have different transforms"), std::string::npos);
    EXPECT_EQ(v.out, r.out);

    // JSON stays parseable whatever the plug-in prints.
    AppRun j = run("import --json '" + kSample + "'");
    ASSERT_EQ(j.code, 0);
    EXPECT_EQ(parse(j.out)["name"], "showroom");
}

TEST(AppImport, FreshSampleShowsSurfacesLinesSkinsAndCaches) {
    // Generated now, so that the view follows the generator's content; the
    // caches are found beside the scene from any current folder.
    const fs::path dir =
        fs::temp_directory_path() / ("kestrel-sample-" + std::to_string(::getpid()));
    fs::create_directories(dir);
    ASSERT_TRUE(generateSample(dir.string()));
    AppRun r = run("import '" + (dir / "showroom.qdx").string() + "'");
    fs::remove_all(dir);
    ASSERT_EQ(r.code, 0) << r.err;
    for (const char* text :
         {"Tube [Surface]", "surface degree (3 3), knots (13 8), 36 control points (9x4)",
          "2 trim curves in 2 loops", "trim loop 1: [degree 2, 11 knots, 6 points]",
          "Rope [Geometry]", "2 primitives (2 line strip), 7 vertices", "SkinnedArm [Geometry]",
          "skin: 3 clusters", ": 22 weights, sum 12", "Flag [Geometry]",
          "vertex cache Flag_VertexAnim: 49 frames of 128 points, 0 s to 2 s", "Pool [Geometry]",
          "vertex cache Pool_VertexAnim: 49 frames of 128 points, 0 s to 2 s"})
        EXPECT_NE(r.out.find(text), std::string::npos) << text << "\n" << r.out;
}

TEST(AppImport, FailedImportShowsThePluginOutput) {
    TempDir dir;
    std::ofstream(dir.file("broken.qdx")) << "not a scene file at all";
    AppRun r = run("import '" + dir.file("broken.qdx") + "'");
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("plug-in output for"), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
}

TEST(AppImport, MissingTexturesAreCountedNamedAndFoundWithTexturePath) {
    TempDir dir;
    fs::copy_file(kSample, dir.file("copy.qdx"));
    AppRun r = run("import --stats --json '" + dir.file("copy.qdx") + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    json s = parse(r.out)["statistics"];
    EXPECT_EQ(s["texturesMissing"], 4);
    EXPECT_EQ(s["textures"], 0);
    EXPECT_NE(r.err.find("4 texture(s) not found"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("paint.png"), std::string::npos);

    AppRun q = run("-q import '" + dir.file("copy.qdx") + "'");
    EXPECT_EQ(q.code, 0);
    EXPECT_EQ(q.err, "");

    AppRun found = run("--texture-path '" + kSamples + "/textures' import --stats --json '" +
                       dir.file("copy.qdx") + "'");
    ASSERT_EQ(found.code, 0) << found.err;
    json fs2 = parse(found.out)["statistics"];
    EXPECT_EQ(fs2["texturesMissing"], 0);
    EXPECT_EQ(fs2["textures"], 4);
    EXPECT_EQ(found.err, "");
}

TEST(AppImport, StatisticsAnswerUsersQuestions) {
    AppRun r = run("--unit m --up y import --stats --json '" + kSample + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    json s = parse(r.out)["statistics"];
    EXPECT_EQ(s["unit"], "m");
    EXPECT_EQ(s["upAxis"], "y");
    EXPECT_EQ(s["meshes"], 10);
    EXPECT_GE(s["metadataSets"], 1);
    EXPECT_GT(s["memoryBytes"].get<double>(), 1000.0);
    EXPECT_GE(s["importSeconds"].get<double>(), 0.0);
    // The sample is ten metres across; in metres the box says so (lines keep
    // the file's own unit, which widens the box to about a hundred).
    const json& size = s["boundingBox"]["size"];
    ASSERT_TRUE(size.is_array());
    double largest = 0;
    for (const auto& v : size)
        largest = std::max(largest, v.get<double>());
    EXPECT_GT(largest, 1.0);
    EXPECT_LT(largest, 1000.0);

    AppRun text = run("--unit m --up y import --stats '" + kSample + "'");
    EXPECT_NE(text.out.find("unit, up axis:    m, y up"), std::string::npos) << text.out;
}

TEST(AppImport, ConvertSummarisesLossesAndProtectsFiles) {
    TempDir dir;
    const std::string out = dir.file("out.qdx");
    AppRun r = run("convert '" + kSample + "' '" + out + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("bump map"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("written as triangles"), std::string::npos);
    EXPECT_NE(r.out.find("qdx_export_vertex_colors"), std::string::npos);
    // The sample keeps its document information in a "_FileInfo" set, so
    // nothing is said about it.
    EXPECT_EQ(r.out.find("_FileInfo"), std::string::npos) << r.out;

    AppRun j = run("convert --json '" + kSample + "' '" + dir.file("colours.qdx") +
                   "' --export-options qdx_export_vertex_colors");
    ASSERT_EQ(j.code, 0) << j.err;
    json report = parse(j.out);
    ASSERT_TRUE(report["losses"].is_array()) << j.out;
    bool colours = false, bump = false;
    for (const auto& l : report["losses"]) {
        colours = colours || l["kind"] == "vertexColors";
        bump = bump || l["kind"] == "bumpMaps";
    }
    EXPECT_FALSE(colours); // the option carries them
    EXPECT_TRUE(bump);

    // A scene whose document information arrives only in the import's
    // "_Set" is told that it does not go back into the file.
    const std::string plain = dir.file("plain.qdx");
    {
        qdxsdk::QdxManager* manager = qdxsdk::QdxManager::Create();
        qdxsdk::QdxScene* scene = qdxsdk::QdxScene::Create(manager, "plain");
        scene->GetRootNode()->AddChild(qdxsdk::QdxNode::Create(scene, "empty"));
        auto* info = qdxsdk::QdxDocumentInfo::Create(scene, "info");
        info->mTitle = "Plain";
        scene->SetDocumentInfo(info);
        qdxsdk::QdxExporter* exporter = qdxsdk::QdxExporter::Create(manager, "");
        ASSERT_TRUE(exporter->Initialize(plain.c_str(), -1) && exporter->Export(scene));
        manager->Destroy();
    }
    AppRun info = run("convert '" + plain + "' '" + dir.file("plain-out.qdx") + "'");
    ASSERT_EQ(info.code, 0) << info.err;
    EXPECT_NE(info.out.find("_FileInfo"), std::string::npos) << info.out;

    // --no-clobber leaves an existing file alone; the input is never a target.
    const auto before = fs::last_write_time(out);
    AppRun again = run("convert --no-clobber '" + kSample + "' '" + out + "'");
    EXPECT_EQ(again.code, 1);
    EXPECT_NE(again.err.find("exists"), std::string::npos);
    EXPECT_EQ(fs::last_write_time(out), before);
    fs::copy_file(kSample, dir.file("self.qdx"));
    AppRun self = run("convert '" + dir.file("self.qdx") + "' '" + dir.file("self.qdx") + "'");
    EXPECT_EQ(self.code, 1);
    EXPECT_NE(self.err.find("input"), std::string::npos) << self.err;

    // Through a symbolic link: the link stays and the file keeps its mode.
    fs::create_directory(dir.file("real"));
    std::ofstream(dir.file("real/target.qdx")) << "old";
    ::chmod(dir.file("real/target.qdx").c_str(), 0640);
    fs::create_symlink("real/target.qdx", dir.file("link.qdx"));
    AppRun link = run("convert '" + kSample + "' '" + dir.file("link.qdx") + "'");
    ASSERT_EQ(link.code, 0) << link.err;
    EXPECT_TRUE(fs::is_symlink(dir.file("link.qdx")));
    EXPECT_GT(fs::file_size(dir.file("real/target.qdx")), 100u);
    struct stat st {};
    ASSERT_EQ(::stat(dir.file("real/target.qdx").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);

    AppRun noDir = run("convert '" + kSample + "' '" + dir.file("no/such/x.qdx") + "'");
    EXPECT_EQ(noDir.code, 1);
    EXPECT_NE(noDir.err.find("No such file or directory"), std::string::npos) << noDir.err;
}

// What another format's writer cannot carry is listed with the losses the
// host foresees, in the text and in the JSON report.
TEST(AppImport, ConvertToAnotherFormatListsWhatItsWriterDropped) {
    TempDir dir;
    AppRun r = run("convert '" + kSample + "' '" + dir.file("out.gltf") + "'");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("not carried into"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("area and volume lights are not carried"), std::string::npos) << r.out;
    AppRun j = run("convert --json '" + kSample + "' '" + dir.file("out.glb") + "'");
    ASSERT_EQ(j.code, 0) << j.err;
    const json report = parse(j.out);
    int notes = 0;
    for (const auto& l : report["losses"])
        notes += l["kind"] == "formatNote";
    EXPECT_GT(notes, 0) << j.out;
}

TEST(AppImport, BatchConvertWritesEveryInputIntoTheFolder) {
    TempDir dir;
    fs::create_directory(dir.file("in"));
    fs::create_directory(dir.file("out"));
    fs::copy_file(kSample, dir.file("in/a.qdx"));
    fs::copy_file(kSample, dir.file("in/b.qdx"));
    // The pattern is quoted, so the program expands it.
    AppRun r = run("-q convert '" + dir.file("in") + "/*.qdx' -o '" + dir.file("out") +
                   "' --suffix qdx --export-options qdx_format=ascii");
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(fs::exists(dir.file("out/a.qdx")));
    EXPECT_TRUE(fs::exists(dir.file("out/b.qdx")));
    EXPECT_EQ(r.out, "");
    AppRun both =
        run("import --json '" + dir.file("out/a.qdx") + "' '" + dir.file("out/b.qdx") + "'");
    ASSERT_EQ(both.code, 0) << both.err;
    EXPECT_EQ(parse(both.out).size(), 2u);
    EXPECT_EQ(run("convert a.qdx b.qdx c.qdx").code, 2);
}

TEST(AppImport, ValidateReportsAndFailsOnErrors) {
    AppRun ok = run("validate '" + kSample + "'");
    EXPECT_EQ(ok.code, 0) << ok.out << ok.err;
    EXPECT_NE(ok.out.find("0 error(s)"), std::string::npos) << ok.out;

    TempDir dir;
    fs::copy_file(kSample, dir.file("copy.qdx"));
    AppRun bad = run("validate --json '" + dir.file("copy.qdx") + "'");
    EXPECT_EQ(bad.code, 1);
    json report = parse(bad.out);
    ASSERT_FALSE(report.is_discarded()) << bad.out;
    EXPECT_EQ(report["report"]["errors"], 4);
    EXPECT_EQ(report["report"]["issues"][0]["check"], "missingTexture");
}

TEST(AppImport, RenderDrawsTheSceneWithItsColours) {
    TempDir dir;
    const std::string png = dir.file("show.png");
    AppRun r = run("render '" + kSample + "' -o '" + png + "' --size 320x200");
    ASSERT_EQ(r.code, 0) << r.err;
    auto img = osg::Image::create();
    ASSERT_TRUE(img->read(png)) << img->getLastError();
    ASSERT_EQ(img->getWidth(), 320u);
    ASSERT_EQ(img->getHeight(), 200u);
    // Coverage: the scene fills a fair part of the frame, not all of it;
    // the red car paint and the light and dark floor squares show.
    int covered = 0, red = 0, light = 0, dark = 0;
    const int total = 320 * 200;
    for (unsigned y = 0; y < 200; ++y)
        for (unsigned x = 0; x < 320; ++x) {
            const float c[3] = {img->getComponent(x, y, 0), img->getComponent(x, y, 1),
                                img->getComponent(x, y, 2)};
            const bool background = std::abs(c[0] * 255 - 36) < 1 &&
                                    std::abs(c[1] * 255 - 40) < 1 && std::abs(c[2] * 255 - 48) < 1;
            if (background) continue;
            ++covered;
            if (c[0] > 0.35f && c[1] < 0.15f && c[2] < 0.15f) ++red;
            if (c[0] > 0.55f && std::abs(c[0] - c[1]) < 0.05f) ++light;
            if (c[0] < 0.3f && std::abs(c[0] - c[2]) < 0.05f) ++dark;
        }
    EXPECT_GT(covered, total / 20);
    EXPECT_LT(covered, total * 9 / 10);
    EXPECT_GT(red, total / 200);
    EXPECT_GT(light, total / 100);
    EXPECT_GT(dark, total / 100);

    AppRun noCamera = run("render '" + kSample + "' -o '" + png + "' --camera Nowhere");
    EXPECT_EQ(noCamera.code, 1);
    EXPECT_NE(noCamera.err.find("no camera named 'Nowhere'"), std::string::npos);
}
