// printf-style formatting into a std::string, for alert and console texts.
#include "base/TextFormat.h"

#include <cstdio>
#include <vector>

std::string textVFormat(const char *format, va_list args) {
    va_list again;
    va_copy(again, args);
    int length = std::vsnprintf(nullptr, 0, format, args);
    std::string text;
    if (length > 0) {
        std::vector<char> buffer(static_cast<size_t>(length) + 1);
        std::vsnprintf(buffer.data(), buffer.size(), format, again);
        text.assign(buffer.data(), static_cast<size_t>(length));
    }
    va_end(again);
    return text;
}

std::string textFormat(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = textVFormat(format, args);
    va_end(args);
    return text;
}
