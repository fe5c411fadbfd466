#include "ksGltfSceneFileType.h"

#include <algorithm>
#include <cctype>
#include <string>

#include <kestrel/osg/SceneFileHandler.h>

#include "ksQdxLoader.h"
#include "ksQdxWriter.h"

const char* ksGltfSceneFileType::_suffixA[] = {"gltf", "glb"};

ksGltfSceneFileType ksGltfSceneFileType::_the(ksGltfSceneFileType::_suffixA, sizeof(_suffixA), true,
                                              10,
                                              osg::SceneFileType::ReadSupported |
                                                  osg::SceneFileType::WriteSupported);

namespace {
// The file's suffix, lower-case, empty when it has none.
std::string suffixOf(const std::string& name) {
    const size_t slash = name.find_last_of("/\\");
    const size_t dot = name.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
    std::string s = name.substr(dot + 1);
    std::transform(s.begin(), s.end(), s.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return s;
}
} // namespace

ksGltfSceneFileType::ksGltfSceneFileType(const char* suffixArray[], osg::UInt16 suffixByteCount,
                                         bool override, osg::UInt32 overridePriority,
                                         osg::UInt32 flags)
    : osg::SceneFileType(suffixArray, suffixByteCount, override, overridePriority, flags) {}

ksGltfSceneFileType::~ksGltfSceneFileType() = default;

ksGltfSceneFileType& ksGltfSceneFileType::the() {
    return _the;
}

const char* ksGltfSceneFileType::getName() const {
    return "glTF Scene";
}

osg::NodePtr ksGltfSceneFileType::read(std::istream&, const char* fileName) const {
    const std::string name = fileName ? fileName : "";
    std::string suffix = suffixOf(name);
    std::transform(suffix.begin(), suffix.end(), suffix.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    std::string options;
    if (const char* text = osg::SceneFileHandler::the().getOptions(suffix.c_str())) options = text;
    return ksQdxLoader::read(name, options);
}

bool ksGltfSceneFileType::write(const osg::NodePtr& node, std::ostream&,
                                const char* fileName) const {
    const std::string name = fileName ? fileName : "";
    std::string options;
    if (const char* hsp = osg::SceneFileHandler::the().getOptions("hsp")) options = hsp;
    if (const char* own = osg::SceneFileHandler::the().getOptions(suffixOf(name).c_str())) {
        if (!options.empty()) options += ",";
        options += own;
    }
    return ksQdxWriter::write(node, name, options);
}
