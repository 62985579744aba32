// A time broken down into calendar fields, with the validity window the date texts use.
#pragma once

#include <cstdint>

struct BETIME {
    static constexpr unsigned kZoneMax = 50;     // characters of the time-zone name
    static constexpr uint16_t kYearFirst = 1969; // the validity window; later years are
    static constexpr uint16_t kYearLast = 2030;  // rejected on purpose, the texts depend on it

    uint8_t hour = 0;         // 0-23
    uint8_t minute = 0;       // 0-59
    uint8_t second = 0;       // 0-59
    uint32_t microsecond = 0; // 0-999999
    uint8_t day = 0;          // 1-31
    uint8_t month = 0;        // 1-12
    uint16_t year = 0;        // full year; 0 with everything else zero means "no time"
    uint8_t weekday = 0;      // 0-6, 0 = Sunday
    uint16_t yearday = 0;     // 0-365
    bool daylight = false;
    int64_t gmtOffset = 0; // east of GMT, microseconds
    char zone[kZoneMax + 1] = {};

    // Back to "no time".
    void clear();
    // True for the all-zero "no time".
    bool cleared() const;
    // Fields inside their ranges and the year inside kYearFirst..kYearLast.
    bool validate() const;
};
