#include <algorithm>
#include <cstring>
#include <exception>
#include <limits>

#include <OpenImageIO/imageio.h>

#include <kestrel/osg/Image.h>

namespace osg {

KS_FIELD_CONTAINER_IMPL(Image)

namespace {
OIIO::TypeDesc toTypeDesc(Image::DataType t) {
    switch (t) {
    case Image::UInt16Type:
        return OIIO::TypeDesc::UINT16;
    case Image::Float32Type:
        return OIIO::TypeDesc::FLOAT;
    default:
        return OIIO::TypeDesc::UINT8;
    }
}
// Images larger than this are refused (a hostile header must not make us
// allocate without bound).
constexpr std::size_t kMaxBytes = std::size_t(1) << 31;
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
    try {
        // Pixels are kept with straight (not premultiplied) alpha.
        OIIO::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        auto in = OIIO::ImageInput::open(path, &config);
        if (!in) {
            _lastError = "cannot open image '" + path + "': " + OIIO::geterror();
            return false;
        }
        const OIIO::ImageSpec& desc = in->spec();
        if (desc.width <= 0 || desc.height <= 0 || desc.nchannels <= 0) {
            _lastError = "image '" + path + "' has no pixels";
            return false;
        }
        int channels = std::min(desc.nchannels, 4);
        DataType type = UInt8Type;
        if (desc.format == OIIO::TypeDesc::UINT16 || desc.format == OIIO::TypeDesc::INT16)
            type = UInt16Type;
        else if (desc.format.is_floating_point())
            type = Float32Type;
        else if (desc.format.size() > 2)
            type = Float32Type;
        if (!set(UInt32(desc.width), UInt32(desc.height), UInt32(channels), type)) {
            _lastError = "image '" + path + "' is too large";
            return false;
        }
        if (!in->read_image(0, 0, 0, channels, toTypeDesc(type), _pixels.data())) {
            _lastError = "cannot read image '" + path + "': " + in->geterror();
            clearPixels();
            return false;
        }
        in->close();
        setName(path);
        _lastError.clear();
        return true;
    } catch (const std::exception& e) {
        _lastError = std::string("image read failed: ") + e.what();
    } catch (...) {
        _lastError = "image read failed";
    }
    clearPixels();
    return false;
}

bool Image::write(const std::string& path) const {
    if (!isValid()) {
        _lastError = "image has no pixels";
        return false;
    }
    try {
        auto out = OIIO::ImageOutput::create(path);
        if (!out) {
            _lastError = "no writer for '" + path + "': " + OIIO::geterror();
            return false;
        }
        OIIO::ImageSpec desc(int(_width), int(_height), int(_channels), toTypeDesc(_type));
        if (_channels == 2 || _channels == 4) {
            desc.alpha_channel = int(_channels) - 1;
            desc.attribute("oiio:UnassociatedAlpha", 1);
        }
        if (!out->open(path, desc) || !out->write_image(toTypeDesc(_type), _pixels.data()) ||
            !out->close()) {
            _lastError = "cannot write image '" + path + "': " + out->geterror();
            return false;
        }
        const_cast<Image*>(this)->setName(path);
        _lastError.clear();
        return true;
    } catch (const std::exception& e) {
        _lastError = std::string("image write failed: ") + e.what();
    } catch (...) {
        _lastError = "image write failed";
    }
    return false;
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
