// Arrays of doubles left in a binary file until used: they read the same as
// arrays decoded at once, stream by range, survive broken or changed files
// without a crash, and decode once under several threads.
#include <gtest/gtest.h>
#define ZSTD_STATIC_LINKING_ONLY
#include <zstd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>
#include <unistd.h>

#include "format.h"
#include "scene_builder.h"

using namespace qdxsdk;
namespace fs = std::filesystem;

namespace {
constexpr int kSide = 200; // 80,000 triangles: every per-corner array is above 1 MiB

// A grid of triangles with per-corner normals, UVs and colours (direct, by
// polygon vertex) and a UV set indexed to per-point values; smooth enough to
// compress, with seeded noise so that no two values are alike.
QdxMesh* BuildGrid(QdxScene* scene, unsigned seed) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<double> noise(-1e-3, 1e-3);
    QdxNode* node = QdxNode::Create(scene, "gridNode");
    scene->GetRootNode()->AddChild(node);
    QdxMesh* mesh = QdxMesh::Create(scene, "grid");
    node->SetNodeAttribute(mesh);
    const int row = kSide + 1;
    mesh->InitControlPoints(row * row);
    for (int i = 0; i < row * row; ++i)
        mesh->SetControlPointAt(QdxVector4(i % row, i / row, noise(rng), 1), i);
    QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    QdxLayerElementUV* uvs = mesh->CreateElementUV("corners");
    QdxLayerElementVertexColor* colours = mesh->CreateElementVertexColor();
    QdxLayerElementUV* shared = mesh->CreateElementUV("points");
    for (QdxLayerElement* e :
         {static_cast<QdxLayerElement*>(normals), static_cast<QdxLayerElement*>(uvs),
          static_cast<QdxLayerElement*>(colours)}) {
        e->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        e->SetReferenceMode(QdxLayerElement::eDirect);
    }
    shared->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    shared->SetReferenceMode(QdxLayerElement::eIndexToDirect);
    for (int i = 0; i < row * row; ++i)
        shared->GetDirectArray().Add(QdxVector2(i % row + noise(rng), i / row + noise(rng)));
    for (int y = 0; y < kSide; ++y)
        for (int x = 0; x < kSide; ++x) {
            const int a = y * row + x, b = a + 1, c = a + row, d = c + 1;
            const int triangles[2][3] = {{a, b, d}, {a, d, c}};
            for (const auto& t : triangles) {
                mesh->BeginPolygon();
                for (int v : t) {
                    mesh->AddPolygon(v);
                    normals->GetDirectArray().Add(QdxVector4(noise(rng), noise(rng), 1, 0));
                    uvs->GetDirectArray().Add(QdxVector2(v % row + noise(rng), v / row));
                    colours->GetDirectArray().Add(QdxColor(0.5 + noise(rng), 0.25, 1, 1));
                    shared->GetIndexArray().Add(v);
                }
                mesh->EndPolygon();
            }
        }
    return mesh;
}

// Reads path with every array decoded at once (no file to leave them in).
bool ReadEager(QdxScene* scene, const std::string& path) {
    const std::string bytes = qdxtest::ReadAll(path);
    format::FlatDocument doc;
    QdxStatus status;
    return format::ReadBinary(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), doc,
                              status) &&
           format::Build(doc, scene, status);
}

int PendingCount(QdxScene* scene) {
    int n = 0;
    for (QdxObject* o : scene->SrcObjects())
        for (const auto& a : o->Arrays())
            n += a.IsPending() ? 1 : 0;
    return n;
}

