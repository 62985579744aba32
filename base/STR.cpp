// String helpers shared by every subsystem: word tables, list order, bounded copies, safe names.
#include "base/STR.h"

#include <array>
#include <cstring>

namespace {

// The list order: ASCII, except that the letters sit between '@' and '[' as A a B b ... Z z,
// so the characters '[' to '`' follow every letter and '{' to DEL follow those.
constexpr std::array<uint8_t, 256> makeListOrder() {
    std::array<uint8_t, 256> order{};
    for (unsigned c = 0; c < 256; c++)
        order[c] = uint8_t(c);
    unsigned next = '@' + 1;
    for (unsigned letter = 0; letter < 26; letter++) {
        order['A' + letter] = uint8_t(next++);
        order['a' + letter] = uint8_t(next++);
    }
    for (unsigned c = '['; c <= '`'; c++)
        order[c] = uint8_t(next++);
    for (unsigned c = '{'; c < 128; c++)
        order[c] = uint8_t(next++);
    return order;
}

constexpr std::array<uint8_t, 256> kListOrder = makeListOrder();

std::string_view view(const char *text) {
    return text ? std::string_view(text) : std::string_view();
}

bool isControl(unsigned char c) {
    return c < 0x20 || c == 0x7F;
}

// Drops trailing blanks from a terminated buffer.
void trimEnd(char *text) {
    size_t length = strlen(text);
    while (length > 0 && STR::isBlank(text[length - 1]))
        text[--length] = 0;
}

} // namespace

// --- Word tables ---

const STR::INDEX *STR::indexRow(const INDEX *table, int64_t value) {
    for (const INDEX *row = table; row && row->text; row++) {
        if (row->value == value)
            return row;
    }
    return nullptr;
}

const STR::INDEX *STR::indexRow(const INDEX *table, std::string_view text) {
    for (const INDEX *row = table; row && row->text; row++) {
        if (iequal(row->text, text))
            return row;
    }
    return nullptr;
}

const char *STR::indexText(const INDEX *table, int64_t value) {
    const INDEX *row = indexRow(table, value);
    return row ? row->text : kUnknown;
}

bool STR::indexValue(const INDEX *table, std::string_view text, int64_t *value) {
    *value = 0;
    const INDEX *row = indexRow(table, text);
    if (!row)
        return false;
    *value = row->value;
    return true;
}

bool STR::indexValue(const INDEX *table, const char *text, int64_t *value) {
    *value = 0;
    return text && indexValue(table, std::string_view(text), value);
}

// --- Comparing ---

uint8_t STR::listOrder(unsigned char c) {
    return kListOrder[c];
}

int STR::cmpList(std::string_view a, std::string_view b) {
    size_t common = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < common; i++) {
        int left = kListOrder[uint8_t(upper(a[i]))];
        int right = kListOrder[uint8_t(upper(b[i]))];
        if (left != right)
            return left - right;
    }
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    for (size_t i = 0; i < common; i++) {
        int left = kListOrder[uint8_t(a[i])];
        int right = kListOrder[uint8_t(b[i])];
        if (left != right)
            return left - right;
    }
    return 0;
}

int STR::cmpList(const char *a, const char *b) {
    return cmpList(view(a), view(b));
}

int STR::icmp(std::string_view a, std::string_view b) {
    size_t common = a.size() < b.size() ? a.size() : b.size();
    for (size_t i = 0; i < common; i++) {
        int left = uint8_t(lower(a[i]));
        int right = uint8_t(lower(b[i]));
        if (left != right)
            return left - right;
    }
    if (a.size() == b.size())
        return 0;
    return a.size() < b.size() ? -1 : 1;
}

int STR::icmp(const char *a, const char *b) {
    if (!a || !b)
        return (a ? 1 : 0) - (b ? 1 : 0);
    return icmp(std::string_view(a), std::string_view(b));
}

int STR::incmp(const char *a, const char *b, size_t count) {
    if (!a || !b)
        return (a ? 1 : 0) - (b ? 1 : 0);
    for (size_t i = 0; i < count; i++) {
        int left = uint8_t(lower(a[i]));
        int right = uint8_t(lower(b[i]));
        if (left != right || left == 0)
            return left - right;
    }
    return 0;
}

bool STR::iequal(std::string_view a, std::string_view b) {
    return a.size() == b.size() && icmp(a, b) == 0;
}

bool STR::istarts(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && iequal(text.substr(0, prefix.size()), prefix);
}

