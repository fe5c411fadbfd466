// The scene-file handler: registration by suffix, priorities, option strings,
// progress callbacks and dispatch of reads and writes.
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include <gtest/gtest.h>

#include <kestrel/osg/SceneFileHandler.h>

#include "TestUtil.h"

using namespace osg;

namespace {

// Reads a node named after the file's first word; writes the node's name.
class WordType : public SceneFileType {
public:
    WordType(const char* name, const char* suffixes[], UInt16 bytes, bool override, UInt32 priority,
             UInt32 flags)
        : SceneFileType(suffixes, bytes, override, priority, flags), _name(name) {}
    const char* getName() const override { return _name; }
    NodePtr read(std::istream& is, const char*) const override {
        std::string word;
        if (!(is >> word)) return NodePtr();
        SceneFileHandler::the().updateReadProgress(60);
        NodePtr n = Node::create();
        n->setName(word);
        return n;
    }
    bool write(const NodePtr& node, std::ostream& os, const char*) const override {
        SceneFileHandler::the().updateWriteProgress(100);
        os << node->getName();
        return true;
    }

private:
    const char* _name;
};

constexpr UInt32 RW = SceneFileType::ReadSupported | SceneFileType::WriteSupported;

// Streams part of its output, then reports failure.
class FailingWriter : public WordType {
public:
    using WordType::WordType;
    bool write(const NodePtr&, std::ostream& os, const char*) const override {
        os << "partial";
        return false;
    }
};

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

} // namespace

TEST(SceneFileHandler, FailedWriteLeavesAnExistingFileAsItWas) {
    TempDir dir;
    const char* badSfx[] = {"fails"};
    FailingWriter bad("Failing", badSfx, sizeof(badSfx), false, 0, RW);
    const char* goodSfx[] = {"good"};
    WordType good("Good", goodSfx, sizeof(goodSfx), false, 0, RW);
    NodePtr n = Node::create();
    n->setName("fresh");

    std::ofstream(dir.file("keep.fails")) << "precious";
    EXPECT_FALSE(SceneFileHandler::the().write(n, dir.file("keep.fails").c_str()));
    EXPECT_EQ(slurp(dir.file("keep.fails")), "precious");

    std::ofstream(dir.file("old.good")) << "old content that is longer";
    ASSERT_TRUE(SceneFileHandler::the().write(n, dir.file("old.good").c_str()));
    EXPECT_EQ(slurp(dir.file("old.good")), "fresh");
    // Only the target remains: no temporary file is left beside it.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()),
                            std::filesystem::directory_iterator()),
              2);
}

TEST(SceneFileHandler, SuffixLookupIgnoresCaseAndDots) {
    const char* sfx[] = {"WoRd", "wd2"};
    WordType t("Word", sfx, sizeof(sfx), false, 0, RW);
    auto& h = SceneFileHandler::the();
    EXPECT_EQ(h.getFileType("word"), &t);
    EXPECT_EQ(h.getFileType("WORD"), &t);
    EXPECT_EQ(h.getFileType(".Wd2"), &t);
    EXPECT_EQ(h.getFileTypeForFile("/some/dir.x/scene.WORD"), &t);
    EXPECT_EQ(h.getFileTypeForFile("/some/dir.word/scene"), nullptr);
    EXPECT_EQ(h.getFileType("wor"), nullptr);
    EXPECT_EQ(t.suffixList().size(), 2u);
    EXPECT_TRUE(t.canRead());
    EXPECT_TRUE(t.canWrite());
}

TEST(SceneFileHandler, OverrideNeedsTheFlagAndAHigherPriority) {
    auto& h = SceneFileHandler::the();
    const char* sfx[] = {"prio"};
    WordType first("first", sfx, sizeof(sfx), false, 5, RW);
    {
        WordType noFlag("noFlag", sfx, sizeof(sfx), false, 100, RW);
        WordType lower("lower", sfx, sizeof(sfx), true, 4, RW);
        EXPECT_EQ(h.getFileType("prio"), &first);
        WordType higher("higher", sfx, sizeof(sfx), true, 6, RW);
        EXPECT_EQ(h.getFileType("prio"), &higher);
    }
    // Types that unload give their suffixes back.
    EXPECT_EQ(h.getFileType("prio"), &first);
}

