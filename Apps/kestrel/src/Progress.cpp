#include "Progress.h"

#include <unistd.h>

#include <cstdio>

#include <kestrel/osg/SceneFileHandler.h>

ProgressBar::ProgressBar(const std::string& label, bool enabled)
    : _label(label), _active(enabled && isatty(STDERR_FILENO) == 1) {
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
    if (_drawn) std::fputs("\r\033[K", stderr);
    std::fflush(stderr);
}

void ProgressBar::draw(const std::string& phase, osg::UInt32 percent) {
    if (static_cast<int>(percent) == _last && phase == _lastPhase) return;
    _last = static_cast<int>(percent);
    _lastPhase = phase;
    constexpr int width = 30;
    int filled = static_cast<int>(percent) * width / 100;
    std::string bar(static_cast<std::size_t>(filled), '#');
    bar.append(static_cast<std::size_t>(width - filled), ' ');
    std::fprintf(stderr, "\r%s %s [%s] %3u%%", phase.c_str(), _label.c_str(), bar.c_str(), percent);
    std::fflush(stderr);
    _drawn = true;
}
