// Import speed of the plug-in: the SDK benchmark's grid mesh of N triangles
// (2,000,000 by default; per-corner normals, two UV sets, RGBA colours) is
// written as a binary Qdx file, read once by the SDK alone and once through
// the host's scene-file handler into a scene graph. Prints seconds, peak
// resident memory and the ratio of the handler import to the SDK read.
//   plugin_import [--triangles N] [--dir DIR]
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <kestrel/ksLog.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/osg.h>
#include <qdxsdk/qdxsdk.h>

#include "bench_grid.h"
#include "bench_util.h"

using namespace qdxsdk;
using benchutil::now;
using benchutil::peakMB;
using benchutil::resetPeak;

namespace {} // namespace

int main(int argc, char** argv) {
    long triangles = 2000000;
    std::string dir = (std::filesystem::temp_directory_path() / "qdx-bench").string();
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string a = argv[i];
        if (a == "--triangles")
            triangles = std::atol(argv[i + 1]);
        else if (a == "--dir")
            dir = argv[i + 1];
    }
    std::filesystem::create_directories(dir);
    const std::string path = dir + "/plugin-import.qdx";
    {
        QdxManager* m = QdxManager::Create();
        QdxScene* scene = QdxScene::Create(m, "bench");
        benchutil::buildGrid(scene, triangles);
        QdxExporter* e = QdxExporter::Create(m, "");
        const bool ok = e->Initialize(path.c_str(), 0) && e->Export(scene);
        m->Destroy();
        if (!ok) {
            std::printf("export failed\n");
            return 1;
        }
    }
    const double mb = static_cast<double>(std::filesystem::file_size(path)) / 1e6;
    std::printf("scene: %ld triangles, binary file %.1f MB\n", triangles, mb);

    // The SDK alone.
    resetPeak();
    double t0 = now();
    QdxManager* m = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(m, "back");
    QdxImporter* importer = QdxImporter::Create(m, "");
    const bool read = importer->Initialize(path.c_str()) && importer->Import(scene);
    m->Destroy();
    const double sdk = now() - t0, sdkPeak = peakMB();
    if (!read) {
        std::printf("SDK read failed\n");
        return 1;
    }

    // Through the handler and the plug-in (its messages are not timed).
    ksLog::setMinimumLevel(ksLog::Error);
    std::fflush(stdout);
    resetPeak();
    t0 = now();
    osg::NodePtr root = osg::SceneFileHandler::the().read(path.c_str());
    const double plugin = now() - t0, pluginPeak = peakMB();
    if (!root) {
        std::printf("import failed: %s\n", osg::SceneFileHandler::the().getLastError().c_str());
        return 1;
    }
    osg::UInt32 vertices = 0;
    ksNodeUtils::traverse(root, [&](const osg::NodePtr& n) {
        if (auto g = osg::GeometryPtr::dcast(n->getCore())) vertices += g->getVertexCount();
        return true;
    });
    std::printf("%-22s %9s %12s\n", "step", "seconds", "peak MB");
    std::printf("%-22s %9.2f %12.0f\n", "SDK read", sdk, sdkPeak);
    std::printf("%-22s %9.2f %12.0f\n", "handler import", plugin, pluginPeak);
    std::printf("import / SDK read: %.2fx time, %.2fx peak memory (%u vertices)\n", plugin / sdk,
                pluginPeak / sdkPeak, vertices);
    std::filesystem::remove(path);
    return 0;
}
