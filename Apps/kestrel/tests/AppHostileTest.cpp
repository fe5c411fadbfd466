// Files that are well formed but hostile in content, written with the SDK's
// own API, through `kestrel import` and `kestrel convert`: each is either
// imported as documented or refused with exit code 1 and a message that
// names the problem, never a crash.
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <qdxsdk/qdxsdk.h>

#include "AppSupport.h"

using namespace qdxsdk;

namespace {

const std::string kPlugins = "--plugin-dir '" KESTREL_PLUGIN_DIR "' ";

AppRun run(const std::string& args) {
    return runApp(kPlugins + args, "cd / &&");
}

// Writes scene to path in the binary (0) or text (1) flavour.
bool save(QdxScene* scene, const std::string& path, int format) {
    QdxExporter* exporter = QdxExporter::Create(scene->GetQdxManager(), "");
    return exporter->Initialize(path.c_str(), format) && exporter->Export(scene);
}

// A one-triangle mesh whose element of class Element claims slot of layer 0.
template <class Element>
bool writeMisplacedElement(const std::string& path, int format, QdxLayerElement::EType slot) {
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "slots");
    QdxNode* node = QdxNode::Create(scene, "tri");
    scene->GetRootNode()->AddChild(node);
    QdxMesh* mesh = QdxMesh::Create(scene, "mesh");
    mesh->InitControlPoints(3);
    mesh->BeginPolygon();
    for (int i = 0; i < 3; ++i)
        mesh->AddPolygon(i);
    mesh->EndPolygon();
    node->SetNodeAttribute(mesh);
    Element* element = Element::Create(scene, "intruder");
    element->GetDirectArray().Resize(3);
    // What a writer that does not follow the class model would store.
    mesh->ConnectSrcObject(element);
    element->LayerIndex.Set(0);
    element->LayerSlot.Set(slot);
    const bool ok = save(scene, path, format);
    manager->Destroy();
    return ok;
}

// A chain of levels nodes below the root, one attribute-less node per level.
bool writeChain(const std::string& path, int format, int levels) {
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "chain");
    QdxNode* parent = scene->GetRootNode();
    for (int i = 0; i < levels; ++i) {
        QdxNode* n = QdxNode::Create(scene, "level");
        parent->AddChild(n);
        n->LclTranslation.Set(QdxDouble3(1, 0, 0));
        parent = n;
    }
    const bool ok = save(scene, path, format);
    manager->Destroy();
    return ok;
}

void expectRefused(const std::string& file, const std::string& out, const std::string& text) {
    AppRun imported = run("import '" + file + "'");
    EXPECT_EQ(imported.code, 1) << imported.err;
    EXPECT_NE(imported.err.find(text), std::string::npos) << imported.err;
    AppRun converted = run("convert '" + file + "' '" + out + "'");
    EXPECT_EQ(converted.code, 1) << converted.err;
    EXPECT_NE(converted.err.find(text), std::string::npos) << converted.err;
}

} // namespace

TEST(AppHostile, ElementsInAnotherClassesLayerSlotAreRefused) {
    // Seen as type confusion in the layer accessors: a UV set in the normal
    // slot, a normal element in the UV and colour slots, a UV set in the
    // material slot; across both flavours and both suffixes.
    TempDir dir;
    struct Case {
        const char* name;
        bool (*write)(const std::string&, int, QdxLayerElement::EType);
        QdxLayerElement::EType slot;
    };
    const Case cases[] = {
        {"uv-in-normals", writeMisplacedElement<QdxLayerElementUV>, QdxLayerElement::eNormal},
        {"normal-in-uvs", writeMisplacedElement<QdxLayerElementNormal>,
         QdxLayerElement::eTextureDiffuse},
        {"normal-in-colours", writeMisplacedElement<QdxLayerElementNormal>,
         QdxLayerElement::eVertexColor},
        {"uv-in-materials", writeMisplacedElement<QdxLayerElementUV>, QdxLayerElement::eMaterial},
    };
    int at = 0;
    for (const Case& c : cases) {
        const int format = at % 2;
        const char* suffix = at++ / 2 % 2 ? ".abc" : ".qdx";
        const std::string file = dir.file(std::string(c.name) + suffix);
        ASSERT_TRUE(c.write(file, format, c.slot)) << file;
        SCOPED_TRACE(file);
        expectRefused(file, dir.file("out.qdx"), "'intruder' of class QdxLayerElement");
    }
}

TEST(AppHostile, HierarchiesImportUpToTheDepthLimitAndAreRefusedBeyond) {
    // Seen as stack overflows in the import, the JSON printing and the "abc"
    // path from about 2,000 levels, and as a hang at 200,000.
    TempDir dir;
    const std::string deep = dir.file("deep.abc");
    ASSERT_TRUE(writeChain(deep, 0, 10000));
    AppRun tree = run("import '" + deep + "'");
    ASSERT_EQ(tree.code, 0) << tree.err;
    EXPECT_NE(tree.out.find("level"), std::string::npos);
    AppRun json = run("import --json '" + deep + "'");
    ASSERT_EQ(json.code, 0) << json.err;
    EXPECT_FALSE(nlohmann::json::parse(json.out, nullptr, false).is_discarded());
    AppRun converted = run("convert '" + deep + "' '" + dir.file("back.qdx") + "'");
    EXPECT_EQ(converted.code, 0) << converted.err;
    AppRun again = run("import --stats '" + dir.file("back.qdx") + "'");
    EXPECT_EQ(again.code, 0) << again.err;

    const std::string deeper = dir.file("deeper.qdx");
    ASSERT_TRUE(writeChain(deeper, 1, 10001));
    expectRefused(deeper, dir.file("out.qdx"),
                  "The node hierarchy is too deep: node 'level' is more than 10000 levels below "
                  "its root");
}
