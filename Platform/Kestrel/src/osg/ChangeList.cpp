#include <atomic>

#include <kestrel/osg/ChangeList.h>
#include <kestrel/osg/FieldContainer.h>

namespace osg {

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
