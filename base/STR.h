// String helpers shared by every subsystem: word tables, list order, bounded copies, safe names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

class STR {
public:
    // One row of a number-and-text table; a table ends with a row whose text is null.
    // Several rows may share a value (a full and a short name); the first row of a value
    // is the name written for it.
    struct INDEX {
        int64_t value;
        const char *text;
    };

    // What a value without a row in its table reads as.
    static constexpr const char *kUnknown = "[Unknown]";
    // What stands for an empty value in header accessors and killfile entries.
    static constexpr const char *kNone = "<None>";
    // A safe leaf name is cut to this many bytes (at a UTF-8 character boundary), leaving
    // room under the file system's 255 for " copy 1000" and similar suffixes.
    static constexpr size_t kLeafMax = 240;
    // STR::digits accepts texts of 1 to this many characters.
    static constexpr size_t kDigitsMax = 45;

    // --- Word tables ---
    // Text of the first row with this value, or kUnknown.
    static const char *indexText(const INDEX *table, int64_t value);
    // Value of the first row whose text equals text ignoring ASCII case; *value is 0 when
    // there is none (false). A null table or text finds nothing.
    static bool indexValue(const INDEX *table, const char *text, int64_t *value);
    static bool indexValue(const INDEX *table, std::string_view text, int64_t *value);
    // The row itself, or null: for callers that must tell "unknown" from a real name.
    static const INDEX *indexRow(const INDEX *table, int64_t value);
    static const INDEX *indexRow(const INDEX *table, std::string_view text);

    // --- Comparing ---
    // Order of names in lists and sorted files: ASCII case ignored first, letters placed
    // between '@' and '[' as A a B b ... Z z, a prefix first; ties broken case-sensitively
    // with an upper-case letter before its lower-case form. <0, 0, >0 like strcmp.
    static int cmpList(const char *a, const char *b);
    static int cmpList(std::string_view a, std::string_view b);
    // Position of a byte in that order (the 256-entry table), exposed for sorting keys.
    static uint8_t listOrder(unsigned char c);

    // ASCII-only, locale-independent case-insensitive compares (nulls sort first).
    static int icmp(const char *a, const char *b);
    static int icmp(std::string_view a, std::string_view b);
    static int incmp(const char *a, const char *b, size_t count);
    static bool iequal(std::string_view a, std::string_view b);
    static bool istarts(std::string_view text, std::string_view prefix);
    // Offset of the first case-insensitive occurrence of needle, or npos.
    static size_t ifind(std::string_view text, std::string_view needle, size_t from = 0);
    static char lower(char c) { return (c >= 'A' && c <= 'Z') ? char(c - 'A' + 'a') : c; }
    static char upper(char c) { return (c >= 'a' && c <= 'z') ? char(c - 'a' + 'A') : c; }
    static void lower(char *text);
    static void upper(char *text);

    // --- Trimming and bounded copies ---
    // Blank is space, tab, CR or LF here.
    static bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
    // Removes leading and trailing blanks in place; returns text (null stays null).
    static char *trim(char *text);
    static std::string_view trim(std::string_view text);
    // Copies src into dst of size bytes, always terminated; longer text is cut silently
    // (never inside a UTF-8 character). Returns the length copied. A null src copies "".
    static size_t copy(char *dst, const char *src, size_t size);
    static size_t copy(char *dst, std::string_view src, size_t size);
    // Appends src to the text in dst the same way; returns the new length.
    static size_t cat(char *dst, const char *src, size_t size);
    // Length a cut to at most max bytes keeps so that no UTF-8 character is split.
    static size_t utf8Cut(std::string_view text, size_t max);

    // --- Checks ---
    // 1 to kDigitsMax characters: an optional leading '+' or '-' and at least one digit,
    // nothing else.
    static bool digits(const char *text);
    static bool digits(std::string_view text);
    // True when the character may appear in a file name on this system.
    static bool isLeafChar(unsigned char c);
    // True when the whole text is a usable leaf name as it stands: not empty, at most
    // kLeafMax bytes, only isLeafChar characters, not "." or "..", no leading dot.
    static bool isLeaf(const char *name);
    static bool isLeaf(std::string_view name);
    // Plain text for a header value: no control characters (a tab included) and no markup
    // ('<' or '>').
    static bool plain(const char *text);

    // --- Safe names ---
    // Turns a file name taken from a message (an attachment or uuencode name) into a leaf
    // usable in the save folder: any directory part (after the last '/' or '\') is dropped,
    // control characters removed, blanks trimmed at both ends and leading dots removed,
    // cut to kLeafMax.
    // False (name emptied) when nothing usable remains. Edits name (a buffer of size bytes).
    static bool filenameFixup(char *name, size_t size);
    // Makes any text (a link, a subject) a leaf by replacing every character a name may
    // not hold with '_' and a leading dot with '_', then cutting to max bytes (at most
    // kLeafMax and size-1). False (name emptied) when the text is empty.
    static bool leafSanitize(char *name, size_t size, size_t max = kLeafMax);
};
