#include <kestrel/ksLights.h>
#include <kestrel/ksMaterials.h>
#include <kestrel/osg/ChangeList.h>

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
