// Clock, calendar conversions, name tables and the fixed date and duration texts.
#include "base/TIMEBASE.h"

#include <atomic>
#include <climits>
#include <cstdio>
#include <cstring>
#include <string_view>

const STR::INDEX TIMEBASE::indexMonth[] = {
    {1, "January"},   {1, "Jan"},       {2, "February"}, {2, "Feb"},    {3, "March"},
    {3, "Mar"},       {4, "April"},     {4, "Apr"},      {5, "May"},    {6, "June"},
    {6, "Jun"},       {7, "July"},      {7, "Jul"},      {8, "August"}, {8, "Aug"},
    {9, "September"}, {9, "Sep"},       {10, "October"}, {10, "Oct"},   {11, "November"},
    {11, "Nov"},      {12, "December"}, {12, "Dec"},     {0, nullptr},
};

const STR::INDEX TIMEBASE::indexWeekday[] = {
    {0, "Sunday"}, {0, "Sun"},       {1, "Monday"},   {1, "Mon"},      {2, "Tuesday"},
    {2, "Tue"},    {3, "Wednesday"}, {3, "Wed"},      {4, "Thursday"}, {4, "Thu"},
    {5, "Friday"}, {5, "Fri"},       {6, "Saturday"}, {6, "Sat"},      {0, nullptr},
};

const STR::INDEX TIMEBASE::indexAMPM[] = {{0, "AM"}, {1, "PM"}, {0, nullptr}};

