#pragma once
// The host log: info, warning and error messages with printf-style formats.
//
// Messages go to the installed sink; the default sink prints
// "<level>: <text>" to stderr (one line, a trailing line feed of the text is
// not doubled). setSink() replaces the sink and returns the previous one; a
// ksLogCapture collects messages for its lifetime (for tests and programs
// that show the log themselves). Messages below the minimum level are
// dropped. Thread-safe.
#include <functional>
#include <string>
#include <vector>

class ksLog {
public:
    enum Level { Info = 0, Warning = 1, Error = 2 };
    using Sink = std::function<void(Level, const std::string&)>;

    static void info(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void warning(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void error(const char* format, ...) __attribute__((format(printf, 1, 2)));
    static void message(Level level, const std::string& text);

    static Sink setSink(Sink sink); // null restores the stderr sink
    static void setMinimumLevel(Level level);
    static Level getMinimumLevel();
    static const char* levelName(Level level);
    // Where messages go without a sink of their own: standard error.
    static void defaultSink(Level level, const std::string& text);
};

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/ksLogCapture.h>
