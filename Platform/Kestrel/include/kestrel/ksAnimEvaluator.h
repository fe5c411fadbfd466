#pragma once
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <kestrel/osg/Animation.h>
#include <kestrel/osg/Node.h>

// Applies animation curves to the scene.
//
// Each animated channel component of a node (say "translation"/"X") gets its
// value from the node's animation attachment, layer by layer:
//   1. start from the node's rest value of the channel;
//   2. the ungrouped curve of the channel (the base), when it has points,
//      replaces that value;
//   3. each block (a group node directly under the attachment's root), in
//      the root's child order, combines the first curve of the channel in its
//      subtree that has points with the value so far, with w = weight / 100:
//        Additive:  v + w * c, and for "scale" v * c ^ w;
//        Override, OverridePassthrough:  v + (c - v) * w;
//      a block without such a curve leaves the value alone.
// Curves without points count as absent.
//
// Rest values are the channel values the node held before the evaluator
// first wrote them: captured by updateSceneAnimParentMap for every channel
// that has a curve at that time, and by evaluate for a channel whose curve
// appeared later (before writing it). They are kept per node across later
// updates, so evaluating twice, or at t1 and then t0, never accumulates.
// To change a node's static values after evaluating, use setRestValue.
class ksAnimEvaluator {
public:
    static ksAnimEvaluator& the();
    ksAnimEvaluator* operator->() { return this; }

    // Rebuilds the map of animated nodes below root (node -> parent) and
    // captures the rest values of their animated channels not captured yet.
    void updateSceneAnimParentMap(const osg::NodePtr& root);
    // Animated nodes found by the last update, in traversal order.
    std::vector<osg::NodePtr> getAnimatedNodes() const;
    osg::NodePtr getAnimParent(const osg::NodePtr& node) const;
    // Writes every animated channel's layered value at time (seconds) into
    // the nodes of the last update: transform channels into the Transform3D,
    // "visible" into the traversal mask (value >= 0.5 shows), camera and
    // light channels into their cores. Returns the number of channel
    // components written.
    osg::UInt32 evaluate(osg::Real64 seconds);
    // The layered value of one channel component of node at time, without
    // changing anything; the rest value is the captured one, or the node's
    // current value when none was captured. False when the node cannot hold
    // the channel.
    bool evaluateChannel(const osg::NodePtr& node, const std::string& channel,
                         const std::string& component, osg::Real64 seconds, osg::Real64& out) const;
    // The captured rest value, or the node's current value when none was
    // captured; false when the node cannot hold the channel.
    bool getRestValue(const osg::NodePtr& node, const std::string& channel,
                      const std::string& component, osg::Real64& out) const;
    // Replaces (or sets) a rest value; false when the node cannot hold it.
    bool setRestValue(const osg::NodePtr& node, const std::string& channel,
                      const std::string& component, osg::Real64 value);

    // A channel component's current value in the node, and writing one;
    // false for a channel the node's core cannot hold.
    static bool readChannel(const osg::NodePtr& node, const std::string& channel,
                            const std::string& component, osg::Real64& out);
    static bool writeChannel(const osg::NodePtr& node, const std::string& channel,
                             const std::string& component, osg::Real64 value);

private:
    ksAnimEvaluator() = default;
    struct RestValue {
        std::string channel, component;
        osg::Real64 value;
    };
    struct RestSet {
        std::weak_ptr<osg::FieldContainer> node;
        std::vector<RestValue> values;
    };
    const RestSet* findRest(const osg::NodePtr& node) const;
    RestSet& restSet(const osg::NodePtr& node);
    // The captured rest value, capturing it from the node first if needed.
    bool captureRest(const osg::NodePtr& node, const std::string& channel,
                     const std::string& component, osg::Real64& out);

    std::vector<std::pair<std::weak_ptr<osg::FieldContainer>, std::weak_ptr<osg::FieldContainer>>>
        _map;
    std::unordered_map<const osg::FieldContainer*, RestSet> _rest;
};
