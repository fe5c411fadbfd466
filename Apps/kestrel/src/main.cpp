// kestrel: the stand-alone host program.
//
//   kestrel formats                 list the scene file types of the plug-ins
//   kestrel import FILE             import FILE and print its scene graph
//   kestrel convert IN OUT          import IN and export it as OUT
//
// Exit codes: 0 success, 1 failure (message on stderr), 2 usage errors.
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <kestrel/ksFile.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/SceneFileHandler.h>

#include "Plugins.h"
#include "Progress.h"
#include "SceneReport.h"

namespace {

struct Settings {
    std::vector<std::string> pluginDirs;
    std::string unit = "mm";
    std::string up = "z";
    std::vector<std::string> options;
    bool verbose = false;
    bool noProgress = false;
};

// The host keeps import options under a suffix's upper-case spelling and
// export options under its lower-case spelling; the convenience flags follow
// that so they reach the plug-in that handles the file.
void setOptionsForFile(const std::string& file, const std::string& options, bool forImport) {
    std::string suffix = ksFile::getExtension(file);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(), [&](unsigned char c) {
        return static_cast<char>(forImport ? std::toupper(c) : std::tolower(c));
    });
    osg::SceneFileHandler::the().setOptions(suffix.c_str(), options.c_str());
}

int fail(const std::string& message) {
    std::cerr << "kestrel: " << message << "\n";
    return 1;
}

// Loads the plug-ins and applies the host settings; empty on success.
std::string prepare(const Settings& s) {
    ksLog::setMinimumLevel(s.verbose ? ksLog::Info : ksLog::Warning);
    PluginLoadResult r = loadPlugins(pluginSearchPath(s.pluginDirs));
    for (const auto& e : r.errors)
        std::cerr << "kestrel: cannot load plug-in " << e << "\n";
    if (s.verbose)
        for (const auto& m : r.loaded)
            std::cerr << "kestrel: loaded " << m << "\n";

    ksSceneData* scene = ksSceneDataManager::getSceneData(0);
    int unit = ksSceneData::parseLengthUnit(s.unit);
    if (unit < 0) return "unknown length unit '" + s.unit + "' (mm, cm, dm, m, km, in, ft, yd, mi)";
    scene->setLengthUnit(unit);
    if (s.up == "z" || s.up == "Z")
        scene->setUpAxis(ksSceneData::ZUp);
    else if (s.up == "y" || s.up == "Y")
        scene->setUpAxis(ksSceneData::YUp);
    else
        return "unknown up axis '" + s.up + "' (y or z)";

    for (const auto& o : s.options) {
        std::size_t eq = o.find('=');
        if (eq == std::string::npos || eq == 0)
            return "option strings are given as SUFFIX=OPTIONS, not '" + o + "'";
        osg::SceneFileHandler::the().setOptions(o.substr(0, eq).c_str(), o.substr(eq + 1).c_str());
    }
    return std::string();
}

int runFormats(bool asJson) {
    auto& h = osg::SceneFileHandler::the();
    nlohmann::json list = nlohmann::json::array();
    for (osg::SceneFileType* t : h.getFileTypes()) {
        nlohmann::json e;
        e["name"] = t->getName();
        nlohmann::json suffixes = nlohmann::json::array();
        for (const auto& sfx : t->suffixList()) {
            nlohmann::json sj;
            sj["suffix"] = sfx;
            sj["active"] = h.getFileType(sfx.c_str()) == t;
            suffixes.push_back(sj);
        }
        e["suffixes"] = suffixes;
        e["read"] = t->canRead();
        e["write"] = t->canWrite();
        e["priority"] = t->getOverridePriority();
        list.push_back(e);
    }
    if (asJson) {
        std::cout << list.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
        return 0;
    }
    if (list.empty()) {
        std::cout << "no scene file types registered (no plug-ins found)\n";
        return 0;
    }
    for (const auto& e : list) {
        std::cout << e["name"].get<std::string>() << "  [";
        bool first = true;
        for (const auto& sj : e["suffixes"]) {
            std::cout << (first ? "" : " ") << sj["suffix"].get<std::string>()
                      << (sj["active"].get<bool>() ? "" : " (taken by another type)");
            first = false;
        }
        std::cout << "]  " << (e["read"].get<bool>() ? "read" : "")
                  << (e["read"].get<bool>() && e["write"].get<bool>() ? "/" : "")
                  << (e["write"].get<bool>() ? "write" : "") << "\n";
    }
    return 0;
}

// While plug-ins run, whatever they print to standard output goes to standard
// error instead, so that standard output carries only the program's result
// (a tree or JSON that scripts parse).
class PluginOutputToStderr {
public:
    PluginOutputToStderr() {
        std::cout.flush();
        std::fflush(stdout);
        _saved = ::dup(STDOUT_FILENO);
        if (_saved >= 0) ::dup2(STDERR_FILENO, STDOUT_FILENO);
    }
    ~PluginOutputToStderr() {
        std::cout.flush();
        std::fflush(stdout);
        if (_saved >= 0) {
            ::dup2(_saved, STDOUT_FILENO);
            ::close(_saved);
        }
    }
    PluginOutputToStderr(const PluginOutputToStderr&) = delete;
    PluginOutputToStderr& operator=(const PluginOutputToStderr&) = delete;

private:
    int _saved = -1;
};

