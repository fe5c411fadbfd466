#pragma once
// Transform cores.
//
// Transform holds a plain matrix. Transform3D holds decomposed values and
// composes its matrix from them, with column vectors:
//
//   M = T * Rpt * Rp * Ro * R * inverse(Rp) * Spt * Sp * S * inverse(Sp)
//
//   T   translation                    Rpt rotate pivot translation
//   Rp  rotate pivot                   Ro  rotation orientation (XYZ Euler)
//   R   Euler rotation, XYZ order: X applied first (R = Rz * Ry * Rx)
//   Spt scale pivot translation        Sp  scale pivot        S  scale
//
// Angles are in degrees. Joint is a Transform3D that marks a skeleton joint.
#include <kestrel/osg/Group.h>

namespace osg {

KS_FC_TYPEDEFS(Transform)
KS_FC_TYPEDEFS(Transform3D)
KS_FC_TYPEDEFS(Joint)

class Transform : public Group {
    KS_FIELD_CONTAINER_DECL(Transform, Group)
public:
    static constexpr BitVector MatrixFieldMask = 1ull << 8;

    // For a Transform3D the matrix is composed from its values.
    virtual Matrix getMatrix() const { return _matrix; }
    // Sets the matrix; a Transform3D decomposes it into translation,
    // rotation and scale and resets its pivots and orientation.
    virtual void setMatrix(const Matrix& m);
    Matrix getLocalMatrix() const override { return getMatrix(); }

protected:
    Matrix _matrix;
};

} // namespace osg

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/osg/Transform3D.h>
