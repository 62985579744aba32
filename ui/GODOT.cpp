// The main window's delayed commands.
#include "ui/GODOT.h"

#include <algorithm>
#include <cstdint>
#include <new>

#include "base/THREAD.h"
#include "base/TIMEBASE.h"

GODOT godot;

bool GODOT::msgSend(uint32_t code, int64_t delay) {
    CRITSECT_HOLD hold(fLock);
    try {
        fList.push_back({code, TIMEBASE::tickCount() + delay});
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

void GODOT::msgCancel(uint32_t code) {
    CRITSECT_HOLD hold(fLock);
    fList.erase(std::remove_if(fList.begin(), fList.end(),
                               [code](const ENTRY &entry) { return entry.code == code; }),
                fList.end());
}

void GODOT::tick() {
    CRITSECT_HOLD hold(fLock);
    if (fTarget == nullptr)
        return;
    const int64_t now = TIMEBASE::tickCount();
    for (auto entry = fList.begin(); entry != fList.end(); ++entry) {
        if (entry->due <= now) {
            MESSAGE message(entry->code);
            fList.erase(entry);
            fTarget->post(message);
            return;
        }
    }
}

size_t GODOT::waiting() {
    CRITSECT_HOLD hold(fLock);
    return fList.size();
}

void GODOT::targetSet(MESSAGETARGET *target) {
    CRITSECT_HOLD hold(fLock);
    fTarget = target;
}

bool GODOT::start() {
    CRITSECT_HOLD hold(fLock);
    void *generation = reinterpret_cast<void *>(uintptr_t(++fGeneration));
    return THREAD::spawn(_work, kWorkerName, generation, THREAD::kPauseDefault,
                         THREAD::kPriorityNormal) != nullptr;
}

int32_t GODOT::_work(void *data) {
    {
        CRITSECT_HOLD hold(godot.fLock);
        if (uint64_t(reinterpret_cast<uintptr_t>(data)) != godot.fGeneration ||
            godot.fTarget == nullptr)
            return 0;
    }
    godot.tick();
    return THREAD::kAgain;
}
