// The import driver: registration, options, failures, host unit and axis
// settings, frame rate and ranges, root naming, progress and messages.
#include <algorithm>
#include <cstdio>
#include <fstream>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksInterfaceFactory.h>
#include <kestrel/ksMetadataUtils.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOpenSGUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/SceneFileHandler.h>
#include <kestrel/osg/Transform.h>

#include "TestKit.h"
#include "ksQdxLoader.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

void oneQuadAt(QdxScene* scene, const QdxDouble3& t) {
    QdxNode* n = addMesh(scene, scene->GetRootNode(), "Quad", quadPoints(), {{0, 1, 2, 3}});
    n->LclTranslation.Set(t);
}

class DriverTest : public PluginTest {};

TEST_F(DriverTest, RegistersOneReadWriteTypeForBothSuffixes) {
    osg::SceneFileType* qdx = osg::SceneFileHandler::the().getFileType("qdx");
    ASSERT_NE(qdx, nullptr);
    EXPECT_EQ(qdx, osg::SceneFileHandler::the().getFileType("abc"));
    EXPECT_STREQ(qdx->getName(), "QDX Scene");
    EXPECT_TRUE(qdx->canRead() && qdx->canWrite());
}

TEST_F(DriverTest, FailuresGiveNullAndTheirMessage) {
    {
        ksLogCapture capture;
        EXPECT_FALSE(ksQdxLoader::read("", ""));
        EXPECT_TRUE(capture.entries().empty());
    }
    {
        ksLogCapture capture;
        EXPECT_FALSE(ksQdxLoader::read(_dir + "/missing.qdx", ""));
        EXPECT_EQ(capture.count(ksLog::Error, "QdxImport: initializing of importer failed!"), 1u);
    }
    // Garbage, and a valid file cut in half: null, an error, no crash.
    const std::string garbage = _dir + "/garbage.qdx";
    std::ofstream(garbage, std::ios::binary) << std::string(300, '\x7f');
    Imported bad = import(garbage);
    EXPECT_FALSE(bad.root);
    EXPECT_EQ(bad.count(ksLog::Error, "QdxImport:"), 1u);

    const auto path = writeScene("cut.qdx", [](QdxScene* s) { oneQuadAt(s, {0, 0, 0}); });
    std::string bytes;
    {
        std::ifstream in(path, std::ios::binary);
        bytes.assign(std::istreambuf_iterator<char>(in), {});
    }
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes.substr(0, bytes.size() / 2);
    Imported cut = import(path);
    EXPECT_FALSE(cut.root);
    EXPECT_EQ(cut.count(ksLog::Error, "QdxImport:"), 1u);
}

TEST_F(DriverTest, ImportOptionsAreReadFromTheUpperCaseSuffixOnly) {
    const auto path = writeScene("opts.qdx", [](QdxScene* s) {
        oneQuadAt(s, {1, 2, 3});
        QdxDocumentInfo* info = QdxDocumentInfo::Create(s, "info");
        info->mTitle = "Options";
        s->SetDocumentInfo(info);
    });
    auto& handler = osg::SceneFileHandler::the();

    // Defaults: transforms kept, document information as metadata.
    Imported plain = import(path);
    ASSERT_TRUE(plain.root);
    auto t = ksNodeUtils::getTransform3D(plain.node("Quad"));
    ASSERT_TRUE(t);
    EXPECT_NE(t->getTranslation(), osg::Vec3f(0.f, 0.f, 0.f));
    std::vector<osg::MetadataSetPtr> sets;
    ksMetadataUtils::getMetadata(plain.root, sets);
    ASSERT_EQ(sets.size(), 1u);
    EXPECT_EQ(ksMetadataUtils::getName(sets[0]), "opts_Set");
    EXPECT_TRUE(ksMetadataUtils::isLocked(sets[0]));
    EXPECT_TRUE(sets[0]->getMetadata().contains("Title"));

    // Stored under the lower-case suffix: not an import option.
    handler.setOptions("qdx", "flush_transforms,enable_metadata=false");
    Imported lower = import(path);
    ASSERT_TRUE(lower.root);
    EXPECT_NE(ksNodeUtils::getTransform3D(lower.node("Quad"))->getTranslation(),
              osg::Vec3f(0.f, 0.f, 0.f));
    EXPECT_TRUE(ksMetadataUtils::getMetadata(lower.root));

    handler.setOptions("QDX", "flush_transforms, enable_metadata=false");
    Imported flushed = import(path);
    ASSERT_TRUE(flushed.root);
    osg::NodePtr quad = flushed.node("Quad");
    auto flat = ksNodeUtils::getTransform3D(quad);
    EXPECT_TRUE(!flat || flat->getTranslation() == osg::Vec3f(0.f, 0.f, 0.f));
    // Baked, the corners stay where the unflushed import put them.
    const auto before = worldCorners(plain.node("Quad"));
    const auto after = worldCorners(quad);
    ASSERT_EQ(before.size(), after.size());
    for (size_t i = 0; i < before.size(); ++i)
        EXPECT_TRUE(before[i].equals(after[i], 1e-3f));
    EXPECT_FALSE(ksMetadataUtils::getMetadata(flushed.root));
}

