// A file format as the registry, the importer and the exporter see it: one
// descriptor per format, each defined in that format's own source file and
// listed once in the format table (format_table.cpp). The table's order is
// the order of the public format indices.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "format.h"

namespace qdxsdk::format {

// How many leading bytes of a file content checks and version readers see
// (fewer when the file is shorter).
constexpr size_t kHeadBytes = 4096;

// A file read and checked completely, not yet applied to a scene. Reading
// may run on a worker thread; Publish runs on the caller's thread and fills
// target only when the whole content is valid.
class Decoded {
public:
    virtual ~Decoded() = default;
    virtual bool Publish(QdxScene* target, QdxStatus& status) = 0;
};

// The whole file a reader decodes. path names it, for formats that refer to
// files beside it.
struct ReadInput {
    const uint8_t* data = nullptr;
    size_t size = 0;
    std::string path;
    // Identity of the file at path that data holds (0: unknown).
    uint64_t device = 0;
    uint64_t inode = 0;
};

struct FormatDescriptor {
    // "Name (*.suffix)", as the registry lists it.
    const char* description;
    // A short lower-case name for command lines ("binary", "ascii").
    const char* name;
    // File suffixes without the dot, null-terminated; the first one is the
    // format's extension.
    const char* const* suffixes;
    // Whether the encoding is binary rather than text.
    bool binary;
    // Writable version texts, newest first, null-terminated (the array the
    // registry hands out), and the version number of each.
    const char** versions;
    const int* versionNumbers;
    // True when the first bytes of a file are this format's.
    bool (*detect)(const uint8_t* head, size_t size);
    // The file version from the first bytes; false with a status when the
    // file is not this format or its version is unsupported.
    bool (*readVersion)(const uint8_t* head, size_t size, int& version, QdxStatus& status);
    // Reads and checks a whole file; null with a status on failure.
    std::unique_ptr<Decoded> (*read)(const ReadInput& input, QdxStatus& status,
                                     const Progress& progress);
    // Writes scene in a version (one of versionNumbers) to sink; null for a
    // format that cannot be written.
    bool (*write)(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
                  const Progress& progress);
};

// The table: its size and the descriptor at an index (null when out of range).
int FormatCount();
const FormatDescriptor* FormatAt(int index);
// The version number of a version text, 0 when the format does not list it;
// the text of a version number, null when it lists none.
int VersionNumber(const FormatDescriptor& format, const char* text);
const char* VersionText(const FormatDescriptor& format, int number);

// The Qdx flavours decode into a flat document and write one captured from
// the scene; these connect their document readers and writers to a
// descriptor.
std::unique_ptr<Decoded>
DecodeDocument(const ReadInput& input, QdxStatus& status, const Progress& progress,
               bool (*read)(const uint8_t*, size_t, FlatDocument&, QdxStatus&, const Progress&));
bool WriteDocument(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
                   const Progress& progress,
                   bool (*write)(const FlatDocument&, const Sink&, QdxStatus&, const Progress&));
// A document read and checked, waiting to be published.
std::unique_ptr<Decoded> DecodedFrom(FlatDocument doc);
// The two as descriptor entries: ReadDocument<ReadBinary>, WriteDocument<WriteBinary>.
template <auto ReadFn>
std::unique_ptr<Decoded> ReadDocument(const ReadInput& input, QdxStatus& status,
                                      const Progress& progress) {
    return DecodeDocument(input, status, progress, ReadFn);
}
template <auto WriteFn>
bool WriteDocument(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
                   const Progress& progress) {
    return WriteDocument(scene, version, sink, status, progress, WriteFn);
}
// The version texts and numbers both Qdx flavours write.
extern const char* kQdxVersions[];
extern const int kQdxVersionNumbers[];

} // namespace qdxsdk::format
