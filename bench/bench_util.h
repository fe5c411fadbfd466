#pragma once
// Clock and peak-memory readings shared by the benchmarks (Linux).
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>

namespace benchutil {

inline double now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Starts a new peak: the resident high-water mark falls to the current size.
inline void resetPeak() {
    std::ofstream f("/proc/self/clear_refs");
    f << "5";
}

// Peak resident memory since the last reset, in MB.
inline double peakMB() {
    std::ifstream f("/proc/self/status");
    std::string line;
    while (std::getline(f, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return 0.0;
}

} // namespace benchutil
