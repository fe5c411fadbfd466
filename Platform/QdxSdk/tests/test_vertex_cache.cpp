// Vertex-cache files and deformers: both file formats round-trip, Tove
// caches resample to point caches at any frame rate, hostile files fail
// with a message, and cache points follow the scene's conversions.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

#include "scene_builder.h"

using namespace qdxsdk;
using namespace qdxtest;

namespace {
constexpr double kTicks = static_cast<double>(QdxTime::kTicksPerSecond);

// Point i of the test motion at t seconds: straight lines, so linear
// interpolation between any samples is exact.
QdxVector4 Motion(int i, double t) {
    return QdxVector4(2.0 * t + i, -t, 0.5 * i);
}

QdxToveCache::Channel MotionChannel(const std::string& name, int points, double start,
                                    double interval, int samples, QdxToveCache::EStorage storage) {
    QdxToveCache::Channel c;
    c.name = name;
    c.pointCount = points;
    c.startTicks = std::llround(start * kTicks);
    c.intervalTicks = std::llround(interval * kTicks);
    c.storage = storage;
    for (int s = 0; s < samples; ++s)
        for (int i = 0; i < points; ++i) {
            QdxVector4 p =
                Motion(i, (static_cast<double>(c.startTicks) + s * c.intervalTicks) / kTicks);
            for (int k = 0; k < 3; ++k)
                c.values.push_back(p[k]);
        }
    return c;
}

QdxPointCache ThreePointCache() {
    QdxPointCache cache(3, 10.0, 0.5);
    for (int s = 0; s < 4; ++s) {
        std::vector<QdxVector4> pts;
        for (int i = 0; i < 3; ++i)
            pts.push_back(QdxVector4(s + 0.25 * i, -s, i));
        EXPECT_TRUE(cache.AddSample(pts));
    }
    return cache;
}

void ExpectNear(const QdxVector4& a, const QdxVector4& b, double tolerance) {
    for (int k = 0; k < 3; ++k)
        EXPECT_NEAR(a[k], b[k], tolerance) << "component " << k;
}

class VertexCache : public ::testing::Test {
protected:
    void SetUp() override { dir = MakeTempDir("vertexcache"); }
    void TearDown() override { std::filesystem::remove_all(dir); }
    std::string dir;
};

TEST_F(VertexCache, PointCacheRoundTripsThroughFileAndInterpolatesFrames) {
    QdxPointCache cache = ThreePointCache();
    EXPECT_FALSE(cache.AddSample({QdxVector4(0, 0, 0)})); // wrong point count
    EXPECT_FALSE(cache.AddSample(
        std::vector<QdxVector4>(3, QdxVector4(std::numeric_limits<double>::quiet_NaN(), 0, 0))));
    QdxStatus status;
    ASSERT_TRUE(cache.Write(dir + "/a.pc2", status)) << status.GetErrorString();
    EXPECT_EQ(std::filesystem::file_size(dir + "/a.pc2"), 32u + 3 * 4 * 12);

    QdxPointCache back;
    ASSERT_TRUE(back.Read(dir + "/a.pc2", status)) << status.GetErrorString();
    EXPECT_EQ(back.GetPointCount(), 3);
    EXPECT_EQ(back.GetSampleCount(), 4);
    EXPECT_EQ(back.GetStartFrame(), 10.0);
    EXPECT_EQ(back.GetSampleRate(), 0.5);
    EXPECT_EQ(back.GetEndFrame(), 11.5);
    EXPECT_EQ(std::memcmp(back.GetSample(0), cache.GetSample(0), 4 * 3 * 3 * sizeof(float)), 0);
    EXPECT_EQ(back.GetSample(4), nullptr);

    std::vector<QdxVector4> pts;
    ASSERT_TRUE(back.GetFramePoints(10.75, pts)); // halfway between samples 1 and 2
    ExpectNear(pts[2], QdxVector4(2.0, -1.5, 2), 1e-6);
    ASSERT_TRUE(back.GetFramePoints(-100, pts)); // before the first sample
    ExpectNear(pts[1], QdxVector4(0.25, 0, 1), 0);
    ASSERT_TRUE(back.GetFramePoints(100, pts)); // after the last
    ExpectNear(pts[0], QdxVector4(3, -3, 0), 0);
    EXPECT_FALSE(QdxPointCache().GetFramePoints(0, pts));
}

TEST_F(VertexCache, ToveCacheRoundTripsChannelsInBothStorages) {
    QdxToveCache cache;
    QdxStatus status;
    ASSERT_TRUE(
        cache.AddChannel(MotionChannel("wide", 4, 0.0, 0.1, 5, QdxToveCache::eFloat64), status));
    ASSERT_TRUE(cache.AddChannel(MotionChannel("narrow", 2, -1.0, 0.04, 3, QdxToveCache::eFloat32),
                                 status));
    EXPECT_FALSE(
        cache.AddChannel(MotionChannel("wide", 1, 0, 1, 1, QdxToveCache::eFloat32), status));
    QdxToveCache::Channel bad = MotionChannel("bad", 1, 0, 1, 1, QdxToveCache::eFloat32);
    bad.intervalTicks = 0;
    EXPECT_FALSE(cache.AddChannel(bad, status));
    ASSERT_TRUE(cache.Write(dir + "/a.tove", status));

    QdxToveCache back;
    ASSERT_TRUE(back.Read(dir + "/a.tove", status)) << status.GetErrorString();
    ASSERT_EQ(back.GetChannelCount(), 2);
    for (int c = 0; c < 2; ++c) {
        const QdxToveCache::Channel *a = cache.GetChannel(c), *b = back.GetChannel(c);
        EXPECT_EQ(a->name, b->name);
        EXPECT_EQ(a->pointCount, b->pointCount);
        EXPECT_EQ(a->startTicks, b->startTicks);
        EXPECT_EQ(a->intervalTicks, b->intervalTicks);
        EXPECT_EQ(a->storage, b->storage);
        ASSERT_EQ(a->values.size(), b->values.size());
        for (size_t i = 0; i < a->values.size(); ++i)
            EXPECT_EQ(a->storage == QdxToveCache::eFloat32 ? static_cast<float>(a->values[i])
                                                           : a->values[i],
                      b->values[i]);
    }
    EXPECT_EQ(back.FindChannel("")->name, "wide");
    EXPECT_EQ(back.FindChannel("narrow")->pointCount, 2);
    EXPECT_EQ(back.FindChannel("none"), nullptr);
}

TEST_F(VertexCache, ToveResamplesToPointCacheAtEveryFrameRate) {
    // 0.5 s to 1.5 s, sampled every 0.1 s: off any of the frame grids below.
    QdxToveCache tove;
    QdxStatus status;
    ASSERT_TRUE(
        tove.AddChannel(MotionChannel("pos", 3, 0.5, 0.1, 11, QdxToveCache::eFloat64), status));
    for (double fps : {24.0, 25.0, 30.0, 60.0, 30000.0 / 1001.0, 7.0}) {
        SCOPED_TRACE(fps);
        QdxPointCache pc2;
        ASSERT_TRUE(tove.ToPointCache(fps, "pos", pc2, status)) << status.GetErrorString();
        double first = std::ceil(0.5 * fps - 1e-9), last = std::floor(1.5 * fps + 1e-9);
        EXPECT_EQ(pc2.GetStartFrame(), first);
        EXPECT_EQ(pc2.GetSampleRate(), 1.0);
        ASSERT_EQ(pc2.GetSampleCount(), static_cast<int>(last - first + 1));
        std::vector<QdxVector4> pts;
        for (int s = 0; s < pc2.GetSampleCount(); ++s) {
            ASSERT_TRUE(pc2.GetFramePoints(first + s, pts));
            for (int i = 0; i < 3; ++i)
                ExpectNear(pts[static_cast<size_t>(i)], Motion(i, (first + s) / fps), 1e-4);
        }
    }
    QdxPointCache pc2;
    EXPECT_FALSE(tove.ToPointCache(0.0, "", pc2, status));
    EXPECT_FALSE(tove.ToPointCache(24.0, "missing", pc2, status));
}

TEST_F(VertexCache, DeformerConvertsToveBesideItAndReadsFrames) {
    QdxToveCache tove;
    QdxStatus status;
    ASSERT_TRUE(
        tove.AddChannel(MotionChannel("other", 1, 0, 1, 2, QdxToveCache::eFloat32), status));
    ASSERT_TRUE(
        tove.AddChannel(MotionChannel("pos", 2, 0.0, 0.25, 9, QdxToveCache::eFloat32), status));
    std::filesystem::create_directories(dir + "/caches");
    ASSERT_TRUE(tove.Write(dir + "/caches/sim.pc2", status)); // misleading extension on purpose

    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "scene");
    auto* deformer = QdxVertexCacheDeformer::Create(scene, "cache");
    deformer->SetCacheFile("caches/sim.pc2", QdxVertexCacheDeformer::eToveCache, "pos");
    EXPECT_FALSE(deformer->OpenFileForRead(status, dir + "/nowhere"));
    EXPECT_TRUE(status.Error());
    ASSERT_TRUE(deformer->ConvertFromToveToPC2(24.0, status, dir)) << status.GetErrorString();
    EXPECT_EQ(deformer->GetCacheFileFormat(), QdxVertexCacheDeformer::ePC2);
    EXPECT_EQ(deformer->GetCacheFileName(), "caches/sim.pc2.pc2");
    ASSERT_TRUE(std::filesystem::exists(dir + "/caches/sim.pc2")); // the source stays
    ASSERT_TRUE(deformer->OpenFileForRead(status, dir)) << status.GetErrorString();
    EXPECT_EQ(deformer->GetStartFrame(), 0.0);
    EXPECT_EQ(deformer->GetEndFrame(), 48.0);
    std::vector<QdxVector4> pts;
    ASSERT_TRUE(deformer->GetFramePoints(30, pts));
    ExpectNear(pts[1], Motion(1, 30 / 24.0), 1e-5);
    // Converting a point cache is no work.
    EXPECT_TRUE(deformer->ConvertFromToveToPC2(24.0, status, dir));
    manager->Destroy();
}

