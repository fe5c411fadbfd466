#pragma once
// Depth-first walk over a scene graph with an explicit stack, giving each
// node its world matrix and depth. Children are visited in order.
#include <cstddef>
#include <functional>

#include <kestrel/osg/Matrix.h>
#include <kestrel/osg/Node.h>

class SceneWalk {
public:
    // fn returns false to skip the node's children.
    using Visit =
        std::function<bool(const osg::NodePtr& node, const osg::Matrix& world, std::size_t depth)>;
    static void forEach(const osg::NodePtr& root, const Visit& fn);
};
