// Word wrapping of UTF-8 text into lines, for header folding and composed bodies.
#include "message/FORMAT.h"

#include <algorithm>
#include <cstdint>
#include <string>

namespace {

bool isContinuation(char c) {
    return (static_cast<uint8_t>(c) & 0xC0) == 0x80;
}
bool isSpace(char c) {
    return c == ' ' || c == '\t';
}

size_t charCount(std::string_view text) {
    size_t count = 0;
    for (char c : text) {
        if (!isContinuation(c))
            count++;
    }
    return count;
}

// Length of the UTF-8 character starting at text[0], kept within the text.
size_t charLength(std::string_view text) {
    size_t length = 1;
    while (length < text.size() && isContinuation(text[length]))
        length++;
    return length;
}

// Appends piece to held, cut so that held stays within the line limit and no character
// is split.
void hold(std::string &held, std::string_view piece) {
    while (!piece.empty()) {
        size_t length = charLength(piece);
        if (held.size() + length > FORMAT::kLineMax)
            return;
        held.append(piece.substr(0, length));
        piece.remove_prefix(length);
    }
}

class WRAPPER {
public:
    WRAPPER(void *context, size_t indent, size_t width, FORMAT::EMIT emit)
        : fContext(context), fIndent(indent), fWidth(width), fEmit(emit) {}

    bool ok() const { return fOk; }
    bool hasContent() const { return fContent; }
    bool fits(size_t chars) const { return !fContent || fChars + chars <= fWidth; }

    void start(bool indented) {
        fLine.assign(indented ? std::min(fIndent, FORMAT::kLineMax) : 0, ' ');
        fChars = fLine.size();
        fContent = false;
    }

    // Passes the line on; it loses its trailing blanks unless it is the signature
    // delimiter, whose trailing space is deliberately kept.
    void finish() {
        if (!fOk)
            return;
        if (fLine != "-- ") {
            size_t end = fLine.size();
            while (end > 0 && isSpace(fLine[end - 1]))
                end--;
            fLine.resize(end);
        }
        fOk = fEmit(fContext, fLine);
    }

    // Adds characters, ending the line first whenever it is full. With breakable false
    // (white space) the rest of the text is dropped at such a break instead.
    void add(std::string_view text, bool breakable) {
        while (!text.empty() && fOk) {
            size_t length = charLength(text);
            if (fContent && fChars >= fWidth) {
                finish();
                start(true);
                if (!breakable)
                    return;
            }
            if (fLine.size() + length <= FORMAT::kLineMax) {
                fLine.append(text.substr(0, length));
                fChars++;
                fContent = true;
            }
            text.remove_prefix(length);
        }
    }

private:
    void *fContext;
    size_t fIndent;
    size_t fWidth;
    FORMAT::EMIT fEmit;
    std::string fLine;
    size_t fChars = 0;
    bool fContent = false; // anything besides the indent
    bool fOk = true;
};

} // namespace

bool FORMAT::wordWrap(std::string_view text, void *context, bool indentFirst, size_t indent,
                      size_t width, EMIT emit, bool keepNewlines) {
    if (emit == nullptr)
        return false;
    WRAPPER wrapper(context, indent, width, emit);
    wrapper.start(indentFirst);
    std::string space;
    std::string word;
    size_t i = 0;
    while (i < text.size() && wrapper.ok()) {
        char c = text[i];
        if (c == '\n') {
            bool paragraph = i + 1 < text.size() && text[i + 1] == '\n';
            if (!keepNewlines && !paragraph) {
                hold(space, " ");
                i++;
                continue;
            }
            wrapper.add(space, false);
            space.clear();
            wrapper.finish();
            if (!keepNewlines) {
                // The second newline of the pair gives the empty line.
                wrapper.start(true);
                wrapper.finish();
                i++;
            }
            wrapper.start(true);
            i++;
            continue;
        }
        size_t end = i;
        if (isSpace(c)) {
            while (end < text.size() && isSpace(text[end]))
                end++;
            hold(space, text.substr(i, end - i));
            i = end;
            continue;
        }
        while (end < text.size() && !isSpace(text[end]) && text[end] != '\n')
            end++;
        word.clear();
        hold(word, text.substr(i, end - i));
        i = end;
        if (!wrapper.fits(charCount(space) + charCount(word))) {
            wrapper.finish();
            wrapper.start(true);
        } else {
            wrapper.add(space, false);
        }
        space.clear();
        wrapper.add(word, true);
    }
    if (wrapper.ok()) {
        wrapper.add(space, false);
        if (wrapper.hasContent())
            wrapper.finish();
    }
    return wrapper.ok();
}
