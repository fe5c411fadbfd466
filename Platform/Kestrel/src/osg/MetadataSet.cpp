#include <algorithm>

#include <kestrel/osg/Metadata.h>
#include <kestrel/osg/MetadataSet.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(MetadataSet)

void MetadataSet::setLocked(bool locked) {
    _locked = locked;
    changed(LockedFieldMask);
}

} // namespace osg
