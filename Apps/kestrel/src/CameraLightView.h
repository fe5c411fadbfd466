#pragma once
// What `kestrel import` shows of cameras and lights: their values as JSON,
// and the lines of the tree printed from that JSON.
#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Node.h>

// Projection, focal length, sensor and film offset (mm), clipping, field of
// view and its mode, roll, orthographic frustum and the aim target and up
// node names; null when node is no camera.
nlohmann::json describeCamera(const osg::NodePtr& node);
// Type, colour, value, attenuation, on, shadows, cone and penumbra (spots)
// and the area shape with its size (area lights); null when node is no light.
nlohmann::json describeLight(const osg::NodePtr& node);

void printCamera(std::ostream& os, const nlohmann::json& camera, const std::string& indent);
void printLight(std::ostream& os, const nlohmann::json& light, const std::string& indent);
