#pragma once
// Descriptions of the parts of an imported scene that go beyond plain
// polygons: NURBS surfaces with their trims, skins with their clusters and
// joints, and vertex caches with their frames, as JSON for the scene tree,
// and the lines of the printed tree made from that JSON.
#include <iosfwd>
#include <string>

#include <nlohmann/json.hpp>

#include <kestrel/osg/Skin.h>
#include <kestrel/osg/Surface.h>
#include <kestrel/osg/TimeShapeCache.h>

// Degrees, knot and control-point counts per direction, and the trim loops
// with the degree, knot and point count of each curve.
nlohmann::json describeSurface(const osg::SurfacePtr& surface);
// Per cluster: the linked joint's name (null when unlinked), its weighted
// vertices and the sum of its weights.
nlohmann::json describeSkin(const osg::SkinAttachmentPtr& skin);
// Its name, frames, points per frame, and the first and last frame's time
// in seconds.
nlohmann::json describeVertexCache(const osg::TimeShapeCachePtr& cache);

// The tree lines for a node description's "surface", "skin" and
// "vertexCache" entries, each line starting with indent.
void printDeformables(std::ostream& os, const nlohmann::json& node, const std::string& indent);
