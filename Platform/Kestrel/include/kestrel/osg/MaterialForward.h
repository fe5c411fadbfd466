#pragma once
// Handle types of the material classes, declared once for every header of
// the family (they refer to each other).
#include <kestrel/osg/FieldContainer.h>

namespace osg {

KS_FC_TYPEDEFS(Material)
KS_FC_TYPEDEFS(StateChunk)
KS_FC_TYPEDEFS(MaterialChunk)
KS_FC_TYPEDEFS(ChunkMaterial)

} // namespace osg
