#pragma once
// Scene optimisations.
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>

class ksOptimize {
public:
    // Bakes transforms into geometry so that every world-space position
    // stays where it was: positions and normals of geometries (and control
    // points of surfaces) below node are transformed by their accumulated
    // matrix relative to node's parent, and every Transform core and
    // drawable transform below (and including) node becomes the identity.
    // Lights, cameras and joints keep a transform (their pose): it is set to
    // their accumulated matrix. Cores shared by nodes with different
    // matrices are copied first. Returns the number of geometries changed.
    static osg::UInt32 flushTransformations(const osg::NodePtr& node);
};

// Merges equal vertices of single-index geometry.
class ksGeoOptimizer {
public:
    // Vertices whose position, normal, colour and every texture coordinate
    // are bitwise equal become one; the properties are compacted, the index
    // is rewritten, and the vertex indices of skin weights are remapped
    // (duplicate pairs of a cluster are dropped). Runs in time linear in the
    // vertex count (hashing). Geometry with an interleaved index (more than
    // one mapping entry) or with vertex animation (a TimeShapeCache) is left
    // alone. Returns the number of vertices removed.
    static osg::UInt32 mergeVertices(const osg::GeometryPtr& geometry);
    // mergeVertices on every geometry below node.
    static osg::UInt32 optimize(const osg::NodePtr& node);
};
