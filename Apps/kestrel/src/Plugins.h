#pragma once
// Finding and loading plug-in modules.
#include <string>
#include <vector>

struct PluginLoadResult {
    std::vector<std::string> loaded; // module paths
    std::vector<std::string> errors; // one message per module that failed
};

// Folders searched, in order: explicit folders, the colon-separated
// KESTREL_PLUGIN_PATH, then <folder of the executable>/../lib/kestrel/plugins.
std::vector<std::string> pluginSearchPath(const std::vector<std::string>& explicitDirs);

// Loads every "*.so" of each folder (sorted by name within a folder). A
// module registers its scene file types while it loads. Modules stay loaded
// until the process ends; a module found twice (same real path) loads once.
PluginLoadResult loadPlugins(const std::vector<std::string>& dirs);
