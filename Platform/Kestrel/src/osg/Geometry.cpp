#include "Setters.h"
#include <kestrel/osg/Geometry.h>

namespace osg {

const FieldContainerType& GeoProperty::getClassType() {
    static const FieldContainerType t("GeoProperty", &FieldContainer::getClassType());
    return t;
}
const FieldContainerType& GeoProperty::getType() const {
    return getClassType();
}

#define KS_GEO_KIND_IMPL(Kind)                                                                     \
    const FieldContainerType& Kind::getClassType() {                                               \
        static const FieldContainerType t(#Kind, &GeoProperty::getClassType());                    \
        return t;                                                                                  \
    }                                                                                              \
    const FieldContainerType& Kind::getType() const {                                              \
        return getClassType();                                                                     \
    }
KS_GEO_KIND_IMPL(GeoPTypes)
KS_GEO_KIND_IMPL(GeoPLengths)
KS_GEO_KIND_IMPL(GeoIndices)
KS_GEO_KIND_IMPL(GeoPositions)
KS_GEO_KIND_IMPL(GeoNormals)
KS_GEO_KIND_IMPL(GeoColors)
KS_GEO_KIND_IMPL(GeoTexCoords)
#undef KS_GEO_KIND_IMPL

KS_FIELD_CONTAINER_IMPL(GeoPTypesUI8)
KS_FIELD_CONTAINER_IMPL(GeoPLengthsUI32)
KS_FIELD_CONTAINER_IMPL(GeoIndicesUI32)
KS_FIELD_CONTAINER_IMPL(GeoPositions3f)
KS_FIELD_CONTAINER_IMPL(GeoPositions4f)
KS_FIELD_CONTAINER_IMPL(GeoNormals3f)
KS_FIELD_CONTAINER_IMPL(GeoColors3f)
KS_FIELD_CONTAINER_IMPL(GeoColors4f)
KS_FIELD_CONTAINER_IMPL(GeoTexCoords2f)
KS_FIELD_CONTAINER_IMPL(GeoTexCoords3f)
KS_FIELD_CONTAINER_IMPL(GeoTexCoords4f)
KS_FIELD_CONTAINER_IMPL(Drawable)
KS_FIELD_CONTAINER_IMPL(Geometry)

KS_FIELD_SETTER(Drawable, Material, const MaterialPtr&, _material, MaterialFieldMask)
KS_FIELD_SETTER(Drawable, Transform, const TransformPtr&, _transform, TransformFieldMask)

Matrix Drawable::getLocalMatrix() const {
    return _transform ? _transform->getMatrix() : Matrix();
}

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

// --- TriangleIterator -----------------------------------------------------

namespace {
UInt32 primType(const Geometry* g, UInt32 p) {
    auto* t = dynamic_cast<const GeoPTypesUI8*>(g->getTypes().get());
    return t && p < t->size() ? t->getField()[p] : 0xFFu;
}
UInt32 primLength(const Geometry* g, UInt32 p) {
    auto* l = dynamic_cast<const GeoPLengthsUI32*>(g->getLengths().get());
    if (l && p < l->size()) return l->getField()[p];
    if (!g->getLengths() && p == 0) return g->getVertexCount(); // one primitive, all vertices
    return 0;
}
UInt32 primCount(const Geometry* g) {
    auto* t = g->getTypes().get();
    return t ? t->size() : 0u;
}
} // namespace

TriangleIterator::TriangleIterator(const Geometry* geo, bool atEnd) : _geo(geo), _atEnd(atEnd) {
    if (_atEnd || !_geo) {
        _atEnd = true;
        return;
    }
    if (!setup()) nextPrimitive();
}

bool TriangleIterator::setup() {
    UInt32 type = primType(_geo, _prim);
    UInt32 len = primLength(_geo, _prim);
    UInt32 total = _geo->getVertexCount();
    if (_primStart + len > total) return false; // broken primitive: stop here
    UInt32 s = _primStart, t = _tri;
    switch (type) {
    case PrimTriangles:
        if (3 * t + 2 >= len) return false;
        _v[0] = s + 3 * t, _v[1] = s + 3 * t + 1, _v[2] = s + 3 * t + 2;
        return true;
    case PrimTriangleStrip:
        if (t + 2 >= len) return false;
        if (t % 2 == 0)
            _v[0] = s + t, _v[1] = s + t + 1, _v[2] = s + t + 2;
        else
            _v[0] = s + t + 1, _v[1] = s + t, _v[2] = s + t + 2;
        return true;
    case PrimTriangleFan:
    case PrimPolygon:
        if (t + 2 >= len) return false;
        _v[0] = s, _v[1] = s + t + 1, _v[2] = s + t + 2;
        return true;
    case PrimQuads: {
        UInt32 q = t / 2;
        if (4 * q + 3 >= len) return false;
        UInt32 b = s + 4 * q;
        if (t % 2 == 0)
            _v[0] = b, _v[1] = b + 1, _v[2] = b + 2;
        else
            _v[0] = b, _v[1] = b + 2, _v[2] = b + 3;
        return true;
    }
    case PrimQuadStrip: {
        UInt32 q = t / 2;
        if (2 * q + 3 >= len) return false;
        UInt32 b = s + 2 * q;
        if (t % 2 == 0)
            _v[0] = b, _v[1] = b + 1, _v[2] = b + 3;
        else
            _v[0] = b, _v[1] = b + 3, _v[2] = b + 2;
        return true;
    }
    default:
        return false;
    }
}

void TriangleIterator::nextPrimitive() {
    UInt32 n = primCount(_geo);
    UInt32 total = _geo->getVertexCount();
    while (true) {
        UInt32 len = primLength(_geo, _prim);
        _primStart += len;
        ++_prim;
        _tri = 0;
        if (_prim >= n || _primStart > total) {
            _atEnd = true;
            return;
        }
        if (setup()) return;
    }
}

TriangleIterator& TriangleIterator::operator++() {
    if (_atEnd) return *this;
    ++_count;
    ++_tri;
    if (!setup()) nextPrimitive();
    return *this;
}

bool TriangleIterator::operator==(const TriangleIterator& o) const {
    if (_atEnd || o._atEnd) return _atEnd == o._atEnd;
    return _geo == o._geo && _prim == o._prim && _tri == o._tri;
}

UInt32 TriangleIterator::getPropertyIndex(int k, UInt16 bit) const {
    return _geo->getPropertyIndex(_v[k], bit);
}
UInt32 TriangleIterator::getPositionIndex(int k) const {
    return getPropertyIndex(k, MapPosition);
}
UInt32 TriangleIterator::getNormalIndex(int k) const {
    return getPropertyIndex(k, MapNormal);
}

Pnt3f TriangleIterator::getPosition(int k) const {
    auto* p = dynamic_cast<const GeoPositions3f*>(_geo->getPositions().get());
    UInt32 i = getPositionIndex(k);
    return p && i < p->size() ? p->getField()[i] : Pnt3f();
}

} // namespace osg
