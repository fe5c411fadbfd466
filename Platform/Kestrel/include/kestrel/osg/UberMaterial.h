#pragma once
// The uber material family.
//
// An UberMaterial is described by colour components, one per channel:
// diffuse (the colour map), glossy, specular, incandescence, bump and
// transparency. Each ColorComponent holds a colour, an intensity, an image
// with its use-texture flag, and the texture placement (repeat, offset,
// rotation, repeat mode) and filtering. ColorComponentSettings is the same
// class seen as the settings of a channel.
//
// Texture placement: a texture coordinate uv maps to image space as
//   (uv - 0.5) * repeat rotated by rotate, + 0.5 + offset.
// Repeat mode bits: 2 clamp U, 16 clamp V, 128 U and V differ; 0 repeats
// both. setConnectRepeatModes(true) means U and V use one mode.
//
// UBRDFMaterial adds a BRDF-driven specular reflection; UPlasticMaterial is
// the plastic BRDF with roughness and reflectivity. UXRiteMeasuredMaterial
// renders measured reflectance data from a file.
#include <kestrel/osg/ColorComponent.h>
#include <kestrel/osg/ColorComponents.h>
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterialForward.h>

namespace osg {

class UberMaterial : public Material {
    KS_FIELD_CONTAINER_DECL(UberMaterial, Material)
public:
    static constexpr BitVector ComponentsFieldMask = 1ull << 4;
    static constexpr BitVector ParametersFieldMask = 1ull << 5;

    UberMaterial();
    UberMaterial(const UberMaterial& o); // components are copied, not shared

    ColorComponentsPtr getColorComponentData() const { return _components; }
    ColorComponentSettingsPtr getDiffuseComponentSettings() const;
    ColorComponentSettingsPtr getGlossyComponentSettings() const;
    ColorComponentSettingsPtr getSpecularComponentSettings() const;
    ColorComponentSettingsPtr getIncandescenceComponentSettings() const;
    ColorComponentSettingsPtr getBumpComponentSettings() const;
    ColorComponentSettingsPtr getTransparencyComponentSettings() const;

    // Ambient colour (not a component).
    const Color3f& getAmbienceColor() const { return _ambience; }
    void setAmbienceColor(const Color3f& c);

    // Diffuse channel ("color").
    void setDiffuseColor(const Color3f& c);
    Color3f getDiffuseColor() const;
    void setColorMap(const ImagePtr& image);
    void setUseColorTexture(bool on);
    void setUseAlpha(bool on);
    void setColorRepeat(UInt32 r);
    void setColorAnisotropy(Real32 a);

    // Specular channel. The specular reflection uses the glossy component
    // when getUseGlossy() is true, else the specular component (default).
    void setSpecularColor(const Color3f& c);
    Color3f getSpecularColor() const;
    void setSpecularMap(const ImagePtr& image);
    void setUseSpecularTexture(bool on);
    void setSpecularRepeat(UInt32 r);
    void setSpecularAnisotropy(Real32 a);
    bool getUseGlossy() const { return _useGlossy; }
    void setUseGlossy(bool on);

    // Incandescence: colour (r, g, b) and intensity (fourth component).
    void setIncandescenceColor(const Color4f& c);
    Color4f getIncandescenceColor() const;
    void setIncandescenceMap(const ImagePtr& image);
    void setUseIncandescenceTexture(bool on);
    void setIncandescenceRepeat(UInt32 r);
    void setIncandescenceAnisotropy(Real32 a);

    // Bump channel. Bump type 0 is a height map, 1 a normal map.
    void setBumpMap(const ImagePtr& image);
    void setUseBumpTexture(bool on);
    void setBumpRepeat(UInt32 r);
    void setBumpAnisotropy(Real32 a);
    void setBumpIntensity(Real32 v);
    Real32 getBumpIntensity() const { return _bumpIntensity; }
    void setParallaxIntensity(Real32 v);
    Real32 getParallaxIntensity() const { return _parallaxIntensity; }
    void setBumpType(UInt32 t);
    UInt32 getBumpType() const { return _bumpType; }
    void setUseStructure(bool on);
    bool getUseStructure() const { return _useStructure; }
    void setStructureSize(Real32 s);
    Real32 getStructureSize() const { return _structureSize; }

    // Transparency: the see-through colour (black is opaque).
    void setSeeThrough(const Color3f& c);
    Color3f getSeeThrough() const;
    bool isTransparent() const override;

    // Shininess used where a Phong exponent is needed (derived from the
    // roughness by plastic materials).
    virtual Real32 getShininess() const { return 20.f; }

private:
    ColorComponentsPtr _components;
    Color3f _ambience;
    bool _useGlossy = false;
    Real32 _bumpIntensity = 1.f, _parallaxIntensity = 0.f;
    UInt32 _bumpType = 0;
    bool _useStructure = false;
    Real32 _structureSize = 0.5f;
};

} // namespace osg

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/osg/UBRDFMaterial.h>
#include <kestrel/osg/UXRiteMeasuredMaterial.h>