template <class T> bool Same(const T& a, const T& b) {
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

class PendingArrays : public ::testing::Test {
protected:
    void SetUp() override {
        dir = qdxtest::MakeTempDir("pending");
        grid = NewScene();
        BuildGrid(grid, 7);
    }
    void TearDown() override {
        for (QdxManager* m : managers)
            m->Destroy();
        fs::remove_all(dir);
    }
    QdxScene* NewScene() {
        managers.push_back(QdxManager::Create());
        return QdxScene::Create(managers.back(), "");
    }
    std::string Write(int version) {
        const std::string path = dir + "/grid" + std::to_string(version) + ".qdx";
        EXPECT_TRUE(qdxtest::ExportScene(grid, path, 0, version));
        return path;
    }
    QdxScene* Lazy(const std::string& path) {
        QdxScene* scene = NewScene();
        std::string error;
        EXPECT_TRUE(qdxtest::ImportScene(scene, path, &error)) << error;
        return scene;
    }
    QdxScene* Eager(const std::string& path) {
        QdxScene* scene = NewScene();
        EXPECT_TRUE(ReadEager(scene, path));
        return scene;
    }
    static QdxMesh* Mesh(QdxScene* scene) {
        for (QdxObject* o : scene->SrcObjects())
            if (auto* m = QdxCast<QdxMesh>(o)) return m;
        return nullptr;
    }

    std::string dir;
    QdxScene* grid = nullptr;
    std::vector<QdxManager*> managers;
};

// Rewrites the objects chunk's checksum after its bytes were changed.
void PatchObjectsChecksum(std::string& file) {
    size_t at = 16;
    while (at + 12 <= file.size()) {
        uint64_t length;
        std::memcpy(&length, file.data() + at + 4, 8);
        if (file.compare(at, 4, "OBJS") == 0) {
            const uint32_t crc = format::Crc32(file.data() + at + 12, length);
            std::memcpy(file.data() + at + 12 + length, &crc, 4);
            return;
        }
        at += 12 + length + 4;
    }
    FAIL() << "no objects chunk";
}

// Breaks the first compressed block of the first zstd frame of at least
// minSize bytes so that decoding it fails, while its frame still has the
// right sizes. Returns false when there is no such block.
bool BreakLargeFrame(std::string& file, size_t minSize) {
    const char magic[4] = {'\x28', '\xb5', '\x2f', '\xfd'};
    for (size_t at = file.find(std::string(magic, 4)); at != std::string::npos;
         at = file.find(std::string(magic, 4), at + 1)) {
        const size_t left = file.size() - at;
        const size_t frame = ZSTD_findFrameCompressedSize(file.data() + at, left);
        if (ZSTD_isError(frame) || frame < minSize) continue;
        size_t block = at + ZSTD_frameHeaderSize(file.data() + at, left);
        while (block + 3 < at + frame) {
            const uint32_t header = uint8_t(file[block]) | uint8_t(file[block + 1]) << 8 |
                                    uint8_t(file[block + 2]) << 16;
            const uint32_t type = (header >> 1) & 3, size = header >> 3;
            if (type == 2) {
                // Raw literals claiming far more than a block holds.
                file[block + 3] = '\xfc';
                file[block + 4] = '\xff';
                file[block + 5] = '\xff';
                return true;
            }
            block += 3 + (type == 1 ? 1 : size);
        }
    }
    return false;
}
} // namespace

TEST_F(PendingArrays, LazyReadsEqualEagerOnesAndWriteTheSameBytes) {
    for (int version : {1, 2, 3}) {
        SCOPED_TRACE(version);
        const std::string path = Write(version);
        QdxScene* lazy = Lazy(path);
        QdxScene* eager = Eager(path);
        // Raw and zstd arrays above 1 MiB stay in the file (control points
        // and the three per-corner arrays, not the per-point UVs); deflate
        // ones cannot stream.
        EXPECT_EQ(PendingCount(lazy), version == 2 ? 0 : 4);
        EXPECT_EQ(PendingCount(eager), 0);
        // Writing decodes them and gives the same file.
        const std::string again = dir + "/again.qdx", eagerAgain = dir + "/eager.qdx";
        ASSERT_TRUE(qdxtest::ExportScene(lazy, again, 0, version));
        ASSERT_TRUE(qdxtest::ExportScene(eager, eagerAgain, 0, version));
        EXPECT_TRUE(qdxtest::ReadAll(again) == qdxtest::ReadAll(eagerAgain));
        EXPECT_EQ(qdxtest::CompareScenes(lazy, eager), "");
        EXPECT_EQ(qdxtest::CompareScenes(Lazy(path), grid), "");
        EXPECT_TRUE(lazy->GetQdxManager()->GetArrayFaults().empty());
        // A mesh's arrays decoded together, on several threads, leave none
        // in the file and read as the eager ones.
        QdxScene* together = Lazy(path);
        QdxMesh* mesh = Mesh(together);
        ASSERT_NE(mesh, nullptr);
        mesh->DecodeArrays();
        EXPECT_EQ(PendingCount(together), 0);
        EXPECT_EQ(qdxtest::CompareScenes(together, eager), "");
    }
#ifdef QDX_SAMPLE_GENERATOR
    const std::string samples = dir + "/samples";
    ASSERT_EQ(
        std::system((std::string(QDX_SAMPLE_GENERATOR) + " " + samples + " >/dev/null").c_str()),
        0);
    int binaries = 0;
    for (const auto& entry : fs::recursive_directory_iterator(samples)) {
        if (!entry.is_regular_file()) continue;
        const std::string path = entry.path().string();
        const std::string head = qdxtest::ReadAll(path).substr(0, 8);
        if (!format::IsBinary(reinterpret_cast<const uint8_t*>(head.data()), head.size())) continue;
        SCOPED_TRACE(path);
        ++binaries;
        EXPECT_EQ(qdxtest::CompareScenes(Lazy(path), Eager(path)), "");
    }
    EXPECT_GT(binaries, 0);
#endif
}

