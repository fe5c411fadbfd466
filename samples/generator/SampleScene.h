#pragma once
// The bundled sample scene "showroom": a car on a turntable in a small room.
//
// It holds a hierarchy with rotation and scaling pivots, offsets, pre- and
// post-rotations and several rotation orders; four tyres sharing one mesh
// with equal local transforms (instances) and a spare tyre sharing it at
// another place (a duplicate); a turntable mesh with two materials; a car
// body with two UV sets, an indexed light-map set and vertex colours; a floor
// whose UVs and normals are stored per control point; textured materials
// whose images live in a "textures" folder; an invisible node; and two
// vertex-cached grids whose caches live in a "caches" folder.
#include <string>

namespace qdxsdk {
class QdxScene;
} // namespace qdxsdk

namespace samples {

// Fills an empty scene. textureDir is the directory name stored in the
// texture paths (the importer falls back to shorter forms of it).
void buildShowroom(qdxsdk::QdxScene* scene, const std::string& textureDir);

} // namespace samples
