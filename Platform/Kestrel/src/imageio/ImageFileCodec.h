#pragma once
// The interface between libkestrel and its image module. Reading and writing
// image files needs a large image library (and the hundreds of shared
// libraries behind it); keeping it in a module that libkestrel loads the
// first time an image is read or written lets every program that never
// touches an image start without it.
//
// Both sides are built together, so the interface may use C++ types; the
// version guards against a module left over from another build.
#include <cstddef>
#include <string>

namespace osg::imageio {

constexpr int kCodecVersion = 1;

// Component types, numbered as osg::Image::DataType.
enum class PixelType : int { UInt8 = 0, UInt16 = 1, Float32 = 2 };

// Called once the file's size is known; returns the buffer the pixels go to
// (width * height * channels components, rows top first, interleaved), or
// null to refuse the image.
using AllocatePixels = void* (*)(void* context, int width, int height, int channels,
                                 PixelType type);

struct ImageFileCodec {
    int version;
    // Reads at most four channels with straight alpha; false with a message.
    bool (*read)(const char* path, AllocatePixels allocate, void* context, std::string* error);
    // Writes pixels in the format the path's suffix names.
    bool (*write)(const char* path, int width, int height, int channels, PixelType type,
                  const void* pixels, std::string* error);
};

} // namespace osg::imageio

// The module's one exported symbol.
extern "C" const osg::imageio::ImageFileCodec* kestrelImageFileCodec();
