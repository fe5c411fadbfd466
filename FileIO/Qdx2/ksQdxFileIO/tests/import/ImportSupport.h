#pragma once
// Helpers of the import tests: a fixture with a fresh temporary folder and
// default host settings, scenes written with the SDK, and imports through
// the host's scene-file handler with standard output and log captured.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include <kestrel/ksLog.h>
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>

#include "qdxsdk/qdxsdk.h"

namespace importtest {

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

using SceneBuilder = std::function<void(qdxsdk::QdxScene*)>;

class ImportTest : public ::testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // Builds a scene (Y up, centimetres unless the builder says otherwise)
    // and writes it into the temporary folder; format 0 binary, 1 text.
    std::string writeScene(const std::string& fileName, const SceneBuilder& build, int format = 0);
    Imported import(const std::string& path);

    std::string _dir;
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

} // namespace importtest
