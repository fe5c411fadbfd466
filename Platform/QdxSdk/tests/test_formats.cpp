// File formats, importer, exporter and registry, through real files.
#include <gtest/gtest.h>

#include <filesystem>
#include <random>

#include "scene_builder.h"

using namespace qdxsdk;
using namespace qdxtest;

namespace {
class Formats : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        source = QdxScene::Create(manager, "source");
        BuildEverythingScene(source);
        dir = MakeTempDir("formats");
    }
    void TearDown() override {
        manager->Destroy();
        std::filesystem::remove_all(dir);
    }
    QdxScene* Fresh() { return QdxScene::Create(manager, "read"); }
    QdxManager* manager = nullptr;
    QdxScene* source = nullptr;
    std::string dir;
};
} // namespace

TEST_F(Formats, EveryFlavourAndVersionRoundTripsObjectByObject) {
    for (int format : {0, 1})
        for (int version : {1, 2, 3}) {
            std::string path = dir + "/rt.qdx", error;
            ASSERT_TRUE(ExportScene(source, path, format, version, &error)) << error;
            QdxScene* back = Fresh();
            ASSERT_TRUE(ImportScene(back, path, &error)) << error;
            EXPECT_EQ(CompareScenes(source, back), "")
                << "format " << format << " version " << version;
            // Document texts live in plain members; they must come back too.
            ASSERT_NE(back->GetDocumentInfo(), nullptr);
            EXPECT_EQ(back->GetDocumentInfo()->mComment, QdxString("line one\nline two"));
            back->ForceKill();
        }
}

TEST_F(Formats, BinaryToTextToBinaryIsByteIdentical) {
    for (int version : {1, 2, 3}) {
        std::string a = dir + "/a.qdx", t = dir + "/t.qdx", b = dir + "/b.qdx";
        ASSERT_TRUE(ExportScene(source, a, 0, version));
        QdxScene* s1 = Fresh();
        ASSERT_TRUE(ImportScene(s1, a));
        ASSERT_TRUE(ExportScene(s1, t, 1, version));
        QdxScene* s2 = Fresh();
        ASSERT_TRUE(ImportScene(s2, t));
        ASSERT_TRUE(ExportScene(s2, b, 0, version));
        EXPECT_EQ(ReadAll(a), ReadAll(b)) << "version " << version;
        s1->ForceKill();
        s2->ForceKill();
    }
}

TEST_F(Formats, VersionsDifferAsDocumented) {
    // Large arrays compress from version 2 on; version 1 stores them raw.
    std::string v1 = dir + "/v1.qdx", v2 = dir + "/v2.qdx", v3 = dir + "/v3.qdx";
    ASSERT_TRUE(ExportScene(source, v1, 0, 1));
    ASSERT_TRUE(ExportScene(source, v2, 0, 2));
    ASSERT_TRUE(ExportScene(source, v3, 0, 3));
    EXPECT_LT(ReadAll(v2).size(), ReadAll(v1).size());
    EXPECT_LT(ReadAll(v3).size(), ReadAll(v1).size());
    std::string t1 = dir + "/t1.qdx", t3 = dir + "/t3.qdx";
    ASSERT_TRUE(ExportScene(source, t1, 1, 1));
    ASSERT_TRUE(ExportScene(source, t3, 1, 3));
    EXPECT_EQ(ReadAll(t1).find("\"b64\""), std::string::npos);
    EXPECT_NE(ReadAll(t3).find("\"b64\""), std::string::npos);
    EXPECT_EQ(ReadAll(t1).find("\"crc32\""), std::string::npos);
    QdxImporter* im = QdxImporter::Create(manager, "");
    ASSERT_TRUE(im->Initialize(t3.c_str()));
    int major, minor, revision;
    im->GetFileVersion(major, minor, revision);
    EXPECT_EQ(major, 3);
    EXPECT_FALSE(im->IsBinary());
}

