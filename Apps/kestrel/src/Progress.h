#pragma once
// A progress bar on stderr, fed by the scene-file handler's callbacks.
#include <string>

#include <kestrel/osg/Types.h>

class ProgressBar {
public:
    // Shown only when enabled and stderr is a terminal.
    ProgressBar(const std::string& label, bool enabled);
    ~ProgressBar(); // ends the line and removes the callbacks
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool active() const { return _active; }

private:
    void draw(const std::string& phase, osg::UInt32 percent);

    std::string _label;
    bool _active = false;
    bool _drawn = false;
    int _last = -1;
    std::string _lastPhase;
    osg::UInt32 _readId = 0, _writeId = 0;
};
