// String helpers: word tables, list order, checks, bounded copies and safe leaf names.
#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/STR.h"

namespace {

const STR::INDEX kColours[] = {{1, "Red"}, {1, "R"}, {2, "Green"}, {-7, "Blue"}, {0, nullptr}};

TEST(STRIndex, TextAndValueLookUps) {
    EXPECT_STREQ(STR::indexText(kColours, 1), "Red");
    EXPECT_STREQ(STR::indexText(kColours, -7), "Blue");
    EXPECT_STREQ(STR::indexText(kColours, 3), "[Unknown]");
    EXPECT_STREQ(STR::indexText(nullptr, 1), "[Unknown]");
    int64_t value = 99;
    EXPECT_TRUE(STR::indexValue(kColours, "gREEN", &value));
    EXPECT_EQ(value, 2);
    EXPECT_TRUE(STR::indexValue(kColours, "r", &value));
    EXPECT_EQ(value, 1);
    value = 99;
    EXPECT_FALSE(STR::indexValue(kColours, "Gree", &value));
    EXPECT_EQ(value, 0);
    EXPECT_FALSE(STR::indexValue(kColours, static_cast<const char *>(nullptr), &value));
    EXPECT_EQ(STR::indexRow(kColours, 3), nullptr);
}

struct ORDERCASE {
    const char *name, *a, *b;
};
class STRListOrder : public testing::TestWithParam<ORDERCASE> {};

// Each row: a sorts strictly before b.
const ORDERCASE kOrder[] = {
    {"letter_before_underscore", "altx", "alt_x"},
    {"upper_case_first_on_tie", "Comp.Lang.C", "comp.lang.c"},
    {"prefix_first", "alt", "alt.x"},
    {"case_ignored_first", "apple", "Banana"},
    {"a_before_B", "a", "B"},
    {"A_before_a", "A", "a"},
    {"digits_before_letters", "alt.2", "alt.a"},
    {"dash_before_dot", "alt-x", "alt.x"},
    {"at_before_letters", "@", "A"},
    {"letters_before_bracket", "z", "["},
    {"underscore_before_brace", "_", "{"},
    {"backtick_before_brace", "`", "{"},
    {"tilde_before_high_bytes", "~", "\xc3\xa9"},
    {"empty_first", "", "a"},
    {"case_decided_late", "comp.Lang.c", "comp.lang.C"},
};

TEST_P(STRListOrder, SortsBefore) {
    const ORDERCASE &c = GetParam();
    EXPECT_LT(STR::cmpList(c.a, c.b), 0);
    EXPECT_GT(STR::cmpList(c.b, c.a), 0);
    EXPECT_EQ(STR::cmpList(c.a, c.a), 0);
}

INSTANTIATE_TEST_SUITE_P(Cases, STRListOrder, testing::ValuesIn(kOrder),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(STRListOrder, IsATotalOrderOnRandomNames) {
    std::mt19937 random(7);
    const char alphabet[] = "aAbBzZ._-[{0~";
    std::vector<std::string> names;
    for (int i = 0; i < 400; i++) {
        std::string name;
        for (int n = random() % 5; n >= 0; n--)
            name += alphabet[random() % (sizeof alphabet - 1)];
        names.push_back(name);
    }
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
        return STR::cmpList(a.c_str(), b.c_str()) < 0;
    });
    for (size_t i = 1; i < names.size(); i++) {
        int order = STR::cmpList(names[i - 1], names[i]);
        EXPECT_LE(order, 0);
        EXPECT_EQ(order == 0, names[i - 1] == names[i]) << names[i - 1] << " " << names[i];
    }
}

