// The logical content of a file: objects with properties and arrays, and
// connections. Both flavours encode exactly this, so they convert into each
// other without loss.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "qdxsdk/object.h"
#include "qdxsdk/scene.h"

namespace qdxsdk::format {

constexpr int kOldestVersion = 1;
constexpr int kNewestVersion = 3;

struct FlatProperty {
    std::string name;
    std::string label;
    std::string type; // data type name
    uint32_t flags = 0;
    std::vector<std::string> enumItems;
    detail::Value value;
};

struct FlatArray {
    std::string name;
    detail::ArrayKind kind = detail::ArrayKind::Double;
    const detail::ArrayRec* view = nullptr; // set when capturing a scene
    detail::ArrayRec owned;                 // filled when reading a file
    const detail::ArrayRec& Get() const { return view ? *view : owned; }
};

struct FlatObject {
    std::string className;
    std::string name;
    std::vector<FlatProperty> properties;
    std::vector<FlatArray> arrays;
};

struct FlatConnection {
    uint32_t src = 0;
    uint32_t dst = 0;
    std::string property; // empty: object to object
};

struct FlatDocument {
    int version = kNewestVersion;
    std::vector<FlatObject> objects;
    std::vector<FlatConnection> connections;
};

using Progress = std::function<void(double fraction)>;

// Scene <-> document. Capture views the scene's arrays (the scene must
// outlive the document); Build checks everything and fills target only when
// the whole document is valid.
void Capture(QdxScene* scene, FlatDocument& doc);
bool Build(FlatDocument& doc, QdxScene* target, QdxStatus& status);

// Flavours. Readers check every count, length, index and offset.
bool IsBinary(const uint8_t* data, size_t size);
bool IsText(const uint8_t* data, size_t size);
bool ReadBinaryVersion(const uint8_t* data, size_t size, int& version, QdxStatus& status);
bool ReadTextVersion(const uint8_t* data, size_t size, int& version, QdxStatus& status);
bool ReadBinary(const uint8_t* data, size_t size, FlatDocument& doc, QdxStatus& status,
                const Progress& progress = {});
// As ReadBinary; with a source (the same file, held open), large arrays of
// doubles stay in it until they are used.
class SourceFile;
bool ReadBinaryFrom(const uint8_t* data, size_t size, FlatDocument& doc, QdxStatus& status,
                    const Progress& progress, const std::shared_ptr<SourceFile>& source);
bool ReadText(const uint8_t* data, size_t size, FlatDocument& doc, QdxStatus& status,
              const Progress& progress = {});
// Writers append to a sink; the sink returns false on a write error.
using Sink = std::function<bool(const void* data, size_t size)>;
bool WriteBinary(const FlatDocument& doc, const Sink& sink, QdxStatus& status,
                 const Progress& progress = {});
bool WriteText(const FlatDocument& doc, const Sink& sink, QdxStatus& status,
               const Progress& progress = {});

// Whole files, for the importer, the exporter and the tools.
bool ReadFileBytes(const std::string& path, std::vector<uint8_t>& bytes, QdxStatus& status);

// A file mapped read-only into memory (empty files map to no bytes).
class MappedFile {
public:
    MappedFile() = default;
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;
    ~MappedFile();
    bool Open(const std::string& path, QdxStatus& status);
    const uint8_t* Data() const { return mData; }
    size_t Size() const { return mSize; }
    // The file's identity, so that it can be opened again and recognised.
    uint64_t Device() const { return mDevice; }
    uint64_t Inode() const { return mInode; }

private:
    const uint8_t* mData = nullptr;
    size_t mSize = 0;
    uint64_t mDevice = 0;
    uint64_t mInode = 0;
    void* mMap = nullptr;
};
// Hands back the whole pages of [data, data + size) when they lie in an open
// MappedFile: a reader calls it on input it is done with, to keep its peak
// memory low. Touching those bytes again reads them from the file once more.
// Memory that is not a mapped file is left alone.
void ReleaseMappedBytes(const uint8_t* data, size_t size);

// Writes through a temporary file beside path, renamed into place at the end.
bool WriteFileAtomically(const std::string& path, const std::function<bool(const Sink&)>& body,
                         QdxStatus& status);

uint32_t Crc32(const void* data, size_t size, uint32_t crc = 0);

} // namespace qdxsdk::format