// ------------------------------------------------------------ hostile files

bool ReadsPointCache(const std::vector<unsigned char>& bytes, std::string* message = nullptr) {
    QdxPointCache cache;
    QdxStatus status;
    bool ok = cache.ReadFromMemory(bytes.data(), bytes.size(), status);
    if (message) *message = status.GetErrorString();
    EXPECT_EQ(ok, !status.Error());
    if (!ok) {
        EXPECT_EQ(cache.GetSampleCount(), 0);
        EXPECT_FALSE(std::string(status.GetErrorString()).empty());
    }
    return ok;
}

bool ReadsTove(const std::vector<unsigned char>& bytes, std::string* message = nullptr) {
    QdxToveCache cache;
    QdxStatus status;
    bool ok = cache.ReadFromMemory(bytes.data(), bytes.size(), status);
    if (message) *message = status.GetErrorString();
    if (!ok) {
        EXPECT_EQ(cache.GetChannelCount(), 0);
    }
    return ok;
}

template <class T> void Put(std::vector<unsigned char>& bytes, size_t at, T v) {
    std::memcpy(bytes.data() + at, &v, sizeof v);
}

TEST(VertexCacheHostile, PointCacheFilesThatLieAreRejectedWithAMessage) {
    const std::vector<unsigned char> good = ThreePointCache().WriteToMemory();
    ASSERT_TRUE(ReadsPointCache(good));
    for (size_t n = 0; n < good.size(); ++n)
        EXPECT_FALSE(ReadsPointCache(std::vector<unsigned char>(good.begin(), good.begin() + n)))
            << "truncated to " << n;
    std::vector<unsigned char> longer = good;
    longer.push_back(0);
    EXPECT_FALSE(ReadsPointCache(longer));

    struct Edit {
        size_t at;
        int32_t value;
        const char* expect;
    };
    float nan = std::numeric_limits<float>::quiet_NaN();
    int32_t nanBits;
    std::memcpy(&nanBits, &nan, 4);
    for (Edit e : {Edit{0, 0x4E494F50 + 1, "signature"}, Edit{12, 2, "version"},
                   Edit{16, 0x7fffffff, "file size"}, Edit{28, 0x7fffffff, "file size"},
                   Edit{16, -3, "negative"}, Edit{24, 0, "sample rate"},
                   Edit{20, nanBits, "start frame"}, Edit{40, nanBits, "finite"}}) {
        std::vector<unsigned char> bad = good;
        Put(bad, e.at, e.value);
        std::string message;
        EXPECT_FALSE(ReadsPointCache(bad, &message)) << e.at;
        EXPECT_NE(message.find(e.expect), std::string::npos) << message;
    }
    // Both counts huge: their product would overflow a naive size check.
    std::vector<unsigned char> both = good;
    Put<int32_t>(both, 16, 0x40000000);
    Put<int32_t>(both, 28, 0x40000000);
    EXPECT_FALSE(ReadsPointCache(both));
    EXPECT_FALSE(QdxPointCache().ReadFromMemory(nullptr, 100, *std::make_unique<QdxStatus>()));
}

