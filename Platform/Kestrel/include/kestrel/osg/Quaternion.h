#pragma once
// A rotation as a unit quaternion (x, y, z, w).
#include <kestrel/osg/Matrix.h>

namespace osg {

class Quaternion {
public:
    Quaternion() : _x(0), _y(0), _z(0), _w(1) {}
    Quaternion(Real32 x, Real32 y, Real32 z, Real32 w) : _x(x), _y(y), _z(z), _w(w) {}
    explicit Quaternion(const Matrix& m) { setValue(m); }

    static Quaternion fromAxisDeg(const Vec3f& axis, Real32 degrees);
    static Quaternion fromAxisRad(const Vec3f& axis, Real32 radians);
    // Euler angles in degrees, turned about the axes in the given order.
    static Quaternion fromEulerDeg(const Vec3f& degrees, RotationOrder order = RotationOrder::XYZ);
    static Quaternion fromEulerXYZDeg(const Vec3f& degrees) {
        return fromEulerDeg(degrees, RotationOrder::XYZ);
    }

    void setValue(const Matrix& m); // rotation part of m (assumed orthonormal)
    void getValue(Matrix& m) const;
    Matrix getMatrix() const;
    void setValueAsAxisDeg(const Vec3f& axis, Real32 degrees) {
        *this = fromAxisDeg(axis, degrees);
    }

    Real32 x() const { return _x; }
    Real32 y() const { return _y; }
    Real32 z() const { return _z; }
    Real32 w() const { return _w; }
    const Real32* getValues() const { return &_x; }

    Quaternion operator*(const Quaternion& o) const; // this applied after o
    Quaternion inverse() const { return Quaternion(-_x, -_y, -_z, _w); }
    void normalize();
    Vec3f rotate(const Vec3f& v) const;
    // Euler angles in degrees for an order (inverse of fromEulerDeg). The
    // middle angle lies in [-90, 90], the others in (-180, 180]; at gimbal
    // lock (middle angle +-90) the last angle is 0 and the first takes it all.
    Vec3f getEulerDeg(RotationOrder order = RotationOrder::XYZ) const;
    Vec3f getEulerXYZDeg() const { return getEulerDeg(RotationOrder::XYZ); }
    bool equals(const Quaternion& o, Real32 tolerance) const;

private:
    Real32 _x, _y, _z, _w;
};

} // namespace osg
