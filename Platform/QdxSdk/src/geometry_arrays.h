// Position-addressed arrays of the geometry classes.
#pragma once

#include "qdxsdk/object.h"

namespace qdxsdk::detail {

// Adds an array to `object` and returns the index ArrayAt and ArrayOf take.
// Classes add theirs in their constructors, so indices are fixed per class.
inline int AddArrayIndex(QdxObject* object, const char* name, ArrayKind kind) {
    object->AddArray(name, kind);
    return static_cast<int>(object->Arrays().size()) - 1;
}

} // namespace qdxsdk::detail
