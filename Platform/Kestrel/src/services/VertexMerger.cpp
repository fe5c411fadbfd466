#include <kestrel/ksVertexMerger.h>

using namespace osg;

namespace {
// Beyond this many unequal vertices at one position, lookups go through a
// hash table instead of the position's chain.
constexpr UInt32 kLongChain = 64;

std::size_t tableCapacity(std::size_t entries) {
    std::size_t capacity = 16;
    while (capacity < entries * 2)
        capacity <<= 1;
    return capacity;
}
} // namespace

ksVertexMerger::ksVertexMerger(GeoPositions3fPtr positions, std::vector<Pnt3f> points)
    : _positions(std::move(positions)), _points(std::move(points)) {
    // Groups by bitwise position, numbered in order of first appearance.
    // The table holds a representative point of each group.
    const std::size_t capacity = tableCapacity(_points.size());
    std::vector<UInt32> table(capacity, kNone);
    _groupOf.resize(_points.size());
    UInt32 groups = 0;
    auto find = [&](const Pnt3f& position) -> std::size_t {
        std::size_t slot =
            finishHash(hashBytes(kHashSeed, &position, sizeof(Pnt3f))) & (capacity - 1);
        while (table[slot] != kNone &&
               std::memcmp(&_points[table[slot]], &position, sizeof(Pnt3f)) != 0)
            slot = (slot + 1) & (capacity - 1);
        return slot;
    };
    for (std::size_t i = 0; i < _points.size(); ++i) {
        const std::size_t slot = find(_points[i]);
        if (table[slot] == kNone) {
            table[slot] = static_cast<UInt32>(i);
            _groupOf[i] = groups++;
        } else
            _groupOf[i] = _groupOf[table[slot]];
    }
    // A vertex at no control point sits at the zero position, in the group
    // of the points exactly there or in one of its own.
    const std::size_t zero = find(Pnt3f(0.f, 0.f, 0.f));
    _zeroGroup = table[zero] != kNone ? _groupOf[table[zero]] : groups++;
    _head.assign(groups, kNone);
}

bool ksVertexMerger::sameStaged(UInt32 vertex) const {
    // Values of two, three and four floats are compared inline.
    auto equal = [](const unsigned char* a, const unsigned char* b, std::size_t size) {
        switch (size) {
        case 8:
            return std::memcmp(a, b, 8) == 0;
        case 12:
            return std::memcmp(a, b, 12) == 0;
        case 16:
            return std::memcmp(a, b, 16) == 0;
        default:
            return std::memcmp(a, b, size) == 0;
        }
    };
    for (const Column& c : _columns)
        if (!equal(c.data + std::size_t(vertex) * c.size, _staged.data() + c.offset, c.size))
            return false;
    return true;
}

UInt32 ksVertexMerger::append(const Pnt3f& position) {
    const UInt32 vertex = size();
    _positions->push_back(position);
    for (Column& c : _columns) {
        c.append(*c.property, _staged.data() + c.offset);
        c.data = static_cast<const unsigned char*>(c.property->getData());
    }
    _next.push_back(kNone);
    return vertex;
}

UInt32 ksVertexMerger::add(int point) {
    const bool valid = point >= 0 && static_cast<std::size_t>(point) < _points.size();
    const Pnt3f position = valid ? _points[static_cast<std::size_t>(point)] : Pnt3f(0.f, 0.f, 0.f);
    if (_hashed) return addHashed(position);

    // Every vertex of a group has the group's position, so only the other
    // properties are compared.
    const UInt32 group = valid ? _groupOf[static_cast<std::size_t>(point)] : _zeroGroup;
    UInt32 length = 0;
    for (UInt32 v = _head[group]; v != kNone; v = _next[v], ++length)
        if (sameStaged(v)) return v;
    const UInt32 vertex = append(position);
    _next[vertex] = _head[group];
    _head[group] = vertex;
    if (length >= kLongChain) {
        // Chains are no longer kept; the table takes every vertex from now.
        _hashed = true;
        _head = std::vector<UInt32>();
        _groupOf = std::vector<UInt32>();
        rebuildTable(tableCapacity(size()));
    }
    return vertex;
}

std::uint64_t ksVertexMerger::hashStaged(const Pnt3f& position) const {
    std::uint64_t h = hashBytes(kHashSeed, &position, sizeof(Pnt3f));
    for (const Column& c : _columns)
        h = hashBytes(h, _staged.data() + c.offset, c.size);
    return finishHash(h);
}

std::uint64_t ksVertexMerger::hashVertex(UInt32 vertex) const {
    std::uint64_t h = hashBytes(kHashSeed, &_positions->getField()[vertex], sizeof(Pnt3f));
    for (const Column& c : _columns)
        h = hashBytes(h, c.data + std::size_t(vertex) * c.size, c.size);
    return finishHash(h);
}

void ksVertexMerger::rebuildTable(std::size_t capacity) {
    _table.assign(capacity, kNone);
    for (UInt32 v = 0; v < size(); ++v) {
        std::size_t slot = hashVertex(v) & (capacity - 1);
        while (_table[slot] != kNone)
            slot = (slot + 1) & (capacity - 1);
        _table[slot] = v;
    }
}

UInt32 ksVertexMerger::addHashed(const Pnt3f& position) {
    const std::size_t mask = _table.size() - 1;
    std::size_t slot = hashStaged(position) & mask;
    for (; _table[slot] != kNone; slot = (slot + 1) & mask) {
        const UInt32 v = _table[slot];
        if (std::memcmp(&_positions->getField()[v], &position, sizeof(Pnt3f)) == 0 && sameStaged(v))
            return v;
    }
    const UInt32 vertex = append(position);
    _next[vertex] = kNone;
    if (std::size_t(size()) * 2 > _table.size())
        rebuildTable(tableCapacity(size()));
    else
        _table[slot] = vertex;
    return vertex;
}