// Many meshes whose arrays are compressed on several threads: every array
// must come back as its own, compressible or not, and the bytes must not
// depend on which thread packed which array.
TEST_F(Formats, ManyLargeArraysComeBackAsTheirOwnInStableBytes) {
    QdxScene* big = Fresh();
    std::mt19937 random(7);
    std::uniform_real_distribution<double> noise(-1, 1);
    for (int m = 0; m < 25; ++m) {
        // Sizes from below the compression threshold to a few hundred KB,
        // and one above what is packed beside other arrays; every third
        // mesh holds noise, which stays raw.
        const int points = m == 24 ? 530000 : 20 + m * m * 60;
        const std::string number = std::to_string(m);
        QdxMesh* mesh = QdxMesh::Create(big, number.c_str());
        mesh->InitControlPoints(points);
        for (int i = 0; i < points; ++i)
            mesh->GetControlPoints()[i] =
                m % 3 == 2 ? QdxVector4(noise(random), noise(random), noise(random))
                           : QdxVector4(m, i % 97, i / 97);
        std::vector<int> corners, sizes;
        for (int i = 0; i + 2 < std::min(points, 30000); ++i) {
            corners.insert(corners.end(), {i, i + 1, i + 2});
            sizes.push_back(3);
        }
        mesh->AddPolygons(sizes.data(), static_cast<int>(sizes.size()), corners.data());
        QdxNode* node = QdxNode::Create(big, number.c_str());
        node->SetNodeAttribute(mesh);
        big->GetRootNode()->AddChild(node);
    }
    std::string v1 = dir + "/big1.qdx";
    ASSERT_TRUE(ExportScene(big, v1, 0, 1));
    for (int version : {2, 3}) {
        std::string a = dir + "/a.qdx", b = dir + "/b.qdx", error;
        ASSERT_TRUE(ExportScene(big, a, 0, version, &error)) << error;
        ASSERT_TRUE(ExportScene(big, b, 0, version, &error)) << error;
        EXPECT_EQ(ReadAll(a), ReadAll(b)) << "version " << version;
        EXPECT_LT(ReadAll(a).size(), ReadAll(v1).size() / 2) << "version " << version;
        QdxScene* back = Fresh();
        ASSERT_TRUE(ImportScene(back, a, &error)) << error;
        EXPECT_EQ(CompareScenes(big, back), "") << "version " << version;
        back->ForceKill();
    }
}

namespace {
// Reads bytes as a file; the scene must be untouched when reading fails.
bool TryRead(QdxManager* m, const std::string& path, const std::string& bytes) {
    WriteAll(path, bytes);
    QdxScene* scene = QdxScene::Create(m, "victim");
    int before = scene->GetMemberCount();
    QdxImporter* im = QdxImporter::Create(m, "");
    bool ok = im->Initialize(path.c_str()) && im->Import(scene);
    if (!ok) {
        EXPECT_EQ(scene->GetMemberCount(), before);
        EXPECT_STRNE(im->GetStatus().GetErrorString(), "");
    }
    im->Destroy();
    scene->ForceKill();
    return ok;
}
} // namespace

TEST_F(Formats, EveryTruncationIsRejected) {
    // A small scene keeps the number of prefixes bounded.
    QdxScene* small = Fresh();
    QdxNode* n = QdxNode::Create(small, "n");
    small->GetRootNode()->AddChild(n);
    QdxProperty::Create(n, QdxStringDT, "s").Set(QdxString("text"));
    for (int format : {0, 1}) {
        std::string path = dir + "/small.qdx";
        ASSERT_TRUE(ExportScene(small, path, format, 3));
        std::string bytes = ReadAll(path);
        for (size_t len = 0; len < bytes.size(); ++len) {
            // Dropping only the text's final line feed leaves a complete file.
            if (format == 1 && bytes.find_first_not_of("\n", len) == std::string::npos) continue;
            // Binary: every prefix. Text: every prefix near both ends and a
            // sample of the middle (a cut JSON document fails the same way).
            bool nearEnd = len < 512 || len + 256 > bytes.size();
            if (format == 1 && !nearEnd && len % 7 != 0) continue;
            EXPECT_FALSE(TryRead(manager, dir + "/cut.qdx", bytes.substr(0, len)))
                << "format " << format << " length " << len;
        }
    }
}

