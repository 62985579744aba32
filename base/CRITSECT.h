// A recursive lock that treats a 30-second wait as a deadlock and ends the program.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <thread>

class CRITSECT {
public:
    // A lock wait this long means two threads hold each other's locks; the program aborts
    // rather than hanging with the interface frozen.
    static constexpr int64_t kDeadlockMicros = 30'000'000;

    CRITSECT();
    ~CRITSECT();
    CRITSECT(const CRITSECT &) = delete;
    CRITSECT &operator=(const CRITSECT &) = delete;

    // Takes one level of the lock; returns 0. Aborts the process after kDeadlockMicros.
    int32_t enter();
    // Releases one level taken by enter() on this thread.
    void leave();
    // Number of levels held by the owning thread, 0 when free.
    int32_t entered() const { return fCount.load(std::memory_order_acquire); }

    // Locks carry no names; kept so callers can ask.
    void nameGet(char *buffer, size_t size) const;
    bool nameSet(const char *name);

private:
    std::atomic<bool> fConstructed{false};
    std::recursive_timed_mutex fLock;
    std::atomic<int32_t> fCount{0};
};

// Holds a CRITSECT for the life of a scope.
class CRITSECT_HOLD {
public:
    explicit CRITSECT_HOLD(CRITSECT &lock) : fLock(lock) { fLock.enter(); }
    ~CRITSECT_HOLD() { fLock.leave(); }
    CRITSECT_HOLD(const CRITSECT_HOLD &) = delete;
    CRITSECT_HOLD &operator=(const CRITSECT_HOLD &) = delete;

private:
    CRITSECT &fLock;
};
