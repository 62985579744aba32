// Quoted-printable characters and body lines.
#include "message/IMsg.h"

#include <algorithm>

#include "base/TextFormat.h"

namespace {

int hexValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

} // namespace

uint8_t IMsg::CharDecode(std::string_view text) {
    if (text.size() < 3 || text[0] != '=')
        return 0;
    int high = hexValue(text[1]);
    int low = hexValue(text[2]);
    if (high < 0 || low < 0)
        return 0;
    auto byte = static_cast<uint8_t>(high * 16 + low);
    // A zero byte would end the text early wherever it is held as a C string.
    return byte == 0 ? ' ' : byte;
}

bool IMsg::CharEncodeNeeded(uint8_t byte) {
    bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                 (byte >= 'a' && byte <= 'z') || byte == '*';
    return !plain;
}

void IMsg::CharEncode(std::string &out, uint8_t byte) {
    out += textFormat("=%02X", byte);
}

bool IMsg::QuoteDecode(Charset charset, std::string &out, std::string_view line) {
    out.clear();
    std::string bytes;
    bytes.reserve(std::min(line.size(), kQuoteMax));
    size_t i = 0;
    while (i < line.size() && bytes.size() < kQuoteMax) {
        uint8_t byte = line[i] == '=' ? CharDecode(line.substr(i)) : 0;
        if (byte != 0) {
            bytes += static_cast<char>(byte);
            i += 3;
        } else {
            bytes += line[i];
            i++;
        }
    }
    size_t end = bytes.size();
    while (end > 0 && STR::isBlank(bytes[end - 1]))
        end--;
    bytes.resize(end);
    // Deliberately in this order: escapes are decoded before the soft break is looked for,
    // so a line ending in "=3D" (or "=3D=20") continues in the next one like a bare '='.
    bool complete = bytes.empty() || bytes.back() != '=';
    if (!complete)
        bytes.pop_back();
    CharsetConvert(charset, bytes, CharsetUTF8, out);
    return complete;
}
