#pragma once
// The run-time type of a field container: its class name and parent type.

namespace osg {

class FieldContainerType {
public:
    FieldContainerType(const char* name, const FieldContainerType* parent)
        : _name(name), _parent(parent) {}
    const char* getName() const { return _name; }
    const FieldContainerType* getParent() const { return _parent; }
    // True when this type is t or derives from it.
    bool isDerivedFrom(const FieldContainerType& t) const;
    bool operator==(const FieldContainerType& o) const { return this == &o; }

private:
    const char* _name;
    const FieldContainerType* _parent;
};

} // namespace osg
