#pragma once
// Finds and loads the image module beside libkestrel the first time an
// image is read or written (see imageio/ImageFileCodec.h).
#include <string>

#include "../imageio/ImageFileCodec.h"

namespace osg {

class ImageCodecModule {
public:
    // The loaded module's codec, or null with the reason in error. Loading
    // happens once per process; later calls return the same answer.
    static const imageio::ImageFileCodec* get(std::string* error);
    // Where the module is looked for: <folder of libkestrel>/kestrel/.
    static std::string modulePath();
};

} // namespace osg
