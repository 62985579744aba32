// Word wrapping: widths in characters, paragraphs, kept newlines, the signature delimiter.
#include "message/FORMAT.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using LINES = std::vector<std::string>;

struct SINK {
    LINES lines;
    size_t refuseAfter = SIZE_MAX;
};

bool collect(void *context, std::string_view line) {
    auto *sink = static_cast<SINK *>(context);
    if (sink->lines.size() >= sink->refuseAfter)
        return false;
    sink->lines.emplace_back(line);
    return true;
}

std::string words(const char *first, int count) {
    std::string out = first;
    for (int i = 0; i < count; i++)
        out += " word";
    return out;
}

TEST(FORMAT, WordWrap) {
    struct CASE {
        std::string text;
        size_t width, indent;
        bool indentFirst, keepNewlines;
        LINES lines;
    } const cases[] = {
        {"one two three", 20, 0, false, true, {"one two three"}},
        {"one two three", 8, 0, false, true, {"one two", "three"}},
        {"abcd efgh", 4, 0, false, true, {"abcd", "efgh"}},
        {"abcdefghij", 4, 0, false, true, {"abcd", "efgh", "ij"}},
        {"ééé ééé", 7, 0, false, true, {"ééé ééé"}},
        {"éééé", 3, 0, false, true, {"ééé", "é"}},
        {"aa bb cc", 5, 1, false, true, {"aa bb", " cc"}},
        {"aa bb", 10, 2, true, true, {"  aa bb"}},
        {"a\nb", 20, 0, false, true, {"a", "b"}},
        {"a\nb", 20, 0, false, false, {"a b"}},
        {"a\n\nb", 20, 0, false, false, {"a", "", "b"}},
        {"a\n\nb", 20, 0, false, true, {"a", "", "b"}},
        {"a   \nb  ", 20, 0, false, true, {"a", "b"}},
        {"body\n-- \nme", 20, 0, false, true, {"body", "-- ", "me"}},
        {"  code\nx", 20, 0, false, true, {"  code", "x"}},
        {"", 20, 0, false, true, {}},
        {"ab cd", 2, 4, false, true, {"ab", "    c", "    d"}},
        // Header folding: lines of up to 998 characters, continued after one blank.
        {words("Subject:", 300),
         998,
         1,
         false,
         false,
         {words("Subject:", 198), " " + words("word", 101)}},
        {std::string(3000, 'x'), 5000, 0, false, true, {std::string(FORMAT::kLineMax, 'x')}},
    };
    for (const CASE &c : cases) {
        SINK sink;
        EXPECT_TRUE(FORMAT::wordWrap(c.text, &sink, c.indentFirst, c.indent, c.width, collect,
                                     c.keepNewlines));
        EXPECT_EQ(sink.lines, c.lines) << c.text;
    }
}

TEST(FORMAT, RefusedLineStops) {
    SINK sink;
    sink.refuseAfter = 1;
    EXPECT_FALSE(FORMAT::wordWrap("a\nb\nc", &sink, false, 0, 10, collect, true));
    EXPECT_EQ(sink.lines.size(), 1u);
}

} // namespace
