#include <algorithm>

#include <kestrel/osg/Attachment.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Attachment)

const FieldContainerType& Attachment::getGroupType() const {
    return getType();
}

AttachmentPtr Attachment::clone() const {
    return AttachmentPtr::dcast(shallowCopy());
}

} // namespace osg
