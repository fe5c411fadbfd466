// Skins between glTF and the SDK: joints are skeleton nodes, inverse bind
// matrices become cluster matrices, JOINTS_0 / WEIGHTS_0 cluster weights.
//
// glTF places a skinned vertex at sum(w * jointWorld * inverseBind * v);
// the SDK's skin at sum(w * linkWorld * inverse(TransformLinkMatrix) *
// TransformMatrix * p). The reader sets TransformMatrix to the mesh node's
// world at reading and TransformLinkMatrix to that times the inverse of the
// inverse bind matrix, so both sums agree.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "format_descriptor.h"
#include "qdxsdk/deformer.h"
#include "qdxsdk/mesh.h"

namespace qdxsdk::format {

// Makes a skin on mesh (carried by a node whose world matrix is meshWorld)
// with one cluster per joint that weighs a point. jointIndices and weights
// hold four values per control point, the indices checked against joints.
QdxSkin* MakeGltfSkin(QdxScene* scene, const std::string& name, QdxMesh* mesh,
                      const QdxAMatrix& meshWorld, const std::vector<QdxNode*>& joints,
                      const std::vector<QdxAMatrix>& inverseBind,
                      const std::vector<double>& jointIndices, const std::vector<double>& weights);

// Gives every joint node without an attribute a skeleton attribute: a root
// where the parent is no joint, a limb node elsewhere.
void MarkGltfJoints(QdxScene* scene, const std::vector<QdxNode*>& joints);

// A mesh's skin as glTF writes it: the joints (null: the mesh node itself,
// for points no cluster weighs), their inverse bind matrices for vertices
// written as geometric * point, and four joints and weights per control
// point (weights summing to 1).
struct GltfSkinData {
    std::vector<QdxNode*> joints;
    std::vector<QdxAMatrix> inverseBind;
    std::vector<uint16_t> pointJoints;
    std::vector<float> pointWeights;
};

// Fills out from the first skin of mesh; false without a usable skin.
bool CollectGltfSkin(QdxMesh* mesh, const QdxAMatrix& geometric, GltfSkinData& out,
                     std::vector<std::string>& notes);

} // namespace qdxsdk::format
