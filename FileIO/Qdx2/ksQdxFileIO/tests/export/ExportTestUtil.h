#pragma once
// Helpers of the export tests: a fixture with a temporary folder and default
// host settings, host scenes built in code, files read back with the SDK.
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg.h>
#include <qdxsdk/qdxsdk.h>

#include "ksQdxWriter.h"

namespace exporttest {

// A file read back with the SDK; the manager dies with this object.
struct ReadBack {
    explicit ReadBack(const std::string& file) {
        auto* importer = qdxsdk::QdxImporter::Create(manager, "");
        ok = importer->Initialize(file.c_str(), -1) && importer->Import(scene);
        binary = importer->IsBinary();
        version = importer->GetFileVersionString().Str();
    }
    ~ReadBack() { manager->Destroy(); }
    qdxsdk::QdxNode* root() const { return scene->GetRootNode(); }
    qdxsdk::QdxNode* operator[](const char* name) const { return root()->FindChild(name, true); }

    qdxsdk::QdxManager* manager = qdxsdk::QdxManager::Create();
    qdxsdk::QdxScene* scene = qdxsdk::QdxScene::Create(manager, "");
    bool ok = false, binary = false;
    std::string version;
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

// Two triangles over four corners, one index for every property; texture
// slot i holds (x + i, y).
inline osg::GeometryPtr makeQuad(const std::vector<osg::UInt32>& uvSlots = {0}) {
    auto g = osg::Geometry::create();
    auto types = osg::GeoPTypesUI8::create();
    auto lengths = osg::GeoPLengthsUI32::create();
    auto indices = osg::GeoIndicesUI32::create();
    auto positions = osg::GeoPositions3f::create();
    auto normals = osg::GeoNormals3f::create();
    types->setValues({osg::PrimTriangles});
    lengths->setValues({6});
    indices->setValues({0, 1, 2, 0, 2, 3});
    positions->setValues({{0, 0, 0}, {10, 0, 0}, {10, 20, 0}, {0, 20, 0}});
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

class ExportTest : public ::testing::Test {
protected:
    // Host singletons back to their defaults: millimetres, Z up, 24 fps.
    static void resetHost() {
        ksSceneDataManager::reset();
        ksAnimManager::the().reset();
        osg::SceneFileHandler::the().clearOptions();
    }
    void SetUp() override {
        resetHost();
        _dir = std::filesystem::temp_directory_path() /
               ("ksqdx-export-" + std::to_string(::getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        std::filesystem::remove_all(_dir);
        std::filesystem::create_directories(_dir);
    }
    void TearDown() override {
        resetHost();
        std::error_code ec;
        std::filesystem::permissions(_dir, std::filesystem::perms::owner_all,
                                     std::filesystem::perm_options::add, ec);
        std::filesystem::remove_all(_dir, ec);
    }
    std::string file(const std::string& name) const { return (_dir / name).string(); }
    static void setUnit(int unit) { ksSceneDataManager::getSceneData(0)->setLengthUnit(unit); }
    static std::string contents(const std::string& path) {
        std::ostringstream text;
        text << std::ifstream(path, std::ios::binary).rdbuf();
        return text.str();
    }
    // Exports quietly; the driver's console lines are returned in printed.
    bool exportTo(const osg::NodePtr& node, const std::string& path,
                  const std::string& options = "") {
        ::testing::internal::CaptureStdout();
        bool ok = ksQdxWriter::write(node, path, options);
        printed = ::testing::internal::GetCapturedStdout();
        return ok;
    }

    std::filesystem::path _dir;
    std::string printed;
};

} // namespace exporttest
