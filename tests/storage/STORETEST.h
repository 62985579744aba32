// A fresh data directory with a started storage tree for each test, and message-file helpers.
#pragma once

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <time.h>

#include "app/SETTINGS.h"
#include "base/DISKFILE.h"
#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "base/TIMEBASE.h"
#include "message/VMSG.h"
#include "storage/BARN.h"
#include "storage/BARNTHREAD.h"
#include "tests/support/TestHome.h"

namespace storetest {
using namespace std::chrono_literals;

template <typename PREDICATE>
bool waitFor(PREDICATE predicate, std::chrono::milliseconds limit = 5s) {
    auto until = std::chrono::steady_clock::now() + limit;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() > until)
            return false;
        std::this_thread::sleep_for(2ms);
    }
    return true;
}

// Clocks a test moves by hand: the wall clock runs gWallAhead ahead of the real one, the
// tick clock stands at gTick.
inline std::atomic<int64_t> gWallAhead{0};
inline std::atomic<int64_t> gTick{0};
// When set, the wall clock stands still at this time instead.
inline std::atomic<int64_t> gWallFixed{0};

inline int64_t fakeWall() {
    if (int64_t fixed = gWallFixed.load(); fixed != 0)
        return fixed;
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    return int64_t(now.tv_sec) * 1'000'000 + now.tv_nsec / 1000 + gWallAhead.load();
}

inline int64_t fakeTick() {
    return gTick.load();
}

inline void clocksFake(int64_t wallAhead) {
    gWallAhead = wallAhead;
    gWallFixed = 0;
    gTick = 1'000'000'000;
    TIMEBASE::CLOCK clock;
    clock.wall = fakeWall;
    clock.tick = fakeTick;
    TIMEBASE::clockSet(&clock);
}

inline bool exists(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

// The plain files directly in a folder.
inline size_t filesIn(const std::string &path) {
    size_t count = 0;
    DISKFILE walk;
    walk.dirIterate(
        path.c_str(),
        [](void *data, const DISKFILE::ENTRY &entry) {
            *static_cast<size_t *>(data) += entry.type == DISKFILE::kEntryFile ? 1 : 0;
            return true;
        },
        &count);
    return count;
}

struct MESSAGEFILE {
    const char *msgid = "<one@example.invalid>";
    bool read = false;
    int32_t type = IMsg::MsgTypeNews;
    const char *author = "Ann Author";
    const char *email = "ann@example.invalid";
    int64_t postServer = VMSG::kServerNone;
};

// Writes a message file with its attributes; returns its path.
inline std::string messageWrite(const std::string &folder, const std::string &leaf,
                                const MESSAGEFILE &message = {}) {
    std::string path = folder + "/" + leaf;
    std::string text = std::string("From: ") + message.author + " <" + message.email +
                       ">\nNewsgroups: comp.lang.c\nSubject: A test\nMessage-ID: " + message.msgid +
                       "\nDate: Tue, 03 Oct 2000 14:05:09 GMT\n\nBody line\n";
    TEXTFILE file;
    EXPECT_EQ(VMSG::fileCreate(&file, path.c_str(), 0), DISKFILE::kSuccess);
    EXPECT_EQ(file.textWrite(text.c_str()), DISKFILE::kSuccess);
    file.close();
    EXPECT_TRUE(VMSG::attrCreate(path.c_str(), message.type, nullptr, IMsg::CharsetNone, false, 0,
                                 message.read, message.postServer));
    return path;
}

// The storage tree started on a data directory of the test's own. The reaper's waits are
// short; the clocks are the system's until a test replaces them.
class STORETEST : public testing::Test {
protected:
    void SetUp() override {
        SETTINGS::reset(testhome::path().c_str());
        // The Path setting holds at most 80 characters: a short name of its own per test.
        static int sCount = 0;
        fRoot = testhome::path() + "/store" + std::to_string(++sCount);
        STR::copy(SETTINGS::storage.path, fRoot.c_str(), sizeof(SETTINGS::storage.path));
        BARNTHREAD::TIMING timing;
        timing.fileSleep = 1'000;
        timing.loadCheck = 2'000;
        timing.idleStep = 2'000;
        timing.pauseHold = 50'000;
        timing.pauseStep = 2'000;
        timing.pauseWait = 1'000'000;
        barnThread.timingSet(timing);
    }
    void TearDown() override {
        stopStore();
        TIMEBASE::clockSet(nullptr);
        barnThread.timingSet(BARNTHREAD::TIMING());
    }

    // Starts the tree and, unless asked not to, lets the workers run.
    bool startStore(bool run = true) {
        THREAD::start();
        if (!barn.start())
            return false;
        THREAD::state(run);
        return true;
    }
    // The program's stop order: workers first, then the tree.
    void stopStore() {
        THREAD::state(false);
        THREAD::stop();
        barn.stop();
    }
    // Runs the background load to its end.
    bool load() {
        if (!barn.iterateFolders(nullptr, nullptr))
            return false;
        return waitFor([] { return barn.final(); });
    }
    bool restart() {
        stopStore();
        return startStore() && load();
    }

    std::string news() const { return fRoot + "/news"; }
    std::string servers() const { return fRoot + "/news/Servers"; }
    std::string trash() const { return testhome::path() + "/.local/share/Trash/files"; }

    long long serverMake(const char *name) {
        BARN::NODE node;
        BARN::serverDefault(&node);
        STR::copy(node.name, name, sizeof(node.name));
        return barn.serverCreate(&node);
    }

    std::string fRoot;
};
} // namespace storetest
