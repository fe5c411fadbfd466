// Geometry: layer elements and layers, meshes, NURBS, lines, trimmed
// surfaces, deformers (skins with clusters, vertex caches).
#pragma once

#include "qdxsdk/deformer.h"
#include "qdxsdk/geometry_base.h"
#include "qdxsdk/layer_element.h"
#include "qdxsdk/line.h"
#include "qdxsdk/mesh.h"
#include "qdxsdk/nurbs.h"
