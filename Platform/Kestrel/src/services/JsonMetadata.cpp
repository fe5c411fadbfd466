#include <QDate>
#include <QDateTime>
#include <QString>
#include <QTime>
#include <exception>

#include <kestrel/ksJsonMetadata.h>
#include <kestrel/ksMetadataUtils.h>

using namespace osg;

std::vector<std::string> ksJsonMetadata::getKeys(const osg::Json& json) {
    std::vector<std::string> keys;
    if (!json.is_object()) return keys;
    for (auto it = json.begin(); it != json.end(); ++it)
        keys.push_back(it.key());
    return keys;
}

namespace {
const osg::Json* member(const osg::Json& json, const std::string& key, const std::string& name) {
    if (!json.is_object()) return nullptr;
    auto e = json.find(key);
    if (e == json.end() || !e->is_object()) return nullptr;
    auto m = e->find(name);
    return m == e->end() ? nullptr : &*m;
}

ksMetadataTypes::ValueType typeOfText(const std::string& text) {
    QString s = QString::fromStdString(text);
    // Fixed shapes first: Qt's ISO parser also accepts shorter forms.
    if (text.size() == 8 && text[2] == ':' && QTime::fromString(s, Qt::ISODate).isValid())
        return ksMetadataTypes::Time;
    if (text.size() == 10 && text[4] == '-' && QDate::fromString(s, Qt::ISODate).isValid())
        return ksMetadataTypes::Date;
    if (text.size() >= 19 && text[4] == '-' && text[10] == 'T' &&
        QDateTime::fromString(s, Qt::ISODate).isValid())
        return ksMetadataTypes::DateTime;
    return ksMetadataTypes::String;
}
} // namespace

ksMetadataTypes::ValueType ksJsonMetadata::getPropertyType(const osg::Json& json,
                                                           const std::string& key,
                                                           const std::string& memberName) {
    const osg::Json* v = member(json, key, memberName);
    if (!v || v->is_null()) return ksMetadataTypes::Invalid;
    if (const osg::Json* t = member(json, key, "type")) {
        if (t->is_number_integer()) {
            auto code = t->get<long long>();
            if (code >= 0 && code <= 7) return static_cast<ksMetadataTypes::ValueType>(code);
        } else if (t->is_string()) {
            for (int c = 0; c <= 7; ++c)
                if (t->get<std::string>() ==
                    ksMetadataTypes::getName(ksMetadataTypes::ValueType(c)))
                    return static_cast<ksMetadataTypes::ValueType>(c);
        }
    }
    if (v->is_boolean()) return ksMetadataTypes::Boolean;
    if (v->is_number_integer()) return ksMetadataTypes::Integer;
    if (v->is_number_float()) return ksMetadataTypes::Float;
    if (v->is_string()) return typeOfText(v->get<std::string>());
    if (v->is_array() || v->is_object()) return ksMetadataTypes::Json;
    return ksMetadataTypes::Invalid;
}

bool ksJsonMetadata::hasProperty(const osg::Json& json, const std::string& key,
                                 const std::string& memberName) {
    return member(json, key, memberName) != nullptr;
}

std::string ksJsonMetadata::getString(const osg::Json& json, const std::string& key,
                                      const std::string& memberName) {
    const osg::Json* v = member(json, key, memberName);
    if (!v) return std::string();
    if (v->is_string()) return v->get<std::string>();
    // Invalid UTF-8 inside a structured value is replaced, not thrown.
    return v->dump(-1, ' ', false, osg::Json::error_handler_t::replace);
}

bool ksJsonMetadata::parse(const std::string& text, osg::Json& out, std::string* error) {
    try {
        out = osg::Json::parse(text);
        return true;
    } catch (const std::exception& e) {
        if (error) *error = e.what();
    }
    return false;
}
