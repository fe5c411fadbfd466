#include <memory>
#include <vector>

#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/Group.h>

namespace {
std::vector<std::unique_ptr<ksSceneData>>& scenes() {
    static std::vector<std::unique_ptr<ksSceneData>> s = [] {
        std::vector<std::unique_ptr<ksSceneData>> v;
        v.push_back(std::make_unique<ksSceneData>());
        return v;
    }();
    return s;
}

struct UnitInfo {
    const char* name;
    double mm;
};
constexpr UnitInfo kUnits[] = {{"", 1.0},     {"mm", 1.0},      {"cm", 10.0}, {"dm", 100.0},
                               {"m", 1000.0}, {"km", 1.0e6},    {"in", 25.4}, {"ft", 304.8},
                               {"yd", 914.4}, {"mi", 1609344.0}};
} // namespace

ksSceneData::ksSceneData() {
    _root = osg::Node::create();
    _root->setCore(osg::Group::create());
    _root->setName("Root");
}

double ksSceneData::getMillimetersPerUnit(int unit) {
    return unit >= 0 && unit <= Mile ? kUnits[unit].mm : 1.0;
}

const char* ksSceneData::getLengthUnitName(int unit) {
    return unit >= 1 && unit <= Mile ? kUnits[unit].name : "undefined";
}

int ksSceneData::parseLengthUnit(const std::string& text) {
    std::string t = ksString::toLower(ksString::trim(text));
    for (int u = 1; u <= Mile; ++u)
        if (t == kUnits[u].name) return u;
    if (t == "millimeter" || t == "millimetre") return Millimeter;
    if (t == "centimeter" || t == "centimetre") return Centimeter;
    if (t == "meter" || t == "metre") return Meter;
    if (t == "inch") return Inch;
    if (t.size() == 1 && t[0] >= '0' && t[0] <= '9') return t[0] - '0';
    return -1;
}

ksSceneData* ksSceneDataManager::getSceneData(int index) {
    auto& s = scenes();
    return index >= 0 && static_cast<std::size_t>(index) < s.size() ? s[std::size_t(index)].get()
                                                                    : nullptr;
}

int ksSceneDataManager::getSceneCount() {
    return static_cast<int>(scenes().size());
}

int ksSceneDataManager::addScene() {
    scenes().push_back(std::make_unique<ksSceneData>());
    return getSceneCount() - 1;
}

void ksSceneDataManager::reset() {
    scenes().clear();
    scenes().push_back(std::make_unique<ksSceneData>());
}

bool ksOpenSGExt::isCameraZUp() {
    return ksSceneDataManager::getSceneData(0)->isZUp();
}

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