TEST_F(PendingArrays, RangesStreamInAnyOrderAndMatchTheDecodedValues) {
    for (int version : {1, 3}) {
        SCOPED_TRACE(version);
        const std::string path = Write(version);
        QdxMesh* lazy = Mesh(Lazy(path));
        QdxMesh* eager = Mesh(Eager(path));
        ASSERT_TRUE(lazy && eager);
        const auto& direct = lazy->GetElementNormal()->GetDirectArray();
        const auto& expected = eager->GetElementNormal()->GetDirectArray();
        const int count = expected.GetCount();
        ASSERT_EQ(direct.GetCount(), count);
        ASSERT_TRUE(direct.Rec().IsPending());
        auto check = [&](int first, int n) {
            std::vector<QdxVector4> range;
            const bool inside = first >= 0 && n >= 0 && first <= count && n <= count - first;
            ASSERT_EQ(direct.GetRange(first, n, range), inside) << first << "+" << n;
            if (!inside) {
                ASSERT_TRUE(range.empty());
                return;
            }
            ASSERT_EQ(range.size(), static_cast<size_t>(n));
            for (int i = 0; i < n; ++i)
                ASSERT_TRUE(Same(range[static_cast<size_t>(i)], expected.GetAt(first + i)))
                    << "element " << first + i;
        };
        std::mt19937 rng(11);
        // Front to back in random steps, then backwards (each range restarts
        // the stream), overlapping ranges, and ranges that leave the array.
        for (int at = 0; at < count;) {
            const int n = std::uniform_int_distribution<int>(1, 40000)(rng);
            check(at, std::min(n, count - at));
            at += n;
        }
        for (int at = count; at > 0;) {
            const int n = std::min(at, std::uniform_int_distribution<int>(1, 90000)(rng));
            at -= n;
            check(at, n);
        }
        for (int k = 0; k < 20; ++k) {
            const int first = std::uniform_int_distribution<int>(0, count - 1)(rng);
            check(first, std::uniform_int_distribution<int>(0, count - first)(rng));
            check(first / 2, first / 2 + 10 <= count ? 10 : 0);
        }
        check(count, 0);
        check(count - 5, 6);
        check(-1, 3);
        check(count + 1, 0);
        // Polygon ranges of the per-corner elements give the corners of the
        // whole-mesh read, and leave the arrays in the file.
        const int polygons = lazy->GetPolygonCount();
        std::vector<QdxVector2> all, part;
        ASSERT_TRUE(eager->GetElementUV("corners")->GetPolygonVertexValues(*eager, all));
        size_t from = 0;
        for (int first = 0; first < polygons; first += 7777) {
            ASSERT_TRUE(
                lazy->GetElementUV("corners")->GetPolygonVertexValues(*lazy, first, 7777, part));
            for (size_t i = 0; i < part.size(); ++i, ++from)
                ASSERT_TRUE(Same(part[i], all[from])) << "corner " << from;
        }
        EXPECT_EQ(from, all.size());
        EXPECT_TRUE(lazy->GetElementUV("corners")->GetDirectArray().Rec().IsPending());
        EXPECT_TRUE(direct.Rec().IsPending());
        // Indexed values are read whole, and then agree too.
        ASSERT_TRUE(eager->GetElementUV("points")->GetPolygonVertexValues(*eager, 100, 50, all));
        ASSERT_TRUE(lazy->GetElementUV("points")->GetPolygonVertexValues(*lazy, 100, 50, part));
        ASSERT_EQ(part.size(), all.size());
        for (size_t i = 0; i < part.size(); ++i)
            EXPECT_TRUE(Same(part[i], all[i]));
        EXPECT_TRUE(lazy->GetQdxManager()->GetArrayFaults().empty());
    }
}