osg::NodePtr importFile(const std::string& file, bool progress, std::string& error) {
    auto& h = osg::SceneFileHandler::the();
    osg::SceneFileType* type = h.getFileTypeForFile(file.c_str());
    if (!type || !type->canRead()) {
        error = "no plug-in reads this suffix: '" + file + "' (see 'kestrel formats')";
        return osg::NodePtr();
    }
    osg::NodePtr node;
    {
        PluginOutputToStderr quiet;
        ProgressBar bar(file, progress);
        node = h.read(file.c_str());
    }
    if (!node) error = h.getLastError();
    return node;
}

} // namespace

int run(int argc, char** argv) {
    CLI::App app{"Kestrel host: loads scene-file plug-ins, imports, prints and converts scenes."};
    app.require_subcommand(1);
    Settings s;
    app.add_option("--plugin-dir", s.pluginDirs,
                   "Folder of plug-in modules (repeatable); searched "
                   "before KESTREL_PLUGIN_PATH and the default folder");
    app.add_option("--unit", s.unit, "Scene length unit: mm, cm, dm, m, km, in, ft, yd, mi")
        ->capture_default_str();
    app.add_option("--up", s.up, "Scene up axis: y or z")->capture_default_str();
    app.add_option("--options", s.options,
                   "Option string for a suffix, SUFFIX=OPTIONS (repeatable); the suffix is "
                   "stored exactly as written (case matters), e.g. "
                   "--options QDX=flush_transforms,enable_metadata=false");
    app.add_flag("-v,--verbose", s.verbose, "Show informational log messages");
    app.add_flag("--no-progress", s.noProgress, "No progress bar");

    auto* formats = app.add_subcommand("formats", "List the registered scene file types");
    bool formatsJson = false;
    formats->add_flag("--json", formatsJson, "Print as JSON");
    formats->fallthrough();

    auto* import = app.add_subcommand("import", "Import a scene file and print its scene graph");
    std::string inFile;
    bool asJson = false, stats = false;
    import->add_option("FILE", inFile, "Scene file to import")->required();
    import->add_flag("--json", asJson, "Print the scene graph as JSON");
    import->add_flag("--stats", stats, "Print statistics instead of the tree");
    std::string importOptions, exportOptions;
    import->add_option("--import-options", importOptions,
                       "Import option string for FILE's suffix, e.g. flush_transforms");
    import->fallthrough();

    auto* convert = app.add_subcommand("convert", "Import IN and export it as OUT");
    std::string convIn, convOut;
    convert->add_option("IN", convIn, "Scene file to import")->required();
    convert->add_option("OUT", convOut, "Scene file to write (its suffix picks the writer)")
        ->required();
    convert->add_option("--import-options", importOptions,
                        "Import option string for IN's suffix, e.g. enable_metadata=false");
    convert->add_option("--export-options", exportOptions,
                        "Export option string for OUT's suffix, e.g. "
                        "qdx_format=ascii,qdx_version=QDX300");
    convert->fallthrough();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e);
        return code == 0 ? 0 : 2;
    }

    std::string err = prepare(s);
    if (!err.empty()) return fail(err);
    if (!importOptions.empty()) setOptionsForFile(*convert ? convIn : inFile, importOptions, true);
    if (!exportOptions.empty()) setOptionsForFile(convOut, exportOptions, false);

    if (*formats) return runFormats(formatsJson);

    if (*import) {
        osg::NodePtr node = importFile(inFile, !s.noProgress, err);
        if (!node) return fail(err);
        if (asJson && stats) {
            nlohmann::json j;
            j["tree"] = describeTree(node);
            j["statistics"] = describeStatistics(node);
            std::cout << j.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) << "\n";
        } else if (asJson) {
            std::cout << describeTree(node).dump(2, ' ', false,
                                                 nlohmann::json::error_handler_t::replace)
                      << "\n";
        } else if (stats) {
            printStatistics(std::cout, describeStatistics(node));
        } else {
            printTree(std::cout, describeTree(node));
        }
        return 0;
    }

    if (*convert) {
        auto& h = osg::SceneFileHandler::the();
        osg::SceneFileType* writer = h.getFileTypeForFile(convOut.c_str());
        if (!writer || !writer->canWrite())
            return fail("no plug-in writes this suffix: '" + convOut + "' (see 'kestrel formats')");
        osg::NodePtr node = importFile(convIn, !s.noProgress, err);
        if (!node) return fail(err);
        bool ok;
        {
            PluginOutputToStderr quiet;
            ProgressBar bar(convOut, !s.noProgress);
            ok = h.write(node, convOut.c_str());
        }
        if (!ok) return fail(h.getLastError());
        std::cout << "wrote " << convOut << "\n";
        return 0;
    }
    return 0;
}

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        return fail(std::string("unexpected error: ") + e.what());
    } catch (...) {
        return fail("unexpected error");
    }
}
