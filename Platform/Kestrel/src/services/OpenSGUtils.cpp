#include <mutex>
#include <vector>

#include <kestrel/ksOpenSGUtils.h>

namespace {
struct Registered {
    int id;
    std::string name;
    ksOpenSGUtils::Listener fn;
};
std::vector<Registered>& listeners() {
    static std::vector<Registered> l;
    return l;
}
int nextListenerId = 1;
} // namespace

int ksOpenSGUtils::call(const std::string& name, ksMessage& message, int flags) {
    // A copy, so that listeners may add or remove listeners.
    std::vector<Registered> now = listeners();
    int n = 0;
    for (const auto& l : now)
        if (l.name.empty() || l.name == name) {
            l.fn(name, message, flags);
            ++n;
        }
    return n;
}

int ksOpenSGUtils::addListener(const std::string& name, Listener listener) {
    listeners().push_back(Registered{nextListenerId, name, std::move(listener)});
    return nextListenerId++;
}

void ksOpenSGUtils::removeListener(int id) {
    auto& l = listeners();
    for (auto it = l.begin(); it != l.end(); ++it)
        if (it->id == id) {
            l.erase(it);
            return;
        }
}
