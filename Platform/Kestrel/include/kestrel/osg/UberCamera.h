#pragma once
// The host's camera core. A camera is placed by its own transform values (it
// is a Transform3D); it looks along its local -Z axis with +Y up.
// Sensor size and principal point offset are in millimetres, focal length in
// millimetres, roll and field of view in degrees, clipping distances and
// focus distance in scene units.
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FC_TYPEDEFS(UberCamera)

class UberCamera : public Transform3D {
    KS_FIELD_CONTAINER_DECL(UberCamera, Transform3D)
public:
    static constexpr BitVector CameraFieldMask = 1ull << 20;
    enum ProjectionMode : UInt32 { Perspective = 0, Orthographic = 1 };
    // Which sensor side the field of view (getFov/setFov) spans.
    enum FovMode : UInt32 { VerticalFov = 0, HorizontalFov = 1 };

    UInt32 getProjectionMode() const { return _projection; }
    void setProjectionMode(UInt32 mode);
    Real32 getNear() const { return _near; }
    void setNear(Real32 v);
    Real32 getFar() const { return _far; }
    void setFar(Real32 v);
    UInt32 getFovMode() const { return _fovMode; }
    void setFovMode(UInt32 m);
    const Vec2f& getSensorSize() const { return _sensorSize; }
    void setSensorSize(const Vec2f& mm);
    Real32 getFocalLength() const { return _focalLength; }
    void setFocalLength(Real32 mm);
    // Field of view from focal length and the sensor side chosen by the mode.
    Real32 getFov() const;
    // Sets the focal length that gives this field of view.
    void setFov(Real32 degrees);
    bool getMotionBlur() const { return _motionBlur; }
    void setMotionBlur(bool on);
    bool getDepthOfField() const { return _depthOfField; }
    void setDepthOfField(bool on);
    Real32 getFocusDistance() const { return _focusDistance; }
    void setFocusDistance(Real32 d);
    Real32 getFStop() const { return _fStop; }
    void setFStop(Real32 f);
    const Vec2f& getPrincipalPointOffset() const { return _principalPointOffset; }
    void setPrincipalPointOffset(const Vec2f& mm);
    Real32 getRoll() const { return _roll; }
    void setRoll(Real32 deg);
    // Orthographic frustum (left, right, bottom, top) in scene units.
    const Vec4f& getFrustumSides() const { return _frustumSides; }
    void setFrustumSides(const Vec4f& s);
    Real32 getVisualizationScale() const { return _visScale; }
    void setVisualizationScale(Real32 s);

    // Sensor width over height (1 for a degenerate sensor).
    Real32 getAspect() const;
    // Perspective angles of view across the sensor width and height, degrees
    // (0 without a positive focal length).
    Real32 getHorizontalFov() const;
    Real32 getVerticalFov() const;
    // The view volume's sides (left, right, bottom, top) on the near plane,
    // in the camera's local units: for a perspective camera the sensor seen
    // through the lens, shifted by the principal point offset; for an
    // orthographic camera the frustum sides.
    Vec4f getNearPlaneSides() const;
    // The matrix from camera space (looking along -Z) to clip space with
    // depth from -1 (near) to 1 (far); identity when near and far or the
    // sides are degenerate.
    Matrix getProjectionMatrix() const;

    // Eye point, point of interest (focus distance along -Z) and up vector in
    // world space, from the first node that uses this core (local values
    // when no node does). The roll is a viewing value of its own and does
    // not turn the up vector.
    void getFromAtUp(Pnt3f& from, Pnt3f& at, Vec3f& up) const;

private:
    UInt32 _projection = Perspective;
    Real32 _near = 1.f, _far = 100000.f;
    UInt32 _fovMode = HorizontalFov;
    Vec2f _sensorSize{36.f, 24.f};
    Real32 _focalLength = 50.f;
    bool _motionBlur = false, _depthOfField = false;
    Real32 _focusDistance = 1000.f, _fStop = 8.f;
    Vec2f _principalPointOffset;
    Real32 _roll = 0.f;
    Vec4f _frustumSides{-1.f, 1.f, -1.f, 1.f};
    Real32 _visScale = 1.f;
};

} // namespace osg
