// What the transfer queue needs of the transfer progress window, and how it opens one.
#pragma once

#include <cstdint>

#include "base/MESSAGE.h"

// The window as the queue sees it. The queue calls these from the transfer thread and from
// the interface threads that change the queue, always under its own lock, so none of them
// may wait for the interface thread: an implementation posts the change to its window and
// returns. The notification codes ("nala", "nalf", "nalc", "nalu", "nald") arrive through
// MESSAGETARGET::post as plain messages; the window then re-reads the queue with
// NEWS::userCount and NEWS::userGet.
class NEWSPROGRESS : public MESSAGETARGET {
public:
    // The four status lines.
    enum VIEWSTRINGNUM : uint32_t {
        kLineServer = 0,
        kLineAction = 1,
        kLineGroup = 2,
        kLineProgress = 3,
        kLineCount = 4,
    };

    // Adds one error text to the Errors tab and raises its count by one.
    virtual void error(const char *text) = 0;
    virtual void errorClear() = 0;
    // The bar's maximum and value in units; a total of 0 means the bar has completed.
    virtual void progbarSet(double total, double done) = 0;
    virtual void progbarInc(double units) = 0;
    // Status line `line` has new text: read it with NEWS::windowStrGet.
    virtual void progressStr(VIEWSTRINGNUM line) = 0;

    // Opens and closes the window for the queue. open may return null when no window can be
    // had (no display); the queue then drops what it would have shown. close is only given
    // a window this opener returned, and that window is not used again.
    class OPENER {
    public:
        virtual ~OPENER() = default;
        virtual NEWSPROGRESS *open() = 0;
        virtual void close(NEWSPROGRESS *window) = 0;
    };
};
