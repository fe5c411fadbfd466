#include "CameraLightView.h"

#include <iomanip>
#include <ostream>
#include <sstream>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksLights.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksUberCameraUtils.h>
#include <kestrel/osg/Constraint.h>

using nlohmann::json;

namespace {

json pair(const osg::Vec2f& v) {
    return json::array({v[0], v[1]});
}

std::string number(const json& v) {
    std::ostringstream os;
    os << std::setprecision(6) << v.get<double>();
    return os.str();
}

std::string numbers(const json& v) {
    std::ostringstream os;
    os << std::setprecision(6) << "(";
    for (std::size_t i = 0; i < v.size(); ++i)
        os << (i ? " " : "") << v[i].get<double>();
    os << ")";
    return os.str();
}

// The name of the first live node among a constraint's entries.
std::string firstName(const std::vector<osg::ConstraintObjectPtr>& entries) {
    for (const auto& e : entries)
        if (osg::NodePtr n = e ? e->getReferenceNode() : osg::NodePtr())
            return ksNodeUtils::getName(n);
    return {};
}

} // namespace

json describeCamera(const osg::NodePtr& node) {
    osg::UberCameraPtr c = ksUberCameraUtils::getCamera(node);
    if (!c) return nullptr;
    json j;
    const bool ortho = c->getProjectionMode() == 1;
    j["projection"] = ortho ? "orthographic" : "perspective";
    j["focalLength"] = c->getFocalLength();
    j["sensorSize"] = pair(c->getSensorSize());
    j["filmOffset"] = pair(c->getPrincipalPointOffset());
    j["near"] = c->getNear();
    j["far"] = c->getFar();
    j["fov"] = c->getFov();
    j["fovMode"] = c->getFovMode() == osg::UberCamera::HorizontalFov ? "horizontal" : "vertical";
    j["roll"] = c->getRoll();
    if (ortho) {
        const osg::Vec4f& s = c->getFrustumSides();
        j["frustum"] = json::array({s[0], s[1], s[2], s[3]});
    }
    if (auto aim = ksConstraintManager::the().findAimConstraintForTarget(node)) {
        j["aimTarget"] = firstName(aim->getTargets());
        const std::string up = firstName(aim->getUpTargets());
        if (!up.empty()) j["aimUp"] = up;
    }
    return j;
}

json describeLight(const osg::NodePtr& node) {
    osg::UberLightPtr l = ksLights::getLight(node);
    if (!l) return nullptr;
    static const char* types[] = {"point",       "directional", "spot",
                                  "rectangular", "spherical",   "disk"};
    static const char* attenuations[] = {"none", "linear", "quadratic"};
    json j;
    j["type"] = l->getLightType() < 6 ? types[l->getLightType()] : "unknown";
    const osg::Color3f& colour = l->getDiffuse();
    j["color"] = json::array({colour[0], colour[1], colour[2]});
    j["value"] = l->getLightValue();
    j["attenuation"] = l->getAttenuation() < 3 ? attenuations[l->getAttenuation()] : "unknown";
    j["on"] = l->getOn();
    j["shadows"] = l->getShadowIntensity() > 0.f;
    if (l->getLightType() == osg::UberLight::SpotLight) {
        j["cone"] = l->getConeAngle();
        j["penumbra"] = l->getPenumbraAngle();
    }
    if (l->isAreaLight()) j["areaSize"] = pair(l->getAreaSize());
    return j;
}

void printCamera(std::ostream& os, const json& c, const std::string& indent) {
    os << indent << c["projection"].get<std::string>() << " camera, focal length "
       << number(c["focalLength"]) << " mm, sensor " << numbers(c["sensorSize"])
       << " mm, film offset " << numbers(c["filmOffset"]) << " mm\n";
    os << indent << "  clipping " << number(c["near"]) << " to " << number(c["far"]) << ", "
       << c["fovMode"].get<std::string>() << " field of view " << number(c["fov"]) << " deg, roll "
       << number(c["roll"]) << " deg";
    if (c.contains("frustum")) os << ", frustum " << numbers(c["frustum"]);
    os << "\n";
    if (c.contains("aimTarget")) {
        os << indent << "  aims at " << c["aimTarget"].get<std::string>();
        if (c.contains("aimUp")) os << ", up towards " << c["aimUp"].get<std::string>();
        os << "\n";
    }
}

void printLight(std::ostream& os, const json& l, const std::string& indent) {
    os << indent << l["type"].get<std::string>() << " light, value " << number(l["value"])
       << ", colour " << numbers(l["color"]) << ", attenuation "
       << l["attenuation"].get<std::string>() << (l["shadows"].get<bool>() ? ", shadows" : "")
       << (l["on"].get<bool>() ? "" : ", off") << "\n";
    if (l.contains("cone"))
        os << indent << "  cone " << number(l["cone"]) << " deg, penumbra " << number(l["penumbra"])
           << " deg\n";
    if (l.contains("areaSize")) os << indent << "  area " << numbers(l["areaSize"]) << "\n";
}
