#pragma once
// Attachments and containers that carry them.
//
// An attachment is a container that hangs on a node, core or material under a
// (type group, binding) key: metadata, animation, skin, vertex caches. A
// container holds at most one attachment per key; adding a second one with
// the same key replaces the first.
#include <vector>

#include <kestrel/osg/FieldContainer.h>

namespace osg {

KS_FC_TYPEDEFS(Attachment)
KS_FC_TYPEDEFS(AttachmentContainer)

class Attachment : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(Attachment, FieldContainer)
public:
    // The key type under which the attachment is stored: its own type.
    // findAttachment() also finds attachments of derived types.
    const FieldContainerType& getGroupType() const;
    // A copy that shares nothing editable with this attachment: curves,
    // metadata sets, skin clusters and cached shapes are copied too. The
    // default is shallowCopy(); classes holding handles override it.
    virtual AttachmentPtr clone() const;
};

} // namespace osg

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/osg/AttachmentContainer.h>
