#pragma once
// A one-line progress bar on stderr, fed by the scene-file handler's
// callbacks: phase, label, bar, percent, elapsed and estimated remaining
// time, fitted to the terminal's width. Drawn only when stderr is a
// terminal; the line is cleared when the bar ends, before anything else is
// printed.
#include <chrono>
#include <string>

#include <kestrel/osg/Types.h>

class ProgressBar {
public:
    ProgressBar(const std::string& label, bool enabled);
    ~ProgressBar(); // clears the line and removes the callbacks
    ProgressBar(const ProgressBar&) = delete;
    ProgressBar& operator=(const ProgressBar&) = delete;

    bool active() const { return _active; }
    // Clears the bar's line now (it is redrawn on the next update).
    void clear();

    // The text of one bar line for a terminal of `columns` columns; never
    // longer than columns - 1 characters.
    static std::string format(const std::string& phase, const std::string& label, unsigned percent,
                              double elapsedSeconds, int columns);

private:
    void draw(const std::string& phase, osg::UInt32 percent);

    std::string _label;
    bool _active = false;
    bool _drawn = false;
    int _last = -1;
    std::string _lastPhase;
    osg::UInt32 _readId = 0, _writeId = 0;
    std::chrono::steady_clock::time_point _start;
};
