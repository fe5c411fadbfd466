// Writes and reads a scene holding one large triangle mesh (positions,
// per-corner normals, two UV sets, RGBA colours) in every flavour and
// version, and prints seconds, MB/s and peak memory. For the binary flavour
// it also prints the ratio to reading the same file into memory.
//   bench_sdk_io [--triangles N] [--only binary|text] [--dir DIR]
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
double Now() {
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

// Peak resident memory since the last reset, in MB (Linux).
void ResetPeak() {
    std::ofstream f("/proc/self/clear_refs");
    f << "5";
}
double PeakMB() {
    std::ifstream f("/proc/self/status");
    std::string line;
    while (std::getline(f, line))
        if (line.rfind("VmHWM:", 0) == 0) return std::atof(line.c_str() + 6) / 1024.0;
    return 0.0;
}

QdxScene* BuildScene(QdxManager* m, long triangles) {
    QdxScene* scene = QdxScene::Create(m, "bench");
    long quads = triangles / 2;
    int side = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(quads))));
    QdxMesh* mesh = QdxMesh::Create(scene, "grid");
    mesh->InitControlPoints((side + 1) * (side + 1));
    QdxVector4* cp = mesh->GetControlPoints();
    for (int y = 0; y <= side; ++y)
        for (int x = 0; x <= side; ++x)
            cp[y * (side + 1) + x] = QdxVector4(x, std::sin(x * 0.01) * std::cos(y * 0.01), y);
    std::vector<int> sizes, corners;
    sizes.reserve(static_cast<size_t>(quads) * 2);
    corners.reserve(static_cast<size_t>(quads) * 6);
    for (long q = 0; q < quads; ++q) {
        int x = static_cast<int>(q % side), y = static_cast<int>(q / side);
        int a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
        for (int v : {a, b, d, a, d, c})
            corners.push_back(v);
        sizes.push_back(3);
        sizes.push_back(3);
    }
    mesh->AddPolygons(sizes.data(), static_cast<int>(sizes.size()), corners.data());
    size_t n = corners.size();
    QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    normals->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    normals->GetDirectArray().Resize(static_cast<int>(n));
    double* nd = normals->GetDirectArray().GetDoubles();
    for (size_t i = 0; i < n; ++i) {
        nd[4 * i] = 0.01 * static_cast<double>(i % 7);
        nd[4 * i + 1] = 1.0;
        nd[4 * i + 2] = 0.0;
        nd[4 * i + 3] = 0.0;
    }
    for (const char* name : {"map1", "Lightmap UV Set"}) {
        QdxLayerElementUV* uv = mesh->CreateElementUV(name);
        uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
        uv->GetDirectArray().Resize(static_cast<int>(n));
        double* ud = uv->GetDirectArray().GetDoubles();
        for (size_t i = 0; i < n; ++i) {
            int v = corners[i];
            ud[2 * i] = (v % (side + 1)) / static_cast<double>(side);
            ud[2 * i + 1] = (v / (side + 1)) / static_cast<double>(side);
        }
    }
    QdxLayerElementVertexColor* colors = mesh->CreateElementVertexColor();
    colors->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    colors->GetDirectArray().Resize(static_cast<int>(n));
    double* cd = colors->GetDirectArray().GetDoubles();
    for (size_t i = 0; i < n; ++i) {
        cd[4 * i] = (i % 256) / 255.0;
        cd[4 * i + 1] = 0.5;
        cd[4 * i + 2] = ((i / 256) % 256) / 255.0;
        cd[4 * i + 3] = 1.0;
    }
    QdxNode* node = QdxNode::Create(scene, "grid");
    scene->GetRootNode()->AddChild(node);
    node->SetNodeAttribute(mesh);
    return scene;
}

double PlainRead(const std::string& path, size_t& bytes) {
    double t0 = Now();
    FILE* f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 0, SEEK_END);
    bytes = static_cast<size_t>(std::ftell(f));
    std::fseek(f, 0, SEEK_SET);
    std::vector<char> buf(bytes);
    size_t got = std::fread(buf.data(), 1, bytes, f);
    std::fclose(f);
    double t = Now() - t0;
    return got == bytes ? t : -1.0;
}
} // namespace

int main(int argc, char** argv) {
    long triangles = 2000000;
    std::string only, dir = std::filesystem::temp_directory_path() / "qdx-bench";
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        if (a == "--triangles")
            triangles = std::atol(argv[i + 1]);
        else if (a == "--only")
            only = argv[i + 1];
        else if (a == "--dir")
            dir = argv[i + 1];
    }
    std::filesystem::create_directories(dir);
    QdxManager* m = QdxManager::Create();
    double t0 = Now();
    QdxScene* scene = BuildScene(m, triangles);
    std::printf("scene: %ld triangles built in %.2f s, %.0f MB resident\n", triangles, Now() - t0,
                PeakMB());
    std::printf("%-7s %-7s %10s %9s %9s %10s %9s %9s %10s\n", "flavour", "version", "size MB",
                "write s", "write MB/s", "write pk MB", "read s", "read MB/s", "read pk MB");
    for (int format : {0, 1}) {
        if (!only.empty() && only != (format == 0 ? "binary" : "text")) continue;
        for (int version : {1, 2, 3}) {
            std::string path =
                dir + "/bench-" + std::to_string(format) + std::to_string(version) + ".qdx";
            QdxExporter* e = QdxExporter::Create(m, "");
            std::string v = "QDX" + std::to_string(version) + "00";
            e->Initialize(path.c_str(), format);
            e->SetFileExportVersion(v.c_str());
            ResetPeak();
            double w0 = Now();
            bool ok = e->Export(scene);
            double write = Now() - w0, writePeak = PeakMB();
            e->Destroy();
            if (!ok) {
                std::printf("export failed\n");
                continue;
            }
            size_t bytes = 0;
            PlainRead(path, bytes); // warm the page cache
            double plain = PlainRead(path, bytes);
            double mb = static_cast<double>(bytes) / 1e6;
            QdxScene* back = QdxScene::Create(m, "back");
            QdxImporter* im = QdxImporter::Create(m, "");
            ResetPeak();
            double r0 = Now();
            ok = im->Initialize(path.c_str()) && im->Import(back);
            double read = Now() - r0, readPeak = PeakMB();
            im->Destroy();
            std::printf("%-7s %-7s %10.1f %9.2f %9.0f %10.0f %9.2f %9.0f %10.0f%s",
                        format ? "text" : "binary", v.c_str(), mb, write, mb / write, writePeak,
                        read, mb / read, readPeak, ok ? "" : "  (read failed)");
            if (format == 0) std::printf("   read/plain %.2fx (plain %.3f s)", read / plain, plain);
            std::printf("\n");
            back->ForceKill();
            std::filesystem::remove(path);
        }
    }
    m->Destroy();
    return 0;
}
