// Writes a small scene in every flavour and version: the fuzzers' seeds;
// with two more folders, a point cache and a Tove cache too.
//   fuzz_qdx_seeds BINARY_DIR TEXT_DIR [PC2_DIR TOVE_DIR]
#include <cstdio>
#include <string>
#include <vector>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
bool WriteCacheSeeds(const std::string& pc2Dir, const std::string& toveDir) {
    QdxPointCache pc2(2, 1.0, 0.5);
    QdxToveCache tove;
    QdxToveCache::Channel channel;
    channel.name = "points";
    channel.pointCount = 2;
    channel.intervalTicks = QdxTime::kTicksPerSecond / 10;
    for (int s = 0; s < 3; ++s) {
        std::vector<QdxVector4> points = {QdxVector4(s, 0, 1), QdxVector4(0, s, -1)};
        pc2.AddSample(points);
        for (const QdxVector4& p : points)
            channel.values.insert(channel.values.end(), {p[0], p[1], p[2]});
    }
    QdxStatus status;
    bool ok = pc2.Write(pc2Dir + "/seed.pc2", status) && tove.AddChannel(channel, status);
    channel.name = "wide";
    channel.storage = QdxToveCache::eFloat64;
    return ok && tove.AddChannel(channel, status) && tove.Write(toveDir + "/seed.tove", status);
}
} // namespace

int main(int argc, char** argv) {
    if (argc != 3 && argc != 5) {
        std::fprintf(stderr, "usage: fuzz_qdx_seeds BINARY_DIR TEXT_DIR [PC2_DIR TOVE_DIR]\n");
        return 1;
    }
    QdxManager* m = QdxManager::Create();
    QdxScene* s = QdxScene::Create(m, "seed");
    QdxNode* n = QdxNode::Create(s, "node");
    s->GetRootNode()->AddChild(n);
    QdxMesh* mesh = QdxMesh::Create(s, "mesh");
    mesh->InitControlPoints(3);
    mesh->BeginPolygon(0);
    for (int i = 0; i < 3; ++i)
        mesh->AddPolygon(i);
    mesh->EndPolygon();
    QdxLayerElementUV* uv = mesh->CreateElementUV("map1");
    uv->SetMappingMode(QdxLayerElement::eByPolygonVertex);
    for (int i = 0; i < 3; ++i)
        uv->GetDirectArray().Add(QdxVector2(i, 1));
    n->SetNodeAttribute(mesh);
    n->AddMaterial(QdxSurfacePhong::Create(s, "mat"));
    QdxAnimStack* stack = QdxAnimStack::Create(s, "take");
    QdxAnimLayer* layer = QdxAnimLayer::Create(s, "base");
    stack->AddMember(layer);
    QdxAnimCurve* c = n->LclTranslation.GetCurve(layer, "X", true);
    c->KeySet(c->KeyAdd(QdxTime(0)), QdxTime(0), 1.0);
    int failures = 0;
    for (int format = 0; format < 2; ++format)
        for (int v = 1; v <= 3; ++v) {
            std::string path = std::string(argv[1 + format]) + "/seed" + std::to_string(v) + ".qdx";
            QdxExporter* e = QdxExporter::Create(m, "");
            std::string version = "QDX" + std::to_string(v) + "00";
            if (!e->Initialize(path.c_str(), format) || !e->SetFileExportVersion(version.c_str()) ||
                !e->Export(s))
                ++failures;
        }
    m->Destroy();
    if (argc == 5 && !WriteCacheSeeds(argv[3], argv[4])) ++failures;
    return failures ? 1 : 0;
}
