#include "Setters.h"

#include <kestrel/osg/ConstraintObject.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(ConstraintObject)

void ConstraintObject::setReferenceNode(const NodePtr& node) {
    _node = node.shared();
    changed(ReferenceNodeFieldMask);
}

KS_FIELD_SETTER(ConstraintObject, Weight, Real32, _weight, WeightFieldMask)

} // namespace osg
