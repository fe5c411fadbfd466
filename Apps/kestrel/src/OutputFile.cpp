#include "OutputFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace fs = std::filesystem;

OutputFile::OutputFile(const std::string& input, const std::string& output, bool noClobber)
    : _path(output) {
    std::error_code ec;
    const bool exists = fs::exists(output, ec);
    if (exists && noClobber) {
        _error = "'" + output + "' exists (--no-clobber)";
        return;
    }
    if (exists && fs::equivalent(input, output, ec)) {
        _error = "will not write over the input '" + input + "'";
        return;
    }
    if (fs::is_symlink(fs::symlink_status(output, ec))) {
        // A dangling link is followed too: the file appears where it points.
        fs::path target = fs::read_symlink(output, ec);
        for (int hops = 0; !ec && hops < 40; ++hops) {
            if (target.is_relative()) target = fs::path(output).parent_path() / target;
            _path = target.lexically_normal().string();
            if (!fs::is_symlink(fs::symlink_status(_path, ec))) break;
            target = fs::read_symlink(_path, ec);
        }
    }
    if (fs::is_directory(_path, ec)) {
        _error = "cannot write '" + output + "': " + std::strerror(EISDIR);
        return;
    }
    fs::file_status st = fs::status(_path, ec);
    if (!ec && fs::is_regular_file(st)) {
        _hadFile = true;
        _mode = st.permissions();
    }
    _error = checkWritable(_path);
    if (!_error.empty() && _path != output) _error += " (through the link '" + output + "')";
}

void OutputFile::restoreMode() const {
    if (!_hadFile) return;
    std::error_code ec;
    fs::permissions(_path, _mode, fs::perm_options::replace, ec);
}

std::string OutputFile::checkWritable(const std::string& output) {
    fs::path folder = fs::path(output).parent_path();
    if (folder.empty()) folder = ".";
    std::error_code ec;
    if (!fs::exists(folder, ec))
        return "cannot write '" + output + "': " + std::strerror(ENOENT) + " (folder '" +
               folder.string() + "')";
    if (!fs::is_directory(folder, ec))
        return "cannot write '" + output + "': " + std::strerror(ENOTDIR);
    if (::access(folder.c_str(), W_OK | X_OK) != 0)
        return "cannot write '" + output + "': " + std::strerror(errno);
    return std::string();
}
