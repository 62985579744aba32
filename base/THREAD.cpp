// Named background workers that call one function repeatedly while the program runs.
#include "base/THREAD.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>

CRITSECT THREAD::critSect;

namespace {
THREAD::INFO *gRegistry = nullptr;
size_t gRegistryCount = 0;
std::atomic<bool> gQuit{false};
std::atomic<bool> gRun{false};
std::atomic<bool> gStarted{false};

void sleepMicros(int64_t micros) {
    std::this_thread::sleep_for(std::chrono::microseconds(micros));
}

int64_t monotonicMicros() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Priority 10 is normal scheduling; each step below it is one step of niceness.
void applyPriority(int32_t priority) {
    if (priority >= THREAD::kPriorityNormal)
        return;
    int nice = THREAD::kPriorityNormal - priority;
    if (nice > 19)
        nice = 19;
    setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), nice);
}

void setCancellable(bool on) {
    int old;
    pthread_setcancelstate(on ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE, &old);
}
} // namespace

bool THREAD::start() {
    CRITSECT_HOLD hold(critSect);
    gQuit = false;
    gRun = false;
    gStarted = true;
    return true;
}

THREAD::INFO *THREAD::spawn(FUNCTION function, const char *name, void *data, int64_t pause,
                            int32_t priority) {
    if (function == nullptr)
        return nullptr;
    auto *record = new INFO;
    record->data = data;
    record->function = function;
    record->pause = pause;
    record->priority = priority;
    const char *useName = (name == nullptr || *name == '\0') ? kDefaultName : name;
    size_t length = strnlen(useName, kNameMax);
    std::memcpy(record->name, useName, length);
    record->name[length] = '\0';

    CRITSECT_HOLD hold(critSect);
    if (gRegistryCount >= kRegistryMax) {
        delete record;
        return nullptr;
    }
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    // The record is linked before the thread runs, so the worker always finds itself there.
    record->next = gRegistry;
    gRegistry = record;
    ++gRegistryCount;
    int rc = pthread_create(&record->id, &attr, &THREAD::_loop, record);
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        _remove(record);
        delete record;
        return nullptr;
    }
    pthread_setname_np(record->id, record->name);
    return record;
}

void THREAD::state(bool run) {
    CRITSECT_HOLD hold(critSect);
    gRun = run;
}

bool THREAD::running() {
    return gRun.load();
}

size_t THREAD::count() {
    CRITSECT_HOLD hold(critSect);
    return gRegistryCount;
}

bool THREAD::_contains(INFO *record) {
    for (INFO *walk = gRegistry; walk != nullptr; walk = walk->next)
        if (walk == record)
            return true;
    return false;
}

// Unlinks a record; the caller holds critSect.
void THREAD::_remove(INFO *record) {
    for (INFO **link = &gRegistry; *link != nullptr; link = &(*link)->next) {
        if (*link == record) {
            *link = record->next;
            --gRegistryCount;
            return;
        }
    }
}

bool THREAD::kill(INFO **record) {
    if (record == nullptr || *record == nullptr)
        return false;
    INFO *target = *record;
    *record = nullptr;
    CRITSECT_HOLD hold(critSect);
    if (!_contains(target))
        return false;
    // The worker frees its own record as its cancellation unwinds (see RECORDOWNER), so a
    // worker caught between two calls never reads a freed record.
    _remove(target);
    return pthread_cancel(target->id) == 0;
}

void THREAD::stop() {
    int64_t begun = monotonicMicros();
    for (;;) {
        gQuit = true;
        {
            CRITSECT_HOLD hold(critSect);
            gRun = false;
            if (gRegistryCount == 0) {
                gStarted = false;
                return;
            }
        }
        if (monotonicMicros() - begun >= kStopForce)
            break;
        sleepMicros(kStopLook);
    }
    for (;;) {
        INFO *victim;
        {
            CRITSECT_HOLD hold(critSect);
            victim = gRegistry;
        }
        if (victim == nullptr)
            break;
        kill(&victim);
    }
    CRITSECT_HOLD hold(critSect);
    gRun = false;
    gStarted = false;
}

namespace {
// Frees a worker's record when its loop ends, by return or by cancellation.
class RECORDOWNER {
public:
    explicit RECORDOWNER(THREAD::INFO *record) : fRecord(record) {}
    ~RECORDOWNER() { THREAD::release(fRecord); }
    RECORDOWNER(const RECORDOWNER &) = delete;
    RECORDOWNER &operator=(const RECORDOWNER &) = delete;

private:
    THREAD::INFO *fRecord;
};
} // namespace

void THREAD::release(INFO *record) {
    CRITSECT_HOLD hold(critSect);
    _remove(record);
    delete record;
}

void *THREAD::_loop(void *data) {
    auto *record = static_cast<INFO *>(data);
    RECORDOWNER owner(record);
    setCancellable(false);
    applyPriority(record->priority);
    while (!gQuit) {
        if (!gRun) {
            setCancellable(true);
            sleepMicros(kHoldSleep);
            setCancellable(false);
            continue;
        }
        record->inside = true;
        setCancellable(true);
        int32_t status = record->function(record->data);
        setCancellable(false);
        record->inside = false;
        if (status != kAgain)
            break;
        if (record->pause != 0) {
            setCancellable(true);
            sleepMicros(record->pause);
            setCancellable(false);
        }
    }
    return nullptr;
}
