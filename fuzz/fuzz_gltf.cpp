// Feeds arbitrary bytes to the glTF reader (text or binary, as the bytes
// say) and publishes the scene when they parse. Embedded images land in a
// scratch folder beside the made-up input path.
#include <cstddef>
#include <cstdint>

#include "format_gltf.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QdxManager* manager = QdxManager::Create();
    QdxStatus status;
    format::ReadInput input{data, size, "/tmp/fuzz_gltf_scratch/input.glb"};
    auto decoded = format::ReadGltf(input, status, {});
    if (!decoded) return 0;
    QdxScene* scene = QdxScene::Create(manager, "fuzz");
    if (decoded->Publish(scene, status))
        for (int i = 0; i < scene->GetNodeCount(); ++i)
            scene->GetNode(i)->EvaluateGlobalTransform();
    scene->ForceKill();
    return 0;
}
