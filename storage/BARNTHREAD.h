// The storage worker: queued file operations on message files, and the expiry reaper.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>

#include "base/CRITSECT.h"

// One global object, barnThread. Callers queue an operation and return at once; the
// "BarnThread" worker carries out one item per run. The "GrimReaper" erases scratch files
// older than two days and expires old messages, one file every half second, once an hour.
class BARNTHREAD {
public:
    enum FILEOP : int32_t {
        DeleteFile = 1,    // to the Trash; an unread file lowers the unread count
        DeleteNode = 2,    // a whole directory to the Trash; value: pause the reaper first
        DeleteStale = 3,   // erase a file older than the retention time (the reaper's own)
        MarkDownload = 4,  // value: the download-request flag
        MarkRead = 5,      // value: the read flag
        MarkReadMsgID = 6, // every message with the Message-ID in text; value: the read flag
        MessageType = 7,   // value: the message type
    };

    static constexpr size_t kTextMax = 300;
    static constexpr size_t kQueueStep = 50;
    // The Message-ID query marks at most this many files, deliberately bounding the work.
    static constexpr int kQueryMarkMax = 79;
    // Scratch files are erased once they are this old.
    static constexpr int64_t kScratchAge = 172'800'000'000; // 48 hours
    static constexpr int64_t kDay = 86'400'000'000;
    static constexpr const char *kWorkerName = "BarnThread";
    static constexpr const char *kReaperName = "GrimReaper";

    struct ITEM {
        FILEOP op;
        int64_t node;            // -1 when not used
        char text[kTextMax + 1]; // file name, directory path (2) or Message-ID (6); "" = all
        int32_t value;
    };

    // The reaper's waits. The program uses the defaults; a test may shorten them, and
    // moves time itself through the replaceable clocks (TIMEBASE::clockSet): the idle hour
    // is measured by the tick clock, ages by the wall clock.
    struct TIMING {
        int64_t fileSleep = 500'000;  // after each file the reaper looks at
        int64_t loadCheck = 100'000;  // while the storage tree is still loading
        int64_t idle = 3'600'000'000; // between passes, by the tick clock
        int64_t idleStep = 100'000;
        int64_t pauseHold = 3'000'000; // how long a pause keeps the reaper out
        int64_t pauseStep = 50'000;
        int64_t pauseWait = 2'000'000; // reaperPauseSet waits at most this long
    };

    using CHANGEFUNC = void (*)(long long node);

    BARNTHREAD() = default;
    BARNTHREAD(const BARNTHREAD &) = delete;
    BARNTHREAD &operator=(const BARNTHREAD &) = delete;

    // Creates the queue and spawns both threads; they work once the program runs.
    bool start();
    // Drops the queue and every item still in it. The threads end with the program-wide
    // thread stop. Safe without a start.
    void stop();

    // Appends an operation; false when the worker is stopped. Kind 3 is the reaper's own
    // and is refused.
    bool fileOp(FILEOP op, long long node, const char *text, long value);
    // Items waiting.
    size_t queued();

    // One observer, told the node number of every message file whose flags or type the
    // worker changed. A second one is refused; only the same function removes it.
    bool changeCallbackRegister(CHANGEFUNC callback);
    bool changeCallbackUnregister(CHANGEFUNC callback);

    // Whether a message with this Message-ID is stored below "Servers" and is read.
    bool messageIsRead(const char *msgid);
    // Whether a time is older than the retention time (never with DaysToKeepMessages 0).
    bool messageStale(long long datetime);

    // Asks the reaper to step out of its walk and waits (at most TIMING::pauseWait) until it
    // has.
    void reaperPauseSet();
    // The reaper's check point: false when a pause was asked for (after keeping out for
    // TIMING::pauseHold), so that its current walk must stop.
    bool reaperContinue();

    void timingSet(const TIMING &timing);
    TIMING timingGet();
    // Completed reaper passes since start, for tests and the benchmark.
    uint64_t reaperPasses() const { return fPasses.load(); }

private:
    CRITSECT fLock;
    std::deque<ITEM> *fQueue = nullptr;
    CHANGEFUNC fChange = nullptr;
    TIMING fTiming;
    std::atomic<bool> fPause{false};
    std::atomic<uint64_t> fPasses{0};
    char fServers[kTextMax + 1] = {};

    static int32_t _work(void *data);
    static int32_t _reap(void *data);

    bool _take(ITEM *item);
    void _changed(long long node);
    void _apply(const ITEM &item);
    bool _fileApply(const ITEM &item, int64_t node, const char *path);
    void _msgidMark(const char *msgid, bool read);
    bool _inServers(const char *path);

    // The reaper's pass; false when a walk was cut short.
    bool _pass();
    bool _scratchClear();
    bool _expire();
    bool _expireGroup(int64_t group, const char *path);
    void _idle();
    // Sleeps for usecs in short steps; false when the program stops meanwhile.
    bool _sleep(int64_t usecs);
};

extern BARNTHREAD barnThread;
