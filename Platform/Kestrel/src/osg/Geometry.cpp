#include "Setters.h"
#include <kestrel/osg/Geometry.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Geometry)

KS_FIELD_SETTER(Geometry, Types, const GeoPTypesPtr&, _types, TypesFieldMask)
KS_FIELD_SETTER(Geometry, Lengths, const GeoPLengthsPtr&, _lengths, LengthsFieldMask)
KS_FIELD_SETTER(Geometry, Indices, const GeoIndicesPtr&, _indices, IndicesFieldMask)
KS_FIELD_SETTER(Geometry, Positions, const GeoPositionsPtr&, _positions, PositionsFieldMask)
KS_FIELD_SETTER(Geometry, Normals, const GeoNormalsPtr&, _normals, NormalsFieldMask)
KS_FIELD_SETTER(Geometry, Colors, const GeoColorsPtr&, _colors, ColorsFieldMask)

GeoTexCoordsPtr Geometry::getTexSlot(UInt32 slot) const {
    return slot < MaxTexSlots ? _texCoords[slot] : GeoTexCoordsPtr();
}

void Geometry::setTexSlot(const GeoTexCoordsPtr& p, UInt32 slot) {
    if (slot >= MaxTexSlots) return;
    _texCoords[slot] = p;
    changed(TexCoordsFieldMask << slot);
}

const std::string& Geometry::getTexSlotName(UInt32 slot) const {
    static const std::string empty;
    return slot < MaxTexSlots ? _texNames[slot] : empty;
}

void Geometry::setTexSlotName(UInt32 slot, const std::string& name) {
    if (slot >= MaxTexSlots) return;
    _texNames[slot] = name;
    changed(TexCoordsNameFieldMask);
}

void Geometry::setIndexMapping(std::vector<UInt16> mapping) {
    _indexMapping = std::move(mapping);
    changed(IndexMappingFieldMask);
}

Int32 Geometry::findMappingIndex(UInt16 bit) const {
    if (_indexMapping.empty()) return 0;
    for (std::size_t i = 0; i < _indexMapping.size(); ++i)
        if (_indexMapping[i] & bit) return static_cast<Int32>(i);
    return -1;
}

UInt32 Geometry::getIndexStride() const {
    return _indexMapping.size() > 1 ? static_cast<UInt32>(_indexMapping.size()) : 1u;
}

GeoPropertyPtr Geometry::getProperty(UInt16 bit) const {
    if (bit == MapPosition) return _positions;
    if (bit == MapNormal) return _normals;
    if (bit == MapColor) return _colors;
    for (UInt32 s = 0; s < MaxTexSlots; ++s)
        if (bit == mapTexCoordsBit(s)) return _texCoords[s];
    return GeoPropertyPtr();
}

UInt32 Geometry::getVertexCount() const {
    if (_indices && !_indices->empty()) return _indices->size() / getIndexStride();
    return _positions ? _positions->size() : 0u;
}

UInt32 Geometry::getPropertyIndex(UInt32 v, UInt16 bit) const {
    constexpr UInt32 bad = 0xFFFFFFFFu;
    if (!_indices || _indices->empty()) return v;
    Int32 slot = findMappingIndex(bit);
    if (slot < 0) return bad;
    auto* idx = dynamic_cast<const GeoIndicesUI32*>(_indices.get());
    if (!idx) return bad;
    std::size_t at = std::size_t(v) * getIndexStride() + std::size_t(slot);
    return at < idx->getField().size() ? idx->getField()[at] : bad;
}

UInt32 Geometry::countTriangles() const {
    UInt32 n = 0;
    for (TriangleIterator it = beginTriangles(); !it.isAtEnd(); ++it)
        ++n;
    return n;
}

TriangleIterator Geometry::beginTriangles() const {
    return TriangleIterator(this, false);
}
TriangleIterator Geometry::endTriangles() const {
    return TriangleIterator(this, true);
}

} // namespace osg
