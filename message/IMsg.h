// Message-level rules shared by the header code, message files, viewer and composer:
// character sets and their conversion, quoted-printable characters, Message-IDs, addresses,
// delimiter pairs, newsgroup names, part numbers in subjects and message types.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "base/STR.h"

class IMsg {
public:
    // A character set number. The 8-bit sets keep the numbers stored in message-file
    // attributes by earlier versions; UTF-8, US-ASCII and "none" are the program's own.
    enum Charset : int32_t {
        CharsetISO1 = 0,
        CharsetISO2 = 1,
        CharsetISO3 = 2,
        CharsetISO4 = 3,
        CharsetISO5 = 4,
        CharsetISO6 = 5,
        CharsetISO7 = 6,
        CharsetISO8 = 7,
        CharsetISO9 = 8,
        CharsetISO10 = 9,
        CharsetMacRoman = 10,
        CharsetWindows1252 = 14,
        CharsetKOI8R = 16,
        CharsetWindows1251 = 17,
        CharsetISO13 = 21,
        CharsetISO14 = 22,
        CharsetISO15 = 23,
        CharsetUTF8 = 200,
        CharsetUSASCII = 201,
        CharsetNone = 300,
    };

    // A message's type, which is also its download state.
    enum MsgType : int32_t {
        MsgTypeMail = 15,
        MsgTypeNewsHeader = 20,   // body not downloaded
        MsgTypeNewsDownload = 21, // header marked for download
        MsgTypeNewsFailed = 22,   // body download failed
        MsgTypeNews = 35,         // article with body
    };

    // How an attachment is carried.
    enum AttachType : int32_t {
        AttachNone = 0,
        AttachBase64 = 1, // MIME part in base64
        AttachMime = 2,   // MIME part in any other transfer encoding
        AttachUuencode = 3,
        AttachYenc = 4, // "=ybegin" to "=yend", checked by its sizes and CRC32s
    };

    // Stands in for a character the target set cannot hold.
    static constexpr char kSubstitute = 26;
    // A quoted-printable body line decodes to at most this many bytes.
    static constexpr size_t kQuoteMax = 3069;
    // Message-ID lengths, and the host name part of a generated one.
    static constexpr size_t kMsgidMin = 5;
    static constexpr size_t kMsgidMax = 255;
    static constexpr size_t kMsgidGenMin = 22;
    static constexpr size_t kFQDNMax = 119;
    // Domain of fallback Message-IDs: reserved, so it can never name a real site.
    static constexpr const char *kFallbackDomain = "invalid.invalid";
    // Limits of an address found in text.
    static constexpr size_t kEmailPartMax = 80;
    static constexpr size_t kEmailMin = 3;
    static constexpr size_t kEmailMax = 80;
    static constexpr size_t kEmailLocalDigitsMax = 5;
    // Newsgroup names are 1 to this many UTF-8 characters.
    static constexpr size_t kNewsNameMax = 72;
    // Part numbering in a subject.
    static constexpr size_t kSubjectMax = 499;
    static constexpr size_t kSubjectMin = 6;
    static constexpr size_t kPartTextMax = 75;
    static constexpr size_t kPartDigitsMax = 3;

    // The character-set table: value and name, names compared ignoring ASCII case.
    static const STR::INDEX indexCharset[];
    // Opening and closing delimiters, pairwise: "()", "<>", "\"\"", "''", "[]", "{}".
    static constexpr char kDelimOpen[] = "(<\"'[{";
    static constexpr char kDelimClose[] = ")>\"']}";

    // --- Character sets ---
    // CharsetNone for an empty or unknown name.
    static Charset CharsetValue(std::string_view name);
    // The table name; an unknown value gives the first row's "ISO-8859-1".
    static const char *CharsetString(Charset charset);
    static bool CharsetIsValid(Charset charset);
    // Invalid values become ISO-8859-1.
    static Charset CharsetMakeValid(Charset charset);
    // Converts text from one set to the other into out (emptied first). One side must be
    // UTF-8 unless both are equal; US-ASCII reads as ISO-8859-1 and a US-ASCII result is
    // folded to 7 bits. Characters the target cannot hold become kSubstitute. The state
    // word, when given, carries an incomplete UTF-8 character from one call to the next
    // (start it at 0). False with empty output for two different 8-bit sets or an
    // invalid set.
    static bool CharsetConvert(Charset from, std::string_view text, Charset to, std::string &out,
                               int32_t *state = nullptr);

    // --- Quoted-printable characters ---
    // The byte of "=XX" at the start of text (a zero byte as a space), or 0 when the text
    // does not start with an escape.
    static uint8_t CharDecode(std::string_view text);
    // False only for letters, digits and '*'.
    static bool CharEncodeNeeded(uint8_t byte);
    // Appends "=XX".
    static void CharEncode(std::string &out, uint8_t byte);
    // Decodes one quoted-printable body line into UTF-8 (out emptied first). False when,
    // after its escapes are decoded and trailing blanks removed, the line ends in '=' (a
    // soft line break, that '=' removed).
    static bool QuoteDecode(Charset charset, std::string &out, std::string_view line);

    // --- Message-IDs ---
    static bool MsgidChar(char c);
    static bool MsgidCheck(std::string_view id);
    // A new Message-ID from the current time: "<VM...@host>", or with fallback
    // "<BG...@invalid.invalid>" (which MsgidGenCheck does not claim).
    static void MsgidGen(std::string &out, bool fallback);
    // True for IDs this program generated.
    static bool MsgidGenCheck(std::string_view id);

    // --- Addresses ---
    static bool EmailChar(char c);
    // The first address found around an '@', as offsets of its first and last character.
    static bool EmailFind(std::string_view text, size_t &start, size_t &end);
    // The address around the '@' at offset `at`.
    static bool EmailFindAt(std::string_view text, size_t at, size_t &start, size_t &end);
    // The whole text is one address.
    static bool EmailCheck(std::string_view text);

    // --- Delimiter pairs ---
    static bool DelimLeft(char c);
    static bool DelimRight(char c);
    // The opening partner of a closing delimiter, or 0.
    static char DelimMatchLeft(char c);
    // The closing partner of an opening delimiter, or 0.
    static char DelimMatchRight(char c);
    static bool DelimPair(char open, char close);
    // Offset of the opening partner of the closing delimiter at `at`, searching left
    // (nested pairs skipped), or npos.
    static size_t DelimFindLeft(std::string_view text, size_t at);
    // Offset of the closing partner of the opening delimiter at text[0], or npos.
    static size_t DelimFindRight(std::string_view text);
    // Trims white space and removes one surrounding pair with the white space inside it.
    // True when a pair was removed.
    static bool DelimRemove(std::string &text);

    // --- Newsgroups and subjects ---
    static bool NewsCheck(std::string_view name);
    // "pic.jpg (1/3)" gives base "pic.jpg", part 1, total 3. Outputs cleared first.
    static bool AttachSubject(std::string_view subject, std::string &base, uint32_t &part,
                              uint32_t &total);

    // --- Message types ---
    static bool TypeIsValid(int32_t type);
    static bool TypeIsNews(int32_t type);
    static bool TypeIsMail(int32_t type);
    // Deliberately true for a failed download (22), so that it cannot be marked for
    // download again.
    static bool TypeHasBody(int32_t type);
    static bool TypeMarksRead(int32_t type);
};
