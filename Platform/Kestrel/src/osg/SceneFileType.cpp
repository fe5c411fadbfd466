#include <algorithm>
#include <cctype>
#include <cstdio>
#include <exception>
#include <fstream>
#include <sstream>
#include <unistd.h>

#include <kestrel/osg/SceneFileHandler.h>
#include <kestrel/osg/SceneFileType.h>

namespace osg {

namespace {
// Writes data beside the target and renames it into place, so that readers
// never see a half-written file and a failure leaves an existing file as it
// was.
bool replaceFile(const char* fileName, const std::string& data) {
    const std::string tmp = std::string(fileName) + ".tmp" + std::to_string(::getpid());
    {
        std::ofstream out(tmp, std::ios::binary | std::ios::trunc);
        if (!out) return false;
        out.write(data.data(), static_cast<std::streamsize>(data.size()));
        out.flush();
        if (!out) {
            out.close();
            std::remove(tmp.c_str());
            return false;
        }
    }
    if (std::rename(tmp.c_str(), fileName) != 0) {
        std::remove(tmp.c_str());
        return false;
    }
    return true;
}
} // namespace

SceneFileType::SceneFileType(const char* suffixArray[], UInt16 suffixByteCount, bool override,
                             UInt32 overridePriority, UInt32 flags)
    : _override(override), _priority(overridePriority), _flags(flags) {
    std::size_t n = suffixByteCount / sizeof(const char*);
    for (std::size_t i = 0; i < n && suffixArray; ++i)
        if (suffixArray[i]) _suffixes.emplace_back(suffixArray[i]);
    SceneFileHandler::the().addSceneFileType(*this);
}

SceneFileType::~SceneFileType() {
    SceneFileHandler::the().subSceneFileType(*this);
}

NodePtr SceneFileType::read(std::istream&, const char*) const {
    return NodePtr();
}
bool SceneFileType::write(const NodePtr&, std::ostream&, const char*) const {
    return false;
}

NodePtr SceneFileType::readFile(const char* fileName) const {
    if (!fileName) return NodePtr();
    std::ifstream in(fileName, std::ios::binary);
    if (!in) return NodePtr();
    return read(in, fileName);
}

bool SceneFileType::writeFile(const NodePtr& node, const char* fileName) const {
    if (!fileName) return false;
    // Types that write by file name leave the stream empty and own the file
    // themselves. What a type puts into the stream reaches the file only
    // after the whole write succeeded.
    std::ostringstream buffer(std::ios::binary);
    if (!write(node, buffer, fileName)) return false;
    if (buffer.tellp() <= 0) return true;
    return replaceFile(fileName, buffer.str());
}

} // namespace osg
