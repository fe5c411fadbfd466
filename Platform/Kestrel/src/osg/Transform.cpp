#include <kestrel/osg/Transform.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Transform)

void Transform::setMatrix(const Matrix& m) {
    _matrix = m;
    changed(MatrixFieldMask);
}

} // namespace osg
