// A point cache in the common frame-based layout (file format 1 of vertex
// caches): a fixed number of points sampled at regular frame steps.
//
// File layout, little-endian, no padding:
//   char[12] signature "POINTCACHE2\0"
//   int32    version (1)
//   int32    point count
//   float32  start frame
//   float32  sample rate (frames from one sample to the next, > 0)
//   int32    sample count
//   then for each sample, for each point, x y z as float32.
// Points are in the local space of the geometry they deform, in the
// geometry's control point order.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "qdxsdk/types.h"

namespace qdxsdk {

class QdxPointCache {
public:
    static constexpr int kVersion = 1;
    static constexpr size_t kHeaderSize = 32;

    QdxPointCache() = default;
    QdxPointCache(int pointCount, double startFrame, double sampleRate);

    int GetPointCount() const { return mPointCount; }
    int GetSampleCount() const;
    double GetStartFrame() const { return mStartFrame; }
    // Frames between two samples.
    double GetSampleRate() const { return mSampleRate; }
    // Frame of the last sample (the start frame when there is none).
    double GetEndFrame() const;

    // Appends one sample of GetPointCount() points (x, y, z; w is ignored).
    // False, and nothing appended, when the count differs or a coordinate
    // is not finite.
    bool AddSample(const std::vector<QdxVector4>& points);
    // The sample's 3 * GetPointCount() floats, or null out of range.
    const float* GetSample(int index) const;

    // Points at a frame: linear between the two nearest samples, the first
    // or last sample outside the cached range. False when there is no sample.
    bool GetFramePoints(double frame, std::vector<QdxVector4>& points) const;

    // Whole-file reading and writing. Reading checks every count against
    // the data size and rejects non-finite values; on failure the cache is
    // left empty and status says why.
    bool Read(const std::string& path, QdxStatus& status);
    bool ReadFromMemory(const void* data, size_t size, QdxStatus& status);
    bool Write(const std::string& path, QdxStatus& status) const;
    std::vector<unsigned char> WriteToMemory() const;

private:
    int mPointCount = 0;
    double mStartFrame = 0.0, mSampleRate = 1.0;
    std::vector<float> mData;
};

} // namespace qdxsdk
