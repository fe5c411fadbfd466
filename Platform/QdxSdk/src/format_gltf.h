// Pieces the glTF reader and writer share: the UV slot table, the image
// kinds glTF carries, and the notes that list what a conversion could not
// carry.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "format_descriptor.h"

namespace qdxsdk::format {

// How many TEXCOORD_n sets map onto UV sets (the host's texture slots).
constexpr int kGltfUVSlots = 5;
// The UV set name of TEXCOORD_n (n < kGltfUVSlots), the host's slot names.
const char* GltfUVSetName(int texCoord);
// The TEXCOORD index of a reserved UV set name, -1 for any other name.
int GltfTexCoordOfName(const std::string& name);
// TEXCOORD indices for a mesh's UV set names in order: reserved names take
// their own index, the others the smallest free one; -1 when none is left.
std::vector<int> GltfAssignTexCoords(const std::vector<std::string>& names);

// "image/png" or "image/jpeg" by the first bytes, empty for anything else.
std::string GltfImageMimeType(const uint8_t* data, size_t size);

// Replaces the scene's conversion notes with these lines.
void SetConversionNotes(QdxScene* scene, const std::vector<std::string>& notes);

// The two descriptors' readers and writers.
std::unique_ptr<Decoded> ReadGltf(const ReadInput& input, QdxStatus& status,
                                  const Progress& progress);
bool WriteGltfText(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
                   const Progress& progress);
bool WriteGltfBinary(QdxScene* scene, int version, const Sink& sink, QdxStatus& status,
                     const Progress& progress);

} // namespace qdxsdk::format
