// The two glTF 2.0 descriptors (binary .glb and text .gltf), their content
// checks, and the pieces the glTF reader and writer share.
#include "format_gltf.h"

#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>

#include "qdxsdk/conversion_notes.h"
#include "qdxsdk/gltf_images.h"
#include "qdxsdk/material.h"
#include "qdxsdk/scene.h"

namespace qdxsdk {

std::string QdxGltfImageFolder(const std::string& file) {
    const std::filesystem::path p = std::filesystem::absolute(std::filesystem::path(file));
    return (p.parent_path() / (p.stem().string() + "_images")).lexically_normal().string();
}

bool QdxMoveGltfImages(QdxScene* scene, const std::string& gltfFile, const std::string& output,
                       std::string* error) {
    namespace fs = std::filesystem;
    if (!scene) return true;
    const fs::path from = QdxGltfImageFolder(gltfFile), to = QdxGltfImageFolder(output);
    std::error_code ec;
    const bool same = fs::equivalent(from, to, ec);
    for (int i = 0; i < scene->GetSrcObjectCount<QdxFileTexture>(); ++i) {
        QdxFileTexture* texture = scene->GetSrcObject<QdxFileTexture>(i);
        const fs::path image = fs::path(texture->GetFileName()).lexically_normal();
        if (image.parent_path() != from) continue;
        const fs::path target = to / image.filename();
        if (!same) {
            fs::create_directories(to, ec);
            if (!fs::copy_file(image, target, fs::copy_options::overwrite_existing, ec) || ec) {
                if (error)
                    *error = "cannot copy '" + image.string() + "' to '" + target.string() +
                             "': " + (ec ? ec.message() : std::string("not copied"));
                return false;
            }
        }
        texture->SetFileName(target.string().c_str());
        texture->SetRelativeFileName((to.filename() / image.filename()).string().c_str());
    }
    return true;
}

std::vector<std::string> QdxGetConversionNotes(const QdxScene* scene) {
    std::vector<std::string> notes;
    if (!scene) return notes;
    QdxProperty p = scene->FindProperty(kQdxConversionNotesProperty);
    if (!p.IsValid()) return notes;
    std::istringstream lines(p.Get<QdxString>().Str());
    for (std::string line; std::getline(lines, line);)
        if (!line.empty()) notes.push_back(line);
    return notes;
}

namespace format {

namespace {
const char* const kUVSetNames[kGltfUVSlots] = {"Material UV Set", "Lightmap UV Set", "UV Set 3",
                                               "UV Set 4", "UV Set 5"};
constexpr uint32_t kGlbMagic = 0x46546C67; // "glTF"

uint32_t LoadU32(const uint8_t* p) {
    return uint32_t(p[0]) | uint32_t(p[1]) << 8 | uint32_t(p[2]) << 16 | uint32_t(p[3]) << 24;
}

bool IsGlb(const uint8_t* head, size_t size) {
    return size >= 12 && LoadU32(head) == kGlbMagic;
}

// A JSON object whose first member is one of glTF's top-level properties.
// Writers order members freely (alphabetically puts "accessors" first), so
// "asset" can lie far past the head that detection reads.
bool IsGltfText(const uint8_t* head, size_t size) {
    static const char* const kTopLevel[] = {
        "accessors",      "animations", "asset",      "buffers",
        "bufferViews",    "cameras",    "extensions", "extensionsRequired",
        "extensionsUsed", "extras",     "images",     "materials",
        "meshes",         "nodes",      "samplers",   "scene",
        "scenes",         "skins",      "textures"};
    size_t i = 0;
    if (size >= 3 && head[0] == 0xEF && head[1] == 0xBB && head[2] == 0xBF) i = 3;
    auto skipSpace = [&] {
        while (i < size && head[i] != 0 && std::strchr(" \t\r\n", head[i]))
            ++i;
    };
    skipSpace();
    if (i >= size || head[i] != '{') return false;
    ++i;
    skipSpace();
    if (i >= size || head[i] != '"') return false;
    const size_t start = ++i;
    while (i < size && head[i] != '"')
        ++i;
    if (i >= size) return false;
    const std::string_view name(reinterpret_cast<const char*>(head) + start, i - start);
    for (const char* member : kTopLevel)
        if (name == member) return true;
    return false;
}

bool ReadGlbVersion(const uint8_t* head, size_t size, int& version, QdxStatus& status) {
    if (!IsGlb(head, size)) {
        status.SetCode(QdxStatus::eInvalidFile, "Not a glTF binary file");
        return false;
    }
    uint32_t v = LoadU32(head + 4);
    if (v != 2) {
        status.SetCode(QdxStatus::eInvalidFileVersion, "glTF binary container version " +
                                                           std::to_string(v) +
                                                           " is not supported (only 2)");
        return false;
    }
    version = 2;
    return true;
}

// The asset version is checked when the whole file is read.
bool ReadGltfTextVersion(const uint8_t*, size_t, int& version, QdxStatus&) {
    version = 2;
    return true;
}

const char* kGltfVersions[] = {"2.0", nullptr};
const int kGltfVersionNumbers[] = {2};
const char* const kGlbSuffixes[] = {"glb", nullptr};
const char* const kGltfSuffixes[] = {"gltf", nullptr};
} // namespace

const char* GltfUVSetName(int texCoord) {
    return texCoord >= 0 && texCoord < kGltfUVSlots ? kUVSetNames[texCoord] : nullptr;
}

int GltfTexCoordOfName(const std::string& name) {
    for (int i = 0; i < kGltfUVSlots; ++i)
        if (name == kUVSetNames[i]) return i;
    return -1;
}

std::vector<int> GltfAssignTexCoords(const std::vector<std::string>& names) {
    std::vector<int> result(names.size(), -1);
    bool used[kGltfUVSlots] = {};
    for (size_t i = 0; i < names.size(); ++i) {
        int slot = GltfTexCoordOfName(names[i]);
        if (slot >= 0 && !used[slot]) {
            result[i] = slot;
            used[slot] = true;
        }
    }
    for (size_t i = 0; i < names.size(); ++i) {
        if (result[i] >= 0) continue;
        int slot = 0;
        while (slot < kGltfUVSlots && used[slot])
            ++slot;
        if (slot == kGltfUVSlots) break;
        used[slot] = true;
        result[i] = slot;
    }
    return result;
}

std::string GltfImageMimeType(const uint8_t* data, size_t size) {
    static const uint8_t png[] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A};
    if (size >= sizeof png && std::memcmp(data, png, sizeof png) == 0) return "image/png";
    if (size >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF) return "image/jpeg";
    return std::string();
}

void SetConversionNotes(QdxScene* scene, const std::vector<std::string>& notes) {
    std::string text;
    for (const std::string& note : notes)
        text += note + "\n";
    QdxProperty p = scene->FindProperty(kQdxConversionNotesProperty);
    if (!p.IsValid() && text.empty()) return;
    if (!p.IsValid()) {
        p = QdxProperty::Create(scene, QdxStringDT, kQdxConversionNotesProperty);
        p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
    }
    p.Set(QdxString(text));
}

extern const FormatDescriptor kGltfBinaryFormat;
const FormatDescriptor kGltfBinaryFormat = {
    .description = "glTF 2.0 binary (*.glb)",
    .name = "glb",
    .suffixes = kGlbSuffixes,
    .binary = true,
    .versions = kGltfVersions,
    .versionNumbers = kGltfVersionNumbers,
    .detect = IsGlb,
    .readVersion = ReadGlbVersion,
    .read = ReadGltf,
    .write = WriteGltfBinary,
};

extern const FormatDescriptor kGltfTextFormat;
const FormatDescriptor kGltfTextFormat = {
    .description = "glTF 2.0 (*.gltf)",
    .name = "gltf",
    .suffixes = kGltfSuffixes,
    .binary = false,
    .versions = kGltfVersions,
    .versionNumbers = kGltfVersionNumbers,
    .detect = IsGltfText,
    .readVersion = ReadGltfTextVersion,
    .read = ReadGltf,
    .write = WriteGltfText,
};

} // namespace format
} // namespace qdxsdk
