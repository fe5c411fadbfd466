#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/StateChunk.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(StateChunk)

} // namespace osg
