// Reading arrays back from the file they were left in.
#include "source_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qdxsdk::format {

std::shared_ptr<SourceFile> SourceFile::Open(const std::string& path, uint64_t device,
                                             uint64_t inode, uint64_t size) {
    if (path.empty() || inode == 0) return nullptr;
    int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode) ||
        static_cast<uint64_t>(st.st_dev) != device || static_cast<uint64_t>(st.st_ino) != inode ||
        static_cast<uint64_t>(st.st_size) != size) {
        ::close(fd);
        return nullptr;
    }
    return std::shared_ptr<SourceFile>(new SourceFile(fd));
}

SourceFile::~SourceFile() {
    ::close(mFd);
}

bool SourceFile::Read(void* out, size_t size, uint64_t offset) const {
    auto* p = static_cast<uint8_t*>(out);
    while (size > 0) {
        if (offset > static_cast<uint64_t>(INT64_MAX)) return false;
        ssize_t n = ::pread(mFd, p, size, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        p += n;
        size -= static_cast<size_t>(n);
        offset += static_cast<uint64_t>(n);
    }
    return true;
}

} // namespace qdxsdk::format