TEST_F(PendingArrays, BrokenOrChangedDataReadsAsZerosWithOneFault) {
    const std::string path = Write(3);
    std::string bytes = qdxtest::ReadAll(path);
    ASSERT_TRUE(BreakLargeFrame(bytes, 4096));
    PatchObjectsChecksum(bytes);
    const std::string broken = dir + "/broken.qdx";
    qdxtest::WriteAll(broken, bytes);
    auto zeros = [](const detail::ArrayRec& a) {
        const auto& v = a.Elements<double>();
        return v.size() == a.Count() &&
               std::all_of(v.begin(), v.end(), [](double d) { return d == 0.0; });
    };
    auto brokenArray = [](QdxScene* scene) -> const detail::ArrayRec* {
        for (QdxObject* o : scene->SrcObjects())
            for (const auto& a : o->Arrays())
                if (a.IsPending()) {
                    // Ranged reads stop at the fault; the first one that
                    // fails names its array.
                    std::vector<double> part(a.Count());
                    a.ReadRange(0, a.Count(), part.data());
                    if (!o->GetQdxManager()->GetArrayFaults().empty()) return &a;
                }
        return nullptr;
    };
    {
        // The read succeeds; the first use finds the fault.
        QdxScene* scene = Lazy(broken);
        const detail::ArrayRec* a = brokenArray(scene);
        ASSERT_NE(a, nullptr);
        const size_t count = a->Count();
        EXPECT_GT(count, 0u);
        EXPECT_TRUE(zeros(*a));
        EXPECT_EQ(a->Count(), count);
        const auto faults = scene->GetQdxManager()->GetArrayFaults();
        ASSERT_EQ(faults.size(), 1u);
        EXPECT_NE(faults[0].find("Array '" + a->name + "' of '"), std::string::npos) << faults[0];
        EXPECT_NE(faults[0].find("read as zeros"), std::string::npos) << faults[0];
    }
    {
        // Read front to back in ranges (each one decoded ahead while the
        // last is used): the ranges before the break read as the intact
        // file's, then zeros from the range that meets it, with one fault.
        QdxScene* scene = Lazy(broken);
        QdxScene* intact = Lazy(path);
        const auto& objects = scene->SrcObjects();
        const auto& intactObjects = intact->SrcObjects();
        ASSERT_EQ(objects.size(), intactObjects.size());
        size_t faults = 0;
        for (size_t k = 0; k < objects.size(); ++k)
            for (size_t j = 0; j < objects[k]->Arrays().size(); ++j) {
                const auto& a = objects[k]->Arrays()[j];
                if (!a.IsPending()) continue;
                const auto& b = intactObjects[k]->Arrays()[j];
                bool broke = false;
                for (size_t at = 0; at < a.Count(); at += 3000) {
                    const size_t n = std::min<size_t>(3000, a.Count() - at);
                    std::vector<double> got(n), want(n);
                    a.ReadRange(at, n, got.data());
                    b.ReadRange(at, n, want.data());
                    const size_t before = faults;
                    faults = scene->GetQdxManager()->GetArrayFaults().size();
                    if (broke || faults > before) {
                        EXPECT_TRUE(
                            std::all_of(got.begin(), got.end(), [](double d) { return d == 0.0; }));
                        broke = true;
                    } else {
                        EXPECT_EQ(got, want) << a.name << " at " << at;
                    }
                }
            }
        EXPECT_EQ(scene->GetQdxManager()->GetArrayFaults().size(), 1u);
        EXPECT_TRUE(intact->GetQdxManager()->GetArrayFaults().empty());
    }
    {
        // Decoded together: the broken array gives its one fault too.
        QdxScene* scene = Lazy(broken);
        Mesh(scene)->DecodeArrays();
        EXPECT_EQ(PendingCount(scene), 0);
        EXPECT_EQ(scene->GetQdxManager()->GetArrayFaults().size(), 1u);
    }
    {
        // Decoded whole on first use: zeros, one fault, no matter how often.
        QdxScene* scene = Lazy(broken);
        for (QdxObject* o : scene->SrcObjects())
            for (const auto& a : o->Arrays())
                a.Data();
        EXPECT_EQ(scene->GetQdxManager()->GetArrayFaults().size(), 1u);
        for (QdxObject* o : scene->SrcObjects())
            for (const auto& a : o->Arrays())
                a.Data();
        EXPECT_EQ(scene->GetQdxManager()->GetArrayFaults().size(), 1u);
    }
    {
        // A file cut short after the read: the arrays past the cut read as
        // zeros, with a fault each.
        const std::string cut = dir + "/cut.qdx";
        fs::copy_file(path, cut);
        QdxScene* scene = Lazy(cut);
        ASSERT_EQ(::truncate(cut.c_str(), 4096), 0);
        QdxMesh* mesh = Mesh(scene);
        std::vector<QdxVector2> part;
        ASSERT_TRUE(mesh->GetElementUV("corners")->GetDirectArray().GetRange(10, 5, part));
        for (const auto& v : part)
            EXPECT_TRUE(Same(v, QdxVector2()));
        EXPECT_TRUE(zeros(mesh->GetElementNormal()->GetDirectArray().Rec()));
        EXPECT_EQ(scene->GetQdxManager()->GetArrayFaults().size(), 2u);
    }
    {
        // A file replaced after the read: the arrays still come from the
        // file that was read.
        const std::string moved = dir + "/moved.qdx";
        fs::copy_file(path, moved);
        QdxScene* scene = Lazy(moved);
        qdxtest::WriteAll(dir + "/other.qdx", "not a scene");
        fs::rename(dir + "/other.qdx", moved);
        EXPECT_EQ(qdxtest::CompareScenes(scene, grid), "");
        EXPECT_TRUE(scene->GetQdxManager()->GetArrayFaults().empty());
    }
}

