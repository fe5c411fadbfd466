// Property values as text and back, and the kinds of date-time values.
#include <gtest/gtest.h>

#include <limits>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {
class ValueText : public ::testing::Test {
protected:
    void SetUp() override {
        manager = QdxManager::Create();
        node = QdxNode::Create(QdxScene::Create(manager, "scene"), "n");
    }
    void TearDown() override { manager->Destroy(); }

    // A new property of that type holding value; its text; then a second
    // property of the same type set from that text.
    template <class T>
    QdxProperty RoundTrip(const QdxDataType& type, const T& value, const std::string& text) {
        QdxProperty p = QdxProperty::Create(node, type, ("a" + std::to_string(++count)).c_str());
        EXPECT_TRUE(p.Set(value));
        EXPECT_EQ(p.Get<QdxString>().Str(), text);
        QdxProperty q = QdxProperty::Create(node, type, ("b" + std::to_string(count)).c_str());
        EXPECT_TRUE(q.Set(QdxString(text)));
        EXPECT_EQ(*q.RawValue(), *p.RawValue()) << text;
        return q;
    }
    QdxManager* manager = nullptr;
    QdxNode* node = nullptr;
    int count = 0;
};
} // namespace

TEST_F(ValueText, EveryDataTypeReadsBackFromItsText) {
    RoundTrip(QdxBoolDT, true, "true");
    RoundTrip(QdxIntDT, std::numeric_limits<int>::min(), "-2147483648");
    RoundTrip(QdxEnumDT, 3, "3");
    RoundTrip(QdxLongLongDT, -9000000000000000001LL, "-9000000000000000001");
    RoundTrip(QdxTimeDT, QdxTime(std::numeric_limits<long long>::max()), "9223372036854775807");
    RoundTrip(QdxFloatDT, 0.1f, "0.1");
    RoundTrip(QdxDoubleDT, 0.1 + 0.2, "0.30000000000000004");
    RoundTrip(QdxDouble2DT, QdxDouble2(-0.0, 5e-324), "-0,5e-324");
    RoundTrip(QdxColor3DT, QdxDouble3(0.25, 1, 1e300), "0.25,1,1e+300");
    RoundTrip(QdxDouble4DT, QdxDouble4(1, 2, 3, -4.5), "1,2,3,-4.5");
    QdxAMatrix m;
    m.m[0][1] = 2.5;
    m.m[3][0] = -7;
    RoundTrip(QdxDouble4x4DT, m, "1,2.5,0,0,0,1,0,0,0,0,1,0,-7,0,0,1");
    RoundTrip(QdxStringDT, QdxString("a~b, \"c\""), "a~b, \"c\"");
    QdxProperty list = QdxProperty::Create(node, QdxStringListDT, "list");
    list.AddStringListItem("x");
    list.AddStringListItem("y~\"z\"");
    EXPECT_EQ(list.Get<QdxString>().Str(), R"(["x","y~\"z\""])");
    QdxProperty copy = QdxProperty::Create(node, QdxStringListDT, "copy");
    EXPECT_TRUE(copy.Set(list.Get<QdxString>()));
    ASSERT_EQ(copy.GetStringListCount(), 2);
    EXPECT_STREQ(copy.GetStringListItem(1), "y~\"z\"");
}

TEST_F(ValueText, DateTimesKeepTheirKind) {
    QdxProperty full = RoundTrip(QdxDateTimeDT, QdxDateTime(29, 2, 2024, 13, 14, 15, 7),
                                 "2024-02-29T13:14:15.007");
    EXPECT_TRUE(full.Get<QdxDateTime>().hasDate() && full.Get<QdxDateTime>().hasTime());

    QdxDateTime day;
    day.setDate(31, 12, 1999);
    QdxDateTime fromDay = RoundTrip(QdxDateTimeDT, day, "1999-12-31").Get<QdxDateTime>();
    EXPECT_TRUE(fromDay.hasDate());
    EXPECT_FALSE(fromDay.hasTime());

    QdxDateTime clock;
    clock.setTime(0, 0, 0);
    QdxDateTime fromClock = RoundTrip(QdxDateTimeDT, clock, "00:00:00").Get<QdxDateTime>();
    EXPECT_FALSE(fromClock.hasDate());
    EXPECT_TRUE(fromClock.hasTime() && fromClock.isValid());

    // Unset is empty text and stays unset.
    RoundTrip(QdxDateTimeDT, QdxDateTime(), "");
    // A date-time is not equal to the same day at midnight given as a date.
    QdxDateTime midnight = day;
    midnight.setTime(0, 0, 0);
    EXPECT_FALSE(midnight == day);
    QdxDateTime spaced;
    EXPECT_TRUE(spaced.fromString("1999-12-31 00:00:00"));
    EXPECT_TRUE(spaced == midnight);
}

TEST_F(ValueText, MalformedTextLeavesTheValueAlone) {
    struct Case {
        const QdxDataType& type;
        const char* text;
    };
    const Case cases[] = {
        {QdxBoolDT, "yes"},
        {QdxIntDT, "12x"},
        {QdxIntDT, "99999999999"},
        {QdxIntDT, ""},
        {QdxLongLongDT, "1.5"},
        {QdxDoubleDT, "one"},
        {QdxDouble2DT, "1"},
        {QdxDouble3DT, "1,2,3,4"},
        {QdxDouble3DT, "1,,3"},
        {QdxDouble4x4DT, "1,2,3"},
        {QdxStringListDT, "[1,2]"},
        {QdxStringListDT, "a~b"},
        {QdxDateTimeDT, "2024-02-30T25:00:00"},
        {QdxDateTimeDT, "2024-02-29T13:14:15Z"},
        {QdxDateTimeDT, "13:14"},
        {QdxDateTimeDT, "yesterday"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        QdxProperty p = QdxProperty::Create(node, c.type, (std::string("p") + c.text).c_str());
        const detail::Value before = *p.RawValue();
        EXPECT_FALSE(p.Set(QdxString(c.text)));
        EXPECT_EQ(*p.RawValue(), before);
    }
}
