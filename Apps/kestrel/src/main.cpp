// kestrel: the stand-alone host program.
//
//   kestrel formats                    list the scene file types of the plug-ins
//   kestrel import FILE...             import and print the scene graph
//   kestrel convert IN OUT             import IN and export it as OUT
//   kestrel convert IN... -o DIR       one output per input in DIR
//   kestrel validate FILE...           check scenes, report problems
//   kestrel render FILE -o PNG         draw a scene into an image
#include <glob.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksFile.h>
#include <kestrel/ksLog.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/SceneFileHandler.h>

#include "AnimationView.h"
#include "ConversionLosses.h"
#include "ExitCode.h"
#include "JsonText.h"
#include "OutputCapture.h"
#include "OutputFile.h"
#include "Plugins.h"
#include "Progress.h"
#include "SceneImporter.h"
#include "SceneRenderer.h"
#include "SceneReport.h"
#include "SceneValidator.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

const char* kExitCodes = "Exit codes: 0 success, 1 the work failed, 2 wrong usage.";

struct Settings {
    std::vector<std::string> pluginDirs;
    std::vector<std::string> texturePaths;
    std::string unit = "mm";
    std::string up = "z";
    std::vector<std::string> options;
    bool verbose = false;
    bool quiet = false;
    bool noProgress = false;
};

