// Images that travel with a scene read from a glTF file. Reading writes each
// embedded image into a folder beside the glTF file (`<stem>_images/`) and
// the scene's textures name those files; a scene converted to another format
// takes them along into a folder of its own beside the output.
#pragma once

#include <string>

namespace qdxsdk {

class QdxScene;

// The folder, beside `file`, that holds the images embedded in it:
// "<folder of file>/<stem of file>_images".
std::string QdxGltfImageFolder(const std::string& file);

// Copies every image that a file texture of the scene takes from
// QdxGltfImageFolder(gltfFile) into QdxGltfImageFolder(output) and points
// the texture there (its relative name from output's folder). Textures of
// other files stay as they are. False, with the reason in `error`, when a
// copy fails.
bool QdxMoveGltfImages(QdxScene* scene, const std::string& gltfFile, const std::string& output,
                       std::string* error = nullptr);

} // namespace qdxsdk
