#include "TestKit.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <sstream>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksConstraintManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/ksUberCameraPool.h>
#include <kestrel/osg/SceneFileHandler.h>

#include "ksQdxWriter.h"

using namespace qdxsdk;

namespace qdxtest {

void HostSettingTest::SetUp() {
    PluginTest::SetUp();
    ksSceneDataManager::getSceneData(0)->setLengthUnit(GetParam().unit);
    ksSceneDataManager::getSceneData(0)->setUpAxis(GetParam().up);
}

size_t Imported::count(ksLog::Level level, const std::string& needle) const {
    size_t n = 0;
    for (const auto& e : log)
        if (e.level == level && e.text.find(needle) != std::string::npos) ++n;
    return n;
}

osg::NodePtr Imported::node(const std::string& name) const {
    return root ? ksNodeUtils::findNode(root, name) : osg::NodePtr();
}

osg::GeometryPtr Imported::geometry(const std::string& name) const {
    osg::NodePtr n = node(name);
    return n ? osg::GeometryPtr::dcast(n->getCore()) : osg::GeometryPtr();
}

ReadBack::ReadBack(const std::string& file)
    : manager(QdxManager::Create()), scene(QdxScene::Create(manager, "")) {
    auto* importer = QdxImporter::Create(manager, "");
    ok = importer->Initialize(file.c_str(), -1) && importer->Import(scene);
    binary = importer->IsBinary();
    version = importer->GetFileVersionString().Str();
}

ReadBack::~ReadBack() {
    manager->Destroy();
}

void convertToHost(QdxScene* scene, int unit, int up) {
    (up == 1 ? QdxAxisSystem::ToveZUp : QdxAxisSystem::ToveYUp).ConvertScene(scene);
    (unit == ksSceneData::Meter        ? QdxSystemUnit::m
     : unit == ksSceneData::Centimeter ? QdxSystemUnit::cm
                                       : QdxSystemUnit::mm)
        .ConvertScene(scene);
}

void PluginTest::resetHost() {
    ksUberCameraPool::the().reset();
    ksConstraintManager::the().clear();
    ksSceneDataManager::reset();
    ksAnimManager::the().reset();
    osg::SceneFileHandler::the().clearOptions();
}

void PluginTest::SetUp() {
    resetHost();
    std::random_device rd;
    _dir = (std::filesystem::temp_directory_path() /
            ("ksqdx-test-" + std::to_string(rd()) + "-" + std::to_string(rd())))
               .string();
    std::filesystem::create_directories(_dir);
}

void PluginTest::TearDown() {
    resetHost();
    std::error_code ec;
    std::filesystem::permissions(_dir, std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
    std::filesystem::remove_all(_dir, ec);
}

void PluginTest::setUnit(int unit) {
    ksSceneDataManager::getSceneData(0)->setLengthUnit(unit);
}

std::string PluginTest::contents(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool PluginTest::exportTo(const osg::NodePtr& node, const std::string& path,
                          const std::string& options) {
    std::fflush(stdout);
    ::testing::internal::CaptureStdout();
    const bool ok = ksQdxWriter::write(node, path, options);
    std::fflush(stdout);
    printed = ::testing::internal::GetCapturedStdout();
    return ok;
}

osg::NodePtr makeNode(const osg::NodeCorePtr& core, const std::string& name,
                      const std::vector<osg::NodePtr>& children) {
    auto node = osg::Node::create();
    node->setCore(core);
    node->setName(name);
    for (const auto& c : children)
        node->addChild(c);
    return node;
}

osg::NodePtr makeGroup(const std::string& name, const std::vector<osg::NodePtr>& children) {
    return makeNode(osg::Group::create(), name, children);
}

osg::GeometryPtr makeQuad(const std::vector<osg::UInt32>& uvSlots) {
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

std::string PluginTest::writeScene(const std::string& fileName, const SceneBuilder& build,
                                   int format) {
    const std::string path = _dir + "/" + fileName;
    QdxManager* manager = QdxManager::Create();
    QdxScene* scene = QdxScene::Create(manager, "test");
    scene->GetGlobalSettings().SetAxisSystem(QdxAxisSystem::ToveYUp);
    scene->GetGlobalSettings().SetSystemUnit(QdxSystemUnit::cm);
    build(scene);
    QdxExporter* exporter = QdxExporter::Create(manager, "");
    const bool ok = exporter->Initialize(path.c_str(), format) && exporter->Export(scene);
    EXPECT_TRUE(ok) << exporter->GetStatus().GetErrorString();
    manager->Destroy();
    return path;
}

Imported PluginTest::import(const std::string& path, const std::string& cwd) {
    Imported result;
    const std::filesystem::path before = std::filesystem::current_path();
    if (!cwd.empty()) std::filesystem::current_path(cwd);
    ksLogCapture capture;
    const osg::UInt32 id = osg::SceneFileHandler::the().addReadProgressCallback(
        [&result](osg::UInt32 percent) { result.progress.push_back(percent); });
    std::fflush(stdout);
    testing::internal::CaptureStdout();
    result.root = osg::SceneFileHandler::the().read(path.c_str());
    std::fflush(stdout);
    result.out = testing::internal::GetCapturedStdout();
    osg::SceneFileHandler::the().removeProgressCallback(id);
    result.log = capture.entries();
    if (!cwd.empty()) std::filesystem::current_path(before);
    return result;
}

QdxNode* addMesh(QdxScene* scene, QdxNode* parent, const std::string& name,
                 const std::vector<QdxVector4>& points,
                 const std::vector<std::vector<int>>& polygons) {
    QdxMesh* mesh = QdxMesh::Create(scene, (name + "Mesh").c_str());
    mesh->InitControlPoints(static_cast<int>(points.size()));
    for (size_t i = 0; i < points.size(); ++i)
        mesh->SetControlPointAt(points[i], static_cast<int>(i));
    for (const auto& polygon : polygons) {
        mesh->BeginPolygon();
        for (int c : polygon)
            mesh->AddPolygon(c);
        mesh->EndPolygon();
    }
    QdxNode* node = QdxNode::Create(scene, name.c_str());
    parent->AddChild(node);
    node->SetNodeAttribute(mesh);
    return node;
}

std::vector<QdxVector4> quadPoints(double z) {
    return {QdxVector4(0, 0, z), QdxVector4(1, 0, z), QdxVector4(1, 1, z), QdxVector4(0, 1, z)};
}

std::vector<osg::Pnt3f> worldCorners(const osg::NodePtr& node) {
    std::vector<osg::Pnt3f> corners;
    auto geometry = node ? osg::GeometryPtr::dcast(node->getCore()) : osg::GeometryPtr();
    if (!geometry || !geometry->getPositions()) return corners;
    const osg::Matrix world = node->getWorldMatrix();
    auto positions = osg::GeoPositions3fPtr::dcast(geometry->getPositions());
    for (osg::UInt32 v = 0; v < geometry->getVertexCount(); ++v) {
        const osg::UInt32 i = geometry->getPropertyIndex(v, osg::MapPosition);
        corners.push_back(i < positions->size() ? world.multPnt(positions->getValue(i))
                                                : osg::Pnt3f(NAN, NAN, NAN));
    }
    return corners;
}

} // namespace qdxtest
