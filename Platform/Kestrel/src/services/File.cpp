#include <filesystem>
#include <system_error>

#include <kestrel/ksFile.h>

namespace fs = std::filesystem;

namespace {
std::string lastComponent(const std::string& path) {
    std::size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}
} // namespace

bool ksFile::exists(const std::string& path) {
    if (path.empty()) return false;
    std::error_code ec;
    return fs::exists(fs::path(path), ec);
}

bool ksFile::isDirectory(const std::string& path) {
    std::error_code ec;
    return !path.empty() && fs::is_directory(fs::path(path), ec);
}

std::string ksFile::getFileName(const std::string& path) {
    return lastComponent(path);
}

std::string ksFile::getBaseName(const std::string& path) {
    std::string name = lastComponent(path);
    std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

std::string ksFile::getExtension(const std::string& path) {
    std::string name = lastComponent(path);
    std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? std::string() : name.substr(dot + 1);
}

std::string ksFile::getDirName(const std::string& path) {
    std::size_t slash = path.find_last_of("/\\");
    if (slash == std::string::npos) return ".";
    if (slash == 0) return "/";
    return path.substr(0, slash);
}

std::string ksFile::convertToUnixSeparators(const std::string& path) {
    std::string r = path;
    for (char& c : r)
        if (c == '\\') c = '/';
    return r;
}

std::string ksFile::convertSeparators(const std::string& path) {
    return convertToUnixSeparators(path);
}

std::string ksFile::join(const std::string& dir, const std::string& name) {
    if (dir.empty()) return name;
    if (dir.back() == '/') return dir + name;
    return dir + "/" + name;
}

bool ksFile::mkpath(const std::string& dir) {
    if (dir.empty()) return false;
    std::error_code ec;
    fs::create_directories(fs::path(dir), ec);
    return fs::is_directory(fs::path(dir), ec);
}

bool ksFile::remove(const std::string& path) {
    std::error_code ec;
    return fs::remove(fs::path(path), ec);
}
