// Named background workers that call one function repeatedly while the program runs.
#pragma once

#include <cstdint>
#include <pthread.h>

#include "base/CRITSECT.h"

class THREAD {
public:
    // Worker function: return kAgain to be called again after the pause, anything else to end.
    using FUNCTION = int32_t (*)(void *data);
    static constexpr int32_t kAgain = -1;

    static constexpr size_t kNameMax = 11; // cut deliberately, so "KernelThread" loses its "d"
    static constexpr const char *kDefaultName = "KernelThread";
    static constexpr int64_t kPauseDefault = 20'000; // microseconds between calls
    static constexpr int32_t kPriorityNormal = 10;
    static constexpr int32_t kPriorityLow = 5;
    static constexpr int64_t kHoldSleep = 50'000;    // a held worker looks again after this
    static constexpr int64_t kStopLook = 200;        // stop() looks at the registry this often
    static constexpr int64_t kStopForce = 6'000'000; // then kills the workers still there
    static constexpr size_t kRegistryMax = 256;

    struct INFO {
        void *data = nullptr;
        char name[kNameMax + 1] = {};
        int32_t priority = kPriorityNormal;
        FUNCTION function = nullptr;
        bool inside = false;
        int64_t pause = kPauseDefault;
        pthread_t id{};
        INFO *next = nullptr;
    };

    // Prepares the registry; workers spawned after it wait for state(true).
    static bool start();
    // Starts a worker; returns its record, or nullptr when the registry is full or the
    // platform refuses a thread. The record belongs to the registry.
    static INFO *spawn(FUNCTION function, const char *name, void *data,
                       int64_t pause = kPauseDefault, int32_t priority = kPriorityNormal);
    // Lets workers call their functions (true) or holds them between calls (false).
    static void state(bool run);
    static bool running();
    // Ends one worker by force; clears *record. True when the platform agreed.
    static bool kill(INFO **record);
    // Asks every worker to end and waits; after kStopForce the rest are killed. Safe
    // without a start and safe twice.
    static void stop();
    // Number of workers in the registry.
    static size_t count();

    static CRITSECT critSect;

    // Unlinks and frees a record; used by the worker as its loop ends.
    static void release(INFO *record);

private:
    static void *_loop(void *record);
    static void _remove(INFO *record);
    static bool _contains(INFO *record);
};
