#include "SceneImporter.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <kestrel/ksConstraintManager.h>
#include <kestrel/osg/SceneFileHandler.h>

#include "OutputCapture.h"
#include "Progress.h"

namespace fs = std::filesystem;

namespace {

// Changes the current folder for its lifetime.
class CurrentFolder {
public:
    explicit CurrentFolder(const fs::path& folder) {
        std::error_code ec;
        _saved = fs::current_path(ec);
        if (!ec && !folder.empty()) {
            fs::current_path(folder, ec);
            _changed = !ec;
        }
    }
    ~CurrentFolder() {
        std::error_code ec;
        if (_changed) fs::current_path(_saved, ec);
    }
    CurrentFolder(const CurrentFolder&) = delete;
    CurrentFolder& operator=(const CurrentFolder&) = delete;

private:
    fs::path _saved;
    bool _changed = false;
};

// A temporary folder whose entries link to the entries of several folders
// (the first folder that has a name wins), removed with the object.
class UnionFolder {
public:
    explicit UnionFolder(const std::vector<fs::path>& folders) {
        char name[] = "/tmp/kestrel-textures-XXXXXX";
        if (!::mkdtemp(name)) return;
        _path = name;
        for (const auto& folder : folders) {
            std::error_code ec;
            for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
                fs::path link = _path / it->path().filename();
                std::error_code lec;
                if (!fs::exists(fs::symlink_status(link, lec)))
                    fs::create_symlink(fs::absolute(it->path(), lec), link, lec);
            }
        }
    }
    ~UnionFolder() {
        std::error_code ec;
        if (!_path.empty()) fs::remove_all(_path, ec);
    }
    UnionFolder(const UnionFolder&) = delete;
    UnionFolder& operator=(const UnionFolder&) = delete;
    const fs::path& path() const { return _path; }

private:
    fs::path _path;
};

// The text between the first pair of single quotes after prefix, when line
// starts with it.
bool quotedAfter(const std::string& line, const char* prefix, std::string& out) {
    const std::size_t n = std::strlen(prefix);
    if (line.compare(0, n, prefix) != 0) return false;
    const std::size_t end = line.rfind('\'');
    if (end == std::string::npos || end < n) return false;
    out = line.substr(n, end - n);
    return true;
}

} // namespace

SceneImporter::SceneImporter(std::vector<std::string> texturePaths, bool progress)
    : _texturePaths(std::move(texturePaths)), _progress(progress) {}

std::string SceneImporter::checkReadable(const std::string& file) {
    std::error_code ec;
    if (fs::is_directory(file, ec)) return "cannot read '" + file + "': " + std::strerror(EISDIR);
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        int e = errno ? errno : ENOENT;
        return "cannot read '" + file + "': " + std::strerror(e);
    }
    return std::string();
}

ImportResult SceneImporter::import(const std::string& file) const {
    ImportResult r;
    auto& h = osg::SceneFileHandler::the();
    osg::SceneFileType* type = h.getFileTypeForFile(file.c_str());
    if (!type || !type->canRead()) {
        r.error = "no plug-in reads this suffix: '" + file + "' (see 'kestrel formats')";
        return r;
    }
    r.error = checkReadable(file);
    if (!r.error.empty()) return r;

    std::error_code ec;
    const fs::path absolute = fs::absolute(file, ec);
    const fs::path sceneFolder = absolute.parent_path();
    std::vector<fs::path> folders{sceneFolder};
    for (const auto& p : _texturePaths)
        folders.push_back(fs::absolute(p, ec));

    const auto start = std::chrono::steady_clock::now();
    {
        std::unique_ptr<UnionFolder> union_;
        if (!_texturePaths.empty()) union_ = std::make_unique<UnionFolder>(folders);
        CurrentFolder cd(union_ && !union_->path().empty() ? union_->path() : sceneFolder);
        OutputCapture capture;
        {
            ProgressBar bar(file, _progress);
            r.root = h.read(absolute.c_str());
        }
        r.diagnostics = capture.finish();
    }
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (!r.root) r.error = h.getLastError();
    // The scene as the host shows it: aim constraints turn cameras and lights
    // towards their targets before anything is printed, drawn or written.
    else
        ksConstraintManager::the().evaluate(r.root);

    // The loader names each texture it cannot find or load on a line of its
    // own output.
    for (const auto& line : r.diagnostics) {
        std::string path;
        if (quotedAfter(line, "Couldn't find texture '", path) ||
            quotedAfter(line, "Couldn't load texture '", path))
            r.missingTextures.push_back(path);
        else if (quotedAfter(line, "Loaded texture '", path))
            r.loadedTextures.push_back(path);
    }
    return r;
}
