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

#include "plugin_bench_util.h"

using namespace qdxsdk;
using pluginbench::now;
using pluginbench::peakMB;
using pluginbench::resetPeak;

namespace {

// The grid of the SDK benchmark: quads split into two triangles.
void buildGrid(QdxScene* scene, long triangles) {
    const long quads = triangles / 2;
    const int side = static_cast<int>(std::ceil(std::sqrt(static_cast<double>(quads))));
    QdxMesh* mesh = QdxMesh::Create(scene, "grid");
    mesh->InitControlPoints((side + 1) * (side + 1));
    QdxVector4* cp = mesh->GetControlPoints();
    for (int y = 0; y <= side; ++y)
        for (int x = 0; x <= side; ++x)
            cp[y * (side + 1) + x] = QdxVector4(x, std::sin(x * 0.01) * std::cos(y * 0.01), y);
    std::vector<int> sizes(static_cast<size_t>(quads) * 2, 3), corners;
    corners.reserve(static_cast<size_t>(quads) * 6);
    for (long q = 0; q < quads; ++q) {
        const int x = static_cast<int>(q % side), y = static_cast<int>(q / side);
        const int a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
        for (int v : {a, b, d, a, d, c})
            corners.push_back(v);
    }
    mesh->AddPolygons(sizes.data(), static_cast<int>(sizes.size()), corners.data());
    const size_t n = corners.size();
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
            const int v = corners[i];
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
}

} // namespace

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
        buildGrid(scene, triangles);
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
