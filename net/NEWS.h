// The transfer request queue and the "NNTP" transfer thread that works through it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "base/CRITSECT.h"
#include "net/NEWSPROGRESS.h"
#include "net/NNTP.h"
#include "net/TRANSFERSUMMARY.h"
#include "storage/BARN.h"

// One global object, news. The interface threads add, remove and reorder requests; the
// transfer thread takes the request at the head, opens (or keeps) a session with its server,
// carries it out and removes it. The queue's lock is never held while a session talks to a
// server, so the interface never waits on the network; the running request is stopped only
// through the cancel flag. Requests are not saved: those queued at shutdown are lost.
class NEWS {
public:
    enum ACTIONTYPE : int32_t {
        kActionNone = 0,
        kCatchup = 1,
        kDownloadMessages = 2, // headers and bodies
        kDownloadHeaders = 3,
        kDownloadBody = 4, // one message
        kDownloadMarked = 5,
        kOverview = 6, // the overview phase of a download: progress only, never queued
        kGroupList = 7,
        kUpload = 8,
    };

    static constexpr size_t kFileNameMax = 300;

    // One queued transfer, copied by value. A cleared one has action 0, both node numbers
    // -1 and an empty file name.
    struct REQUEST {
        ACTIONTYPE action = kActionNone;
        int64_t server = BARN::kNodeNone;
        int64_t group = BARN::kNodeNone; // none for a request about the whole server
        char fileName[kFileNameMax + 1] = {};
    };

    static constexpr const char *kThreadName = "NNTP";
    static constexpr int64_t kThreadPause = 20'000;   // microseconds between daemon calls
    static constexpr int64_t kTextInterval = 500'000; // window texts at most this often
    static constexpr int64_t kStopSleep = 1'000;      // stop's wait for the thread
    static constexpr size_t kQueueGrowth = 100;       // queue room is added in these steps
    static constexpr size_t kGroupListRoom = 2000;    // names expected in a LIST
    static constexpr size_t kStatusMax = 255;         // one status line's text
    static constexpr const char *kDuplicateText = "That action is already in the request queue.";
    static constexpr const char *kUploadDuplicateText =
        "Upload actions for all Outbox messages are already in the request queue.";
    static constexpr const char *kErrorsText =
        "Errors occurred during the transfer.  Check the news transfer window for details.";

    // Progress bar units of an action: all it adds when queued, and what one step adds.
    static double weightQueued(ACTIONTYPE action);
    static double weightStep(ACTIONTYPE action);
    static void requestClear(REQUEST *request);
    // Same action, server, group and file name (case counts).
    static bool requestEqual(const REQUEST &a, const REQUEST &b);

    NEWS() = default;
    NEWS(const NEWS &) = delete;
    NEWS &operator=(const NEWS &) = delete;

    // Creates the queue and spawns the transfer thread (which works once the program runs).
    bool start();
    // Cancels the running request, empties the queue, closes the window, waits for the
    // thread to leave its step and ends the session. Safe without a start.
    void stop();

    // --- Adding requests; each refuses an equal request already queued ---
    // Action 2 or 3 by the group's download mode, or with markedOnly action 5 for a
    // HeadersOnly group; a NoDownload group (or, marked only, any other) adds nothing.
    bool requestGroup(long long server, long long group, bool markedOnly);
    unsigned long requestServer(long long server, bool markedOnly);
    unsigned long requestServerAll(bool markedOnly);
    bool requestCatchupGroup(long long server, long long group);
    unsigned long requestCatchupServer(long long server);
    unsigned long requestCatchupServerAll();
    bool requestServerGroupList(long long server);
    // Only when the server has messages waiting in the Outbox.
    bool requestUpload(long long server);
    unsigned long requestUploadAll();
    bool requestBody(long long server, long long group, const char *fileName);
    // Whether an equal request is queued (the running one included).
    bool requestDupeCheck(ACTIONTYPE action, long long server, long long group,
                          const char *fileName);

    // Called on the transfer thread when the queue has run dry after a run that brought new
    // messages, with what it brought (TRANSFERSUMMARY::text); null removes it.
    using FINISHEDFUNC = void (*)(const char *summary);
    void finishedSet(FINISHEDFUNC finished) { fFinished = finished; }