TEST_F(Formats, SeededByteFlipsNeverCrash) {
    // A small scene with a mesh, animation and materials keeps each read cheap.
    QdxScene* small = Fresh();
    QdxNode* n = QdxNode::Create(small, "n");
    small->GetRootNode()->AddChild(n);
    QdxMesh* mesh = QdxMesh::Create(small, "m");
    mesh->InitControlPoints(3);
    mesh->BeginPolygon(0);
    for (int i = 0; i < 3; ++i)
        mesh->AddPolygon(i);
    mesh->EndPolygon();
    mesh->CreateElementUV("uv")->GetDirectArray().Add(QdxVector2(1, 2));
    n->SetNodeAttribute(mesh);
    n->AddMaterial(QdxSurfacePhong::Create(small, "p"));
    QdxAnimStack* stack = QdxAnimStack::Create(small, "s");
    QdxAnimLayer* layer = QdxAnimLayer::Create(small, "l");
    stack->AddMember(layer);
    n->LclTranslation.GetCurve(layer, "X", true)->KeyAdd(QdxTime(5));
    std::mt19937 rng(1234);
    for (int format : {0, 1})
        for (int version : {1, 3}) {
            std::string path = dir + "/flip-src.qdx";
            ASSERT_TRUE(ExportScene(small, path, format, version));
            std::string bytes = ReadAll(path);
            for (int round = 0; round < 500; ++round) {
                std::string damaged = bytes;
                int flips = 1 + static_cast<int>(rng() % 4);
                for (int f = 0; f < flips; ++f)
                    damaged[rng() % damaged.size()] ^= static_cast<char>(1 + rng() % 255);
                TryRead(manager, dir + "/flip.qdx", damaged); // must not crash or leak
            }
        }
}

TEST_F(Formats, HostileCountsAreRejectedWithoutHugeAllocations) {
    // A hand-made binary file whose string table claims four billion strings.
    std::string bytes("\x89QDX\r\n\x1a\n", 8);
    auto u32 = [&](uint32_t v) { bytes.append(reinterpret_cast<char*>(&v), 4); };
    auto u64 = [&](uint64_t v) { bytes.append(reinterpret_cast<char*>(&v), 8); };
    u32(3);
    u32(0);
    bytes += "STRS";
    u64(4);
    std::string payload("\xff\xff\xff\xff", 4);
    bytes += payload;
    u32(0x41414141); // wrong checksum first
    EXPECT_FALSE(TryRead(manager, dir + "/h.qdx", bytes));
    // Deep JSON nesting is refused rather than recursed into.
    std::string deep = "{\"qdx\":\"text\",\"version\":1,\"objects\":" + std::string(100000, '[');
    EXPECT_FALSE(TryRead(manager, dir + "/deep.qdx", deep));
}

TEST_F(Formats, RegistryDescribesReadersAndWriters) {
    QdxIOPluginRegistry* r = manager->GetIOPluginRegistry();
    ASSERT_EQ(r->GetWriterFormatCount(), 4);
    EXPECT_STREQ(r->GetWriterFormatDescription(0), "Qdx binary (*.qdx)");
    EXPECT_STREQ(r->GetWriterFormatDescription(1), "Qdx ascii (*.qdx)");
    EXPECT_STREQ(r->GetWriterFormatDescription(2), "glTF 2.0 binary (*.glb)");
    EXPECT_STREQ(r->GetWriterFormatDescription(3), "glTF 2.0 (*.gltf)");
    const char** versions = r->GetWritableVersions(1);
    ASSERT_NE(versions, nullptr);
    EXPECT_STREQ(versions[0], "QDX300");
    EXPECT_EQ(versions[3], nullptr);
    EXPECT_EQ(r->GetWritableVersions(4), nullptr);
    // Detection by content wins over the suffix: a text file named .abc.
    std::string path = dir + "/scene.abc";
    ASSERT_TRUE(ExportScene(source, path, 1, 2));
    int format = -1;
    ASSERT_TRUE(r->DetectReaderFileFormat(path.c_str(), format));
    EXPECT_EQ(format, 1);
    QdxScene* back = Fresh();
    EXPECT_TRUE(ImportScene(back, path));
}

