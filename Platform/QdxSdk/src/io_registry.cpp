// The registry of readers and writers.
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "format.h"
#include "qdxsdk/io.h"

namespace qdxsdk {

namespace {
const char* kDescriptions[] = {"Qdx binary (*.qdx)", "Qdx ascii (*.qdx)"};
const char* kVersions[] = {"QDX300", "QDX200", "QDX100", nullptr};
constexpr int kFormats = 2;
} // namespace

int QdxIOPluginRegistry::GetReaderFormatCount() const {
    return kFormats;
}
int QdxIOPluginRegistry::GetWriterFormatCount() const {
    return kFormats;
}

const char* QdxIOPluginRegistry::GetReaderFormatDescription(int f) const {
    return f >= 0 && f < kFormats ? kDescriptions[f] : nullptr;
}
const char* QdxIOPluginRegistry::GetWriterFormatDescription(int f) const {
    return GetReaderFormatDescription(f);
}
const char* QdxIOPluginRegistry::GetReaderFormatExtension(int f) const {
    return f >= 0 && f < kFormats ? "qdx" : nullptr;
}
const char* QdxIOPluginRegistry::GetWriterFormatExtension(int f) const {
    return GetReaderFormatExtension(f);
}
const char** QdxIOPluginRegistry::GetWritableVersions(int f) const {
    return f >= 0 && f < kFormats ? kVersions : nullptr;
}

int QdxIOPluginRegistry::FindReaderIDByExtension(const char* ext) const {
    return ext && (strcasecmp(ext, "qdx") == 0 || strcasecmp(ext, "abc") == 0) ? 0 : -1;
}
int QdxIOPluginRegistry::FindWriterIDByExtension(const char* ext) const {
    return FindReaderIDByExtension(ext);
}
int QdxIOPluginRegistry::FindReaderIDByDescription(const char* d) const {
    for (int f = 0; f < kFormats; ++f)
        if (d && std::strcmp(d, kDescriptions[f]) == 0) return f;
    return -1;
}
int QdxIOPluginRegistry::FindWriterIDByDescription(const char* d) const {
    return FindReaderIDByDescription(d);
}

bool QdxIOPluginRegistry::DetectReaderFileFormat(const char* fileName, int& format) const {
    format = -1;
    if (!fileName) return false;
    if (FILE* f = std::fopen(fileName, "rb")) {
        uint8_t head[64];
        size_t n = std::fread(head, 1, sizeof head, f);
        std::fclose(f);
        if (format::IsBinary(head, n))
            format = 0;
        else if (format::IsText(head, n))
            format = 1;
        if (format >= 0) return true;
    }
    const char* dot = std::strrchr(fileName, '.');
    format = dot ? FindReaderIDByExtension(dot + 1) : -1;
    return format >= 0;
}

} // namespace qdxsdk