const STR::INDEX TIMEBASE::indexUsecs[] = {
    {604'800'000'000, "week"},
    {604'800'000'000, "weeks"},
    {604'800'000'000, "wk"},
    {604'800'000'000, "wks"},
    {604'800'000'000, "w"},
    {86'400'000'000, "day"},
    {86'400'000'000, "days"},
    {86'400'000'000, "d"},
    {3'600'000'000, "hour"},
    {3'600'000'000, "hours"},
    {3'600'000'000, "hr"},
    {3'600'000'000, "hrs"},
    {3'600'000'000, "h"},
    {60'000'000, "minute"},
    {60'000'000, "minutes"},
    {60'000'000, "min"},
    {60'000'000, "mins"},
    {60'000'000, "m"},
    {1'000'000, "second"},
    {1'000'000, "seconds"},
    {1'000'000, "sec"},
    {1'000'000, "secs"},
    {1'000'000, "s"},
    {1'000, "millisecond"},
    {1'000, "milliseconds"},
    {1'000, "msec"},
    {1'000, "msecs"},
    {1'000, "ms"},
    {1, "microsecond"},
    {1, "microseconds"},
    {1, "usec"},
    {1, "usecs"},
    {1, "us"},
    {0, nullptr},
};

namespace {

std::atomic<int64_t (*)()> gWall{nullptr};
std::atomic<int64_t (*)()> gTick{nullptr};
std::atomic<bool (*)(int64_t)> gWallSet{nullptr};

int64_t clockRead(clockid_t id) {
    struct timespec now {};
    clock_gettime(id, &now);
    return int64_t(now.tv_sec) * TIMEBASE::kSecond + now.tv_nsec / 1000;
}

// Floor division and remainder, so times before 1970 split into a second and a
// non-negative microsecond.
void splitUsecs(int64_t usecs, time_t *seconds, uint32_t *micro) {
    int64_t whole = usecs / TIMEBASE::kSecond;
    int64_t rest = usecs % TIMEBASE::kSecond;
    if (rest < 0) {
        whole--;
        rest += TIMEBASE::kSecond;
    }
    *seconds = time_t(whole);
    *micro = uint32_t(rest);
}

// Breaks a count of seconds down without the negative-time refusal of convert(), for the
// normalising step of the text parser, which accepts 1969.
bool breakDown(BETIME *out, time_t seconds, uint32_t micro, bool isGMT) {
    struct tm tm {};
    if (!(isGMT ? gmtime_r(&seconds, &tm) : localtime_r(&seconds, &tm))) {
        out->clear();
        return false;
    }
    TIMEBASE::convert(out, &tm);
    out->microsecond = micro;
    if (!out->validate()) {
        out->clear();
        return false;
    }
    return true;
}

// Seconds of a valid BETIME taken as GMT or as local time. For local time mktime is tried
// with the recorded daylight flag first and asked to decide only if that flag does not hold
// for the date, so an hour that occurs twice in autumn keeps the half it came from.
bool joinUp(time_t *seconds, const BETIME *time, bool isGMT) {
    struct tm tm {};
    TIMEBASE::convert(&tm, time);
    if (isGMT) {
        *seconds = timegm(&tm);
        return true;
    }
    struct tm first = tm;
    first.tm_isdst = time->daylight ? 1 : 0;
    time_t result = mktime(&first);
    if (first.tm_isdst != (time->daylight ? 1 : 0) || first.tm_hour != tm.tm_hour) {
        struct tm second = tm;
        second.tm_isdst = -1;
        result = mktime(&second);
    }
    *seconds = result;
    return true;
}

// Parses a run of 0..maxDigits digits (empty gives 0); false for anything else.
bool number(std::string_view field, size_t maxDigits, unsigned *value) {
    *value = 0;
    if (field.size() > maxDigits)
        return false;
    for (char c : field) {
        if (c < '0' || c > '9')
            return false;
        *value = *value * 10 + unsigned(c - '0');
    }
    return true;
}

// Splits text at sep into at most max fields; false when there are more.
size_t split(std::string_view text, char sep, std::string_view *fields, size_t max) {
    size_t count = 0;
    while (true) {
        size_t at = text.find(sep);
        if (count == max)
            return max + 1;
        fields[count++] = text.substr(0, at);
        if (at == std::string_view::npos)
            return count;
        text.remove_prefix(at + 1);
    }
}

// Splits at runs of blanks (space or tab); returns the number of tokens, max + 1 when more.
size_t tokens(std::string_view text, std::string_view *out, size_t max) {
    size_t count = 0;
    size_t at = 0;
    while (at < text.size()) {
        while (at < text.size() && (text[at] == ' ' || text[at] == '\t'))
            at++;
        if (at == text.size())
            break;
        size_t end = at;
        while (end < text.size() && text[end] != ' ' && text[end] != '\t')
            end++;
        if (count == max)
            return max + 1;
        out[count++] = text.substr(at, end - at);
        at = end;
    }
    return count;
}

const char *rowName(const STR::INDEX *table, int number, bool full) {
    const char *found = "";
    for (const STR::INDEX *row = table; row->text; row++) {
        if (row->value != number)
            continue;
        if (full)
            return row->text;
        found = row->text; // the last row of a value is its short name
    }
    return found;
}

uint64_t magnitude(int64_t value) {
    return value < 0 ? uint64_t(0) - uint64_t(value) : uint64_t(value);
}

} // namespace

// --- Clocks ---

int64_t TIMEBASE::timeGet() {
    auto hook = gWall.load(std::memory_order_acquire);
    return hook ? hook() : clockRead(CLOCK_REALTIME);
}

int64_t TIMEBASE::tickCount() {
    auto hook = gTick.load(std::memory_order_acquire);
    return hook ? hook() : clockRead(CLOCK_MONOTONIC);
}

bool TIMEBASE::timeSet(int64_t usecs) {
    if (usecs < kTimeSetMin)
        return false;
    int64_t whole = usecs / kSecond * kSecond;
    auto hook = gWallSet.load(std::memory_order_acquire);
    if (hook)
        return hook(whole);
    struct timespec when {};
    when.tv_sec = time_t(whole / kSecond);
    return clock_settime(CLOCK_REALTIME, &when) == 0;
}

void TIMEBASE::clockSet(const CLOCK *clock) {
    CLOCK none;
    if (!clock)
        clock = &none;
    gWall.store(clock->wall, std::memory_order_release);
    gTick.store(clock->tick, std::memory_order_release);
    gWallSet.store(clock->wallSet, std::memory_order_release);
}

// --- Time zone ---

int64_t TIMEBASE::timezone() {
    time_t now = time_t(timeGet() / kSecond);
    struct tm tm {};
    if (!localtime_r(&now, &tm))
        return 0;
    return int64_t(tm.tm_gmtoff / 60) * 60 * kSecond;
}

bool TIMEBASE::daylight() {
    time_t now = time_t(timeGet() / kSecond);
    struct tm tm {};
    return localtime_r(&now, &tm) && tm.tm_isdst > 0;
}

void TIMEBASE::timezoneStr(char *buffer, size_t size, int64_t offset) {
    if (!buffer || size == 0)
        return;
    if (offset == 0) {
        STR::copy(buffer, gmtStr, size);
        return;
    }
    uint64_t minutes = magnitude(offset) / 60'000'000;
    snprintf(buffer, size, "%c%02lu%02lu", offset > 0 ? '+' : '-',
             (unsigned long)(minutes / 60 % 100), (unsigned long)(minutes % 60));
}

void TIMEBASE::timezoneStr(char *buffer, size_t size) {
    timezoneStr(buffer, size, timezone());
}

// --- Conversions ---

bool TIMEBASE::convert(BETIME *out, int64_t usecs, bool isGMT) {
    out->clear();
    if (usecs < 0)
        return false;
    if (usecs == 0)
        return true;
    time_t seconds = 0;
    uint32_t micro = 0;
    splitUsecs(usecs, &seconds, &micro);
    return breakDown(out, seconds, micro, isGMT);
}

bool TIMEBASE::convert(int64_t *out, const BETIME *time, bool isGMT) {
    *out = 0;
    if (time->cleared())
        return true;
    if (!time->validate())
        return false;
    time_t seconds = 0;
    if (!joinUp(&seconds, time, isGMT))
        return false;
    *out = int64_t(seconds) * kSecond + time->microsecond;
    return true;
}

void TIMEBASE::convert(BETIME *out, const struct tm *tm) {
    out->clear();
    // Fields out of their type's range become 0, which validate() refuses, rather than
    // wrapping into a plausible value.
    auto field = [](int value, int max) { return value >= 0 && value <= max ? value : 0; };
    out->hour = uint8_t(field(tm->tm_hour, 255));
    out->minute = uint8_t(field(tm->tm_min, 255));
    out->second = uint8_t(field(tm->tm_sec, 255));
    out->day = uint8_t(field(tm->tm_mday, 255));
    out->month = uint8_t(field(tm->tm_mon + 1, 255));
    long year = long(tm->tm_year) + 1900;
    out->year = uint16_t(year >= 0 && year <= 65535 ? year : 0);
    out->weekday = uint8_t(field(tm->tm_wday, 255));
    out->yearday = uint16_t(field(tm->tm_yday, 65535));
    out->daylight = tm->tm_isdst > 0;
    out->gmtOffset = int64_t(tm->tm_gmtoff) * kSecond;
    STR::copy(out->zone, tm->tm_zone, sizeof out->zone);
}

void TIMEBASE::convert(struct tm *out, const BETIME *time) {
    *out = tm{};
    out->tm_hour = time->hour;
    out->tm_min = time->minute;
    out->tm_sec = time->second;
    out->tm_mday = time->day;
    out->tm_mon = int(time->month) - 1;
    out->tm_year = int(time->year) - 1900;
    out->tm_wday = time->weekday;
    out->tm_yday = time->yearday;
    out->tm_isdst = time->daylight ? 1 : 0;
    out->tm_gmtoff = long(time->gmtOffset / kSecond);
    out->tm_zone = time->zone; // points into *time, which must outlive the struct tm
}

bool TIMEBASE::convert(char *text, size_t size, const BETIME *time, bool withMicroseconds) {
    if (!text || size == 0)
        return false;
    STR::copy(text, kNoneText, size);
    if (time->cleared())
        return true;
    if (!time->validate())
        return false;
    if (withMicroseconds)
        snprintf(text, size, "%04u/%02u/%02u %02u:%02u:%02u:%06lu", time->year, time->month,
                 time->day, time->hour, time->minute, time->second,
                 (unsigned long)time->microsecond);
    else
        snprintf(text, size, "%04u/%02u/%02u %02u:%02u:%02u", time->year, time->month, time->day,
                 time->hour, time->minute, time->second);
    return true;
}

bool TIMEBASE::convert(BETIME *out, const char *text) {
    out->clear();
    if (!text || !*text)
        return false;
    std::string_view whole = STR::trim(std::string_view(text, strnlen(text, kTextInMax)));
    if (whole.size() > kTextTrimMax)
        return false;
    if (STR::iequal(whole, kNoneText))
        return true;
    for (char c : whole) {
        if ((c < '0' || c > '9') && c != ':' && c != '/' && c != ' ')
            return false;
    }
    std::string_view parts[2];
    size_t partCount = tokens(whole, parts, 2);
    if (partCount == 0 || partCount > 2)
        return false;

    std::string_view date[3];
    size_t dateCount = split(parts[0], '/', date, 3);
    if (dateCount > 3 || date[0].size() != 4)
        return false;
    unsigned year = 0, month = 1, day = 1;
    if (!number(date[0], 4, &year))
        return false;
    if (dateCount > 1 && !date[1].empty() && !number(date[1], 2, &month))
        return false;
    if (dateCount > 2 && !date[2].empty() && !number(date[2], 2, &day))
        return false;

    unsigned hour = 0, minute = 0, second = 0, micro = 0;
    if (partCount == 2) {
        std::string_view clock[4];
        size_t clockCount = split(parts[1], ':', clock, 4);
        if (clockCount > 4 || !number(clock[0], 2, &hour))
            return false;
        if (clockCount > 1 && !number(clock[1], 2, &minute))
            return false;
        if (clockCount > 2 && !number(clock[2], 2, &second))
            return false;
        if (clockCount > 3) {
            if (!number(clock[3], 6, &micro))
                return false;
            for (size_t pad = clock[3].size(); pad < 6; pad++)
                micro *= 10; // "5" is half a second
        }
    }
    BETIME parsed;
    parsed.year = uint16_t(year);
    parsed.month = uint8_t(month);
    parsed.day = uint8_t(day);
    parsed.hour = uint8_t(hour);
    parsed.minute = uint8_t(minute);
    parsed.second = uint8_t(second);
    parsed.microsecond = micro;
    if (!parsed.validate())
        return false;
    time_t seconds = 0;
    joinUp(&seconds, &parsed, true);
    return breakDown(out, seconds, micro, true);
}

int64_t TIMEBASE::convert32(int32_t seconds) {
    if (seconds == INT32_MIN)
        return INT64_MIN;
    if (seconds == INT32_MAX)
        return INT64_MAX;
    return int64_t(seconds) * kSecond;
}

int64_t TIMEBASE::seconds(int64_t usecs) {
    int64_t whole = usecs / kSecond;
    if (usecs % kSecond > 0)
        whole++;
    return whole;
}

// --- Names ---

const char *TIMEBASE::month(int number, bool full) {
    return rowName(indexMonth, number, full);
}

int TIMEBASE::month(const char *text) {
    int64_t value = 0;
    return STR::indexValue(indexMonth, text, &value) ? int(value) : 0;
}

const char *TIMEBASE::weekday(int number, bool full) {
    return rowName(indexWeekday, number, full);
}

int TIMEBASE::weekday(const char *text) {
    int64_t value = 0;
    return STR::indexValue(indexWeekday, text, &value) ? int(value) : -1;
}

unsigned TIMEBASE::ampm(unsigned hour, bool *isPM) {
    hour %= 24;
    *isPM = hour >= 12;
    unsigned twelve = hour % 12;
    return twelve == 0 ? 12 : twelve;
}

const char *TIMEBASE::ampm(bool isPM) {
    return STR::indexText(indexAMPM, isPM ? 1 : 0);
}

// --- Texts ---

void TIMEBASE::timeFormat(char *buffer, size_t size, int64_t usecs) {
    if (!buffer || size == 0)
        return;
    BETIME time;
    if (!convert(&time, usecs, false) || time.cleared()) {
        STR::copy(buffer, kNoneText, size);
        return;
    }
    bool isPM = false;
    unsigned hour = ampm(time.hour, &isPM);
    snprintf(buffer, size, "%s %u %04u %u:%02u%s", month(time.month, false), time.day, time.year,
             hour, time.minute, ampm(isPM));
}

void TIMEBASE::timeGetStr(char *buffer, size_t size) {
    BETIME time;
    convert(&time, timeGet(), false);
    convert(buffer, size, &time, false);
}

void TIMEBASE::lengthStr(char *buffer, size_t size, int64_t usecs) {
    if (!buffer || size == 0)
        return;
    uint64_t total = magnitude(usecs);
    uint64_t secs = total / kSecond + (total % kSecond ? 1 : 0);
    constexpr uint64_t kCap = 99 * 3600 + 59 * 60 + 59;
    if (secs > kCap)
        secs = kCap;
    snprintf(buffer, size, "%02u:%02u:%02u", unsigned(secs / 3600), unsigned(secs / 60 % 60),
             unsigned(secs % 60));
}

void TIMEBASE::runStr(char *buffer, size_t size, int64_t usecs, bool withMicroseconds) {
    if (!buffer || size == 0)
        return;
    uint64_t secs = 0, micro = 0;
    if (withMicroseconds) {
        uint64_t total = magnitude(usecs);
        secs = total / kSecond;
        micro = total % kSecond;
    } else {
        secs = magnitude(seconds(usecs));
    }
    unsigned long days = (unsigned long)(secs / 86400);
    unsigned long hours = (unsigned long)(secs / 3600 % 24);
    unsigned long minutes = (unsigned long)(secs / 60 % 60);
    unsigned long rest = (unsigned long)(secs % 60);

    buffer[0] = 0;
    char item[48];
    auto add = [&](const char *text, bool plural) {
        if (buffer[0])
            STR::cat(buffer, kSeparator, size);
        STR::cat(buffer, text, size);
        if (plural)
            STR::cat(buffer, kPlural, size);
    };
    if (days) {
        snprintf(item, sizeof item, "%lu day", days);
        add(item, days != 1);
    }
    if (days || hours) {
        snprintf(item, sizeof item, "%lu hour", hours);
        add(item, hours != 1);
    }
    if (days || hours || minutes) {
        snprintf(item, sizeof item, "%lu minute", minutes);
        add(item, minutes != 1);
    }
    if (withMicroseconds) {
        snprintf(item, sizeof item, "%lu.%06lu second", rest, (unsigned long)micro);
        add(item, rest != 1 || micro != 0);
    } else {
        snprintf(item, sizeof item, "%lu second", rest);
        add(item, rest != 1);
    }
}

void TIMEBASE::usecs(char *buffer, size_t size, int64_t value) {
    if (!buffer || size == 0)
        return;
    if (value == 0) {
        snprintf(buffer, size, "0 %s%s", STR::indexText(indexUsecs, kSecond), kPlural);
        return;
    }
    int64_t previous = 0;
    for (const STR::INDEX *row = indexUsecs; row->text; row++) {
        if (row->value == previous)
            continue; // only the first name of each unit is written
        previous = row->value;
        if (value % row->value != 0)
            continue;
        int64_t count = value / row->value;
        snprintf(buffer, size, "%lld %s%s", (long long)count, row->text,
                 count == 1 || count == -1 ? "" : kPlural);
        return;
    }
}

bool TIMEBASE::usecs(int64_t *out, const char *text) {
    *out = 0;
    if (!text)
        return false;
    std::string_view parts[2];
    size_t count = tokens(std::string_view(text), parts, 2);
    if (count == 0 || count > 2)
        return false;
    bool haveNumber = false, haveUnit = false;
    int64_t amount = 0, unit = kSecond;
    for (size_t i = 0; i < count; i++) {
        std::string_view token = parts[i];
        if (token.size() > kTokenMax)
            return false;
        std::string_view digits = token;
        bool negative = false;
        if (!digits.empty() && (digits.front() == '+' || digits.front() == '-')) {
            negative = digits.front() == '-';
            digits.remove_prefix(1);
        }
        bool isNumber = !digits.empty() && digits.size() <= 19 &&
                        digits.find_first_not_of("0123456789") == std::string_view::npos;
        if (isNumber) {
            if (haveNumber)
                return false;
            uint64_t magnitudeValue = 0;
            for (char c : digits)
                magnitudeValue = magnitudeValue * 10 + uint64_t(c - '0');
            if (magnitudeValue > uint64_t(INT64_MAX) + (negative ? 1 : 0))
                return false;
            amount = negative ? int64_t(0 - magnitudeValue) : int64_t(magnitudeValue);
            haveNumber = true;
        } else {
            if (haveUnit)
                return false;
            const STR::INDEX *row = STR::indexRow(indexUsecs, token);
            if (!row)
                return false;
            unit = row->value;
            haveUnit = true;
        }
    }
    if (!haveNumber)
        return false;
    int64_t result = 0;
    if (__builtin_mul_overflow(amount, unit, &result))
        return false;
    *out = result;
    return true;
}
