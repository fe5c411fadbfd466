#pragma once
// A temporary folder removed with its contents when the object dies.
#include <cstdlib>
#include <filesystem>
#include <string>

class TempDir {
public:
    TempDir() {
        std::string tmpl =
            (std::filesystem::temp_directory_path() / "kestrel-test-XXXXXX").string();
        char* made = mkdtemp(tmpl.data());
        _path = made ? made : "";
    }
    ~TempDir() {
        std::error_code ec;
        if (!_path.empty()) std::filesystem::remove_all(_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return _path; }
    std::string file(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};
