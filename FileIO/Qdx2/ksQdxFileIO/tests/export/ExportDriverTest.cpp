// The export driver: option parsing, writer and version choice, scene
// settings, the top node, and failures that must not leave files behind.
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include "ExportTestUtil.h"

using namespace exporttest;
namespace fs = std::filesystem;

namespace {

class ExportDriver : public ::testing::Test {
protected:
    void SetUp() override { resetHost(); }
    void TearDown() override { resetHost(); }

    // A scene root over one mesh node, the usual shape of an export.
    osg::NodePtr scene(const std::string& childName = "Mesh") {
        return makeGroup("Root", {makeNode(makeQuad(), childName)});
    }
    // Exports and returns what the driver printed.
    std::string exportCaptured(const osg::NodePtr& node, const std::string& file,
                               const std::string& options, bool& ok) {
        ::testing::internal::CaptureStdout();
        ok = ksQdxWriter::write(node, file, options);
        return ::testing::internal::GetCapturedStdout();
    }
    TempDir dir;
};

TEST_F(ExportDriver, FormatWordAndVersionPickTheWriter) {
    struct Case {
        const char* options;
        bool binary;
        const char* version;
    };
    const Case cases[] = {
        {"", true, "QDX300"},
        {"qdx_version=QDX100", true, "QDX100"},
        {"qdx_format=ascii,qdx_version=QDX200", false, "QDX200"},
        {"qdx_format=ascii,qdx_version=1", false, "QDX100"},
        {"qdx_version=QDX300,qdx_format=ascii", false, "QDX300"},
        // The format word counts only together with a version.
        {"qdx_format=ascii", true, "QDX300"},
        // No writable version contains the text: the default writer.
        {"qdx_format=ascii,qdx_version=QDX999", true, "QDX300"},
        {"qdx_format=nosuchwriter,qdx_version=QDX100", true, "QDX300"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        const std::string file = dir.file("out.qdx");
        bool ok = false;
        exportCaptured(scene(), file, c.options, ok);
        ASSERT_TRUE(ok);
        ReadBack back(file);
        ASSERT_TRUE(back.ok) << back.error;
        EXPECT_EQ(back.binary, c.binary);
        EXPECT_EQ(back.version, c.version);
    }
}

TEST_F(ExportDriver, ConsoleReportsRequestAndChoice) {
    bool ok = false;
    std::string out = exportCaptured(scene(), dir.file("a.qdx"), "", ok);
    EXPECT_TRUE(ok);
    EXPECT_NE(
        out.find("save QDX scene\nTry to write version:  in format:  export vertex colors: 0\n"),
        std::string::npos)
        << out;
    EXPECT_NE(out.find("Save QDX Scene, format: -1 version: \n"), std::string::npos) << out;

    out = exportCaptured(scene(), dir.file("b.qdx"),
                         "hsp_key=1,qdx_format=ascii,qdx_version=QDX2,qdx_export_vertex_colors=yes",
                         ok);
    EXPECT_NE(out.find("Try to write version: QDX2 in format: ascii export vertex colors: 1\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("Save QDX Scene, format: 1 version: QDX200\n"), std::string::npos) << out;

    out = exportCaptured(scene(), dir.file("c.qdx"), "qdx_export_vertex_colors=off", ok);
    EXPECT_NE(out.find("export vertex colors: 0\n"), std::string::npos) << out;
}

TEST_F(ExportDriver, TextFlavourSanitisesNamesBinaryKeepsThem) {
    const std::string text = dir.file("text.qdx"), binary = dir.file("binary.qdx");
    ASSERT_TRUE(ksQdxWriter::write(scene("a%b%c"), text, "qdx_format=ascii,qdx_version=QDX3"));
    ASSERT_TRUE(ksQdxWriter::write(scene("a%b%c"), binary, "qdx_version=QDX3"));
    ReadBack t(text), b(binary);
    ASSERT_TRUE(t.ok && b.ok);
    EXPECT_NE(t.find("a_b_c"), nullptr);
    EXPECT_EQ(t.find("a%b%c"), nullptr);
    EXPECT_NE(b.find("a%b%c"), nullptr);
}

TEST_F(ExportDriver, UnitsAxesAndTimeComeFromTheHost) {
    struct Case {
        int unit;
        const qdxsdk::QdxSystemUnit& original;
        double factor;
    };
    const Case cases[] = {{ksSceneData::Meter, qdxsdk::QdxSystemUnit::m, 100.0},
                          {ksSceneData::Centimeter, qdxsdk::QdxSystemUnit::cm, 1.0},
                          {ksSceneData::Millimeter, qdxsdk::QdxSystemUnit::mm, 0.1},
                          {ksSceneData::Inch, qdxsdk::QdxSystemUnit::mm, 0.1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.unit);
        ksSceneDataManager::getSceneData(0)->setLengthUnit(c.unit);
        auto t = osg::Transform3D::create();
        t->setTranslation(osg::Vec3f(1, 2, 3));
        t->setScale(osg::Vec3f(2, 2, 2));
        const std::string file = dir.file("units.qdx");
        ASSERT_TRUE(ksQdxWriter::write(makeGroup("Root", {makeNode(t, "T")}), file, ""));
        ReadBack back(file);
        ASSERT_TRUE(back.ok);
        const auto& settings = back.scene->GetGlobalSettings();
        EXPECT_EQ(settings.GetOriginalSystemUnit(), c.original);
        EXPECT_EQ(settings.GetSystemUnit(), qdxsdk::QdxSystemUnit::cm);
        qdxsdk::QdxDouble3 tr = back.find("T")->LclTranslation.Get();
        EXPECT_DOUBLE_EQ(tr[2], 3.0 * c.factor);
        EXPECT_DOUBLE_EQ(back.find("T")->LclScaling.Get()[0], 2.0);
    }

    ksSceneDataManager::getSceneData(0)->setUpAxis(ksSceneData::YUp);
    ksAnimManager::the().setFPS(30.0);
    ksAnimManager::the().setFullRangeStart(10);
    ksAnimManager::the().setFullRangeEnd(50);
    const std::string file = dir.file("time.qdx");
    ASSERT_TRUE(ksQdxWriter::write(scene(), file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok);
    const auto& settings = back.scene->GetGlobalSettings();
    EXPECT_EQ(settings.GetAxisSystem(), qdxsdk::QdxAxisSystem::ToveYUp);
    EXPECT_EQ(settings.GetTimeMode(), qdxsdk::QdxTime::eFrames30);
    qdxsdk::QdxTimeSpan span;
    settings.GetTimelineDefaultTimeSpan(span);
    EXPECT_EQ(span.GetStart().GetFrameCount(qdxsdk::QdxTime::eFrames30), 10);
    EXPECT_EQ(span.GetStop().GetFrameCount(qdxsdk::QdxTime::eFrames30), 50);
    EXPECT_EQ(std::string(back.scene->GetDocumentInfo()->LastSaved_ApplicationName.Get()),
              "Kestrel");
}

TEST_F(ExportDriver, TopNodeIsReplacedByTheSceneRoot) {
    auto top = osg::Transform3D::create();
    top->setTranslation(osg::Vec3f(100, 0, 0));
    auto node = makeNode(top, "Top", {makeGroup("A", {makeGroup("A1", {})}), makeGroup("B", {})});
    const std::string file = dir.file("top.qdx");
    ASSERT_TRUE(ksQdxWriter::write(node, file, ""));
    ReadBack back(file);
    ASSERT_TRUE(back.ok);
    ASSERT_EQ(back.root()->GetChildCount(), 2);
    EXPECT_STREQ(back.root()->GetChild(0)->GetName(), "A");
    EXPECT_STREQ(back.root()->GetChild(1)->GetName(), "B");
    EXPECT_EQ(back.find("Top"), nullptr);
    EXPECT_DOUBLE_EQ(back.find("A")->EvaluateGlobalTransform().GetT()[0], 0.0);

    ASSERT_TRUE(ksQdxWriter::write(makeGroup("Lonely", {}), file, ""));
    ReadBack empty(file);
    ASSERT_TRUE(empty.ok);
    EXPECT_EQ(empty.root()->GetChildCount(), 0);
}

TEST_F(ExportDriver, FailuresLeaveNoFileAndKeepExistingOnes) {
    EXPECT_FALSE(ksQdxWriter::write(osg::NodePtr(), dir.file("x.qdx"), ""));
    EXPECT_FALSE(ksQdxWriter::write(scene(), "", ""));
    EXPECT_FALSE(fs::exists(dir.file("x.qdx")));

    // A folder that does not exist is not created.
    const std::string missing = dir.file("missing/x.qdx");
    EXPECT_FALSE(ksQdxWriter::write(scene(), missing, ""));
    EXPECT_FALSE(fs::exists(dir.file("missing")));

    // The temporary file beside a name this long cannot be made, so the
    // export fails after conversion; the file already there stays as it was.
    const std::string longName = dir.file(std::string(250, 'n') + ".qdx");
    {
        FILE* f = std::fopen(longName.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::fputs("previous content", f);
        std::fclose(f);
    }
    EXPECT_FALSE(ksQdxWriter::write(scene(), longName, ""));
    EXPECT_EQ(readFile(longName), "previous content");

    // A folder in the target's place is left alone.
    fs::create_directories(dir.file("taken.qdx/inside"));
    EXPECT_FALSE(ksQdxWriter::write(scene(), dir.file("taken.qdx"), ""));
    EXPECT_TRUE(fs::is_directory(dir.file("taken.qdx/inside")));

    std::size_t entries = 0;
    for (const auto& e : fs::directory_iterator(dir.path())) {
        EXPECT_EQ(e.path().string().find(".tmp"), std::string::npos) << e.path();
        ++entries;
    }
    EXPECT_EQ(entries, 2u);

    if (::geteuid() == 0) return; // permissions do not bind the super-user
    const std::string locked = dir.file("locked");
    fs::create_directory(locked);
    const std::string kept = locked + "/kept.qdx";
    ASSERT_TRUE(ksQdxWriter::write(scene(), kept, ""));
    const std::string before = readFile(kept);
    ::chmod(locked.c_str(), 0555);
    EXPECT_FALSE(ksQdxWriter::write(scene("Other"), kept, ""));
    EXPECT_EQ(readFile(kept), before);
}

} // namespace
