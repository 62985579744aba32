// Word wrapping of UTF-8 text into lines, for header folding and composed bodies.
#pragma once

#include <cstddef>
#include <string_view>

class FORMAT {
public:
    // Most bytes one line, one word or one run of white space may hold; more are dropped.
    static constexpr size_t kLineMax = 1019;

    // Receives each finished line; false stops the wrapping.
    using EMIT = bool (*)(void *context, std::string_view line);

    // Breaks text into lines of at most `width` characters (UTF-8 characters, not bytes).
    // Continuation lines start with `indent` spaces, the first line too with indentFirst.
    // Two newlines in a row give an empty line; a single newline ends the line with
    // keepNewlines, else it counts as a space. A word longer than the width is broken
    // inside at the width. Trailing spaces are removed from each line, except from the
    // signature delimiter "-- ". False when emit refused a line.
    static bool wordWrap(std::string_view text, void *context, bool indentFirst, size_t indent,
                         size_t width, EMIT emit, bool keepNewlines);
};
