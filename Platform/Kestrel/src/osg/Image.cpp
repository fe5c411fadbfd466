#include <cstring>
#include <limits>

#include <kestrel/osg/Image.h>

#include "ImageCodecModule.h"

namespace osg {

KS_FIELD_CONTAINER_IMPL(Image)

namespace {
// Images larger than this are refused (a hostile header must not make us
// allocate without bound).
constexpr std::size_t kMaxBytes = std::size_t(1) << 31;

void* allocateInto(void* context, int width, int height, int channels, imageio::PixelType type) {
    auto* image = static_cast<Image*>(context);
    if (width <= 0 || height <= 0 || channels <= 0) return nullptr;
    if (!image->set(UInt32(width), UInt32(height), UInt32(channels),
                    static_cast<Image::DataType>(type)))
        return nullptr;
    return image->editPixels().data();
}
} // namespace

UInt32 Image::getComponentSize() const {
    return _type == UInt8Type ? 1u : _type == UInt16Type ? 2u : 4u;
}

bool Image::set(UInt32 width, UInt32 height, UInt32 channels, DataType type, const void* data) {
    if (width == 0 || height == 0 || channels < 1 || channels > 4) return false;
    UInt32 comp = type == UInt8Type ? 1u : type == UInt16Type ? 2u : 4u;
    std::size_t bytes = std::size_t(width) * height * channels * comp;
    if (bytes > kMaxBytes) return false;
    _width = width;
    _height = height;
    _channels = channels;
    _type = type;
    _pixels.assign(bytes, 0);
    if (data) std::memcpy(_pixels.data(), data, bytes);
    changed(PixelsFieldMask);
    return true;
}

void Image::clearPixels() {
    _width = _height = _channels = 0;
    _pixels.clear();
    changed(PixelsFieldMask);
}

bool Image::read(const std::string& path) {
    const imageio::ImageFileCodec* codec = ImageCodecModule::get(&_lastError);
    if (!codec) return false;
    std::string error;
    if (!codec->read(path.c_str(), &allocateInto, this, &error)) {
        _lastError = error;
        clearPixels();
        return false;
    }
    setName(path);
    _lastError.clear();
    return true;
}

bool Image::write(const std::string& path) const {
    if (!isValid()) {
        _lastError = "image has no pixels";
        return false;
    }
    const imageio::ImageFileCodec* codec = ImageCodecModule::get(&_lastError);
    if (!codec) return false;
    std::string error;
    if (!codec->write(path.c_str(), int(_width), int(_height), int(_channels),
                      static_cast<imageio::PixelType>(_type), _pixels.data(), &error)) {
        _lastError = error;
        return false;
    }
    const_cast<Image*>(this)->setName(path);
    _lastError.clear();
    return true;
}

Real32 Image::getComponent(UInt32 x, UInt32 y, UInt32 c) const {
    if (x >= _width || y >= _height || c >= _channels) return 0.f;
    std::size_t i = (std::size_t(y) * _width + x) * _channels + c;
    switch (_type) {
    case UInt8Type:
        return _pixels[i] / 255.f;
    case UInt16Type: {
        UInt16 v;
        std::memcpy(&v, _pixels.data() + i * 2, 2);
        return v / 65535.f;
    }
    default: {
        Real32 v;
        std::memcpy(&v, _pixels.data() + i * 4, 4);
        return v;
    }
    }
}

} // namespace osg
