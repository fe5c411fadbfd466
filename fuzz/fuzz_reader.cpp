// Feeds arbitrary bytes to one reader, builds the scene when the bytes
// parse, and walks what was built the way an importer would.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

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

#ifdef FUZZ_FLAVOUR_BINARY
// Rewrites every chunk checksum so that mutations reach the parsers behind
// the checksum test instead of stopping there.
std::vector<uint8_t> WithFixedChecksums(const uint8_t* data, size_t size) {
    std::vector<uint8_t> bytes(data, data + size);
    size_t at = 16;
    while (at + 12 <= bytes.size()) {
        uint64_t length;
        std::memcpy(&length, bytes.data() + at + 4, 8);
        if (length > bytes.size() - at - 12 || bytes.size() - at - 12 - length < 4) break;
        uint32_t crc = format::Crc32(bytes.data() + at + 12, static_cast<size_t>(length));
        std::memcpy(bytes.data() + at + 12 + length, &crc, 4);
        at += 16 + static_cast<size_t>(length);
    }
    return bytes;
}
#endif

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static QdxManager* manager = QdxManager::Create();
    format::FlatDocument doc;
    QdxStatus status;
#ifdef FUZZ_FLAVOUR_BINARY
    // Half the inputs as they are (the checksum test itself), half repaired.
    std::vector<uint8_t> fixed;
    if (size > 0 && (data[size - 1] & 1)) {
        fixed = WithFixedChecksums(data, size);
        data = fixed.data();
    }
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
