#pragma once
// Captures what plug-ins print while they run: their standard output (a
// file descriptor redirected into an unnamed temporary file) and the host
// log. Nothing reaches the terminal until the caller decides to show it.
#include <memory>
#include <string>
#include <vector>

#include <kestrel/ksLog.h>

class OutputCapture {
public:
    OutputCapture();
    ~OutputCapture(); // restores standard output
    OutputCapture(const OutputCapture&) = delete;
    OutputCapture& operator=(const OutputCapture&) = delete;

    // Restores standard output and returns everything captured, one entry
    // per line: plain output as it was printed, log messages prefixed with
    // their level ("warning: ..."). Safe to call more than once.
    std::vector<std::string> finish();

private:
    void restore();

    int _savedStdout = -1;
    int _file = -1;
    std::unique_ptr<ksLogCapture> _log;
    std::vector<std::string> _lines;
    bool _finished = false;
};
