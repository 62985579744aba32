// Clock, calendar conversions, name tables and the fixed date and duration texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>

#include "base/BETIME.h"
#include "base/STR.h"

// Every time is int64_t microseconds since 1970-01-01 00:00 UTC ("usecs"). All functions are
// reentrant. Text outputs go into a caller buffer of `size` bytes, always terminated, cut
// silently when too small; the k...Size constants are enough for the whole text.
class TIMEBASE {
public:
    static constexpr int64_t kSecond = 1'000'000;
    static constexpr size_t kDateTextSize = 32;         // "2000/10/03 14:05:09:500000"
    static constexpr size_t kZoneTextSize = 8;          // "-0700", "GMT"
    static constexpr size_t kShortTextSize = 32;        // "Oct 3 2000 2:05PM"
    static constexpr size_t kLengthTextSize = 16;       // "99:59:59"
    static constexpr size_t kRunTextSize = 128;         // "1 day, 1 hour, ..."
    static constexpr size_t kUsecsTextSize = 48;        // "-9223372036854775807 microseconds"
    static constexpr size_t kTextInMax = 100;           // a date text is looked at this far
    static constexpr size_t kTextTrimMax = 43;          // and may then be this long
    static constexpr size_t kTokenMax = 90;             // each token of a duration text
    static constexpr int64_t kTimeSetMin = 200'000'000; // timeSet refuses earlier times

    static const STR::INDEX indexMonth[];
    static const STR::INDEX indexWeekday[];
    static const STR::INDEX indexAMPM[];
    static const STR::INDEX indexUsecs[];
    static constexpr const char *gmtStr = "GMT";
    static constexpr const char *kNoneText = "None"; // the empty time
    static constexpr const char *kPlural = "s";
    static constexpr const char *kSeparator = ", ";

    // --- Clocks ---
    // Wall clock (CLOCK_REALTIME) and tick clock (CLOCK_MONOTONIC, since boot).
    static int64_t timeGet();
    static int64_t tickCount();
    // Sets the wall clock in whole seconds; refuses values below kTimeSetMin. Needs the
    // privilege to set the clock; false when the system refuses.
    static bool timeSet(int64_t usecs);

    // Replaceable clocks, so tests can move time (a clock change, a time-out) at will. A
    // null member keeps the system's clock for that one. clockSet(nullptr) or
    // clockSet(CLOCK{}) restores the system clocks.
    struct CLOCK {
        int64_t (*wall)() = nullptr;
        int64_t (*tick)() = nullptr;
        bool (*wallSet)(int64_t usecs) = nullptr;
    };
    static void clockSet(const CLOCK *clock);

    // --- Time zone ---
    // Local offset east of GMT now, in usecs, and whether daylight saving is in force.
    static int64_t timezone();
    static bool daylight();
    // "GMT" at offset 0, else "+hhmm" / "-hhmm" (for a posted Date header).
    static void timezoneStr(char *buffer, size_t size);
    // The same for a given offset (usecs east of GMT).
    static void timezoneStr(char *buffer, size_t size, int64_t offset);

    // --- Conversions ---
    // Breaks usecs down in GMT or local time. Negative: false, cleared. 0: cleared, true.
    // A result outside the validity window is cleared and false.
    static bool convert(BETIME *out, int64_t usecs, bool isGMT);
    // Back to usecs (*out 0 first). A cleared time gives 0 and true; an invalid one false.
    static bool convert(int64_t *out, const BETIME *time, bool isGMT);
    // Field copies between the platform's broken-down time and BETIME.
    static void convert(BETIME *out, const struct tm *tm);
    static void convert(struct tm *out, const BETIME *time);
    // Plain text form "yyyy/mm/dd hh:mm:ss" (":uuuuuu" with microseconds); "None" for a
    // cleared time; an invalid time writes "None" and fails.
    static bool convert(char *text, size_t size, const BETIME *time, bool withMicroseconds);
    // Parses the plain text form (or "None"); GMT. On failure the result is cleared.
    static bool convert(BETIME *out, const char *text);
    // 32-bit seconds to usecs; the 32-bit ends map to the 64-bit ends.
    static int64_t convert32(int32_t seconds);
    // Whole seconds, any remainder rounded up (towards positive infinity).
    static int64_t seconds(int64_t usecs);

    // --- Names ---
    // "" for numbers outside 1-12 / 0-6.
    static const char *month(int number, bool full);
    static int month(const char *text); // 0 when unknown
    static const char *weekday(int number, bool full);
    static int weekday(const char *text); // -1 when unknown
    // 24-hour to 12-hour: 0 is 12 AM, 12 is 12 PM.
    static unsigned ampm(unsigned hour, bool *isPM);
    static const char *ampm(bool isPM);

    // --- Texts ---
    // Short local date of the header list: "Oct 3 2000 2:05PM"; "None" for no time or one
    // outside the validity window.
    static void timeFormat(char *buffer, size_t size, int64_t usecs);
    // The current local time in the plain text form without microseconds.
    static void timeGetStr(char *buffer, size_t size);
    // "hh:mm:ss" of the absolute value rounded up to whole seconds, capped at 99:59:59.
    static void lengthStr(char *buffer, size_t size, int64_t usecs);
    // A duration in words: "1 day, 1 hour, 1 minute, 1 second", "0 seconds",
    // with microseconds "2.500000 seconds".
    static void runStr(char *buffer, size_t size, int64_t usecs, bool withMicroseconds);
    // A duration as "<n> <unit>" in the largest unit that divides it: "2 hours".
    static void usecs(char *buffer, size_t size, int64_t usecs);
    // Parses "<n>", "<n> <unit>" or "<unit> <n>" (*out 0 first); without a unit, seconds.
    static bool usecs(int64_t *out, const char *text);
};
