// qdx: inspect and convert Qdx files.
//   qdx info FILE [--json]
//   qdx dump FILE [--json]
//   qdx convert IN OUT [--format NAME] [--version V]   (NAME: a writer format's name;
//                                                      default: by OUT's suffix)
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <unistd.h>
#include <vector>

#include "qdxsdk/gltf_images.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;
using nlohmann::ordered_json;

namespace {
// 0 success, 1 the work failed, 2 wrong usage.
enum ExitCode { kOk = 0, kFailed = 1, kUsage = 2 };
const char* kExitCodes = "Exit codes: 0 success, 1 the work failed, 2 wrong usage.";

// Empty when the file can be opened, else the system's reason.
std::string Unreadable(const std::string& file) {
    std::error_code ec;
    if (std::filesystem::is_directory(file, ec)) return std::strerror(EISDIR);
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!in) return std::strerror(errno ? errno : ENOENT);
    return std::string();
}

struct Loaded {
    QdxManager* manager = nullptr;
    QdxScene* scene = nullptr;
    std::string flavour;
    std::string version;
    ~Loaded() {
        if (!manager) return;
        // Arrays left in the file are decoded when a command reads them; any
        // that could not be are reported once the command is done.
        for (const std::string& fault : manager->GetArrayFaults())
            std::cerr << "qdx: warning: " << fault << "\n";
        manager->Destroy();
    }
};

bool Load(const std::string& file, Loaded& out) {
    if (std::string why = Unreadable(file); !why.empty()) {
        std::cerr << "qdx: cannot read '" << file << "': " << why << "\n";
        return false;
    }
    out.manager = QdxManager::Create();
    out.scene = QdxScene::Create(out.manager, "");
    QdxImporter* importer = QdxImporter::Create(out.manager, "");
    if (!importer->Initialize(file.c_str(), -1) || !importer->Import(out.scene)) {
        std::cerr << "qdx: cannot read '" << file << "': " << importer->GetStatus().GetErrorString()
                  << "\n";
        return false;
    }
    const char* name = out.manager->GetIOPluginRegistry()->GetFormatName(importer->GetFileFormat());
    out.flavour = name ? name : "";
    out.version = importer->GetFileVersionString().Str();
    importer->Destroy();
    return true;
}

ordered_json ValueJson(const QdxProperty& p) {
    const detail::Value* v = p.RawValue();
    switch (v->index()) {
    case 1:
        return std::get<bool>(*v);
    case 2:
        return std::get<int>(*v);
    case 3:
        return std::get<float>(*v);
    case 4:
        return std::get<double>(*v);
    case 5:
        return {std::get<QdxDouble2>(*v)[0], std::get<QdxDouble2>(*v)[1]};
    case 6: {
        const auto& d = std::get<QdxDouble3>(*v);
        return {d[0], d[1], d[2]};
    }
    case 7: {
        const auto& d = std::get<QdxDouble4>(*v);
        return {d[0], d[1], d[2], d[3]};
    }
    case 8: {
        ordered_json rows = ordered_json::array();
        for (int r = 0; r < 4; ++r) {
            const QdxAMatrix& m = std::get<QdxAMatrix>(*v);
            rows.push_back({m.m[r][0], m.m[r][1], m.m[r][2], m.m[r][3]});
        }
        return rows;
    }
    case 9:
        return std::get<std::string>(*v);
    case 10:
        return std::get<std::vector<std::string>>(*v);
    case 11:
        return std::get<QdxDateTime>(*v).toString();
    case 12:
        return std::get<long long>(*v);
    default:
        return nullptr;
    }
}

int IndexOf(QdxScene* scene, const QdxObject* o) {
    if (o == scene) return 0;
    for (int i = 0; i < scene->GetMemberCount(); ++i)
        if (scene->GetMember(i) == o) return i + 1;
    return -1;
}

ordered_json DumpJson(QdxScene* scene) {
    ordered_json objects = ordered_json::array(), connections = ordered_json::array();
    std::vector<QdxObject*> table{scene};
    for (int i = 0; i < scene->GetMemberCount(); ++i)
        table.push_back(scene->GetMember(i));
    for (size_t i = 0; i < table.size(); ++i) {
        QdxObject* o = table[i];
        ordered_json obj;
        obj["index"] = i;
        obj["class"] = o->GetClassId().GetName();
        obj["name"] = o->GetName();
        ordered_json props = ordered_json::array();
        for (QdxProperty p = o->GetFirstProperty(); p.IsValid(); p = o->GetNextProperty(p)) {
            ordered_json pj;
            pj["name"] = p.GetName().Str();
            pj["type"] = p.GetPropertyDataType().GetName();
            if (p.GetFlag(QdxPropertyFlags::eUserDefined)) pj["userDefined"] = true;
            pj["value"] = ValueJson(p);
            props.push_back(pj);
            for (int s = 0; s < p.GetSrcObjectCount(); ++s)
                connections.push_back({IndexOf(scene, p.GetSrcObject(s)), i, p.GetName().Str()});
        }
        obj["properties"] = props;
        ordered_json arrays = ordered_json::array();
        for (const auto& a : o->Arrays())
            arrays.push_back({{"name", a.name}, {"count", a.Count()}});
        obj["arrays"] = arrays;
        objects.push_back(obj);
        if (i > 0)
            for (int s = 0; s < o->GetSrcObjectCount(); ++s)
                connections.push_back({IndexOf(scene, o->GetSrcObject(s)), i});
    }
    return {{"objects", objects}, {"connections", connections}};
}

