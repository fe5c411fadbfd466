#pragma once
#include <cstddef>

#include <kestrel/osg/Vector.h>

namespace osg {

class Geometry;

// Walks the triangles of a geometry's primitives (strips, fans, quads and
// polygons are split; points and lines yield nothing). Corner k (0..2) of
// the current triangle: getIndex(k) is the stream vertex, getPositionIndex(k)
// the index into the positions.
class TriangleIterator {
public:
    TriangleIterator() = default;
    TriangleIterator(const Geometry* geo, bool atEnd);

    bool isAtEnd() const { return _atEnd; }
    TriangleIterator& operator++();
    bool operator==(const TriangleIterator& o) const;
    bool operator!=(const TriangleIterator& o) const { return !(*this == o); }

    UInt32 getIndex(int k) const { return _v[k]; }
    UInt32 getPositionIndex(int k) const;
    UInt32 getNormalIndex(int k) const;
    UInt32 getPropertyIndex(int k, UInt16 bit) const;
    Pnt3f getPosition(int k) const;
    UInt32 getPrimitiveIndex() const { return _prim; }
    UInt32 getTriangleIndex() const { return _count; }

private:
    bool setup(); // fills _v for the current (prim, tri); false when none
    void nextPrimitive();
    UInt32 primType(UInt32 p) const;
    UInt32 primLength(UInt32 p) const;
    UInt32 indexAt(UInt32 v, Int32 slot) const;

    // The geometry's arrays, looked up once when the walk starts: the walk
    // reads them for every triangle and the geometry does not change under it.
    const UInt8* _types = nullptr;
    const UInt32* _lengths = nullptr;
    const UInt32* _index = nullptr;
    UInt32 _typeCount = 0, _primCount = 0, _lengthCount = 0, _total = 0;
    std::size_t _indexSize = 0;
    UInt32 _stride = 1;
    Int32 _positionSlot = 0;
    bool _hasLengths = false, _hasIndex = false;

    const Geometry* _geo = nullptr;
    bool _atEnd = true;
    UInt32 _prim = 0, _primStart = 0, _tri = 0, _count = 0;
    UInt32 _v[3] = {0, 0, 0};
};

} // namespace osg