// Host unit and up-axis codes, and what they make of a node at (1, 2, 3)
// in a Y-up file stored in centimetres (or inches).
struct UnitCase {
    int unit, up;
    bool inches;
    const char* factors; // printed host, scene, stored-unit and position factors
    bool zup;
    osg::Vec3f translation;
};

class DriverUnits : public DriverTest, public ::testing::WithParamInterface<UnitCase> {};

TEST_P(DriverUnits, SceneIsExpressedInTheHostUnitAndAxes) {
    const UnitCase c = GetParam();
    ksSceneDataManager::getSceneData(0)->setLengthUnit(c.unit);
    ksSceneDataManager::getSceneData(0)->setUpAxis(c.up);
    std::vector<bool> messages;
    const int listener = ksOpenSGUtils::addListener(
        "LoadedQDXAxisSystem",
        [&](const std::string&, ksMessage& m, int) { messages.push_back(m.getBool("zup")); });
    Imported r = import(writeScene("units.qdx", [&](QdxScene* s) {
        if (c.inches) s->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::Inch);
        oneQuadAt(s, {1, 2, 3});
    }));
    ksOpenSGUtils::removeListener(listener);
    ASSERT_TRUE(r.root);
    EXPECT_EQ(messages, std::vector<bool>{c.zup});
    EXPECT_NE(r.out.find(c.factors), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("Unit of length: cm\n"), std::string::npos);
    const osg::Vec3f t = ksNodeUtils::getTransform3D(r.node("Quad"))->getTranslation();
    EXPECT_TRUE(t.equals(c.translation, 1e-4f)) << t[0] << " " << t[1] << " " << t[2];
}

// Y up to Z up maps (x, y, z) to (x, -z, y).
INSTANTIATE_TEST_SUITE_P(
    HostSettings, DriverUnits,
    ::testing::Values(
        UnitCase{1,
                 1,
                 false,
                 "Kestrel Scale Factor: 0.1\nScene Scale Factor: 1\nOriginal scale Factor: "
                 "1\n_unitScaleFactor: 10\n_unitConversionFactor: 10\n",
                 true,
                 {10.f, -30.f, 20.f}},
        UnitCase{2, 1, false, "_unitConversionFactor: 1\n", true, {1.f, -3.f, 2.f}},
        UnitCase{4, 0, false, "_unitConversionFactor: 0.01\n", false, {0.01f, 0.02f, 0.03f}},
        UnitCase{4,
                 0,
                 true,
                 "Original scale Factor: 2.54\n_unitScaleFactor: 0.01\n_unitConversionFactor: "
                 "0.01\n",
                 false,
                 {0.0254f, 0.0508f, 0.0762f}},
        // Decimetres and "undefined" fall back to millimetres; an unknown
        // up axis means Y up.
        UnitCase{3, 0, false, "Kestrel Scale Factor: 0.1\n", false, {10.f, 20.f, 30.f}},
        UnitCase{0, 7, false, "_unitConversionFactor: 10\n", false, {10.f, 20.f, 30.f}}));

