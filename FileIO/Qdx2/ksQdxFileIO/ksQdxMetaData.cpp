#include "ksQdxMetaData.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <utility>
#include <vector>

#include <QDate>
#include <QDateTime>
#include <QString>
#include <QTime>

#include <kestrel/ksFile.h>
#include <kestrel/ksJsonMetadata.h>
#include <kestrel/ksMaterials.h>
#include <kestrel/ksMetadataUtils.h>
#include <kestrel/ksNodeUtils.h>
#include <kestrel/ksString.h>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

const std::string ksQdxMetaData::s_keyDelimiter = "__";
const std::string ksQdxMetaData::s_listDelimiter = "~";

namespace {
// The text of json[key]["value"]; empty when missing.
std::string textOf(const osg::Json& json, const char* key) {
    return ksJsonMetadata::hasProperty(json, key) ? ksJsonMetadata::getString(json, key)
                                                  : std::string();
}
} // namespace

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

void ksQdxMetaData::addMetadataToDocumentInfo(QdxDocumentInfo* info, const osg::NodePtr& root) {
    if (!info) return;
    std::vector<osg::MetadataSetPtr> sets;
    ksMetadataUtils::getMetadata(root, sets);
    osg::MetadataSetPtr fileInfo;
    for (const osg::MetadataSetPtr& set : sets)
        if (ksString::endsWith(ksMetadataUtils::getName(set), "_FileInfo")) {
            fileInfo = set;
            break;
        }
    if (!fileInfo) {
        std::printf("Didn't find metadata set with file info!\n");
        return;
    }
    const osg::Json& json = fileInfo->getMetadata();
    auto text = [&](const char* key) { return textOf(json, key); };

    const std::pair<const char*, QdxPropertyT<QdxString>*> applications[] = {
        {"OriginalApplicationVendor", &info->Original_ApplicationVendor},
        {"OriginalApplicationName", &info->Original_ApplicationName},
        {"OriginalApplicationVersion", &info->Original_ApplicationVersion},
    };
    for (const auto& [key, property] : applications)
        if (std::string value = text(key); !value.empty()) property->Set(QdxString(value));

    const std::pair<const char*, QdxString*> texts[] = {
        {"Title", &info->mTitle},       {"Subject", &info->mSubject},
        {"Author", &info->mAuthor},     {"Keywords", &info->mKeywords},
        {"Revision", &info->mRevision}, {"Comment", &info->mComment},
    };
    for (const auto& [key, member] : texts)
        if (std::string value = text(key); !value.empty()) *member = QdxString(value);

    const std::string created = text("Created");
    QdxDateTime when;
    if (!created.empty() && when.fromString(created.c_str())) info->Original_DateTime_GMT.Set(when);
}

// ------------------------------------------------------------ user properties

namespace {
std::string defaultSetName(const std::string& objectName) {
    return ksString::endsWith(objectName, "_Set") ? objectName : objectName + "_Set";
}

// text split at every delimiter, left to right.
std::vector<std::string> splitAt(const std::string& text, const std::string& delimiter) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at = text.find(delimiter); at != std::string::npos;
         at = text.find(delimiter, start)) {
        parts.push_back(text.substr(start, at - start));
        start = at + delimiter.size();
    }
    parts.push_back(text.substr(start));
    return parts;
}

// A float as the double of its shortest text, so that 0.1f reads 0.1 and
// turns into the same float again on export.
double floatValue(float v) {
    char buf[32];
    auto r = std::to_chars(buf, buf + sizeof buf - 1, v);
    *r.ptr = '\0';
    return std::strtod(buf, nullptr);
}

osg::Json numbers(const double* v, int count) {
    osg::Json list = osg::Json::array();
    for (int i = 0; i < count; ++i)
        list.push_back(v[i]);
    return list;
}

// One item of a "~" list: a number or boolean when the item is exactly
// the text that value is written as again, otherwise the text itself.
osg::Json listItem(const std::string& item) {
    osg::Json value = osg::Json::parse(item, nullptr, false);
    if ((value.is_number() || value.is_boolean()) && value.dump() == item) return value;
    return item;
}

// The JSON value of one property, by its data type.
osg::Json valueOf(QdxProperty& p) {
    if (p.Is(QdxBoolDT)) return p.Get<bool>();
    if (p.Is(QdxIntDT)) return p.Get<int>();
    if (p.Is(QdxFloatDT)) return floatValue(p.Get<float>());
    if (p.Is(QdxDoubleDT)) return p.Get<double>();
    if (p.Is(QdxEnumDT)) {
        (void)p.GetEnumCount();
        return p.Get<int>();
    }
    if (p.Is(QdxColor3DT) || p.Is(QdxDouble3DT)) return numbers(p.Get<QdxDouble3>().Buffer(), 3);
    if (p.Is(QdxColor4DT) || p.Is(QdxDouble4DT)) return numbers(p.Get<QdxDouble4>().Buffer(), 4);
    if (p.Is(QdxStringListDT)) {
        osg::Json items = osg::Json::array();
        for (int i = 0, n = p.GetStringListCount(); i < n; ++i)
            items.push_back(std::string(p.GetStringListItem(i)));
        return items;
    }
    const std::string text = p.Get<QdxString>().Str();
    if (text.find(ksQdxMetaData::s_listDelimiter) == std::string::npos) return text;
    osg::Json items = osg::Json::array();
    for (const std::string& item : splitAt(text, ksQdxMetaData::s_listDelimiter))
        items.push_back(listItem(item));
    return items;
}

