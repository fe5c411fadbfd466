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

#include "bench_grid.h"
#include "bench_util.h"

using namespace qdxsdk;

namespace {
QdxScene* BuildScene(QdxManager* m, long triangles) {
    QdxScene* scene = QdxScene::Create(m, "bench");
    benchutil::buildGrid(scene, triangles);
    return scene;
}

double PlainRead(const std::string& path, size_t& bytes) {
    double t0 = benchutil::now();
    FILE* f = std::fopen(path.c_str(), "rb");
    std::fseek(f, 0, SEEK_END);
    bytes = static_cast<size_t>(std::ftell(f));
    std::fseek(f, 0, SEEK_SET);
    std::vector<char> buf(bytes);
    size_t got = std::fread(buf.data(), 1, bytes, f);
    std::fclose(f);
    double t = benchutil::now() - t0;
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
    double t0 = benchutil::now();
    QdxScene* scene = BuildScene(m, triangles);
    std::printf("scene: %ld triangles built in %.2f s, %.0f MB resident\n", triangles,
                benchutil::now() - t0, benchutil::peakMB());
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
            benchutil::resetPeak();
            double w0 = benchutil::now();
            bool ok = e->Export(scene);
            double write = benchutil::now() - w0, writePeak = benchutil::peakMB();
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
            benchutil::resetPeak();
            double r0 = benchutil::now();
            ok = im->Initialize(path.c_str()) && im->Import(back);
            double read = benchutil::now() - r0, readPeak = benchutil::peakMB();
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
