#include <memory>
#include <vector>

#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/Group.h>

#ifndef KESTREL_VERSION_MAJOR
#define KESTREL_VERSION_MAJOR 0
#define KESTREL_VERSION_MINOR 1
#define KESTREL_VERSION_PATCH 0
#define KESTREL_VERSION_YEAR "2026"
#endif

ksVersionInfo& ksVersionInfo::the() {
    static ksVersionInfo v;
    return v;
}
std::string ksVersionInfo::getApplicationName() const {
    return "Kestrel";
}
std::string ksVersionInfo::getDisplayVersionYearString() const {
    return KESTREL_VERSION_YEAR;
}
std::string ksVersionInfo::getVersionsString() const {
    return std::to_string(getMajor()) + "." + std::to_string(getMinor()) + "." +
           std::to_string(getPatch());
}
int ksVersionInfo::getMajor() const {
    return KESTREL_VERSION_MAJOR;
}
int ksVersionInfo::getMinor() const {
    return KESTREL_VERSION_MINOR;
}
int ksVersionInfo::getPatch() const {
    return KESTREL_VERSION_PATCH;
}
