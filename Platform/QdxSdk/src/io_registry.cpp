// The registry of readers and writers: a view of the format table.
#include <cstdio>
#include <cstring>
#include <strings.h>

#include "format_descriptor.h"
#include "qdxsdk/io.h"

namespace qdxsdk {

namespace {
// Formats are readable and writable alike unless a descriptor has no writer.
const format::FormatDescriptor* Writer(int f) {
    const format::FormatDescriptor* d = format::FormatAt(f);
    return d && d->write ? d : nullptr;
}

int FindBySuffix(const char* ext, bool writable) {
    for (int f = 0; ext && f < format::FormatCount(); ++f) {
        const format::FormatDescriptor* d = format::FormatAt(f);
        if (writable && !d->write) continue;
        for (const char* const* s = d->suffixes; *s; ++s)
            if (strcasecmp(ext, *s) == 0) return f;
    }
    return -1;
}

int FindByDescription(const char* description, bool writable) {
    for (int f = 0; description && f < format::FormatCount(); ++f) {
        const format::FormatDescriptor* d = format::FormatAt(f);
        if ((!writable || d->write) && std::strcmp(description, d->description) == 0) return f;
    }
    return -1;
}
} // namespace

int QdxIOPluginRegistry::GetReaderFormatCount() const {
    return format::FormatCount();
}
int QdxIOPluginRegistry::GetWriterFormatCount() const {
    return format::FormatCount();
}

const char* QdxIOPluginRegistry::GetReaderFormatDescription(int f) const {
    const format::FormatDescriptor* d = format::FormatAt(f);
    return d ? d->description : nullptr;
}
const char* QdxIOPluginRegistry::GetWriterFormatDescription(int f) const {
    const format::FormatDescriptor* d = Writer(f);
    return d ? d->description : nullptr;
}
const char* QdxIOPluginRegistry::GetReaderFormatExtension(int f) const {
    const format::FormatDescriptor* d = format::FormatAt(f);
    return d ? d->suffixes[0] : nullptr;
}
const char* QdxIOPluginRegistry::GetWriterFormatExtension(int f) const {
    const format::FormatDescriptor* d = Writer(f);
    return d ? d->suffixes[0] : nullptr;
}
const char** QdxIOPluginRegistry::GetWritableVersions(int f) const {
    const format::FormatDescriptor* d = Writer(f);
    return d ? d->versions : nullptr;
}
const char* QdxIOPluginRegistry::GetFormatName(int f) const {
    const format::FormatDescriptor* d = format::FormatAt(f);
    return d ? d->name : nullptr;
}
int QdxIOPluginRegistry::FindFormatIDByName(const char* name) const {
    for (int f = 0; name && f < format::FormatCount(); ++f)
        if (strcasecmp(name, format::FormatAt(f)->name) == 0) return f;
    return -1;
}
bool QdxIOPluginRegistry::IsBinaryFormat(int f) const {
    const format::FormatDescriptor* d = format::FormatAt(f);
    return d && d->binary;
}

int QdxIOPluginRegistry::FindReaderIDByExtension(const char* ext) const {
    return FindBySuffix(ext, false);
}
int QdxIOPluginRegistry::FindWriterIDByExtension(const char* ext) const {
    return FindBySuffix(ext, true);
}
int QdxIOPluginRegistry::FindReaderIDByDescription(const char* d) const {
    return FindByDescription(d, false);
}
int QdxIOPluginRegistry::FindWriterIDByDescription(const char* d) const {
    return FindByDescription(d, true);
}

bool QdxIOPluginRegistry::DetectReaderFileFormat(const char* fileName, int& format) const {
    format = -1;
    if (!fileName) return false;
    if (FILE* f = std::fopen(fileName, "rb")) {
        uint8_t head[format::kHeadBytes];
        size_t n = std::fread(head, 1, sizeof head, f);
        std::fclose(f);
        for (int i = 0; i < format::FormatCount() && format < 0; ++i)
            if (format::FormatAt(i)->detect(head, n)) format = i;
        if (format >= 0) return true;
    }
    const char* dot = std::strrchr(fileName, '.');
    format = dot ? FindReaderIDByExtension(dot + 1) : -1;
    return format >= 0;
}

} // namespace qdxsdk
