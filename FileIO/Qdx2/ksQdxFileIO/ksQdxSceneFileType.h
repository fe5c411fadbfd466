#pragma once
// The plug-in's scene file type: registers the suffixes "qdx" and "abc" with
// the host's scene-file handler when the module is loaded, and hands the
// handler's read and write requests to ksQdxLoader and ksQdxWriter.
#include <iosfwd>

#include <kestrel/osg/SceneFileType.h>

class ksQdxSceneFileType : public osg::SceneFileType {
public:
    static ksQdxSceneFileType& the();

    const char* getName() const override;

    // The stream is ignored: the file is opened by name. Import options are
    // the text the handler keeps for "QDX".
    osg::NodePtr read(std::istream& is, const char* fileName) const override;
    // The stream is ignored likewise. Export options are the texts the
    // handler keeps for "hsp" and for "qdx", joined by ",".
    bool write(const osg::NodePtr& node, std::ostream& os, const char* fileName) const override;

protected:
    ksQdxSceneFileType(const char* suffixArray[], osg::UInt16 suffixByteCount, bool override,
                       osg::UInt32 overridePriority, osg::UInt32 flags);
    ~ksQdxSceneFileType() override;

private:
    static const char* _suffixA[];
    static ksQdxSceneFileType _the;
};
