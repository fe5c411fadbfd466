// Little-endian field reading and writing shared by the vertex-cache file
// readers and writers. Reading never goes past the end of the data.
#pragma once

#include <bit>
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

// Whole-file helpers over the SDK's file access.
bool ReadCacheFile(const std::string& path, std::vector<unsigned char>& bytes, QdxStatus& status);
bool WriteCacheFile(const std::string& path, const std::vector<unsigned char>& bytes,
                    QdxStatus& status);

} // namespace qdxsdk::detail
