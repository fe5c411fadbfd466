#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/MaterialChunk.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(MaterialChunk)

KS_FIELD_SETTER(MaterialChunk, Ambient, const Color4f&, _ambient, ColorsFieldMask)

KS_FIELD_SETTER(MaterialChunk, Diffuse, const Color4f&, _diffuse, ColorsFieldMask)

KS_FIELD_SETTER(MaterialChunk, Specular, const Color4f&, _specular, ColorsFieldMask)

KS_FIELD_SETTER(MaterialChunk, Emission, const Color4f&, _emission, ColorsFieldMask)

KS_FIELD_SETTER(MaterialChunk, Shininess, Real32, _shininess, ShininessFieldMask)

} // namespace osg
