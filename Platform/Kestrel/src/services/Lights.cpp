#include <kestrel/ksLights.h>

using namespace osg;

namespace {
struct TypeName {
    const char* name;
    UInt32 type;
};
constexpr TypeName kTypes[] = {
    {"PointLight", UberLight::PointLight},
    {"DirectionalLight", UberLight::DirectionalLight},
    {"SpotLight", UberLight::SpotLight},
    {"RectangularLight", UberLight::RectangularLight},
    {"SphericalLight", UberLight::SphericalLight},
    {"DiskLight", UberLight::DiskLight},
};
} // namespace

NodePtr ksLights::createLight(const std::string& typeName, const std::string& nodeName,
                              const NodePtr& parent) {
    for (const auto& t : kTypes) {
        if (typeName != t.name) continue;
        UberLightPtr light = UberLight::create();
        light->setLightType(t.type);
        light->setName(nodeName);
        NodePtr node = Node::create();
        node->setCore(light);
        node->setName(nodeName);
        if (parent) parent->addChild(node);
        return node;
    }
    return NodePtr();
}

UberLightPtr ksLights::getLight(const NodePtr& node) {
    return node ? UberLightPtr::dcast(node->getCore()) : UberLightPtr();
}

std::string ksLights::getTypeName(const NodePtr& node) {
    if (auto l = getLight(node))
        for (const auto& t : kTypes)
            if (t.type == l->getLightType()) return t.name;
    return std::string();
}

#define KS_IS(Name, Type)                                                                          \
    bool ksLights::is##Name(const NodePtr& node) {                                                 \
        auto l = getLight(node);                                                                   \
        return l && l->getLightType() == UberLight::Type;                                          \
    }
KS_IS(PointLight, PointLight)
KS_IS(DirectionalLight, DirectionalLight)
KS_IS(SpotLight, SpotLight)
KS_IS(RectangularLight, RectangularLight)
KS_IS(SphericalLight, SphericalLight)
KS_IS(DiskLight, DiskLight)
#undef KS_IS

bool ksLights::isAreaLight(const NodePtr& node) {
    auto l = getLight(node);
    return l && l->isAreaLight();
}

#define KS_SET(Name, Type)                                                                         \
    void ksLights::set##Name(const NodePtr& node, Type v) {                                        \
        if (auto l = getLight(node)) l->set##Name(v);                                              \
    }
#define KS_GET(Name, Type)                                                                         \
    Type ksLights::get##Name(const NodePtr& node) {                                                \
        auto l = getLight(node);                                                                   \
        return l ? l->get##Name() : Type();                                                        \
    }
KS_SET(On, bool)
KS_GET(On, bool)
KS_SET(ShadowIntensity, Real32)
KS_GET(ShadowIntensity, Real32)
KS_SET(GroundShadowIntensity, Real32)
KS_GET(GroundShadowIntensity, Real32)
KS_SET(LightScale, Real32)
KS_GET(LightScale, Real32)
KS_SET(Diffuse, const Color3f&)
KS_GET(Diffuse, Color3f)
KS_SET(Glossy, const Color3f&)
KS_GET(Glossy, Color3f)
KS_SET(LightValue, Real32)
KS_GET(LightValue, Real32)
KS_SET(Attenuation, UInt32)
KS_GET(Attenuation, UInt32)
KS_SET(ConeAngle, Real32)
KS_GET(ConeAngle, Real32)
KS_SET(PenumbraAngle, Real32)
KS_GET(PenumbraAngle, Real32)
KS_SET(AreaSize, const Vec2f&)
KS_GET(AreaSize, Vec2f)
#undef KS_SET
#undef KS_GET
