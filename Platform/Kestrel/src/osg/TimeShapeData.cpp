#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/TimeShapeCache.h>
#include <kestrel/osg/TimeShapeData.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(TimeShapeData)

void TimeShapeData::setTime(Real32 seconds) {
    _time = seconds;
    changed(TimeFieldMask);
}

} // namespace osg
