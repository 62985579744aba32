// The main window's delayed commands: a timer list and the "Godot" worker that posts them.
#pragma once

#include <cstdint>
#include <vector>

#include "base/CRITSECT.h"
#include "base/MESSAGE.h"

// Entries are posted to the target in the order they were added, at most one per worker
// call, once their time has come. Each window starts a worker of its own; a worker whose
// window has gone (or been replaced) ends at its next call.
class GODOT {
public:
    static constexpr const char *kWorkerName = "Godot";

    // Posts code to the target after delay microseconds; false when no memory.
    bool msgSend(uint32_t code, int64_t delay);
    // Removes every waiting entry of the code.
    void msgCancel(uint32_t code);
    // One worker call: posts the first entry in list order whose time has come, if any.
    void tick();
    size_t waiting();

    // Where entries go; null detaches (nothing is posted until a target is set again).
    void targetSet(MESSAGETARGET *target);
    // Spawns a worker for the target now set; an earlier one ends.
    bool start();

private:
    struct ENTRY {
        uint32_t code;
        int64_t due;
    };
    CRITSECT fLock;
    std::vector<ENTRY> fList;
    MESSAGETARGET *fTarget = nullptr;
    uint64_t fGeneration = 0; // of the worker that may post

    static int32_t _work(void *data);
};

extern GODOT godot;
