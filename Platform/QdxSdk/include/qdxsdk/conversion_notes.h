// What a read from, or a write to, a foreign format could not carry. The
// reader of such a format leaves its notes on the scene it fills; the writer
// leaves its notes on the scene it writes (replacing earlier ones). Qdx
// files carry no notes of their own, so a Qdx read leaves none.
#pragma once

#include <string>
#include <vector>

namespace qdxsdk {

class QdxScene;

// Name of the scene's user-defined string property holding the notes, one
// per line.
constexpr const char* kQdxConversionNotesProperty = "ConversionNotes";

// The notes, one per entry; empty when everything was carried.
std::vector<std::string> QdxGetConversionNotes(const QdxScene* scene);

} // namespace qdxsdk
