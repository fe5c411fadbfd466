#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <vector>

#include <kestrel/osg/GeoProperties.h>

// Builds the per-vertex properties of one geometry with equal vertices merged
// as they are added. A vertex is made at a control point: its position is the
// point's, and every other property takes the value staged for it with set().
// A vertex whose position and staged values are bitwise equal to those of an
// earlier vertex is that vertex; otherwise its values are appended. The
// result is what appending every vertex and then running
// ksGeoOptimizer::mergeVertices gives: the same vertices in the same order
// (first occurrence) and the same index.
//
// Vertices are grouped by position: control points whose positions are
// bitwise equal share a group, and each group keeps a chain of the vertices
// made for it, so a new vertex is compared with the few vertices at its
// position only. Bookkeeping is 4 bytes per control point and per merged
// vertex. Should a chain grow long (many vertices at one position), the
// merger switches to a hash table over the merged vertices, so the time stays
// linear whatever the input.
class ksVertexMerger {
public:
    // points are the control points' positions; positions receives one
    // position per merged vertex. Every property the merger fills starts
    // empty.
    ksVertexMerger(osg::GeoPositions3fPtr positions, std::vector<osg::Pnt3f> points);

    // Another per-vertex property, filled one value per merged vertex.
    // Returns its number for set().
    template <class Property> std::size_t addAttribute(const osg::FCPtr<Property>& property) {
        using Value = typename Property::StoredType;
        Column column;
        column.property = property.get();
        column.size = sizeof(Value);
        column.offset = _staged.size();
        column.append = [](osg::GeoProperty& p, const unsigned char* bytes) {
            Value value;
            std::memcpy(&value, bytes, sizeof(Value));
            static_cast<Property&>(p).push_back(value);
        };
        _staged.resize(_staged.size() + sizeof(Value));
        _columns.push_back(column);
        return _columns.size() - 1;
    }
    // Stages the value of an attribute for the next add().
    template <class Value> void set(std::size_t attribute, const Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        std::memcpy(_staged.data() + _columns[attribute].offset, &value, sizeof(Value));
    }
    // The vertex at control point `point` (at the zero position when point is
    // not one of the points) with the staged attribute values: the number of
    // the first equal vertex, made now when there is none.
    osg::UInt32 add(int point);
    // Merged vertices so far.
    osg::UInt32 size() const { return static_cast<osg::UInt32>(_next.size()); }

    // Hash of a run of bytes, chained through seed, and its final mix;
    // ksGeoOptimizer hashes vertices the same way.
    static std::uint64_t hashBytes(std::uint64_t h, const void* bytes, std::size_t size) {
        const auto* at = static_cast<const unsigned char*>(bytes);
        std::size_t b = 0;
        for (; b + 8 <= size; b += 8) {
            std::uint64_t w;
            std::memcpy(&w, at + b, 8);
            h = (h ^ w) * 0xBF58476D1CE4E5B9ull;
            h ^= h >> 29;
        }
        if (b + 4 <= size) {
            std::uint32_t w;
            std::memcpy(&w, at + b, 4);
            h = (h ^ w) * 0xBF58476D1CE4E5B9ull;
            h ^= h >> 29;
            b += 4;
        }
        for (; b < size; ++b)
            h = (h ^ at[b]) * 0x94D049BB133111EBull;
        return h;
    }
    static std::uint64_t finishHash(std::uint64_t h) {
        h ^= h >> 31;
        h *= 0x94D049BB133111EBull;
        return h ^ (h >> 32);
    }
    static constexpr std::uint64_t kHashSeed = 0x9E3779B97F4A7C15ull;

private:
    struct Column {
        osg::GeoProperty* property = nullptr;
        const unsigned char* data = nullptr; // refreshed after every append
        std::size_t size = 0;
        std::size_t offset = 0;
        void (*append)(osg::GeoProperty&, const unsigned char*) = nullptr;
    };
    static constexpr osg::UInt32 kNone = ~osg::UInt32(0);

    bool sameStaged(osg::UInt32 vertex) const;
    osg::UInt32 append(const osg::Pnt3f& position);
    std::uint64_t hashStaged(const osg::Pnt3f& position) const;
    std::uint64_t hashVertex(osg::UInt32 vertex) const;
    void rebuildTable(std::size_t capacity);
    osg::UInt32 addHashed(const osg::Pnt3f& position);

    osg::GeoPositions3fPtr _positions;
    std::vector<osg::Pnt3f> _points;
    std::vector<Column> _columns;
    std::vector<unsigned char> _staged;
    std::vector<osg::UInt32> _groupOf; // group of each control point
    osg::UInt32 _zeroGroup = 0;        // group of the zero position
    std::vector<osg::UInt32> _head;    // newest vertex of each group
    std::vector<osg::UInt32> _next;    // next older vertex of the same group
    bool _hashed = false;
    std::vector<osg::UInt32> _table; // merged vertices by hash, once hashed
};
