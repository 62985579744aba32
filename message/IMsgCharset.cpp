// The character-set table and conversion between the message sets and UTF-8 (iconv tables).
#include "message/IMsg.h"

#include <algorithm>
#include <array>
#include <iconv.h>
#include <mutex>
#include <unordered_map>

const STR::INDEX IMsg::indexCharset[] = {
    {CharsetISO1, "ISO-8859-1"},
    {CharsetISO2, "ISO-8859-2"},
    {CharsetISO3, "ISO-8859-3"},
    {CharsetISO4, "ISO-8859-4"},
    {CharsetISO5, "ISO-8859-5"},
    {CharsetISO6, "ISO-8859-6"},
    {CharsetISO7, "ISO-8859-7"},
    {CharsetISO8, "ISO-8859-8"},
    {CharsetISO9, "ISO-8859-9"},
    {CharsetISO10, "ISO-8859-10"},
    {CharsetISO13, "ISO-8859-13"},
    {CharsetISO14, "ISO-8859-14"},
    {CharsetISO15, "ISO-8859-15"},
    {CharsetKOI8R, "KOI8-R"},
    {CharsetMacRoman, "Macintosh"},
    {CharsetUSASCII, "US-ASCII"},
    {CharsetUTF8, "UTF-8"},
    {CharsetWindows1251, "Windows-1251"},
    {CharsetWindows1252, "Windows-1252"},
    {0, nullptr},
};

namespace {

constexpr char32_t kUndefined = 0xFFFFFFFF;
constexpr size_t kSetCount = sizeof(IMsg::indexCharset) / sizeof(IMsg::indexCharset[0]) - 1;

// iconv's names for the 8-bit sets, by table row.
const char *iconvName(IMsg::Charset charset) {
    switch (charset) {
    case IMsg::CharsetMacRoman:
        return "MACINTOSH";
    case IMsg::CharsetWindows1251:
        return "WINDOWS-1251";
    case IMsg::CharsetWindows1252:
        return "WINDOWS-1252";
    default:
        return IMsg::CharsetString(charset);
    }
}

// One 8-bit set as a byte-to-code-point table and its reverse. iconv is asked once per
// byte, so bytes the set leaves undefined simply get no entry instead of stopping a
// conversion half-way.
struct TABLE {
    std::array<char32_t, 256> toUnicode{};
    std::unordered_map<char32_t, uint8_t> fromUnicode;
    bool ok = false;
};

void tableBuild(TABLE &table, IMsg::Charset charset) {
    table.toUnicode.fill(kUndefined);
    if (charset == IMsg::CharsetISO1) {
        // Latin-1 is the first 256 code points; it needs no converter.
        for (int byte = 0; byte < 256; byte++)
            table.toUnicode[byte] = static_cast<char32_t>(byte);
    } else {
        iconv_t cd = iconv_open("UTF-32LE", iconvName(charset));
        if (cd == reinterpret_cast<iconv_t>(-1))
            return;
        for (int byte = 0; byte < 256; byte++) {
            char in = static_cast<char>(byte);
            unsigned char out[8] = {};
            char *inPtr = &in;
            char *outPtr = reinterpret_cast<char *>(out);
            size_t inLeft = 1;
            size_t outLeft = sizeof(out);
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
            if (iconv(cd, &inPtr, &inLeft, &outPtr, &outLeft) == static_cast<size_t>(-1) ||
                sizeof(out) - outLeft != 4) {
                continue;
            }
            table.toUnicode[byte] = static_cast<char32_t>(out[0]) | (char32_t(out[1]) << 8) |
                                    (char32_t(out[2]) << 16) | (char32_t(out[3]) << 24);
        }
        iconv_close(cd);
    }
    for (int byte = 255; byte >= 0; byte--) {
        if (table.toUnicode[byte] != kUndefined)
            table.fromUnicode[table.toUnicode[byte]] = static_cast<uint8_t>(byte);
    }
    table.ok = true;
}

const TABLE *tableGet(IMsg::Charset charset) {
    static std::array<TABLE, kSetCount> tables;
    static std::array<std::once_flag, kSetCount> once;
    for (size_t row = 0; row < kSetCount; row++) {
        if (IMsg::indexCharset[row].value != charset)
            continue;
        std::call_once(once[row], [&] { tableBuild(tables[row], charset); });
        return tables[row].ok ? &tables[row] : nullptr;
    }
    return nullptr;
}

void utf8Append(std::string &out, char32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | (cp >> 6));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | (cp >> 12));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (cp >> 18));
        out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

// Length a UTF-8 sequence announces by its first byte; 0 for a byte that cannot start one.
size_t utf8Length(uint8_t lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// The code point of a complete sequence, or kUndefined for a malformed one (overlong
// forms, surrogates and values past U+10FFFF included).
char32_t utf8Decode(std::string_view seq) {
    auto lead = static_cast<uint8_t>(seq[0]);
    if (seq.size() == 1)
        return lead;
    char32_t cp = lead & (0x7F >> seq.size());
    for (size_t i = 1; i < seq.size(); i++) {
        auto c = static_cast<uint8_t>(seq[i]);
        if ((c & 0xC0) != 0x80)
            return kUndefined;
        cp = (cp << 6) | (c & 0x3F);
    }
    static constexpr char32_t kMin[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < kMin[seq.size()] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF))
        return kUndefined;
    return cp;
}

