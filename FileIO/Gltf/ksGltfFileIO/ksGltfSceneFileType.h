#pragma once
// The glTF scene file type: registers the suffixes "gltf" and "glb" with the
// host's scene-file handler when its module is loaded, and reads and writes
// through the Qdx plug-in's loader and writer (the SDK reads and writes glTF
// files as it does Qdx files).
#include <iosfwd>

#include <kestrel/osg/SceneFileType.h>

class ksGltfSceneFileType : public osg::SceneFileType {
public:
    static ksGltfSceneFileType& the();

    const char* getName() const override;

    // The stream is ignored: the file is opened by name. Import options are
    // the text the handler keeps for the file's upper-case suffix.
    osg::NodePtr read(std::istream& is, const char* fileName) const override;
    // The stream is ignored likewise. Export options are the texts the
    // handler keeps for "hsp" and for the file's suffix, joined by ",".
    bool write(const osg::NodePtr& node, std::ostream& os, const char* fileName) const override;

protected:
    ksGltfSceneFileType(const char* suffixArray[], osg::UInt16 suffixByteCount, bool override,
                        osg::UInt32 overridePriority, osg::UInt32 flags);
    ~ksGltfSceneFileType() override;

private:
    static const char* _suffixA[];
    static ksGltfSceneFileType _the;
};