    // --- The user's control of the queue ---
    unsigned long userCount();
    // out is cleared first; false for an index past the end.
    bool userGet(REQUEST *out, unsigned long index);
    // Index 0 cancels the running request; any other is removed at once.
    bool userDel(unsigned long index);
    bool userDelAll();
    // Nothing moves into or out of the running position 0.
    bool userMoveUp(unsigned long index);
    bool userMoveDown(unsigned long index);

    // --- The progress window ---
    // Who opens the window; null (the default) means no window, so errors are dropped.
    void windowOpenerSet(NEWSPROGRESS::OPENER *opener);
    // The window tells the queue it has closed; it is not used again.
    void windowClosed();
    void windowStrGet(NEWSPROGRESS::VIEWSTRINGNUM line, char *buffer, size_t size);
    void progbarGet(double *total, double *done);
    unsigned long errorCount();

    // The hooks every session is given, and the progress callbacks of its operations.
    static void error(const char *text);
    static bool cancel();
    static void progressTransfer(const NNTP::PROGRESS *progress);
    static void progressList(const NNTP::PROGRESS *progress);

    bool busy() const { return fBusy.load(); }
    // The server the session is connected to, or -1.
    long long serverConnected();

private:
    std::atomic<bool> fCancel{false};
    CRITSECT fLock;
    std::vector<REQUEST> *fQueue = nullptr;
    NEWSPROGRESS *fWindow = nullptr; // the open window, set by the opener's queued call
    bool fWindowWanted = false;      // the window is open or on its way
    NNTP *fSession = nullptr;
    unsigned long fErrors = 0;
    TRANSFERSUMMARY fSummary; // of the run under way; the transfer thread's alone
    std::atomic<FINISHEDFUNC> fFinished{nullptr};
    std::atomic<bool> fBusy{false};
    bool fStarted = false;

    NEWSPROGRESS::OPENER *fOpener = nullptr;
    std::atomic<bool> fCancelSeen{false};
    std::atomic<uint64_t> fGeneration{0}; // one per start; an older thread ends itself
    long long fServer = BARN::kNodeNone;  // of the session
    int64_t fEmptyTime = 0;               // when the queue last ran dry without errors
    double fTotal = 0;                    // progress bar units
    double fDone = 0;
    double fRequestWeight = 0; // the running request's units, and what its steps added
    double fRequestUnits = 0;
    uint32_t fLastDone = 0; // of the previous progress report
    int64_t fLastText = 0;  // tick of the last window text
    char fStatus[NEWSPROGRESS::kLineCount][kStatusMax + 1] = {};

    static int32_t _thread(void *data);
    void daemon();
    bool execute(const REQUEST &request, BARN::NODE *server, BARN::NODE *group);
    bool serverConnect(const BARN::NODE *server);
    void serverDisconnect();
    void windowStr(NEWSPROGRESS::VIEWSTRINGNUM line, const char *format, ...)
        __attribute__((format(printf, 3, 4)));

    // Helpers whose names end in "Locked" expect fLock to be held.
    bool _addLocked(const REQUEST &request);
    bool _findLocked(const REQUEST &request);
    void _removeLocked(size_t index);
    // Removes every queued request of the server except the one at index 0.
    bool _dropServerLocked(long long server);
    void _postLocked(const char (&code)[5]);

    // Calls out of the queue (window, opener, alerts), made once its lock is left.
    struct CALLOUT {
        explicit CALLOUT(NEWS *news) : fNews(news) { ++tDepth; }
        ~CALLOUT();
        CALLOUT(const CALLOUT &) = delete;
        CALLOUT &operator=(const CALLOUT &) = delete;
        NEWS *fNews;
        static thread_local int tDepth;
    };
    std::atomic<bool> fCalling{false};         // a thread is running the calls
    std::vector<std::function<void()>> fCalls; // under fLock
    void _callLocked(std::function<void()> call);
    // A call to the window, made only if a window is open by the time it runs.
    void _windowCallLocked(std::function<void(NEWSPROGRESS *)> call);
    void _callsRun();
    void _windowOpenLocked();
    void _windowCloseLocked();
    void _progbarStepLocked(double units);
    void _progress(const NNTP::PROGRESS *progress);
    bool _add(ACTIONTYPE action, long long server, long long group, const char *fileName);
};

extern NEWS news;
