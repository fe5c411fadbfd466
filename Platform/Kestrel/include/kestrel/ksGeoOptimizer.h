#pragma once
#include <kestrel/osg/Geometry.h>
#include <kestrel/osg/Node.h>

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
