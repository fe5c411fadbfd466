#include <cmath>

#include "Setters.h"
#include <kestrel/osg/UberCamera.h>
#include <kestrel/osg/UberLight.h>

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
}

Real32 UberCamera::getFov() const {
    double side = _fovMode == 1 ? _sensorSize[0] : _sensorSize[1];
    if (_focalLength <= 0.f) return 0.f;
    return static_cast<Real32>(2.0 * std::atan(side / (2.0 * _focalLength)) * 180.0 / kPi);
}

void UberCamera::setFov(Real32 degrees) {
    double side = _fovMode == 1 ? _sensorSize[0] : _sensorSize[1];
    double t = std::tan(double(degrees) * kPi / 360.0);
    if (t > 0) setFocalLength(static_cast<Real32>(side / (2.0 * t)));
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
