#pragma once
// Scene optimisations.
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>

class ksOptimize {
public:
    // Bakes transforms into geometry so that every world-space position
    // stays where it was: positions and normals of geometries (and control
    // points of surfaces) below node are transformed by their accumulated
    // matrix relative to node's parent (with their cached shapes, and with
    // skin bind poses adjusted so that skinned vertices stay where they
    // were), and every Transform core and
    // drawable transform below (and including) node becomes the identity.
    // Lights, cameras and joints keep a transform (their pose): it is set to
    // their accumulated matrix. Cores shared by nodes with different
    // matrices are copied first. Returns the number of geometries changed.
    static osg::UInt32 flushTransformations(const osg::NodePtr& node);
};

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/ksGeoOptimizer.h>
