// Base64 and uuencode codecs and the uuencode line recognisers.
#include "message/BINTEXT.h"

#include <cstdint>
#include <cstring>

#include "base/STR.h"

namespace {

// A uuencode file name is held in a path-sized buffer before it is repaired.
constexpr size_t kNameSize = 300;

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Recognisers see lines with or without their line end.
std::string_view withoutLineEnd(std::string_view line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
        line.remove_suffix(1);
    return line;
}

// Bytes that `chars` characters after the count character decode to.
size_t uuBytesFor(size_t chars) {
    size_t bytes = chars / 4 * 3;
    size_t rest = chars % 4;
    if (rest >= 2)
        bytes += rest - 1;
    return bytes;
}

} // namespace

size_t BINTEXT::_emit(char *output, size_t count, uint32_t group, int bytes, bool binary) {
    for (int i = 0; i < bytes; i++) {
        auto byte = static_cast<uint8_t>(group >> (16 - 8 * i));
        // A control character from a decoded header word could break the line it lands in.
        if (!binary && byte < 32)
            byte = ' ';
        output[count++] = static_cast<char>(byte);
    }
    return count;
}

size_t BINTEXT::base64Encode(const char *input, size_t length, char *output, size_t size,
                             bool binary) {
    if (size == 0)
        return 0;
    output[0] = '\0';
    if (input == nullptr || size <= kGuard)
        return 0;
    if (!binary)
        length = std::strlen(input);
    size_t count = 0;
    size_t i = 0;
    while (i < length && count < size - kGuard) {
        uint32_t group = 0;
        int taken = 0;
        for (; taken < 3 && i < length; taken++, i++)
            group |= static_cast<uint32_t>(static_cast<uint8_t>(input[i])) << (16 - 8 * taken);
        output[count++] = kAlphabet[(group >> 18) & 63];
        output[count++] = kAlphabet[(group >> 12) & 63];
        output[count++] = taken > 1 ? kAlphabet[(group >> 6) & 63] : '=';
        output[count++] = taken > 2 ? kAlphabet[group & 63] : '=';
    }
    output[count] = '\0';
    return count;
}

uint8_t BINTEXT::base64DecodeChar(char c) {
    if (c >= 'A' && c <= 'Z')
        return static_cast<uint8_t>(c - 'A');
    if (c >= 'a' && c <= 'z')
        return static_cast<uint8_t>(c - 'a' + 26);
    if (isDigit(c))
        return static_cast<uint8_t>(c - '0' + 52);
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return kInvalid;
}

size_t BINTEXT::_decode(const char *text, uint8_t (*valueOf)(char), char *output, size_t size,
                        bool binary, size_t stop) {
    size_t count = 0;
    uint32_t word = 0; // top 8 bits: values collected; low 24 bits: the group
    for (const char *p = text; *p != '\0' && count <= size - kGuard; p++) {
        uint8_t value = valueOf(*p);
        if (value == kInvalid)
            continue;
        uint32_t have = word >> 24;
        word = ((have + 1) << 24) | (word & 0xFFFFFF) |
               (static_cast<uint32_t>(value) << (18 - 6 * have));
        if (have + 1 == 4) {
            count = _emit(output, count, word & 0xFFFFFF, 3, binary);
            word = 0;
            if (count >= stop)
                break;
        }
    }
    uint32_t have = word >> 24;
    if (have >= 2 && count <= size - kGuard)
        count = _emit(output, count, word & 0xFFFFFF, static_cast<int>(have) - 1, binary);
    if (!binary)
        output[count] = '\0';
    return count;
}

size_t BINTEXT::base64Decode(const char *input, char *output, size_t size, bool binary) {
    if (size > 0)
        output[0] = '\0';
    // Room for one group of three and the terminator past the guard mark.
    if (input == nullptr || size <= kGuard)
        return 0;
    return _decode(input, base64DecodeChar, output, size, binary, SIZE_MAX);
}

uint8_t BINTEXT::uuDecodeChar(char c) {
    if (c >= ' ' && c <= '_')
        return static_cast<uint8_t>(c - ' ');
    if (c == '`')
        return 0;
    return kInvalid;
}

size_t BINTEXT::uuDecode(const char *line, char *output, size_t size, bool binary) {
    if (size > 0)
        output[0] = '\0';
    if (line == nullptr || size <= kGuard || line[0] == '\0')
        return 0;
    uint8_t declared = uuDecodeChar(line[0]);
    if (declared == kInvalid || declared == 0)
        return 0;
    return _decode(line + 1, uuDecodeChar, output, size, binary, declared);
}

bool BINTEXT::uuLineStart(std::string_view line, std::string *fileName) {
    if (fileName != nullptr)
        fileName->clear();
    if (!STR::istarts(line, "begin") || line.size() < 6)
        return false;
    if (line[5] != ' ' && line[5] != '\t' && line[5] != '\n')
        return false;
    std::string text(withoutLineEnd(line));
    for (char &c : text) {
        if (c == '\t')
            c = ' ';
    }
    std::string_view tokens[3];
    size_t found = 0;
    std::string_view rest(text);
    while (found < 3) {
        size_t begin = rest.find_first_not_of(' ');
        if (begin == std::string_view::npos)
            break;
        rest.remove_prefix(begin);
        size_t end = rest.find(' ');
        tokens[found++] = rest.substr(0, end);
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
    }
    if (found < 3)
        return false;
    const std::string_view mode = tokens[1];
    if (mode.size() != 3 || !isDigit(mode[0]) || !isDigit(mode[1]) || !isDigit(mode[2]))
        return false;
    if (fileName == nullptr)
        return true;
    char name[kNameSize];
    STR::copy(name, tokens[2], sizeof(name));
    if (!STR::filenameFixup(name, sizeof(name)))
        return false;
    *fileName = name;
    return true;
}

bool BINTEXT::uuLineData(std::string_view line) {
    line = withoutLineEnd(line);
    if (line.empty() || line[0] == ' ' || line[0] == '>' || line[0] == '&')
        return false;
    uint8_t declared = uuDecodeChar(line[0]);
    if (declared == kInvalid)
        return false;
    for (size_t i = 1; i < line.size(); i++) {
        if (uuDecodeChar(line[i]) == kInvalid)
            return false;
    }
    // Deliberately strict: a last line padded past its count is not data, which keeps
    // ordinary text from being taken for uuencode.
    return uuBytesFor(line.size() - 1) == declared;
}

bool BINTEXT::uuLineStop(std::string_view line) {
    if (!STR::istarts(line, "end"))
        return false;
    if (line.size() == 3)
        return true;
    char next = line[3];
    return next == ' ' || next == '\t' || next == '\n' || next == '\r' || next == '\0';
}
