// The format table: one line per format, in the order of the public format
// indices. A format's descriptor lives in that format's own source file.
#include <cstring>

#include "format_descriptor.h"

#define QDX_FORMAT_TABLE(X)                                                                        \
    X(kQdxBinaryFormat)  /* 0 */                                                                   \
    X(kQdxTextFormat)    /* 1 */                                                                   \
    X(kGltfBinaryFormat) /* 2 */                                                                   \
    X(kGltfTextFormat)   /* 3 */

namespace qdxsdk::format {

#define QDX_DECLARE_FORMAT(descriptor) extern const FormatDescriptor descriptor;
QDX_FORMAT_TABLE(QDX_DECLARE_FORMAT)
#undef QDX_DECLARE_FORMAT

namespace {
#define QDX_LIST_FORMAT(descriptor) &descriptor,
const FormatDescriptor* const kTable[] = {QDX_FORMAT_TABLE(QDX_LIST_FORMAT)};
#undef QDX_LIST_FORMAT
constexpr int kCount = static_cast<int>(sizeof kTable / sizeof kTable[0]);
} // namespace

int FormatCount() {
    return kCount;
}

const FormatDescriptor* FormatAt(int index) {
    return index >= 0 && index < kCount ? kTable[index] : nullptr;
}

int VersionNumber(const FormatDescriptor& format, const char* text) {
    for (int i = 0; text && format.versions[i]; ++i)
        if (std::strcmp(format.versions[i], text) == 0) return format.versionNumbers[i];
    return 0;
}

const char* VersionText(const FormatDescriptor& format, int number) {
    for (int i = 0; format.versions[i]; ++i)
        if (format.versionNumbers[i] == number) return format.versions[i];
    return nullptr;
}

} // namespace qdxsdk::format