TEST_F(PendingArrays, ThreadsDecodeOneArrayOnceAndAgree) {
    const std::string path = Write(3);
    QdxMesh* eager = Mesh(Eager(path));
    for (int round = 0; round < 3; ++round) {
        QdxMesh* lazy = Mesh(Lazy(path));
        const detail::ArrayRec& a = lazy->GetElementVertexColor()->GetDirectArray().Rec();
        const auto& expected = eager->GetElementVertexColor()->GetDirectArray().Rec();
        ASSERT_TRUE(a.IsPending());
        std::vector<const void*> seen(4);
        std::vector<int> agree(4, 0);
        std::vector<std::thread> threads;
        for (size_t t = 0; t < seen.size(); ++t)
            threads.emplace_back([&, t] {
                if (t % 2) {
                    // Ranged reads beside the whole decode.
                    std::vector<double> part(4096);
                    agree[t] = a.ReadRange(1000, part.size(), part.data()) &&
                               std::memcmp(part.data(), expected.Elements<double>().data() + 1000,
                                           part.size() * sizeof(double)) == 0;
                }
                seen[t] = a.Data();
            });
        for (auto& th : threads)
            th.join();
        for (size_t t = 0; t < seen.size(); ++t) {
            EXPECT_EQ(seen[t], seen[0]);
            if (t % 2) {
                EXPECT_TRUE(agree[t]);
            }
        }
        EXPECT_FALSE(a.IsPending());
        EXPECT_TRUE(a.Elements<double>() == expected.Elements<double>());
    }
}