TEST(STRCompare, CaseInsensitiveAscii) {
    EXPECT_EQ(STR::icmp("Content-Type", "content-type"), 0);
    EXPECT_LT(STR::icmp("abc", "ABD"), 0);
    EXPECT_LT(STR::icmp(nullptr, ""), 0);
    EXPECT_EQ(STR::incmp("Subject: x", "SUBJECT: y", 8), 0);
    EXPECT_NE(STR::incmp("ab", "abc", 5), 0);
    EXPECT_TRUE(STR::istarts("Re: hello", "RE:"));
    EXPECT_FALSE(STR::istarts("R", "Re:"));
    EXPECT_EQ(STR::ifind("multipart/Mixed; boundary", "MIXED"), 10u);
    EXPECT_EQ(STR::ifind("abc", "abcd"), std::string_view::npos);
    EXPECT_EQ(STR::ifind("abc", "c", 9), std::string_view::npos);
    EXPECT_FALSE(STR::iequal("\xc3\xa9", "\xc3\x89")); // only ASCII folds
}

TEST(STRCopy, CutsSilentlyAndKeepsCharactersWhole) {
    char small[6];
    EXPECT_EQ(STR::copy(small, "abcdefgh", sizeof small), 5u);
    EXPECT_STREQ(small, "abcde");
    // "abc" then a two-byte character that would straddle the end.
    EXPECT_EQ(STR::copy(small, "abcd\xc3\xa9z", sizeof small), 4u);
    EXPECT_STREQ(small, "abcd");
    EXPECT_EQ(STR::copy(small, static_cast<const char *>(nullptr), sizeof small), 0u);
    EXPECT_STREQ(small, "");
    char joined[8] = "ab";
    EXPECT_EQ(STR::cat(joined, "cdefghij", sizeof joined), 7u);
    EXPECT_STREQ(joined, "abcdefg");
    char text[] = " \t a b \r\n";
    EXPECT_STREQ(STR::trim(text), "a b");
    EXPECT_EQ(STR::trim(std::string_view("  ")), "");
}

TEST(STRChecks, DigitsPlainAndLeaf) {
    struct CASE {
        const char *text;
        bool digits;
    } digitCases[] = {{"0", true},  {"+12", true},  {"-12345678", true}, {"", false},
                      {"+", false}, {"1-2", false}, {"12a", false},      {" 1", false}};
    for (const CASE &c : digitCases)
        EXPECT_EQ(STR::digits(c.text), c.digits) << c.text;
    EXPECT_TRUE(STR::digits(std::string(STR::kDigitsMax, '9')));
    EXPECT_FALSE(STR::digits(std::string(STR::kDigitsMax + 1, '9')));
    EXPECT_FALSE(STR::digits(static_cast<const char *>(nullptr)));

    EXPECT_TRUE(STR::plain("ACME Widgets, Inc. (R&D)"));
    EXPECT_FALSE(STR::plain("ACME\tWidgets"));
    EXPECT_FALSE(STR::plain("<b>bold</b>"));
    EXPECT_FALSE(STR::plain("line\nbreak"));

    EXPECT_TRUE(STR::isLeaf("Sent Messages"));
    EXPECT_TRUE(STR::isLeaf("news:server \xc3\xa9"));
    EXPECT_FALSE(STR::isLeaf("a/b"));
    EXPECT_FALSE(STR::isLeaf(".."));
    EXPECT_FALSE(STR::isLeaf(".hidden"));
    EXPECT_FALSE(STR::isLeaf("tab\tname"));
    EXPECT_FALSE(STR::isLeaf(""));
    EXPECT_FALSE(STR::isLeaf(std::string(STR::kLeafMax + 1, 'x')));
}

struct FIXCASE {
    const char *name, *input, *fixed; // fixed null: the name cannot be used
};
class STRFilenameFixup : public testing::TestWithParam<FIXCASE> {};

const FIXCASE kFixups[] = {
    {"plain", "picture.jpg", "picture.jpg"},
    {"parent_escape", "../../etc/passwd", "passwd"},
    {"absolute", "/etc/passwd", "passwd"},
    {"windows_path", "C:\\Users\\me\\photo.png", "photo.png"},
    {"dot", ".", nullptr},
    {"dot_dot", "..", nullptr},
    {"only_dots", "...", nullptr},
    {"hidden", ".bashrc", "bashrc"},
    {"trailing_slash", "dir/", nullptr},
    {"slash", "/", nullptr},
    {"empty", "", nullptr},
    {"blanks", "  \t ", nullptr},
    {"controls_removed",
     "a\x01"
     "b\x7f"
     "c\td",
     "abcd"},
    {"blanks_trimmed", "  my file.txt  ", "my file.txt"},
    {"dots_after_slash", "x/..hidden", "hidden"},
    {"utf8_kept", "r\xc3\xa9sum\xc3\xa9.pdf", "r\xc3\xa9sum\xc3\xa9.pdf"},
};

