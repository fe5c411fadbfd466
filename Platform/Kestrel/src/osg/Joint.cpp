#include <kestrel/osg/Joint.h>
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Joint)

} // namespace osg