TEST(VertexCacheHostile, ToveFilesThatLieAreRejectedWithAMessage) {
    QdxToveCache cache;
    QdxStatus status;
    ASSERT_TRUE(
        cache.AddChannel(MotionChannel("ab", 2, 0, 0.5, 2, QdxToveCache::eFloat32), status));
    const std::vector<unsigned char> good = cache.WriteToMemory();
    ASSERT_TRUE(ReadsTove(good));
    for (size_t n = 0; n < good.size(); ++n)
        EXPECT_FALSE(ReadsTove(std::vector<unsigned char>(good.begin(), good.begin() + n)))
            << "truncated to " << n;
    std::vector<unsigned char> longer = good;
    longer.push_back(0);
    EXPECT_FALSE(ReadsTove(longer));

    // Channel fields: name length at 16, name at 20, then points 22,
    // samples 26, start 30, interval 38, storage 46, values 50.
    struct Edit {
        size_t at;
        int64_t value;
        size_t width;
        const char* expect;
    };
    float nan = std::numeric_limits<float>::infinity();
    uint32_t infBits;
    std::memcpy(&infBits, &nan, 4);
    for (Edit e :
         {Edit{0, 'X', 1, "signature"}, Edit{8, 9, 4, "version"},
          Edit{12, 0xffffffff, 4, "channel count"}, Edit{16, 0x7fffffff, 4, "name"},
          Edit{22, 0x7fffffff, 4, "file size"}, Edit{26, 0x7fffffff, 4, "file size"},
          Edit{22, -1, 4, "negative"}, Edit{38, 0, 8, "interval"}, Edit{38, -5, 8, "interval"},
          Edit{46, 7, 4, "storage"}, Edit{54, infBits, 4, "finite"},
          Edit{30, 0x7ffffffffffff000LL, 8, "time range"}}) {
        std::vector<unsigned char> bad = good;
        if (e.width == 1)
            bad[e.at] = static_cast<unsigned char>(e.value);
        else if (e.width == 4)
            Put(bad, e.at, static_cast<uint32_t>(e.value));
        else
            Put(bad, e.at, e.value);
        std::string message;
        EXPECT_FALSE(ReadsTove(bad, &message)) << e.at;
        EXPECT_NE(message.find(e.expect), std::string::npos) << message;
    }
}

