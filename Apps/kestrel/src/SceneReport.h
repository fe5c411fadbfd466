#pragma once
// Descriptions of an imported scene graph: a JSON model, and the indented
// tree and the statistics printed from it.
#include <iosfwd>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Node.h>

// The node tree as JSON: per node its name, core type, visibility,
// transform, geometry counts, material and textures, light or camera values,
// metadata, animation and skin summaries, and children.
nlohmann::json describeTree(const osg::NodePtr& root);
// Counts over the whole tree (nodes by core type, primitives, vertices,
// triangles, unique materials and textures, curves ...).
nlohmann::json describeStatistics(const osg::NodePtr& root);

void printTree(std::ostream& os, const nlohmann::json& tree);
void printStatistics(std::ostream& os, const nlohmann::json& stats);
