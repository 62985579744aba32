// The "GrimReaper": old scratch files, expiry of old messages, and the pause handshake.
#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "base/DISKFILE.h"
#include "base/THREAD.h"
#include "base/TIMEBASE.h"
#include "message/VMSG.h"
#include "storage/AUTHORFILTER.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"
#include "storage/BARNTHREAD.h"

namespace {
// The longest single sleep, so a stopping program is never kept waiting.
constexpr int64_t kSleepSlice = 50'000;
// The shortest step of a wait loop, so a test's zero step cannot spin.
constexpr int64_t kStepMin = 1'000;

void nap(int64_t usecs) {
    std::this_thread::sleep_for(std::chrono::microseconds(usecs));
}

bool creationTime(const char *path, int64_t *time) {
    *time = 0;
    DISKFILE file;
    return file.open(path, DISKFILE::kRead) == DISKFILE::kSuccess &&
           file.creationTimeGet(time) == DISKFILE::kSuccess;
}
} // namespace

int32_t BARNTHREAD::_reap(void *data) {
    auto *self = static_cast<BARNTHREAD *>(data);
    // A pass cut short (a pause request or a failure) starts over at once.
    while (THREAD::running()) {
        if (self->_pass()) {
            ++self->fPasses;
            self->_idle();
            break;
        }
    }
    return THREAD::kAgain;
}

bool BARNTHREAD::_sleep(int64_t usecs) {
    while (usecs > 0 && THREAD::running()) {
        int64_t slice = std::min(usecs, kSleepSlice);
        nap(slice);
        usecs -= slice;
    }
    return THREAD::running();
}

void BARNTHREAD::reaperPauseSet() {
    TIMING timing = timingGet();
    int64_t step = std::max(timing.pauseStep, kStepMin);
    fPause = true;
    // Counted in steps rather than read from the tick clock, which a test may hold still.
    for (int64_t waited = 0; fPause && waited < timing.pauseWait; waited += step)
        nap(step);
}

bool BARNTHREAD::reaperContinue() {
    if (!fPause.exchange(false))
        return true;
    TIMING timing = timingGet();
    int64_t step = std::max(timing.pauseStep, kStepMin);
    for (int64_t waited = 0; waited < timing.pauseHold && THREAD::running(); waited += step)
        nap(step);
    return false;
}

bool BARNTHREAD::_pass() {
    if (!_scratchClear())
        return false;
    TIMING timing = timingGet();
    while (!barn.final()) {
        if (!_sleep(timing.loadCheck) || !reaperContinue())
            return false;
    }
    if (BARNINFO::messageRetention() == 0)
        return true; // nothing ever expires
    return _expire();
}

bool BARNTHREAD::_scratchClear() {
    char path[BARNINFO::kPathSize];
    BARNINFO::pathTemp(path, sizeof(path));
    TIMING timing = timingGet();
    for (const std::string &file : BARNFILE::entries(path, DISKFILE::kEntryFile, true)) {
        if (!THREAD::running())
            return false;
        int64_t created = 0;
        if (creationTime(file.c_str(), &created) && TIMEBASE::timeGet() - created > kScratchAge) {
            DISKFILE eraser;
            eraser.erase(file.c_str());
        }
        if (!_sleep(timing.fileSleep) || !reaperContinue())
            return false;
    }
    return true;
}

bool BARNTHREAD::_expire() {
    // Servers and their newsgroups in name order; folders, "Outbox", "Drafts" and
    // "Sent Messages" are never expired.
    std::vector<long long> servers;
    BARN::NODE node;
    for (unsigned long i = 0; barn.serverNext(&node, i); ++i)
        servers.push_back(node.number);
    for (long long server : servers) {
        std::vector<BARN::NODE> groups;
        for (unsigned long i = 0; barn.groupNext(server, &node, i); ++i)
            groups.push_back(node);
        for (const BARN::NODE &group : groups) {
            if (!THREAD::running())
                return false;
            if (barn.nodeRead(&node, group.number) && !_expireGroup(node.number, node.path))
                return false;
        }
    }
    return true;
}

bool BARNTHREAD::_expireGroup(int64_t group, const char *path) {
    TIMING timing = timingGet();
    for (const std::string &file : BARNFILE::entries(path, DISKFILE::kEntryFile)) {
        if (!THREAD::running())
            return false;
        VMSG::DATA data;
        int64_t created = 0;
        if (VMSG::fileData(&data, file.c_str()) && creationTime(file.c_str(), &created) &&
            messageStale(created)) {
            // Erased outright, not moved to the Trash: expiry must free the space.
            DISKFILE eraser;
            if (eraser.erase(file.c_str()) == DISKFILE::kSuccess && !data.read &&
                !AUTHORFILTER::killed(data.author.c_str(), data.email.c_str()))
                barn.nodeUnreadCount(group, -1, 1);
        }
        if (!_sleep(timing.fileSleep) || !reaperContinue())
            return false;
    }
    return true;
}

void BARNTHREAD::_idle() {
    TIMING timing = timingGet();
    int64_t begun = TIMEBASE::tickCount();
    while (TIMEBASE::tickCount() - begun < timing.idle) {
        if (!_sleep(std::max(timing.idleStep, kStepMin)))
            return;
        reaperContinue();
    }
}
