#pragma once
// The plug-in's test kit, shared by the import, export and round-trip
// tests: a fixture with a fresh temporary folder and default host settings;
// Qdx scenes written with the SDK; imports and exports through the plug-in
// with standard output and the host log captured; files read back with the
// SDK; host scenes built in code.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <kestrel/ksLog.h>
#include <kestrel/osg.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>

#include "qdxsdk/qdxsdk.h"

namespace qdxtest {

// What an import through the host's scene-file handler gave.
struct Imported {
    osg::NodePtr root;
    std::string out;                      // standard output
    std::vector<ksLogCapture::Entry> log; // host log
    std::vector<osg::UInt32> progress;    // reported read progress

    // Messages of a level containing needle.
    size_t count(ksLog::Level level, const std::string& needle) const;
    osg::NodePtr node(const std::string& name) const;
    osg::GeometryPtr geometry(const std::string& name) const;
};

// A file read back with the SDK; the manager dies with this object.
struct ReadBack {
    explicit ReadBack(const std::string& file);
    ~ReadBack();
    ReadBack(const ReadBack&) = delete;
    ReadBack& operator=(const ReadBack&) = delete;
    qdxsdk::QdxNode* root() const { return scene->GetRootNode(); }
    qdxsdk::QdxNode* operator[](const char* name) const { return root()->FindChild(name, true); }

    qdxsdk::QdxManager* manager = nullptr;
    qdxsdk::QdxScene* scene = nullptr;
    bool ok = false, binary = false;
    std::string version;
};

// A host's scene settings, and those the world-space tests run under:
// millimetres, centimetres and metres, each with Z and with Y up.
struct HostSetting {
    int unit; // ksSceneData length unit code
    int up;   // 0 Y, 1 Z
};
inline const HostSetting kHostSettings[] = {{1, 1}, {2, 1}, {4, 1}, {1, 0}, {2, 0}, {4, 0}};

// Brings a scene into a host's length unit (ksSceneData code) and up axis
// (0 Y, 1 Z), as an import does.
void convertToHost(qdxsdk::QdxScene* scene, int unit, int up);

using SceneBuilder = std::function<void(qdxsdk::QdxScene*)>;

class PluginTest : public ::testing::Test {
protected:
    // Host singletons back to their defaults: millimetres, Z up, 24 fps, no
    // cameras but the default one, no constraints.
    static void resetHost();
    void SetUp() override;
    void TearDown() override;

    std::string file(const std::string& name) const { return _dir + "/" + name; }
    static void setUnit(int unit);
    static std::string contents(const std::string& path);

    // Builds a scene (Y up, centimetres unless the builder says otherwise)
    // and writes it into the temporary folder; format 0 binary, 1 text.
    std::string writeScene(const std::string& fileName, const SceneBuilder& build, int format = 0);
    // Imports through the handler, from cwd when given (relative textures).
    Imported import(const std::string& path, const std::string& cwd = {});
    // Exports through the writer; its console lines land in printed.
    bool exportTo(const osg::NodePtr& node, const std::string& path,
                  const std::string& options = "");

    std::string _dir;
    std::string printed;
};

// A test run once per host setting: the scene's length unit and up axis are
// the parameter's from SetUp on.
class HostSettingTest : public PluginTest, public ::testing::WithParamInterface<HostSetting> {
protected:
    void SetUp() override;
};

// A mesh node below parent with the given control points and polygons.
qdxsdk::QdxNode* addMesh(qdxsdk::QdxScene* scene, qdxsdk::QdxNode* parent, const std::string& name,
                         const std::vector<qdxsdk::QdxVector4>& points,
                         const std::vector<std::vector<int>>& polygons);
// A unit quad's four corners, and one quad polygon over them.
std::vector<qdxsdk::QdxVector4> quadPoints(double z = 0.0);

// Host world-space position of every polygon corner of a geometry node, in
// primitive order.
std::vector<osg::Pnt3f> worldCorners(const osg::NodePtr& node);

// Host nodes: one with a core, name and children, and a group.
osg::NodePtr makeNode(const osg::NodeCorePtr& core, const std::string& name,
                      const std::vector<osg::NodePtr>& children = {});
osg::NodePtr makeGroup(const std::string& name, const std::vector<osg::NodePtr>& children);
// Two triangles over four corners, one index for every property; texture
// slot i holds (x + i, y).
osg::GeometryPtr makeQuad(const std::vector<osg::UInt32>& uvSlots = {0});

} // namespace qdxtest
