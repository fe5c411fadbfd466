// Animations between glTF and the SDK: one animation stack per glTF
// animation, node translation, rotation and scale channels as curves.
#pragma once

#include <tiny_gltf.h>

#include <functional>
#include <string>
#include <vector>

#include "format_descriptor.h"
#include "qdxsdk/anim.h"
#include "qdxsdk/node.h"

namespace qdxsdk::format {

// Reads accessor `index` as doubles, `components` per element, or fails
// with a message naming `what`.
using GltfAccessorReader =
    std::function<bool(int index, const std::vector<int>& types, std::vector<double>& out,
                       int& components, QdxStatus& status, const std::string& what)>;

// One channel decoded and checked: key times (seconds, increasing) and
// values (for CUBICSPLINE in-tangent, value, out-tangent per key).
struct GltfChannelData {
    int node = -1;
    enum EPath { eTranslation, eRotation, eScale } path = eTranslation;
    enum EInterpolation { eLinear, eStep, eCubic } interpolation = eLinear;
    std::vector<double> times, values;
    int components = 3;
};

struct GltfAnimationData {
    std::string name;
    std::vector<GltfChannelData> channels;
};

// Decodes and checks every animation (indices, increasing finite times,
// output counts); morph weight channels are noted.
bool DecodeGltfAnimations(const tinygltf::Model& model, const GltfAccessorReader& read,
                          std::vector<GltfAnimationData>& out, std::vector<std::string>& notes,
                          QdxStatus& status);

// Creates one stack (with one layer) per animation on the carried nodes
// (null: not carried). Rotations become continuous XYZ Euler curves: linear
// ones keyed at their keys with slerp between them, step ones held, cubic
// ones sampled at every frame of the scene's time mode.
void BuildGltfAnimations(QdxScene* scene, const std::vector<GltfAnimationData>& animations,
                         const std::vector<QdxNode*>& nodes, std::vector<std::string>& notes);

// The XYZ Euler angles (degrees) of q nearest to previous: the other
// decomposition and whole turns are tried.
QdxVector4 GltfContinuousEuler(const QdxQuaternion& q, const QdxVector4& previous);

} // namespace qdxsdk::format
