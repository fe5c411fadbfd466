// A file the binary reader has read, held open so that arrays left in it can
// be read later. Reads go through pread, not a mapping: a file that shrinks
// under us gives a short read, an error, and never a fault on a page.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace qdxsdk::format {

class SourceFile {
public:
    // Opens path and keeps it only when it is still the file that was read
    // (same device, inode and size); null otherwise.
    static std::shared_ptr<SourceFile> Open(const std::string& path, uint64_t device,
                                            uint64_t inode, uint64_t size);
    ~SourceFile();
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;
    // Reads exactly size bytes at offset; false on an error or a short read.
    bool Read(void* out, size_t size, uint64_t offset) const;

private:
    explicit SourceFile(int fd) : mFd(fd) {}
    int mFd;
};

} // namespace qdxsdk::format
