#include <QDate>
#include <QDateTime>
#include <QString>
#include <QTime>
#include <exception>

#include <kestrel/ksMetadataTypes.h>
#include <kestrel/ksMetadataUtils.h>

using namespace osg;

const char* ksMetadataTypes::getName(ValueType t) {
    switch (t) {
    case String:
        return "string";
    case Integer:
        return "integer";
    case Float:
        return "float";
    case Boolean:
        return "boolean";
    case Time:
        return "time";
    case Date:
        return "date";
    case DateTime:
        return "datetime";
    case Json:
        return "json";
    default:
        return "invalid";
    }
}