int Info(const std::string& file, bool json) {
    Loaded l;
    if (!Load(file, l)) return kFailed;
    std::map<std::string, int> counts;
    for (int i = 0; i < l.scene->GetMemberCount(); ++i)
        ++counts[l.scene->GetMember(i)->GetClassId().GetName()];
    QdxGlobalSettings& gs = l.scene->GetGlobalSettings();
    ordered_json j;
    j["file"] = file;
    j["flavour"] = l.flavour;
    j["version"] = l.version;
    j["objects"] = l.scene->GetMemberCount() + 1;
    j["classes"] = counts;
    j["unit"] = gs.GetSystemUnit().GetScaleFactorAsString().Buffer();
    j["centimetersPerUnit"] = gs.GetSystemUnit().GetScaleFactor();
    j["frameRate"] = gs.GetFrameRate();
    if (QdxDocumentInfo* info = l.scene->GetDocumentInfo()) {
        auto app = [](const QdxString& vendor, const QdxString& name, const QdxString& version,
                      const QdxDateTime& when) {
            return ordered_json{{"vendor", vendor.Buffer()},
                                {"application", name.Buffer()},
                                {"version", version.Buffer()},
                                {"dateTime", when.toString()}};
        };
        j["document"] = {
            {"title", info->mTitle.Buffer()},
            {"author", info->mAuthor.Buffer()},
            {"createdWith",
             app(info->Original_ApplicationVendor.Get(), info->Original_ApplicationName.Get(),
                 info->Original_ApplicationVersion.Get(), info->Original_DateTime_GMT.Get())},
            {"lastSavedWith",
             app(info->LastSaved_ApplicationVendor.Get(), info->LastSaved_ApplicationName.Get(),
                 info->LastSaved_ApplicationVersion.Get(), info->LastSaved_DateTime_GMT.Get())}};
    }
    if (json) {
        std::cout << j.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
        return kOk;
    }
    std::printf("file:     %s\nflavour:  %s\nversion:  %s\nobjects:  %d\n", file.c_str(),
                j["flavour"].get<std::string>().c_str(), j["version"].get<std::string>().c_str(),
                l.scene->GetMemberCount() + 1);
    for (const auto& [name, n] : counts)
        std::printf("  %-28s %d\n", name.c_str(), n);
    std::printf("unit:     %s\nframe rate: %g\n", j["unit"].get<std::string>().c_str(),
                gs.GetFrameRate());
    if (j.contains("document")) {
        const ordered_json& d = j["document"];
        auto line = [](const char* label, const ordered_json& a) {
            std::printf("  %s: %s %s %s (%s)\n", label, a["vendor"].get<std::string>().c_str(),
                        a["application"].get<std::string>().c_str(),
                        a["version"].get<std::string>().c_str(),
                        a["dateTime"].get<std::string>().c_str());
        };
        std::printf("document:\n  title: %s\n  author: %s\n", d["title"].get<std::string>().c_str(),
                    d["author"].get<std::string>().c_str());
        line("created with", d["createdWith"]);
        line("last saved with", d["lastSavedWith"]);
    }
    return kOk;
}

int Dump(const std::string& file, bool json) {
    Loaded l;
    if (!Load(file, l)) return kFailed;
    ordered_json d = DumpJson(l.scene);
    if (json) {
        std::cout << d.dump(1, ' ', false, ordered_json::error_handler_t::replace) << "\n";
        return kOk;
    }
    for (const auto& o : d["objects"]) {
        std::cout << "#" << o["index"].get<int>() << " " << o["class"].get<std::string>() << " '"
                  << o["name"].get<std::string>() << "'\n";
        for (const auto& p : o["properties"])
            std::cout << "    " << p["name"].get<std::string>() << " ("
                      << p["type"].get<std::string>() << ") = "
                      << p["value"].dump(-1, ' ', false, ordered_json::error_handler_t::replace)
                      << "\n";
        for (const auto& a : o["arrays"])
            std::cout << "    [" << a["name"].get<std::string>() << "] " << a["count"].get<size_t>()
                      << " elements\n";
    }
    std::cout << "connections:\n";
    for (const auto& c : d["connections"])
        std::cout << "    " << c.dump(-1, ' ', false, ordered_json::error_handler_t::replace)
                  << "\n";
    return kOk;
}

