#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/Constraint.h>
#include <kestrel/osg/Skin.h>
#include <kestrel/osg/SkinAttachment.h>
#include <kestrel/osg/TimeShapeCache.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(SkinAttachment)

void SkinAttachment::addJoint(const DeformerClusterPtr& cluster) {
    if (!cluster) return;
    _joints.push_back(cluster);
    changed(JointsFieldMask);
}

AttachmentPtr SkinAttachment::clone() const {
    auto copy = SkinAttachmentPtr::dcast(shallowCopy());
    for (auto& cluster : copy->_joints)
        cluster = DeformerClusterPtr::dcast(cluster->shallowCopy());
    return copy;
}

} // namespace osg
