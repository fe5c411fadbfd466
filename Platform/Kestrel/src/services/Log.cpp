#include <cstdarg>
#include <cstdio>
#include <memory>
#include <mutex>

#include <kestrel/ksLog.h>

namespace {
std::mutex& logMutex() {
    static std::mutex m;
    return m;
}
ksLog::Sink& sinkRef() {
    static ksLog::Sink s;
    return s;
}
ksLog::Level& minLevel() {
    static ksLog::Level l = ksLog::Info;
    return l;
}

void writeToStderr(ksLog::Level level, const std::string& text) {
    std::string t = text;
    while (!t.empty() && t.back() == '\n')
        t.pop_back();
    std::fprintf(stderr, "%s: %s\n", ksLog::levelName(level), t.c_str());
}

std::string vformat(const char* format, va_list args) {
    if (!format) return std::string();
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    if (n <= 0) return std::string();
    std::string out(static_cast<std::size_t>(n) + 1, '\0');
    std::vsnprintf(out.data(), out.size(), format, args);
    out.resize(static_cast<std::size_t>(n));
    return out;
}
} // namespace

void ksLog::defaultSink(Level level, const std::string& text) {
    writeToStderr(level, text);
}

const char* ksLog::levelName(Level level) {
    switch (level) {
    case Info:
        return "info";
    case Warning:
        return "warning";
    default:
        return "error";
    }
}

void ksLog::message(Level level, const std::string& text) {
    Sink sink;
    {
        std::lock_guard<std::mutex> lock(logMutex());
        if (level < minLevel()) return;
        sink = sinkRef();
    }
    if (sink)
        sink(level, text);
    else
        writeToStderr(level, text);
}

#define KS_LOG_FN(name, level)                                                                     \
    void ksLog::name(const char* format, ...) {                                                    \
        va_list args;                                                                              \
        va_start(args, format);                                                                    \
        std::string text = vformat(format, args);                                                  \
        va_end(args);                                                                              \
        message(level, text);                                                                      \
    }
KS_LOG_FN(info, Info)
KS_LOG_FN(warning, Warning)
KS_LOG_FN(error, Error)
#undef KS_LOG_FN

ksLog::Sink ksLog::setSink(Sink sink) {
    std::lock_guard<std::mutex> lock(logMutex());
    Sink old = std::move(sinkRef());
    sinkRef() = std::move(sink);
    return old;
}

void ksLog::setMinimumLevel(Level level) {
    std::lock_guard<std::mutex> lock(logMutex());
    minLevel() = level;
}

ksLog::Level ksLog::getMinimumLevel() {
    std::lock_guard<std::mutex> lock(logMutex());
    return minLevel();
}
