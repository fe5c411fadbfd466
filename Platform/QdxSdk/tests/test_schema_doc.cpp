// The file-format document must describe every registered class: its parent,
// every built-in property (name and data type) and every array (name and
// element kind). A class, property or array added to the SDK without its
// line in docs/qdx-format.md fails here, named.
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "qdxsdk/qdxsdk.h"

using namespace qdxsdk;

namespace {

// What the document says about one class.
struct ClassDoc {
    std::string parent;                            // "none" for the root class
    std::map<std::string, std::string> properties; // name -> data type name
    std::map<std::string, std::string> arrays;     // name -> element kind name
};
struct SchemaDoc {
    std::map<std::string, ClassDoc> classes;
    // Element kind names by their binary code, from the document's table
    // whose first header cell is "Kind".
    std::map<int, std::string> kindNames;
};

std::string Trim(const std::string& s) {
    size_t b = s.find_first_not_of(" \t\r");
    size_t e = s.find_last_not_of(" \t\r");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// Strips one pair of surrounding backticks.
std::string Unquote(const std::string& s) {
    return s.size() >= 2 && s.front() == '`' && s.back() == '`' ? s.substr(1, s.size() - 2) : s;
}

// Cells of a table line; "\|" is a literal bar inside a cell.
std::vector<std::string> Cells(const std::string& line) {
    std::vector<std::string> cells;
    std::string cell;
    for (size_t i = 1; i < line.size(); ++i) {
        if (line[i] == '\\' && i + 1 < line.size() && line[i + 1] == '|') {
            cell += '|';
            ++i;
        } else if (line[i] == '|') {
            cells.push_back(Trim(cell));
            cell.clear();
        } else {
            cell += line[i];
        }
    }
    return cells;
}

int HeadingLevel(const std::string& line) {
    size_t n = 0;
    while (n < line.size() && line[n] == '#')
        ++n;
    return n > 0 && n < line.size() && line[n] == ' ' ? static_cast<int>(n) : 0;
}

// A level-3 heading whose text is one word starting with "Qdx" opens a class
// section, which runs to the next heading of level 1 to 3. Inside it,
// "Parent: `Name`" names the parent, and tables whose first header cell is
// "Property" or "Array" list names (first cell) and types (second cell).
// Anywhere, a table headed "Kind" gives each array kind's binary code
// (second cell) and name (third cell).
SchemaDoc ParseSchema(std::istream& in) {
    SchemaDoc doc;
    ClassDoc* current = nullptr;
    std::string table; // first header cell of the table being read
    bool inTable = false;
    std::string line;
    while (std::getline(in, line)) {
        int level = HeadingLevel(line);
        if (level >= 1 && level <= 3) {
            std::string title = Trim(line.substr(static_cast<size_t>(level) + 1));
            bool isClass =
                level == 3 && title.rfind("Qdx", 0) == 0 && title.find(' ') == std::string::npos;
            current = isClass ? &doc.classes[title] : nullptr;
            inTable = false;
            continue;
        }
        if (current && line.rfind("Parent:", 0) == 0) {
            // The first word after "Parent:", without backticks or a full stop.
            std::string word = Trim(line.substr(7));
            word = word.substr(0, word.find_first_of(" \t"));
            if (!word.empty() && word.back() == '.') word.pop_back();
            current->parent = Unquote(word);
            continue;
        }
        if (line.empty() || line[0] != '|') {
            inTable = false;
            continue;
        }
        std::vector<std::string> cells = Cells(line);
        if (!inTable) {
            inTable = true;
            table = cells.empty() ? std::string() : cells[0];
            continue;
        }
        if (cells.size() < 2 || cells[0].rfind("---", 0) == 0 || cells[0].rfind(":--", 0) == 0)
            continue;
        if (table == "Kind" && cells.size() >= 3)
            doc.kindNames[std::atoi(cells[1].c_str())] = Unquote(cells[2]);
        else if (!current)
            continue;
        else if (table == "Property")
            current->properties[Unquote(cells[0])] = Unquote(cells[1]);
        else if (table == "Array")
            current->arrays[Unquote(cells[0])] = Unquote(cells[1]);
    }
    return doc;
}

// The documented type of a property (or array) of a class: its own section
// first, then its ancestors', nearest first. Null when nowhere.
const std::string* Documented(const SchemaDoc& doc, const QdxClassId* id, const std::string& name,
                              bool array) {
    for (; id; id = id->GetParent()) {
        auto c = doc.classes.find(id->GetName());
        if (c == doc.classes.end()) continue;
        const auto& rows = array ? c->second.arrays : c->second.properties;
        auto r = rows.find(name);
        if (r != rows.end()) return &r->second;
    }
    return nullptr;
}

// Every problem between the document and the registered classes, one line
// each.
std::vector<std::string> Compare(const SchemaDoc& doc, QdxManager* manager) {
    std::vector<std::string> problems;
    std::vector<QdxObject*> probes;
    for (const std::string& name : QdxManager::GetRegisteredClassNames()) {
        const QdxClassId* id = QdxClassId::Find(name.c_str());
        auto section = doc.classes.find(name);
        if (section == doc.classes.end()) {
            problems.push_back("class " + name + " has no '### " + name + "' section");
            continue;
        }
        std::string parent = id->GetParent() ? id->GetParent()->GetName() : "none";
        if (section->second.parent != parent)
            problems.push_back(name + ": parent is " + parent + ", the document says '" +
                               section->second.parent + "'");
        if (id->IsAbstract()) continue;
        QdxObject* o = manager->CreateObject(name.c_str(), "probe");
        if (!o) {
            problems.push_back(name + ": the manager cannot create it");
            continue;
        }
        probes.push_back(o);
        for (const auto& p : o->Properties()) {
            const std::string* type = Documented(doc, id, p.name, false);
            if (!type)
                problems.push_back(name + ": property '" + p.name + "' (" + p.type.GetName() +
                                   ") is not documented");
            else if (*type != p.type.GetName())
                problems.push_back(name + ": property '" + p.name + "' is " + p.type.GetName() +
                                   ", the document says " + *type);
        }
        for (const auto& a : o->Arrays()) {
            auto named = doc.kindNames.find(static_cast<int>(a.kind));
            std::string kindName = named == doc.kindNames.end() ? "?" : named->second;
            const std::string* kind = Documented(doc, id, a.name, true);
            if (!kind)
                problems.push_back(name + ": array '" + a.name + "' (" + kindName +
                                   ") is not documented");
            else if (*kind != kindName)
                problems.push_back(name + ": array '" + a.name + "' is " + kindName +
                                   ", the document says " + *kind);
        }
    }
    // Rows that no object of the class (or of a class derived from it) has
    // are stale.
    for (const auto& [name, section] : doc.classes) {
        const QdxClassId* id = QdxClassId::Find(name.c_str());
        if (!id) {
            problems.push_back("section " + name + " documents a class that is not registered");
            continue;
        }
        auto has = [&](const std::string& row, bool array) {
            for (QdxObject* o : probes)
                if (o->GetClassId().Is(*id) && (array ? o->FindArray(row.c_str()) != nullptr
                                                      : o->FindProperty(row.c_str()).IsValid()))
                    return true;
            return false;
        };
        for (const auto& row : section.properties)
            if (!has(row.first, false))
                problems.push_back(name + ": documented property '" + row.first +
                                   "' does not exist");
        for (const auto& row : section.arrays)
            if (!has(row.first, true))
                problems.push_back(name + ": documented array '" + row.first + "' does not exist");
    }
    return problems;
}

std::string Join(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& l : lines)
        out += "  " + l + "\n";
    return out;
}

} // namespace

