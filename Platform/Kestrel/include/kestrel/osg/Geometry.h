#pragma once
// Geometry: polygonal data on a Drawable core.
//
// Geometry stores typed property arrays: positions, normals, colours and
// texture coordinates in slots 0..7 (each slot may carry a name), plus
// primitive types and lengths and ONE index. The index-mapping field says
// which properties each index entry addresses: with a single mapping entry
// (e.g. MapPosition | MapNormal | MapTexCoords) one index addresses all of
// them; with k entries the index is interleaved, k values per vertex. An
// empty index means the vertices are the property values in order.
//
// Primitive types: 0 points, 1 lines, 2 line loop, 3 line strip,
// 4 triangles, 5 triangle strip, 6 triangle fan, 7 quads, 8 quad strip,
// 9 polygon (convex, fanned for triangle iteration).
#include <array>
#include <string>
#include <vector>

#include <kestrel/osg/Drawable.h>
#include <kestrel/osg/GeoProperties.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/Transform.h>
#include <kestrel/osg/TriangleIterator.h>

namespace osg {

KS_FC_TYPEDEFS(Geometry)

enum PrimitiveType : UInt8 {
    PrimPoints = 0,
    PrimLines = 1,
    PrimLineLoop = 2,
    PrimLineStrip = 3,
    PrimTriangles = 4,
    PrimTriangleStrip = 5,
    PrimTriangleFan = 6,
    PrimQuads = 7,
    PrimQuadStrip = 8,
    PrimPolygon = 9,
};

// Index-mapping bits.
inline constexpr UInt16 MapPosition = 1u << 0;
inline constexpr UInt16 MapNormal = 1u << 1;
inline constexpr UInt16 MapColor = 1u << 2;
inline constexpr UInt16 MapSecondaryColor = 1u << 3;
inline constexpr UInt16 MapTexCoords = 1u << 4;
inline constexpr UInt16 MapTexCoords1 = 1u << 5;
inline constexpr UInt16 MapTexCoords2 = 1u << 6;
inline constexpr UInt16 MapTexCoords3 = 1u << 7;
inline constexpr UInt16 MapTexCoords4 = 1u << 8;
inline constexpr UInt16 MapTexCoords5 = 1u << 9;
inline constexpr UInt16 MapTexCoords6 = 1u << 10;
inline constexpr UInt16 MapTexCoords7 = 1u << 11;
inline constexpr UInt16 mapTexCoordsBit(UInt32 slot) {
    return UInt16(MapTexCoords << slot);
}

class Geometry : public Drawable {
    KS_FIELD_CONTAINER_DECL(Geometry, Drawable)
public:
    static constexpr UInt32 MaxTexSlots = 8;
    static constexpr BitVector TypesFieldMask = 1ull << 10;
    static constexpr BitVector LengthsFieldMask = 1ull << 11;
    static constexpr BitVector IndicesFieldMask = 1ull << 12;
    static constexpr BitVector PositionsFieldMask = 1ull << 13;
    static constexpr BitVector NormalsFieldMask = 1ull << 14;
    static constexpr BitVector ColorsFieldMask = 1ull << 15;
    static constexpr BitVector IndexMappingFieldMask = 1ull << 16;
    static constexpr BitVector TexCoordsFieldMask = 1ull << 17; // slot i: bit 17 + i
    static constexpr BitVector TexCoordsNameFieldMask = 1ull << 25;

    // Same bits as the namespace-level constants.
    static constexpr UInt16 MapPosition = osg::MapPosition;
    static constexpr UInt16 MapNormal = osg::MapNormal;
    static constexpr UInt16 MapColor = osg::MapColor;
    static constexpr UInt16 MapSecondaryColor = osg::MapSecondaryColor;
    static constexpr UInt16 MapTexCoords = osg::MapTexCoords;
    static constexpr UInt16 MapTexCoords1 = osg::MapTexCoords1;
    static constexpr UInt16 MapTexCoords2 = osg::MapTexCoords2;
    static constexpr UInt16 MapTexCoords3 = osg::MapTexCoords3;
    static constexpr UInt16 MapTexCoords4 = osg::MapTexCoords4;
    static constexpr UInt16 MapTexCoords5 = osg::MapTexCoords5;
    static constexpr UInt16 MapTexCoords6 = osg::MapTexCoords6;
    static constexpr UInt16 MapTexCoords7 = osg::MapTexCoords7;

