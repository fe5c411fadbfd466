#include <algorithm>
#include <cmath>

#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Quaternion.h>

namespace osg {

Matrix::Matrix() {
    setIdentity();
}

Matrix::Matrix(Real32 m00, Real32 m01, Real32 m02, Real32 m03, Real32 m10, Real32 m11, Real32 m12,
               Real32 m13, Real32 m20, Real32 m21, Real32 m22, Real32 m23, Real32 m30, Real32 m31,
               Real32 m32, Real32 m33) {
    _c[0] = Vec4f(m00, m10, m20, m30);
    _c[1] = Vec4f(m01, m11, m21, m31);
    _c[2] = Vec4f(m02, m12, m22, m32);
    _c[3] = Vec4f(m03, m13, m23, m33);
}

void Matrix::setIdentity() {
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            _c[i][j] = i == j ? 1.f : 0.f;
}

Matrix Matrix::translation(const Vec3f& t) {
    Matrix m;
    m.setTranslate(t);
    return m;
}

Matrix Matrix::scale(const Vec3f& s) {
    Matrix m;
    m._c[0][0] = s[0];
    m._c[1][1] = s[1];
    m._c[2][2] = s[2];
    return m;
}

Matrix Matrix::rotation(const Quaternion& q) {
    return q.getMatrix();
}

Matrix Matrix::rotationEulerDeg(const Vec3f& degrees, RotationOrder order) {
    return Quaternion::fromEulerDeg(degrees, order).getMatrix();
}

Vec3f Matrix::getEulerDeg(RotationOrder order) const {
    return Quaternion(*this).getEulerDeg(order);
}

Matrix Matrix::operator*(const Matrix& b) const {
    Matrix r;
    for (int c = 0; c < 4; ++c)
        for (int row = 0; row < 4; ++row) {
            double s = 0;
            for (int k = 0; k < 4; ++k)
                s += double(at(row, k)) * double(b.at(k, c));
            r.at(row, c) = static_cast<Real32>(s);
        }
    return r;
}

void Matrix::mult(const Matrix& m) {
    *this = *this * m;
}
void Matrix::multLeft(const Matrix& m) {
    *this = m * *this;
}

bool Matrix::operator==(const Matrix& o) const {
    for (int i = 0; i < 4; ++i)
        if (!(_c[i] == o._c[i])) return false;
    return true;
}

bool Matrix::equals(const Matrix& o, Real32 tolerance) const {
    for (int i = 0; i < 4; ++i)
        if (!_c[i].equals(o._c[i], tolerance)) return false;
    return true;
}

namespace {
// Inverse and determinant of a 4x4 matrix in double precision (cofactors).
double invert4(const double m[16], double inv[16]) {
    inv[0] = m[5] * m[10] * m[15] - m[5] * m[11] * m[14] - m[9] * m[6] * m[15] +
             m[9] * m[7] * m[14] + m[13] * m[6] * m[11] - m[13] * m[7] * m[10];
    inv[4] = -m[4] * m[10] * m[15] + m[4] * m[11] * m[14] + m[8] * m[6] * m[15] -
             m[8] * m[7] * m[14] - m[12] * m[6] * m[11] + m[12] * m[7] * m[10];
    inv[8] = m[4] * m[9] * m[15] - m[4] * m[11] * m[13] - m[8] * m[5] * m[15] +
             m[8] * m[7] * m[13] + m[12] * m[5] * m[11] - m[12] * m[7] * m[9];
    inv[12] = -m[4] * m[9] * m[14] + m[4] * m[10] * m[13] + m[8] * m[5] * m[14] -
              m[8] * m[6] * m[13] - m[12] * m[5] * m[10] + m[12] * m[6] * m[9];
    inv[1] = -m[1] * m[10] * m[15] + m[1] * m[11] * m[14] + m[9] * m[2] * m[15] -
             m[9] * m[3] * m[14] - m[13] * m[2] * m[11] + m[13] * m[3] * m[10];
    inv[5] = m[0] * m[10] * m[15] - m[0] * m[11] * m[14] - m[8] * m[2] * m[15] +
             m[8] * m[3] * m[14] + m[12] * m[2] * m[11] - m[12] * m[3] * m[10];
    inv[9] = -m[0] * m[9] * m[15] + m[0] * m[11] * m[13] + m[8] * m[1] * m[15] -
             m[8] * m[3] * m[13] - m[12] * m[1] * m[11] + m[12] * m[3] * m[9];
    inv[13] = m[0] * m[9] * m[14] - m[0] * m[10] * m[13] - m[8] * m[1] * m[14] +
              m[8] * m[2] * m[13] + m[12] * m[1] * m[10] - m[12] * m[2] * m[9];
    inv[2] = m[1] * m[6] * m[15] - m[1] * m[7] * m[14] - m[5] * m[2] * m[15] + m[5] * m[3] * m[14] +
             m[13] * m[2] * m[7] - m[13] * m[3] * m[6];
    inv[6] = -m[0] * m[6] * m[15] + m[0] * m[7] * m[14] + m[4] * m[2] * m[15] -
             m[4] * m[3] * m[14] - m[12] * m[2] * m[7] + m[12] * m[3] * m[6];
    inv[10] = m[0] * m[5] * m[15] - m[0] * m[7] * m[13] - m[4] * m[1] * m[15] +
              m[4] * m[3] * m[13] + m[12] * m[1] * m[7] - m[12] * m[3] * m[5];
    inv[14] = -m[0] * m[5] * m[14] + m[0] * m[6] * m[13] + m[4] * m[1] * m[14] -
              m[4] * m[2] * m[13] - m[12] * m[1] * m[6] + m[12] * m[2] * m[5];
    inv[3] = -m[1] * m[6] * m[11] + m[1] * m[7] * m[10] + m[5] * m[2] * m[11] -
             m[5] * m[3] * m[10] - m[9] * m[2] * m[7] + m[9] * m[3] * m[6];
    inv[7] = m[0] * m[6] * m[11] - m[0] * m[7] * m[10] - m[4] * m[2] * m[11] + m[4] * m[3] * m[10] +
             m[8] * m[2] * m[7] - m[8] * m[3] * m[6];
    inv[11] = -m[0] * m[5] * m[11] + m[0] * m[7] * m[9] + m[4] * m[1] * m[11] - m[4] * m[3] * m[9] -
              m[8] * m[1] * m[7] + m[8] * m[3] * m[5];
    inv[15] = m[0] * m[5] * m[10] - m[0] * m[6] * m[9] - m[4] * m[1] * m[10] + m[4] * m[2] * m[9] +
              m[8] * m[1] * m[6] - m[8] * m[2] * m[5];
    return m[0] * inv[0] + m[1] * inv[4] + m[2] * inv[8] + m[3] * inv[12];
}
} // namespace

Real32 Matrix::det() const {
    double m[16], inv[16];
    for (int i = 0; i < 16; ++i)
        m[i] = _c[i / 4][i % 4];
    return static_cast<Real32>(invert4(m, inv));
}

bool Matrix::inverse(Matrix& result) const {
    double m[16], inv[16];
    for (int i = 0; i < 16; ++i)
        m[i] = _c[i / 4][i % 4];
    double d = invert4(m, inv);
    if (std::abs(d) < 1e-30) {
        result.setIdentity();
        return false;
    }
    for (int i = 0; i < 16; ++i)
        result._c[i / 4][i % 4] = static_cast<Real32>(inv[i] / d);
    return true;
}

bool Matrix::invert() {
    return inverse(*this);
}

void Matrix::transpose() {
    for (int i = 0; i < 4; ++i)
        for (int j = i + 1; j < 4; ++j)
            std::swap(_c[i][j], _c[j][i]);
}

void Matrix::setTranslate(const Vec3f& t) {
    _c[3][0] = t[0];
    _c[3][1] = t[1];
    _c[3][2] = t[2];
}

void Matrix::setTransform(const Vec3f& t, const Quaternion& r, const Vec3f& s) {
    *this = Matrix::translation(t) * r.getMatrix() * Matrix::scale(s);
}

void Matrix::getTransform(Vec3f& t, Quaternion& r, Vec3f& s, Quaternion& so) const {
    t = getTranslate();
    // Gram-Schmidt on the columns gives rotation and (diagonal) scale; shear
    // is dropped, which keeps the scale orientation at the identity.
    Vec3f c0(_c[0][0], _c[0][1], _c[0][2]);
    Vec3f c1(_c[1][0], _c[1][1], _c[1][2]);
    Vec3f c2(_c[2][0], _c[2][1], _c[2][2]);
    Real32 sx = c0.length();
    if (sx > 0) c0 *= 1.f / sx;
    c1 -= c0 * c0.dot(c1);
    Real32 sy = c1.length();
    if (sy > 0) c1 *= 1.f / sy;
    c2 -= c0 * c0.dot(c2);
    c2 -= c1 * c1.dot(c2);
    Real32 sz = c2.length();
    if (sz > 0) c2 *= 1.f / sz;
    if (c0.cross(c1).dot(c2) < 0) { // mirrored: put the sign into the scale
        sz = -sz;
        c2 = -c2;
    }
    s = Vec3f(sx, sy, sz);
    Matrix rot;
    for (int i = 0; i < 3; ++i) {
        rot._c[0][i] = c0[i];
        rot._c[1][i] = c1[i];
        rot._c[2][i] = c2[i];
    }
    r.setValue(rot);
    so = Quaternion();
}

Pnt3f Matrix::multPnt(const Pnt3f& p) const {
    // The first three rows of mult4 with w = 1, summed in the same order.
    Pnt3f r;
    for (int row = 0; row < 3; ++row) {
        double s = 0;
        for (int k = 0; k < 3; ++k)
            s += double(at(row, k)) * double(p[k]);
        s += double(at(row, 3)) * 1.0;
        r[row] = static_cast<Real32>(s);
    }
    return r;
}

Pnt3f Matrix::multFullPnt(const Pnt3f& p) const {
    Vec4f v = mult4(Vec4f(p[0], p[1], p[2], 1.f));
    if (v[3] != 0.f && v[3] != 1.f) return Pnt3f(v[0] / v[3], v[1] / v[3], v[2] / v[3]);
    return Pnt3f(v[0], v[1], v[2]);
}

Vec3f Matrix::multVec(const Vec3f& d) const {
    Vec4f v = mult4(Vec4f(d[0], d[1], d[2], 0.f));
    return Vec3f(v[0], v[1], v[2]);
}

Vec4f Matrix::mult4(const Vec4f& v) const {
    Vec4f r;
    for (int row = 0; row < 4; ++row) {
        double s = 0;
        for (int k = 0; k < 4; ++k)
            s += double(at(row, k)) * double(v[k]);
        r[row] = static_cast<Real32>(s);
    }
    return r;
}

} // namespace osg
