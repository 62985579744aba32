// A time value that stays right when the system clock is changed while the program runs.
#include "base/TIMEX.h"

#include <string>

#include "base/BETIME.h"
#include "base/TIMEBASE.h"
#include "base/TextFormat.h"

namespace {

// Process-wide: the live list and the clock reference. Reached through a function so that a
// TIMEX built during static initialisation finds it constructed (and it outlives them).
struct SHARED {
    CRITSECT lock;
    TIMEX *head = nullptr;
    size_t count = 0;
    bool started = false;
    int64_t startWall = 0;
    int64_t startTick = 0;
    int64_t checkTick = 0;
    void (*report)(const char *line) = nullptr;

    void reset() {
        startWall = TIMEBASE::timeGet();
        startTick = TIMEBASE::tickCount();
        checkTick = startTick;
        started = true;
    }
};

SHARED &shared() {
    static SHARED state;
    return state;
}

} // namespace

TIMEX::TIMEX(int64_t usecs, MODE mode) : fMode(mode), fValue(usecs) {
    _link();
}

// The copy is read and joins the list under the list's lock: a clock change applied between
// the two would shift the original but not the copy.
TIMEX::TIMEX(const TIMEX &other) : fMode(kAbsolute), fValue(0) {
    clockCheck();
    CRITSECT_HOLD hold(shared().lock);
    other._get(&fValue, &fMode);
    _link();
}

TIMEX &TIMEX::operator=(const TIMEX &other) {
    if (this == &other)
        return *this;
    clockCheck();
    // Under the list's lock for the same reason: a change between reading other and storing
    // the value here would leave this one behind.
    CRITSECT_HOLD hold(shared().lock);
    int64_t value = 0;
    MODE mode = kAbsolute;
    other._get(&value, &mode);
    CRITSECT_HOLD own(fLock);
    fValue = value;
    fMode = mode;
    return *this;
}

void TIMEX::_get(int64_t *value, MODE *mode) const {
    CRITSECT_HOLD hold(fLock);
    *value = fValue;
    *mode = fMode;
}

TIMEX::~TIMEX() {
    _unlink();
}

void TIMEX::_link() {
    SHARED &state = shared();
    CRITSECT_HOLD hold(state.lock);
    if (!state.started)
        state.reset();
    fNext = state.head;
    state.head = this;
    state.count++;
}

void TIMEX::_unlink() {
    SHARED &state = shared();
    CRITSECT_HOLD hold(state.lock);
    for (TIMEX **link = &state.head; *link; link = &(*link)->fNext) {
        if (*link == this) {
            *link = fNext;
            state.count--;
            break;
        }
    }
    fNext = nullptr;
}

TIMEX &TIMEX::operator=(int64_t usecs) {
    CRITSECT_HOLD hold(fLock);
    fValue = usecs;
    fMode = kAbsolute;
    return *this;
}

int64_t TIMEX::usecs() const {
    clockCheck();
    CRITSECT_HOLD hold(fLock);
    return fValue;
}

TIMEX &TIMEX::operator+=(int64_t usecs) {
    clockCheck();
    CRITSECT_HOLD hold(fLock);
    fValue += usecs;
    return *this;
}

TIMEX &TIMEX::operator-=(int64_t usecs) {
    clockCheck();
    CRITSECT_HOLD hold(fLock);
    fValue -= usecs;
    return *this;
}

void TIMEX::clockCheck() {
    void (*report)(const char *line) = nullptr;
    std::string line;
    _clockCheck(&report, &line);
    // Reported after the lock is left: the log behind it takes locks of its own, which a
    // thread reading a TIMEX may already hold.
    if (report)
        report(line.c_str());
}

void TIMEX::_clockCheck(void (**report)(const char *line), std::string *line) {
    SHARED &state = shared();
    CRITSECT_HOLD hold(state.lock);
    if (!state.started)
        return;
    int64_t tick = TIMEBASE::tickCount();
    if (tick - state.checkTick < kCheckInterval)
        return;
    state.checkTick = tick;
    int64_t wall = TIMEBASE::timeGet();
    int64_t drift = (tick - state.startTick) - (wall - state.startWall);
    if (drift >= -kDriftMax && drift <= kDriftMax)
        return;
    // The wall clock moved against the tick clock: a negative drift means it was put
    // forward. Moving the reference and every point in time by the same amount keeps
    // "now minus then" equal to the time that really passed.
    state.startWall -= drift;
    for (TIMEX *time = state.head; time; time = time->fNext) {
        CRITSECT_HOLD object(time->fLock);
        if (time->fMode == kAbsolute && time->fValue != 0)
            time->fValue -= drift;
    }
    *report = state.report;
    if (!*report)
        return;
    char words[TIMEBASE::kRunTextSize];
    TIMEBASE::runStr(words, sizeof words, drift, true);
    *line = textFormat("Time changed %s by %s", drift < 0 ? "forward" : "backward", words);
}

void TIMEX::clockReset() {
    SHARED &state = shared();
    CRITSECT_HOLD hold(state.lock);
    state.reset();
}

void TIMEX::reportSet(void (*report)(const char *line)) {
    SHARED &state = shared();
    CRITSECT_HOLD hold(state.lock);
    state.report = report;
}

size_t TIMEX::count() {
    SHARED &state = shared();
    CRITSECT_HOLD hold(state.lock);
    return state.count;
}

namespace {

// The broken-down value, or a cleared one when it has no calendar form.
BETIME brokenDown(int64_t usecs, bool gmt) {
    BETIME time;
    TIMEBASE::convert(&time, usecs, gmt);
    return time;
}

} // namespace

unsigned TIMEX::year(bool gmt) const {
    return brokenDown(usecs(), gmt).year;
}

unsigned TIMEX::month(bool gmt) const {
    return brokenDown(usecs(), gmt).month;
}

unsigned TIMEX::day(bool gmt) const {
    return brokenDown(usecs(), gmt).day;
}

unsigned TIMEX::weekday(bool gmt) const {
    return brokenDown(usecs(), gmt).weekday;
}

unsigned TIMEX::hour(bool gmt) const {
    return brokenDown(usecs(), gmt).hour;
}

unsigned TIMEX::minute(bool gmt) const {
    return brokenDown(usecs(), gmt).minute;
}

unsigned TIMEX::second(bool gmt) const {
    return brokenDown(usecs(), gmt).second;
}

unsigned TIMEX::microsecond(bool gmt) const {
    return brokenDown(usecs(), gmt).microsecond;
}
