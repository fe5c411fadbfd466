#include <kestrel/osg/Transform.h>
#include <kestrel/osg/Transform3D.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Transform3D)

Quaternion Transform3D::getRotationOrientation() const {
    return Quaternion::fromEulerXYZDeg(_rotationOrientation);
}

Quaternion Transform3D::getRotation() const {
    Quaternion q = getRotationOrientation() * Quaternion::fromEulerXYZDeg(_rotation);
    q.normalize();
    return q;
}

Matrix Transform3D::getMatrix() const {
    Matrix m = Matrix::translation(_translation);
    m.mult(Matrix::translation(_rotatePivotTranslation));
    m.mult(Matrix::translation(_rotatePivot));
    m.mult(getRotationOrientation().getMatrix());
    m.mult(Matrix::rotationEulerDeg(_rotation));
    m.mult(Matrix::translation(-_rotatePivot));
    m.mult(Matrix::translation(_scalePivotTranslation));
    m.mult(Matrix::translation(_scalePivot));
    m.mult(Matrix::scale(_scale));
    m.mult(Matrix::translation(-_scalePivot));
    return m;
}

void Transform3D::setMatrix(const Matrix& m) {
    Vec3f t, s;
    Quaternion r, so;
    m.getTransform(t, r, s, so);
    _translation = t;
    _rotation = convertQuatToEuler(r, 0);
    _scale = s;
    _rotatePivot = _scalePivot = _rotatePivotTranslation = _scalePivotTranslation = Vec3f();
    _rotationOrientation = Vec3f();
    _matrix = m;
    changed(MatrixFieldMask | TranslationFieldMask | RotationFieldMask | ScaleFieldMask |
            RotatePivotFieldMask | ScalePivotFieldMask | RotatePivotTranslationFieldMask |
            ScalePivotTranslationFieldMask | RotationOrientationFieldMask);
}

#define KS_T3D_SETTER(Name, member, Mask)                                                          \
    void Transform3D::set##Name(const Vec3f& v) {                                                  \
        member = v;                                                                                \
        changed(Mask | MatrixFieldMask);                                                           \
    }
KS_T3D_SETTER(Translation, _translation, TranslationFieldMask)
KS_T3D_SETTER(EulerRotation, _rotation, RotationFieldMask)
KS_T3D_SETTER(Scale, _scale, ScaleFieldMask)
KS_T3D_SETTER(RotatePivot, _rotatePivot, RotatePivotFieldMask)
KS_T3D_SETTER(ScalePivot, _scalePivot, ScalePivotFieldMask)
KS_T3D_SETTER(RotatePivotTranslation, _rotatePivotTranslation, RotatePivotTranslationFieldMask)
KS_T3D_SETTER(ScalePivotTranslation, _scalePivotTranslation, ScalePivotTranslationFieldMask)
KS_T3D_SETTER(EulerRotationOrientation, _rotationOrientation, RotationOrientationFieldMask)
#undef KS_T3D_SETTER

void Transform3D::setRotation(const Quaternion& q) {
    setEulerRotation(convertQuatToEuler(q, 0));
}

Vec3f Transform3D::convertQuatToEuler(const Quaternion& q, UInt32 rotationOrder) {
    return q.getEulerDeg(rotationOrderFromIndex(rotationOrder));
}

Quaternion Transform3D::convertEulerToQuat(const Vec3f& degrees, UInt32 rotationOrder) {
    return Quaternion::fromEulerDeg(degrees, rotationOrderFromIndex(rotationOrder));
}

} // namespace osg
