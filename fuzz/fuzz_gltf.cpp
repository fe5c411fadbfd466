// Feeds arbitrary bytes to the glTF reader (text or binary, as the bytes
// say) and publishes the scene when they parse, then evaluates it through
// every animation stack. Embedded images land in a
// scratch folder beside the made-up input path.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "format_gltf.h"
#include "qdxsdk/deformer.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QdxManager* manager = QdxManager::Create();
    QdxStatus status;
    format::ReadInput input{data, size, "/tmp/fuzz_gltf_scratch/input.glb"};
    auto decoded = format::ReadGltf(input, status, {});
    if (!decoded) return 0;
    QdxScene* scene = QdxScene::Create(manager, "fuzz");
    if (decoded->Publish(scene, status)) {
        // Every stack at its ends and middle: transforms, attribute frames
        // and skinned points.
        const int stacks = std::max(scene->GetSrcObjectCount<QdxAnimStack>(), 1);
        for (int s = 0; s < stacks; ++s) {
            QdxAnimStack* stack = scene->GetSrcObject<QdxAnimStack>(s);
            if (stack) scene->SetCurrentAnimationStack(stack);
            const QdxTimeSpan span = stack ? stack->GetLocalTimeSpan() : QdxTimeSpan();
            const long long a = span.GetStart().Get(), b = span.GetStop().Get();
            for (long long t : {a, a / 2 + b / 2, b}) {
                for (int i = 0; i < scene->GetNodeCount(); ++i) {
                    QdxNode* node = scene->GetNode(i);
                    node->EvaluateGlobalTransform(QdxTime(t));
                    if (QdxNodeAttribute* attribute = node->GetNodeAttribute())
                        attribute->EvaluateWorldFrame(node, QdxTime(t));
                }
                std::vector<QdxVector4> points;
                for (int i = 0; i < scene->GetSrcObjectCount<QdxSkin>(); ++i)
                    scene->GetSrcObject<QdxSkin>(i)->EvaluateDeformedPoints(QdxTime(t), points);
            }
        }
    }
    scene->ForceKill();
    return 0;
}
