// Little-endian field reading and writing shared by the vertex-cache file
// readers and writers. Reading never goes past the end of the data.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "qdxsdk/types.h"

namespace qdxsdk::detail {

static_assert(std::endian::native == std::endian::little, "cache files are little-endian");

class CacheByteReader {
public:
    CacheByteReader(const void* data, size_t size)
        : mData(static_cast<const unsigned char*>(data)), mSize(data ? size : 0) {}
    size_t Remaining() const { return mSize - mPos; }
    bool Bytes(void* out, size_t n) {
        if (n > Remaining()) return false;
        if (n) std::memcpy(out, mData + mPos, n);
        mPos += n;
        return true;
    }
    template <class T> bool Field(T& v) { return Bytes(&v, sizeof v); }

private:
    const unsigned char* mData;
    size_t mSize, mPos = 0;
};

class CacheByteWriter {
public:
    void Bytes(const void* p, size_t n) {
        if (!n) return;
        const auto* c = static_cast<const unsigned char*>(p);
        out.insert(out.end(), c, c + n);
    }
    template <class T> void Field(T v) { Bytes(&v, sizeof v); }
    std::vector<unsigned char> out;
};

inline bool CacheFail(QdxStatus& status, const std::string& what, const std::string& text) {
    status.SetCode(QdxStatus::eInvalidFile, what + ": " + text);
    return false;
}

// Points at a fractional sample position `at` (clamped to the samples) of
// count samples, each `points` x y z triples starting at data.
template <class T>
void BlendSamples(const T* data, int count, size_t points, double at,
                  std::vector<QdxVector4>& out) {
    at = std::clamp(at, 0.0, static_cast<double>(count - 1));
    int i0 = static_cast<int>(std::floor(at));
    int i1 = std::min(i0 + 1, count - 1);
    double t = at - i0;
    const T* a = data + static_cast<size_t>(i0) * 3 * points;
    const T* b = data + static_cast<size_t>(i1) * 3 * points;
    out.resize(points);
    for (size_t p = 0; p < points; ++p) {
        double v[3];
        for (size_t k = 0; k < 3; ++k)
            v[k] = a[3 * p + k] + (b[3 * p + k] - a[3 * p + k]) * t;
        out[p] = QdxVector4(v[0], v[1], v[2]);
    }
}

// Whole-file helpers over the SDK's file access.
bool ReadCacheFile(const std::string& path, std::vector<unsigned char>& bytes, QdxStatus& status);
bool WriteCacheFile(const std::string& path, const std::vector<unsigned char>& bytes,
                    QdxStatus& status);

} // namespace qdxsdk::detail
