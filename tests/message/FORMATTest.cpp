// Word wrapping: widths in characters, paragraphs, kept newlines, the signature delimiter.
#include "message/FORMAT.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

struct Sink {
    std::vector<std::string> lines;
    size_t refuseAfter = SIZE_MAX;
};

bool collect(void *context, std::string_view line) {
    auto *sink = static_cast<Sink *>(context);
    if (sink->lines.size() >= sink->refuseAfter)
        return false;
    sink->lines.emplace_back(line);
    return true;
}

struct WrapCase {
    const char *name;
    const char *text;
    size_t width;
    size_t indent;
    bool indentFirst;
    bool keepNewlines;
    std::vector<std::string> lines;
};

void PrintTo(const WrapCase &c, std::ostream *os) {
    *os << c.name;
}

class WrapTest : public testing::TestWithParam<WrapCase> {};

TEST_P(WrapTest, Lines) {
    const WrapCase &c = GetParam();
    Sink sink;
    EXPECT_TRUE(
        FORMAT::wordWrap(c.text, &sink, c.indentFirst, c.indent, c.width, collect, c.keepNewlines));
    EXPECT_EQ(sink.lines, c.lines);
}

const WrapCase kWrapCases[] = {
    {"fits", "one two three", 20, 0, false, true, {"one two three"}},
    {"breaks_at_space", "one two three", 8, 0, false, true, {"one two", "three"}},
    {"exact_width", "abcd efgh", 4, 0, false, true, {"abcd", "efgh"}},
    {"long_word_cut", "abcdefghij", 4, 0, false, true, {"abcd", "efgh", "ij"}},
    {"utf8_counts_characters", "ééé ééé", 7, 0, false, true, {"ééé ééé"}},
    {"utf8_cut_whole", "éééé", 3, 0, false, true, {"ééé", "é"}},
    {"indent_continuation", "aa bb cc", 5, 1, false, true, {"aa bb", " cc"}},
    {"indent_first", "aa bb", 10, 2, true, true, {"  aa bb"}},
    {"kept_newline", "a\nb", 20, 0, false, true, {"a", "b"}},
    {"joined_newline", "a\nb", 20, 0, false, false, {"a b"}},
    {"paragraph", "a\n\nb", 20, 0, false, false, {"a", "", "b"}},
    {"paragraph_kept", "a\n\nb", 20, 0, false, true, {"a", "", "b"}},
    {"trailing_spaces", "a   \nb  ", 20, 0, false, true, {"a", "b"}},
    {"signature_delimiter", "body\n-- \nme", 20, 0, false, true, {"body", "-- ", "me"}},
    {"leading_space_kept", "  code\nx", 20, 0, false, true, {"  code", "x"}},
    {"empty", "", 20, 0, false, true, {}},
    {"indent_wider_than_width", "ab cd", 2, 4, false, true, {"ab", "    c", "    d"}},
};

INSTANTIATE_TEST_SUITE_P(FORMAT, WrapTest, testing::ValuesIn(kWrapCases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(FORMAT, HeaderFoldingAt998) {
    std::string value = "Subject: ";
    for (int i = 0; i < 300; i++)
        value += "word ";
    Sink sink;
    ASSERT_TRUE(FORMAT::wordWrap(value, &sink, false, 1, 998, collect, false));
    ASSERT_EQ(sink.lines.size(), 2u);
    EXPECT_LE(sink.lines[0].size(), 998u);
    EXPECT_EQ(sink.lines[1][0], ' ');
    EXPECT_NE(sink.lines[1][1], ' ');
}

TEST(FORMAT, LineByteLimit) {
    std::string word(3000, 'x');
    Sink sink;
    ASSERT_TRUE(FORMAT::wordWrap(word, &sink, false, 0, 5000, collect, true));
    ASSERT_EQ(sink.lines.size(), 1u);
    EXPECT_EQ(sink.lines[0].size(), FORMAT::kLineMax);
}

TEST(FORMAT, RefusedLineStops) {
    Sink sink;
    sink.refuseAfter = 1;
    EXPECT_FALSE(FORMAT::wordWrap("a\nb\nc", &sink, false, 0, 10, collect, true));
    EXPECT_EQ(sink.lines.size(), 1u);
}

} // namespace
