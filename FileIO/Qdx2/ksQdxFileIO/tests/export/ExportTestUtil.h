#pragma once
// Helpers of the export tests: temporary folders, host scenes built in code,
// and exported files read back with the SDK's importer.
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg.h>
#include <qdxsdk/qdxsdk.h>

#include "ksQdxWriter.h"

namespace exporttest {

class TempDir {
public:
    TempDir() {
        std::string tmpl =
            (std::filesystem::temp_directory_path() / "ksqdx-export-XXXXXX").string();
        char* made = mkdtemp(tmpl.data());
        _path = made ? made : "";
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::permissions(_path, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
        if (!_path.empty()) std::filesystem::remove_all(_path, ec);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::string& path() const { return _path; }
    std::string file(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

// A file read back with the SDK; the manager dies with this object.
class ReadBack {
public:
    explicit ReadBack(const std::string& fileName) {
        manager = qdxsdk::QdxManager::Create();
        scene = qdxsdk::QdxScene::Create(manager, "");
        auto* importer = qdxsdk::QdxImporter::Create(manager, "");
        ok = importer->Initialize(fileName.c_str(), -1) && importer->Import(scene);
        binary = importer->IsBinary();
        version = importer->GetFileVersionString().Str();
        error = importer->GetStatus().GetErrorString();
    }
    ~ReadBack() { manager->Destroy(); }
    ReadBack(const ReadBack&) = delete;
    ReadBack& operator=(const ReadBack&) = delete;

    qdxsdk::QdxNode* root() const { return scene->GetRootNode(); }
    qdxsdk::QdxNode* find(const char* name) const { return root()->FindChild(name, true); }

    qdxsdk::QdxManager* manager = nullptr;
    qdxsdk::QdxScene* scene = nullptr;
    bool ok = false, binary = false;
    std::string version, error;
};

inline osg::NodePtr makeNode(const osg::NodeCorePtr& core, const std::string& name,
                             const std::vector<osg::NodePtr>& children = {}) {
    auto node = osg::Node::create();
    node->setCore(core);
    node->setName(name);
    for (const auto& c : children)
        node->addChild(c);
    return node;
}

inline osg::NodePtr makeGroup(const std::string& name, const std::vector<osg::NodePtr>& children) {
    return makeNode(osg::Group::create(), name, children);
}

// A quad of two triangles sharing one index for every property, with
// normals and texture coordinates in the given slots (slot i holds
// u = x + i, v = y).
inline osg::GeometryPtr makeQuad(const std::vector<osg::UInt32>& uvSlots = {0}) {
    auto g = osg::Geometry::create();
    auto types = osg::GeoPTypesUI8::create();
    types->setValues({osg::PrimTriangles});
    auto lengths = osg::GeoPLengthsUI32::create();
    lengths->setValues({6});
    auto indices = osg::GeoIndicesUI32::create();
    indices->setValues({0, 1, 2, 0, 2, 3});
    auto positions = osg::GeoPositions3f::create();
    positions->setValues({{0, 0, 0}, {10, 0, 0}, {10, 20, 0}, {0, 20, 0}});
    auto normals = osg::GeoNormals3f::create();
    normals->setValues({{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, {0.6f, 0.8f, 0}});
    g->setTypes(types);
    g->setLengths(lengths);
    g->setIndices(indices);
    g->setPositions(positions);
    g->setNormals(normals);
    osg::UInt16 mapping = osg::MapPosition | osg::MapNormal;
    for (osg::UInt32 slot : uvSlots) {
        auto uv = osg::GeoTexCoords2f::create();
        for (const auto& p : positions->getField())
            uv->push_back(osg::Vec2f(p[0] + float(slot), p[1]));
        g->setTexSlot(uv, slot);
        mapping |= osg::mapTexCoordsBit(slot);
    }
    g->setIndexMapping({mapping});
    return g;
}

// Host singletons back to their defaults: millimetres, Z up, 24 fps.
inline void resetHost() {
    ksSceneDataManager::reset();
    ksAnimManager::the().reset();
    osg::SceneFileHandler::the().clearOptions();
}

inline std::string readFile(const std::string& path) {
    std::string text;
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        char buffer[4096];
        std::size_t n;
        while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0)
            text.append(buffer, n);
        std::fclose(f);
    }
    return text;
}

} // namespace exporttest