TEST_F(Formats, EveryFormatDetectsItsOwnFilesInEveryWritableVersion) {
    QdxIOPluginRegistry* r = manager->GetIOPluginRegistry();
    EXPECT_EQ(r->FindFormatIDByName("ASCII"), 1);
    EXPECT_EQ(r->FindFormatIDByName("none"), -1);
    EXPECT_EQ(r->GetFormatName(r->GetWriterFormatCount()), nullptr);
    for (int f = 0; f < r->GetWriterFormatCount(); ++f) {
        EXPECT_EQ(r->FindFormatIDByName(r->GetFormatName(f)), f);
        for (const char** v = r->GetWritableVersions(f); v && *v; ++v) {
            // A suffix no format claims: only the content can tell.
            std::string path = dir + "/detect.data";
            QdxExporter* e = QdxExporter::Create(manager, "");
            ASSERT_TRUE(e->Initialize(path.c_str(), f) && e->SetFileExportVersion(*v) &&
                        e->Export(source))
                << e->GetStatus().GetErrorString();
            QdxImporter* im = QdxImporter::Create(manager, "");
            ASSERT_TRUE(im->Initialize(path.c_str(), -1)) << im->GetStatus().GetErrorString();
            EXPECT_EQ(im->GetFileFormat(), f);
            EXPECT_EQ(im->GetFileVersionString(), QdxString(*v));
            EXPECT_EQ(im->IsBinary(), r->IsBinaryFormat(f));
            QdxScene* back = Fresh();
            ASSERT_TRUE(im->Import(back)) << im->GetStatus().GetErrorString();
            // The Qdx flavours are lossless; glTF is checked in its own tests.
            if (f < 2) {
                EXPECT_EQ(CompareScenes(source, back), "") << r->GetFormatName(f) << " " << *v;
            }
            back->ForceKill();
            im->Destroy();
            e->Destroy();
        }
    }
}

TEST_F(Formats, NonBlockingImportReportsProgressAndTakes) {
    std::string path = dir + "/nb.qdx";
    ASSERT_TRUE(ExportScene(source, path, 0, 3));
    QdxScene* scene = Fresh();
    QdxImporter* im = QdxImporter::Create(manager, "");
    ASSERT_TRUE(im->Initialize(path.c_str(), -1, nullptr));
    ASSERT_TRUE(im->Import(scene, true));
    QdxStatus status;
    float last = 0;
    while (im->IsImporting(status)) {
        float p = im->GetProgress();
        EXPECT_GE(p, last);
        EXPECT_LE(p, 100.0f);
        last = p;
    }
    EXPECT_FALSE(status.Error()) << status.GetErrorString();
    EXPECT_EQ(im->GetProgress(), 100.0f);
    ASSERT_EQ(im->GetAnimStackCount(), 2);
    EXPECT_EQ(im->GetTakeInfo(0)->mName, QdxString("Take 001"));
    ASSERT_EQ(im->GetTakeInfo(0)->mLayerInfoList.size(), 2u);
    EXPECT_EQ(im->GetTakeInfo(0)->mLayerInfoList[1].mName, QdxString("L2"));
    EXPECT_EQ(im->GetTakeInfo(5), nullptr);
    EXPECT_EQ(CompareScenes(source, scene), "");
}

TEST_F(Formats, FailedExportsLeaveExistingFilesAlone) {
    std::string path = dir + "/keep.qdx";
    WriteAll(path, "precious");
    QdxExporter* e = QdxExporter::Create(manager, "");
    ASSERT_TRUE(e->Initialize(path.c_str(), 0));
    EXPECT_FALSE(e->SetFileExportVersion("QDX999"));
    e->SetProgressCallback([](void*, float pct, const char*) { return pct < 50.0f; });
    EXPECT_FALSE(e->Export(source));
    EXPECT_EQ(ReadAll(path), "precious");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir), {}), 1);
    QdxExporter* bad = QdxExporter::Create(manager, "");
    ASSERT_TRUE(bad->Initialize((dir + "/missing/dir/x.qdx").c_str(), 1));
    EXPECT_FALSE(bad->Export(source));
    EXPECT_STRNE(bad->GetStatus().GetErrorString(), "");
    // A successful export replaces the file and reports 0..100.
    std::vector<float> seen;
    QdxExporter* good = QdxExporter::Create(manager, "");
    ASSERT_TRUE(good->Initialize(path.c_str(), 0));
    good->SetProgressCallback(
        [](void* args, float pct, const char*) {
            static_cast<std::vector<float>*>(args)->push_back(pct);
            return true;
        },
        &seen);
    ASSERT_TRUE(good->Export(source));
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.front(), 0.0f);
    EXPECT_EQ(seen.back(), 100.0f);
    EXPECT_NE(ReadAll(path), "precious");
}

TEST_F(Formats, ImporterErrorsHaveTexts) {
    QdxImporter* im = QdxImporter::Create(manager, "");
    EXPECT_FALSE(im->Initialize((dir + "/absent.qdx").c_str()));
    EXPECT_NE(std::string(im->GetStatus().GetErrorString()).find("not found"), std::string::npos);
    WriteAll(dir + "/junk.txt", "hello");
    EXPECT_FALSE(im->Initialize((dir + "/junk.txt").c_str()));
    EXPECT_FALSE(im->Import(Fresh()));
}

