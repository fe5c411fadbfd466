#pragma once
#include <kestrel/osg/Attachment.h>
#include <kestrel/osg/MaterialForward.h>
#include <kestrel/osg/Vector.h>
#include <vector>

namespace osg {

class StateChunk : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(StateChunk, FieldContainer)
};

} // namespace osg

#include <kestrel/osg/MaterialChunk.h>
