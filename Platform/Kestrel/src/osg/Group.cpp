#include <kestrel/osg/Group.h>
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Group)

} // namespace osg