int Convert(const std::string& in, const std::string& out, const std::string& format,
            const std::string& version) {
    Loaded l;
    if (!Load(in, l)) return kFailed;
    // What a reader or writer could not carry is said, never dropped quietly.
    const std::vector<std::string> readNotes = QdxGetConversionNotes(l.scene);
    for (const std::string& note : readNotes)
        std::cerr << "qdx: " << in << ": " << note << "\n";
    QdxExporter* exporter = QdxExporter::Create(l.manager, "");
    QdxIOPluginRegistry* registry = l.manager->GetIOPluginRegistry();
    // Without --format the output's suffix picks the writer (.qdx: binary).
    int index = -1;
    if (!format.empty()) {
        index = registry->FindFormatIDByName(format.c_str());
    } else {
        std::string suffix = std::filesystem::path(out).extension().string();
        if (!suffix.empty()) index = registry->FindWriterIDByExtension(suffix.c_str() + 1);
        if (index < 0) index = registry->GetNativeWriterFormat();
    }
    // Images embedded in a glTF input go into a folder beside a non-glTF
    // output, so the written file does not depend on the input's folder.
    const char* outName = registry->GetFormatName(index);
    const auto isGltf = [](const std::string& name) { return name == "glb" || name == "gltf"; };
    if (isGltf(l.flavour) && !isGltf(outName ? outName : "")) {
        std::string why;
        if (!QdxMoveGltfImages(l.scene, in, out, &why)) {
            std::cerr << "qdx: " << why << "\n";
            return kFailed;
        }
    }
    const char** versions = registry->GetWritableVersions(index);
    std::string v = version.empty() && versions && versions[0] ? versions[0] : version;
    if (v.size() == 1) v = "QDX" + v + "00";
    if (!exporter->Initialize(out.c_str(), index) || !exporter->SetFileExportVersion(v.c_str()) ||
        !exporter->Export(l.scene)) {
        std::string why = exporter->GetStatus().GetErrorString();
        // The folder's own refusal says more than the exporter's status.
        std::filesystem::path folder = std::filesystem::path(out).parent_path();
        if (folder.empty()) folder = ".";
        std::error_code ec;
        if (!std::filesystem::is_directory(folder, ec))
            why = std::strerror(ENOENT);
        else if (::access(folder.c_str(), W_OK | X_OK) != 0)
            why = std::strerror(errno);
        std::cerr << "qdx: cannot write '" << out << "': " << why << "\n";
        return kFailed;
    }
    for (const std::string& note : QdxGetConversionNotes(l.scene))
        if (std::find(readNotes.begin(), readNotes.end(), note) == readNotes.end())
            std::cerr << "qdx: " << out << ": " << note << "\n";
    return kOk;
}
} // namespace

int main(int argc, char** argv) {
    CLI::App app{"Inspect and convert Qdx scene files"};
    app.footer(kExitCodes);
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("qdx ") + QDX_TOOL_VERSION);
    std::string file, in, out, format, version;
    bool json = false;
    auto* info = app.add_subcommand(
        "info", "Print flavour, version, object counts and document information");
    info->add_option("FILE", file, "Qdx file")->required();
    info->add_flag("--json", json, "Print JSON");
    auto* dump = app.add_subcommand("dump", "Print every object, property and connection");
    dump->add_option("FILE", file, "Qdx file")->required();
    dump->add_flag("--json", json, "Print JSON");
    auto* convert = app.add_subcommand("convert", "Write a file in another flavour or version");
    convert->add_option("IN", in, "Input file")->required();
    convert->add_option("OUT", out, "Output file")->required();
    QdxIOPluginRegistry registry;
    std::vector<std::string> formats;
    for (int f = 0; f < registry.GetWriterFormatCount(); ++f)
        if (registry.GetWriterFormatDescription(f)) formats.push_back(registry.GetFormatName(f));
    convert->add_option("--format", format, "Writer format (default: by OUT's suffix)")
        ->check(CLI::IsMember(formats));
    convert
        ->add_option("--version", version,
                     "1, 2, 3 or QDX100, QDX200, QDX300; 2.0 for glTF (default newest)")
        ->check(CLI::IsMember({"1", "2", "3", "QDX100", "QDX200", "QDX300", "2.0"}));
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        int code = app.exit(e);
        return code == 0 ? kOk : kUsage;
    }
    try {
        if (*info) return Info(file, json);
        if (*dump) return Dump(file, json);
        return Convert(in, out, format, version);
    } catch (const std::exception& e) {
        std::cerr << "qdx: " << e.what() << "\n";
        return kFailed;
    }
}
