// Node monitoring: created, removed and moved entries reach the looper with node numbers.
#include <atomic>
#include <chrono>
#include <thread>
#include <condition_variable>
#include <cstdio>
#include <gtest/gtest.h>
#include <mutex>
#include <string>
#include <vector>

#include "base/DISKFILE.h"
#include "base/NODEMONITOR.h"
#include "tests/base/DISKFILETestUtil.h"

namespace {

using filetest::freshDir;
using filetest::inode;
using filetest::writeRaw;

// A change as "opcode node directory from to name", -2 for a field the message lacks.
std::string changeText(int32_t opcode, int64_t node, int64_t directory, int64_t from, int64_t to,
                       const std::string &name) {
    return std::to_string(opcode) + " " + std::to_string(node) + " " + std::to_string(directory) +
           " " + std::to_string(from) + " " + std::to_string(to) + " " + name;
}

class RECORDER : public MESSAGETARGET {
public:
    bool post(const MESSAGE &message) override {
        int32_t opcode = 0;
        int64_t node = -2, directory = -2, from = -2, to = -2;
        std::string name;
        if (message.what != NODEMONITOR::kWhat || !message.findInt32("opcode", &opcode))
            return false;
        message.findInt64("node", &node);
        message.findInt64("directory", &directory);
        message.findInt64("from directory", &from);
        message.findInt64("to directory", &to);
        message.findString("name", &name);
        std::lock_guard hold(fMutex);
        fChanges.push_back(changeText(opcode, node, directory, from, to, name));
        fArrived.notify_all();
        return true;
    }
    // The next change, waiting up to a second for it; "none" if none came.
    std::string next() {
        std::unique_lock hold(fMutex);
        if (!fArrived.wait_for(hold, std::chrono::seconds(1), [&] { return !fChanges.empty(); }))
            return "none";
        std::string change = fChanges.front();
        fChanges.erase(fChanges.begin());
        return change;
    }

private:
    std::mutex fMutex;
    std::condition_variable fArrived;
    std::vector<std::string> fChanges;
};

class NODEMONITORTest : public testing::Test {
protected:
    std::string watched = freshDir("watched");
    std::string elsewhere = freshDir("elsewhere");
    int64_t dir = inode(watched), away = inode(elsewhere);
    RECORDER looper;
    DISKFILE file;

