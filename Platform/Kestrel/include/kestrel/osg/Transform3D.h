#pragma once
#include <kestrel/osg/Group.h>
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FC_TYPEDEFS(Transform)
KS_FC_TYPEDEFS(Transform3D)
KS_FC_TYPEDEFS(Joint)

class Transform3D : public Transform {
    KS_FIELD_CONTAINER_DECL(Transform3D, Transform)
public:
    static constexpr BitVector TranslationFieldMask = 1ull << 9;
    static constexpr BitVector RotationFieldMask = 1ull << 10;
    static constexpr BitVector ScaleFieldMask = 1ull << 11;
    static constexpr BitVector RotatePivotFieldMask = 1ull << 12;
    static constexpr BitVector ScalePivotFieldMask = 1ull << 13;
    static constexpr BitVector RotatePivotTranslationFieldMask = 1ull << 14;
    static constexpr BitVector ScalePivotTranslationFieldMask = 1ull << 15;
    static constexpr BitVector RotationOrientationFieldMask = 1ull << 16;

    Matrix getMatrix() const override;
    void setMatrix(const Matrix& m) override;

    const Vec3f& getTranslation() const { return _translation; }
    const Vec3f& getEulerRotation() const { return _rotation; }
    const Vec3f& getScale() const { return _scale; }
    const Vec3f& getRotatePivot() const { return _rotatePivot; }
    const Vec3f& getScalePivot() const { return _scalePivot; }
    const Vec3f& getRotatePivotTranslation() const { return _rotatePivotTranslation; }
    const Vec3f& getScalePivotTranslation() const { return _scalePivotTranslation; }
    const Vec3f& getEulerRotationOrientation() const { return _rotationOrientation; }
    // The whole rotation Ro * R as a quaternion.
    Quaternion getRotation() const;
    Quaternion getRotationOrientation() const;

    void setTranslation(const Vec3f& v);
    void setEulerRotation(const Vec3f& degrees);
    void setScale(const Vec3f& v);
    void setRotatePivot(const Vec3f& v);
    void setScalePivot(const Vec3f& v);
    void setRotatePivotTranslation(const Vec3f& v);
    void setScalePivotTranslation(const Vec3f& v);
    void setEulerRotationOrientation(const Vec3f& degrees);
    // Sets R from a quaternion (orientation unchanged).
    void setRotation(const Quaternion& q);

    // Euler angles (degrees) of q for a rotation order numbered as in
    // RotationOrder (0 is XYZ, X applied first; unknown numbers mean XYZ).
    // The scene graph itself stores XYZ angles only.
    static Vec3f convertQuatToEuler(const Quaternion& q, UInt32 rotationOrder = 0);
    // The rotation of Euler angles (degrees) in a numbered rotation order.
    static Quaternion convertEulerToQuat(const Vec3f& degrees, UInt32 rotationOrder = 0);

private:
    Vec3f _translation;
    Vec3f _rotation;
    Vec3f _scale{1.f, 1.f, 1.f};
    Vec3f _rotatePivot;
    Vec3f _scalePivot;
    Vec3f _rotatePivotTranslation;
    Vec3f _scalePivotTranslation;
    Vec3f _rotationOrientation;
};

} // namespace osg

#include <kestrel/osg/Joint.h>