TEST_F(Formats, ImportReplacesTheSceneAndHonoursAForcedFormat) {
    std::string path = dir + "/forced.qdx";
    ASSERT_TRUE(ExportScene(source, path, 1, 3));
    QdxScene* scene = Fresh();
    QdxNode* old = QdxNode::Create(scene, "old");
    scene->GetRootNode()->AddChild(old);
    QdxImporter* im = QdxImporter::Create(manager, "");
    // A text file read as binary fails cleanly; as text it replaces the scene.
    EXPECT_FALSE(im->Initialize(path.c_str(), 0));
    EXPECT_FALSE(im->Import(scene));
    ASSERT_TRUE(im->Initialize(path.c_str(), 1));
    ASSERT_TRUE(im->Import(scene));
    EXPECT_EQ(scene->GetRootNode()->FindChild("old"), nullptr);
    EXPECT_EQ(CompareScenes(source, scene), "");
    EXPECT_EQ(im->GetFileVersionString(), QdxString("QDX300"));
}

TEST_F(Formats, ExporterPicksWritersBySuffixAndRejectsBadIndices) {
    QdxExporter* e = QdxExporter::Create(manager, "");
    EXPECT_FALSE(e->Initialize((dir + "/x.qdx").c_str(), 7));
    EXPECT_FALSE(e->Initialize("", 0));
    ASSERT_TRUE(e->Initialize((dir + "/x.abc").c_str(), -1));
    EXPECT_EQ(e->GetFileFormat(), 0);
    EXPECT_EQ(e->GetFileExportVersion(), QdxString("QDX300"));
    ASSERT_TRUE(e->Export(source));
    int format = -1;
    ASSERT_TRUE(
        manager->GetIOPluginRegistry()->DetectReaderFileFormat((dir + "/x.abc").c_str(), format));
    EXPECT_EQ(format, 0);
    // Substring matching, as a caller choosing versions by text would do.
    const char** versions = manager->GetIOPluginRegistry()->GetWritableVersions(0);
    int matched = -1;
    for (int i = 0; versions[i]; ++i)
        if (QdxString(versions[i]).Find("2") >= 0 && matched < 0) matched = i;
    EXPECT_STREQ(versions[matched], "QDX200");
}

TEST_F(Formats, ConcurrentNonBlockingImportsInSeparateManagers) {
    std::string a = dir + "/a.qdx", b = dir + "/b.qdx";
    ASSERT_TRUE(ExportScene(source, a, 0, 2));
    ASSERT_TRUE(ExportScene(source, b, 1, 3));
    QdxManager* other = QdxManager::Create();
    QdxScene* s1 = Fresh();
    QdxScene* s2 = QdxScene::Create(other, "");
    QdxImporter* i1 = QdxImporter::Create(manager, "");
    QdxImporter* i2 = QdxImporter::Create(other, "");
    ASSERT_TRUE(i1->Initialize(a.c_str()) && i2->Initialize(b.c_str()));
    ASSERT_TRUE(i1->Import(s1, true) && i2->Import(s2, true));
    QdxStatus st1, st2;
    while (static_cast<int>(i1->IsImporting(st1)) + static_cast<int>(i2->IsImporting(st2)) > 0) {
    }
    EXPECT_FALSE(st1.Error());
    EXPECT_FALSE(st2.Error());
    EXPECT_EQ(CompareScenes(s1, s2), "");
    // Destroying an importer while it still reads is safe.
    QdxImporter* i3 = QdxImporter::Create(other, "");
    ASSERT_TRUE(i3->Initialize(b.c_str()));
    ASSERT_TRUE(i3->Import(QdxScene::Create(other, ""), true));
    i3->Destroy();
    other->Destroy();
}

