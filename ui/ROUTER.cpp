// Where a command of the main window goes.
#include "ui/ROUTER.h"

ROUTER::OWNER ROUTER::owner(uint32_t what) {
    // The Edit menu's commands act on the text of the message view.
    for (uint32_t text : {fourcc("Txcp"), fourcc("COPY"), fourcc("SALL"), fourcc("Tr13")})
        if (what == text)
            return kMessage;
    switch (char(what >> 24)) {
    case 'h':
        return kHeaders;
    case 'm':
        return kMessage;
    case 's':
        return kStorage;
    default:
        return kWindow;
    }
}

bool ROUTER::dispatch(const MESSAGE &message) {
    if (++fNesting >= kNestingMax) {
        fNesting = 0;
        return false;
    }
    HANDLER *handler = fHandlers[owner(message.what)];
    if (handler != nullptr)
        handler->MessageReceived(message);
    if (fNesting > 0)
        --fNesting;
    return handler != nullptr;
}