TEST_P(STRFilenameFixup, MakesASafeLeaf) {
    const FIXCASE &c = GetParam();
    char name[300];
    STR::copy(name, c.input, sizeof name);
    bool ok = STR::filenameFixup(name, sizeof name);
    EXPECT_EQ(ok, c.fixed != nullptr);
    EXPECT_STREQ(name, c.fixed ? c.fixed : "");
    if (ok) {
        EXPECT_TRUE(STR::isLeaf(name));
        // The decoder takes "unchanged by a second fixup" as the proof that a name is safe.
        std::string once = name;
        EXPECT_TRUE(STR::filenameFixup(name, sizeof name));
        EXPECT_EQ(once, name);
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, STRFilenameFixup, testing::ValuesIn(kFixups),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(STRFilenameFixup, LongNamesAreCutAtACharacterBoundary) {
    std::string longName;
    for (int i = 0; i < 200; i++)
        longName += "\xc3\xa9"; // 400 bytes
    char name[1000];
    STR::copy(name, longName.c_str(), sizeof name);
    ASSERT_TRUE(STR::filenameFixup(name, sizeof name));
    EXPECT_EQ(strlen(name), STR::kLeafMax);
    EXPECT_TRUE(STR::isLeaf(name));
    char tiny[4];
    STR::copy(tiny, "abcdef", sizeof tiny);
    ASSERT_TRUE(STR::filenameFixup(tiny, sizeof tiny));
    EXPECT_STREQ(tiny, "abc");
}

TEST(STRLeafSanitize, ReplacesWhatANameCannotHold) {
    const std::string longName(80, 'x'), cutName(60, 'x');
    const struct {
        const char *given;
        size_t limit;
        const char *made; // null: refused
    } cases[] = {{"http://example.invalid/a b?c", 60, "http:__example.invalid_a b?c"},
                 {"..", STR::kLeafMax, "_."},
                 {"line\nfeed", STR::kLeafMax, "line_feed"},
                 {longName.c_str(), 60, cutName.c_str()},
                 {"", STR::kLeafMax, nullptr}};
    for (const auto &c : cases) {
        char name[100];
        STR::copy(name, c.given, sizeof name);
        EXPECT_EQ(STR::leafSanitize(name, sizeof name, c.limit), c.made != nullptr) << c.given;
        EXPECT_STREQ(name, c.made ? c.made : "") << c.given;
    }
}

// Random bytes of every length: the results are safe leaves or refusals, never a crash or a
// read past the buffer (the sanitizer build watches the reads).
TEST(STRGarbage, RandomBytesGiveSafeNamesOrFail) {
    std::mt19937 random(42);
    for (int round = 0; round < 3000; round++) {
        size_t length = random() % 300;
        std::vector<char> bytes(length + 1);
        for (size_t i = 0; i < length; i++)
            bytes[i] = char(random() % 8 == 0 ? "/\\.\0 "[random() % 5] : random());
        bytes[length] = 0;
        std::vector<char> name(bytes);
        if (STR::filenameFixup(name.data(), name.size())) {
            EXPECT_TRUE(STR::isLeaf(name.data()));
            std::vector<char> again(name);
            EXPECT_TRUE(STR::filenameFixup(again.data(), again.size()));
            EXPECT_STREQ(again.data(), name.data());
        } else {
            EXPECT_EQ(name[0], 0);
        }
        std::vector<char> leaf(bytes);
        if (STR::leafSanitize(leaf.data(), leaf.size())) {
            EXPECT_TRUE(STR::isLeaf(leaf.data()));
        }
        STR::digits(std::string_view(bytes.data(), length));
        STR::cmpList(std::string_view(bytes.data(), length), std::string_view(name.data()));
    }
}

} // namespace
