// Export speed of the plug-in: a grid mesh of N triangles (2,000,000 by
// default) is written with the SDK, imported through the host's scene-file
// handler, then exported by the plug-in's writer in the binary and the text
// flavour. Prints seconds and peak resident memory of each step and the
// ratio of each export to the import. When the import yields nothing, an
// equivalent host scene is built directly instead.
//   plugin_export [--triangles N] [--dir DIR]
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <kestrel/osg.h>
#include <qdxsdk/qdxsdk.h>

#include "bench_util.h"
#include "ksQdxWriter.h"

namespace {

using benchutil::now;
using benchutil::peakMB;
using benchutil::resetPeak;

int gridSide(long triangles) {
    return static_cast<int>(std::ceil(std::sqrt(static_cast<double>(triangles / 2))));
}

double height(int x, int y) {
    return std::sin(x * 0.01) * std::cos(y * 0.01);
}

// The grid as a Qdx file: control points with normals and one UV set each.
bool writeSourceFile(const std::string& path, long triangles) {
    using namespace qdxsdk;
    const int side = gridSide(triangles);
    QdxManager* m = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(m, "");
    QdxMesh* mesh = QdxMesh::Create(scene, "grid");
    const int points = (side + 1) * (side + 1);
    mesh->InitControlPoints(points);
    QdxLayerElementNormal* normals = mesh->CreateElementNormal();
    normals->SetMappingMode(QdxLayerElement::eByControlPoint);
    normals->GetDirectArray().Resize(points);
    QdxLayerElementUV* uv = mesh->CreateElementUV("Material UV Set");
    uv->SetMappingMode(QdxLayerElement::eByControlPoint);
    uv->GetDirectArray().Resize(points);
    QdxVector4* cp = mesh->GetControlPoints();
    double* nd = normals->GetDirectArray().GetDoubles();
    double* ud = uv->GetDirectArray().GetDoubles();
    for (int y = 0; y <= side; ++y)
        for (int x = 0; x <= side; ++x) {
            const int i = y * (side + 1) + x;
            cp[i] = QdxVector4(x, height(x, y), y);
            nd[4 * i + 1] = nd[4 * i + 3] = 1.0;
            ud[2 * i] = x / double(side);
            ud[2 * i + 1] = y / double(side);
        }
    std::vector<int> sizes(static_cast<size_t>(triangles), 3), corners;
    corners.reserve(static_cast<size_t>(triangles) * 3);
    for (long q = 0; q < triangles / 2; ++q) {
        const int x = static_cast<int>(q % side), y = static_cast<int>(q / side);
        const int a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
        for (int v : {a, b, d, a, d, c})
            corners.push_back(v);
    }
    mesh->AddPolygons(sizes.data(), static_cast<int>(corners.size() / 3), corners.data());
    QdxNode* node = QdxNode::Create(scene, "grid");
    node->SetNodeAttribute(mesh);
    scene->GetRootNode()->AddChild(node);
    QdxExporter* exporter = QdxExporter::Create(m, "");
    bool ok = exporter->Initialize(path.c_str(), 0) && exporter->Export(scene);
    m->Destroy();
    return ok;
}

// The same grid built directly as host geometry under a root group.
osg::NodePtr buildHostScene(long triangles) {
    const int side = gridSide(triangles);
    auto positions = osg::GeoPositions3f::create();
    auto normals = osg::GeoNormals3f::create();
    auto uv = osg::GeoTexCoords2f::create();
    for (int y = 0; y <= side; ++y)
        for (int x = 0; x <= side; ++x) {
            positions->push_back(osg::Pnt3f(float(x), float(height(x, y)), float(y)));
            normals->push_back(osg::Vec3f(0, 1, 0));
            uv->push_back(osg::Vec2f(x / float(side), y / float(side)));
        }
    auto indices = osg::GeoIndicesUI32::create();
    indices->reserve(static_cast<osg::UInt32>(triangles * 3));
    for (long q = 0; q < triangles / 2; ++q) {
        const osg::UInt32 x = osg::UInt32(q % side), y = osg::UInt32(q / side);
        const osg::UInt32 a = y * (side + 1) + x, b = a + 1, c = a + side + 1, d = c + 1;
        for (osg::UInt32 v : {a, b, d, a, d, c})
            indices->push_back(v);
    }
    auto types = osg::GeoPTypesUI8::create();
    types->setValues({osg::PrimTriangles});
    auto lengths = osg::GeoPLengthsUI32::create();
    lengths->setValues({indices->size()});
    auto geometry = osg::Geometry::create();
    geometry->setTypes(types);
    geometry->setLengths(lengths);
    geometry->setIndices(indices);
    geometry->setPositions(positions);
    geometry->setNormals(normals);
    geometry->setTexCoords(uv);
    geometry->setIndexMapping({osg::MapPosition | osg::MapNormal | osg::MapTexCoords});
    auto node = osg::Node::create();
    node->setCore(geometry);
    node->setName("grid");
    auto root = osg::Node::create();
    root->setCore(osg::Group::create());
    root->addChild(node);
    return root;
}

} // namespace

int main(int argc, char** argv) {
    long triangles = 2000000;
    std::string dir = std::filesystem::temp_directory_path() / "ksqdx-export-bench";
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        if (a == "--triangles")
            triangles = std::max(2L, std::atol(argv[i + 1]));
        else if (a == "--dir")
            dir = argv[i + 1];
    }
    std::filesystem::create_directories(dir);
    const std::string source = dir + "/source.qdx";
    if (!writeSourceFile(source, triangles)) {
        std::fprintf(stderr, "plugin_export: cannot write %s\n", source.c_str());
        return 1;
    }

    resetPeak();
    double t0 = now();
    osg::NodePtr scene = osg::SceneFileHandler::the().read(source.c_str());
    const double importSeconds = now() - t0, importPeak = peakMB();
    const bool imported = bool(scene);
    if (!imported) scene = buildHostScene(triangles);

    struct Result {
        const char* flavour;
        double seconds, peak;
        bool ok;
    };
    std::vector<Result> results;
    for (const auto& [flavour, options] :
         {std::pair<const char*, const char*>{"binary", ""},
          std::pair<const char*, const char*>{"text", "qdx_format=ascii,qdx_version=QDX300"}}) {
        const std::string out = dir + "/export-" + flavour + ".qdx";
        resetPeak();
        double e0 = now();
        bool ok = ksQdxWriter::write(scene, out, options);
        results.push_back({flavour, now() - e0, peakMB(), ok});
        std::filesystem::remove(out);
    }
    std::filesystem::remove_all(dir);

    std::printf("\n%ld triangles\n", triangles);
    if (imported)
        std::printf("import (handler, binary)  %8.2f s  peak %7.0f MB\n", importSeconds,
                    importPeak);
    else
        std::printf("import failed; host scene built directly instead\n");
    for (const auto& r : results) {
        std::printf("export %-6s             %8.2f s  peak %7.0f MB%s", r.flavour, r.seconds,
                    r.peak, r.ok ? "" : "  (export failed)");
        if (imported) std::printf("   export/import %.2fx", r.seconds / importSeconds);
        std::printf("\n");
    }
    return 0;
}
