#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/UXRiteMeasuredMaterial.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(UXRiteMeasuredMaterial)

} // namespace osg
