#pragma once
// The showroom's vertex-cached content: a flag waving beside the car, whose
// frames are kept in a point cache, and a pool surface rippling, whose
// frames are kept in a Tove cache sampled at 30 per second (not the scene's
// 24 frames per second, so an importer resamples it). Both are grids of
// quads; the cache files live in a "caches" folder beside the scene and the
// scene names them relative to its own folder.
#include <string>
#include <vector>

#include "qdxsdk/types.h"

namespace samples {

inline constexpr const char* kFlagCacheFile = "caches/flag.pc2";
inline constexpr const char* kPoolCacheFile = "caches/pool.tove";

// The quads of a grid of kGridColumns x kGridRows quads over control points
// stored row by row.
inline constexpr int kGridColumns = 8, kGridRows = 4;
std::vector<std::vector<int>> gridPolygons();
// Control points at a time in seconds; time 0 is the rest pose. The flag
// stands in the XY plane (80 x 40 cm) and waves along Z; the pool lies in
// the XZ plane (80 x 40 cm) and ripples along Y.
std::vector<qdxsdk::QdxVector4> flagPoints(double seconds);
std::vector<qdxsdk::QdxVector4> poolPoints(double seconds);

// Writes both cache files below dir; false with a message on failure.
bool writeSampleCaches(const std::string& dir, std::string& error);

} // namespace samples
