#pragma once
// Runs the built kestrel program in a shell and collects its exit code,
// standard output and standard error separately.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <nlohmann/json.hpp>

#include "TestUtil.h"

struct AppRun {
    int code = -1;
    std::string out, err;
};

// command: what follows the program's path (arguments, redirections);
// prefix: shell text before it (cd ..., environment).
inline AppRun runApp(const std::string& command, const std::string& prefix = "") {
    TempDir dir;
    const std::string errFile = dir.file("stderr");
    const std::string cmd = prefix + (prefix.empty() ? "" : " ") + "'" KESTREL_APP_PATH "' " +
                            command + " 2>'" + errFile + "'";
    AppRun r;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    std::size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0)
        r.out.append(buf, n);
    const int status = pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream e(errFile);
    std::stringstream ss;
    ss << e.rdbuf();
    r.err = ss.str();
    return r;
}

#ifdef QDX_SAMPLE_GENERATOR
// Writes the sample scene with its textures and caches into dir, so that a
// test sees what the generator makes today; true on success.
inline bool generateSample(const std::string& dir) {
    return std::system(("'" QDX_SAMPLE_GENERATOR "' '" + dir + "' >/dev/null").c_str()) == 0;
}
#endif

// The node named name anywhere below tree (a description printed by
// `kestrel import --json`), or null.
inline const nlohmann::json* findNode(const nlohmann::json& tree, const std::string& name) {
    if (tree.value("name", "") == name) return &tree;
    if (tree.contains("children"))
        for (const nlohmann::json& c : tree["children"])
            if (const nlohmann::json* found = findNode(c, name)) return found;
    return nullptr;
}
