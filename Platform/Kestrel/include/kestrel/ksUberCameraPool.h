#pragma once
// The camera pool and camera utilities.
//
// The pool owns a root group node ("Cameras") under which new camera nodes
// are created, and one default camera ("Perspective"), the viewer's own
// camera, which writers skip. Cameras look along local -Z with +Y up.
#include <string>

#include <kestrel/osg/UberCamera.h>

class ksUberCameraPool {
public:
    static ksUberCameraPool& the();
    ksUberCameraPool* operator->() { return this; }

    osg::NodePtr getRoot() const { return _root; }
    osg::NodePtr getDefaultCamera() const { return _default; }
    // A new camera node with an UberCamera core named name, appended to
    // parent (the pool's root when parent is null). makeActive makes it the
    // active camera.
    osg::NodePtr createCameraNode(const std::string& name, const osg::NodePtr& parent,
                                  bool makeActive = false);
    osg::NodePtr getActiveCamera() const { return _active; }
    void setActiveCamera(const osg::NodePtr& camera);
    // Removes every camera except the default one.
    void reset();

private:
    ksUberCameraPool();
    osg::NodePtr _root, _default, _active;
};

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/ksUberCameraUtils.h>
