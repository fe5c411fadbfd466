// Vertices merged as they are added agree with vertices merged afterwards.
#include <gtest/gtest.h>

#include <random>

#include <kestrel/ksGeoOptimizer.h>
#include <kestrel/ksVertexMerger.h>

using namespace osg;

namespace {

struct Stream {
    std::vector<Pnt3f> points;
    std::vector<int> at; // control point of each vertex, some outside the points
    std::vector<Vec3f> normals;
    std::vector<Vec2f> uvs;
};

// A vertex stream with many duplicates: positions from a small lattice that
// holds +0 and -0, attributes from `variety` values each.
Stream randomStream(unsigned seed, int pointCount, int vertexCount, int variety) {
    std::mt19937 rng(seed);
    auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); };
    const float coords[] = {0.f, -0.f, 1.f, 2.5f};
    Stream s;
    for (int i = 0; i < pointCount; ++i)
        s.points.emplace_back(coords[pick(4)], coords[pick(4)], coords[pick(2)]);
    for (int v = 0; v < vertexCount; ++v) {
        s.at.push_back(pick(pointCount + 4) - 2);
        s.normals.emplace_back(float(pick(variety)), 0.f, pick(2) ? 0.f : -0.f);
        s.uvs.emplace_back(float(pick(variety)), 0.5f);
    }
    return s;
}

// The stream through the merger: its properties and index.
GeometryPtr merged(const Stream& s, std::vector<UInt32>& index) {
    auto positions = GeoPositions3f::create();
    auto normals = GeoNormals3f::create();
    auto uvs = GeoTexCoords2f::create();
    ksVertexMerger merger(positions, s.points);
    const std::size_t n = merger.addAttribute(normals);
    const std::size_t t = merger.addAttribute(uvs);
    for (std::size_t v = 0; v < s.at.size(); ++v) {
        merger.set(n, s.normals[v]);
        merger.set(t, s.uvs[v]);
        index.push_back(merger.add(s.at[v]));
    }
    EXPECT_EQ(merger.size(), positions->size());
    auto g = Geometry::create();
    g->setPositions(positions);
    g->setNormals(normals);
    g->setTexSlot(uvs, 0);
    return g;
}

// The stream with one vertex each, merged afterwards.
GeometryPtr mergedAfterwards(const Stream& s) {
    auto positions = GeoPositions3f::create();
    auto normals = GeoNormals3f::create();
    auto uvs = GeoTexCoords2f::create();
    for (std::size_t v = 0; v < s.at.size(); ++v) {
        const int p = s.at[v];
        positions->push_back(p >= 0 && p < int(s.points.size()) ? s.points[std::size_t(p)]
                                                                : Pnt3f(0.f, 0.f, 0.f));
        normals->push_back(s.normals[v]);
        uvs->push_back(s.uvs[v]);
    }
    auto g = Geometry::create();
    g->setPositions(positions);
    g->setNormals(normals);
    g->setTexSlot(uvs, 0);
    ksGeoOptimizer::mergeVertices(g);
    return g;
}

void expectSameBytes(const GeoPropertyPtr& a, const GeoPropertyPtr& b, const char* what) {
    ASSERT_EQ(a->size(), b->size()) << what;
    EXPECT_EQ(std::memcmp(a->getData(), b->getData(), std::size_t(a->size()) * a->getElementSize()),
              0)
        << what;
}

void expectAgreement(const Stream& s) {
    std::vector<UInt32> index;
    GeometryPtr now = merged(s, index);
    GeometryPtr later = mergedAfterwards(s);
    expectSameBytes(now->getPositions(), later->getPositions(), "positions");
    expectSameBytes(now->getNormals(), later->getNormals(), "normals");
    expectSameBytes(now->getTexSlot(0), later->getTexSlot(0), "uvs");
    auto laterIndex = GeoIndicesUI32Ptr::dcast(later->getIndices());
    if (laterIndex)
        EXPECT_EQ(index, laterIndex->getField());
    else // nothing merged: the index is every vertex in turn
        for (UInt32 v = 0; v < index.size(); ++v)
            EXPECT_EQ(index[v], v);
    // Nothing is left to merge.
    EXPECT_EQ(ksGeoOptimizer::mergeVertices(now), 0u);
}

TEST(VertexMerger, AgreesWithMergingAfterwards) {
    for (unsigned seed : {1u, 2u, 3u, 4u}) {
        SCOPED_TRACE(seed);
        expectAgreement(randomStream(seed, 40, 3000, 3));
        // No points at all: every vertex sits at the zero position.
        expectAgreement(randomStream(seed, 0, 200, 4));
    }
}

// Hundreds of distinct vertices at one position: lookups move from the
// position's chain to the hash table part-way through the stream.
TEST(VertexMerger, ManyVerticesAtOnePosition) {
    for (unsigned seed : {5u, 6u}) {
        SCOPED_TRACE(seed);
        expectAgreement(randomStream(seed, 3, 20000, 300));
    }
}

} // namespace