// A structured value as one text: list items joined with "~" (strings as
// they are, other items as JSON), anything else as its JSON text.
std::string structuredText(const osg::Json& value) {
    const auto replace = osg::Json::error_handler_t::replace;
    if (!value.is_array()) return value.dump(-1, ' ', false, replace);
    std::string text;
    for (size_t i = 0; i < value.size(); ++i) {
        if (i) text += ksQdxMetaData::s_listDelimiter;
        const osg::Json& item = value[i];
        text += item.is_string() ? item.get<std::string>() : item.dump(-1, ' ', false, replace);
    }
    return text;
}

// A new user-defined property; invalid when the object already has a
// property of that name that it did not get as user data, which is left
// alone.
QdxProperty createUserProperty(QdxObject* object, const QdxDataType& type,
                               const std::string& name) {
    if (!object) return QdxProperty();
    QdxProperty existing = object->FindProperty(name.c_str());
    if (existing.IsValid() && !existing.GetFlag(QdxPropertyFlags::eUserDefined))
        return QdxProperty();
    QdxProperty p = QdxProperty::Create(object, type, name.c_str());
    if (p.IsValid()) p.ModifyFlag(16u, true);
    return p;
}
} // namespace

void ksQdxMetaData::addMetaDataFromQdxNode(QdxNode* node, osg::NodePtr& target) {
    if (!node || !target) return;
    osg::AttachmentContainerPtr container = target;
    addMetaDataFromQdxObject(node, container, true);
    // Every property of the attribute, built-in values included: the host
    // keeps them beside the converted geometry, camera or light.
    addMetaDataFromQdxObject(node->GetNodeAttribute(), container, false);
}

void ksQdxMetaData::addMetaDataFromQdxMaterial(QdxSurfaceMaterial* material,
                                               osg::MaterialPtr& target) {
    if (!material || !target) return;
    osg::AttachmentContainerPtr container = target;
    addMetaDataFromQdxObject(material, container, true);
}

void ksQdxMetaData::addMetaDataFromQdxObject(QdxObject* object,
                                             osg::AttachmentContainerPtr& container,
                                             bool userDefinedOnly) {
    if (!object || !container) return;
    if (userDefinedOnly && !checkForMetaData(object)) return;
    osg::MetadataPtr metadata = ksMetadataUtils::createMetadata(container);
    if (!metadata) return;
    const std::string defaultName = defaultSetName(object->GetName());

    std::vector<osg::MetadataSetPtr> touched;
    bool ownTouched = false;
    for (QdxProperty p = object->RootProperty.GetFirstDescendent(); p.IsValid();
         p = object->RootProperty.GetNextDescendent(p)) {
        if (userDefinedOnly && !p.GetFlag(QdxPropertyFlags::eUserDefined)) continue;
        const std::string label = p.GetLabel().Str();
        const std::vector<std::string> parts = splitAt(label, s_keyDelimiter);
        osg::Json* json = nullptr;
        std::string key = label;
        if (parts.size() == 2 && parts[0].empty()) {
            json = &metadata->getMetadata();
            key = parts[1];
            ownTouched = true;
        } else {
            osg::MetadataSetPtr set = ksMetadataUtils::getMetadataSet(
                parts.size() == 2 ? parts[0] : defaultName, container);
            if (!set) continue;
            if (parts.size() == 2) key = parts[1];
            if (std::find(touched.begin(), touched.end(), set) == touched.end())
                touched.push_back(set);
            json = &set->getMetadata();
        }
        (*json)[key] = osg::Json{{"value", valueOf(p)}};
    }
    if (ownTouched) metadata->changed(osg::JsonAttachment::MetadataFieldMask);
    for (const osg::MetadataSetPtr& set : touched) {
        set->changed(osg::JsonAttachment::MetadataFieldMask);
        ksMetadataUtils::setLock(set, true);
    }
}

bool ksQdxMetaData::checkForMetaData(QdxObject* object) {
    if (!object) return false;
    for (QdxProperty p = object->RootProperty.GetFirstDescendent(); p.IsValid();
         p = object->RootProperty.GetNextDescendent(p))
        if (p.GetFlag(QdxPropertyFlags::eUserDefined)) return true;
    return false;
}

