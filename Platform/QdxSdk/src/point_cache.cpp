// Point caches: frame-based samples of a fixed point set, and their file
// layout (see point_cache.h).
#include "qdxsdk/point_cache.h"

#include <algorithm>
#include <cmath>

#include "cache_bytes.h"
#include "format.h"

namespace qdxsdk {

namespace detail {
bool ReadCacheFile(const std::string& path, std::vector<unsigned char>& bytes, QdxStatus& status) {
    format::MappedFile file;
    if (!file.Open(path, status)) return false;
    bytes.assign(file.Data(), file.Data() + file.Size());
    return true;
}

bool WriteCacheFile(const std::string& path, const std::vector<unsigned char>& bytes,
                    QdxStatus& status) {
    return format::WriteFileAtomically(
        path, [&](const format::Sink& sink) { return sink(bytes.data(), bytes.size()); }, status);
}
} // namespace detail

namespace {
constexpr char kSignature[12] = {'P', 'O', 'I', 'N', 'T', 'C', 'A', 'C', 'H', 'E', '2', '\0'};
const char* const kWhat = "Point cache";
} // namespace

QdxPointCache::QdxPointCache(int pointCount, double startFrame, double sampleRate)
    : mPointCount(std::max(pointCount, 0)), mStartFrame(startFrame),
      mSampleRate(sampleRate > 0 && std::isfinite(sampleRate) ? sampleRate : 1.0) {}

int QdxPointCache::GetSampleCount() const {
    return mPointCount > 0 ? static_cast<int>(mData.size() / (3 * static_cast<size_t>(mPointCount)))
                           : 0;
}

double QdxPointCache::GetEndFrame() const {
    int n = GetSampleCount();
    return n > 1 ? mStartFrame + (n - 1) * mSampleRate : mStartFrame;
}

bool QdxPointCache::AddSample(const std::vector<QdxVector4>& points) {
    if (mPointCount <= 0 || points.size() != static_cast<size_t>(mPointCount)) return false;
    for (const QdxVector4& p : points)
        for (int k = 0; k < 3; ++k)
            if (!std::isfinite(static_cast<float>(p[k]))) return false;
    for (const QdxVector4& p : points)
        for (int k = 0; k < 3; ++k)
            mData.push_back(static_cast<float>(p[k]));
    return true;
}

const float* QdxPointCache::GetSample(int index) const {
    if (index < 0 || index >= GetSampleCount()) return nullptr;
    return mData.data() + static_cast<size_t>(index) * 3 * static_cast<size_t>(mPointCount);
}

bool QdxPointCache::GetFramePoints(double frame, std::vector<QdxVector4>& points) const {
    points.clear();
    int n = GetSampleCount();
    if (n == 0 || !std::isfinite(frame)) return false;
    double at = std::clamp((frame - mStartFrame) / mSampleRate, 0.0, static_cast<double>(n - 1));
    int i0 = static_cast<int>(std::floor(at));
    int i1 = std::min(i0 + 1, n - 1);
    double t = at - i0;
    const float *a = GetSample(i0), *b = GetSample(i1);
    points.resize(static_cast<size_t>(mPointCount));
    for (size_t p = 0; p < points.size(); ++p) {
        double v[3];
        for (size_t k = 0; k < 3; ++k)
            v[k] = a[3 * p + k] + (b[3 * p + k] - a[3 * p + k]) * t;
        points[p] = QdxVector4(v[0], v[1], v[2]);
    }
    return true;
}

bool QdxPointCache::ReadFromMemory(const void* data, size_t size, QdxStatus& status) {
    *this = QdxPointCache();
    detail::CacheByteReader in(data, size);
    char signature[12];
    int32_t version = 0, pointCount = 0, sampleCount = 0;
    float start = 0, rate = 0;
    if (!in.Bytes(signature, sizeof signature) || !in.Field(version) || !in.Field(pointCount) ||
        !in.Field(start) || !in.Field(rate) || !in.Field(sampleCount))
        return detail::CacheFail(status, kWhat, "file shorter than its header");
    if (std::memcmp(signature, kSignature, sizeof kSignature) != 0)
        return detail::CacheFail(status, kWhat, "wrong signature");
    if (version != kVersion)
        return detail::CacheFail(status, kWhat, "unsupported version " + std::to_string(version));
    if (pointCount < 0 || sampleCount < 0)
        return detail::CacheFail(status, kWhat, "negative point or sample count");
    if (!std::isfinite(start) || !std::isfinite(rate) || !(rate > 0))
        return detail::CacheFail(status, kWhat, "start frame or sample rate is not a number > 0");
    // Compare counts with what the data holds before multiplying them.
    size_t perSample = static_cast<size_t>(pointCount) * 12;
    size_t available = in.Remaining();
    if ((perSample != 0 && static_cast<size_t>(sampleCount) > available / perSample) ||
        perSample * static_cast<size_t>(sampleCount) != available)
        return detail::CacheFail(status, kWhat,
                                 "point and sample counts do not match the file size");
    std::vector<float> values(available / sizeof(float));
    in.Bytes(values.data(), available);
    for (float v : values)
        if (!std::isfinite(v))
            return detail::CacheFail(status, kWhat, "a point coordinate is not a finite number");
    mPointCount = pointCount;
    mStartFrame = start;
    mSampleRate = rate;
    mData = std::move(values);
    status.Clear();
    return true;
}

bool QdxPointCache::Read(const std::string& path, QdxStatus& status) {
    std::vector<unsigned char> bytes;
    if (!detail::ReadCacheFile(path, bytes, status)) return false;
    return ReadFromMemory(bytes.data(), bytes.size(), status);
}

std::vector<unsigned char> QdxPointCache::WriteToMemory() const {
    detail::CacheByteWriter out;
    out.Bytes(kSignature, sizeof kSignature);
    out.Field<int32_t>(kVersion);
    out.Field<int32_t>(mPointCount);
    out.Field(static_cast<float>(mStartFrame));
    out.Field(static_cast<float>(mSampleRate));
    out.Field<int32_t>(GetSampleCount());
    out.Bytes(mData.data(), mData.size() * sizeof(float));
    return out.out;
}

bool QdxPointCache::Write(const std::string& path, QdxStatus& status) const {
    return detail::WriteCacheFile(path, WriteToMemory(), status);
}

} // namespace qdxsdk
