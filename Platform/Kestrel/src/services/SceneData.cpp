#include <memory>
#include <vector>

#include <kestrel/ksOpenSGExt.h>
#include <kestrel/ksSceneData.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksString.h>
#include <kestrel/ksVersionInfo.h>
#include <kestrel/osg/Group.h>

namespace {
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
