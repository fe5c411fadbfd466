#include <algorithm>
#include <cmath>

#include <kestrel/osg/Matrix.h>

namespace osg {

namespace {
constexpr double kPi = 3.14159265358979323846;
double deg2rad(double d) {
    return d * kPi / 180.0;
}
double rad2deg(double r) {
    return r * 180.0 / kPi;
}
} // namespace

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
    Vec4f v = mult4(Vec4f(p[0], p[1], p[2], 1.f));
    return Pnt3f(v[0], v[1], v[2]);
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

Quaternion Quaternion::fromAxisRad(const Vec3f& axis, Real32 radians) {
    Vec3f a = axis;
    a.normalize();
    double h = double(radians) * 0.5;
    Real32 s = static_cast<Real32>(std::sin(h));
    return Quaternion(a[0] * s, a[1] * s, a[2] * s, static_cast<Real32>(std::cos(h)));
}

Quaternion Quaternion::fromAxisDeg(const Vec3f& axis, Real32 degrees) {
    return fromAxisRad(axis, static_cast<Real32>(deg2rad(degrees)));
}

Quaternion Quaternion::fromEulerXYZDeg(const Vec3f& d) {
    Quaternion qx = fromAxisDeg(Vec3f(1, 0, 0), d[0]);
    Quaternion qy = fromAxisDeg(Vec3f(0, 1, 0), d[1]);
    Quaternion qz = fromAxisDeg(Vec3f(0, 0, 1), d[2]);
    return qz * qy * qx;
}

Quaternion Quaternion::operator*(const Quaternion& o) const {
    return Quaternion(_w * o._x + _x * o._w + _y * o._z - _z * o._y,
                      _w * o._y - _x * o._z + _y * o._w + _z * o._x,
                      _w * o._z + _x * o._y - _y * o._x + _z * o._w,
                      _w * o._w - _x * o._x - _y * o._y - _z * o._z);
}

void Quaternion::normalize() {
    double l = std::sqrt(double(_x) * _x + double(_y) * _y + double(_z) * _z + double(_w) * _w);
    if (l <= 0) {
        *this = Quaternion();
        return;
    }
    _x = Real32(_x / l);
    _y = Real32(_y / l);
    _z = Real32(_z / l);
    _w = Real32(_w / l);
}

void Quaternion::getValue(Matrix& m) const {
    m = getMatrix();
}

Matrix Quaternion::getMatrix() const {
    double x = _x, y = _y, z = _z, w = _w;
    Matrix m;
    m.at(0, 0) = Real32(1 - 2 * (y * y + z * z));
    m.at(0, 1) = Real32(2 * (x * y - z * w));
    m.at(0, 2) = Real32(2 * (x * z + y * w));
    m.at(1, 0) = Real32(2 * (x * y + z * w));
    m.at(1, 1) = Real32(1 - 2 * (x * x + z * z));
    m.at(1, 2) = Real32(2 * (y * z - x * w));
    m.at(2, 0) = Real32(2 * (x * z - y * w));
    m.at(2, 1) = Real32(2 * (y * z + x * w));
    m.at(2, 2) = Real32(1 - 2 * (x * x + y * y));
    return m;
}

void Quaternion::setValue(const Matrix& m) {
    double m00 = m.at(0, 0), m11 = m.at(1, 1), m22 = m.at(2, 2);
    double tr = m00 + m11 + m22;
    double x, y, z, w;
    if (tr > 0) {
        double s = std::sqrt(tr + 1.0) * 2;
        w = 0.25 * s;
        x = (m.at(2, 1) - m.at(1, 2)) / s;
        y = (m.at(0, 2) - m.at(2, 0)) / s;
        z = (m.at(1, 0) - m.at(0, 1)) / s;
    } else if (m00 > m11 && m00 > m22) {
        double s = std::sqrt(1.0 + m00 - m11 - m22) * 2;
        w = (m.at(2, 1) - m.at(1, 2)) / s;
        x = 0.25 * s;
        y = (m.at(0, 1) + m.at(1, 0)) / s;
        z = (m.at(0, 2) + m.at(2, 0)) / s;
    } else if (m11 > m22) {
        double s = std::sqrt(1.0 + m11 - m00 - m22) * 2;
        w = (m.at(0, 2) - m.at(2, 0)) / s;
        x = (m.at(0, 1) + m.at(1, 0)) / s;
        y = 0.25 * s;
        z = (m.at(1, 2) + m.at(2, 1)) / s;
    } else {
        double s = std::sqrt(1.0 + m22 - m00 - m11) * 2;
        w = (m.at(1, 0) - m.at(0, 1)) / s;
        x = (m.at(0, 2) + m.at(2, 0)) / s;
        y = (m.at(1, 2) + m.at(2, 1)) / s;
        z = 0.25 * s;
    }
    _x = Real32(x);
    _y = Real32(y);
    _z = Real32(z);
    _w = Real32(w);
    normalize();
}

Vec3f Quaternion::rotate(const Vec3f& v) const {
    return getMatrix().multVec(v);
}

Vec3f Quaternion::getEulerXYZDeg() const {
    // R = Rz(c) * Ry(b) * Rx(a): r20 = -sin b, r21 = cos b sin a, r22 = cos b cos a,
    // r10 = cos b sin c, r00 = cos b cos c.
    Matrix m = getMatrix();
    double r20 = std::clamp(double(m.at(2, 0)), -1.0, 1.0);
    double b = std::asin(-r20);
    double a, c;
    if (std::abs(r20) < 0.9999999) {
        a = std::atan2(double(m.at(2, 1)), double(m.at(2, 2)));
        c = std::atan2(double(m.at(1, 0)), double(m.at(0, 0)));
    } else { // gimbal lock: put everything into X
        c = 0;
        a = std::atan2(-double(m.at(1, 2)), double(m.at(1, 1)));
    }
    return Vec3f(Real32(rad2deg(a)), Real32(rad2deg(b)), Real32(rad2deg(c)));
}

bool Quaternion::equals(const Quaternion& o, Real32 tolerance) const {
    auto close = [&](const Quaternion& q) {
        return std::abs(_x - q._x) <= tolerance && std::abs(_y - q._y) <= tolerance &&
               std::abs(_z - q._z) <= tolerance && std::abs(_w - q._w) <= tolerance;
    };
    return close(o) || close(Quaternion(-o._x, -o._y, -o._z, -o._w));
}

} // namespace osg
