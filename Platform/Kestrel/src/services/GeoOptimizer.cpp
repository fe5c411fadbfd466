#include <cstdint>
#include <cstring>
#include <map>

#include <kestrel/ksGeoOptimizer.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksOptimize.h>
#include <kestrel/ksVertexMerger.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/TimeShapeCache.h>
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

using namespace osg;

UInt32 ksGeoOptimizer::mergeVertices(const GeometryPtr& g) {
    if (!g || !g->getPositions() || g->getIndexMapping().size() > 1) return 0;
    if (g->findAttachment<TimeShapeCache>()) return 0;
    std::vector<GeoPropertyPtr> props;
    props.push_back(g->getPositions());
    if (g->getNormals()) props.push_back(g->getNormals());
    if (g->getColors()) props.push_back(g->getColors());
    for (UInt32 s = 0; s < Geometry::MaxTexSlots; ++s)
        if (g->getTexSlot(s)) props.push_back(g->getTexSlot(s));
    const UInt32 n = g->getPositions()->size();
    for (const auto& p : props)
        if (p->size() != n) return 0; // not one value per vertex
    if (n < 2) return 0;
    auto idx = GeoIndicesUI32Ptr::dcast(g->getIndices());
    if (g->getIndices() && !idx) return 0;
    if (idx)
        for (UInt32 v : idx->getField())
            if (v >= n) return 0; // broken index: leave it for verifyGeometry

    // A vertex is the bytes of its value in every property; equal bytes mean
    // an equal vertex. Keys are hashed and compared in place, so the merge
    // allocates only the table and the remap, never a copy of the vertices.
    struct Column {
        const unsigned char* data;
        std::size_t size;
    };
    std::vector<Column> columns;
    columns.reserve(props.size());
    for (const auto& p : props)
        columns.push_back({static_cast<const unsigned char*>(p->getData()), p->getElementSize()});
    auto hashOf = [&columns](UInt32 i) {
        std::uint64_t h = ksVertexMerger::kHashSeed;
        for (const Column& c : columns)
            h = ksVertexMerger::hashBytes(h, c.data + std::size_t(i) * c.size, c.size);
        return ksVertexMerger::finishHash(h);
    };
    auto same = [&columns](UInt32 a, UInt32 b) {
        for (const Column& c : columns)
            if (std::memcmp(c.data + std::size_t(a) * c.size, c.data + std::size_t(b) * c.size,
                            c.size) != 0)
                return false;
        return true;
    };
    // Open addressing over vertex numbers. A slot holds a vertex and 32 bits
    // of its hash, so most probes that miss never touch the vertex data.
    std::size_t cap = 16;
    while (cap < std::size_t(n) * 2)
        cap <<= 1;
    constexpr std::uint64_t empty = ~std::uint64_t(0);
    std::vector<std::uint64_t> table(cap, empty);
    std::vector<UInt32> remap(n);
    UInt32 next = 0;
    for (UInt32 i = 0; i < n; ++i) {
        const std::uint64_t h = hashOf(i);
        const std::uint64_t tag = h & 0xFFFFFFFF00000000ull;
        std::size_t slot = h & (cap - 1);
        while (true) {
            const std::uint64_t entry = table[slot];
            if (entry == empty) {
                table[slot] = tag | i;
                remap[i] = next++;
                break;
            }
            const auto v = static_cast<UInt32>(entry);
            if ((entry & 0xFFFFFFFF00000000ull) == tag && same(v, i)) {
                remap[i] = remap[v];
                break;
            }
            slot = (slot + 1) & (cap - 1);
        }
    }
    table = std::vector<std::uint64_t>();
    if (next == n) return 0;

    for (const auto& p : props) {
        char* data = static_cast<char*>(p->editData());
        std::size_t es = p->getElementSize();
        UInt32 written = 0;
        for (UInt32 i = 0; i < n; ++i)
            if (remap[i] == written) { // first occurrence, in order
                if (written != i) std::memcpy(data + written * es, data + i * es, es);
                ++written;
            }
        p->resize(next);
    }
    if (idx) {
        for (UInt32& v : idx->editField())
            v = remap[v];
        idx->changed(GeoProperty::ValuesFieldMask);
    } else {
        auto ni = GeoIndicesUI32::create();
        ni->setValues(remap);
        g->setIndices(ni);
        if (g->getIndexMapping().empty()) {
            UInt16 bits = MapPosition;
            if (g->getNormals()) bits |= MapNormal;
            if (g->getColors()) bits |= MapColor;
            for (UInt32 s = 0; s < Geometry::MaxTexSlots; ++s)
                if (g->getTexSlot(s)) bits |= mapTexCoordsBit(s);
            g->setIndexMapping({bits});
        }
    }
    if (auto skin = g->findAttachment<SkinAttachment>()) {
        for (const auto& cluster : skin->getJoints()) {
            std::vector<bool> seen(next, false);
            std::vector<IndexWeight> out;
            out.reserve(cluster->getWeights().size());
            for (const IndexWeight& w : cluster->getWeights()) {
                if (w.index >= n) continue;
                UInt32 v = remap[w.index];
                if (seen[v]) continue;
                seen[v] = true;
                out.emplace_back(v, w.weight);
            }
            cluster->setWeights(std::move(out));
        }
    }
    g->changed(Geometry::PositionsFieldMask | Geometry::IndicesFieldMask);
    return n - next;
}

UInt32 ksGeoOptimizer::optimize(const NodePtr& node) {
    UInt32 removed = 0;
    std::map<const NodeCore*, bool> done;
    ksNodeUtils::traverse(node, [&](const NodePtr& n) {
        if (auto g = GeometryPtr::dcast(n->getCore()))
            if (done.emplace(g.get(), true).second) removed += mergeVertices(g);
        return true;
    });
    return removed;
}
