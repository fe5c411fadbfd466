#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/TriangleIterator.h>

namespace osg {

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
