#include <atomic>

#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/FieldContainer.h>

namespace osg {

bool FieldContainerType::isDerivedFrom(const FieldContainerType& t) const {
    for (const FieldContainerType* p = this; p; p = p->getParent())
        if (p == &t) return true;
    return false;
}

} // namespace osg
