#pragma once
// File-name utilities. All functions take and return UTF-8 paths; none throws.
#include <string>

class ksFile {
public:
    // True when path names an existing file or directory.
    static bool exists(const std::string& path);
    static bool isDirectory(const std::string& path);
    // The last path component without its last suffix: "a/b/car.qdx" -> "car".
    static std::string getBaseName(const std::string& path);
    // The last path component: "a/b/car.qdx" -> "car.qdx".
    static std::string getFileName(const std::string& path);
    // The text after the last dot of the last component, as written
    // ("a/b/car.QDX" -> "QDX"); empty when there is none.
    static std::string getExtension(const std::string& path);
    // The directory part ("a/b/car.qdx" -> "a/b"; "car.qdx" -> ".").
    static std::string getDirName(const std::string& path);
    // Back-slashes become forward slashes.
    static std::string convertToUnixSeparators(const std::string& path);
    // Separators become the platform's own ('/' here).
    static std::string convertSeparators(const std::string& path);
    static std::string join(const std::string& dir, const std::string& name);
    // Creates a directory and its parents; true when it exists afterwards.
    static bool mkpath(const std::string& dir);
    static bool remove(const std::string& path);
};
