#pragma once
// Descriptions of an imported scene graph: a JSON model, and the indented
// tree and the statistics printed from it. Nothing here recurses over the
// hierarchy.
#include <iosfwd>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Node.h>

#include "SceneImporter.h"

// The node tree as JSON: per node its name, core type, visibility,
// transform, geometry counts, material and textures, light or camera values,
// metadata, animation and skin summaries, and children.
nlohmann::json describeTree(const osg::NodePtr& root);
// Totals over the imported scene: world bounding box in the scene's unit,
// unit and up axis, counts per content kind, textures found and missing,
// the memory of the scene's arrays and images, and the import time.
nlohmann::json describeStatistics(const ImportResult& imported, int lengthUnit, int upAxis);

void printTree(std::ostream& os, const nlohmann::json& tree);
void printStatistics(std::ostream& os, const nlohmann::json& stats);