// Messages for the person at the terminal; results go to standard output.
class Messages {
public:
    explicit Messages(const Settings& s) : _s(s) {}
    void error(const std::string& text) const { std::cerr << "kestrel: " << text << "\n"; }
    void warning(const std::string& text) const {
        if (!_s.quiet) std::cerr << "kestrel: warning: " << text << "\n";
    }
    // The plug-in's captured output: shown with -v, and always on failure.
    void diagnostics(const std::string& file, const std::vector<std::string>& lines,
                     bool failed) const {
        if (lines.empty() || !(failed || _s.verbose)) return;
        std::cerr << "kestrel: plug-in output for '" << file << "':\n";
        for (const auto& l : lines)
            std::cerr << "  " << l << "\n";
    }

private:
    const Settings& _s;
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

// The export option string a writer sees: the host's own scene suffix's
// options joined with those of the output's suffix, as the writers do.
std::string exportOptionsFor(const std::string& file) {
    auto& h = osg::SceneFileHandler::the();
    std::string suffix = ksFile::getExtension(file);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    std::string joined;
    if (const char* t = h.getOptions("hsp")) joined = t;
    if (const char* t = h.getOptions(suffix.c_str()))
        joined += (joined.empty() ? "" : ",") + std::string(t);
    return joined;
}

// Loads the plug-ins and applies the host settings; empty on success (a
// non-empty answer is a usage error).
std::string prepare(const Settings& s, const Messages& msg) {
    ksLog::setMinimumLevel(s.verbose ? ksLog::Info : ksLog::Warning);
    PluginLoadResult r = loadPlugins(pluginSearchPath(s.pluginDirs));
    for (const auto& e : r.errors)
        msg.warning("cannot load plug-in " + e);
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

// Shell patterns that the shell left alone (quoted, or typed on another
// system) are expanded here; a pattern that matches nothing stays as it is
// so that its error names it.
std::vector<std::string> expandPatterns(const std::vector<std::string>& args) {
    std::vector<std::string> files;
    for (const auto& a : args) {
        if (a.find_first_of("*?[") == std::string::npos) {
            files.push_back(a);
            continue;
        }
        glob_t g{};
        if (::glob(a.c_str(), 0, nullptr, &g) == 0 && g.gl_pathc > 0)
            for (std::size_t i = 0; i < g.gl_pathc; ++i)
                files.emplace_back(g.gl_pathv[i]);
        else
            files.push_back(a);
        ::globfree(&g);
    }
    return files;
}

int runFormats(bool asJson) {
    auto& h = osg::SceneFileHandler::the();
    json list = json::array();
    for (osg::SceneFileType* t : h.getFileTypes()) {
        json e;
        e["name"] = t->getName();
        json suffixes = json::array();
        for (const auto& sfx : t->suffixList()) {
            json sj;
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
        JsonText::write(std::cout, list);
        return ExitCode::Success;
    }
    if (list.empty()) {
        std::cout << "no scene file types registered (no plug-ins found)\n";
        return ExitCode::Success;
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
    return ExitCode::Success;
}

// The notes a plug-in logged as warnings under the given prefix: what the
// file's format could not carry.
std::vector<std::string> pluginNotes(const std::vector<std::string>& diagnostics,
                                     const std::string& prefix) {
    const std::string lead = std::string(ksLog::levelName(ksLog::Warning)) + ": " + prefix;
    std::vector<std::string> notes;
    for (const std::string& line : diagnostics)
        if (line.rfind(lead, 0) == 0) notes.push_back(line.substr(lead.size()));
    return notes;
}

// Imports one file and reports failures, missing textures and diagnostics.
ImportResult importOne(const std::string& file, const Settings& s, const Messages& msg) {
    SceneImporter importer(s.texturePaths, !s.noProgress && !s.quiet);
    ImportResult r = importer.import(file);
    msg.diagnostics(file, r.diagnostics, !r.root);
    // What the reader could not carry is said even without -v.
    if (r.root)
        for (const std::string& note : pluginNotes(r.diagnostics, "QdxImport: "))
            msg.warning(file + ": " + note);
    if (!r.root) {
        msg.error(r.error);
    } else if (!r.missingTextures.empty()) {
        std::string names;
        for (const auto& t : r.missingTextures)
            names += (names.empty() ? "" : ", ") + t;
        msg.warning(file + ": " + std::to_string(r.missingTextures.size()) +
                    " texture(s) not found: " + names + " (looked beside the scene" +
                    (s.texturePaths.empty() ? std::string(")") : " and in --texture-path)"));
    }
    return r;
}

// When to evaluate the animation before showing every node's local and world
// transform: a frame counts at the host's rate after the file was read.
struct ImportTime {
    enum Kind { None, Seconds, Frame } kind = None;
    double value = 0;
    double seconds() const { return kind == Frame ? value / ksAnimManager::the().fps() : value; }
};

int runImport(const std::vector<std::string>& files, bool asJson, bool stats, const ImportTime& at,
              const Settings& s, const Messages& msg) {
    const ksSceneData* scene = ksSceneDataManager::getSceneData(0);
    json all = json::array();
    bool failed = false;
    for (const auto& file : files) {
        ImportResult r = importOne(file, s, msg);
        if (!r.root) {
            failed = true;
            continue;
        }
        const bool evaluated = at.kind != ImportTime::None;
        const double seconds = at.seconds();
        if (evaluated) evaluateSceneAt(r.root, seconds);
        auto tree = [&] {
            json t = describeTree(r.root);
            if (evaluated) addEvaluatedTransforms(t, r.root, seconds);
            return t;
        };
        json result;
        if (asJson && stats) {
            result["tree"] = tree();
            result["statistics"] =
                describeStatistics(r, scene->getLengthUnit(), scene->getUpAxis());
        } else if (asJson) {
            result = tree();
        }
        if (asJson) {
            if (files.size() == 1)
                JsonText::write(std::cout, result);
            else
                all.push_back({{"file", file}, {"result", std::move(result)}});
            continue;
        }
        if (files.size() > 1) std::cout << "== " << file << "\n";
        if (stats)
            printStatistics(std::cout,
                            describeStatistics(r, scene->getLengthUnit(), scene->getUpAxis()));
        else
            printTree(std::cout, tree());
    }
    if (asJson && files.size() > 1) JsonText::write(std::cout, all);
    return failed ? ExitCode::Failure : ExitCode::Success;
}

struct ConvertJob {
    std::string in, out;
};

int runConvert(const std::vector<ConvertJob>& jobs, bool noClobber, bool asJson, const Settings& s,
               const Messages& msg) {
    auto& h = osg::SceneFileHandler::the();
    json report = json::array();
    bool failed = false;
    for (const auto& job : jobs) {
        json entry{{"input", job.in}, {"output", job.out}};
        auto fail = [&](const std::string& why) {
            msg.error(why);
            entry["error"] = why;
            report.push_back(entry);
            failed = true;
        };
        osg::SceneFileType* writer = h.getFileTypeForFile(job.out.c_str());
        if (!writer || !writer->canWrite()) {
            fail("no plug-in writes this suffix: '" + job.out + "' (see 'kestrel formats')");
            continue;
        }
        OutputFile target(job.in, job.out, noClobber);
        if (!target.error().empty()) {
            fail(target.error());
            continue;
        }
        ImportResult r = importOne(job.in, s, msg);
        if (!r.root) {
            entry["error"] = r.error;
            report.push_back(entry);
            failed = true;
            continue;
        }
        std::vector<ConversionLoss> losses =
            ConversionLosses::find(r.root, job.out, exportOptionsFor(job.out));
        bool ok;
        std::vector<std::string> diagnostics;
        {
            OutputCapture capture;
            {
                ProgressBar bar(job.out, !s.noProgress && !s.quiet);
                ok = h.write(r.root, target.path().c_str());
            }
            diagnostics = capture.finish();
        }
        msg.diagnostics(job.out, diagnostics, !ok);
        if (!ok) {
            std::string why = h.getLastError();
            std::string writable = OutputFile::checkWritable(target.path());
            fail(writable.empty() ? why : writable);
            continue;
        }
        target.restoreMode();
        for (const std::string& note : pluginNotes(diagnostics, "QdxExport: "))
            losses.push_back({"formatNote", 1, note});
        entry["losses"] = ConversionLosses::toJson(losses);
        entry["missingTextures"] = r.missingTextures;
        report.push_back(entry);
        if (asJson || s.quiet) continue;
        std::cout << "wrote " << job.out << "\n";
        if (losses.empty()) {
            std::cout << "  nothing lost\n";
        } else {
            std::cout << "  not carried into " << job.out << ":\n";
            for (const auto& l : losses)
                std::cout << "  - " << l.text << "\n";
        }
    }
    if (asJson) JsonText::write(std::cout, jobs.size() == 1 ? report[0] : report);
    return failed ? ExitCode::Failure : ExitCode::Success;
}

int runValidate(const std::vector<std::string>& files, bool asJson, const Settings& s,
                const Messages& msg) {
    json all = json::array();
    bool failed = false, problems = false;
    for (const auto& file : files) {
        ImportResult r = importOne(file, s, msg);
        if (!r.root) {
            failed = true;
            all.push_back({{"file", file}, {"error", r.error}});
            continue;
        }
        ValidationReport v = SceneValidator::check(r.root, r.missingTextures);
        if (v.errorCount() > 0) problems = true;
        if (asJson)
            all.push_back({{"file", file}, {"report", v.toJson()}});
        else
            v.print(std::cout, file);
    }
    if (asJson) JsonText::write(std::cout, files.size() == 1 ? all[0] : all);
    return failed || problems ? ExitCode::Failure : ExitCode::Success;
}

bool parseSize(const std::string& text, unsigned& w, unsigned& h) {
    unsigned long a = 0, b = 0;
    char x = 0, extra = 0;
    if (std::sscanf(text.c_str(), "%lu%c%lu%c", &a, &x, &b, &extra) != 3 || (x != 'x' && x != 'X'))
        return false;
    if (a < 1 || b < 1 || a > 16384 || b > 16384) return false;
    w = static_cast<unsigned>(a);
    h = static_cast<unsigned>(b);
    return true;
}

int runRender(const std::string& file, const std::string& out, const std::string& camera,
              unsigned width, unsigned height, const Settings& s, const Messages& msg) {
    std::string writable = OutputFile::checkWritable(out);
    if (!writable.empty()) {
        msg.error(writable);
        return ExitCode::Failure;
    }
    ImportResult r = importOne(file, s, msg);
    if (!r.root) return ExitCode::Failure;
    SceneRenderer renderer(width, height);
    std::string error;
    if (!renderer.render(r.root, camera, error) || !renderer.write(out, error)) {
        msg.error(error);
        return ExitCode::Failure;
    }
    if (!s.quiet) std::cout << "wrote " << out << " (" << width << "x" << height << ")\n";
    return ExitCode::Success;
}

} // namespace

int run(int argc, char** argv) {
    CLI::App app{"Kestrel host: loads scene-file plug-ins, imports, prints, checks, draws and "
                 "converts scenes."};
    app.footer(std::string(kExitCodes) +
               "\nPlug-in diagnostics are captured and shown with -v, or when an import or "
               "export fails.");
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("kestrel ") + KESTREL_APP_VERSION);
    Settings s;
    app.add_option("--plugin-dir", s.pluginDirs,
                   "Folder of plug-in modules (repeatable); searched "
                   "before KESTREL_PLUGIN_PATH and the default folder");
    app.add_option("--texture-path", s.texturePaths,
                   "Further folder searched for textures after the scene's own folder "
                   "(repeatable)");
    app.add_option("--unit", s.unit, "Scene length unit: mm, cm, dm, m, km, in, ft, yd, mi")
        ->capture_default_str();
    app.add_option("--up", s.up, "Scene up axis: y or z")->capture_default_str();
    app.add_option("--options", s.options,
                   "Option string for a suffix, SUFFIX=OPTIONS (repeatable); the suffix is "
                   "stored exactly as written (case matters), e.g. "
                   "--options QDX=flush_transforms,enable_metadata=false");
    auto* verbose = app.add_flag("-v,--verbose", s.verbose,
                                 "Show the plug-ins' diagnostics and informational log messages");
    app.add_flag("-q,--quiet", s.quiet, "Print only the result: no warnings, no progress bar")
        ->excludes(verbose);
    app.add_flag("--no-progress", s.noProgress, "No progress bar");

    auto* formats = app.add_subcommand("formats", "List the registered scene file types");
    bool formatsJson = false;
    formats->add_flag("--json", formatsJson, "Print as JSON");

    std::string importOptions, exportOptions;
    auto* import = app.add_subcommand("import", "Import scene files and print their scene graphs");
    std::vector<std::string> importFiles;
    bool asJson = false, stats = false;
    import->add_option("FILE", importFiles, "Scene files to import (shell patterns allowed)")
        ->required();
    import->add_flag("--json", asJson, "Print as JSON (one array entry per file for several)");
    import->add_flag("--stats", stats,
                     "Print statistics (bounding box, unit, counts per kind, textures, memory, "
                     "time) instead of the tree; with --json both");
    import->add_option("--import-options", importOptions,
                       "Import option string for FILE's suffix, e.g. flush_transforms");
    double importTime = 0;
    long long importFrame = 0;
    auto* timeOption = import->add_option(
        "--time", importTime,
        "Evaluate the animation at SECONDS (then the constraints) and show each node's local "
        "and world transform (\"at\" lines; \"evaluated\" in JSON)");
    auto* frameOption = import->add_option("--frame", importFrame,
                                           "As --time, at frame N of the host's frame rate");
    timeOption->excludes(frameOption);
    import->footer(
        "Each import runs in the scene file's folder, so textures stored with relative paths "
        "are found beside the scene.\n" +
        std::string(kExitCodes));

    auto* convert = app.add_subcommand(
        "convert", "Import IN and export it as OUT, or every IN into a folder with -o");
    std::vector<std::string> convertFiles;
    std::string outDir, outSuffix = "qdx";
    bool noClobber = false, convertJson = false;
    convert->add_option("FILES", convertFiles, "IN OUT, or with -o: IN... (shell patterns allowed)")
        ->required();
    convert->add_option("-o,--output-dir", outDir,
                        "Write one output per input into this folder, named after the input");
    convert->add_option("--suffix", outSuffix, "Suffix of the outputs written with -o")
        ->capture_default_str();
    convert->add_flag("--no-clobber", noClobber, "Never write over an existing file");
    convert->add_flag("--json", convertJson,
                      "Print the outcome and what the target could not carry as JSON");
    convert->add_option("--import-options", importOptions,
                        "Import option string for IN's suffix, e.g. enable_metadata=false");
    convert->add_option("--export-options", exportOptions,
                        "Export option string for OUT's suffix, e.g. "
                        "qdx_format=ascii,qdx_version=QDX300");
    convert->footer("Ends with a summary of what the target format could not carry. An output "
                    "reached through a symbolic link is written where the link points, and an "
                    "existing file keeps its mode. The input is never overwritten.\n" +
                    std::string(kExitCodes));

    auto* validate = app.add_subcommand(
        "validate", "Check scenes: index ranges, mapping counts, NaN and infinite values, "
                    "missing textures, empty connections, degenerate polygons");
    std::vector<std::string> validateFiles;
    bool validateJson = false;
    validate->add_option("FILE", validateFiles, "Scene files to check")->required();
    validate->add_flag("--json", validateJson, "Print the report as JSON");
    validate->add_option("--import-options", importOptions, "Import option string");
    validate->footer("Exit code 1 when a file has errors or cannot be read; warnings alone "
                     "give 0.\n" +
                     std::string(kExitCodes));

    auto* render = app.add_subcommand(
        "render", "Draw a scene into an image with the program's own software rasterizer");
    std::string renderFile, renderOut, renderCamera, renderSize = "800x600";
    render->add_option("FILE", renderFile, "Scene file")->required();
    render->add_option("-o,--output", renderOut, "Image to write (PNG, JPEG, TIFF, ...)")
        ->required();
    render->add_option("--camera", renderCamera,
                       "Name of the scene's camera to look through (default: the scene's first "
                       "camera, or a view framing the bounding box)");
    render->add_option("--size", renderSize, "Image size WxH")->capture_default_str();
    render->add_option("--import-options", importOptions, "Import option string");
    render->footer(kExitCodes);

    // Global options may also follow the command.
    for (CLI::App* sub : {formats, import, convert, validate, render})
        sub->fallthrough();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e);
        return code == 0 ? ExitCode::Success : ExitCode::Usage;
    }
    Messages msg(s);
    std::string err = prepare(s, msg);
    if (!err.empty()) {
        msg.error(err);
        return ExitCode::Usage;
    }

