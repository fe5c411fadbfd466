#include <atomic>

#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/FieldContainer.h>

namespace osg {

namespace {
std::atomic<UInt32> nextId{1};
}

FieldContainer::FieldContainer() : _id(nextId++) {}
FieldContainer::FieldContainer(const FieldContainer& o)
    : std::enable_shared_from_this<FieldContainer>(), _id(nextId++), _name(o._name) {}
FieldContainer::~FieldContainer() = default;

const FieldContainerType& FieldContainer::getClassType() {
    static const FieldContainerType t("FieldContainer", nullptr);
    return t;
}
const FieldContainerType& FieldContainer::getType() const {
    return getClassType();
}
FieldContainerPtr FieldContainer::shallowCopy() const {
    return FieldContainerPtr();
}

void FieldContainer::setName(const std::string& name) {
    _name = name;
    changed(NameFieldMask);
}

void FieldContainer::changed(BitVector mask) const {
    ChangeList::current().record(*this, mask);
}

} // namespace osg
