#include <algorithm>
#include <cmath>

#include <kestrel/osg/Quaternion.h>

namespace osg {

namespace {
constexpr double kPi = 3.14159265358979323846;
double deg2rad(double d) {
    return d * kPi / 180.0;
}
double rad2deg(double r) {
    return r * 180.0 / kPi;
}

// The axes of an order, first applied first, and whether they run cyclically
// (X->Y->Z->X).
struct EulerAxes {
    int axis[3];
    bool cyclic;
};

EulerAxes eulerAxes(RotationOrder order) {
    switch (order) {
    case RotationOrder::XZY:
        return {{0, 2, 1}, false};
    case RotationOrder::YZX:
        return {{1, 2, 0}, true};
    case RotationOrder::YXZ:
        return {{1, 0, 2}, false};
    case RotationOrder::ZXY:
        return {{2, 0, 1}, true};
    case RotationOrder::ZYX:
        return {{2, 1, 0}, false};
    case RotationOrder::XYZ:
        break;
    }
    return {{0, 1, 2}, true};
}
} // namespace

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

Quaternion Quaternion::fromEulerDeg(const Vec3f& d, RotationOrder order) {
    const EulerAxes ax = eulerAxes(order);
    Quaternion q;
    for (int step = 0; step < 3; ++step) {
        const int axis = ax.axis[step];
        Vec3f unit;
        unit[axis] = 1.f;
        q = fromAxisDeg(unit, d[axis]) * q;
    }
    return q;
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

Vec3f Quaternion::getEulerDeg(RotationOrder order) const {
    // The rotation matrix in double precision from the normalised quaternion.
    double x = _x, y = _y, z = _z, w = _w;
    const double n = std::sqrt(x * x + y * y + z * z + w * w);
    if (n > 0) {
        x /= n;
        y /= n;
        z /= n;
        w /= n;
    } else {
        w = 1;
    }
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};

    // With axes i, j, k applied in that order, R = Rk(c) * Rj(b) * Ri(a). For
    // a cyclic order (XYZ, YZX, ZXY) the XYZ formulas hold with the indices
    // renamed; the other orders are mirror images, which flips every sign.
    // XYZ: r20 = -sin b, r21 = cos b sin a, r22 = cos b cos a,
    //      r10 = cos b sin c, r00 = cos b cos c.
    const EulerAxes ax = eulerAxes(order);
    const int i = ax.axis[0], j = ax.axis[1], k = ax.axis[2];
    const double s = ax.cyclic ? 1.0 : -1.0;
    const double cosB = std::hypot(r[i][i], r[j][i]);
    double a, b, c;
    b = std::atan2(-s * r[k][i], cosB);
    if (cosB > 1e-6) {
        a = std::atan2(s * r[k][j], r[k][k]);
        c = std::atan2(s * r[j][i], r[i][i]);
    } else { // gimbal lock: R = Rj(b) * Ri(a), everything goes into the first angle
        c = 0;
        a = std::atan2(-s * r[j][k], r[j][j]);
    }
    Vec3f out;
    out[i] = Real32(rad2deg(a));
    out[j] = Real32(rad2deg(b));
    out[k] = Real32(rad2deg(c));
    return out;
}

bool Quaternion::equals(const Quaternion& o, Real32 tolerance) const {
    auto close = [&](const Quaternion& q) {
        return std::abs(_x - q._x) <= tolerance && std::abs(_y - q._y) <= tolerance &&
               std::abs(_z - q._z) <= tolerance && std::abs(_w - q._w) <= tolerance;
    };
    return close(o) || close(Quaternion(-o._x, -o._y, -o._z, -o._w));
}

} // namespace osg
