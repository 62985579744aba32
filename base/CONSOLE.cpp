// Text for the terminal (command-line use only), wrapped to the terminal's width.
#include "base/CONSOLE.h"

#include "base/TextFormat.h"

#include <cstdarg>
#include <sys/ioctl.h>
#include <unistd.h>

size_t CONSOLE::_width(FILE *stream) {
    struct winsize size {};
    if (isatty(fileno(stream)) && ioctl(fileno(stream), TIOCGWINSZ, &size) == 0)
        return size.ws_col;
    return 0; // a pipe or a file keeps its lines whole
}

std::string CONSOLE::wrap(const std::string &text, size_t width) {
    if (width < 2)
        return text;
    std::string out;
    size_t lineStart = 0;
    while (lineStart <= text.size()) {
        size_t lineEnd = text.find('\n', lineStart);
        bool lastLine = lineEnd == std::string::npos;
        if (lastLine)
            lineEnd = text.size();
        std::string_view line(text.data() + lineStart, lineEnd - lineStart);
        while (line.size() > width) {
            size_t cut = line.rfind(' ', width);
            if (cut == std::string_view::npos || cut == 0)
                cut = width;
            out.append(line.substr(0, cut));
            out.push_back('\n');
            line.remove_prefix(cut);
            while (!line.empty() && line.front() == ' ')
                line.remove_prefix(1);
        }
        out.append(line);
        if (lastLine)
            break;
        out.push_back('\n');
        lineStart = lineEnd + 1;
    }
    return out;
}

void CONSOLE::print(const std::string &text) {
    std::string wrapped = wrap(text, _width(stdout));
    std::fwrite(wrapped.data(), 1, wrapped.size(), stdout);
    std::fflush(stdout);
}

void CONSOLE::printf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = textVFormat(format, args);
    va_end(args);
    print(text);
}
