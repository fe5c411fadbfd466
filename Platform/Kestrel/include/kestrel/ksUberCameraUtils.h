#pragma once
#include <string>

#include <kestrel/osg/UberCamera.h>

class ksUberCameraUtils {
public:
    static bool isCamera(const osg::NodePtr& node);
    static osg::UberCameraPtr getCamera(const osg::NodePtr& node);
    // True for the pool's default camera node (or its core).
    static bool isDefaultCamera(const osg::NodePtr& node);
    static bool isDefaultCamera(const osg::UberCameraPtr& camera);
    static std::string getName(const osg::NodePtr& node);
    static std::string getName(const osg::UberCameraPtr& camera);
};
