// The text reader against hand-made text: number syntax, counts that do not
// match their data, base64 faults, member order, long lines, and the pages of
// a mapped file handed back while it is read.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "format.h"
#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;
using namespace qdxsdk::format;

namespace {
// A file as the writer makes it: every form a value or an array takes.
const char kWritten[] = R"TEXT({"qdx":"text","version":3,
"objects":[
{"class":"QdxScene","name":"s","properties":[],"arrays":[]},
{"class":"QdxNode","name":"n\u0001\"q\"\\ é","properties":[
 {"name":"z","type":"Double","flags":2,"value":-0.0},
 {"name":"nan","type":"Double","flags":2,"value":"0x7ff8000000000000"},
 {"name":"t","type":"Double3","flags":2,"value":[0.1,-1e+300,5e-324]},
 {"name":"bad","type":"String","flags":2,"value":{"hex":"fffe"}},
 {"name":"i","type":"Int","flags":2,"value":7}],"arrays":[
 {"name":"f","kind":"f64","count":5,"crc32":525035302,"data":[1.5,-0.0,"0x7ff0000000000000",1e-310,0.30000000000000004]},
 {"name":"k","kind":"i32","count":70,"crc32":1525566655,"b64":"QPHp/YMz+f3GdQj+CbgX/kz6Jv6PPDb+0n5F/hXBVP5YA2T+m0Vz/t6Hgv4hypH+ZAyh/qdOsP7qkL/+LdPO/nAV3v6zV+3+9pn8/jncC/98Hhv/v2Aq/wKjOf9F5Uj/iCdY/8tpZ/8OrHb/Ue6F/5Qwlf/XcqT/GrWz/133wv+gOdL/43vh/ya+8P9pAAAArEIPAO+EHgAyxy0AdQk9ALhLTAD7jVsAPtBqAIESegDEVIkAB5eYAErZpwCNG7cA0F3GABOg1QBW4uQAmST0ANxmAwEfqRIBYushAaUtMQHob0ABK7JPAW70XgGxNm4B9Hh9ATe7jAF6/ZsBvT+rAQCCugFDxMkBhgbZAclI6AEMi/cBT80GAg=="},
 {"name":"u","kind":"u8","count":3,"crc32":4060197315,"data":[0,255,7]}]}],
"connections":[
[1,0]]}
)TEXT";

bool Read(const std::string& text, FlatDocument& doc, std::string* error = nullptr) {
    QdxStatus status;
    bool ok = ReadText(reinterpret_cast<const uint8_t*>(text.data()), text.size(), doc, status);
    if (error) *error = status.GetErrorString();
    return ok;
}

std::string Write(const FlatDocument& doc) {
    std::string out;
    QdxStatus status;
    EXPECT_TRUE(WriteText(
        doc,
        [&](const void* p, size_t n) { return out.append(static_cast<const char*>(p), n), true; },
        status));
    return out;
}

// The message of a rejected text, "" when it reads.
std::string Rejection(const std::string& text) {
    FlatDocument doc;
    std::string error;
    return Read(text, doc, &error) ? "" : error;
}

// A version 1 document whose one object holds the given arrays; line 2 holds them.
std::string WithArrays(const std::string& arrays, int version = 1) {
    return "{\"qdx\":\"text\",\"version\":" + std::to_string(version) +
           ",\"objects\":[\n{\"class\":\"QdxScene\",\"name\":\"s\",\"properties\":[],\"arrays\":[" +
           arrays + "]}],\n\"connections\":[]}";
}

std::string F64(const std::string& items, long long count) {
    return WithArrays("{\"name\":\"a\",\"kind\":\"f64\",\"count\":" + std::to_string(count) +
                      ",\"data\":[" + items + "]}");
}

// The column of the first data item of F64's array on line 2.
size_t FirstItemColumn(long long count) {
    const std::string text = F64("", count);
    return text.find("\"data\":[") + 8 - text.find('\n');
}
} // namespace