// ------------------------------------------------------------ conversions

// A mesh whose cache's first frame is its own control points.
class CacheConversion : public VertexCache {
protected:
    void SetUp() override {
        VertexCache::SetUp();
        manager = QdxManager::Create();
        scene = QdxScene::Create(manager, "scene");
        node = QdxNode::Create(scene, "node");
        scene->GetRootNode()->AddChild(node);
        mesh = QdxMesh::Create(scene, "mesh");
        mesh->InitControlPoints(3);
        QdxPointCache pc2(3, 0.0, 1.0);
        std::vector<QdxVector4> pts;
        for (int i = 0; i < 3; ++i) {
            mesh->SetControlPointAt(QdxVector4(i, 2.0 * i + 1, -i), i);
            pts.push_back(mesh->GetControlPointAt(i));
        }
        pc2.AddSample(pts);
        QdxStatus status;
        EXPECT_TRUE(pc2.Write(dir + "/m.pc2", status));
        node->SetNodeAttribute(mesh);
        cache = QdxVertexCacheDeformer::Create(scene, "cache");
        cache->SetCacheFile("m.pc2", QdxVertexCacheDeformer::ePC2);
        mesh->AddDeformer(cache);
    }
    void TearDown() override {
        manager->Destroy();
        VertexCache::TearDown();
    }
    // The cache's first frame read back through the deformer is the mesh's
    // control points, in whatever space the conversions left them.
    void ExpectCacheMatchesMesh(QdxVertexCacheDeformer* deformer) {
        QdxStatus status;
        ASSERT_TRUE(deformer->OpenFileForRead(status, dir)) << status.GetErrorString();
        std::vector<QdxVector4> pts;
        ASSERT_TRUE(deformer->GetFramePoints(0, pts));
        for (int i = 0; i < 3; ++i)
            ExpectNear(pts[static_cast<size_t>(i)], mesh->GetControlPointAt(i), 1e-6);
    }
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    QdxNode* node = nullptr;
    QdxMesh* mesh = nullptr;
    QdxVertexCacheDeformer* cache = nullptr;
};

TEST_F(CacheConversion, CachePointsFollowUnitAxisAndGeometricBakes) {
    const auto S = QdxNode::eSourcePivot;
    node->SetGeometricTranslation(S, QdxVector4(1, 0, 5));
    node->SetGeometricRotation(S, QdxVector4(30, 0, 90));
    node->SetGeometricScaling(S, QdxVector4(2, 1, 3));
    ASSERT_TRUE(QdxSystemUnit::m.ConvertScene(scene));
    ASSERT_TRUE(QdxAxisSystem::ToveZUp.ConvertScene(scene));
    node->ConvertPivotAnimationRecursive(nullptr, QdxNode::eDestinationPivot, 30.0, false);
    ASSERT_FALSE(mesh->GetControlPointAt(1)[1] == 3.0); // the mesh did change
    ExpectCacheMatchesMesh(cache);

    // The transform is part of the scene: a file keeps it.
    for (int format : {0, 1}) {
        std::string path = dir + "/s" + std::to_string(format) + ".qdx";
        ASSERT_TRUE(ExportScene(scene, path, format, 3));
        QdxScene* back = QdxScene::Create(manager, "back");
        ASSERT_TRUE(ImportScene(back, path));
        QdxMesh* m = back->GetRootNode()->GetChild(0)->GetMesh();
        ASSERT_NE(m, nullptr);
        auto* d = QdxCast<QdxVertexCacheDeformer>(m->GetDeformer(0));
        ASSERT_NE(d, nullptr);
        ExpectCacheMatchesMesh(d);
    }
}

} // namespace
