#include "Setters.h"
#include <kestrel/osg/Drawable.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Drawable)
KS_FIELD_SETTER(Drawable, Material, const MaterialPtr&, _material, MaterialFieldMask)
KS_FIELD_SETTER(Drawable, Transform, const TransformPtr&, _transform, TransformFieldMask)

Matrix Drawable::getLocalMatrix() const {
    return _transform ? _transform->getMatrix() : Matrix();
}

} // namespace osg
