#pragma once
#include <kestrel/osg/Image.h>
#include <kestrel/osg/Material.h>
#include <kestrel/osg/UberMaterialForward.h>

namespace osg {

class ColorComponent : public FieldContainer {
    KS_FIELD_CONTAINER_DECL(ColorComponent, FieldContainer)
public:
    static constexpr BitVector ColorFieldMask = 1ull << 1;
    static constexpr BitVector ImageFieldMask = 1ull << 2;
    static constexpr BitVector PlacementFieldMask = 1ull << 3;

    const Color3f& getColor() const { return _color; }
    void setColor(const Color3f& c);
    Real32 getIntensity() const { return _intensity; }
    void setIntensity(Real32 v);
    ImagePtr getImage() const { return _image; }
    void setImage(const ImagePtr& image);
    bool getUseTexture() const { return _useTexture; }
    void setUseTexture(bool on);
    bool getUseAlpha() const { return _useAlpha; }
    void setUseAlpha(bool on);
    const Vec2f& getRepeat() const { return _repeat; }
    void setRepeat(const Vec2f& r);
    const Vec2f& getOffset() const { return _offset; }
    void setOffset(const Vec2f& o);
    Real32 getRotate() const { return _rotate; }
    void setRotate(Real32 degrees);
    UInt32 getRepeatMode() const { return _repeatMode; }
    void setRepeatMode(UInt32 mode);
    bool getConnectRepeatModes() const { return _connectRepeatModes; }
    void setConnectRepeatModes(bool on);
    // Texture repeat flag of the channel's own texture unit (0 default).
    UInt32 getTextureRepeat() const { return _textureRepeat; }
    void setTextureRepeat(UInt32 r);
    Real32 getAnisotropy() const { return _anisotropy; }
    void setAnisotropy(Real32 a);

private:
    Color3f _color;
    Real32 _intensity = 1.f;
    ImagePtr _image;
    bool _useTexture = false, _useAlpha = false;
    Vec2f _repeat{1.f, 1.f};
    Vec2f _offset;
    Real32 _rotate = 0.f;
    UInt32 _repeatMode = 0;
    bool _connectRepeatModes = true;
    UInt32 _textureRepeat = 0;
    Real32 _anisotropy = 1.f;
};

} // namespace osg
