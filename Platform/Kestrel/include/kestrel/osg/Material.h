#pragma once
// Materials: the base class, state chunks and chunk materials.
//
// A Material is an attachment container (it carries metadata). ChunkMaterial
// is the classic state material built from chunks; MaterialChunk holds the
// fixed-function colours. The uber material family lives in UberMaterial.h.
#include <vector>

#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/MaterialForward.h>
#include <kestrel/osg/Vector.h>

namespace osg {

class Material : public AttachmentContainer {
    KS_FIELD_CONTAINER_DECL(Material, AttachmentContainer)
public:
    static constexpr BitVector StateFieldMask = 1ull << 2;
    // Ends an edit block: derived state (shader set-up) is rebuilt from the
    // fields. Setters keep the fields consistent by themselves; this records
    // the state change so that viewers refresh.
    virtual void rebuildState();
    // True when the material lets light through (see-through or alpha).
    virtual bool isTransparent() const { return false; }
};

} // namespace osg

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/osg/StateChunk.h>
