#pragma once
// A skeleton joint. Its transform values (it is a Transform3D) place it
// relative to its parent joint; the rotation orientation holds the joint's
// orientation. Skins bind to joint nodes through their deformer clusters.
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
