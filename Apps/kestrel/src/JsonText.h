#pragma once
// Writes JSON text without recursion: nesting depth is bounded only by
// memory, so a scene with a very deep hierarchy cannot overflow the stack.
#include <iosfwd>

#include <nlohmann/json.hpp>

class JsonText {
public:
    // Pretty-printed with `indent` spaces per level (up to 64 levels deep);
    // invalid UTF-8 in strings is replaced.
    static void write(std::ostream& os, const nlohmann::json& value, int indent = 2);
};