TEST_F(DriverTest, FrameRateAndRangesOnlyWiden) {
    const auto path = writeScene("time.qdx", [](QdxScene* s) {
        s->GetGlobalSettings().SetTimeMode(QdxTime::eFrames30);
        s->GetGlobalSettings().SetTimelineDefaultTimeSpan(QdxTimeSpan(
            QdxTime(-2 * QdxTime::kTicksPerSecond), QdxTime(10 * QdxTime::kTicksPerSecond)));
        oneQuadAt(s, {0, 0, 0});
    });
    auto& anim = ksAnimManager::the();
    ASSERT_TRUE(import(path).root);
    EXPECT_EQ(anim.fps(), 30.0);
    EXPECT_EQ(anim.playbackFPS(), 30.0);
    EXPECT_EQ(anim.fullRangeStart(), 0);
    EXPECT_EQ(anim.fullRangeEnd(), 300);
    EXPECT_EQ(anim.detailedRangeEnd(), 300);

    anim.setFullRangeStart(-50);
    anim.setFullRangeEnd(1000);
    anim.setDetailedRangeEnd(500);
    Imported again = import(path);
    EXPECT_NE(again.out.find("Input framerate: 30.000000\n"), std::string::npos);
    EXPECT_EQ(anim.fullRangeStart(), -50);
    EXPECT_EQ(anim.fullRangeEnd(), 1000);
    EXPECT_EQ(anim.detailedRangeEnd(), 500);
}

TEST_F(DriverTest, RootIsNamedAfterTheFileUnlessTheSceneNamedIt) {
    Imported named = import(writeScene("car.qdx", [](QdxScene* s) { oneQuadAt(s, {0, 0, 0}); }));
    ASSERT_TRUE(named.root);
    EXPECT_EQ(ksNodeUtils::getName(named.root), "car");

    Imported own = import(writeScene("stage.qdx", [](QdxScene* s) {
        s->GetRootNode()->SetName("Stage");
        oneQuadAt(s, {0, 0, 0});
    }));
    ASSERT_TRUE(own.root);
    EXPECT_EQ(ksNodeUtils::getName(own.root), "Stage");
}

TEST_F(DriverTest, ReportsProgressVersionsTakesAndDocumentInformation) {
    Imported r = import(writeScene("report.qdx", [](QdxScene* s) {
        for (int i = 0; i < 5; ++i)
            oneQuadAt(s, {double(i), 0, 0});
        QdxAnimStack* stack = QdxAnimStack::Create(s, "Take 001");
        stack->AddMember(QdxAnimLayer::Create(s, "BaseLayer"));
        stack->AddMember(QdxAnimLayer::Create(s, "Overlay"));
        QdxDocumentInfo* info = QdxDocumentInfo::Create(s, "info");
        info->Original_ApplicationVendor.Set("Vendor");
        info->Original_ApplicationName.Set("Modeller");
        info->Original_ApplicationVersion.Set("7");
        s->SetDocumentInfo(info);
    }));
    ASSERT_TRUE(r.root);
    for (const char* line : {"Anim take: Take 001 2 layers\n", " - Overlay\n",
                             "Created with Vendor Modeller 7\n", "QDX: getting root...\n"})
        EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;
    for (const char* line : {"QdxImport: SDK Version: ", "QdxImport: Fileversion: ",
                             "QdxImport: converting scenegraph ready."})
        EXPECT_EQ(r.count(ksLog::Info, line), 1u) << line;
    // Reading fills 0..50, conversion 50..100 (the root and five nodes:
    // the last report is 5 / 6 of the way), never backwards.
    ASSERT_FALSE(r.progress.empty());
    EXPECT_TRUE(std::is_sorted(r.progress.begin(), r.progress.end()));
    EXPECT_EQ(r.progress.back(), 91u);
}

// The reference service is looked up once; a host that resets its interface
// factory in between must not leave the next import with a stale one.
TEST_F(DriverTest, ImportsAgainAfterTheHostResetsItsServices) {
    const std::string path = writeScene("twice.qdx", [](QdxScene* s) {
        addMesh(s, s->GetRootNode(), "Quad", quadPoints(), {{0, 1, 2, 3}});
    });
    ASSERT_TRUE(import(path).root);
    ksInterfaceFactory::the().reset();
    Imported again = import(path);
    ASSERT_TRUE(again.root);
    EXPECT_TRUE(again.geometry("Quad"));
}

} // namespace