    GeoPTypesPtr getTypes() const { return _types; }
    GeoPLengthsPtr getLengths() const { return _lengths; }
    GeoIndicesPtr getIndices() const { return _indices; }
    GeoPositionsPtr getPositions() const { return _positions; }
    GeoNormalsPtr getNormals() const { return _normals; }
    GeoColorsPtr getColors() const { return _colors; }
    void setTypes(const GeoPTypesPtr& p);
    void setLengths(const GeoPLengthsPtr& p);
    void setIndices(const GeoIndicesPtr& p);
    void setPositions(const GeoPositionsPtr& p);
    void setNormals(const GeoNormalsPtr& p);
    void setColors(const GeoColorsPtr& p);

    // Texture coordinates by slot (0..7); out-of-range slots read as null
    // and are ignored on write.
    GeoTexCoordsPtr getTexSlot(UInt32 slot) const;
    void setTexSlot(const GeoTexCoordsPtr& p, UInt32 slot);
    const std::string& getTexSlotName(UInt32 slot) const;
    void setTexSlotName(UInt32 slot, const std::string& name);
    GeoTexCoordsPtr getTexCoords() const { return getTexSlot(0); }
    GeoTexCoordsPtr getTexCoords1() const { return getTexSlot(1); }
    GeoTexCoordsPtr getTexCoords2() const { return getTexSlot(2); }
    GeoTexCoordsPtr getTexCoords3() const { return getTexSlot(3); }
    GeoTexCoordsPtr getTexCoords4() const { return getTexSlot(4); }
    GeoTexCoordsPtr getTexCoords5() const { return getTexSlot(5); }
    GeoTexCoordsPtr getTexCoords6() const { return getTexSlot(6); }
    GeoTexCoordsPtr getTexCoords7() const { return getTexSlot(7); }
    void setTexCoords(const GeoTexCoordsPtr& p) { setTexSlot(p, 0); }
    void setTexCoords1(const GeoTexCoordsPtr& p) { setTexSlot(p, 1); }
    void setTexCoords2(const GeoTexCoordsPtr& p) { setTexSlot(p, 2); }
    void setTexCoords3(const GeoTexCoordsPtr& p) { setTexSlot(p, 3); }
    void setTexCoords4(const GeoTexCoordsPtr& p) { setTexSlot(p, 4); }
    void setTexCoords5(const GeoTexCoordsPtr& p) { setTexSlot(p, 5); }
    void setTexCoords6(const GeoTexCoordsPtr& p) { setTexSlot(p, 6); }
    void setTexCoords7(const GeoTexCoordsPtr& p) { setTexSlot(p, 7); }

    const std::vector<UInt16>& getIndexMapping() const { return _indexMapping; }
    std::vector<UInt16>& editIndexMapping() { return _indexMapping; }
    void setIndexMapping(std::vector<UInt16> mapping);
    // Position of the mapping entry that contains bit, or -1. With an empty
    // mapping every property is addressed by the single index (returns 0).
    Int32 findMappingIndex(UInt16 bit) const;
    // Values per vertex in the index (1 for an empty or single mapping).
    UInt32 getIndexStride() const;
    // The property addressed by a mapping bit (MapPosition, MapTexCoords3...).
    GeoPropertyPtr getProperty(UInt16 bit) const;

    // Vertices in the primitive stream: index entries / stride, or the
    // number of positions when there is no index.
    UInt32 getVertexCount() const;
    // Index into the property of bit for stream vertex v (v itself when
    // there is no index); 0xFFFFFFFF when out of range.
    UInt32 getPropertyIndex(UInt32 v, UInt16 bit) const;

    UInt32 countTriangles() const;
    TriangleIterator beginTriangles() const;
    TriangleIterator endTriangles() const;

private:
    GeoPTypesPtr _types;
    GeoPLengthsPtr _lengths;
    GeoIndicesPtr _indices;
    GeoPositionsPtr _positions;
    GeoNormalsPtr _normals;
    GeoColorsPtr _colors;
    std::array<GeoTexCoordsPtr, MaxTexSlots> _texCoords;
    std::array<std::string, MaxTexSlots> _texNames;
    std::vector<UInt16> _indexMapping;
};

} // namespace osg
