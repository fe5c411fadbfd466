// Cameras and punctual lights between glTF and the SDK's attributes.
//
// glTF cameras look along -Z with +Y up and its lights shine along -Z; the
// SDK's camera looks along +X (+Y up) and its light along -Y (-Z up). The
// reader leaves the glTF node's frame unchanged and turns the attribute by
// the node's geometric rotation (which its children do not inherit); the
// writer adds that turn back.
#pragma once

#include <tiny_gltf.h>

#include <string>
#include <vector>

#include "format_descriptor.h"
#include "qdxsdk/attributes.h"

namespace qdxsdk::format {

// The KHR_lights_punctual extension's name.
extern const char* const kGltfLightsExtension;

// The rotation (XYZ Euler degrees) that takes glTF's attribute frame of a
// camera or a light onto the SDK's: the SDK frame is the glTF frame times
// this rotation.
QdxVector4 GltfAttributeTurn(QdxNodeAttribute::EType type);

// The light a node names through KHR_lights_punctual; -1 without one.
// False when the reference is malformed or names no light.
bool GltfNodeLight(const tinygltf::Model& model, const tinygltf::Node& node, int& light);

// Checks every camera's and light's values (finite, positive where they
// must be, cones in order) before anything is created.
bool CheckGltfCamerasAndLights(const tinygltf::Model& model, QdxStatus& status);

// Builds the SDK camera or light of a checked glTF one (the scene is in
// metres).
QdxCamera* MakeGltfCamera(QdxScene* scene, const tinygltf::Camera& camera, const std::string& name,
                          std::vector<std::string>& notes);
QdxLight* MakeGltfLight(QdxScene* scene, const tinygltf::Light& light, const std::string& name,
                        std::vector<std::string>& notes);

// Fills a glTF camera or light from the SDK's; metres is the length of one
// scene unit in metres. False (with a note) when it cannot be carried.
bool ToGltfCamera(const QdxCamera* camera, double metres, tinygltf::Camera& out,
                  std::vector<std::string>& notes);
bool ToGltfLight(const QdxLight* light, tinygltf::Light& out, std::vector<std::string>& notes);

} // namespace qdxsdk::format
