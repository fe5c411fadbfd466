// The export driver: writer and version choice, host settings, the top
// node, and failures that must not leave files behind.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>

#include "TestKit.h"
#include "ksQdxWriter.h"

using namespace qdxtest;
namespace fs = std::filesystem;

namespace {

using ExportDriver = PluginTest;

osg::NodePtr meshScene(const std::string& name = "Mesh") {
    return makeGroup("Root", {makeNode(makeQuad(), name)});
}

TEST_F(ExportDriver, OptionsPickWriterVersionAndNames) {
    struct Case {
        const char *options, *version, *name;
        bool binary;
    };
    const Case cases[] = {
        {"", "QDX300", "a%b", true},
        {"qdx_version=QDX100", "QDX100", "a%b", true},
        {"qdx_format=ascii,qdx_version=QDX200", "QDX200", "a_b", false},
        {"qdx_version=1,qdx_format=ascii", "QDX100", "a_b", false},
        {"qdx_format=ascii", "QDX300", "a%b", true}, // no version: default writer
        {"qdx_format=ascii,qdx_version=QDX999", "QDX300", "a%b", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        ASSERT_TRUE(exportTo(meshScene("a%b"), file("out.qdx"), c.options));
        ReadBack back(file("out.qdx"));
        ASSERT_TRUE(back.ok);
        EXPECT_EQ(back.binary, c.binary);
        EXPECT_EQ(back.version, c.version);
        EXPECT_NE(back[c.name], nullptr);
    }
    exportTo(meshScene(), file("a.qdx"));
    EXPECT_NE(printed.find("save QDX scene\nTry to write version:  in format:  export vertex "
                           "colors: 0\nSave QDX Scene, format: -1 version: \n"),
              std::string::npos)
        << printed;
    exportTo(meshScene(), file("b.qdx"),
             "x=1,qdx_format=ascii,qdx_version=QDX2,qdx_export_vertex_colors=yes");
    EXPECT_NE(printed.find("version: QDX2 in format: ascii export vertex colors: 1\nSave QDX "
                           "Scene, format: 1 version: QDX200\n"),
              std::string::npos)
        << printed;
}

TEST_F(ExportDriver, UnitsAxesTimeAndTopNodeFollowTheHost) {
    const std::pair<int, double> units[] = {
        {ksSceneData::Meter, 100.0}, {ksSceneData::Centimeter, 1.0}, {ksSceneData::Inch, 0.1}};
    for (auto [unit, factor] : units) {
        setUnit(unit);
        auto t = osg::Transform3D::create();
        t->setTranslation(osg::Vec3f(1, 2, 3));
        t->setScale(osg::Vec3f(2, 2, 2));
        // The top node's own transform is not written; its children become
        // the file's top-level nodes.
        auto top = osg::Transform3D::create();
        top->setTranslation(osg::Vec3f(100, 0, 0));
        ASSERT_TRUE(
            exportTo(makeNode(top, "Top", {makeNode(t, "T"), makeGroup("B", {})}), file("u.qdx")));
        ReadBack back(file("u.qdx"));
        ASSERT_TRUE(back.ok);
        EXPECT_EQ(back.scene->GetGlobalSettings().GetOriginalSystemUnit().GetScaleFactor(), factor);
        EXPECT_EQ(back.scene->GetGlobalSettings().GetSystemUnit(), qdxsdk::QdxSystemUnit::cm);
        EXPECT_DOUBLE_EQ(back["T"]->EvaluateGlobalTransform().GetT()[2], 3.0 * factor);
        EXPECT_DOUBLE_EQ(back["T"]->LclScaling.Get()[0], 2.0);
        ASSERT_EQ(back.root()->GetChildCount(), 2);
        EXPECT_EQ(back["Top"], nullptr);
    }
    ksSceneDataManager::getSceneData(0)->setUpAxis(ksSceneData::YUp);
    ksAnimManager::the().setFPS(30.0);
    ksAnimManager::the().setFullRangeStart(10);
    ksAnimManager::the().setFullRangeEnd(50);
    ASSERT_TRUE(exportTo(makeGroup("Lonely", {}), file("t.qdx")));
    ReadBack back(file("t.qdx"));
    ASSERT_TRUE(back.ok);
    EXPECT_EQ(back.root()->GetChildCount(), 0);
    const auto& settings = back.scene->GetGlobalSettings();
    EXPECT_EQ(settings.GetAxisSystem(), qdxsdk::QdxAxisSystem::ToveYUp);
    EXPECT_EQ(settings.GetTimeMode(), qdxsdk::QdxTime::eFrames30);
    qdxsdk::QdxTimeSpan span;
    settings.GetTimelineDefaultTimeSpan(span);
    EXPECT_EQ(span.GetStart().GetFrameCount(qdxsdk::QdxTime::eFrames30), 10);
    EXPECT_EQ(span.GetStop().GetFrameCount(qdxsdk::QdxTime::eFrames30), 50);
}

TEST_F(ExportDriver, FailuresLeaveNoFileAndKeepExistingOnes) {
    EXPECT_FALSE(exportTo(osg::NodePtr(), file("x.qdx")));
    EXPECT_FALSE(exportTo(meshScene(), ""));
    EXPECT_FALSE(exportTo(meshScene(), file("missing/x.qdx")));
    EXPECT_FALSE(fs::exists(file("missing")));
    // No temporary file fits beside a name this long: the export fails
    // after conversion and the file already there stays as it was.
    const std::string longName = file(std::string(250, 'n') + ".qdx");
    std::ofstream(longName) << "previous";
    EXPECT_FALSE(exportTo(meshScene(), longName));
    EXPECT_EQ(contents(longName), "previous");
    fs::create_directories(file("taken.qdx/inside"));
    EXPECT_FALSE(exportTo(meshScene(), file("taken.qdx")));
    EXPECT_TRUE(fs::is_directory(file("taken.qdx/inside")));
    EXPECT_EQ(std::distance(fs::directory_iterator(_dir), fs::directory_iterator()), 2);

    if (::geteuid() == 0) return; // permissions do not bind the super-user
    ASSERT_TRUE(exportTo(meshScene(), file("kept.qdx")));
    const std::string before = contents(file("kept.qdx"));
    ::chmod(_dir.c_str(), 0555);
    EXPECT_FALSE(exportTo(meshScene("Other"), file("kept.qdx")));
    EXPECT_EQ(contents(file("kept.qdx")), before);
}

} // namespace
