// Side-by-side figures on one content: our import, export and SDK read
// against two peers reading and writing the same content in their own
// formats (a glTF binary through tinygltf, a scene-graph binary through
// OpenSceneGraph). Every measured task runs in a child process of its own,
// so each peak resident size is that task's alone. Prints seconds, peak
// memory, the ratios and whether each speed and memory target is met.
//   bench_peer [--dir DIR] [--kestrel PATH] [--repeat N]
// The peers are skipped with a message when their development packages
// were not installed when this program was built.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <qdxsdk/qdxsdk.h>

#include "../bench_grid.h"
#include "../bench_util.h"
#include "content.h"

#ifdef QDX_PEER_TINYGLTF
#include <tiny_gltf.h>
#endif
#ifdef QDX_PEER_OSG
#include <osg/Geode>
#include <osg/Geometry>
#include <osg/Group>
#include <osgDB/ReadFile>
#include <osgDB/WriteFile>
#endif

namespace fs = std::filesystem;
using namespace qdxsdk;

namespace {

// ---- writing the content in each format ---------------------------------

bool writeQdx(const std::string& path, const std::string& format) {
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "content");
    for (int k = 0; k < peer::kMeshes; ++k) {
        peer::MeshArrays a = peer::makeMesh(k);
        const int n = int(a.positions.size() / 3);
        std::string name = "mesh" + std::to_string(k);
        QdxMesh* mesh = QdxMesh::Create(scene, name.c_str());
        mesh->InitControlPoints(n);
        QdxVector4* cp = mesh->GetControlPoints();
        for (int i = 0; i < n; ++i)
            cp[i] = QdxVector4(a.positions[3 * i], a.positions[3 * i + 1], a.positions[3 * i + 2]);
        std::vector<int> sizes(a.indices.size() / 3, 3);
        std::vector<int> corners(a.indices.begin(), a.indices.end());
        mesh->AddPolygons(sizes.data(), int(sizes.size()), corners.data());
        QdxLayerElementNormal* normals = mesh->CreateElementNormal();
        normals->SetMappingMode(QdxLayerElement::eByControlPoint);
        normals->GetDirectArray().Resize(n);
        double* nd = normals->GetDirectArray().GetDoubles();
        for (int i = 0; i < n; ++i) {
            for (int c = 0; c < 3; ++c)
                nd[4 * i + c] = a.normals[3 * i + c];
            nd[4 * i + 3] = 0.0;
        }
        const std::vector<float>* uvs[] = {&a.uv0, &a.uv1};
        const char* uvNames[] = {"map1", "Lightmap UV Set"};
        for (int s = 0; s < 2; ++s) {
            QdxLayerElementUV* uv = mesh->CreateElementUV(uvNames[s]);
            uv->SetMappingMode(QdxLayerElement::eByControlPoint);
            uv->GetDirectArray().Resize(n);
            double* ud = uv->GetDirectArray().GetDoubles();
            for (int i = 0; i < 2 * n; ++i)
                ud[i] = (*uvs[s])[i];
        }
        QdxLayerElementVertexColor* colors = mesh->CreateElementVertexColor();
        colors->SetMappingMode(QdxLayerElement::eByControlPoint);
        colors->GetDirectArray().Resize(n);
        double* cd = colors->GetDirectArray().GetDoubles();
        for (int i = 0; i < 4 * n; ++i)
            cd[i] = a.colors[i];
        QdxNode* node = QdxNode::Create(scene, name.c_str());
        scene->GetRootNode()->AddChild(node);
        node->SetNodeAttribute(mesh);
    }
    QdxExporter* exporter = QdxExporter::Create(manager, "");
    const int id = manager->GetIOPluginRegistry()->FindFormatIDByName(format.c_str());
    const bool ok = id >= 0 && exporter->Initialize(path.c_str(), id) && exporter->Export(scene);
    manager->Destroy();
    return ok;
}

bool writeGrid(const std::string& path, long triangles) {
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "grid");
    benchutil::buildGrid(scene, triangles);
    QdxExporter* exporter = QdxExporter::Create(manager, "");
    const bool ok = exporter->Initialize(path.c_str(), -1) && exporter->Export(scene);
    manager->Destroy();
    return ok;
}

