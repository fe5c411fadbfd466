#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(UberMaterial)

KS_FIELD_SETTER(UberMaterial, AmbienceColor, const Color3f&, _ambience, ParametersFieldMask)

KS_FIELD_SETTER(UberMaterial, UseGlossy, bool, _useGlossy, ParametersFieldMask)

KS_FIELD_SETTER(UberMaterial, BumpIntensity, Real32, _bumpIntensity, ParametersFieldMask)

KS_FIELD_SETTER(UberMaterial, ParallaxIntensity, Real32, _parallaxIntensity, ParametersFieldMask)

KS_FIELD_SETTER(UberMaterial, BumpType, UInt32, _bumpType, ParametersFieldMask)

KS_FIELD_SETTER(UberMaterial, UseStructure, bool, _useStructure, ParametersFieldMask)

KS_FIELD_SETTER(UberMaterial, StructureSize, Real32, _structureSize, ParametersFieldMask)

namespace {
ColorComponentPtr copyOf(const ColorComponentPtr& c) {
    return ColorComponentPtr::dcast(c->shallowCopy());
}
} // namespace

UberMaterial::UberMaterial() : _components(ColorComponents::create()) {}

UberMaterial::UberMaterial(const UberMaterial& o)
    : Material(o), _components(ColorComponents::create()), _ambience(o._ambience),
      _useGlossy(o._useGlossy), _bumpIntensity(o._bumpIntensity),
      _parallaxIntensity(o._parallaxIntensity), _bumpType(o._bumpType),
      _useStructure(o._useStructure), _structureSize(o._structureSize) {
    auto copyInto = [](const ColorComponentPtr& to, const ColorComponentPtr& from) {
        ColorComponentPtr c = copyOf(from);
        to->setColor(c->getColor());
        to->setIntensity(c->getIntensity());
        to->setImage(c->getImage());
        to->setUseTexture(c->getUseTexture());
        to->setUseAlpha(c->getUseAlpha());
        to->setRepeat(c->getRepeat());
        to->setOffset(c->getOffset());
        to->setRotate(c->getRotate());
        to->setRepeatMode(c->getRepeatMode());
        to->setConnectRepeatModes(c->getConnectRepeatModes());
        to->setTextureRepeat(c->getTextureRepeat());
        to->setAnisotropy(c->getAnisotropy());
    };
    const ColorComponents& a = *o._components;
    ColorComponents& b = *_components;
    copyInto(b.getDiffuseComponent(), a.getDiffuseComponent());
    copyInto(b.getGlossyComponent(), a.getGlossyComponent());
    copyInto(b.getSpecularComponent(), a.getSpecularComponent());
    copyInto(b.getIncandescenceComponent(), a.getIncandescenceComponent());
    copyInto(b.getBumpComponent(), a.getBumpComponent());
    copyInto(b.getTransparencyComponent(), a.getTransparencyComponent());
}

ColorComponentSettingsPtr UberMaterial::getDiffuseComponentSettings() const {
    return _components->getDiffuseComponent();
}
ColorComponentSettingsPtr UberMaterial::getGlossyComponentSettings() const {
    return _components->getGlossyComponent();
}
ColorComponentSettingsPtr UberMaterial::getSpecularComponentSettings() const {
    return _components->getSpecularComponent();
}
ColorComponentSettingsPtr UberMaterial::getIncandescenceComponentSettings() const {
    return _components->getIncandescenceComponent();
}
ColorComponentSettingsPtr UberMaterial::getBumpComponentSettings() const {
    return _components->getBumpComponent();
}
ColorComponentSettingsPtr UberMaterial::getTransparencyComponentSettings() const {
    return _components->getTransparencyComponent();
}

// Channel setters write into the channel's component and record the
// material's components as changed.
#define KS_CHANNEL(Name, Type, getter, call)                                                       \
    void UberMaterial::set##Name(Type v) {                                                         \
        getter()->call(v);                                                                         \
        changed(ComponentsFieldMask);                                                              \
    }
KS_CHANNEL(DiffuseColor, const Color3f&, getDiffuseComponentSettings, setColor)
KS_CHANNEL(ColorMap, const ImagePtr&, getDiffuseComponentSettings, setImage)
KS_CHANNEL(UseColorTexture, bool, getDiffuseComponentSettings, setUseTexture)
KS_CHANNEL(UseAlpha, bool, getDiffuseComponentSettings, setUseAlpha)
KS_CHANNEL(ColorRepeat, UInt32, getDiffuseComponentSettings, setTextureRepeat)
KS_CHANNEL(ColorAnisotropy, Real32, getDiffuseComponentSettings, setAnisotropy)
KS_CHANNEL(SpecularColor, const Color3f&, getSpecularComponentSettings, setColor)
KS_CHANNEL(SpecularMap, const ImagePtr&, getSpecularComponentSettings, setImage)
KS_CHANNEL(UseSpecularTexture, bool, getSpecularComponentSettings, setUseTexture)
KS_CHANNEL(SpecularRepeat, UInt32, getSpecularComponentSettings, setTextureRepeat)
KS_CHANNEL(SpecularAnisotropy, Real32, getSpecularComponentSettings, setAnisotropy)
KS_CHANNEL(IncandescenceMap, const ImagePtr&, getIncandescenceComponentSettings, setImage)
KS_CHANNEL(UseIncandescenceTexture, bool, getIncandescenceComponentSettings, setUseTexture)
KS_CHANNEL(IncandescenceRepeat, UInt32, getIncandescenceComponentSettings, setTextureRepeat)
KS_CHANNEL(IncandescenceAnisotropy, Real32, getIncandescenceComponentSettings, setAnisotropy)
KS_CHANNEL(BumpMap, const ImagePtr&, getBumpComponentSettings, setImage)
KS_CHANNEL(UseBumpTexture, bool, getBumpComponentSettings, setUseTexture)
KS_CHANNEL(BumpRepeat, UInt32, getBumpComponentSettings, setTextureRepeat)
KS_CHANNEL(BumpAnisotropy, Real32, getBumpComponentSettings, setAnisotropy)
KS_CHANNEL(SeeThrough, const Color3f&, getTransparencyComponentSettings, setColor)
#undef KS_CHANNEL

Color3f UberMaterial::getDiffuseColor() const {
    return getDiffuseComponentSettings()->getColor();
}
Color3f UberMaterial::getSpecularColor() const {
    return (_useGlossy ? getGlossyComponentSettings() : getSpecularComponentSettings())->getColor();
}
Color3f UberMaterial::getSeeThrough() const {
    return getTransparencyComponentSettings()->getColor();
}

void UberMaterial::setIncandescenceColor(const Color4f& c) {
    auto comp = getIncandescenceComponentSettings();
    comp->setColor(Color3f(c[0], c[1], c[2]));
    comp->setIntensity(c[3]);
    changed(ComponentsFieldMask);
}

Color4f UberMaterial::getIncandescenceColor() const {
    auto comp = getIncandescenceComponentSettings();
    const Color3f& c = comp->getColor();
    return Color4f(c[0], c[1], c[2], comp->getIntensity());
}

bool UberMaterial::isTransparent() const {
    const Color3f& c = getSeeThrough();
    auto t = getTransparencyComponentSettings();
    return c[0] > 0.f || c[1] > 0.f || c[2] > 0.f || (t->getUseTexture() && t->getImage()) ||
           getDiffuseComponentSettings()->getUseAlpha();
}

} // namespace osg