    void SetUp() override {
        ASSERT_EQ(file.dirMonitorStart(&looper, watched.c_str(), NODEMONITOR::kWatchDirectory),
                  DISKFILE::kSuccess);
    }
    void TearDown() override { EXPECT_EQ(file.dirMonitorStop(&looper), DISKFILE::kSuccess); }
    static std::string entry(int32_t opcode, int64_t node, int64_t directory, const char *name) {
        return changeText(opcode, node, directory, -2, -2, name);
    }
    static std::string moved(int64_t node, int64_t from, int64_t to, const char *name) {
        return changeText(NODEMONITOR::kEntryMoved, node, -2, from, to, name);
    }
    static void move(const std::string &from, const std::string &to) {
        ASSERT_EQ(rename(from.c_str(), to.c_str()), 0);
    }
};

TEST_F(NODEMONITORTest, CreateRemoveAndEveryKindOfMove) {
    writeRaw(watched + "/a", "a");
    const int64_t a = inode(watched + "/a");
    EXPECT_EQ(looper.next(), entry(NODEMONITOR::kEntryCreated, a, dir, "a"));
    move(watched + "/a", watched + "/b");
    EXPECT_EQ(looper.next(), moved(a, dir, dir, "b"));
    move(watched + "/b", elsewhere + "/b");
    EXPECT_EQ(looper.next(), moved(a, dir, -1, "b")) << "moved out";
    move(elsewhere + "/b", watched + "/c");
    EXPECT_EQ(looper.next(), moved(a, -1, dir, "c")) << "moved in";
    // The node of a removed entry comes from what the monitor remembered.
    ASSERT_EQ(unlink((watched + "/c").c_str()), 0);
    EXPECT_EQ(looper.next(), entry(NODEMONITOR::kEntryRemoved, a, dir, "c"));
}

// A move onto an existing name ends that entry: inotify says only "moved", so the monitor
// reports the replaced node as removed, or the looper would keep it for good.
TEST_F(NODEMONITORTest, AMoveOntoAnExistingNameRemovesTheReplacedEntry) {
    writeRaw(watched + "/old", "old");
    writeRaw(elsewhere + "/new", "new");
    const int64_t oldNode = inode(watched + "/old"), newNode = inode(elsewhere + "/new");
    EXPECT_EQ(looper.next(), entry(NODEMONITOR::kEntryCreated, oldNode, dir, "old"));
    move(elsewhere + "/new", watched + "/old");
    EXPECT_EQ(looper.next(), entry(NODEMONITOR::kEntryRemoved, oldNode, dir, "old"));
    EXPECT_EQ(looper.next(), moved(newNode, -1, dir, "old"));
    // The name now stands for the new node: removing it reports that one.
    ASSERT_EQ(unlink((watched + "/old").c_str()), 0);
    EXPECT_EQ(looper.next(), entry(NODEMONITOR::kEntryRemoved, newNode, dir, "old"));
}

TEST_F(NODEMONITORTest, EntriesPresentBeforeTheStartKeepTheirNodes) {
    writeRaw(elsewhere + "/x", "");
    RECORDER other;
    ASSERT_EQ(file.dirMonitorStart(&other, elsewhere.c_str(), NODEMONITOR::kWatchDirectory),
              DISKFILE::kSuccess);
    const int64_t x = inode(elsewhere + "/x");
    move(elsewhere + "/x", watched + "/x");
    EXPECT_EQ(looper.next(), moved(x, away, dir, "x"));
    EXPECT_EQ(other.next(), moved(x, away, dir, "x"));
    EXPECT_EQ(file.dirMonitorStop(&other), DISKFILE::kSuccess);
}

TEST_F(NODEMONITORTest, NothingArrivesAfterTheStop) {
    ASSERT_EQ(file.dirMonitorStop(&looper), DISKFILE::kSuccess);
    writeRaw(watched + "/late", "");
    EXPECT_EQ(looper.next(), "none");
    EXPECT_EQ(
        file.dirMonitorStart(&looper, (watched + "/none").c_str(), NODEMONITOR::kWatchDirectory),
        DISKFILE::kDirNotFound);
}

// A looper that stops watching from inside its own post, while a batch of changes is on its
// way to it: it hears the first and nothing after, and the looper beside it still hears all.
TEST(NODEMONITORSelfStop, StoppingInsideAPostEndsTheDelivery) {
    struct QUITTER : MESSAGETARGET {
        std::string folder;
        std::atomic<int> posts{0};
        bool post(const MESSAGE &) override {
            ++posts;
            NODEMONITOR::watch(this, folder.c_str(), NODEMONITOR::kStopWatching);
            return true;
        }
    } quitter;
    struct COUNTER : MESSAGETARGET {
        std::atomic<int> posts{0};
        bool post(const MESSAGE &) override { return ++posts > 0; }
    } counter, other;
    quitter.folder = freshDir("quitter");
    ASSERT_TRUE(NODEMONITOR::watch(&quitter, quitter.folder.c_str(), NODEMONITOR::kWatchDirectory));
    for (MESSAGETARGET *looper : {static_cast<MESSAGETARGET *>(&counter),
                                  static_cast<MESSAGETARGET *>(&other)})
        ASSERT_TRUE(NODEMONITOR::watch(looper, quitter.folder.c_str(), NODEMONITOR::kWatchDirectory));
    for (int i = 0; i < 50; ++i)
        writeRaw(quitter.folder + "/f" + std::to_string(i), "");
    for (int wait = 0; wait < 100 && (counter.posts < 50 || other.posts < 50); ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(quitter.posts.load(), 1);
    EXPECT_EQ(counter.posts.load(), 50);
    EXPECT_EQ(other.posts.load(), 50);
    for (MESSAGETARGET *looper : {static_cast<MESSAGETARGET *>(&quitter),
                                  static_cast<MESSAGETARGET *>(&counter),
                                  static_cast<MESSAGETARGET *>(&other)})
        NODEMONITOR::unwatch(looper);
}

} // namespace
