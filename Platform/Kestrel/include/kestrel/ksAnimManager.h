#pragma once
// The animation manager and evaluator.
//
// Keyable channels by core (channel name / components):
//   transforms (Transform3D, and so lights, cameras and joints) and
//   drawables: "translation" XYZ, "eulerRotation" XYZ (shown as "rotation"),
//   "scale" XYZ; every node with a core: "visible" (no component);
//   cameras add "focalLength", "fov", "near", "far", "sensorSize" XY,
//   "roll", "principalPointOffset" XY, "focusDistance";
//   lights add "diffuse" RGB, "glossy" RGB, "intensity", and spot lights
//   "coneAngle", "penumbraAngle".
// A node without a core has none.
//
// The animation attachment's tree: curves directly under its root are
// "ungrouped". createChannelCurveNode makes the ungrouped curves of one
// channel; createBlock moves all ungrouped curves under a new named node;
// findChannelCurve returns the ungrouped curve of a channel component,
// creating it when a block took the previous one, and null for a channel
// the attachment has no curve node for.
//
// Time settings: frames per second (default 24) and the full and detailed
// frame ranges (default 0..100).
#include <string>
#include <vector>

#include <kestrel/osg/Animation.h>
#include <kestrel/osg/Node.h>

class ksAnimManager {
public:
    struct ksOSGChannelData {
        std::string name;                    // "translation", "visible" ...
        std::string displayName;             // "rotation" for "eulerRotation"
        std::vector<std::string> components; // "X", "Y", "Z"; empty for scalars
    };

    static ksAnimManager& the();
    ksAnimManager* operator->() { return this; }

    osg::AnimAttachmentPtr getAnimAttachment(const osg::NodePtr& node) const;
    // Finds or creates the node's attachment.
    osg::AnimAttachmentPtr createAnimAttachment(const osg::NodePtr& node);
    // Fills list with the node's keyable channels; false when it has none.
    bool getKeyableChannels(const osg::NodePtr& node, std::vector<ksOSGChannelData>& list) const;
    // Creates the ungrouped curves of a channel (one per component, one with
    // an empty component for scalar channels) and registers the channel on
    // the attachment; returns the first curve.
    osg::AnimNodePtr createChannelCurveNode(const ksOSGChannelData& channel,
                                            const osg::AnimAttachmentPtr& attachment);
    osg::AnimCurvePtr findChannelCurve(const std::string& channel, const std::string& component,
                                       const osg::AnimAttachmentPtr& attachment);
    osg::AnimNodePtr createBlock(const osg::AnimAttachmentPtr& attachment, const std::string& name);

    double fps() const { return _fps; }
    void setFPS(double fps);
    double playbackFPS() const { return _playbackFps; }
    void setPlaybackFPS(double fps);
    int fullRangeStart() const { return _fullStart; }
    int fullRangeEnd() const { return _fullEnd; }
    int detailedRangeStart() const { return _detailStart; }
    int detailedRangeEnd() const { return _detailEnd; }
    void setFullRangeStart(int f) { _fullStart = f; }
    void setFullRangeEnd(int f) { _fullEnd = f; }
    void setDetailedRangeStart(int f) { _detailStart = f; }
    void setDetailedRangeEnd(int f) { _detailEnd = f; }
    // Restores the defaults (24 fps, ranges 0..100).
    void reset();

private:
    ksAnimManager() = default;
    double _fps = 24.0, _playbackFps = 24.0;
    int _fullStart = 0, _fullEnd = 100, _detailStart = 0, _detailEnd = 100;
};

// The classes declared beside this one, so that this header still brings them.
#include <kestrel/ksAnimEvaluator.h>