TEST(SceneFileHandler, KeepsOneOptionStringPerSuffix) {
    auto& h = SceneFileHandler::the();
    h.clearOptions();
    EXPECT_EQ(h.getOptions("qdx"), nullptr);
    h.setOptions("QDX", "flush_transforms,enable_metadata=false");
    ASSERT_NE(h.getOptions("QDX"), nullptr);
    EXPECT_STREQ(h.getOptions("QDX"), "flush_transforms,enable_metadata=false");
    // Keys are exact: a reader asking for "QDX" and a writer asking for
    // "qdx" see different strings.
    EXPECT_EQ(h.getOptions("qdx"), nullptr);
    EXPECT_EQ(h.getOptions("hsp"), nullptr);
    h.setOptions("qdx", "");
    EXPECT_STREQ(h.getOptions("qdx"), "");
    EXPECT_STREQ(h.getOptions("QDX"), "flush_transforms,enable_metadata=false");
    h.setOptions("qdx", nullptr);
    EXPECT_EQ(h.getOptions("qdx"), nullptr);
    h.clearOptions();
    EXPECT_EQ(h.getOptions("QDX"), nullptr);
}

TEST(SceneFileHandler, ReportsProgressToTheRightCallbacks) {
    auto& h = SceneFileHandler::the();
    std::vector<UInt32> reads, writes;
    UInt32 r = h.addReadProgressCallback([&](UInt32 p) { reads.push_back(p); });
    UInt32 w = h.addWriteProgressCallback([&](UInt32 p) { writes.push_back(p); });
    h.updateReadProgress(10);
    h.updateReadProgress(250);
    h.updateWriteProgress(30);
    h.removeProgressCallback(r);
    h.updateReadProgress(99);
    h.removeProgressCallback(w);
    h.updateWriteProgress(99);
    EXPECT_EQ(reads, (std::vector<UInt32>{10, 100}));
    EXPECT_EQ(writes, (std::vector<UInt32>{30}));
}

TEST(SceneFileHandler, ReadsAndWritesFilesBySuffix) {
    TempDir dir;
    const char* sfx[] = {"wrd"};
    WordType t("Word", sfx, sizeof(sfx), false, 0, RW);
    const char* roSfx[] = {"ronly"};
    WordType readOnly("ReadOnly", roSfx, sizeof(roSfx), false, 0, SceneFileType::ReadSupported);
    auto& h = SceneFileHandler::the();
    std::vector<UInt32> progress;
    UInt32 id = h.addReadProgressCallback([&](UInt32 p) { progress.push_back(p); });

    std::ofstream(dir.file("a.WRD")) << "hello world";
    NodePtr n = h.read(dir.file("a.WRD").c_str());
    h.removeProgressCallback(id);
    ASSERT_TRUE(n);
    EXPECT_EQ(n->getName(), "hello");
    EXPECT_EQ(progress, (std::vector<UInt32>{60}));

    ASSERT_TRUE(h.write(n, dir.file("b.wrd").c_str())) << h.getLastError();
    std::ifstream in(dir.file("b.wrd"));
    std::string back;
    in >> back;
    EXPECT_EQ(back, "hello");

    EXPECT_FALSE(h.read(dir.file("a.unknown").c_str()));
    EXPECT_NE(h.getLastError().find("no plug-in reads this suffix"), std::string::npos);
    EXPECT_FALSE(h.read(dir.file("missing.wrd").c_str()));
    EXPECT_NE(h.getLastError().find("cannot open"), std::string::npos);
    EXPECT_FALSE(h.write(n, dir.file("c.ronly").c_str()));
    EXPECT_NE(h.getLastError().find("no plug-in writes this suffix"), std::string::npos);
    std::ofstream(dir.file("empty.wrd")).close();
    EXPECT_FALSE(h.read(dir.file("empty.wrd").c_str()));
    EXPECT_FALSE(h.getLastError().empty());
}
