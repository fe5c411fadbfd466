#pragma once
#include <string>
#include <vector>

#include <kestrel/osg/Animation.h>
#include <kestrel/osg/Node.h>

// Applies animation curves to the scene.
class ksAnimEvaluator {
public:
    static ksAnimEvaluator& the();
    ksAnimEvaluator* operator->() { return this; }

    // Rebuilds the map of animated nodes below root (node -> parent).
    void updateSceneAnimParentMap(const osg::NodePtr& root);
    // Animated nodes found by the last update, in traversal order.
    std::vector<osg::NodePtr> getAnimatedNodes() const;
    osg::NodePtr getAnimParent(const osg::NodePtr& node) const;
    // Writes every curve's value at time (seconds) into its node: transform
    // channels into the Transform3D, "visible" into the traversal mask
    // (value >= 0.5 shows), camera and light channels into their cores.
    // Curves in blocks are applied too. Returns the number of curves applied.
    osg::UInt32 evaluate(osg::Real32 seconds);

private:
    ksAnimEvaluator() = default;
    std::vector<std::pair<std::weak_ptr<osg::FieldContainer>, std::weak_ptr<osg::FieldContainer>>>
        _map;
};
