#pragma once
#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/Vector.h>
#include <vector>

namespace osg {

KS_FC_TYPEDEFS(Material)
KS_FC_TYPEDEFS(StateChunk)
KS_FC_TYPEDEFS(MaterialChunk)
KS_FC_TYPEDEFS(ChunkMaterial)

class StateChunk : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(StateChunk, FieldContainer)
};

} // namespace osg

#include <kestrel/osg/MaterialChunk.h>
