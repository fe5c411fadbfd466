#pragma once
// Internal: defines a setter that stores a value and records its field mask.
#define KS_FIELD_SETTER(Class, Name, Type, member, Mask)                                           \
    void Class::set##Name(Type v) {                                                                \
        member = v;                                                                                \
        changed(Mask);                                                                             \
    }
