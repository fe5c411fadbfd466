#include "Progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include <kestrel/osg/SceneFileHandler.h>

namespace {

int terminalColumns() {
    winsize ws{};
    if (::ioctl(STDERR_FILENO, TIOCGWINSZ, &ws) == 0 && ws.ws_col > 0) return ws.ws_col;
    return 80;
}

std::string clock(double seconds) {
    long s = seconds < 0 ? 0 : static_cast<long>(seconds + 0.5);
    char buf[32];
    if (s >= 3600)
        std::snprintf(buf, sizeof buf, "%ld:%02ld:%02ld", s / 3600, s / 60 % 60, s % 60);
    else
        std::snprintf(buf, sizeof buf, "%ld:%02ld", s / 60, s % 60);
    return buf;
}

} // namespace

ProgressBar::ProgressBar(const std::string& label, bool enabled)
    : _label(label), _active(enabled && isatty(STDERR_FILENO) == 1),
      _start(std::chrono::steady_clock::now()) {
    if (!_active) return;
    auto& h = osg::SceneFileHandler::the();
    _readId = h.addReadProgressCallback([this](osg::UInt32 p) { draw("reading", p); });
    _writeId = h.addWriteProgressCallback([this](osg::UInt32 p) { draw("writing", p); });
}

ProgressBar::~ProgressBar() {
    if (!_active) return;
    auto& h = osg::SceneFileHandler::the();
    h.removeProgressCallback(_readId);
    h.removeProgressCallback(_writeId);
    clear();
}

void ProgressBar::clear() {
    if (!_drawn) return;
    std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
    _drawn = false;
    _last = -1;
}

std::string ProgressBar::format(const std::string& phase, const std::string& label,
                                unsigned percent, double elapsed, int columns) {
    percent = std::min(percent, 100u);
    std::string times(1, ' ');
    times.append(clock(elapsed));
    if (percent > 0 && percent < 100) {
        times.append(" ~");
        times.append(clock(elapsed * (100.0 - percent) / percent));
        times.append(" left");
    }
    char pct[8];
    std::snprintf(pct, sizeof pct, " %3u%%", percent);
    const int room = std::max(columns - 1, 10);
    std::string head = phase + " ";
    // Bar first gives way, then the label (shortened from the left).
    int fixed = static_cast<int>(head.size() + 2 + std::string(pct).size() + times.size());
    int barWidth = std::clamp(room - fixed - static_cast<int>(label.size()) - 1, 0, 30);
    std::string shown = label;
    int labelRoom = room - fixed - barWidth - 1;
    if (labelRoom < static_cast<int>(shown.size())) {
        if (labelRoom <= 3) {
            shown.clear();
        } else {
            std::string tail = shown.substr(shown.size() - static_cast<std::size_t>(labelRoom - 3));
            shown.assign(3, '.');
            shown.append(tail);
        }
    }
    int filled = static_cast<int>(percent) * barWidth / 100;
    std::string line = head;
    line.append(shown);
    if (!shown.empty()) line.push_back(' ');
    line.push_back('[');
    line.append(static_cast<std::size_t>(filled), '#');
    line.append(static_cast<std::size_t>(barWidth - filled), ' ');
    line.push_back(']');
    line.append(pct);
    line.append(times);
    if (static_cast<int>(line.size()) > room) line.resize(static_cast<std::size_t>(room));
    return line;
}

void ProgressBar::draw(const std::string& phase, osg::UInt32 percent) {
    if (static_cast<int>(percent) == _last && phase == _lastPhase) return;
    _last = static_cast<int>(percent);
    _lastPhase = phase;
    double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - _start).count();
    std::string line = format(phase, _label, percent, elapsed, terminalColumns());
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
    _drawn = true;
}
