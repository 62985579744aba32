// Finds web, mail, file, FTP, news, streaming and telnet addresses in plain message text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

class URL {
public:
    enum TYPE : int32_t {
        TypeEmail = 0,
        TypeFile = 1,
        TypeFTP = 2,
        TypeHTTP = 3,
        TypeHTTPS = 4,
        TypeNews = 5,
        TypeRTSP = 6,
        TypeTelnet = 7,
        TypeNone = 8, // ends the kind table
    };

    // Character class of a kind's body.
    using CHARCLASS = bool (*)(char c);
    // Tries one kind at a trigger position; gives the offsets of the URL's first and last
    // character. With wrap false a line feed always ends the URL.
    struct INFO;
    using FINDER = bool (*)(std::string_view text, size_t at, const INFO &info, size_t &start,
                            size_t &end, bool wrap);

    struct INFO {
        TYPE type;
        const char *prefix;
        const char *prefix2; // null when the kind has none
        CHARCLASS charClass;
        const char *mimeType;
        const char *colorKey; // setting of the "Colors" section
        FINDER finder;
    };
    // One row per kind in TYPE order, then a TypeNone row.
    static const INFO info[];

    struct TRIGGER {
        const char *chars;
        TYPE kinds[3]; // tried in order; TypeNone ends the list
    };
    // The first row whose characters hold the current character says which kinds to try;
    // ended by a row with null chars.
    static const TRIGGER trigger[];

    // Reports a URL of the given kind from offset start to end (both inclusive).
    using CALLBACK = void (*)(void *data, TYPE type, size_t start, size_t end);
    // Asked now and then during a scan; false stops it.
    using KEEPGOING = bool (*)(void *data);

    static constexpr size_t kMax = 410;         // longest URL, prefix included
    static constexpr size_t kBodyMin = 3;       // shortest body after the prefix
    static constexpr size_t kWrapMin = 60;      // a line this long may continue on the next
    static constexpr size_t kWrapLook = 3;      // no URL may start this close after a wrap
    static constexpr size_t kNewsBodyMax = 406; // longest news body
    static constexpr size_t kMailtoReach = 80;  // '@' within this distance of "mailto:"
    static constexpr size_t kKeepGoingEvery = 200;

    // Scans text (up to its end or a NUL) and reports every URL found. keepGoing, when
    // given, is asked at every kKeepGoingEvery-th character and after every URL.
    static void find(std::string_view text, CALLBACK callback, void *data,
                     KEEPGOING keepGoing = nullptr, void *keepGoingData = nullptr);
    // The text to open for a found URL (the kind's first prefix, then the URL's characters
    // of its class) into buffer (always terminated), and the kind's MIME type. False for
    // an unknown kind or a result outside 3 to kMax characters.
    static bool launch(std::string_view text, size_t start, size_t end, TYPE type,
                       const char **mimeType, char *buffer, size_t size);

    // Characters of the kinds without a class of their own.
    static bool charDefault(char c);
    // Characters that may not stand right before a second prefix such as "www.".
    static bool charLeft(char c);

private:
    static bool findGeneric(std::string_view text, size_t at, const INFO &info, size_t &start,
                            size_t &end, bool wrap);
    static bool findEmail(std::string_view text, size_t at, const INFO &info, size_t &start,
                          size_t &end, bool wrap);
    static bool findNNTP(std::string_view text, size_t at, const INFO &info, size_t &start,
                         size_t &end, bool wrap);
    static bool findEnd(std::string_view text, size_t start, size_t body, CHARCLASS charClass,
                        bool wrap, size_t &end);
    static bool startsAt(std::string_view text, size_t at, bool wrap);
    static void delimCheck(std::string_view text, size_t start, size_t &end);
    static const TRIGGER *triggerFor(char c);
};
