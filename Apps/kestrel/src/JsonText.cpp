#include "JsonText.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

using nlohmann::json;

namespace {

std::string scalar(const json& v) {
    return v.dump(-1, ' ', false, json::error_handler_t::replace);
}

struct Frame {
    const json* value;
    json::const_iterator next;
    bool first = true;
};

} // namespace

void JsonText::write(std::ostream& os, const json& value, int indent) {
    // Indentation stops growing after kMaxIndentLevels, so that a very deep
    // tree does not turn into gigabytes of blanks.
    constexpr std::size_t kMaxIndentLevels = 64;
    auto newline = [&](std::size_t depth) {
        os << '\n'
           << std::string(std::min(depth, kMaxIndentLevels) * static_cast<std::size_t>(indent),
                          ' ');
    };
    // Opens a container or writes a scalar; returns true when a frame was
    // pushed.
    std::vector<Frame> stack;
    auto open = [&](const json& v) {
        if (v.is_object() || v.is_array()) {
            if (v.empty()) {
                os << (v.is_object() ? "{}" : "[]");
                return;
            }
            os << (v.is_object() ? '{' : '[');
            stack.push_back(Frame{&v, v.cbegin()});
        } else {
            os << scalar(v);
        }
    };
    open(value);
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == f.value->cend()) {
            const bool object = f.value->is_object();
            stack.pop_back();
            newline(stack.size());
            os << (object ? '}' : ']');
            continue;
        }
        if (!f.first) os << ',';
        f.first = false;
        newline(stack.size());
        const json& child = *f.next;
        if (f.value->is_object()) os << scalar(json(f.next.key())) << ": ";
        ++f.next;
        open(child); // may invalidate f
    }
    os << '\n';
}