TEST(SchemaDoc, EveryRegisteredClassPropertyAndArrayIsDocumented) {
    std::ifstream file(QDX_FORMAT_DOC);
    ASSERT_TRUE(file) << "cannot open " << QDX_FORMAT_DOC;
    SchemaDoc doc = ParseSchema(file);
    QdxManager* manager = QdxManager::Create();
    std::vector<std::string> problems = Compare(doc, manager);
    manager->Destroy();
    EXPECT_TRUE(problems.empty()) << QDX_FORMAT_DOC << " is out of date:\n" << Join(problems);
}

// The checker itself: sections end at the next heading, rows belong to the
// class whose section holds them, inherited rows count, types must agree and
// stale rows are reported.
TEST(SchemaDoc, CheckerReadsSectionsTablesAndInheritance) {
    std::istringstream text("## Part\n"
                            "| Kind | Code | Name |\n|---|---|---|\n| double | 3 | `f64` |\n"
                            "### QdxNodeAttribute\n"
                            "Parent: `QdxObject`.\n"
                            "| Property | Type |\n|---|---|\n| `Color` | Color3 |\n"
                            "### QdxNull\n"
                            "Parent: `QdxNodeAttribute`\n"
                            "#### Properties\n"
                            "| Property | Type | Default |\n|---|---|---|\n"
                            "| `Size` | `Int` | 100 |\n| `Gone` | Double | 0 |\n\n"
                            "| Array | Kind |\n|---|---|\n| `A\\|B` | f64 |\n"
                            "### Data types\n"
                            "| Property | Type |\n|---|---|\n| `Stray` | Bool |\n");
    SchemaDoc doc = ParseSchema(text);
    ASSERT_EQ(doc.classes.size(), 2u);
    EXPECT_EQ(doc.classes["QdxNodeAttribute"].parent, "QdxObject");
    EXPECT_EQ(doc.classes["QdxNull"].properties.size(), 2u);
    EXPECT_EQ(doc.classes["QdxNull"].arrays.count("A|B"), 1u);
    EXPECT_EQ(doc.kindNames[3], "f64");

    QdxManager* manager = QdxManager::Create();
    std::vector<std::string> problems = Compare(doc, manager);
    manager->Destroy();
    std::string all = Join(problems);
    auto reported = [&](const std::string& what) { return all.find(what) != std::string::npos; };
    EXPECT_TRUE(reported("QdxNull: property 'Size' is Double, the document says Int")) << all;
    EXPECT_TRUE(reported("QdxNull: documented property 'Gone' does not exist")) << all;
    EXPECT_TRUE(reported("QdxNull: documented array 'A|B' does not exist")) << all;
    EXPECT_TRUE(reported("class QdxMesh has no '### QdxMesh' section")) << all;
    // Color is documented once, on the parent; the stray row is no class's.
    EXPECT_FALSE(reported("'Color'")) << all;
    EXPECT_FALSE(reported("Stray")) << all;
}
