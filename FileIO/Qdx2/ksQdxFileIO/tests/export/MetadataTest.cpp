// User properties and document information: Qdx file -> host metadata ->
// Qdx file -> host metadata.
#include <map>

#include <kestrel/ksJsonMetadata.h>
#include <kestrel/ksMetadataUtils.h>
#include <kestrel/ksNodeUtils.h>

#include "TestKit.h"
#include "ksQdxMetaData.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {

QdxProperty user(QdxObject* o, const QdxDataType& type, const char* label) {
    QdxProperty p = QdxProperty::Create(o, type, label);
    p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
    return p;
}

QdxDateTime dateTime(bool date, bool time) {
    QdxDateTime d;
    if (date) d.setDate(29, 2, 2024);
    if (time) d.setTime(13, 14, 15);
    return d;
}

// A node "Wheel" with user properties of every kind, on itself, on its mesh
// and on its material, a mesh node "Plain" with none, and a node "Bare"
// without user properties and without an attribute.
void buildScene(QdxScene* s) {
    QdxNode* wheel = addMesh(s, s->GetRootNode(), "Wheel", quadPoints(), {{0, 1, 2, 3}});
    user(wheel, QdxBoolDT, "Paint__Glossy").Set(true);
    user(wheel, QdxIntDT, "Count").Set(-7);
    user(wheel, QdxFloatDT, "Ratio").Set(0.1f);
    user(wheel, QdxStringDT, "Maker").Set(QdxString("ACME"));
    user(wheel, QdxStringDT, "Tags").Set(QdxString("a~2.5~true~"));
    user(wheel, QdxStringDT, "A__B__C").Set(QdxString("two delimiters"));
    user(wheel, QdxStringDT, "__Owner").Set(QdxString("container"));
    user(wheel, QdxDateTimeDT, "Stamp__When").Set(dateTime(true, true));
    user(wheel, QdxDateTimeDT, "Stamp__Day").Set(dateTime(true, false));
    user(wheel, QdxDateTimeDT, "Stamp__Clock").Set(dateTime(false, true));
    user(wheel, QdxColor3DT, "Tint").Set(QdxDouble3(0.25, 0.5, 1));
    user(wheel, QdxDouble4DT, "Quad").Set(QdxDouble4(1, -2, 3.5, 4));
    user(wheel, QdxDoubleDT, "Weight").Set(12.5);
    user(wheel, QdxLongLongDT, "Serial").Set(9000000000LL);
    QdxProperty choice = user(wheel, QdxEnumDT, "Choice");
    choice.AddEnumValue("zero");
    choice.AddEnumValue("one");
    choice.Set(1);
    QdxProperty list = user(wheel, QdxStringListDT, "Parts");
    list.AddStringListItem("bolt");
    list.AddStringListItem("nut");
    // The attribute's set takes its built-in values too (a mesh: Color).
    wheel->GetNodeAttribute()->SetName("WheelMesh");
    user(wheel->GetNodeAttribute(), QdxIntDT, "Batch").Set(42);
    QdxSurfacePhong* rubber = QdxSurfacePhong::Create(s, "Rubber");
    user(rubber, QdxStringDT, "Supplier__Name").Set(QdxString("Tyres Ltd"));
    user(rubber, QdxFloatDT, "Hardness").Set(0.75f);
    wheel->AddMaterial(rubber);
    addMesh(s, s->GetRootNode(), "Plain", quadPoints(1), {{0, 1, 2, 3}});
    s->GetRootNode()->AddChild(QdxNode::Create(s, "Bare"));
}

// Every set of a container by name, and its own JSON under "".
std::map<std::string, osg::Json> metadataOf(const osg::AttachmentContainerPtr& container) {
    std::map<std::string, osg::Json> all;
    std::vector<osg::MetadataSetPtr> sets;
    osg::MetadataPtr metadata = ksMetadataUtils::getMetadata(container, sets);
    if (!metadata) return all;
    if (!metadata->getMetadata().empty()) all[""] = metadata->getMetadata();
    for (const auto& set : sets) {
        EXPECT_TRUE(ksMetadataUtils::isLocked(set)) << set->getName();
        all[ksMetadataUtils::getName(set)] = set->getMetadata();
    }
    return all;
}

