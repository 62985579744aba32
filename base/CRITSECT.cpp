// A recursive lock that treats a 30-second wait as a deadlock and ends the program.
#include "base/CRITSECT.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {
constexpr const char kUnknownName[] = "[Unknown]";
}

CRITSECT::CRITSECT() {
    fConstructed = true;
    enter();
    leave();
}

CRITSECT::~CRITSECT() {
    enter();
    leave();
    fConstructed = false;
}

int32_t CRITSECT::enter() {
    if (!fLock.try_lock_for(std::chrono::microseconds(kDeadlockMicros))) {
        // Deliberate: a lock held this long is a deadlock, and a crash tells more than a hang.
        std::fprintf(stderr, "Lock wait exceeded %lld seconds: deadlock, aborting.\n",
                     static_cast<long long>(kDeadlockMicros / 1'000'000));
        std::abort();
    }
    fCount.fetch_add(1, std::memory_order_acq_rel);
    return 0;
}

void CRITSECT::leave() {
    fCount.fetch_sub(1, std::memory_order_acq_rel);
    fLock.unlock();
}

void CRITSECT::nameGet(char *buffer, size_t size) const {
    if (buffer == nullptr || size == 0)
        return;
    std::strncpy(buffer, kUnknownName, size - 1);
    buffer[size - 1] = '\0';
}

bool CRITSECT::nameSet(const char *) {
    return false;
}
