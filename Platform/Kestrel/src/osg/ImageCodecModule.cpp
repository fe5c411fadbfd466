#include "ImageCodecModule.h"

#include <dlfcn.h>

#include <filesystem>
#include <mutex>

namespace osg {

namespace {
constexpr const char* kModuleName = "kestrel_imageio.so";

struct Loaded {
    const imageio::ImageFileCodec* codec = nullptr;
    std::string error;
};

Loaded load() {
    Loaded result;
    std::string path = ImageCodecModule::modulePath();
    if (path.empty()) {
        result.error = "cannot tell where libkestrel was loaded from to find its image module";
        return result;
    }
    // The module stays loaded for the life of the process.
    void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
        const char* why = dlerror();
        result.error =
            "cannot load the image module " + path + ": " + (why ? why : "unknown error");
        return result;
    }
    using Entry = const imageio::ImageFileCodec* (*)();
    auto entry = reinterpret_cast<Entry>(dlsym(handle, "kestrelImageFileCodec"));
    const imageio::ImageFileCodec* codec = entry ? entry() : nullptr;
    if (!codec || codec->version != imageio::kCodecVersion || !codec->read || !codec->write) {
        result.error = "the image module " + path + " does not belong to this libkestrel";
        return result;
    }
    result.codec = codec;
    return result;
}
} // namespace

std::string ImageCodecModule::modulePath() {
    Dl_info info{};
    if (!dladdr(reinterpret_cast<void*>(&ImageCodecModule::modulePath), &info) || !info.dli_fname)
        return {};
    std::filesystem::path self = info.dli_fname;
    return (self.parent_path() / "kestrel" / kModuleName).string();
}

const imageio::ImageFileCodec* ImageCodecModule::get(std::string* error) {
    static std::once_flag once;
    static Loaded loaded;
    std::call_once(once, [] { loaded = load(); });
    if (!loaded.codec && error) *error = loaded.error;
    return loaded.codec;
}

} // namespace osg