osg::Json value(const std::map<std::string, osg::Json>& sets, const std::string& set,
                const std::string& key) {
    auto s = sets.find(set);
    if (s == sets.end() || !s->second.contains(key)) return osg::Json();
    return s->second[key]["value"];
}

class Metadata : public PluginTest {};

} // namespace

TEST_F(Metadata, UserPropertiesBecomeSetsAndComeBackAsTheSameLabels) {
    Imported first = import(writeScene("wheel.qdx", buildScene));
    ASSERT_TRUE(first.root);
    const auto wheel = metadataOf(first.node("Wheel"));
    EXPECT_EQ(value(wheel, "Paint", "Glossy"), true);
    EXPECT_EQ(value(wheel, "Wheel_Set", "Count"), -7);
    EXPECT_EQ(value(wheel, "Wheel_Set", "Ratio"), 0.1);
    EXPECT_EQ(value(wheel, "Wheel_Set", "Maker"), "ACME");
    EXPECT_EQ(value(wheel, "Wheel_Set", "Tags"), osg::Json::parse(R"(["a", 2.5, true, ""])"));
    EXPECT_EQ(value(wheel, "Wheel_Set", "A__B__C"), "two delimiters");
    EXPECT_EQ(value(wheel, "", "Owner"), "container");
    EXPECT_EQ(value(wheel, "Stamp", "When"), "2024-02-29T13:14:15");
    EXPECT_EQ(value(wheel, "Stamp", "Day"), "2024-02-29");
    EXPECT_EQ(value(wheel, "Stamp", "Clock"), "13:14:15");
    EXPECT_EQ(value(wheel, "Wheel_Set", "Tint"), osg::Json::parse("[0.25, 0.5, 1.0]"));
    EXPECT_EQ(value(wheel, "Wheel_Set", "Quad"), osg::Json::parse("[1.0, -2.0, 3.5, 4.0]"));
    EXPECT_EQ(value(wheel, "Wheel_Set", "Weight"), 12.5);
    EXPECT_EQ(value(wheel, "Wheel_Set", "Serial"), "9000000000");
    EXPECT_EQ(value(wheel, "Wheel_Set", "Choice"), 1);
    EXPECT_EQ(value(wheel, "Wheel_Set", "Parts"), osg::Json::parse(R"(["bolt", "nut"])"));
    EXPECT_EQ(value(wheel, "WheelMesh_Set", "Batch"), 42);
    // The node's user data only; its mesh's user data and built-in values.
    EXPECT_EQ(wheel.size(), 5u);
    EXPECT_EQ(wheel.at("Wheel_Set").size(), 11u);
    EXPECT_EQ(wheel.at("WheelMesh_Set").size(), 2u);
    EXPECT_TRUE(wheel.at("WheelMesh_Set").contains("Color"));
    EXPECT_TRUE(ksMetadataUtils::getMetadata(first.node("Plain")));
    EXPECT_FALSE(ksMetadataUtils::getMetadata(first.node("Bare")));
    const auto rubber = metadataOf(ksNodeUtils::getRealMaterial(first.node("Wheel")));
    EXPECT_EQ(value(rubber, "Supplier", "Name"), "Tyres Ltd");
    EXPECT_EQ(value(rubber, "Rubber_Set", "Hardness"), 0.75);

    // Exported, the labels the import split come back, user-defined; the
    // types that the metadata keep are written as themselves.
    const std::string out = file("out.qdx");
    ASSERT_TRUE(exportTo(first.root, out));
    {
        ReadBack back(out);
        ASSERT_TRUE(back.ok);
        QdxNode* node = back["Wheel"];
        ASSERT_TRUE(node);
        auto prop = [&](QdxObject* o, const char* label) {
            QdxProperty p = o->FindProperty(label);
            EXPECT_TRUE(p.IsValid() && p.GetFlag(QdxPropertyFlags::eUserDefined)) << label;
            return p;
        };
        EXPECT_TRUE(prop(node, "Paint__Glossy").Is(QdxBoolDT));
        EXPECT_TRUE(prop(node, "Paint__Glossy").Get<bool>());
        EXPECT_TRUE(prop(node, "Count").Is(QdxIntDT));
        EXPECT_EQ(prop(node, "Count").Get<int>(), -7);
        EXPECT_TRUE(prop(node, "Ratio").Is(QdxFloatDT));
        EXPECT_EQ(prop(node, "Ratio").Get<float>(), 0.1f);
        EXPECT_EQ(prop(node, "Maker").Get<QdxString>().Str(), "ACME");
        EXPECT_TRUE(prop(node, "Tags").Is(QdxStringDT));
        EXPECT_EQ(prop(node, "Tags").Get<QdxString>().Str(), "a~2.5~true~");
        EXPECT_EQ(prop(node, "A__B__C").Get<QdxString>().Str(), "two delimiters");
        EXPECT_EQ(prop(node, "__Owner").Get<QdxString>().Str(), "container");
        for (const char* label : {"Stamp__When", "Stamp__Day", "Stamp__Clock"})
            EXPECT_TRUE(prop(node, label).Is(QdxDateTimeDT)) << label;
        EXPECT_TRUE(prop(node, "Stamp__When").Get<QdxDateTime>() == dateTime(true, true));
        EXPECT_TRUE(prop(node, "Stamp__Day").Get<QdxDateTime>() == dateTime(true, false));
        EXPECT_TRUE(prop(node, "Stamp__Clock").Get<QdxDateTime>() == dateTime(false, true));
        // Structured values travel as "~" lists of text.
        EXPECT_EQ(prop(node, "Tint").Get<QdxString>().Str(), "0.25~0.5~1.0");
        EXPECT_EQ(prop(node, "Parts").Get<QdxString>().Str(), "bolt~nut");
        EXPECT_TRUE(prop(node, "Choice").Is(QdxIntDT));
        EXPECT_EQ(prop(node, "WheelMesh_Set__Batch").Get<int>(), 42);
        EXPECT_FALSE(node->FindProperty("Plain").IsValid());
        QdxNode* bare = back["Bare"];
        ASSERT_TRUE(bare);
        EXPECT_FALSE(ksQdxMetaData::checkForMetaData(bare));
        ASSERT_GT(node->GetMaterialCount(), 0);
        QdxSurfaceMaterial* material = node->GetMaterial(0);
        EXPECT_EQ(prop(material, "Supplier__Name").Get<QdxString>().Str(), "Tyres Ltd");
        EXPECT_EQ(prop(material, "Hardness").Get<float>(), 0.75f);
    }

    // Imported again, the metadata are what the first import made.
    Imported second = import(out);
    ASSERT_TRUE(second.root);
    // The attribute's set now comes from the node, under the same name. The
    // exported mesh is named after its node, so its built-in Color joins
    // the node's own set; everything else is what the first import made.
    auto again = metadataOf(second.node("Wheel"));
    ASSERT_TRUE(again.count("Wheel_Set"));
    EXPECT_TRUE(again.at("Wheel_Set").contains("Color"));
    again.at("Wheel_Set").erase("Color");
    EXPECT_EQ(again, wheel);
    EXPECT_EQ(metadataOf(ksNodeUtils::getRealMaterial(second.node("Wheel"))), rubber);
    EXPECT_FALSE(ksMetadataUtils::getMetadata(second.node("Bare")));
}

