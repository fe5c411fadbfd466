#pragma once
// Images: pixel buffers read from and written to files of every common
// format (PNG, JPEG, TIFF, TGA, EXR, HDR, ...), chosen by the file suffix.
//
// Pixels are stored row by row, top row first, channels interleaved, in one
// of three data types. The name of an image is the path it was read from or
// last written to. read() and write() never throw; they return false and
// leave a message in getLastError(). File input and output lives in a module
// beside libkestrel (kestrel/kestrel_imageio.so) that is loaded the first
// time an image is read or written.
#include <string>
#include <vector>

#include <kestrel/osg/Attachment.h>

namespace osg {

KS_FC_TYPEDEFS(Image)

class Image : public AttachmentContainer {
    KS_FIELD_CONTAINER_DECL(Image, AttachmentContainer)
public:
    enum DataType : UInt32 { UInt8Type = 0, UInt16Type = 1, Float32Type = 2 };
    static constexpr BitVector PixelsFieldMask = 1ull << 2;

    // Allocates width x height pixels of channels (1..4) components, copying
    // data when given (it must hold the full buffer); false on bad sizes.
    bool set(UInt32 width, UInt32 height, UInt32 channels, DataType type,
             const void* data = nullptr);
    void clearPixels();

    bool read(const std::string& path);
    bool write(const std::string& path) const;
    const std::string& getLastError() const { return _lastError; }

    UInt32 getWidth() const { return _width; }
    UInt32 getHeight() const { return _height; }
    UInt32 getChannels() const { return _channels; }
    DataType getDataType() const { return _type; }
    UInt32 getComponentSize() const;
    bool isValid() const { return _width > 0 && _height > 0 && !_pixels.empty(); }
    // True for 2 (grey + alpha) and 4 (RGBA) channels.
    bool hasAlphaChannel() const { return _channels == 2 || _channels == 4; }
    const std::vector<UInt8>& getPixels() const { return _pixels; }
    std::vector<UInt8>& editPixels() { return _pixels; }
    const UInt8* getData() const { return _pixels.data(); }
    // Component c of pixel (x, y) scaled to 0..1 for integer types.
    Real32 getComponent(UInt32 x, UInt32 y, UInt32 c) const;

private:
    UInt32 _width = 0, _height = 0, _channels = 0;
    DataType _type = UInt8Type;
    std::vector<UInt8> _pixels;
    mutable std::string _lastError;
};

} // namespace osg