TEST(TextReader, WrittenFilesReadBackToTheSameBytes) {
    FlatDocument doc;
    std::string error;
    ASSERT_TRUE(Read(kWritten, doc, &error)) << error;
    EXPECT_EQ(Write(doc), kWritten);
    const FlatObject& node = doc.objects[1];
    EXPECT_EQ(node.name, "n\x01\"q\"\\ \xc3\xa9");
    EXPECT_TRUE(std::signbit(std::get<double>(node.properties[0].value)));
    EXPECT_TRUE(std::isnan(std::get<double>(node.properties[1].value)));
    EXPECT_EQ(std::get<std::string>(node.properties[3].value), "\xff\xfe");
    // The same content as decimal numbers (version 2) reads to the same document.
    doc.version = 2;
    FlatDocument decimal;
    ASSERT_TRUE(Read(Write(doc), decimal, &error)) << error;
    decimal.version = 3;
    EXPECT_EQ(Write(decimal), kWritten);
}

TEST(TextReader, MembersInAnyOrderWithAnyWhitespaceReadTheSame) {
    // Data before its kind and count, a value before its type, unknown
    // members, escapes in base64 and spread-out whitespace.
    std::string text = kWritten;
    auto replace = [&](const std::string& from, const std::string& to) {
        size_t at = text.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        text.replace(at, from.size(), to);
    };
    replace("{\"name\":\"f\",\"kind\":\"f64\",\"count\":5,\"crc32\":525035302,\"data\":",
            "{ \"extra\" : [ {\"x\":[null,true]} ] , \"data\" :\r\n\t");
    replace("0.30000000000000004]}", "0.30000000000000004], \"crc32\":525035302, \"count\": 5, "
                                     "\"kind\":\"f64\", \"name\":\"f\"}");
    replace("{\"name\":\"z\",\"type\":\"Double\",\"flags\":2,\"value\":-0.0}",
            "{\"value\" : -0.0 , \"flags\":2,\"name\":\"z\",\"type\":\"Double\"}");
    replace("\"b64\":\"QPHp/", "\"b64\":\"QPHp\\/");
    FlatDocument doc;
    std::string error;
    ASSERT_TRUE(Read(text, doc, &error)) << error;
    EXPECT_EQ(Write(doc), kWritten);
}

TEST(TextReader, MalformedNumbersAreRefusedWhereTheyStand) {
    // Faults are placed at the number's first character.
    const std::string at = "(line 2, column " + std::to_string(FirstItemColumn(1)) + ")";
    for (const char* bad : {"01", "1.", ".5", "1e", "1e+", "+1", "-", "--1", "1x", "1.5.2", "0x10",
                            "NaN", "Infinity", "1e400", "tru"}) {
        std::string error = Rejection(F64(bad, 1));
        EXPECT_NE(error.find(at), std::string::npos) << bad << ": " << error;
    }
    EXPECT_NE(Rejection(F64("1,2,", 2)), "");
    // Integers stay integers, inside their kind's range.
    auto ints = [](const char* kind, const std::string& item) {
        return Rejection(WithArrays(std::string("{\"name\":\"a\",\"kind\":\"") + kind +
                                    "\",\"count\":1,\"data\":[" + item + "]}"));
    };
    EXPECT_NE(ints("i32", "1.0").find("expected an integer"), std::string::npos);
    EXPECT_NE(ints("i32", "2147483648").find("out of range"), std::string::npos);
    EXPECT_EQ(ints("i32", "-2147483648"), "");
    EXPECT_NE(ints("i64", "9223372036854775808").find("out of range"), std::string::npos);
    EXPECT_NE(ints("u8", "256").find("out of range"), std::string::npos);
    EXPECT_NE(ints("u8", "-1").find("out of range"), std::string::npos);
    // What reads: every exponent form, and values too small for a double as 0.
    FlatDocument doc;
    ASSERT_TRUE(Read(F64("1E+2,-1.5e-3,0e0,-0,1e-400,5e-324", 6), doc));
    const std::vector<double>& v = doc.objects[0].arrays[0].owned.Elements<double>();
    EXPECT_EQ(v, (std::vector<double>{100, -1.5e-3, 0, 0, 0, 5e-324}));
    EXPECT_FALSE(std::signbit(v[3])) << "-0 is the integer zero";
}

