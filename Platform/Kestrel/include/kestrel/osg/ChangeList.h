#pragma once
// The change list: a record of which fields of which containers were written.
//
// Each thread has a current change list. Every setter of a container appends
// (container id, type name, field mask) to it; consumers (redraw, undo, tests)
// read getEntries() and clear() the list when they have handled it.
#include <string>
#include <vector>

#include <kestrel/osg/Types.h>

namespace osg {

class FieldContainer;

class ChangeList {
public:
    struct Entry {
        UInt32 containerId;
        const char* typeName;
        BitVector mask;
    };

    // The calling thread's current list.
    static ChangeList& current();

    void record(const FieldContainer& fc, BitVector mask);
    const std::vector<Entry>& getEntries() const { return _entries; }
    // The union of all masks recorded for a container id (0 when none).
    BitVector getMask(UInt32 containerId) const;
    void clear() { _entries.clear(); }
    // While disabled nothing is recorded (default: enabled).
    void setEnabled(bool enabled) { _enabled = enabled; }
    bool isEnabled() const { return _enabled; }

private:
    std::vector<Entry> _entries;
    bool _enabled = true;
};

} // namespace osg
