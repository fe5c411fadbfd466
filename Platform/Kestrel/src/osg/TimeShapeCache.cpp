#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(TimeShapeCache)

void TimeShapeCache::addShape(const TimeShapeDataPtr& shape) {
    if (!shape) return;
    auto it =
        std::upper_bound(_shapes.begin(), _shapes.end(), shape->getTime(),
                         [](Real32 t, const TimeShapeDataPtr& s) { return t < s->getTime(); });
    _shapes.insert(it, shape);
    changed(ShapesFieldMask);
}

AttachmentPtr TimeShapeCache::clone() const {
    auto copy = TimeShapeCachePtr::dcast(shallowCopy());
    for (auto& shape : copy->_shapes)
        shape = TimeShapeDataPtr::dcast(shape->shallowCopy());
    return copy;
}

TimeShapeDataPtr TimeShapeCache::getShapeAt(Real32 seconds) const {
    TimeShapeDataPtr found;
    for (const auto& s : _shapes) {
        if (s->getTime() > seconds) break;
        found = s;
    }
    if (!found && !_shapes.empty()) found = _shapes.front();
    return found;
}

} // namespace osg
