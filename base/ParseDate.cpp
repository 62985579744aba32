// Reads the Date header forms found in real Usenet articles.
#include "base/ParseDate.h"

#include <cstring>

#include "base/STR.h"
#include "base/TIMEBASE.h"

namespace {

constexpr size_t kTextMax = 1000; // a header line; anything longer is not a date
constexpr size_t kTokensMax = 32; // a real date has about ten
constexpr size_t kDigitsMax = 9;  // keeps every number inside 32 bits
constexpr int64_t kFailed = -1;

// Offsets in minutes east of GMT. The single letters are the military zones read the way the
// military reads them (A is one hour east); the old mail standard had their signs reversed,
// and the current one no longer relies on either, so we take the common meaning. "T" is left
// out on purpose: it is the date-time separator of "2000-10-03T14:05:09Z".
struct ZONE {
    const char *name;
    int minutes;
};
constexpr ZONE kZones[] = {
    {"UT", 0},     {"UTC", 0},    {"GMT", 0},     {"Z", 0},       {"WET", 0},    {"BST", 60},
    {"CET", 60},   {"MET", 60},   {"MEZ", 60},    {"WEST", 60},   {"CEST", 120}, {"MEST", 120},
    {"MESZ", 120}, {"EET", 120},  {"EEST", 180},  {"MSK", 180},   {"HKT", 480},  {"SGT", 480},
    {"AWST", 480}, {"JST", 540},  {"KST", 540},   {"ACST", 570},  {"AEST", 600}, {"AEDT", 660},
    {"NZST", 720}, {"NZDT", 780}, {"NDT", -150},  {"NST", -210},  {"ADT", -180}, {"AST", -240},
    {"EDT", -240}, {"EST", -300}, {"CDT", -300},  {"CST", -360},  {"MDT", -360}, {"MST", -420},
    {"PDT", -420}, {"PST", -480}, {"AKDT", -480}, {"AKST", -540}, {"HST", -600}, {"A", 60},
    {"B", 120},    {"C", 180},    {"D", 240},     {"E", 300},     {"F", 360},    {"G", 420},
    {"H", 480},    {"I", 540},    {"K", 600},     {"L", 660},     {"M", 720},    {"N", -60},
    {"O", -120},   {"P", -180},   {"Q", -240},    {"R", -300},    {"S", -360},   {"U", -480},
    {"V", -540},   {"W", -600},   {"X", -660},    {"Y", -720},
};

enum KIND { kWord, kNumber, kTime, kOffset, kSeparator };

struct TOKEN {
    KIND kind;
    std::string_view text; // kWord
    char separator;        // kSeparator: '-', '/' or '.'
    int value;             // kNumber; kOffset in minutes
    int digits;            // kNumber
    int hour, minute, second;
};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Reads a run of digits at text[*at]; false when it is too long to be part of a date.
bool digitRun(std::string_view text, size_t *at, int *value, int *digits) {
    *value = 0;
    *digits = 0;
    while (*at < text.size() && isDigit(text[*at])) {
        if (++*digits > int(kDigitsMax))
            return false;
        *value = *value * 10 + (text[*at] - '0');
        ++*at;
    }
    return true;
}

const ZONE *zoneFind(std::string_view word) {
    for (const ZONE &zone : kZones) {
        if (STR::iequal(zone.name, word))
            return &zone;
    }
    return nullptr;
}

// A month or weekday name: the table's names, or a longer abbreviation of the full name
// ("Sept", "Thurs").
int nameFind(const STR::INDEX *table, std::string_view word) {
    if (const STR::INDEX *row = STR::indexRow(table, word))
        return int(row->value);
    if (word.size() < 3)
        return -1;
    for (const STR::INDEX *row = table; row->text; row++) {
        if (STR::istarts(row->text, word))
            return int(row->value);
    }
    return -1;
}

// Splits the text into words, numbers, times, zone offsets and date separators, dropping
// comments in parentheses (nested, with backslash escapes) and other punctuation.
bool tokenize(std::string_view text, TOKEN *tokens, size_t *count) {
    *count = 0;
    size_t at = 0;
    int depth = 0;
    bool blankBefore = true;
    auto push = [&](const TOKEN &token) {
        if (*count == kTokensMax)
            return false;
        tokens[(*count)++] = token;
        blankBefore = false;
        return true;
    };
    while (at < text.size()) {
        char c = text[at];
        if (depth > 0) {
            if (c == '\\')
                at++;
            else if (c == '(')
                depth++;
            else if (c == ')')
                depth--;
            at++;
            blankBefore = true;
            continue;
        }
        if (c == '(') {
            depth = 1;
            at++;
            continue;
        }
        if (isLetter(c)) {
            size_t start = at;
            while (at < text.size() && isLetter(text[at]))
                at++;
            if (!push(TOKEN{kWord, text.substr(start, at - start), 0, 0, 0, 0, 0, 0}))
                return false;
            continue;
        }
        if (isDigit(c)) {
            TOKEN token{kNumber, {}, 0, 0, 0, 0, 0, 0};
            if (!digitRun(text, &at, &token.value, &token.digits))
                return false;
            if (at + 1 < text.size() && text[at] == ':' && isDigit(text[at + 1])) {
                token.kind = kTime;
                token.hour = token.value;
                at++;
                int digits = 0;
                if (!digitRun(text, &at, &token.minute, &digits) || digits > 2)
                    return false;
                if (at + 1 < text.size() && text[at] == ':' && isDigit(text[at + 1])) {
                    at++;
                    if (!digitRun(text, &at, &token.second, &digits) || digits > 2)
                        return false;
                    // Fractions of a second ("09.25") are read and dropped.
                    if (at + 1 < text.size() && text[at] == '.' && isDigit(text[at + 1])) {
                        at++;
                        int fraction = 0;
                        if (!digitRun(text, &at, &fraction, &digits))
                            return false;
                    }
                }
                if (token.digits > 2)
                    return false;
            }
            if (!push(token))
                return false;
            continue;
        }
        if ((c == '+' || c == '-') && at + 1 < text.size() && isDigit(text[at + 1])) {
            // A sign starts a zone offset after a blank, a time or "GMT"; a minus between
            // date fields ("03-Oct-00", "2000-10-03") is a separator.
            const TOKEN *last = *count ? &tokens[*count - 1] : nullptr;
            bool offset = c == '+' || blankBefore || (last && last->kind == kTime) ||
                          (last && last->kind == kWord && zoneFind(last->text));
            if (offset) {
                at++;
                int value = 0, digits = 0;
                if (!digitRun(text, &at, &value, &digits) || digits > 4)
                    return false;
                int hours = digits <= 2 ? value : value / 100;
                int minutes = digits <= 2 ? 0 : value % 100;
                if (digits <= 2 && at + 1 < text.size() && text[at] == ':' &&
                    isDigit(text[at + 1])) {
                    at++;
                    if (!digitRun(text, &at, &minutes, &digits) || digits != 2)
                        return false;
                }
                if (hours > 24 || minutes > 59)
                    return false;
                int total = hours * 60 + minutes;
                if (!push(TOKEN{kOffset, {}, 0, c == '-' ? -total : total, 0, 0, 0, 0}))
                    return false;
                continue;
            }
        }
        if (c == '-' || c == '/' || c == '.') {
            if (!push(TOKEN{kSeparator, {}, c, 0, 0, 0, 0, 0}))
                return false;
            at++;
            continue;
        }
        at++; // blanks, commas and anything else only separate
        blankBefore = true;
    }
    return true;
}

struct FIELDS {
    int year = -1, month = -1, day = -1;
    int yearDigits = 0;
    bool haveTime = false;
    int hour = 0, minute = 0, second = 0;
    bool haveOffset = false, haveZoneName = false, summer = false;
    int offset = 0;
    int meridian = -1; // 0 AM, 1 PM
};

bool setOnce(int *field, int value) {
    if (*field != -1)
        return false;
    *field = value;
    return true;
}

// An all-numeric date: "2000-10-03", "2000/10/03", "10/03/2000" (month first, as written in
// the United States) or "03.10.2000" and "03-10-2000" (day first).
bool numericDate(const TOKEN *t, FIELDS *fields) {
    char sep = t[1].separator;
    int a = t[0].value, b = t[2].value, c = t[4].value;
    if (t[0].digits == 4) {
        fields->yearDigits = 4;
        return setOnce(&fields->year, a) && setOnce(&fields->month, b) && setOnce(&fields->day, c);
    }
    fields->yearDigits = t[4].digits;
    if (sep == '/')
        return setOnce(&fields->month, a) && setOnce(&fields->day, b) && setOnce(&fields->year, c);
    return setOnce(&fields->day, a) && setOnce(&fields->month, b) && setOnce(&fields->year, c);
}

bool isNumericDate(const TOKEN *t, size_t left) {
    return left >= 5 && t[0].kind == kNumber && t[1].kind == kSeparator && t[2].kind == kNumber &&
           t[3].kind == kSeparator && t[4].kind == kNumber && t[1].separator == t[3].separator &&
           t[1].separator != '.';
}

bool isDottedDate(const TOKEN *t, size_t left) {
    return left >= 5 && t[0].kind == kNumber && t[1].kind == kSeparator && t[2].kind == kNumber &&
           t[3].kind == kSeparator && t[4].kind == kNumber && t[1].separator == '.' &&
           t[3].separator == '.';
}

bool wordField(std::string_view word, FIELDS *fields) {
    int month = nameFind(TIMEBASE::indexMonth, word);
    if (month > 0)
        return setOnce(&fields->month, month);
    if (nameFind(TIMEBASE::indexWeekday, word) >= 0)
        return true; // the weekday says nothing the date does not, and is often wrong
    if (STR::iequal(word, "AM") || STR::iequal(word, "PM")) {
        if (fields->meridian != -1)
            return false;
        fields->meridian = STR::iequal(word, "PM") ? 1 : 0;
        return true;
    }
    if (STR::iequal(word, "DST")) {
        // "MET DST", as old news software wrote it: the named zone's summer time, an hour
        // ahead. A numeric offset already says it all.
        if (fields->haveZoneName && !fields->haveOffset && !fields->summer)
            fields->offset += 60;
        fields->summer = true;
        return true;
    }
    if (const ZONE *zone = zoneFind(word)) {
        // "-0700 PDT" and "GMT+0200": a number given beside the name wins.
        if (!fields->haveOffset && !fields->haveZoneName) {
            fields->offset = zone->minutes;
            fields->haveZoneName = true;
        }
        return true;
    }
    return true; // unknown words ("Standard", "Time", an unknown zone) are passed over
}

bool numberField(const TOKEN &token, FIELDS *fields) {
    if (token.digits >= 3 || token.value > 31) {
        fields->yearDigits = token.digits;
        return setOnce(&fields->year, token.value);
    }
    if (fields->day == -1)
        return setOnce(&fields->day, token.value);
    fields->yearDigits = token.digits;
    return setOnce(&fields->year, token.value);
}

bool collect(const TOKEN *tokens, size_t count, FIELDS *fields) {
    for (size_t i = 0; i < count; i++) {
        const TOKEN &token = tokens[i];
        if (isNumericDate(tokens + i, count - i) || isDottedDate(tokens + i, count - i)) {
            if (!numericDate(tokens + i, fields))
                return false;
            i += 4;
            continue;
        }
        switch (token.kind) {
        case kWord:
            if (!wordField(token.text, fields))
                return false;
            break;
        case kNumber:
            if (!numberField(token, fields))
                return false;
            break;
        case kTime:
            if (fields->haveTime)
                return false;
            fields->haveTime = true;
            fields->hour = token.hour;
            fields->minute = token.minute;
            fields->second = token.second;
            break;
        case kOffset:
            if (fields->haveOffset)
                return false;
            fields->haveOffset = true;
            fields->offset = token.value;
            break;
        case kSeparator:
            break;
        }
    }
    return true;
}

bool leapYear(int64_t year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Days from 1970-01-01 to a date of the proleptic Gregorian calendar.
int64_t daysFromCivil(int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const unsigned yoe = unsigned(year - era * 400);
    const unsigned doy = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + int64_t(doe) - 719468;
}

} // namespace

int64_t parsedate(std::string_view text) {
    if (text.empty() || text.size() > kTextMax)
        return kFailed;
    TOKEN tokens[kTokensMax];
    size_t count = 0;
    FIELDS fields;
    if (!tokenize(text, tokens, &count) || !collect(tokens, count, &fields))
        return kFailed;
    if (fields.year < 0 || fields.month < 1 || fields.month > 12 || fields.day < 1)
        return kFailed;

    int64_t year = fields.year;
    if (fields.yearDigits <= 2)
        year += year < 50 ? 2000 : 1900; // two-digit years: 00-49 this century, 50-99 the last
    else if (fields.yearDigits == 3)
        year += 1900; // a broken program's "years since 1900"
    static const unsigned kMonthDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    unsigned monthDays = kMonthDays[fields.month - 1] + (fields.month == 2 && leapYear(year));
    if (unsigned(fields.day) > monthDays || year > 9999)
        return kFailed;

    int hour = fields.hour;
    if (fields.meridian != -1) {
        if (hour < 1 || hour > 12)
            return kFailed;
        hour = hour % 12 + (fields.meridian == 1 ? 12 : 0);
    }
    // Second 60 is a leap second; it is counted as the first second of the next minute.
    if (hour > 23 || fields.minute > 59 || fields.second > 60)
        return kFailed;

    int64_t days = daysFromCivil(year, unsigned(fields.month), unsigned(fields.day));
    return days * 86400 + hour * 3600 + fields.minute * 60 + fields.second -
           int64_t(fields.offset) * 60;
}

int64_t parsedate(const char *text) {
    if (!text)
        return kFailed;
    return parsedate(std::string_view(text, strnlen(text, kTextMax + 1)));
}
