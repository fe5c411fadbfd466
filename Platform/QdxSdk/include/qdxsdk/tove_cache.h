// The Tove cache (file format 2 of vertex caches): named channels of
// points sampled at regular times, with times in ticks (QdxTime). See
// docs/qdx-format.md for the byte layout.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qdxsdk/point_cache.h"
#include "qdxsdk/time.h"
#include "qdxsdk/types.h"

namespace qdxsdk {

class QdxToveCache {
public:
    static constexpr int kVersion = 1;
    // Storage of a channel's coordinates in the file.
    enum EStorage { eFloat32 = 1, eFloat64 = 2 };

    struct Channel {
        std::string name;
        int pointCount = 0;
        long long startTicks = 0;    // time of the first sample
        long long intervalTicks = 0; // time between samples, > 0
        EStorage storage = eFloat32;
        std::vector<double> values; // x y z per point per sample
        int GetSampleCount() const;
        QdxTime GetStart() const { return QdxTime(startTicks); }
        QdxTime GetStop() const; // time of the last sample
    };

    int GetChannelCount() const { return static_cast<int>(mChannels.size()); }
    const Channel* GetChannel(int index) const;
    // The channel of that name; an empty name gives the first channel.
    const Channel* FindChannel(const std::string& name) const;
    // Adds a channel after checking it (unique name, counts, interval,
    // finite values); false with status on a bad channel.
    bool AddChannel(const Channel& channel, QdxStatus& status);

    // Points of a channel at a time: linear between the two nearest
    // samples, the first or last sample outside the channel's range.
    static bool GetPointsAt(const Channel& channel, QdxTime time, std::vector<QdxVector4>& points);

    // Resamples a channel (empty name: the first) at every whole frame of
    // frameRate inside the channel's time range, giving a point cache whose
    // start frame is the first such frame and whose sample rate is 1.
    bool ToPointCache(double frameRate, const std::string& channel, QdxPointCache& out,
                      QdxStatus& status) const;

    bool Read(const std::string& path, QdxStatus& status);
    bool ReadFromMemory(const void* data, size_t size, QdxStatus& status);
    bool Write(const std::string& path, QdxStatus& status) const;
    std::vector<unsigned char> WriteToMemory() const;

    // Reads a Tove cache file and writes the point cache file of one of its
    // channels at frameRate.
    static bool ConvertFileToPointCache(const std::string& tovePath, const std::string& pc2Path,
                                        double frameRate, const std::string& channel,
                                        QdxStatus& status);

private:
    std::vector<Channel> mChannels;
};

} // namespace qdxsdk
