#include <kestrel/ksLights.h>
#include <kestrel/ksMaterials.h>
#include <kestrel/osg/ChangeList.h>

using namespace osg;

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
#undef KS_SET
#undef KS_GET

std::string ksMaterials::getName(const MaterialPtr& material) {
    return material ? material->getName() : std::string();
}

void ksMaterials::setName(const MaterialPtr& material, const std::string& name, bool recordChange) {
    if (!material) return;
    bool was = ChangeList::current().isEnabled();
    if (!recordChange) ChangeList::current().setEnabled(false);
    material->setName(name);
    ChangeList::current().setEnabled(was);
}

MaterialPtr ksMaterials::getRealMaterial(const MaterialPtr& material) {
    return material;
}
