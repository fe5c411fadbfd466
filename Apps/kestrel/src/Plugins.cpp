#include "Plugins.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <system_error>

namespace fs = std::filesystem;

std::vector<std::string> pluginSearchPath(const std::vector<std::string>& explicitDirs) {
    std::vector<std::string> dirs = explicitDirs;
    if (const char* env = std::getenv("KESTREL_PLUGIN_PATH")) {
        std::string s = env;
        std::size_t start = 0;
        while (start <= s.size()) {
            std::size_t colon = s.find(':', start);
            std::string part =
                s.substr(start, colon == std::string::npos ? std::string::npos : colon - start);
            if (!part.empty()) dirs.push_back(part);
            if (colon == std::string::npos) break;
            start = colon + 1;
        }
    }
    std::error_code ec;
    fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        // The build tree keeps plug-ins in lib/kestrel/plugins; an installed
        // tree in the platform's library folder (for example lib/<triplet>).
        for (const char* rel : {"lib/kestrel/plugins", KESTREL_INSTALL_PLUGIN_DIR}) {
            std::string dir = (exe.parent_path() / ".." / rel).lexically_normal().string();
            if (std::find(dirs.begin(), dirs.end(), dir) == dirs.end()) dirs.push_back(dir);
        }
    }
    return dirs;
}

PluginLoadResult loadPlugins(const std::vector<std::string>& dirs) {
    PluginLoadResult result;
    std::set<std::string> seen;
    for (const auto& dir : dirs) {
        std::error_code ec;
        if (!fs::is_directory(dir, ec)) continue;
        std::vector<fs::path> modules;
        for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec))
            if (it->path().extension() == ".so") modules.push_back(it->path());
        std::sort(modules.begin(), modules.end());
        for (const auto& m : modules) {
            std::string real = fs::weakly_canonical(m, ec).string();
            if (ec) real = m.string();
            if (!seen.insert(real).second) continue;
            if (dlopen(real.c_str(), RTLD_NOW | RTLD_LOCAL)) {
                result.loaded.push_back(real);
            } else {
                const char* err = dlerror();
                result.errors.push_back(m.string() + ": " + (err ? err : "unknown error"));
            }
        }
    }
    return result;
}
