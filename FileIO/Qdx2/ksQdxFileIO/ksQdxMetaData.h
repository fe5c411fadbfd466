#pragma once
// Carries document information and user properties between Qdx objects and
// the host's metadata sets. Static functions only.
//
// A metadata set holds a JSON object whose entries read
// { key: { "value": value } }. Sets made on import are locked.
#include <string>

#include <kestrel/osg/Material.h>
#include <kestrel/osg/Metadata.h>
#include <kestrel/osg/Node.h>

namespace qdxsdk {
class QdxDocumentInfo;
class QdxNode;
class QdxObject;
class QdxSurfaceMaterial;
} // namespace qdxsdk

class ksQdxMetaData {
public:
    // Label delimiters: "set__key" names a key of a set; list items are
    // joined with "~".
    static const std::string s_keyDelimiter;
    static const std::string s_listDelimiter;

    // Import: the document information becomes a locked set on root, named
    // after root ("RootNode" stands for the file's base name) plus "_Set".
    static void addMetadataFromDocumentInfo(const qdxsdk::QdxDocumentInfo* info,
                                            const std::string& fileName, osg::NodePtr& root);
    // Export: fills info from the root's first set whose name ends in
    // "_FileInfo".
    static void addMetadataToDocumentInfo(qdxsdk::QdxDocumentInfo* info, const osg::NodePtr& root);

    // User properties of nodes and materials. Not carried yet: these leave
    // the containers and objects unchanged.
    static void addMetaDataFromQdxNode(qdxsdk::QdxNode* node, osg::NodePtr& target);
    static void addMetaDataFromQdxMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                           osg::MaterialPtr& target);
    static void addMetaDataToQdxNode(qdxsdk::QdxNode* node, const osg::NodePtr& source);
    static void addMetaDataToQdxMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                         const osg::MaterialPtr& source);
    // True when the object has at least one user-defined property.
    static bool checkForMetaData(qdxsdk::QdxObject* object);
};
