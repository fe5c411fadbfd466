#include <cmath>

#include "Setters.h"
#include <kestrel/osg/UberCamera.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(UberCamera)

KS_FIELD_SETTER(UberCamera, ProjectionMode, UInt32, _projection, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, Near, Real32, _near, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, Far, Real32, _far, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, FovMode, UInt32, _fovMode, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, SensorSize, const Vec2f&, _sensorSize, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, FocalLength, Real32, _focalLength, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, MotionBlur, bool, _motionBlur, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, DepthOfField, bool, _depthOfField, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, FocusDistance, Real32, _focusDistance, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, FStop, Real32, _fStop, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, PrincipalPointOffset, const Vec2f&, _principalPointOffset,
                CameraFieldMask)
KS_FIELD_SETTER(UberCamera, Roll, Real32, _roll, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, FrustumSides, const Vec4f&, _frustumSides, CameraFieldMask)
KS_FIELD_SETTER(UberCamera, VisualizationScale, Real32, _visScale, CameraFieldMask)

namespace {
constexpr double kPi = 3.14159265358979323846;

// The angle of view across a sensor side seen through a lens, degrees.
Real32 angleOfView(double side, double focalLength) {
    if (!(focalLength > 0.0)) return 0.f;
    return static_cast<Real32>(2.0 * std::atan(side / (2.0 * focalLength)) * 180.0 / kPi);
}
} // namespace

Real32 UberCamera::getFov() const {
    return _fovMode == HorizontalFov ? getHorizontalFov() : getVerticalFov();
}

void UberCamera::setFov(Real32 degrees) {
    double side = _fovMode == HorizontalFov ? _sensorSize[0] : _sensorSize[1];
    double t = std::tan(double(degrees) * kPi / 360.0);
    if (t > 0) setFocalLength(static_cast<Real32>(side / (2.0 * t)));
}

Real32 UberCamera::getAspect() const {
    return _sensorSize[0] > 0.f && _sensorSize[1] > 0.f ? _sensorSize[0] / _sensorSize[1] : 1.f;
}

Real32 UberCamera::getHorizontalFov() const {
    return angleOfView(_sensorSize[0], _focalLength);
}

Real32 UberCamera::getVerticalFov() const {
    return angleOfView(_sensorSize[1], _focalLength);
}

Vec4f UberCamera::getNearPlaneSides() const {
    if (_projection == Orthographic) return _frustumSides;
    if (!(_focalLength > 0.f)) return Vec4f();
    // Similar triangles: a sensor point at (x, y) mm behind the lens maps to
    // (x, y) * near / focalLength on the near plane.
    const Real32 k = _near / _focalLength;
    const Real32 hw = _sensorSize[0] * 0.5f, hh = _sensorSize[1] * 0.5f;
    const Real32 px = _principalPointOffset[0], py = _principalPointOffset[1];
    return Vec4f((px - hw) * k, (px + hw) * k, (py - hh) * k, (py + hh) * k);
}

Matrix UberCamera::getProjectionMatrix() const {
    const Vec4f s = getNearPlaneSides();
    const Real32 l = s[0], r = s[1], b = s[2], t = s[3], n = _near, f = _far;
    if (!(r - l > 0.f) || !(t - b > 0.f) || !(f - n > 0.f)) return Matrix();
    if (_projection == Orthographic)
        return Matrix(2.f / (r - l), 0, 0, -(r + l) / (r - l),  //
                      0, 2.f / (t - b), 0, -(t + b) / (t - b),  //
                      0, 0, -2.f / (f - n), -(f + n) / (f - n), //
                      0, 0, 0, 1);
    if (!(n > 0.f)) return Matrix();
    return Matrix(2.f * n / (r - l), 0, (r + l) / (r - l), 0,       //
                  0, 2.f * n / (t - b), (t + b) / (t - b), 0,       //
                  0, 0, -(f + n) / (f - n), -2.f * f * n / (f - n), //
                  0, 0, -1, 0);
}

void UberCamera::getFromAtUp(Pnt3f& from, Pnt3f& at, Vec3f& up) const {
    std::vector<NodePtr> nodes = getParents();
    Matrix m = nodes.empty() ? getMatrix() : nodes.front()->getWorldMatrix();
    from = m.multPnt(Pnt3f(0, 0, 0));
    at = m.multPnt(Pnt3f(0, 0, -_focusDistance));
    up = m.multVec(Vec3f(0, 1, 0));
    up.normalize();
}

} // namespace osg
