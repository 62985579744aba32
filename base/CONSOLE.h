// Text for the terminal (command-line use only), wrapped to the terminal's width.
#pragma once

#include <cstdio>
#include <string>

class CONSOLE {
public:
    // Writes text to standard output; lines longer than the terminal are broken at blanks.
    static void print(const std::string &text);
    static void printf(const char *format, ...) __attribute__((format(printf, 1, 2)));
    // The wrapping itself, for a given width (0: no wrapping).
    static std::string wrap(const std::string &text, size_t width);

private:
    static size_t _width(FILE *stream);
};
