#include <kestrel/osg/Switch.h>
#include <kestrel/osg/Transform.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Switch)

void Switch::setChoice(Int32 choice) {
    _choice = choice;
    changed(ChoiceFieldMask);
}

} // namespace osg
