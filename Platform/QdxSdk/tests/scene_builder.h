// Test scenes: one that holds every class, property type and array kind,
// and object-by-object comparison of two scenes.
#pragma once

#include <string>

#include "qdxsdk/qdxsdk.h"

namespace qdxtest {

// Fills scene with every class, every property type (user-defined ones with
// labels, enums, awkward strings and non-finite numbers), every array kind,
// two animation stacks with layered curves and document information.
void BuildEverythingScene(qdxsdk::QdxScene* scene);

// Empty when the scenes hold the same objects in the same order with
// bit-identical properties, arrays and connections; else the first
// difference.
std::string CompareScenes(qdxsdk::QdxScene* a, qdxsdk::QdxScene* b);

// Writes scene to path with format (0 binary, 1 text) and version 1..3.
bool ExportScene(qdxsdk::QdxScene* scene, const std::string& path, int format, int version,
                 std::string* error = nullptr);
// Reads path into scene (format -1 detects); false with error text on failure.
bool ImportScene(qdxsdk::QdxScene* scene, const std::string& path, std::string* error = nullptr);

// A fresh empty directory under the system temp folder.
std::string MakeTempDir(const std::string& tag);
std::string ReadAll(const std::string& path);
void WriteAll(const std::string& path, const std::string& bytes);

} // namespace qdxtest
