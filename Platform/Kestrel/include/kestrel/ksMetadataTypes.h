#pragma once
#include <kestrel/osg/Metadata.h>
#include <string>
#include <vector>

class ksMetadataTypes {
public:
    enum ValueType : int {
        String = 0,
        Integer = 1,
        Float = 2,
        Boolean = 3,
        Time = 4,
        Date = 5,
        DateTime = 6,
        Json = 7,
        Invalid = 8,
    };
    // "string", "integer", "float", "boolean", "time", "date", "datetime", "json".
    static const char* getName(ValueType t);
};

#include <kestrel/ksJsonMetadata.h>