// The state word keeps up to three bytes of an unfinished character in its low 24 bits
// and their count in the top 8.
std::string statePending(int32_t *state) {
    std::string pending;
    if (state == nullptr)
        return pending;
    auto word = static_cast<uint32_t>(*state);
    size_t count = std::min<size_t>(word >> 24, 3);
    for (size_t i = 0; i < count; i++)
        pending += static_cast<char>((word >> (16 - 8 * i)) & 0xFF);
    *state = 0;
    return pending;
}

void stateKeep(int32_t *state, std::string_view bytes) {
    uint32_t word = static_cast<uint32_t>(bytes.size()) << 24;
    for (size_t i = 0; i < bytes.size(); i++)
        word |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[i])) << (16 - 8 * i);
    *state = static_cast<int32_t>(word);
}

void fromUTF8(const TABLE &table, std::string_view text, std::string &out, int32_t *state) {
    std::string joined = statePending(state);
    if (!joined.empty()) {
        joined.append(text);
        text = joined;
    }
    size_t i = 0;
    while (i < text.size()) {
        auto lead = static_cast<uint8_t>(text[i]);
        if (lead < 0x80) {
            out += static_cast<char>(lead);
            i++;
            continue;
        }
        size_t length = utf8Length(lead);
        if (length == 0) {
            out += IMsg::kSubstitute;
            i++;
            continue;
        }
        if (i + length > text.size()) {
            // An unfinished character at the end waits for the next call when it can.
            bool prefix = true;
            for (size_t k = i + 1; k < text.size(); k++)
                prefix = prefix && (static_cast<uint8_t>(text[k]) & 0xC0) == 0x80;
            if (state != nullptr && prefix) {
                stateKeep(state, text.substr(i));
                return;
            }
            out += IMsg::kSubstitute;
            i++;
            continue;
        }
        char32_t cp = utf8Decode(text.substr(i, length));
        if (cp == kUndefined) {
            out += IMsg::kSubstitute;
            i++;
            continue;
        }
        auto found = table.fromUnicode.find(cp);
        out +=
            found == table.fromUnicode.end() ? IMsg::kSubstitute : static_cast<char>(found->second);
        i += length;
    }
}

void toUTF8(const TABLE &table, std::string_view text, std::string &out) {
    for (char c : text) {
        char32_t cp = table.toUnicode[static_cast<uint8_t>(c)];
        if (cp == kUndefined)
            out += IMsg::kSubstitute;
        else
            utf8Append(out, cp);
    }
}

// Folds a US-ASCII result into 7 bits: the high bit is dropped and what would become a
// control character becomes a space.
void fold(std::string &text) {
    for (char &c : text) {
        auto byte = static_cast<uint8_t>(c);
        if (byte >= 128) {
            byte = static_cast<uint8_t>(byte - 128);
            c = byte < 32 ? ' ' : static_cast<char>(byte);
        }
    }
}

} // namespace

IMsg::Charset IMsg::CharsetValue(std::string_view name) {
    int64_t value = 0;
    if (name.empty() || !STR::indexValue(indexCharset, name, &value))
        return CharsetNone;
    return static_cast<Charset>(value);
}

const char *IMsg::CharsetString(Charset charset) {
    const STR::INDEX *row = STR::indexRow(indexCharset, charset);
    return row != nullptr ? row->text : indexCharset[0].text;
}

bool IMsg::CharsetIsValid(Charset charset) {
    return STR::indexRow(indexCharset, charset) != nullptr;
}

IMsg::Charset IMsg::CharsetMakeValid(Charset charset) {
    return CharsetIsValid(charset) ? charset : CharsetISO1;
}

bool IMsg::CharsetConvert(Charset from, std::string_view text, Charset to, std::string &out,
                          int32_t *state) {
    out.clear();
    if (!CharsetIsValid(from) || !CharsetIsValid(to))
        return false;
    const bool foldResult = to == CharsetUSASCII;
    if (from == CharsetUSASCII)
        from = CharsetISO1;
    if (to == CharsetUSASCII)
        to = CharsetISO1;
    if (from == to) {
        out.assign(text);
    } else if (from == CharsetUTF8) {
        const TABLE *table = tableGet(to);
        if (table == nullptr)
            return false;
        out.reserve(text.size());
        fromUTF8(*table, text, out, state);
    } else if (to == CharsetUTF8) {
        const TABLE *table = tableGet(from);
        if (table == nullptr)
            return false;
        out.reserve(text.size() * 2);
        toUTF8(*table, text, out);
    } else {
        return false;
    }
    if (foldResult)
        fold(out);
    return true;
}
