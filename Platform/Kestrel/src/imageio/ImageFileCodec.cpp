// The image module: image files of every common format through the image
// library, behind the small interface of ImageFileCodec.h.
#include "ImageFileCodec.h"

#include <algorithm>
#include <exception>

#include <OpenImageIO/imageio.h>

namespace osg::imageio {
namespace {

OIIO::TypeDesc toTypeDesc(PixelType t) {
    switch (t) {
    case PixelType::UInt16:
        return OIIO::TypeDesc::UINT16;
    case PixelType::Float32:
        return OIIO::TypeDesc::FLOAT;
    case PixelType::UInt8:
        break;
    }
    return OIIO::TypeDesc::UINT8;
}

bool readImage(const char* path, AllocatePixels allocate, void* context, std::string* error) {
    try {
        // Pixels are kept with straight (not premultiplied) alpha.
        OIIO::ImageSpec config;
        config.attribute("oiio:UnassociatedAlpha", 1);
        auto in = OIIO::ImageInput::open(path, &config);
        if (!in) {
            *error = std::string("cannot open image '") + path + "': " + OIIO::geterror();
            return false;
        }
        const OIIO::ImageSpec& desc = in->spec();
        if (desc.width <= 0 || desc.height <= 0 || desc.nchannels <= 0) {
            *error = std::string("image '") + path + "' has no pixels";
            return false;
        }
        int channels = std::min(desc.nchannels, 4);
        PixelType type = PixelType::UInt8;
        if (desc.format == OIIO::TypeDesc::UINT16 || desc.format == OIIO::TypeDesc::INT16)
            type = PixelType::UInt16;
        else if (desc.format.is_floating_point() || desc.format.size() > 2)
            type = PixelType::Float32;
        void* pixels = allocate(context, desc.width, desc.height, channels, type);
        if (!pixels) {
            *error = std::string("image '") + path + "' is too large";
            return false;
        }
        if (!in->read_image(0, 0, 0, channels, toTypeDesc(type), pixels)) {
            *error = std::string("cannot read image '") + path + "': " + in->geterror();
            return false;
        }
        in->close();
        return true;
    } catch (const std::exception& e) {
        *error = std::string("image read failed: ") + e.what();
    } catch (...) {
        *error = "image read failed";
    }
    return false;
}

bool writeImage(const char* path, int width, int height, int channels, PixelType type,
                const void* pixels, std::string* error) {
    try {
        auto out = OIIO::ImageOutput::create(path);
        if (!out) {
            *error = std::string("no writer for '") + path + "': " + OIIO::geterror();
            return false;
        }
        OIIO::ImageSpec desc(width, height, channels, toTypeDesc(type));
        if (channels == 2 || channels == 4) {
            desc.alpha_channel = channels - 1;
            desc.attribute("oiio:UnassociatedAlpha", 1);
        }
        if (!out->open(path, desc) || !out->write_image(toTypeDesc(type), pixels) ||
            !out->close()) {
            *error = std::string("cannot write image '") + path + "': " + out->geterror();
            return false;
        }
        return true;
    } catch (const std::exception& e) {
        *error = std::string("image write failed: ") + e.what();
    } catch (...) {
        *error = "image write failed";
    }
    return false;
}

const ImageFileCodec kCodec{kCodecVersion, &readImage, &writeImage};

} // namespace
} // namespace osg::imageio

extern "C" __attribute__((visibility("default"))) const osg::imageio::ImageFileCodec*
kestrelImageFileCodec() {
    return &osg::imageio::kCodec;
}
