// The property value types, listed once: for each type code its name, its
// storage in detail::Value, its default value, how it is written and read
// as a sequence of primitive fields (which the file formats encode, each in
// its own way), its numeric components and whether it scales with the
// system unit. Everything that handles values by type goes through here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qdxsdk/property.h"

namespace qdxsdk::detail {

// The primitive fields a value is written as. The binary flavour writes
// little-endian fields and string-table ids, the text flavour JSON.
class ValueWriter {
public:
    virtual ~ValueWriter() = default;
    virtual void Null() = 0;
    virtual void Bool(bool v) = 0;
    virtual void Int32(int32_t v) = 0;
    virtual void Int64(int64_t v) = 0;
    virtual void Float(float v) = 0;
    virtual void Double(double v) = 0;
    virtual void Doubles(const double* v, int count) = 0;
    virtual void Int32s(const int32_t* v, int count) = 0;
    virtual void String(const std::string& v) = 0;
    virtual void Strings(const std::vector<std::string>& v) = 0;
};

// Reads the fields back; false (or, in the text flavour, an exception that
// the reader catches) when the input does not hold such a field.
class ValueReader {
public:
    virtual ~ValueReader() = default;
    virtual bool Null() = 0;
    virtual bool Bool(bool& v) = 0;
    virtual bool Int32(int32_t& v) = 0;
    virtual bool Int64(int64_t& v) = 0;
    virtual bool Float(float& v) = 0;
    virtual bool Double(double& v) = 0;
    virtual bool Doubles(double* v, int count) = 0;
    virtual bool Int32s(int32_t* v, int count) = 0;
    virtual bool String(std::string& v) = 0;
    virtual bool Strings(std::vector<std::string>& v) = 0;
};

struct ValueType {
    EQdxType type;
    // Name of the plain data type of this code ("Double3"; "Color3" is a
    // further data type over the same code).
    const char* name;
    // Alternative of detail::Value that holds values of this type.
    size_t storage;
    // Numeric components as doubles (animation channels, unit scaling); 0
    // for types that are not numeric vectors.
    int components;
    // Lengths and positions of this type are multiplied by the factor of a
    // system unit conversion.
    bool scalesWithUnit;
    Value (*defaultValue)();
    void (*write)(const Value& value, ValueWriter& out);
    // Reads a value of this type; value is left unchanged on failure.
    bool (*read)(ValueReader& in, Value& value);
    // The value's components (components of them), and back; values of
    // another storage give 0 and are left unchanged.
    int (*toDoubles)(const Value& value, double* out);
    void (*fromDoubles)(Value& value, const double* in);
    // The value as text, and back (ValueToText and ValueFromText in
    // property.h describe the forms).
    std::string (*toText)(const Value& value);
    bool (*fromText)(const std::string& text, Value& value);
};

// The entry of a type code (eQdxUndefined's for codes out of range).
const ValueType& ValueTypeOf(EQdxType type);
// The entry that describes a stored value: the first type code with its
// storage (enums read as Int, times as LongLong, references as Undefined).
const ValueType& ValueTypeOf(const Value& value);

} // namespace qdxsdk::detail
