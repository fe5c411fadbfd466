#include "ksQdxSceneFileType.h"

#include <string>

#include <kestrel/osg/SceneFileHandler.h>

#include "ksQdxLoader.h"
#include "ksQdxWriter.h"

const char* ksQdxSceneFileType::_suffixA[] = {"qdx", "abc"};

// Registered for read and write. The handler's flag bits are named rather
// than spelled as a number so that they follow the host's layout.
ksQdxSceneFileType ksQdxSceneFileType::_the(ksQdxSceneFileType::_suffixA, sizeof(_suffixA), true,
                                            10,
                                            osg::SceneFileType::ReadSupported |
                                                osg::SceneFileType::WriteSupported);

ksQdxSceneFileType::ksQdxSceneFileType(const char* suffixArray[], osg::UInt16 suffixByteCount,
                                       bool override, osg::UInt32 overridePriority,
                                       osg::UInt32 flags)
    : osg::SceneFileType(suffixArray, suffixByteCount, override, overridePriority, flags) {}

ksQdxSceneFileType::~ksQdxSceneFileType() = default;

ksQdxSceneFileType& ksQdxSceneFileType::the() {
    return _the;
}

const char* ksQdxSceneFileType::getName() const {
    return "QDX Scene";
}

osg::NodePtr ksQdxSceneFileType::read(std::istream&, const char* fileName) const {
    std::string options;
    if (const char* text = osg::SceneFileHandler::the().getOptions("QDX")) options = text;
    const std::string name = fileName ? fileName : "";
    return ksQdxLoader::read(name, options);
}

bool ksQdxSceneFileType::write(const osg::NodePtr& node, std::ostream&,
                               const char* fileName) const {
    std::string options;
    if (const char* hsp = osg::SceneFileHandler::the().getOptions("hsp")) options = hsp;
    if (const char* qdx = osg::SceneFileHandler::the().getOptions("qdx")) {
        if (!options.empty()) options += ",";
        options += qdx;
    }
    const std::string name = fileName ? fileName : "";
    return ksQdxWriter::write(node, name, options);
}
