#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/TriangleIterator.h>

namespace osg {

TriangleIterator::TriangleIterator(const Geometry* geo, bool atEnd) : _geo(geo), _atEnd(atEnd) {
    if (_atEnd || !_geo) {
        _atEnd = true;
        return;
    }
    if (const GeoPTypes* t = _geo->getTypes().get()) {
        _primCount = t->size();
        if (auto* t8 = dynamic_cast<const GeoPTypesUI8*>(t)) {
            _types = t8->getField().data();
            _typeCount = t8->size();
        }
    }
    if (const GeoPLengths* l = _geo->getLengths().get()) {
        _hasLengths = true;
        if (auto* l32 = dynamic_cast<const GeoPLengthsUI32*>(l)) {
            _lengths = l32->getField().data();
            _lengthCount = l32->size();
        }
    }
    if (const GeoIndices* i = _geo->getIndices().get(); i && !i->empty()) {
        _hasIndex = true;
        if (auto* i32 = dynamic_cast<const GeoIndicesUI32*>(i)) {
            _index = i32->getField().data();
            _indexSize = i32->getField().size();
        }
        _stride = _geo->getIndexStride();
        _positionSlot = _geo->findMappingIndex(MapPosition);
    }
    _total = _geo->getVertexCount();
    if (!setup()) nextPrimitive();
}

UInt32 TriangleIterator::primType(UInt32 p) const {
    return p < _typeCount ? _types[p] : 0xFFu;
}

UInt32 TriangleIterator::primLength(UInt32 p) const {
    if (p < _lengthCount) return _lengths[p];
    if (!_hasLengths && p == 0) return _total; // one primitive, all vertices
    return 0;
}

bool TriangleIterator::setup() {
    UInt32 type = primType(_prim);
    UInt32 len = primLength(_prim);
    if (_primStart + len > _total) return false; // broken primitive: stop here
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
    while (true) {
        UInt32 len = primLength(_prim);
        _primStart += len;
        ++_prim;
        _tri = 0;
        if (_prim >= _primCount || _primStart > _total) {
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

UInt32 TriangleIterator::indexAt(UInt32 v, Int32 slot) const {
    constexpr UInt32 bad = 0xFFFFFFFFu;
    if (!_hasIndex) return v;
    if (slot < 0 || !_index) return bad;
    std::size_t at = std::size_t(v) * _stride + std::size_t(slot);
    return at < _indexSize ? _index[at] : bad;
}
UInt32 TriangleIterator::getPropertyIndex(int k, UInt16 bit) const {
    return bit == MapPosition ? indexAt(_v[k], _positionSlot)
                              : indexAt(_v[k], _hasIndex ? _geo->findMappingIndex(bit) : 0);
}
UInt32 TriangleIterator::getPositionIndex(int k) const {
    return indexAt(_v[k], _positionSlot);
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
