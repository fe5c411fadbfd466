// Writes a scene with the SDK, reads it back, and builds a small host scene
// graph: proof that the installed headers, libraries and package files work
// together without the source tree.
#include <qdxsdk/qdxsdk.h>

#include <kestrel/osg/Group.h>
#include <kestrel/osg/Node.h>

#include <cstdio>
#include <filesystem>
#include <string>

using namespace qdxsdk;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: consumer OUTPUT.qdx\n");
        return 2;
    }
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "scene");
    QdxNode* node = QdxNode::Create(scene, "installed");
    scene->GetRootNode()->AddChild(node);
    QdxExporter* exporter = QdxExporter::Create(manager, "");
    bool written = exporter->Initialize(argv[1], -1) && exporter->Export(scene);
    exporter->Destroy();
    if (!written) {
        std::fprintf(stderr, "export failed\n");
        return 1;
    }
    QdxScene* back = QdxScene::Create(manager, "back");
    QdxImporter* importer = QdxImporter::Create(manager, "");
    bool read = importer->Initialize(argv[1], -1) && importer->Import(back);
    importer->Destroy();
    if (!read || back->GetRootNode()->GetChildCount() != 1 ||
        std::string(back->GetRootNode()->GetChild(0)->GetName()) != "installed") {
        std::fprintf(stderr, "read back failed\n");
        return 1;
    }
    manager->Destroy();

    osg::NodePtr root = osg::Node::create();
    root->setCore(osg::Group::create());
    osg::NodePtr child = osg::Node::create();
    child->setName("child");
    child->setCore(osg::Group::create());
    root->addChild(child);
    if (root->getNChildren() != 1) return 1;
    if (!std::filesystem::is_directory(PLUGIN_DIR)) {
        std::fprintf(stderr, "no plug-in folder at %s\n", PLUGIN_DIR);
        return 1;
    }
    std::printf("ok\n");
    return 0;
}
