#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Material)

void Material::rebuildState() {
    changed(StateFieldMask);
}

} // namespace osg
