#pragma once
// 4x4 single-precision matrix acting on column vectors.
//
// Storage: the matrix keeps four storage vectors; storage vector i is column i,
// so the translation lives in storage vector 3 (x, y, z of the fourth vector).
// mult(m) post-multiplies (this = this * m), multLeft(m) pre-multiplies.
#include <kestrel/osg/RotationOrder.h>
#include <kestrel/osg/Vector.h>

namespace osg {

class Quaternion;

class Matrix {
public:
    Matrix(); // identity
    // Row-major element order, as the matrix is written on paper.
    Matrix(Real32 m00, Real32 m01, Real32 m02, Real32 m03, Real32 m10, Real32 m11, Real32 m12,
           Real32 m13, Real32 m20, Real32 m21, Real32 m22, Real32 m23, Real32 m30, Real32 m31,
           Real32 m32, Real32 m33);

    static Matrix identity() { return Matrix(); }
    static Matrix translation(const Vec3f& t);
    static Matrix scale(const Vec3f& s);
    static Matrix rotation(const Quaternion& q);
    // Rotation from Euler angles in degrees, applied in the given order.
    static Matrix rotationEulerDeg(const Vec3f& degrees, RotationOrder order = RotationOrder::XYZ);

    void setIdentity();
    Vec4f& operator[](int i) { return _c[i]; }
    const Vec4f& operator[](int i) const { return _c[i]; }
    // Element at row r, column c.
    Real32 at(int r, int c) const { return _c[c][r]; }
    Real32& at(int r, int c) { return _c[c][r]; }

    void mult(const Matrix& m);
    void multLeft(const Matrix& m);
    Matrix operator*(const Matrix& m) const;
    bool operator==(const Matrix& o) const;
    bool equals(const Matrix& o, Real32 tolerance) const;

    Real32 det() const;
    // Full 4x4 inverse; returns false (and leaves identity) when |det| < 1e-30.
    bool invert();
    bool inverse(Matrix& result) const;
    void transpose();

    void setTranslate(const Vec3f& t);
    Vec3f getTranslate() const { return Vec3f(_c[3][0], _c[3][1], _c[3][2]); }
    void setTransform(const Vec3f& t, const Quaternion& r, const Vec3f& s);
    // Decomposes an affine matrix into translation, rotation, scale and scale
    // orientation (M = T * R * SO * S * inverse(SO)); scale orientation is the
    // identity unless the matrix carries shear.
    void getTransform(Vec3f& t, Quaternion& r, Vec3f& s, Quaternion& so) const;
    // Euler angles in degrees of the upper 3x3 block, which must be a pure
    // rotation (decompose with getTransform first when it carries scale).
    Vec3f getEulerDeg(RotationOrder order = RotationOrder::XYZ) const;

    Pnt3f multPnt(const Pnt3f& p) const;     // affine point transform (w = 1)
    Pnt3f multFullPnt(const Pnt3f& p) const; // with perspective divide
    Vec3f multVec(const Vec3f& v) const;     // direction (w = 0)
    Vec4f mult4(const Vec4f& v) const;

private:
    Vec4f _c[4];
};

} // namespace osg

// Quaternion needs the complete Matrix; users of Matrix.h get both.
#include <kestrel/osg/Quaternion.h>
