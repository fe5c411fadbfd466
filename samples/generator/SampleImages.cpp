#include "SampleImages.h"

#include <cmath>
#include <functional>
#include <vector>

#include <kestrel/ksFile.h>
#include <kestrel/osg/Image.h>

namespace samples {
namespace {

using Pixel = std::function<void(unsigned x, unsigned y, unsigned char* out)>;

bool writeImage(const std::string& path, unsigned size, unsigned channels, const Pixel& pixel,
                std::string& error) {
    std::vector<unsigned char> data(static_cast<size_t>(size) * size * channels);
    for (unsigned y = 0; y < size; ++y)
        for (unsigned x = 0; x < size; ++x)
            pixel(x, y, &data[(static_cast<size_t>(y) * size + x) * channels]);
    auto image = osg::Image::create();
    if (!image->set(size, size, channels, osg::Image::UInt8Type, data.data()) ||
        !image->write(path)) {
        error = path + ": " + image->getLastError();
        return false;
    }
    return true;
}

unsigned char byte(double v) {
    return static_cast<unsigned char>(std::lround(std::fmin(std::fmax(v, 0.0), 1.0) * 255.0));
}

} // namespace

bool writeSampleImages(const std::string& dir, std::string& error) {
    if (!ksFile::mkpath(dir)) {
        error = "cannot create " + dir;
        return false;
    }
    // Car paint: a metallic gradient whose alpha fades towards the bottom.
    const bool paint = writeImage(
        ksFile::join(dir, "paint.png"), 64, 4,
        [](unsigned x, unsigned y, unsigned char* p) {
            const double t = y / 63.0;
            p[0] = byte(0.55 + 0.4 * t);
            p[1] = byte(0.05 + 0.1 * std::sin(x * 0.2));
            p[2] = byte(0.1);
            p[3] = byte(1.0 - 0.5 * t);
        },
        error);
    // Wood: rings around a point outside the image.
    const bool wood = paint && writeImage(
                                   ksFile::join(dir, "wood.png"), 64, 3,
                                   [](unsigned x, unsigned y, unsigned char* p) {
                                       const double r = std::hypot(x + 20.0, y * 0.3 + 5.0);
                                       const double ring = 0.5 + 0.5 * std::sin(r * 0.9);
                                       p[0] = byte(0.45 + 0.25 * ring);
                                       p[1] = byte(0.28 + 0.15 * ring);
                                       p[2] = byte(0.12 + 0.05 * ring);
                                   },
                                   error);
    // Floor tiles: a checker board.
    const bool floor = wood && writeImage(
                                   ksFile::join(dir, "floor.png"), 32, 3,
                                   [](unsigned x, unsigned y, unsigned char* p) {
                                       const bool dark = ((x / 8) + (y / 8)) % 2 == 1;
                                       p[0] = p[1] = p[2] = dark ? 60 : 200;
                                   },
                                   error);
    // Bumps: a grey-scale height field.
    return floor && writeImage(
                        ksFile::join(dir, "bumps.png"), 32, 1,
                        [](unsigned x, unsigned y, unsigned char* p) {
                            p[0] = byte(0.5 + 0.25 * std::sin(x * 0.6) * std::cos(y * 0.6));
                        },
                        error);
}

} // namespace samples