    if (*formats) return runFormats(formatsJson);

    if (*import) {
        std::vector<std::string> files = expandPatterns(importFiles);
        for (const auto& f : files)
            if (!importOptions.empty()) setOptionsForFile(f, importOptions, true);
        if (*timeOption && !std::isfinite(importTime)) {
            msg.error("--time needs a finite number of seconds");
            return ExitCode::Usage;
        }
        ImportTime at;
        if (*timeOption) at = {ImportTime::Seconds, importTime};
        if (*frameOption) at = {ImportTime::Frame, static_cast<double>(importFrame)};
        return runImport(files, asJson, stats, at, s, msg);
    }

    if (*convert) {
        std::vector<ConvertJob> jobs;
        if (outDir.empty()) {
            if (convertFiles.size() != 2) {
                msg.error("convert takes IN OUT, or several inputs with -o DIR");
                return ExitCode::Usage;
            }
            jobs.push_back({convertFiles[0], convertFiles[1]});
        } else {
            std::error_code ec;
            if (!fs::is_directory(outDir, ec)) {
                msg.error("output folder '" + outDir + "' does not exist");
                return ExitCode::Usage;
            }
            std::string suffix = outSuffix;
            if (!suffix.empty() && suffix[0] == '.') suffix.erase(0, 1);
            for (const auto& in : expandPatterns(convertFiles))
                jobs.push_back(
                    {in,
                     (fs::path(outDir) / (fs::path(in).stem().string() + "." + suffix)).string()});
        }
        for (const auto& j : jobs) {
            if (!importOptions.empty()) setOptionsForFile(j.in, importOptions, true);
            if (!exportOptions.empty()) setOptionsForFile(j.out, exportOptions, false);
        }
        return runConvert(jobs, noClobber, convertJson, s, msg);
    }

    if (*validate) {
        std::vector<std::string> files = expandPatterns(validateFiles);
        for (const auto& f : files)
            if (!importOptions.empty()) setOptionsForFile(f, importOptions, true);
        return runValidate(files, validateJson, s, msg);
    }

    if (*render) {
        unsigned w = 0, h = 0;
        if (!parseSize(renderSize, w, h)) {
            msg.error("--size takes WxH with sides from 1 to 16384, not '" + renderSize + "'");
            return ExitCode::Usage;
        }
        if (!importOptions.empty()) setOptionsForFile(renderFile, importOptions, true);
        return runRender(renderFile, renderOut, renderCamera, w, h, s, msg);
    }
    return ExitCode::Success;
}

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& e) {
        std::cerr << "kestrel: unexpected error: " << e.what() << "\n";
    } catch (...) {
        std::cerr << "kestrel: unexpected error\n";
    }
    return ExitCode::Failure;
}
