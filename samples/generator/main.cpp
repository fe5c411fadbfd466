// Writes the bundled sample scenes:
//   qdx_sample_generator OUTPUT_DIR
// OUTPUT_DIR receives showroom.qdx (binary) and showroom-text.qdx (text),
// the texture images in OUTPUT_DIR/textures and the vertex caches in
// OUTPUT_DIR/caches.
#include <cstdio>
#include <string>

#include <kestrel/ksFile.h>

#include "SampleCaches.h"
#include "SampleImages.h"
#include "SampleScene.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {

bool exportScene(QdxManager* manager, QdxScene* scene, const std::string& path, int format) {
    QdxExporter* exporter = QdxExporter::Create(manager, "");
    const bool ok = exporter->Initialize(path.c_str(), format) && exporter->Export(scene);
    if (!ok) std::fprintf(stderr, "%s: %s\n", path.c_str(), exporter->GetStatus().GetErrorString());
    exporter->Destroy();
    return ok;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: qdx_sample_generator OUTPUT_DIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    std::string error;
    if (!samples::writeSampleImages(ksFile::join(dir, "textures"), error) ||
        !samples::writeSampleCaches(dir, error)) {
        std::fprintf(stderr, "%s\n", error.c_str());
        return 1;
    }
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "showroom");
    // The stored paths name the folder the scene was authored in; readers
    // find the images by dropping leading folders.
    samples::buildShowroom(scene, "D:\\projects\\samples\\textures");
    const bool ok = exportScene(manager, scene, ksFile::join(dir, "showroom.qdx"), 0) &&
                    exportScene(manager, scene, ksFile::join(dir, "showroom-text.qdx"), 1);
    manager->Destroy();
    if (ok) std::printf("wrote %s/showroom.qdx, %s/showroom-text.qdx\n", dir.c_str(), dir.c_str());
    return ok ? 0 : 1;
}
