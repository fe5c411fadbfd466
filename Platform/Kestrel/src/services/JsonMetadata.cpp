#include <QDate>
#include <QDateTime>
#include <QRegularExpression>
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

// ISO-8601 shapes: a time "hh:mm:ss" with an optional fraction, a date
// "yyyy-mm-dd", a date-time joining both with "T" (or a space) and an
// optional zone "Z", "+hh:mm", "-hhmm" or "+hh". Qt then checks the ranges,
// exactly as the plug-in's writers parse these texts again.
const QRegularExpression& timeShape() {
    static const QRegularExpression re(
        R"(^([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9](\.[0-9]{1,9})?$)");
    return re;
}
const QRegularExpression& dateShape() {
    static const QRegularExpression re(R"(^[0-9]{4}-[0-9]{2}-[0-9]{2}$)");
    return re;
}
const QRegularExpression& dateTimeShape() {
    static const QRegularExpression re(
        R"(^[0-9]{4}-[0-9]{2}-[0-9]{2}[T ]([01][0-9]|2[0-3]):[0-5][0-9]:[0-5][0-9](\.[0-9]{1,9})?)"
        R"((Z|[+-][0-9]{2}(:?[0-9]{2})?)?$)");
    return re;
}

ksMetadataTypes::ValueType typeOfText(const std::string& text) {
    if (text.size() < 8 || text.size() > 40) return ksMetadataTypes::String;
    QString s = QString::fromStdString(text);
    if (timeShape().match(s).hasMatch() && QTime::fromString(s, Qt::ISODate).isValid())
        return ksMetadataTypes::Time;
    if (dateShape().match(s).hasMatch() && QDate::fromString(s, Qt::ISODate).isValid())
        return ksMetadataTypes::Date;
    if (dateTimeShape().match(s).hasMatch() && QDateTime::fromString(s, Qt::ISODate).isValid())
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
