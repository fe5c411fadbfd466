#include <algorithm>

#include <kestrel/osg/JsonAttachment.h>
#include <kestrel/osg/Metadata.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(JsonAttachment)

void JsonAttachment::setMetadata(Json j) {
    _json = std::move(j);
    changed(MetadataFieldMask);
}

} // namespace osg
