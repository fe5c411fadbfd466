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
    // "_FileInfo" (the creating application, "Created" and the free texts,
    // each only when not empty); the last-saved items are the export
    // driver's.
    static void addMetadataToDocumentInfo(qdxsdk::QdxDocumentInfo* info, const osg::NodePtr& root);

    // Import of user properties. A property labelled "set__key" lands in
    // the set of that name under key; a label "__key" lands in the
    // container's own metadata JSON; any other label (including one with
    // two delimiters) in the default set, named after the object plus
    // "_Set", under the whole label. The node's attribute contributes its
    // user properties to the node's container too; materials carry their
    // own only. A container without user properties gets no metadata.
    static void addMetaDataFromQdxNode(qdxsdk::QdxNode* node, osg::NodePtr& target);
    static void addMetaDataFromQdxMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                           osg::MaterialPtr& target);
    // The worker: with userDefinedOnly, only user-defined properties are
    // taken and an object without any leaves the container untouched.
    // Every set it touches is locked.
    static void addMetaDataFromQdxObject(qdxsdk::QdxObject* object,
                                         osg::AttachmentContainerPtr& container,
                                         bool userDefinedOnly);
    // True when the object has at least one user-defined property.
    static bool checkForMetaData(qdxsdk::QdxObject* object);

    // Export of the metadata of a node or material as user-defined
    // properties of the Qdx object, restoring the labels the import splits.
    static void addMetaDataToQdxNode(qdxsdk::QdxNode* node, const osg::NodePtr& source);
    static void addMetaDataToQdxMaterial(qdxsdk::QdxSurfaceMaterial* material,
                                         const osg::MaterialPtr& source);
    static void addMetaDataToQdxObject(const std::string& objectName, qdxsdk::QdxObject* object,
                                       const osg::AttachmentContainerPtr& container);
    // Writes every key of json as a user-defined property named prefix +
    // key, typed by the entry's value type; unknown types are skipped.
    static void writeMetadataJson(const std::string& prefix, qdxsdk::QdxObject* object,
                                  const osg::Json& json);

    // One writer per value type; each creates a user-defined property. The
    // time, date and date-time writers take ISO-8601 text and keep only the
    // time part, only the date part, or both (whole seconds).
    static void writeBoolProperty(const std::string& name, qdxsdk::QdxObject* object, bool value);
    static void writeIntProperty(const std::string& name, qdxsdk::QdxObject* object, int value);
    static void writeFloatProperty(const std::string& name, qdxsdk::QdxObject* object,
                                   double value);
    static void writeStringProperty(const std::string& name, qdxsdk::QdxObject* object,
                                    const std::string& value);
    static void writeTimeProperty(const std::string& name, qdxsdk::QdxObject* object,
                                  const std::string& value);
    static void writeDateProperty(const std::string& name, qdxsdk::QdxObject* object,
                                  const std::string& value);
    static void writeDateTimeProperty(const std::string& name, qdxsdk::QdxObject* object,
                                      const std::string& value);
};
