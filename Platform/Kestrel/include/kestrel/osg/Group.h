#pragma once
// Cores that only organise children: Group and Switch.
#include <kestrel/osg/Node.h>

namespace osg {

KS_FC_TYPEDEFS(Group)
KS_FC_TYPEDEFS(Switch)

class Group : public NodeCore {
    KS_FIELD_CONTAINER_DECL(Group, NodeCore)
};

} // namespace osg

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/osg/Switch.h>
