#pragma once
// Camera utilities: which nodes are cameras, the pool's default camera
// (which exports leave out) and camera names.
#include <string>

#include <kestrel/osg/UberCamera.h>

class ksUberCameraUtils {
public:
    static bool isCamera(const osg::NodePtr& node);
    static osg::UberCameraPtr getCamera(const osg::NodePtr& node);
    // True for the pool's default camera: its node, its core, or any node
    // sharing that core. False for null.
    static bool isDefaultCamera(const osg::NodePtr& node);
    static bool isDefaultCamera(const osg::UberCameraPtr& camera);
    static std::string getName(const osg::NodePtr& node);
    static std::string getName(const osg::UberCameraPtr& camera);
};