TEST(TextReader, CountsMustMatchTheData) {
    EXPECT_NE(Rejection(F64("1,2", 3)).find("wrong count"), std::string::npos);
    EXPECT_NE(Rejection(F64("1,2,3", 2)).find("wrong count"), std::string::npos);
    // A count the rest of the text cannot hold is refused before anything
    // is reserved for it.
    EXPECT_NE(Rejection(F64("1", 1000000000)).find("more than the text holds"), std::string::npos);
    EXPECT_NE(Rejection(F64("1", 9223372036LL * 1000000000)).find("wrong count"),
              std::string::npos);
    auto b64Text = [](long long count, const std::string& data) {
        return WithArrays("{\"name\":\"a\",\"kind\":\"i32\",\"count\":" + std::to_string(count) +
                              ",\"b64\":\"" + data + "\"}",
                          3);
    };
    auto b64 = [&](long long count, const std::string& data) {
        return Rejection(b64Text(count, data));
    };
    // Version 3 needs crc32; without it the checks before it decide.
    EXPECT_NE(b64(2, "AAAAAAAAAAA=").find("crc32"), std::string::npos);
    EXPECT_NE(b64(3, "AAAAAAAAAAA=").find("wrong length"), std::string::npos);
    EXPECT_NE(b64(1000000000000LL, "AAAA").find("wrong length"), std::string::npos);
    const std::string bad = b64Text(2, "AAAA*AAAAAA=");
    EXPECT_NE(Rejection(bad).find("bad base64 character (line 2, column " +
                                  std::to_string(bad.find('*') - bad.find('\n')) + ")"),
              std::string::npos)
        << Rejection(bad);
    // Truncated anywhere inside an array, the text is refused.
    const std::string whole = F64("1.25,2.5,3.75", 3);
    for (size_t cut = whole.find("\"data\""); cut < whole.size(); ++cut)
        EXPECT_NE(Rejection(whole.substr(0, cut)), "") << cut;
}

TEST(TextReader, LongLinesAndDeepNesting) {
    // A quarter of a million numbers on one line, and a fault at its end
    // placed by its column.
    std::string items;
    for (int i = 0; i < 250000; ++i) {
        if (i) items += ',';
        items += std::to_string(i);
        items += ".5";
    }
    FlatDocument doc;
    ASSERT_TRUE(Read(F64(items, 250000), doc));
    EXPECT_EQ(doc.objects[0].arrays[0].owned.Elements<double>().back(), 249999.5);
    std::string error = Rejection(F64(items + ",1.5.", 250001));
    EXPECT_NE(error.find("(line 2, column " +
                         std::to_string(FirstItemColumn(250001) + items.size() + 1) + ")"),
              std::string::npos)
        << error;
    // Nesting beyond the limit is refused even inside members that are skipped.
    std::string deep(40, '[');
    deep += std::string(40, ']');
    std::string text = WithArrays("");
    text.insert(text.find("\"objects\""), "\"skipped\":" + deep + ",");
    EXPECT_NE(Rejection(text).find("nested too deeply"), std::string::npos);
}

TEST(TextReader, MappedInputIsHandedBackAndStillReads) {
    const std::string dir = std::filesystem::temp_directory_path() / "qdx-text-reader";
    std::filesystem::create_directories(dir);
    // Twice the release step of base64 and of decimal text.
    FlatDocument doc;
    doc.objects.resize(1);
    doc.objects[0].className = "QdxScene";
    FlatArray a;
    a.name = "big";
    a.owned.kind = a.kind = detail::ArrayKind::Double;
    for (int i = 0; i < 2500000; ++i)
        a.owned.Elements<double>().push_back(i * 0.37);
    doc.objects[0].arrays.push_back(std::move(a));
    for (int version : {3, 2}) {
        doc.version = version;
        const std::string text = Write(doc), path = dir + "/big.qdx";
        std::ofstream(path, std::ios::binary) << text;
        MappedFile file;
        QdxStatus status;
        ASSERT_TRUE(file.Open(path, status));
        FlatDocument back;
        ASSERT_TRUE(ReadText(file.Data(), file.Size(), back, status)) << status.GetErrorString();
        EXPECT_EQ(back.objects[0].arrays[0].owned.Elements<double>(),
                  doc.objects[0].arrays[0].owned.Elements<double>());
        // The pages handed back read from the file again.
        ReleaseMappedBytes(file.Data(), file.Size());
        EXPECT_EQ(std::memcmp(file.Data(), text.data(), text.size()), 0);
    }
    // Memory that is not a mapped file is never touched.
    std::vector<uint8_t> plain(1 << 16, 0x5a);
    ReleaseMappedBytes(plain.data(), plain.size());
    EXPECT_EQ(plain[1 << 15], 0x5a);
    std::filesystem::remove_all(dir);
}
