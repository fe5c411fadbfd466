// `kestrel import` shows the metadata that user properties became, with
// their entries and value types, in the tree and in JSON.
#include <cstdio>
#include <string>

#include <nlohmann/json.hpp>

#include "TestKit.h"

using namespace qdxtest;
using namespace qdxsdk;

namespace {
std::string runApp(const std::string& args) {
    const std::string command = std::string("'") + KESTREL_APP_PATH + "' --plugin-dir '" +
                                KESTREL_PLUGIN_DIR + "' " + args + " 2>/dev/null";
    std::string out;
    if (FILE* pipe = popen(command.c_str(), "r")) {
        char buf[4096];
        for (size_t n; (n = std::fread(buf, 1, sizeof buf, pipe)) > 0;)
            out.append(buf, n);
        pclose(pipe);
    }
    return out;
}

class MetadataView : public PluginTest {};
} // namespace

TEST_F(MetadataView, ImportShowsSetsWithEntriesAndTypes) {
    const std::string path = writeScene("tagged.qdx", [](QdxScene* s) {
        QdxNode* n = addMesh(s, s->GetRootNode(), "Door", quadPoints(), {{0, 1, 2, 3}});
        auto user = [&](const QdxDataType& type, const char* label) {
            QdxProperty p = QdxProperty::Create(n, type, label);
            p.ModifyFlag(QdxPropertyFlags::eUserDefined, true);
            return p;
        };
        user(QdxStringDT, "Part__Number").Set(QdxString("D-100"));
        user(QdxIntDT, "Part__Count").Set(2);
        QdxDateTime day;
        day.setDate(1, 3, 2024);
        user(QdxDateTimeDT, "Checked").Set(day);
    });
    const std::string tree = runApp("import '" + path + "'");
    for (const char* line : {"metadata set \"Part\": 2 entries (locked)", "  Count (integer): 2",
                             "  Number (string): D-100", "metadata set \"Door_Set\": 1 entries",
                             "  Checked (date): 2024-03-01"})
        EXPECT_NE(tree.find(line), std::string::npos) << line << "\n" << tree;

    nlohmann::json j =
        nlohmann::json::parse(runApp("import --json '" + path + "'"), nullptr, false);
    ASSERT_TRUE(j.is_object());
    ASSERT_EQ(j["children"].size(), 1u);
    const nlohmann::json& sets = j["children"][0]["metadata"];
    // The node's own two sets and its mesh's set of built-in values.
    ASSERT_EQ(sets.size(), 3u);
    EXPECT_EQ(sets[0]["name"], "Part");
    EXPECT_EQ(sets[0]["values"][1],
              nlohmann::json::parse(R"({"key": "Number", "type": "string", "value": "D-100"})"));
}
