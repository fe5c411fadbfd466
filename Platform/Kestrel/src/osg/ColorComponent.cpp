#include <algorithm>

#include "Setters.h"

#include <kestrel/osg/ColorComponent.h>
#include <kestrel/osg/UberMaterial.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(ColorComponent)

KS_FIELD_SETTER(ColorComponent, Color, const Color3f&, _color, ColorFieldMask)

KS_FIELD_SETTER(ColorComponent, Intensity, Real32, _intensity, ColorFieldMask)

KS_FIELD_SETTER(ColorComponent, Image, const ImagePtr&, _image, ImageFieldMask)

KS_FIELD_SETTER(ColorComponent, UseTexture, bool, _useTexture, ImageFieldMask)

KS_FIELD_SETTER(ColorComponent, UseAlpha, bool, _useAlpha, ImageFieldMask)

KS_FIELD_SETTER(ColorComponent, Repeat, const Vec2f&, _repeat, PlacementFieldMask)

KS_FIELD_SETTER(ColorComponent, Offset, const Vec2f&, _offset, PlacementFieldMask)

KS_FIELD_SETTER(ColorComponent, Rotate, Real32, _rotate, PlacementFieldMask)

KS_FIELD_SETTER(ColorComponent, RepeatMode, UInt32, _repeatMode, PlacementFieldMask)

KS_FIELD_SETTER(ColorComponent, ConnectRepeatModes, bool, _connectRepeatModes, PlacementFieldMask)

KS_FIELD_SETTER(ColorComponent, TextureRepeat, UInt32, _textureRepeat, PlacementFieldMask)

KS_FIELD_SETTER(ColorComponent, Anisotropy, Real32, _anisotropy, PlacementFieldMask)

} // namespace osg
