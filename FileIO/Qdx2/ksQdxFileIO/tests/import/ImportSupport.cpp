#include "ImportSupport.h"

#include <cstdio>
#include <filesystem>
#include <random>

#include <kestrel/ksAnimManager.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksSceneDataManager.h>
#include <kestrel/osg/SceneFileHandler.h>

using namespace qdxsdk;

namespace importtest {

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

void ImportTest::SetUp() {
    ksSceneDataManager::reset();
    ksAnimManager::the().reset();
    osg::SceneFileHandler::the().clearOptions();
    std::random_device rd;
    _dir = (std::filesystem::temp_directory_path() /
            ("ksqdx-import-" + std::to_string(rd()) + "-" + std::to_string(rd())))
               .string();
    std::filesystem::create_directories(_dir);
}

void ImportTest::TearDown() {
    std::error_code ec;
    std::filesystem::remove_all(_dir, ec);
    osg::SceneFileHandler::the().clearOptions();
}

std::string ImportTest::writeScene(const std::string& fileName, const SceneBuilder& build,
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

Imported ImportTest::import(const std::string& path) {
    Imported result;
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

} // namespace importtest
