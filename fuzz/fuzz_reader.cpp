// Feeds arbitrary bytes to one reader, builds the scene when the bytes
// parse, and walks what was built the way an importer would.
#include <cstddef>
#include <cstdint>

#include "format.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
void Walk(QdxNode* node, int depth) {
    if (!node || depth > 64) return;
    node->EvaluateGlobalTransform(QdxTime(0), QdxNode::eSourcePivot, true);
    if (QdxMesh* mesh = node->GetMesh()) {
        QdxStringList names;
        mesh->GetUVSetNames(names);
        QdxLayerElementArrayTemplate<int>* mats = nullptr;
        mesh->GetMaterialIndices(&mats);
        for (int p = 0; p < mesh->GetPolygonCount() && p < 1000; ++p)
            for (int c = 0; c < mesh->GetPolygonSize(p) && c < 64; ++c) {
                QdxVector4 n;
                QdxVector2 uv;
                bool unmapped;
                mesh->GetPolygonVertex(p, c);
                mesh->GetPolygonVertexNormal(p, c, n);
                for (int u = 0; u < names.GetCount(); ++u)
                    mesh->GetPolygonVertexUV(p, c, names[u], uv, unmapped);
                mesh->GetTextureUVIndex(p, c);
            }
    }
    if (QdxTrimNurbsSurface* t = node->GetTrimNurbsSurface())
        for (int r = 0; r < t->GetTrimRegionCount(); ++r)
            for (int b = 0; b < t->GetBoundaryCount(r); ++b)
                if (QdxBoundary* bd = t->GetBoundary(b, r)) bd->GetCurveCount();
    if (QdxLine* line = node->GetLine())
        for (int e = 0; e < line->GetEndPointCount(); ++e)
            line->GetPointIndexAt(line->GetEndPointAt(e));
    for (int i = 0; i < node->GetChildCount(); ++i)
        Walk(node->GetChild(i), depth + 1);
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QdxManager* manager = QdxManager::Create();
    format::FlatDocument doc;
    QdxStatus status;
#ifdef FUZZ_FLAVOUR_BINARY
    bool ok = format::ReadBinary(data, size, doc, status);
#else
    bool ok = format::ReadText(data, size, doc, status);
#endif
    if (!ok) return 0;
    QdxScene* scene = QdxScene::Create(manager, "fuzz");
    if (format::Build(doc, scene, status)) {
        Walk(scene->GetRootNode(), 0);
        for (int i = 0; i < scene->GetSrcObjectCount<QdxAnimCurve>(); ++i)
            scene->GetSrcObject<QdxAnimCurve>(i)->Evaluate(QdxTime(12345));
        format::FlatDocument again;
        format::Capture(scene, again);
        format::Sink discard = [](const void*, size_t) { return true; };
        format::WriteBinary(again, discard, status);
        format::WriteText(again, discard, status);
    }
    scene->ForceKill();
    return 0;
}
