// Writes a small scene in every flavour and version: the fuzzers' seeds.
//   fuzz_qdx_seeds BINARY_DIR TEXT_DIR
#include <cstdio>
#include <string>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: fuzz_qdx_seeds BINARY_DIR TEXT_DIR\n");
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
    return failures ? 1 : 0;
}