size_t STR::ifind(std::string_view text, std::string_view needle, size_t from) {
    if (from > text.size() || needle.size() > text.size() - from)
        return std::string_view::npos;
    for (size_t at = from; at + needle.size() <= text.size(); at++) {
        if (iequal(text.substr(at, needle.size()), needle))
            return at;
    }
    return std::string_view::npos;
}

void STR::lower(char *text) {
    for (; text && *text; text++)
        *text = lower(*text);
}

void STR::upper(char *text) {
    for (; text && *text; text++)
        *text = upper(*text);
}

// --- Trimming and bounded copies ---

std::string_view STR::trim(std::string_view text) {
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

char *STR::trim(char *text) {
    if (!text)
        return text;
    std::string_view kept = trim(std::string_view(text));
    memmove(text, kept.data(), kept.size());
    text[kept.size()] = 0;
    return text;
}

size_t STR::utf8Cut(std::string_view text, size_t max) {
    if (text.size() <= max)
        return text.size();
    // Back up over at most three continuation bytes; text that is not UTF-8 is cut at max.
    for (size_t back = 0; back <= 3 && back <= max; back++) {
        if ((uint8_t(text[max - back]) & 0xC0) != 0x80)
            return max - back;
    }
    return max;
}

size_t STR::copy(char *dst, std::string_view src, size_t size) {
    if (!dst || size == 0)
        return 0;
    size_t length = utf8Cut(src, size - 1);
    if (length > 0)
        memmove(dst, src.data(), length);
    dst[length] = 0;
    return length;
}

size_t STR::copy(char *dst, const char *src, size_t size) {
    return copy(dst, view(src), size);
}

size_t STR::cat(char *dst, const char *src, size_t size) {
    if (!dst || size == 0)
        return 0;
    size_t used = strnlen(dst, size - 1);
    return used + copy(dst + used, src, size - used);
}

// --- Checks ---

bool STR::digits(std::string_view text) {
    if (text.empty() || text.size() > kDigitsMax)
        return false;
    if (text.front() == '+' || text.front() == '-')
        text.remove_prefix(1);
    if (text.empty())
        return false;
    for (char c : text) {
        if (c < '0' || c > '9')
            return false;
    }
    return true;
}

bool STR::digits(const char *text) {
    return text && digits(std::string_view(text));
}

bool STR::isLeafChar(unsigned char c) {
    return c != '/' && !isControl(c);
}

bool STR::isLeaf(std::string_view name) {
    if (name.empty() || name.size() > kLeafMax || name.front() == '.')
        return false;
    for (char c : name) {
        if (!isLeafChar(uint8_t(c)))
            return false;
    }
    return true;
}

bool STR::isLeaf(const char *name) {
    return name && isLeaf(std::string_view(name));
}

bool STR::plain(const char *text) {
    if (!text)
        return false;
    for (const char *at = text; *at; at++) {
        unsigned char c = uint8_t(*at);
        if (isControl(c) || c == '<' || c == '>')
            return false;
    }
    return true;
}

// --- Safe names ---

bool STR::filenameFixup(char *name, size_t size) {
    if (!name || size == 0)
        return false;
    name[size - 1] = 0;
    // Only the last path component counts: a hostile "../../x" or "C:\dir\x" becomes "x".
    const char *leaf = name;
    for (const char *at = name; *at; at++) {
        if (*at == '/' || *at == '\\')
            leaf = at + 1;
    }
    size_t length = 0;
    for (const char *at = leaf; *at; at++) {
        if (!isControl(uint8_t(*at)))
            name[length++] = *at;
    }
    name[length] = 0;
    trim(name);
    size_t dots = 0;
    while (name[dots] == '.' || isBlank(name[dots]))
        dots++;
    memmove(name, name + dots, strlen(name + dots) + 1);
    size_t max = size - 1 < kLeafMax ? size - 1 : kLeafMax;
    name[utf8Cut(name, max)] = 0;
    trimEnd(name);
    return name[0] != 0;
}

bool STR::leafSanitize(char *name, size_t size, size_t max) {
    if (!name || size == 0)
        return false;
    name[size - 1] = 0;
    if (max > kLeafMax)
        max = kLeafMax;
    if (max > size - 1)
        max = size - 1;
    name[utf8Cut(name, max)] = 0;
    for (char *at = name; *at; at++) {
        if (!isLeafChar(uint8_t(*at)))
            *at = '_';
    }
    if (name[0] == '.')
        name[0] = '_';
    return name[0] != 0;
}
