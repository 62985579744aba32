// Where a command of the main window goes: the pane its code names, the window, or nowhere.
#pragma once

#include <cstdint>

#include "base/MESSAGE.h"

// The first character of a command code names its owner: "h" the header list, "m" the
// message view, "s" the storage pane; text-editing commands go to the message view; the
// rest are the window's own. A pane that is not there yet drops its commands quietly.
class ROUTER {
public:
    enum OWNER {
        kWindow = 0,
        kHeaders = 1,
        kMessage = 2,
        kStorage = 3,
        kOwnerCount = 4,
    };
    // Five nested deliveries mean a command that keeps posting itself: that one is dropped
    // and the count starts again, deliberately.
    static constexpr int kNestingMax = 5;

    class HANDLER {
    public:
        virtual ~HANDLER() = default;
        virtual void MessageReceived(const MESSAGE &message) = 0;
    };

    static OWNER owner(uint32_t what);
    // The handler of an owner; null removes it.
    void handlerSet(OWNER owner, HANDLER *handler) { fHandlers[owner] = handler; }
    // Delivers the message to its owner's handler. False when the guard dropped it or its
    // owner has no handler.
    bool dispatch(const MESSAGE &message);
    int nesting() const { return fNesting; }

private:
    HANDLER *fHandlers[kOwnerCount] = {};
    int fNesting = 0;
};
