// Tove caches: named channels of time-sampled points, their file layout and
// their resampling into frame-based point caches.
//
// file     char[8] "TOVCACHE", u32 version (1), u32 channel count
// channel  u32 name length, name bytes (UTF-8), i32 point count,
//          i32 sample count, i64 start ticks, i64 interval ticks,
//          u32 storage (1 float32, 2 float64), then the coordinates:
//          x y z per point per sample.
// All numbers little-endian. docs/qdx-format.md is the full description.
#include "qdxsdk/tove_cache.h"

#include <algorithm>
#include <cmath>

#include "cache_bytes.h"

namespace qdxsdk {

namespace {
constexpr char kMagic[8] = {'T', 'O', 'V', 'C', 'A', 'C', 'H', 'E'};
constexpr uint32_t kMaxNameLength = 4096;
// Smallest channel record: empty name, no values.
constexpr size_t kMinChannelSize = 4 + 4 + 4 + 8 + 8 + 4;
// Largest point cache a resampling may produce, in coordinates.
constexpr double kMaxResampledValues = 256.0 * 1024 * 1024;
const char* const kWhat = "Tove cache";

size_t ValueCount(const QdxToveCache::Channel& c, int samples) {
    return static_cast<size_t>(c.pointCount) * 3 * static_cast<size_t>(samples);
}

bool CheckChannel(const QdxToveCache::Channel& c, QdxStatus& status) {
    if (c.pointCount < 0) return detail::CacheFail(status, kWhat, "negative point count");
    if (c.intervalTicks <= 0)
        return detail::CacheFail(status, kWhat, "sample interval is not positive");
    if (c.storage != QdxToveCache::eFloat32 && c.storage != QdxToveCache::eFloat64)
        return detail::CacheFail(status, kWhat, "unknown coordinate storage");
    if (c.name.size() > kMaxNameLength)
        return detail::CacheFail(status, kWhat, "channel name too long");
    if (c.pointCount == 0 ? !c.values.empty()
                          : c.values.size() % (3 * static_cast<size_t>(c.pointCount)) != 0)
        return detail::CacheFail(status, kWhat, "values are not whole samples of the points");
    for (double v : c.values)
        if (!std::isfinite(v) ||
            (c.storage == QdxToveCache::eFloat32 && !std::isfinite(static_cast<float>(v))))
            return detail::CacheFail(status, kWhat, "a point coordinate is not a finite number");
    // The last sample's time must not overflow.
    int samples = c.GetSampleCount();
    if (samples > 1 &&
        static_cast<double>(c.startTicks) + static_cast<double>(c.intervalTicks) * (samples - 1) >=
            static_cast<double>(QdxTime::kInfinite))
        return detail::CacheFail(status, kWhat, "channel time range too large");
    return true;
}

template <class T>
bool ReadValues(detail::CacheByteReader& in, size_t count, std::vector<double>& out) {
    std::vector<T> raw(count);
    if (!in.Bytes(raw.data(), count * sizeof(T))) return false;
    out.assign(raw.begin(), raw.end());
    return true;
}
} // namespace

int QdxToveCache::Channel::GetSampleCount() const {
    return pointCount > 0 ? static_cast<int>(values.size() / (3 * static_cast<size_t>(pointCount)))
                          : 0;
}

QdxTime QdxToveCache::Channel::GetStop() const {
    int n = GetSampleCount();
    return QdxTime(n > 1 ? startTicks + intervalTicks * (n - 1) : startTicks);
}

const QdxToveCache::Channel* QdxToveCache::GetChannel(int index) const {
    if (index < 0 || index >= GetChannelCount()) return nullptr;
    return &mChannels[static_cast<size_t>(index)];
}

const QdxToveCache::Channel* QdxToveCache::FindChannel(const std::string& name) const {
    if (name.empty()) return GetChannel(0);
    for (const Channel& c : mChannels)
        if (c.name == name) return &c;
    return nullptr;
}

bool QdxToveCache::AddChannel(const Channel& channel, QdxStatus& status) {
    if (!CheckChannel(channel, status)) return false;
    for (const Channel& c : mChannels)
        if (c.name == channel.name)
            return detail::CacheFail(status, kWhat, "duplicate channel '" + channel.name + "'");
    mChannels.push_back(channel);
    return true;
}

bool QdxToveCache::GetPointsAt(const Channel& channel, QdxTime time,
                               std::vector<QdxVector4>& points) {
    points.clear();
    int n = channel.GetSampleCount();
    if (n == 0 || channel.intervalTicks <= 0) return false;
    double at = (static_cast<double>(time.Get()) - static_cast<double>(channel.startTicks)) /
                static_cast<double>(channel.intervalTicks);
    at = std::clamp(at, 0.0, static_cast<double>(n - 1));
    int i0 = static_cast<int>(std::floor(at));
    int i1 = std::min(i0 + 1, n - 1);
    double t = at - i0;
    size_t stride = 3 * static_cast<size_t>(channel.pointCount);
    const double* a = channel.values.data() + static_cast<size_t>(i0) * stride;
    const double* b = channel.values.data() + static_cast<size_t>(i1) * stride;
    points.resize(static_cast<size_t>(channel.pointCount));
    for (size_t p = 0; p < points.size(); ++p) {
        double v[3];
        for (size_t k = 0; k < 3; ++k)
            v[k] = a[3 * p + k] + (b[3 * p + k] - a[3 * p + k]) * t;
        points[p] = QdxVector4(v[0], v[1], v[2]);
    }
    return true;
}

bool QdxToveCache::ToPointCache(double frameRate, const std::string& channelName,
                                QdxPointCache& out, QdxStatus& status) const {
    out = QdxPointCache();
    if (!(frameRate > 0) || !std::isfinite(frameRate)) {
        status.SetCode(QdxStatus::eInvalidParameter, "frame rate must be a number > 0");
        return false;
    }
    const Channel* c = FindChannel(channelName);
    if (!c) {
        status.SetCode(QdxStatus::eInvalidParameter, "no channel '" + channelName + "'");
        return false;
    }
    if (c->GetSampleCount() == 0) {
        status.SetCode(QdxStatus::eFailure, "channel '" + c->name + "' has no samples");
        return false;
    }
    const double ticks = static_cast<double>(QdxTime::kTicksPerSecond);
    double startFrame = static_cast<double>(c->startTicks) * frameRate / ticks;
    double stopFrame = static_cast<double>(c->GetStop().Get()) * frameRate / ticks;
    // Whole frames inside the range, allowing for rounding in the division;
    // a range shorter than a frame keeps the nearest frame.
    double first = std::ceil(startFrame - 1e-6), last = std::floor(stopFrame + 1e-6);
    if (first > last) first = last = std::round(startFrame);
    double frames = last - first + 1;
    if (frames * 3 * c->pointCount > kMaxResampledValues || std::fabs(first) > 1e7) {
        status.SetCode(QdxStatus::eFailure, "resampled cache would be too large");
        return false;
    }
    QdxPointCache cache(c->pointCount, first, 1.0);
    std::vector<QdxVector4> points;
    for (double f = first; f <= last; f += 1.0) {
        QdxTime t(std::llround(f * ticks / frameRate));
        GetPointsAt(*c, t, points);
        if (!cache.AddSample(points)) {
            status.SetCode(QdxStatus::eFailure, "resampled points are not finite");
            return false;
        }
    }
    out = std::move(cache);
    status.Clear();
    return true;
}

bool QdxToveCache::ReadFromMemory(const void* data, size_t size, QdxStatus& status) {
    mChannels.clear();
    detail::CacheByteReader in(data, size);
    char magic[8];
    uint32_t version = 0, channelCount = 0;
    if (!in.Bytes(magic, sizeof magic) || !in.Field(version) || !in.Field(channelCount))
        return detail::CacheFail(status, kWhat, "file shorter than its header");
    if (std::memcmp(magic, kMagic, sizeof kMagic) != 0)
        return detail::CacheFail(status, kWhat, "wrong signature");
    if (version < 1 || version > static_cast<uint32_t>(kVersion))
        return detail::CacheFail(status, kWhat, "unsupported version " + std::to_string(version));
    if (channelCount > in.Remaining() / kMinChannelSize)
        return detail::CacheFail(status, kWhat, "channel count does not match the file size");
    std::vector<Channel> channels;
    for (uint32_t i = 0; i < channelCount; ++i) {
        Channel c;
        uint32_t nameLength = 0, storage = 0;
        int32_t points = 0, samples = 0;
        if (!in.Field(nameLength) || nameLength > kMaxNameLength || nameLength > in.Remaining())
            return detail::CacheFail(status, kWhat, "bad channel name length");
        c.name.resize(nameLength);
        in.Bytes(c.name.data(), nameLength);
        if (!in.Field(points) || !in.Field(samples) || !in.Field(c.startTicks) ||
            !in.Field(c.intervalTicks) || !in.Field(storage))
            return detail::CacheFail(status, kWhat, "file ends inside a channel header");
        if (points < 0 || samples < 0)
            return detail::CacheFail(status, kWhat, "negative point or sample count");
        c.pointCount = points;
        c.storage = static_cast<EStorage>(storage);
        size_t width = storage == eFloat64 ? 8 : 4;
        size_t perSample = static_cast<size_t>(points) * 3 * width;
        if (perSample != 0 && static_cast<size_t>(samples) > in.Remaining() / perSample)
            return detail::CacheFail(status, kWhat,
                                     "point and sample counts do not match the file size");
        size_t count = ValueCount(c, samples);
        bool ok = storage == eFloat64 ? ReadValues<double>(in, count, c.values)
                                      : ReadValues<float>(in, count, c.values);
        if (!ok) return detail::CacheFail(status, kWhat, "file ends inside channel data");
        if (!CheckChannel(c, status)) return false;
        for (const Channel& other : channels)
            if (other.name == c.name)
                return detail::CacheFail(status, kWhat, "duplicate channel '" + c.name + "'");
        channels.push_back(std::move(c));
    }
    if (in.Remaining() != 0) return detail::CacheFail(status, kWhat, "data after the last channel");
    mChannels = std::move(channels);
    status.Clear();
    return true;
}

bool QdxToveCache::Read(const std::string& path, QdxStatus& status) {
    std::vector<unsigned char> bytes;
    if (!detail::ReadCacheFile(path, bytes, status)) return false;
    return ReadFromMemory(bytes.data(), bytes.size(), status);
}

std::vector<unsigned char> QdxToveCache::WriteToMemory() const {
    detail::CacheByteWriter out;
    out.Bytes(kMagic, sizeof kMagic);
    out.Field<uint32_t>(kVersion);
    out.Field(static_cast<uint32_t>(mChannels.size()));
    for (const Channel& c : mChannels) {
        out.Field(static_cast<uint32_t>(c.name.size()));
        out.Bytes(c.name.data(), c.name.size());
        out.Field<int32_t>(c.pointCount);
        out.Field<int32_t>(c.GetSampleCount());
        out.Field<int64_t>(c.startTicks);
        out.Field<int64_t>(c.intervalTicks);
        out.Field(static_cast<uint32_t>(c.storage));
        size_t count = ValueCount(c, c.GetSampleCount());
        for (size_t i = 0; i < count; ++i)
            if (c.storage == eFloat64)
                out.Field(c.values[i]);
            else
                out.Field(static_cast<float>(c.values[i]));
    }
    return out.out;
}

bool QdxToveCache::Write(const std::string& path, QdxStatus& status) const {
    return detail::WriteCacheFile(path, WriteToMemory(), status);
}

bool QdxToveCache::ConvertFileToPointCache(const std::string& tovePath, const std::string& pc2Path,
                                           double frameRate, const std::string& channel,
                                           QdxStatus& status) {
    QdxToveCache tove;
    QdxPointCache pc2;
    return tove.Read(tovePath, status) && tove.ToPointCache(frameRate, channel, pc2, status) &&
           pc2.Write(pc2Path, status);
}

} // namespace qdxsdk
