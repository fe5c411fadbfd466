// Vertex caches through real files: every cached frame lies where the cache
// file puts the points, physically, in every host unit and up axis, for
// point caches and Tove caches at several frame rates and in both mesh
// layouts; normals follow the frames without smoothing hard edges; a broken
// or missing cache is reported and the mesh still imports without it.
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>

#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/TimeShapeCache.h>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

// Two quads side by side in the XY plane; the cache lifts each point along
// +Y by speed * t * (1 + x) file units at t seconds.
const std::vector<QdxVector4> kRest = {QdxVector4(0, 0, 0), QdxVector4(1, 0, 0),
                                       QdxVector4(2, 0, 0), QdxVector4(0, 1, 0),
                                       QdxVector4(1, 1, 0), QdxVector4(2, 1, 0)};
const std::vector<std::vector<int>> kQuads = {{0, 1, 4, 3}, {1, 2, 5, 4}};
constexpr double kSpeed = 3.0;

std::vector<QdxVector4> lifted(double seconds) {
    std::vector<QdxVector4> points = kRest;
    for (QdxVector4& p : points)
        p[1] += kSpeed * seconds * (1.0 + p[0]);
    return points;
}

void writeBytes(const std::string& path, const std::vector<unsigned char>& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

// A mesh node "Sheet" turned and moved away from the origin, with one
// vertex-cache deformer naming file.
QdxNode* addCachedSheet(QdxScene* scene, const std::string& file,
                        QdxVertexCacheDeformer::ECacheFormat format, bool byControlPoint,
                        const std::vector<QdxVector4>& points = kRest,
                        const std::vector<std::vector<int>>& polygons = kQuads) {
    QdxNode* node = addMesh(scene, scene->GetRootNode(), "Sheet", points, polygons);
    node->LclTranslation.Set(QdxDouble3(5, 2, -1));
    node->LclRotation.Set(QdxDouble3(0, 30, 0));
    QdxMesh* mesh = node->GetMesh();
    if (byControlPoint) {
        QdxLayerElementUV* uvs = mesh->CreateElementUV("map1");
        uvs->SetMappingMode(QdxLayerElement::eByControlPoint);
        uvs->SetReferenceMode(QdxLayerElement::eDirect);
        for (const QdxVector4& p : points)
            uvs->GetDirectArray().Add(QdxVector2(p[0], p[1]));
    }
    auto* cache = QdxVertexCacheDeformer::Create(scene, "SheetCache");
    cache->SetCacheFile(file, format);
    mesh->AddDeformer(cache);
    return node;
}

struct CacheCase {
    int unit;          // ksSceneData length unit code: 1 mm, 2 cm, 4 m
    int up;            // 0 Y, 1 Z
    bool tove;         // Tove cache, else point cache
    double fps;        // the scene's frame rate
    bool metres;       // file in metres, else centimetres
    bool controlPoint; // control-point layout, else one vertex per corner
};

class VertexCache : public PluginTest, public ::testing::WithParamInterface<CacheCase> {
protected:
    void SetUp() override {
        PluginTest::SetUp();
        ksSceneDataManager::getSceneData(0)->setLengthUnit(GetParam().unit);
        ksSceneDataManager::getSceneData(0)->setUpAxis(GetParam().up);
    }
    // Host units per file unit.
    static double scale() {
        const double perCm = GetParam().unit == 4 ? 0.01 : GetParam().unit == 2 ? 1.0 : 10.0;
        return perCm * (GetParam().metres ? 100.0 : 1.0);
    }
};

TEST_P(VertexCache, FramesLieWhereTheCachePutsThePoints) {
    const CacheCase& c = GetParam();
    // Expected shape times: every sample of the point cache (frames 3, 5, ...
    // 11), or every whole frame inside the Tove channel's 0.1 s .. 1.1 s.
    std::vector<double> times;
    if (c.tove) {
        QdxToveCache::Channel channel;
        channel.name = "points";
        channel.pointCount = static_cast<int>(kRest.size());
        channel.startTicks = QdxTime::kTicksPerSecond / 10;
        channel.intervalTicks = QdxTime::kTicksPerSecond / 4;
        for (int i = 0; i < 5; ++i)
            for (const QdxVector4& p : lifted(0.1 + 0.25 * i))
                channel.values.insert(channel.values.end(), {p[0], p[1], p[2]});
        QdxToveCache tove;
        QdxStatus status;
        ASSERT_TRUE(tove.AddChannel(channel, status)) << status.GetErrorString();
        ASSERT_TRUE(tove.Write(file("sheet.tove"), status)) << status.GetErrorString();
        for (int f = static_cast<int>(std::ceil(0.1 * c.fps - 1e-9)); f <= 1.1 * c.fps + 1e-9; ++f)
            times.push_back(f / c.fps);
    } else {
        QdxPointCache pc2(static_cast<int>(kRest.size()), 3.0, 2.0);
        for (int frame = 3; frame <= 11; frame += 2) {
            ASSERT_TRUE(pc2.AddSample(lifted(frame / c.fps)));
            times.push_back(frame / c.fps);
        }
        QdxStatus status;
        ASSERT_TRUE(pc2.Write(file("sheet.pc2"), status)) << status.GetErrorString();
    }
    // Relative cache paths resolve against the scene's folder, whatever the
    // current directory.
    const std::string scene = writeScene("sheet.qdx", [&](QdxScene* s) {
        if (c.metres) s->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::m);
        s->GetGlobalSettings().SetFrameRate(c.fps);
        addCachedSheet(s, c.tove ? "sheet.tove" : "sheet.pc2",
                       c.tove ? QdxVertexCacheDeformer::eToveCache : QdxVertexCacheDeformer::ePC2,
                       c.controlPoint);
    });
    Imported in = import(scene, "/");
    ASSERT_TRUE(in.root);
    EXPECT_EQ(in.count(ksLog::Error, ""), 0u);
    osg::NodePtr node = in.node("Sheet");
    osg::GeometryPtr g = in.geometry("Sheet");
    ASSERT_TRUE(g);
    auto cache = g->findAttachment<osg::TimeShapeCache>();
    ASSERT_TRUE(cache);
    EXPECT_EQ(cache->getName(), "Sheet_VertexAnim");
    const auto rest = osg::GeoPositions3fPtr::dcast(g->getPositions());
    ASSERT_EQ(rest->size(), c.controlPoint ? 6u : 8u);
    ASSERT_EQ(cache->getShapes().size(), times.size());

    const osg::Matrix world = node->getWorldMatrix();
    const osg::Vec3f up = c.up == 1 ? osg::Vec3f(0, 0, 1) : osg::Vec3f(0, 1, 0);
    const double extent = 3.0 * scale();
    for (size_t k = 0; k < times.size(); ++k) {
        const auto& shape = cache->getShapes()[k];
        EXPECT_NEAR(shape->getTime(), times[k], 1e-6) << "shape " << k;
        ASSERT_EQ(shape->getPositions().size(), rest->size());
        for (osg::UInt32 v = 0; v < rest->size(); ++v) {
            // The vertex's x in the file, from its rest position.
            const double x = rest->getValue(v)[0] / scale();
            const osg::Vec3f moved =
                world.multPnt(shape->getPositions()[v]) - world.multPnt(rest->getValue(v));
            const osg::Vec3f want =
                up * static_cast<float>(kSpeed * times[k] * (1.0 + x) * scale());
            for (int a = 0; a < 3; ++a)
                ASSERT_NEAR(moved[a], want[a], 1e-4 * extent)
                    << "shape " << k << " vertex " << v << " axis " << a;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Hosts, VertexCache,
                         ::testing::Values(CacheCase{1, 1, false, 24.0, false, false},
                                           CacheCase{2, 0, false, 30.0, true, true},
                                           CacheCase{4, 1, false, 25.0, false, true},
                                           CacheCase{1, 1, true, 24.0, false, false},
                                           CacheCase{4, 0, true, 30.0, true, false},
                                           CacheCase{2, 1, true, 60.0, false, true}),
                         [](const ::testing::TestParamInfo<CacheCase>& test) {
                             const CacheCase& c = test.param;
                             return std::string(c.tove ? "Tove" : "PointCache") + "_" +
                                    std::to_string(static_cast<int>(c.fps)) + "fps_" +
                                    (c.metres ? "FileInMetres" : "FileInCm") + "_Host" +
                                    (c.unit == 4   ? "M"
                                     : c.unit == 2 ? "Cm"
                                                   : "Mm") +
                                    (c.up == 1 ? "ZUp" : "YUp") +
                                    (c.controlPoint ? "_ByControlPoint" : "_ByCorner");
                         });

class VertexCacheFileTest : public PluginTest {};

// An L of two quads meeting at a right angle, with flat normals per corner:
// each frame's normals are its faces' own, so the fold stays sharp, and they
// turn with the points.
TEST_F(VertexCacheFileTest, NormalsFollowEachFrameAndKeepHardEdges) {
    const std::vector<QdxVector4> points = {QdxVector4(0, 0, 0),  QdxVector4(1, 0, 0),
                                            QdxVector4(1, 1, 0),  QdxVector4(0, 1, 0),
                                            QdxVector4(1, 0, -1), QdxVector4(1, 1, -1)};
    const std::vector<std::vector<int>> polygons = {{0, 1, 2, 3}, {1, 4, 5, 2}};
    const QdxVector4 flat[] = {QdxVector4(0, 0, 1), QdxVector4(1, 0, 0)};
    // Frame 1 turns everything by 90 degrees about X: (x, y, z) -> (x, -z, y).
    std::vector<QdxVector4> turned;
    for (const QdxVector4& p : points)
        turned.emplace_back(p[0], -p[2], p[1]);
    QdxPointCache pc2(static_cast<int>(points.size()), 0.0, 1.0);
    ASSERT_TRUE(pc2.AddSample(points));
    ASSERT_TRUE(pc2.AddSample(turned));
    QdxStatus status;
    ASSERT_TRUE(pc2.Write(file("fold.pc2"), status));
    const std::string scene = writeScene("fold.qdx", [&](QdxScene* s) {
        QdxNode* node =
            addCachedSheet(s, "fold.pc2", QdxVertexCacheDeformer::ePC2, false, points, polygons);
        QdxLayerElementNormal* normals = node->GetMesh()->CreateElementNormal();
        normals->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        normals->SetReferenceMode(QdxLayerElement::eDirect);
        for (const QdxVector4& n : flat)
            for (int corner = 0; corner < 4; ++corner)
                normals->GetDirectArray().Add(n);
    });
    Imported in = import(scene);
    osg::GeometryPtr g = in.geometry("Sheet");
    ASSERT_TRUE(g);
    auto cache = g->findAttachment<osg::TimeShapeCache>();
    ASSERT_TRUE(cache);
    ASSERT_EQ(cache->getShapes().size(), 2u);
    const osg::Vec3f want[2][2] = {{osg::Vec3f(0, 0, 1), osg::Vec3f(1, 0, 0)},
                                   {osg::Vec3f(0, -1, 0), osg::Vec3f(1, 0, 0)}};
    for (int frame = 0; frame < 2; ++frame) {
        const auto& normals = cache->getShapes()[static_cast<size_t>(frame)]->getNormals();
        ASSERT_EQ(normals.size(), 8u);
        for (size_t v = 0; v < 8; ++v)
            for (int a = 0; a < 3; ++a)
                EXPECT_NEAR(normals[v][a], want[frame][v / 4][a], 1e-5)
                    << "frame " << frame << " vertex " << v;
    }
}

// Broken, lying or missing cache files: a message that names the problem,
// no vertex animation, and the mesh itself imported as usual.
TEST_F(VertexCacheFileTest, BadCacheFilesAreReportedAndTheMeshStillImports) {
    QdxPointCache good(static_cast<int>(kRest.size()), 0.0, 1.0);
    ASSERT_TRUE(good.AddSample(lifted(0.0)));
    ASSERT_TRUE(good.AddSample(lifted(1.0)));
    const std::vector<unsigned char> pc2 = good.WriteToMemory();
    auto patched = [&pc2](size_t at, const void* value, size_t size) {
        std::vector<unsigned char> bytes = pc2;
        std::memcpy(bytes.data() + at, value, size);
        return bytes;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const int huge = 0x7fffffff;

    QdxToveCache::Channel channel;
    channel.pointCount = static_cast<int>(kRest.size());
    channel.intervalTicks = QdxTime::kTicksPerSecond;
    for (double t : {0.0, 1.0})
        for (const QdxVector4& p : lifted(t))
            channel.values.insert(channel.values.end(), {p[0], p[1], p[2]});
    QdxToveCache tove;
    QdxStatus status;
    ASSERT_TRUE(tove.AddChannel(channel, status));
    std::vector<unsigned char> toveBytes = tove.WriteToMemory();

    QdxPointCache fewer(3, 0.0, 1.0), single(static_cast<int>(kRest.size()), 0.0, 1.0);
    std::vector<QdxVector4> three(kRest.begin(), kRest.begin() + 3);
    ASSERT_TRUE(fewer.AddSample(three) && fewer.AddSample(three));
    ASSERT_TRUE(single.AddSample(kRest));

    const struct {
        const char* name;
        std::vector<unsigned char> bytes; // empty: no file at all
        bool tove;
        ksLog::Level level;
        const char* message;
    } cases[] = {
        {"truncated", std::vector<unsigned char>(pc2.begin(), pc2.end() - 5), false, ksLog::Error,
         "Couldn't read vertex cache"},
        {"huge point count", patched(16, &huge, 4), false, ksLog::Error,
         "Couldn't read vertex cache"},
        {"huge sample count", patched(28, &huge, 4), false, ksLog::Error,
         "Couldn't read vertex cache"},
        {"NaN coordinate", patched(40, &nan, 4), false, ksLog::Error, "not a finite number"},
        {"wrong signature", patched(0, "POINTCACHE3", 11), false, ksLog::Error, "wrong signature"},
        {"absent", {}, false, ksLog::Error, "Couldn't read vertex cache"},
        {"fewer points than the mesh", fewer.WriteToMemory(), false, ksLog::Error,
         "ksQdxLoader: Geometry cache conversion failed. Couldn't convert data."},
        {"a single frame", single.WriteToMemory(), false, ksLog::Warning,
         "ksQdxLoader: Couldn't convert vertex animations! Animation duration is zero!"},
        {"truncated Tove cache", std::vector<unsigned char>(toveBytes.begin(), toveBytes.end() - 9),
         true, ksLog::Error, "Failed to convert Tove vertex cache: "},
        {"Tove cache with a wrong signature",
         [&] {
             std::vector<unsigned char> b = toveBytes;
             b[0] = 'X';
             return b;
         }(),
         true, ksLog::Error, "Failed to convert Tove vertex cache: "},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string cacheName = std::string(c.tove ? "bad.tove" : "bad.pc2");
        std::remove(file(cacheName).c_str());
        if (!c.bytes.empty()) writeBytes(file(cacheName), c.bytes);
        const std::string scene = writeScene("bad.qdx", [&](QdxScene* s) {
            addCachedSheet(
                s, cacheName,
                c.tove ? QdxVertexCacheDeformer::eToveCache : QdxVertexCacheDeformer::ePC2, false);
        });
        Imported in = import(scene);
        ASSERT_TRUE(in.root);
        EXPECT_EQ(in.count(c.level, c.message), 1u);
        osg::GeometryPtr g = in.geometry("Sheet");
        ASSERT_TRUE(g);
        EXPECT_EQ(g->getVertexCount(), 8u);
        EXPECT_FALSE(g->findAttachment<osg::TimeShapeCache>());
    }
}

} // namespace
