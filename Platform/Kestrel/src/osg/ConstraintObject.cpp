#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/ConstraintObject.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(ConstraintObject)

void ConstraintObject::setReferenceNode(const NodePtr& node) {
    _node = node;
    changed(1ull << 1);
}
void ConstraintObject::setWeight(Real32 w) {
    _weight = w;
    changed(1ull << 2);
}

} // namespace osg
