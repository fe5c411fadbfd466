#include "ksQdxMetaData.h"

#include <utility>
#include <vector>

#include <kestrel/ksFile.h>
#include <kestrel/ksMetadataUtils.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksString.h>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

const std::string ksQdxMetaData::s_keyDelimiter = "__";
const std::string ksQdxMetaData::s_listDelimiter = "~";

void ksQdxMetaData::addMetadataFromDocumentInfo(const QdxDocumentInfo* info,
                                                const std::string& fileName, osg::NodePtr& root) {
    if (!info || !root) return;
    osg::MetadataPtr metadata = ksMetadataUtils::createMetadata(root);
    osg::MetadataSetPtr set = ksMetadataUtils::createMetadataSet("");
    if (!metadata || !set) return;

    std::string name = ksNodeUtils::getName(root);
    if (name == "RootNode") name = ksFile::getBaseName(fileName);
    if (!ksString::endsWith(name, "_Set")) name += "_Set";
    ksMetadataUtils::setName(set, name);
    metadata->addMetadataSet(set);

    const std::pair<const char*, std::string> items[] = {
        {"OriginalApplicationVendor", info->Original_ApplicationVendor.Get().Str()},
        {"OriginalApplicationName", info->Original_ApplicationName.Get().Str()},
        {"OriginalApplicationVersion", info->Original_ApplicationVersion.Get().Str()},
        {"Created", info->Original_DateTime_GMT.Get().toString()},
        {"LastSavedApplicationVendor", info->LastSaved_ApplicationVendor.Get().Str()},
        {"LastSavedApplicationName", info->LastSaved_ApplicationName.Get().Str()},
        {"LastSavedApplicationVersion", info->LastSaved_ApplicationVersion.Get().Str()},
        {"LastSaved", info->LastSaved_DateTime_GMT.Get().toString()},
        {"Title", info->mTitle.Str()},
        {"Subject", info->mSubject.Str()},
        {"Author", info->mAuthor.Str()},
        {"Keywords", info->mKeywords.Str()},
        {"Revision", info->mRevision.Str()},
        {"Comment", info->mComment.Str()},
    };
    osg::Json& json = set->getMetadata();
    for (const auto& [key, text] : items)
        json[key] = osg::Json{{"value", text}};
    set->changed(osg::JsonAttachment::MetadataFieldMask);
    ksMetadataUtils::setLock(set, true);
}

void ksQdxMetaData::addMetadataToDocumentInfo(QdxDocumentInfo*, const osg::NodePtr&) {}

void ksQdxMetaData::addMetaDataFromQdxNode(QdxNode*, osg::NodePtr&) {}

void ksQdxMetaData::addMetaDataFromQdxMaterial(QdxSurfaceMaterial*, osg::MaterialPtr&) {}

void ksQdxMetaData::addMetaDataToQdxNode(QdxNode*, const osg::NodePtr&) {}

void ksQdxMetaData::addMetaDataToQdxMaterial(QdxSurfaceMaterial*, const osg::MaterialPtr&) {}

bool ksQdxMetaData::checkForMetaData(QdxObject* object) {
    if (!object) return false;
    for (QdxProperty p = object->RootProperty.GetFirstDescendent(); p.IsValid();
         p = object->RootProperty.GetNextDescendent(p))
        if (p.GetFlag(QdxPropertyFlags::eUserDefined)) return true;
    return false;
}