void ksQdxMetaData::addMetaDataToQdxNode(QdxNode* node, const osg::NodePtr& source) {
    addMetaDataToQdxObject(ksNodeUtils::getName(source), node, source);
}

void ksQdxMetaData::addMetaDataToQdxMaterial(QdxSurfaceMaterial* material,
                                             const osg::MaterialPtr& source) {
    addMetaDataToQdxObject(ksMaterials::getName(source), material, source);
}

void ksQdxMetaData::addMetaDataToQdxObject(const std::string& objectName, QdxObject* object,
                                           const osg::AttachmentContainerPtr& container) {
    if (!object || !container) return;
    std::vector<osg::MetadataSetPtr> sets;
    osg::MetadataPtr metadata = ksMetadataUtils::getMetadata(container, sets);
    if (!metadata) return;
    if (!ksJsonMetadata::getKeys(metadata->getMetadata()).empty())
        writeMetadataJson(s_keyDelimiter, object, metadata->getMetadata());
    const std::string defaultName = defaultSetName(objectName);
    for (const osg::MetadataSetPtr& set : sets) {
        const std::string name = ksMetadataUtils::getName(set);
        writeMetadataJson(name == defaultName ? std::string() : name + s_keyDelimiter, object,
                          set->getMetadata());
    }
}

void ksQdxMetaData::writeMetadataJson(const std::string& prefix, QdxObject* object,
                                      const osg::Json& json) {
    for (const std::string& key : ksJsonMetadata::getKeys(json)) {
        const std::string name = prefix + key;
        const osg::Json& entry = json[key];
        switch (ksJsonMetadata::getPropertyType(json, key, "value")) {
        case ksMetadataTypes::String:
            writeStringProperty(name, object, entry.value("value", std::string()));
            break;
        case ksMetadataTypes::Integer:
            writeIntProperty(name, object, entry.value("value", 0));
            break;
        case ksMetadataTypes::Float:
            writeFloatProperty(name, object, entry.value("value", 0.0));
            break;
        case ksMetadataTypes::Boolean:
            writeBoolProperty(name, object, entry.value("value", false));
            break;
        case ksMetadataTypes::Time:
            writeTimeProperty(name, object, entry.value("value", std::string()));
            break;
        case ksMetadataTypes::Date:
            writeDateProperty(name, object, entry.value("value", std::string()));
            break;
        case ksMetadataTypes::DateTime:
            writeDateTimeProperty(name, object, entry.value("value", std::string()));
            break;
        case ksMetadataTypes::Json:
            writeStringProperty(name, object, structuredText(entry["value"]));
            break;
        default:
            break;
        }
    }
}

void ksQdxMetaData::writeBoolProperty(const std::string& name, QdxObject* object, bool value) {
    if (QdxProperty p = createUserProperty(object, QdxBoolDT, name); p.IsValid()) p.Set(value);
}

void ksQdxMetaData::writeIntProperty(const std::string& name, QdxObject* object, int value) {
    if (QdxProperty p = createUserProperty(object, QdxIntDT, name); p.IsValid()) p.Set(value);
}

void ksQdxMetaData::writeFloatProperty(const std::string& name, QdxObject* object, double value) {
    if (QdxProperty p = createUserProperty(object, QdxFloatDT, name); p.IsValid())
        p.Set(static_cast<float>(value));
}

void ksQdxMetaData::writeStringProperty(const std::string& name, QdxObject* object,
                                        const std::string& value) {
    if (QdxProperty p = createUserProperty(object, QdxStringDT, name); p.IsValid())
        p.Set(QdxString(value));
}

void ksQdxMetaData::writeTimeProperty(const std::string& name, QdxObject* object,
                                      const std::string& value) {
    const QTime time = QTime::fromString(QString::fromStdString(value), Qt::ISODate);
    QdxDateTime when;
    when.setTime(time.hour(), time.minute(), time.second(), 0);
    if (QdxProperty p = createUserProperty(object, QdxDateTimeDT, name); p.IsValid()) p.Set(when);
}

void ksQdxMetaData::writeDateProperty(const std::string& name, QdxObject* object,
                                      const std::string& value) {
    const QDate date = QDate::fromString(QString::fromStdString(value), Qt::ISODate);
    QdxDateTime when;
    when.setDate(date.day(), date.month(), date.year());
    if (QdxProperty p = createUserProperty(object, QdxDateTimeDT, name); p.IsValid()) p.Set(when);
}

void ksQdxMetaData::writeDateTimeProperty(const std::string& name, QdxObject* object,
                                          const std::string& value) {
    const QDateTime parsed = QDateTime::fromString(QString::fromStdString(value), Qt::ISODate);
    QdxDateTime when;
    when.setDate(parsed.date().day(), parsed.date().month(), parsed.date().year());
    when.setTime(parsed.time().hour(), parsed.time().minute(), parsed.time().second(), 0);
    if (QdxProperty p = createUserProperty(object, QdxDateTimeDT, name); p.IsValid()) p.Set(when);
}
