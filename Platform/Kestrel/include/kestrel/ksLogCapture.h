#pragma once
#include <functional>
#include <string>
#include <vector>

#include <kestrel/ksLog.h>

// Collects every message logged while it exists (messages still reach the
// previous sink when forward is true).
class ksLogCapture {
public:
    struct Entry {
        ksLog::Level level;
        std::string text;
    };
    explicit ksLogCapture(bool forward = false);
    ~ksLogCapture();
    ksLogCapture(const ksLogCapture&) = delete;
    ksLogCapture& operator=(const ksLogCapture&) = delete;

    std::vector<Entry> entries() const;
    // Number of messages of a level whose text contains needle.
    std::size_t count(ksLog::Level level, const std::string& needle = "") const;

private:
    struct State;
    State* _state;
    ksLog::Sink _previous;
};
