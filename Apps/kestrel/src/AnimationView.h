#pragma once
// What `kestrel import` shows of animation: each node's animated channels
// with their key counts, time ranges and blocks, and with --time the local
// and world transforms of every node evaluated at one time.
#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Node.h>

// Curve and key totals, one entry per curve with points (channel, block,
// keys, start and end in seconds) and the blocks with their blend mode,
// weight and number of curves with points; null when the node has no
// animation attachment.
nlohmann::json describeAnimation(const osg::NodePtr& node);
void printAnimation(std::ostream& os, const nlohmann::json& animation, const std::string& indent);

// Writes the scene's animation at seconds into root's nodes (then brings
// constrained nodes up to date) and returns how many channels it wrote.
unsigned evaluateSceneAt(const osg::NodePtr& root, double seconds);
// Adds "evaluated": {"time", "local", "world"} (4x4 matrices, rows) to every
// node of tree, a description of root made by describeTree.
void addEvaluatedTransforms(nlohmann::json& tree, const osg::NodePtr& root, double seconds);
void printEvaluated(std::ostream& os, const nlohmann::json& evaluated, const std::string& indent);
