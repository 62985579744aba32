// The settings file format: line kinds, reading into tables, merging back, defaults, problems.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/INITFILE.h"
#include "tests/app/TestFiles.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"

namespace {
// A small table of every shape the format knows: plain, required, named, numbered with a
// group, a fixed text, and a numbered item whose missing instances are zeroed.
struct VALUES {
    char host[21];
    uint16_t port;
    bool login;
    uint32_t level;
    char label[3][11];
    uint16_t width[3];
    uint16_t extra[3];
};
VALUES gValues;
const STR::INDEX kYesNo[] = {{0, "No"}, {1, "Yes"}, {0, nullptr}};

INITFILE::ITEM gItems[] = {
    {.key = "Host",
     .description = "Server name",
     .type = FIELD::String,
     .variable = gValues.host,
     .size = sizeof gValues.host,
     .min = 1,
     .max = 20,
     .required = 1},
    {.key = "Port",
     .description = "Port number",
     .type = FIELD::Uint16,
     .variable = &gValues.port,
     .size = 2,
     .min = 1,
     .max = 65535},
    {.key = "Login", .type = FIELD::Bool, .variable = &gValues.login, .size = 1, .names = kYesNo},
    {.key = "Version", .fixed = "2", .description = "File version"},
    {.key = "Label",
     .description = "Label",
     .type = FIELD::String,
     .variable = gValues.label[0],
     .size = 11,
     .min = 1,
     .max = 10,
     .instances = 3,
     .stride = sizeof gValues.label[0],
     .required = 2,
     .defaultWrite = 3,
     .writeCount = 3,
     .group = 2},
    {.key = "Width",
     .description = "Width",
     .type = FIELD::Uint16,
     .variable = &gValues.width[0],
     .size = 2,
     .min = 30,
     .max = 600,
     .instances = 3,
     .stride = 2,
     .defaultWrite = 3,
     .writeCount = 3},
    {.key = "Extra",
     .type = FIELD::Uint16,
     .variable = &gValues.extra[0],
     .size = 2,
     .instances = 3,
     .stride = 2,
     .defaultWrite = 1,
     .writeCount = 3,
     .keep = false},
    {},
};
INITFILE::SECT gSection = {"Test", "Test settings", gItems, true};
INITFILE::ITEM gOtherItems[] = {
    {.key = "Level", .type = FIELD::Uint32, .variable = &gValues.level, .size = 4, .max = 9},
    {},
};
INITFILE::SECT gOther = {"Other", nullptr, gOtherItems, true};
INITFILE::SECT *gSections[] = {&gSection, &gOther, nullptr};

class InitFile : public testing::Test {
protected:
    void SetUp() override {
        gValues = VALUES{"news.test", 119, false, 3, {"a", "b", "c"}, {40, 50, 60}, {1, 2, 3}};
        fPath = testhome::path() + "/initfile.ini";
        std::filesystem::remove(fPath);
        std::filesystem::remove(testhome::path() + "/initfile.bak");
    }
    // Reads the text as the settings file.
    int32_t read(const std::string &text) {
        testfiles::set(fPath, text);
        return INITFILE().read(gSections, fPath.c_str());
    }
    std::string problem(const std::string &lines) const {
        return "Vellowick News initialization file problem\nFilename: " + fPath + "\n" + lines;
    }
    std::string fPath;
    ALERTRECORDER fAlerts;
};

struct LINECASE {
    const char *name;
    const char *text;
    INITFILE::LINETYPE type;
    const char *key;
    const char *value;
    const char *comment;
};

const LINECASE kLineCases[] = {
    {"item_tight", "port=119", INITFILE::kLineItem, "port", "119", ""},
    {"item_loose_comment", "  PORT   =  119  ; comment", INITFILE::kLineItem, "PORT", "119",
     " comment"},
    {"item_empty_value", "Host =", INITFILE::kLineItem, "Host", "", ""},
    {"item_brackets_removed", "a[b] c = x y ", INITFILE::kLineItem, "abc", "x y", ""},
    {"item_semicolon_cuts", "key = a;b;c", INITFILE::kLineItem, "key", "a", "b;c"},
    {"section_blanks_removed", " [ Sto rage ] ; note", INITFILE::kLineSection, "Storage", "",
     " note"},
    {"section_too_short", "[]", INITFILE::kLineOther, "", "", ""},
    {"blank", "   \t", INITFILE::kLineBlank, "", "", ""},
    {"comment_only", "  ; just a note", INITFILE::kLineComment, "", "", " just a note"},
    {"other_text", "hello", INITFILE::kLineOther, "", "", ""},
    {"equals_first", "=value", INITFILE::kLineOther, "", "", ""},
    {"key_only_brackets", "[] = 3", INITFILE::kLineOther, "", "", ""},
};

class InitLine : public testing::TestWithParam<LINECASE> {};

TEST_P(InitLine, Kind) {
    const LINECASE &c = GetParam();
    INITFILE::LINE line = INITFILE::lineRead(c.text, 7);
    EXPECT_EQ(char(line.type), char(c.type));
    EXPECT_EQ(line.key, c.key);
    EXPECT_EQ(line.value, c.value);
    EXPECT_EQ(line.comment, c.comment);
    EXPECT_EQ(line.raw, c.text);
    EXPECT_EQ(line.number, 7u);
}

INSTANTIATE_TEST_SUITE_P(InitFile, InitLine, testing::ValuesIn(kLineCases),
                         [](const testing::TestParamInfo<LINECASE> &info) {
                             return std::string(info.param.name);
                         });

TEST_F(InitFile, KeysAndSectionsMatchIgnoringCase) {
    EXPECT_EQ(read("[test]\nHOST = a.example\n  PORT   =  8119  ; comment\nlabel0001=x\n"
                   "LABEL0002 = y\n[OTHER]\nlevel=4\n"),
              DISKFILE::kSuccess);
    EXPECT_STREQ(gValues.host, "a.example");
    EXPECT_EQ(gValues.port, 8119);
    EXPECT_STREQ(gValues.label[0], "x");
    EXPECT_STREQ(gValues.label[1], "y");
    EXPECT_STREQ(gValues.label[2], "c") << "a missing instance that is kept stays";
    EXPECT_EQ(gValues.extra[0], 0) << "missing instances of a non-kept item are zeroed";
    EXPECT_EQ(gValues.extra[2], 0);
    EXPECT_EQ(gValues.level, 4u);
    EXPECT_EQ(fAlerts.count(), 0u);
}

TEST_F(InitFile, ItemsOutsideTheirSectionAreNotFound) {
    EXPECT_EQ(read("Host = outside\n[Other]\nHost = wrong\nPort = 1\n[Test]\nLabel0001 = a\n"
                   "Label0002 = b\n"),
              DISKFILE::kContentsInvalid);
    EXPECT_EQ(fAlerts.texts(),
              std::vector{problem("[Test] item 'Host' is required and was not found\n")});
    EXPECT_EQ(gValues.port, 119);
}

TEST_F(InitFile, InvalidValuesKeepDefaultsAndNameTheirLines) {
    EXPECT_EQ(read("[Test]\nHost = \nPort = 70000\nLabel0001 = a\nLabel0002 = b\nWidth0002 = 10\n"),
              DISKFILE::kContentsInvalid);
    EXPECT_EQ(gValues.port, 119);
    EXPECT_EQ(gValues.width[1], 50);
    EXPECT_EQ(fAlerts.texts(),
              std::vector{problem("Line 2: [Test] item 'Host' is required but has no value"
                                  "\nLine 3: [Test] item 'Port' is set to an invalid value"
                                  "\nLine 6: [Test] item 'Width0002' is set to an invalid "
                                  "value\n")});
}

TEST_F(InitFile, AtMostFourProblemsAreShown) {
    INITFILE file;
    testfiles::set(fPath, "[Test]\nPort = x\nWidth0001 = 1\nWidth0002 = 2\nWidth0003 = 3\n"
                          "[Other]\nLevel = 99\n");
    EXPECT_EQ(file.read(gSections, fPath.c_str()), DISKFILE::kContentsInvalid);
    EXPECT_EQ(file.problems().size(), INITFILE::kErrorMax);
    EXPECT_EQ(fAlerts.texts(),
              std::vector{problem("[Test] item 'Host' is required and was not found\n"
                                  "Line 2: [Test] item 'Port' is set to an invalid value\n"
                                  "[Test] item 'Label0001' is required and was not found\n"
                                  "[Test] item 'Label0002' is required and was not found\n")})
        << "the Width and Level problems are dropped";
}

TEST_F(InitFile, MissingFileIsReportedQuietly) {
    INITFILE file;
    EXPECT_EQ(file.read(gSections, fPath.c_str()), DISKFILE::kNotFound);
    EXPECT_EQ(file.write(gSections, fPath.c_str()), DISKFILE::kNotFound);
    EXPECT_FALSE(std::filesystem::exists(fPath)) << "write only merges into an existing file";
    EXPECT_EQ(fAlerts.count(), 0u);
}

TEST_F(InitFile, OverlongLineFailsTheRead) {
    EXPECT_EQ(read("[Test]\nHost = " + std::string(2000, 'x') + "\n"), DISKFILE::kLineTooLong);
    ASSERT_EQ(fAlerts.count(), 1u);
    EXPECT_NE(fAlerts.texts()[0].find("\nLine longer than fileLineMax chars, file may contain "
                                      "binary data\n"),
              std::string::npos);
    EXPECT_STREQ(gValues.host, "news.test");
}

TEST_F(InitFile, MergeKeepsCommentsAndDropsStaleAndUnknownLines) {
    const std::string before = "; my settings\n"
                               "\n"
                               "[Test]   ; kept as typed\n"
                               "host = old.example ; where\n"
                               "Port=119\n"
                               "hello\n"
                               "Stale = 1\n"
                               "Label0001 = a\n"
                               "Label0002 = b\n"
                               "\n"
                               "; between\n"
                               "[Gone]\n"
                               "Key = value\n";
    testfiles::set(fPath, before);
    std::strcpy(gValues.host, "new.example");
    gValues.login = true;
    INITFILE file;
    ASSERT_EQ(file.write(gSections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(testfiles::text(fPath), "; my settings\n"
                                      "\n"
                                      "[Test]   ; kept as typed\n"
                                      "host = new.example                     ; where\n"
                                      "Port=119\n"
                                      "Label0001 = a\n"
                                      "Label0002 = b\n"
                                      "Login = Yes\n"
                                      "Version = 2                            ;File version\n"
                                      "Label0003 = c                          ;Label 0003\n"
                                      "Width0001 = 40                         ;Width 0001\n"
                                      "Width0002 = 50                         ;Width 0002\n"
                                      "Width0003 = 60                         ;Width 0003\n"
                                      "Extra0001 = 1\n"
                                      "Extra0002 = 2\n"
                                      "Extra0003 = 3\n"
                                      "\n"
                                      "; between\n"
                                      "\n"
                                      "[Other]\n"
                                      "Level = 3\n");
    EXPECT_EQ(fAlerts.count(), 0u);
    // Merging the same values again changes nothing.
    std::string once = testfiles::text(fPath);
    ASSERT_EQ(file.write(gSections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(testfiles::text(fPath), once);
}

TEST_F(InitFile, DefaultFileGroupsNumberedItemsAndKeepsABackup) {
    testfiles::set(fPath, "old settings\n");
    testfiles::set(testhome::path() + "/initfile.bak", "older\n");
    INITFILE file;
    ASSERT_EQ(file.writeDefault(gSections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(testfiles::text(testhome::path() + "/initfile.bak"), "old settings\n");
    std::string text = testfiles::text(fPath);
    size_t created = text.find("; Created ");
    ASSERT_EQ(created, 37u);
    size_t end = text.find('\n', created);
    EXPECT_EQ(text.substr(0, created), "; Vellowick News initialization file\n");
    EXPECT_EQ(text.substr(end + 1), "\n"
                                    "[Test]                                 ;Test settings\n"
                                    "Host = news.test                       ;Server name\n"
                                    "Port = 119                             ;Port number\n"
                                    "Login = No\n"
                                    "Version = 2                            ;File version\n"
                                    "Label0001 = a                          ;Label 0001\n"
                                    "Width0001 = 40                         ;Width 0001\n"
                                    "Label0002 = b                          ;Label 0002\n"
                                    "Width0002 = 50                         ;Width 0002\n"
                                    "Label0003 = c                          ;Label 0003\n"
                                    "Width0003 = 60                         ;Width 0003\n"
                                    "Extra0001 = 1\n"
                                    "\n"
                                    "[Other]\n"
                                    "Level = 3\n");
    EXPECT_EQ(std::filesystem::status(fPath).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

TEST_F(InitFile, FailedWriteLeavesTheFileWhole) {
    const std::string before = "[Test]\nHost = old.example\n";
    testfiles::set(fPath, before);
    // Where the new text would be written, something else is in the way.
    std::filesystem::create_directory(fPath + ".new");
    INITFILE file;
    EXPECT_NE(file.write(gSections, fPath.c_str()), DISKFILE::kSuccess);
    EXPECT_NE(file.writeDefault(gSections, fPath.c_str()), DISKFILE::kSuccess);
    std::filesystem::remove(fPath + ".new");
    EXPECT_EQ(testfiles::text(fPath), before);
    EXPECT_FALSE(std::filesystem::exists(testhome::path() + "/initfile.bak"));
    ASSERT_EQ(fAlerts.count(), 2u);
    EXPECT_NE(fAlerts.texts()[0].find("\nCouldn't open file: "), std::string::npos);
}
} // namespace
