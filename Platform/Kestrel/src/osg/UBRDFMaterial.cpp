#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/UBRDFMaterial.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(UBRDFMaterial)

} // namespace osg