#ifdef QDX_PEER_TINYGLTF
template <typename T>
int addAccessor(tinygltf::Model& model, const std::vector<T>& data, int components, int type,
                int componentType, int target) {
    tinygltf::Buffer& buffer = model.buffers[0];
    const std::size_t offset = buffer.data.size();
    const std::size_t bytes = data.size() * sizeof(T);
    buffer.data.resize(offset + bytes);
    std::memcpy(buffer.data.data() + offset, data.data(), bytes);
    tinygltf::BufferView view;
    view.buffer = 0;
    view.byteOffset = offset;
    view.byteLength = bytes;
    view.target = target;
    model.bufferViews.push_back(view);
    tinygltf::Accessor accessor;
    accessor.bufferView = int(model.bufferViews.size()) - 1;
    accessor.componentType = componentType;
    accessor.count = data.size() / std::size_t(components);
    accessor.type = type;
    model.accessors.push_back(accessor);
    return int(model.accessors.size()) - 1;
}

bool writeGlb(const std::string& path) {
    tinygltf::Model model;
    model.asset.version = "2.0";
    model.buffers.emplace_back();
    tinygltf::Scene scene;
    for (int k = 0; k < peer::kMeshes; ++k) {
        peer::MeshArrays a = peer::makeMesh(k);
        tinygltf::Primitive p;
        p.mode = TINYGLTF_MODE_TRIANGLES;
        const int array = TINYGLTF_TARGET_ARRAY_BUFFER, f = TINYGLTF_COMPONENT_TYPE_FLOAT;
        int pos = addAccessor(model, a.positions, 3, TINYGLTF_TYPE_VEC3, f, array);
        float lo[3] = {1e30f, 1e30f, 1e30f}, hi[3] = {-1e30f, -1e30f, -1e30f};
        for (std::size_t i = 0; i < a.positions.size(); ++i) {
            lo[i % 3] = std::min(lo[i % 3], a.positions[i]);
            hi[i % 3] = std::max(hi[i % 3], a.positions[i]);
        }
        model.accessors[std::size_t(pos)].minValues = {lo[0], lo[1], lo[2]};
        model.accessors[std::size_t(pos)].maxValues = {hi[0], hi[1], hi[2]};
        p.attributes["POSITION"] = pos;
        p.attributes["NORMAL"] = addAccessor(model, a.normals, 3, TINYGLTF_TYPE_VEC3, f, array);
        p.attributes["TEXCOORD_0"] = addAccessor(model, a.uv0, 2, TINYGLTF_TYPE_VEC2, f, array);
        p.attributes["TEXCOORD_1"] = addAccessor(model, a.uv1, 2, TINYGLTF_TYPE_VEC2, f, array);
        p.attributes["COLOR_0"] = addAccessor(model, a.colors, 4, TINYGLTF_TYPE_VEC4, f, array);
        p.indices =
            addAccessor(model, a.indices, 1, TINYGLTF_TYPE_SCALAR,
                        TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
        tinygltf::Mesh mesh;
        mesh.primitives.push_back(p);
        model.meshes.push_back(mesh);
        tinygltf::Node node;
        node.mesh = k;
        node.name = "mesh" + std::to_string(k);
        model.nodes.push_back(node);
        scene.nodes.push_back(k);
    }
    model.scenes.push_back(scene);
    model.defaultScene = 0;
    tinygltf::TinyGLTF writer;
    return writer.WriteGltfSceneToFile(&model, path, false, true, false, true);
}

int loadGlb(const std::string& path) {
    tinygltf::Model model;
    tinygltf::TinyGLTF loader;
    std::string error, warning;
    if (!loader.LoadBinaryFromFile(&model, &error, &warning, path)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    // Decoding: every accessor's values out of the buffer into arrays.
    std::size_t values = 0;
    for (const auto& accessor : model.accessors) {
        const auto& view = model.bufferViews[std::size_t(accessor.bufferView)];
        const unsigned char* src = model.buffers[std::size_t(view.buffer)].data.data() +
                                   view.byteOffset + accessor.byteOffset;
        const std::size_t n =
            accessor.count *
            std::size_t(tinygltf::GetNumComponentsInType(std::uint32_t(accessor.type)));
        std::vector<float> out(n);
        std::memcpy(out.data(), src, n * 4);
        values += out.size();
    }
    return values > 0 ? 0 : 1;
}
#endif

#ifdef QDX_PEER_OSG
bool writeOsgb(const std::string& path) {
    osg::ref_ptr<osg::Group> root = new osg::Group;
    for (int k = 0; k < peer::kMeshes; ++k) {
        peer::MeshArrays a = peer::makeMesh(k);
        const std::size_t n = a.positions.size() / 3;
        osg::ref_ptr<osg::Geometry> g = new osg::Geometry;
        auto* v = new osg::Vec3Array(unsigned(n));
        auto* nn = new osg::Vec3Array(unsigned(n));
        auto* t0 = new osg::Vec2Array(unsigned(n));
        auto* t1 = new osg::Vec2Array(unsigned(n));
        auto* c = new osg::Vec4Array(unsigned(n));
        for (std::size_t i = 0; i < n; ++i) {
            (*v)[i].set(a.positions[3 * i], a.positions[3 * i + 1], a.positions[3 * i + 2]);
            (*nn)[i].set(a.normals[3 * i], a.normals[3 * i + 1], a.normals[3 * i + 2]);
            (*t0)[i].set(a.uv0[2 * i], a.uv0[2 * i + 1]);
            (*t1)[i].set(a.uv1[2 * i], a.uv1[2 * i + 1]);
            (*c)[i].set(a.colors[4 * i], a.colors[4 * i + 1], a.colors[4 * i + 2],
                        a.colors[4 * i + 3]);
        }
        g->setVertexArray(v);
        g->setNormalArray(nn, osg::Array::BIND_PER_VERTEX);
        g->setTexCoordArray(0, t0, osg::Array::BIND_PER_VERTEX);
        g->setTexCoordArray(1, t1, osg::Array::BIND_PER_VERTEX);
        g->setColorArray(c, osg::Array::BIND_PER_VERTEX);
        g->addPrimitiveSet(
            new osg::DrawElementsUInt(GL_TRIANGLES, a.indices.begin(), a.indices.end()));
        osg::ref_ptr<osg::Geode> geode = new osg::Geode;
        geode->setName("mesh" + std::to_string(k));
        geode->addDrawable(g);
        root->addChild(geode);
    }
    return osgDB::writeNodeFile(*root, path);
}
#endif

// ---- measuring ----------------------------------------------------------

struct Run {
    bool ok = false;
    double seconds = 0, peakMB = 0;
    std::string out;
};

// Runs argv through bench_peer_run (beside this program) with standard
// output into a file; the best (lowest) wall time of `repeat` runs and that
// run's peak resident size.
Run measure(const std::vector<std::string>& argv, const std::string& dir, int repeat) {
    static const std::string runner =
        (fs::read_symlink("/proc/self/exe").parent_path() / "bench_peer_run").string();
    Run best;
    for (int r = 0; r < repeat; ++r) {
        const std::string outPath = dir + "/child.out", resultPath = dir + "/child.result";
        std::vector<std::string> full = {runner, resultPath, outPath};
        full.insert(full.end(), argv.begin(), argv.end());
        pid_t pid = fork();
        if (pid == 0) {
            std::vector<char*> args;
            for (const auto& a : full)
                args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execv(args[0], args.data());
            _exit(127);
        }
        int status = 0;
        if (pid < 0 || waitpid(pid, &status, 0) < 0) return best;
        Run run;
        long peakKB = 0;
        int exitStatus = 1;
        FILE* result = std::fopen(resultPath.c_str(), "r");
        const bool parsed =
            result && std::fscanf(result, "%lf %ld %d", &run.seconds, &peakKB, &exitStatus) == 3;
        if (result) std::fclose(result);
        std::remove(resultPath.c_str());
        run.peakMB = double(peakKB) / 1024.0;
        run.ok = parsed && exitStatus == 0;
        std::ifstream f(outPath);
        run.out.assign(std::istreambuf_iterator<char>(f), {});
        if (!run.ok) return run;
        if (r == 0 || run.seconds < best.seconds) best = run;
    }
    return best;
}

void row(const char* task, const Run& run) {
    if (run.ok)
        std::printf("  %-44s %8.3f s %9.1f MB\n", task, run.seconds, run.peakMB);
    else
        std::printf("  %-44s   failed\n", task);
}

int targetsMissed = 0;
void target(const char* what, double value, double limit, const char* unit) {
    const bool met = value <= limit;
    if (!met) ++targetsMissed;
    std::printf("  %-52s %9.3f %-4s (target %g) %s\n", what, value, unit, limit,
                met ? "met" : "MISSED");
}

int child(int argc, char** argv) {
    const std::string task = argv[2];
    if (task == "sdk-read" && argc == 4) {
        QdxManager* manager = QdxManager::Create();
        QdxScene* scene = QdxScene::Create(manager, "read");
        QdxImporter* importer = QdxImporter::Create(manager, "");
        const bool ok = importer->Initialize(argv[3], -1) && importer->Import(scene);
        manager->Destroy();
        return ok ? 0 : 1;
    }
#ifdef QDX_PEER_TINYGLTF
    if (task == "gltf-load" && argc == 4) return loadGlb(argv[3]);
#endif
#ifdef QDX_PEER_OSG
    if (task == "osg-read" && argc == 4) return osgDB::readNodeFile(argv[3]) ? 0 : 1;
    if (task == "osg-convert" && argc == 5) {
        osg::ref_ptr<osg::Node> node = osgDB::readNodeFile(argv[3]);
        return node && osgDB::writeNodeFile(*node, argv[4]) ? 0 : 1;
    }
#endif
    std::fprintf(stderr, "unknown child task\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    if (argc >= 3 && std::string(argv[1]) == "--child") return child(argc, argv);
    std::string dir = (fs::temp_directory_path() / "qdx-peer-bench").string();
    std::error_code ec;
    fs::path self = fs::read_symlink("/proc/self/exe", ec);
    std::string kestrel = (self.parent_path() / "kestrel").string();
    int repeat = 3;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if ((a == "--dir" || a == "--kestrel" || a == "--repeat") && i + 1 < argc) {
            const std::string v = argv[++i];
            if (a == "--dir") dir = v;
            if (a == "--kestrel") kestrel = v;
            if (a == "--repeat") repeat = std::max(1, std::atoi(v.c_str()));
        } else {
            std::printf("usage: bench_peer [--dir DIR] [--kestrel PATH] [--repeat N]\n");
            return a == "--help" || a == "-h" ? 0 : 2;
        }
    }
    fs::create_directories(dir);
    const std::string qdx = dir + "/content.qdx", text = dir + "/content-text.qdx",
                      grid = dir + "/grid.qdx", glb = dir + "/content.glb",
                      osgb = dir + "/content.osgb";
    std::printf("content: %d meshes, %d triangles, per-vertex normals, 2 UV sets, RGBA colours\n",
                peer::kMeshes, peer::kMeshes * peer::kColumns * peer::kRows * 2);
    std::printf("writing the content into %s ...\n", dir.c_str());
    if (!writeQdx(qdx, "binary") || !writeQdx(text, "ascii") || !writeGrid(grid, 2000000)) {
        std::printf("cannot write the Qdx content\n");
        return 1;
    }
#ifdef QDX_PEER_TINYGLTF
    const bool haveGltf = writeGlb(glb);
#else
    const bool haveGltf = false;
    std::printf("tinygltf: not installed when this program was built (libtinygltf-dev); skipped\n");
#endif
#ifdef QDX_PEER_OSG
    const bool haveOsg = writeOsgb(osgb);
#else
    const bool haveOsg = false;
    std::printf("OpenSceneGraph: not installed when this program was built "
                "(libopenscenegraph-dev); skipped\n");
#endif
    auto mb = [](const std::string& p) {
        std::error_code e;
        return double(fs::file_size(p, e)) / 1048576.0;
    };
    std::printf("files: Qdx binary %.0f MB, Qdx text %.0f MB, grid %.0f MB", mb(qdx), mb(text),
                mb(grid));
    if (haveGltf) std::printf(", glTF binary %.0f MB", mb(glb));
    if (haveOsg) std::printf(", scene-graph binary %.0f MB", mb(osgb));
    std::printf("\n\nbest of %d runs, each task in a process of its own:\n", repeat);

    const std::string me = self.string();
    Run help = measure({kestrel, "--help"}, dir, repeat);
    Run formats = measure({kestrel, "formats"}, dir, repeat);
    Run import = measure({kestrel, "-q", "import", "--stats", qdx}, dir, repeat);
    Run gridImport = measure({kestrel, "-q", "import", "--stats", "--json", grid}, dir, repeat);
    Run textImport = measure({kestrel, "-q", "import", "--stats", text}, dir, repeat);
    Run convert = measure({kestrel, "-q", "convert", qdx, dir + "/converted.qdx"}, dir, repeat);
    Run sdkRead = measure({me, "--child", "sdk-read", qdx}, dir, repeat);
    row("kestrel --help", help);
    row("kestrel formats", formats);
    row("kestrel import --stats (Qdx binary)", import);
    row("kestrel import --stats (per-corner grid)", gridImport);
    row("kestrel import --stats (Qdx text)", textImport);
    row("kestrel convert (Qdx binary to binary)", convert);
    row("SDK read alone (Qdx binary)", sdkRead);
    Run gltf, osgRead, osgConvert;
    if (haveGltf) {
        gltf = measure({me, "--child", "gltf-load", glb}, dir, repeat);
        row("tinygltf load and decode (glTF binary)", gltf);
    }
    if (haveOsg) {
        osgRead = measure({me, "--child", "osg-read", osgb}, dir, repeat);
        osgConvert =
            measure({me, "--child", "osg-convert", osgb, dir + "/converted.osgb"}, dir, repeat);
        row("OpenSceneGraph read (scene-graph binary)", osgRead);
        row("OpenSceneGraph read and write", osgConvert);
    }

    double gridSceneMB = 0;
    try {
        auto j = nlohmann::json::parse(gridImport.out);
        if (j.is_object() && j.contains("statistics")) j = j["statistics"];
        gridSceneMB = j.value("memoryBytes", 0.0) / 1048576.0;
    } catch (const std::exception&) {
    }

    std::printf("\nratios:\n");
    if (sdkRead.ok && import.ok)
        std::printf("  import / SDK read                 %6.2f x time  %6.2f x memory\n",
                    import.seconds / sdkRead.seconds, import.peakMB / sdkRead.peakMB);
    if (gltf.ok && import.ok)
        std::printf("  import / tinygltf load            %6.2f x time  %6.2f x memory\n",
                    import.seconds / gltf.seconds, import.peakMB / gltf.peakMB);
    if (osgRead.ok && import.ok)
        std::printf("  import / OpenSceneGraph read      %6.2f x time  %6.2f x memory\n",
                    import.seconds / osgRead.seconds, import.peakMB / osgRead.peakMB);
    if (osgConvert.ok && convert.ok)
        std::printf("  convert / OpenSceneGraph convert  %6.2f x time  %6.2f x memory\n",
                    convert.seconds / osgConvert.seconds, convert.peakMB / osgConvert.peakMB);

    std::printf("\ntargets:\n");
    target("start-up: kestrel --help, seconds", help.seconds, 0.05, "s");
    target("start-up: kestrel --help, peak", help.peakMB, 40, "MB");
    target("start-up: kestrel formats, seconds", formats.seconds, 0.05, "s");
    target("start-up: kestrel formats, peak", formats.peakMB, 40, "MB");
    target("vertex-indexed import, seconds", import.seconds, 0.5, "s");
    target("vertex-indexed import, peak", import.peakMB, 200, "MB");
    target("per-corner import, seconds", gridImport.seconds, 1.5, "s");
    if (gridSceneMB > 0)
        target("per-corner import, peak / host scene size", gridImport.peakMB / gridSceneMB, 2.0,
               "x");
    target("text import / binary import, time", textImport.seconds / import.seconds, 2.5, "x");
    target("text import / binary import, peak", textImport.peakMB / import.peakMB, 1.5, "x");
    target("export (convert), seconds", convert.seconds, 1.2, "s");
    target("export (convert), peak", convert.peakMB, 300, "MB");
    std::printf("\n%d target(s) missed\n", targetsMissed);
    return 0;
}
