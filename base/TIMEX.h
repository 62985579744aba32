// A time value that stays right when the system clock is changed while the program runs.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

#include "base/CRITSECT.h"

// Every live TIMEX is on one list. When a read notices that the wall clock jumped against the
// tick clock (more than kDriftMax), every absolute TIMEX with a value is moved by the jump, so
// "now minus start" keeps measuring elapsed time across the change.
class TIMEX {
public:
    enum MODE : uint8_t {
        kAbsolute = 0, // a point in time: follows clock changes
        kRelative = 1, // a duration or a fixed value: never moved
    };
    static constexpr int64_t kCheckInterval = 20'000; // tick usecs between clock checks
    static constexpr int64_t kDriftMax = 70'000;      // smaller drifts are ignored

    explicit TIMEX(int64_t usecs = 0, MODE mode = kAbsolute);
    TIMEX(const TIMEX &other);
    TIMEX &operator=(const TIMEX &other);
    ~TIMEX();

    // Loads an absolute GMT time.
    TIMEX &operator=(int64_t usecs);
    // The value, after a clock check.
    int64_t usecs() const;
    MODE mode() const { return fMode; }

    TIMEX &operator+=(int64_t usecs);
    TIMEX &operator-=(int64_t usecs);
    int64_t operator+(int64_t usecs) const { return this->usecs() + usecs; }
    int64_t operator-(int64_t usecs) const { return this->usecs() - usecs; }
    int64_t operator-(const TIMEX &other) const { return usecs() - other.usecs(); }
    friend int64_t operator-(int64_t usecs, const TIMEX &time) { return usecs - time.usecs(); }

    bool operator==(const TIMEX &other) const { return usecs() == other.usecs(); }
    bool operator==(int64_t usecs) const { return this->usecs() == usecs; }
    std::strong_ordering operator<=>(const TIMEX &other) const { return usecs() <=> other.usecs(); }
    std::strong_ordering operator<=>(int64_t usecs) const { return this->usecs() <=> usecs; }

    // Calendar fields of the value in GMT or local time; 0 for no time or one outside
    // the validity window.
    unsigned year(bool gmt) const;
    unsigned month(bool gmt) const;
    unsigned day(bool gmt) const;
    unsigned weekday(bool gmt) const;
    unsigned hour(bool gmt) const;
    unsigned minute(bool gmt) const;
    unsigned second(bool gmt) const;
    unsigned microsecond(bool gmt) const;

    // Samples the clocks (if kCheckInterval has passed) and moves live values on a jump.
    static void clockCheck();
    // Takes the current clocks as the new reference without moving any value; for a
    // test that has just replaced the clocks.
    static void clockReset();
    // Where "Time changed forward by ..." lines go; null (the default) reports nothing. The
    // report is made after the list's lock is left, on the thread that noticed the change.
    static void reportSet(void (*report)(const char *line));
    // Live TIMEX objects.
    static size_t count();

private:
    // The value and mode as they stand (no clock check).
    void _get(int64_t *value, MODE *mode) const;
    // The clock check itself; hands back the report to make once the lock is left.
    static void _clockCheck(void (**report)(const char *line), std::string *line);
    void _link();
    void _unlink();

    MODE fMode;
    mutable CRITSECT fLock;
    int64_t fValue;
    TIMEX *fNext = nullptr;
};
