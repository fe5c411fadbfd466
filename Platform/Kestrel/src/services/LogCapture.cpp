#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>

#include <kestrel/ksLog.h>
#include <kestrel/ksLogCapture.h>

struct ksLogCapture::State {
    mutable std::mutex m;
    std::vector<Entry> entries;
};

ksLogCapture::ksLogCapture(bool forward) : _state(new State) {
    State* st = _state;
    auto prev = std::make_shared<ksLog::Sink>();
    _previous = ksLog::setSink([st, prev, forward](ksLog::Level l, const std::string& t) {
        {
            std::lock_guard<std::mutex> lock(st->m);
            st->entries.push_back(Entry{l, t});
        }
        if (forward) {
            if (*prev)
                (*prev)(l, t);
            else
                ksLog::defaultSink(l, t);
        }
    });
    *prev = _previous;
}

ksLogCapture::~ksLogCapture() {
    ksLog::setSink(std::move(_previous));
    delete _state;
}

std::vector<ksLogCapture::Entry> ksLogCapture::entries() const {
    std::lock_guard<std::mutex> lock(_state->m);
    return _state->entries;
}

std::size_t ksLogCapture::count(ksLog::Level level, const std::string& needle) const {
    std::lock_guard<std::mutex> lock(_state->m);
    std::size_t n = 0;
    for (const auto& e : _state->entries)
        if (e.level == level && e.text.find(needle) != std::string::npos) ++n;
    return n;
}
