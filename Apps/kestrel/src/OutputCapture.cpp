#include "OutputCapture.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>

OutputCapture::OutputCapture() {
    std::cout.flush();
    std::fflush(stdout);
    char name[] = "/tmp/kestrel-output-XXXXXX";
    _file = ::mkstemp(name);
    if (_file >= 0) {
        ::unlink(name);
        _savedStdout = ::dup(STDOUT_FILENO);
        if (_savedStdout < 0 || ::dup2(_file, STDOUT_FILENO) < 0) {
            if (_savedStdout >= 0) ::close(_savedStdout);
            _savedStdout = -1;
        }
    }
    _log = std::make_unique<ksLogCapture>(false);
}

OutputCapture::~OutputCapture() {
    finish();
    if (_file >= 0) ::close(_file);
}

void OutputCapture::restore() {
    std::cout.flush();
    std::fflush(stdout);
    if (_savedStdout >= 0) {
        ::dup2(_savedStdout, STDOUT_FILENO);
        ::close(_savedStdout);
        _savedStdout = -1;
    }
}

std::vector<std::string> OutputCapture::finish() {
    if (_finished) return _lines;
    _finished = true;
    restore();
    if (_file >= 0 && ::lseek(_file, 0, SEEK_SET) == 0) {
        std::string text;
        char buf[65536];
        ssize_t n;
        while ((n = ::read(_file, buf, sizeof buf)) > 0)
            text.append(buf, static_cast<std::size_t>(n));
        std::size_t start = 0;
        while (start < text.size()) {
            std::size_t end = text.find('\n', start);
            if (end == std::string::npos) end = text.size();
            if (end > start) _lines.push_back(text.substr(start, end - start));
            start = end + 1;
        }
    }
    if (_log) {
        for (const auto& e : _log->entries()) {
            std::string t = e.text;
            while (!t.empty() && t.back() == '\n')
                t.pop_back();
            _lines.push_back(std::string(ksLog::levelName(e.level)) + ": " + t);
        }
        _log.reset();
    }
    return _lines;
}
