#include "SampleCaches.h"

#include <cmath>
#include <filesystem>

#include "qdxsdk/point_cache.h"
#include "qdxsdk/tove_cache.h"

using namespace qdxsdk;

namespace samples {
namespace {

constexpr double kWidth = 80.0, kHeight = 40.0, kSeconds = 2.0;
constexpr double kFlagFps = 24.0; // the scene's frame rate
constexpr int kPoolSamplesPerSecond = 30;

// Grid control points, row by row, as (u, v) in [0, 1] mapped by place.
template <class Place> std::vector<QdxVector4> grid(Place&& place) {
    std::vector<QdxVector4> points;
    for (int row = 0; row <= kGridRows; ++row)
        for (int column = 0; column <= kGridColumns; ++column)
            points.push_back(place(static_cast<double>(column) / kGridColumns,
                                   static_cast<double>(row) / kGridRows));
    return points;
}

} // namespace

std::vector<std::vector<int>> gridPolygons() {
    std::vector<std::vector<int>> polygons;
    const int stride = kGridColumns + 1;
    for (int row = 0; row < kGridRows; ++row)
        for (int column = 0; column < kGridColumns; ++column) {
            const int a = row * stride + column;
            polygons.push_back({a, a + 1, a + 1 + stride, a + stride});
        }
    return polygons;
}

std::vector<QdxVector4> flagPoints(double seconds) {
    // A travelling wave that grows away from the pole at u = 0.
    return grid([seconds](double u, double v) {
        const double wave = 6.0 * u * std::sin(2.0 * M_PI * (u - seconds));
        return QdxVector4(u * kWidth, v * kHeight, wave);
    });
}

std::vector<QdxVector4> poolPoints(double seconds) {
    // Rings spreading from the pool's centre.
    return grid([seconds](double u, double v) {
        const double x = (u - 0.5) * kWidth, z = (v - 0.5) * kHeight;
        const double r = std::sqrt(x * x + z * z);
        return QdxVector4(x, 2.0 * std::sin(r / 6.0 - 2.0 * M_PI * seconds), z);
    });
}

bool writeSampleCaches(const std::string& dir, std::string& error) {
    std::error_code ec;
    std::filesystem::create_directories(std::filesystem::path(dir) / "caches", ec);
    QdxStatus status;
    const int flagFrames = static_cast<int>(kSeconds * kFlagFps) + 1;
    QdxPointCache flag(static_cast<int>(flagPoints(0.0).size()), 0.0, 1.0);
    for (int frame = 0; frame < flagFrames; ++frame)
        flag.AddSample(flagPoints(frame / kFlagFps));
    const std::string flagPath = (std::filesystem::path(dir) / kFlagCacheFile).string();
    if (!flag.Write(flagPath, status)) {
        error = flagPath + ": " + status.GetErrorString();
        return false;
    }

    QdxToveCache::Channel channel;
    channel.name = "surface";
    channel.pointCount = static_cast<int>(poolPoints(0.0).size());
    channel.intervalTicks = QdxTime::kTicksPerSecond / kPoolSamplesPerSecond;
    for (int i = 0; i <= static_cast<int>(kSeconds) * kPoolSamplesPerSecond; ++i)
        for (const QdxVector4& p : poolPoints(static_cast<double>(i) / kPoolSamplesPerSecond))
            channel.values.insert(channel.values.end(), {p[0], p[1], p[2]});
    QdxToveCache pool;
    const std::string poolPath = (std::filesystem::path(dir) / kPoolCacheFile).string();
    if (!pool.AddChannel(channel, status) || !pool.Write(poolPath, status)) {
        error = poolPath + ": " + status.GetErrorString();
        return false;
    }
    return true;
}

} // namespace samples