TEST_F(Formats, CustomFrameRatesStayWithTheirScene) {
    // The process-wide custom rate is set to something else on purpose: no
    // scene may pick it up, and no import may change it.
    QdxTime::SetGlobalTimeMode(QdxTime::eCustom, 24.0);
    for (double rate : {12.0, 15.0})
        for (int format : {0, 1}) {
            QdxScene* s = Fresh();
            QdxGlobalSettings& gs = s->GetGlobalSettings();
            gs.SetFrameRate(rate);
            ASSERT_EQ(gs.GetTimeMode(), QdxTime::eCustom);
            gs.SetTimelineDefaultFrames(6, 90);
            QdxTimeSpan span;
            gs.GetTimelineDefaultTimeSpan(span);
            EXPECT_EQ(span.GetStop().GetSecondDouble(), 90.0 / rate);
            std::string path = dir + "/rate.qdx", error;
            ASSERT_TRUE(ExportScene(s, path, format, 3, &error)) << error;
            QdxScene* back = Fresh();
            ASSERT_TRUE(ImportScene(back, path, &error)) << error;
            const QdxGlobalSettings& bg = back->GetGlobalSettings();
            EXPECT_EQ(back->GetFrameRate(), rate) << "format " << format;
            long long first = 0, last = 0;
            bg.GetTimelineDefaultFrames(first, last);
            EXPECT_EQ(first, 6);
            EXPECT_EQ(last, 90);
            EXPECT_EQ(bg.GetFrameCount(bg.GetFrameTime(-7)), -7);
            EXPECT_EQ(QdxTime::GetFrameRate(QdxTime::eCustom), 24.0);
            s->ForceKill();
            back->ForceKill();
        }

    // Two scenes with different custom rates side by side.
    QdxScene* a = Fresh();
    QdxScene* b = Fresh();
    a->GetGlobalSettings().SetFrameRate(12.0);
    b->GetGlobalSettings().SetFrameRate(15.0);
    EXPECT_EQ(a->GetGlobalSettings().GetFrameTime(30).GetSecondDouble(), 2.5);
    EXPECT_EQ(b->GetGlobalSettings().GetFrameTime(30).GetSecondDouble(), 2.0);
    std::string path = dir + "/b.qdx";
    ASSERT_TRUE(ExportScene(b, path, 1, 3));
    QdxScene* c = Fresh();
    ASSERT_TRUE(ImportScene(c, path));
    EXPECT_EQ(a->GetFrameRate(), 12.0);
    EXPECT_EQ(c->GetFrameRate(), 15.0);
    // Explicit custom rates in time conversions win over the process one.
    QdxTime t;
    t.SetFrame(24, QdxTime::eCustom, 12.0);
    EXPECT_EQ(t.GetSecondDouble(), 2.0);
    EXPECT_EQ(t.GetFrameCount(QdxTime::eCustom, 15.0), 30);
    EXPECT_EQ(t.GetFrameCount(QdxTime::eCustom), 48);
    QdxTime::SetGlobalTimeMode(QdxTime::eCustom, 30.0);
    QdxTime::SetGlobalTimeMode(QdxTime::eFrames30);
}

// The binary reader hands consumed pages of the mapped file back while it
// reads; arrays spread over several of those steps must still read whole,
// stored raw (noise) or compressed (a ramp).
TEST_F(Formats, ArraysLargerThanTheReleaseStepReadBackExactly) {
    QdxScene* big = Fresh();
    QdxNode* node = QdxNode::Create(big, "n");
    big->GetRootNode()->AddChild(node);
    QdxMesh* noise = QdxMesh::Create(big, "noise");
    QdxMesh* ramp = QdxMesh::Create(big, "ramp");
    node->SetNodeAttribute(noise);
    constexpr int kPoints = 400000; // 12.8 MB of doubles per mesh
    std::mt19937_64 random(7);
    std::uniform_real_distribution<double> value(-1e6, 1e6);
    noise->InitControlPoints(kPoints);
    ramp->InitControlPoints(kPoints);
    for (int i = 0; i < kPoints; ++i) {
        noise->SetControlPointAt(QdxVector4(value(random), value(random), value(random), 1), i);
        ramp->SetControlPointAt(QdxVector4(i, 0.5 * i, 0, 1), i);
    }
    for (int version : {1, 3}) {
        const std::string path = dir + "/big.qdx";
        std::string error;
        ASSERT_TRUE(ExportScene(big, path, 0, version, &error)) << error;
        ASSERT_GT(std::filesystem::file_size(path), 9u << 20);
        QdxScene* back = Fresh();
        ASSERT_TRUE(ImportScene(back, path, &error)) << error;
        EXPECT_EQ(CompareScenes(big, back), "") << "version " << version;
    }
}
