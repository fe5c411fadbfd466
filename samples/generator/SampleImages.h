#pragma once
// Procedural texture images for the sample scenes, written as PNG files.
#include <string>

namespace samples {

// Writes paint.png (RGBA), wood.png, floor.png and bumps.png into dir.
// Returns false with a message in error when an image cannot be written.
bool writeSampleImages(const std::string& dir, std::string& error);

} // namespace samples
