#pragma once
// Version information of the host.
#include <string>

class ksVersionInfo {
public:
    static ksVersionInfo& the();
    ksVersionInfo* operator->() { return this; }

    // "Kestrel"
    std::string getApplicationName() const;
    // The release year, e.g. "2026".
    std::string getDisplayVersionYearString() const;
    // "major.minor.patch" of the host library.
    std::string getVersionsString() const;
    int getMajor() const;
    int getMinor() const;
    int getPatch() const;

private:
    ksVersionInfo() = default;
};
