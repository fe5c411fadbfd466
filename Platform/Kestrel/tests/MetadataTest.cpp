// Metadata sets on containers and the value types of their entries.
#include <gtest/gtest.h>

#include <kestrel/ksMetadataUtils.h>
#include <kestrel/osg/Node.h>
#include <kestrel/osg/UberMaterial.h>

using namespace osg;

TEST(MetadataSets, AreFoundOrCreatedByNameOnAnyContainer) {
    NodePtr node = Node::create();
    EXPECT_TRUE(ksMetadataUtils::getMetadata(node) == NullFC);
    MetadataSetPtr a = ksMetadataUtils::getMetadataSet("Paint", node);
    ASSERT_TRUE(a);
    EXPECT_EQ(ksMetadataUtils::getMetadataSet("Paint", node), a);
    MetadataSetPtr b = ksMetadataUtils::getMetadataSet("Car_FileInfo", node);
    std::vector<MetadataSetPtr> sets;
    MetadataPtr md = ksMetadataUtils::getMetadata(node, sets);
    ASSERT_TRUE(md);
    EXPECT_EQ(sets, (std::vector<MetadataSetPtr>{a, b}));
    EXPECT_EQ(ksMetadataUtils::getName(b), "Car_FileInfo");

    // Materials carry metadata the same way; null containers give null.
    MaterialPtr mat = UPlasticMaterial::create();
    EXPECT_TRUE(ksMetadataUtils::getMetadataSet("M_Set", mat));
    EXPECT_TRUE(ksMetadataUtils::getMetadataSet("x", NullFC) == NullFC);
    EXPECT_TRUE(ksMetadataUtils::createMetadata(NullFC) == NullFC);
}

TEST(MetadataSets, HoldJsonEntriesAndHonourTheLock) {
    MetadataSetPtr set = ksMetadataUtils::createMetadataSet("Wheel_Set");
    EXPECT_TRUE(ksMetadataUtils::setValue(set, "Weight", 12.5));
    EXPECT_TRUE(ksMetadataUtils::setValue(set, "Maker", "ACME"));
    EXPECT_EQ(set->getMetadata()["Weight"]["value"].get<double>(), 12.5);
    EXPECT_EQ(ksJsonMetadata::getKeys(set->getMetadata()),
              (std::vector<std::string>{"Maker", "Weight"}));
    EXPECT_EQ(ksJsonMetadata::getString(set->getMetadata(), "Maker"), "ACME");
    EXPECT_EQ(ksJsonMetadata::getString(set->getMetadata(), "Weight"), "12.5");

    ksMetadataUtils::setLock(set, true);
    EXPECT_TRUE(ksMetadataUtils::isLocked(set));
    EXPECT_FALSE(ksMetadataUtils::setValue(set, "Maker", "Other"));
    EXPECT_EQ(ksJsonMetadata::getString(set->getMetadata(), "Maker"), "ACME");
    EXPECT_TRUE(ksMetadataUtils::setValue(set, "Maker", "Other", true));
    EXPECT_EQ(ksJsonMetadata::getString(set->getMetadata(), "Maker"), "Other");
}

TEST(JsonMetadata, ReportsTypeCodesZeroToSeven) {
    Json j = Json::parse(R"({
        "s":  {"value": "red"},
        "i":  {"value": 42},
        "f":  {"value": 2.5},
        "b":  {"value": true},
        "t":  {"value": "12:30:05"},
        "d":  {"value": "2024-01-31"},
        "dt": {"value": "2024-01-31T12:30:05"},
        "l":  {"value": ["a", "b"]},
        "o":  {"value": {"k": 1}},
        "explicit": {"value": "x~y", "type": 7},
        "named": {"value": "2024", "type": "date"},
        "badDate": {"value": "2024-13-45"},
        "null": {"value": null},
        "noValue": {"other": 1},
        "flat": 3
    })");
    auto type = [&](const char* k) { return int(ksJsonMetadata::getPropertyType(j, k, "value")); };
    EXPECT_EQ(type("s"), 0);
    EXPECT_EQ(type("i"), 1);
    EXPECT_EQ(type("f"), 2);
    EXPECT_EQ(type("b"), 3);
    EXPECT_EQ(type("t"), 4);
    EXPECT_EQ(type("d"), 5);
    EXPECT_EQ(type("dt"), 6);
    EXPECT_EQ(type("l"), 7);
    EXPECT_EQ(type("o"), 7);
    EXPECT_EQ(type("explicit"), 7);
    EXPECT_EQ(type("named"), 5);
    EXPECT_EQ(type("badDate"), 0);
    for (const char* k : {"null", "noValue", "flat", "missing"})
        EXPECT_EQ(type(k), 8) << k;
    EXPECT_TRUE(ksJsonMetadata::hasProperty(j, "s"));
    EXPECT_FALSE(ksJsonMetadata::hasProperty(j, "noValue"));
    EXPECT_TRUE(ksJsonMetadata::getKeys(Json::array()).empty());
    // Structured values come back as JSON text, even with broken UTF-8 inside.
    Json odd;
    odd["k"]["value"] = Json::array({std::string("\xff\xfe"), 1});
    EXPECT_FALSE(ksJsonMetadata::getString(odd, "k").empty());
    EXPECT_EQ(ksJsonMetadata::getString(j, "l"), R"(["a","b"])");
}

TEST(JsonMetadata, ParsingBadTextReportsInsteadOfThrowing) {
    Json out;
    std::string error;
    EXPECT_FALSE(ksJsonMetadata::parse("{\"a\": ", out, &error));
    EXPECT_FALSE(error.empty());
    EXPECT_TRUE(ksJsonMetadata::parse("{\"a\": 1}", out));
    EXPECT_EQ(out["a"], 1);
}

// Texts in the ISO-8601 forms that the SDK writes (fractions, zones, a space
// for the "T") are times, dates and date-times; near misses stay strings.
TEST(JsonMetadata, RecognisesIsoTimesDatesAndDateTimes) {
    const std::pair<const char*, int> cases[] = {
        {"00:00:00", 4},
        {"23:59:59.007", 4},
        {"24:00:00", 0},
        {"12:30", 0},
        {"1:02:03", 0},
        {"2024-02-29", 5},
        {"2023-02-29", 0},
        {"2024-2-29", 0},
        {"2024-02-29T13:14:15", 6},
        {"2024-02-29T13:14:15.250", 6},
        {"2024-02-29 13:14:15", 6},
        {"2024-02-29T13:14:15Z", 6},
        {"2024-02-29T13:14:15+02:00", 6},
        {"2024-02-29T13:14:15-0130", 6},
        {"2024-02-29T13:14", 0},
        {"2024-02-29T13:14:15 trailing", 0},
        {"2024-02-30T13:14:15", 0},
        {"12:30:05~13:00:00", 0},
    };
    for (const auto& [text, type] : cases) {
        Json j;
        j["k"]["value"] = text;
        EXPECT_EQ(int(ksJsonMetadata::getPropertyType(j, "k", "value")), type) << text;
    }
}