// The import names the document set after the root and appends "_Set";
// only a set ending in "_FileInfo" goes back into the exported document
// information, and never its last-saved rows.
TEST_F(Metadata, DocumentInformationGoesBackOnlyFromAFileInfoSet) {
    const std::string path = writeScene("car.qdx", [](QdxScene* s) {
        addMesh(s, s->GetRootNode(), "Body", quadPoints(), {{0, 1, 2, 3}});
        QdxDocumentInfo* info = QdxDocumentInfo::Create(s, "info");
        info->Original_ApplicationVendor.Set(QdxString("Maker"));
        info->Original_ApplicationName.Set(QdxString("Modeller"));
        info->Original_ApplicationVersion.Set(QdxString("7.1"));
        info->Original_DateTime_GMT.Set(QdxDateTime(1, 2, 2020, 3, 4, 5));
        info->LastSaved_ApplicationVendor.Set(QdxString("Other"));
        info->mTitle = "Car";
        info->mKeywords = "red~fast";
        s->SetDocumentInfo(info);
    });
    Imported first = import(path);
    ASSERT_TRUE(first.root);
    std::vector<osg::MetadataSetPtr> sets;
    ksMetadataUtils::getMetadata(first.root, sets);
    ASSERT_EQ(sets.size(), 1u);
    EXPECT_EQ(ksMetadataUtils::getName(sets[0]), "car_Set");
    const osg::Json& json = sets[0]->getMetadata();
    EXPECT_EQ(json.size(), 14u);
    EXPECT_EQ(json["Created"]["value"], "2020-02-01T03:04:05");
    EXPECT_EQ(json["Author"]["value"], "");
    EXPECT_EQ(json["Keywords"]["value"], "red~fast");

    // A "_Set" set is not file information.
    const std::string plain = file("plain.qdx");
    ASSERT_TRUE(exportTo(first.root, plain));
    EXPECT_NE(printed.find("Didn't find metadata set with file info!\n"), std::string::npos);
    {
        ReadBack back(plain);
        ASSERT_TRUE(back.ok);
        EXPECT_EQ(back.scene->GetDocumentInfo()->mTitle.Str(), "");
        EXPECT_FALSE(back.scene->GetDocumentInfo()->Original_DateTime_GMT.Get().isValid());
    }

    ksMetadataUtils::setName(sets[0], "car_FileInfo");
    ksMetadataUtils::setValue(sets[0], "LastSavedApplicationName", "Ignored", true);
    ksMetadataUtils::setValue(sets[0], "Revision", "", true);
    const std::string out = file("info.qdx");
    printed.clear();
    ASSERT_TRUE(exportTo(first.root, out));
    EXPECT_EQ(printed.find("Didn't find metadata set"), std::string::npos);
    ReadBack back(out);
    ASSERT_TRUE(back.ok);
    const QdxDocumentInfo* info = back.scene->GetDocumentInfo();
    ASSERT_TRUE(info);
    EXPECT_EQ(info->Original_ApplicationVendor.Get().Str(), "Maker");
    EXPECT_EQ(info->Original_ApplicationName.Get().Str(), "Modeller");
    EXPECT_EQ(info->Original_ApplicationVersion.Get().Str(), "7.1");
    EXPECT_TRUE(info->Original_DateTime_GMT.Get() == QdxDateTime(1, 2, 2020, 3, 4, 5));
    EXPECT_EQ(info->mTitle.Str(), "Car");
    EXPECT_EQ(info->mKeywords.Str(), "red~fast");
    EXPECT_EQ(info->mAuthor.Str(), "");
    EXPECT_EQ(info->LastSaved_ApplicationVendor.Get().Str(), "Norvale");
    EXPECT_EQ(info->LastSaved_ApplicationName.Get().Str(), "Kestrel");
    EXPECT_TRUE(info->LastSaved_DateTime_GMT.Get().isValid());

    // An unreadable creation date is left out.
    ksMetadataUtils::setValue(sets[0], "Created", "last spring", true);
    ASSERT_TRUE(exportTo(first.root, out));
    ReadBack again(out);
    EXPECT_FALSE(again.scene->GetDocumentInfo()->Original_DateTime_GMT.Get().isValid());
}
