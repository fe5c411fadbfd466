#pragma once
#include <kestrel/osg/Group.h>
#include <kestrel/osg/Transform3D.h>

namespace osg {

KS_FC_TYPEDEFS(Transform)
KS_FC_TYPEDEFS(Transform3D)
KS_FC_TYPEDEFS(Joint)

class Joint : public Transform3D {
    KS_FIELD_CONTAINER_DECL(Joint, Transform3D)
};

} // namespace osg
