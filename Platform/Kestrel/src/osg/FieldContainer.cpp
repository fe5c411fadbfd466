#include <atomic>

#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/FieldContainer.h>

namespace osg {

namespace {
std::atomic<UInt32> nextId{1};
}

bool FieldContainerType::isDerivedFrom(const FieldContainerType& t) const {
    for (const FieldContainerType* p = this; p; p = p->getParent())
        if (p == &t) return true;
    return false;
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

ChangeList& ChangeList::current() {
    thread_local ChangeList list;
    return list;
}

void ChangeList::record(const FieldContainer& fc, BitVector mask) {
    if (!_enabled) return;
    // Consecutive writes to one container fold into one entry.
    if (!_entries.empty() && _entries.back().containerId == fc.getId()) {
        _entries.back().mask |= mask;
        return;
    }
    _entries.push_back(Entry{fc.getId(), fc.getTypeName(), mask});
}

BitVector ChangeList::getMask(UInt32 containerId) const {
    BitVector m = 0;
    for (const auto& e : _entries)
        if (e.containerId == containerId) m |= e.mask;
    return m;
}

} // namespace osg
