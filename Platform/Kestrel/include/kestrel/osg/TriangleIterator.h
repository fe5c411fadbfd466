#pragma once
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

    const Geometry* _geo = nullptr;
    bool _atEnd = true;
    UInt32 _prim = 0, _primStart = 0, _tri = 0, _count = 0;
    UInt32 _v[3] = {0, 0, 0};
};

} // namespace osg
