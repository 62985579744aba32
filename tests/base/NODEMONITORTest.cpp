// Node monitoring: created, removed and moved entries reach the looper with node numbers.
#include <chrono>
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

struct CHANGE {
    int32_t opcode = 0;
    int64_t node = -2, directory = -2, from = -2, to = -2;
    std::string name;
};

class RECORDER : public MESSAGETARGET {
public:
    bool post(const MESSAGE &message) override {
        CHANGE change;
        if (message.what != NODEMONITOR::kWhat || !message.findInt32("opcode", &change.opcode))
            return false;
        message.findInt64("node", &change.node);
        message.findInt64("directory", &change.directory);
        message.findInt64("from directory", &change.from);
        message.findInt64("to directory", &change.to);
        message.findString("name", &change.name);
        std::lock_guard hold(fMutex);
        fChanges.push_back(change);
        fArrived.notify_all();
        return true;
    }
    // The next change, waiting up to a second for it.
    bool next(CHANGE *change) {
        std::unique_lock hold(fMutex);
        if (!fArrived.wait_for(hold, std::chrono::seconds(1), [&] { return !fChanges.empty(); }))
            return false;
        *change = fChanges.front();
        fChanges.erase(fChanges.begin());
        return true;
    }

private:
    std::mutex fMutex;
    std::condition_variable fArrived;
    std::vector<CHANGE> fChanges;
};

class NODEMONITORTest : public testing::Test {
protected:
    std::string watched = freshDir("watched");
    std::string elsewhere = freshDir("elsewhere");
    RECORDER looper;
    DISKFILE file;

    void SetUp() override {
        ASSERT_EQ(file.dirMonitorStart(&looper, watched.c_str(), NODEMONITOR::kWatchDirectory),
                  DISKFILE::kSuccess);
    }
    void TearDown() override { EXPECT_EQ(file.dirMonitorStop(&looper), DISKFILE::kSuccess); }
};

TEST_F(NODEMONITORTest, CreateRemoveAndEveryKindOfMove) {
    const int64_t dir = inode(watched);
    writeRaw(watched + "/a", "a");
    const int64_t a = inode(watched + "/a");
    CHANGE change;
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryCreated);
    EXPECT_EQ(change.node, a);
    EXPECT_EQ(change.directory, dir);
    EXPECT_EQ(change.name, "a");

    ASSERT_EQ(rename((watched + "/a").c_str(), (watched + "/b").c_str()), 0);
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryMoved);
    EXPECT_EQ(change.node, a);
    EXPECT_EQ(change.from, dir);
    EXPECT_EQ(change.to, dir);
    EXPECT_EQ(change.name, "b");

    ASSERT_EQ(rename((watched + "/b").c_str(), (elsewhere + "/b").c_str()), 0);
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryMoved);
    EXPECT_EQ(change.node, a);
    EXPECT_EQ(change.from, dir);
    EXPECT_EQ(change.to, -1) << "moved out";

    ASSERT_EQ(rename((elsewhere + "/b").c_str(), (watched + "/c").c_str()), 0);
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryMoved);
    EXPECT_EQ(change.node, a);
    EXPECT_EQ(change.from, -1) << "moved in";
    EXPECT_EQ(change.to, dir);
    EXPECT_EQ(change.name, "c");

    // The node of a removed entry comes from what the monitor remembered.
    ASSERT_EQ(unlink((watched + "/c").c_str()), 0);
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryRemoved);
    EXPECT_EQ(change.node, a);
    EXPECT_EQ(change.name, "c");
}

// A move onto an existing name ends that entry: inotify says only "moved", so the monitor
// reports the replaced node as removed, or the looper would keep it for good.
TEST_F(NODEMONITORTest, AMoveOntoAnExistingNameRemovesTheReplacedEntry) {
    writeRaw(watched + "/old", "old");
    writeRaw(elsewhere + "/new", "new");
    const int64_t oldNode = inode(watched + "/old");
    const int64_t newNode = inode(elsewhere + "/new");
    CHANGE change;
    ASSERT_TRUE(looper.next(&change));
    ASSERT_EQ(change.opcode, NODEMONITOR::kEntryCreated);
    ASSERT_EQ(rename((elsewhere + "/new").c_str(), (watched + "/old").c_str()), 0);
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryRemoved);
    EXPECT_EQ(change.node, oldNode);
    EXPECT_EQ(change.name, "old");
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryMoved);
    EXPECT_EQ(change.node, newNode);
    EXPECT_EQ(change.to, inode(watched));
    // The name now stands for the new node: removing it reports that one.
    ASSERT_EQ(unlink((watched + "/old").c_str()), 0);
    ASSERT_TRUE(looper.next(&change));
    EXPECT_EQ(change.opcode, NODEMONITOR::kEntryRemoved);
    EXPECT_EQ(change.node, newNode);
}

TEST_F(NODEMONITORTest, EntriesPresentBeforeTheStartKeepTheirNodes) {
    writeRaw(elsewhere + "/x", "");
    RECORDER other;
    ASSERT_EQ(file.dirMonitorStart(&other, elsewhere.c_str(), NODEMONITOR::kWatchDirectory),
              DISKFILE::kSuccess);
    const int64_t x = inode(elsewhere + "/x");
    ASSERT_EQ(rename((elsewhere + "/x").c_str(), (watched + "/x").c_str()), 0);
    CHANGE here, there;
    ASSERT_TRUE(looper.next(&here));
    ASSERT_TRUE(other.next(&there));
    for (const CHANGE &change : {here, there}) {
        EXPECT_EQ(change.opcode, NODEMONITOR::kEntryMoved);
        EXPECT_EQ(change.node, x);
        EXPECT_EQ(change.from, inode(elsewhere));
        EXPECT_EQ(change.to, inode(watched));
    }
    EXPECT_EQ(file.dirMonitorStop(&other), DISKFILE::kSuccess);
}

TEST_F(NODEMONITORTest, NothingArrivesAfterTheStop) {
    ASSERT_EQ(file.dirMonitorStop(&looper), DISKFILE::kSuccess);
    writeRaw(watched + "/late", "");
    CHANGE change;
    EXPECT_FALSE(looper.next(&change));
    EXPECT_EQ(
        file.dirMonitorStart(&looper, (watched + "/none").c_str(), NODEMONITOR::kWatchDirectory),
        DISKFILE::kDirNotFound);
}

} // namespace
