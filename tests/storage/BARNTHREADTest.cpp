// The storage worker: queued operations, the change observer and the Message-ID query.
#include <mutex>
#include <set>

#include "tests/storage/STORETEST.h"

using namespace storetest;

namespace {
std::mutex gChangedLock;
std::vector<long long> gChanged;

void changed(long long node) {
    std::lock_guard<std::mutex> hold(gChangedLock);
    gChanged.push_back(node);
}

size_t changedCount() {
    std::lock_guard<std::mutex> hold(gChangedLock);
    return gChanged.size();
}

class BARNTHREADTest : public STORETEST {
protected:
    void SetUp() override {
        STORETEST::SetUp();
        ASSERT_TRUE(startStore());
        fServer = serverMake("Work");
        fGroup = barn.groupCreate(fServer, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly);
        BARN::NODE node;
        ASSERT_TRUE(barn.nodeRead(&node, fGroup));
        fPath = node.path;
        gChanged.clear();
        ASSERT_TRUE(barnThread.changeCallbackRegister(changed));
    }
    void TearDown() override {
        barnThread.changeCallbackUnregister(changed);
        STORETEST::TearDown();
    }
    // Queues an operation and waits until the worker has taken and finished it.
    void run(BARNTHREAD::FILEOP op, long long node, const char *text, long value) {
        ASSERT_TRUE(barnThread.fileOp(op, node, text, value));
        // A marker behind it: once the marker's item is gone, the first one is done.
        ASSERT_TRUE(barnThread.fileOp(BARNTHREAD::MarkRead, -99, "", 0));
        ASSERT_TRUE(waitFor([] { return barnThread.queued() == 0; }));
    }
    uint32_t unread() {
        BARN::NODE node;
        EXPECT_TRUE(barn.nodeRead(&node, fGroup));
        return node.unread;
    }
    static bool isRead(const std::string &path) {
        bool read = false;
        EXPECT_TRUE(VMSG::fileIsRead(path.c_str(), &read));
        return read;
    }
    static int32_t typeOf(const std::string &path) {
        VMSG::DATA data;
        EXPECT_TRUE(VMSG::fileData(&data, path.c_str()));
        return data.type;
    }

    long long fServer = -1;
    long long fGroup = -1;
    std::string fPath;
};
} // namespace

TEST_F(BARNTHREADTest, MarkReadChangesCountAndTellsTheObserverOnce) {
    std::string path = messageWrite(fPath, "VM000001.vmf");
    ASSERT_TRUE(barn.nodeUnreadCount(fGroup, 0, 1));
    run(BARNTHREAD::MarkRead, fGroup, "VM000001.vmf", 1);
    EXPECT_TRUE(isRead(path));
    EXPECT_EQ(unread(), 0u);
    ASSERT_EQ(changedCount(), 1u);
    EXPECT_EQ(gChanged[0], BARN::nodeNumber(path.c_str()));
    run(BARNTHREAD::MarkRead, fGroup, "VM000001.vmf", 1);
    EXPECT_EQ(changedCount(), 1u) << "already read: no observer call";
    EXPECT_EQ(unread(), 0u);
}

TEST_F(BARNTHREADTest, WholeDirectoryOperations) {
    for (const char *leaf : {"VM000001.vmf", "VM000002.vmf", "VM000003.vmf"})
        messageWrite(fPath, leaf);
    ASSERT_TRUE(barn.nodeUpdate(fGroup));
    EXPECT_EQ(unread(), 3u);
    run(BARNTHREAD::MarkRead, fGroup, "", 1);
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(changedCount(), 3u);
    run(BARNTHREAD::MarkRead, fGroup, "VM000002.vmf", 0);
    EXPECT_EQ(unread(), 1u);
    run(BARNTHREAD::DeleteFile, fGroup, "", 0);
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(filesIn(fPath), 0u) << "every file went to the Trash";
}

TEST_F(BARNTHREADTest, DownloadMarksAndTypes) {
    MESSAGEFILE header;
    header.type = IMsg::MsgTypeNewsHeader;
    std::string plain = messageWrite(fPath, "VM000001.vmf", header);
    header.type = IMsg::MsgTypeNewsFailed;
    std::string failed = messageWrite(fPath, "VM000002.vmf", header);
    run(BARNTHREAD::MarkDownload, fGroup, "VM000001.vmf", 1);
    run(BARNTHREAD::MarkDownload, fGroup, "VM000002.vmf", 1);
    EXPECT_EQ(typeOf(plain), IMsg::MsgTypeNewsDownload);
    EXPECT_EQ(typeOf(failed), IMsg::MsgTypeNewsFailed) << "a failed download stays failed";
    EXPECT_EQ(changedCount(), 1u);
    run(BARNTHREAD::MessageType, fGroup, "VM000001.vmf", IMsg::MsgTypeNews);
    EXPECT_EQ(typeOf(plain), IMsg::MsgTypeNews);
    EXPECT_EQ(changedCount(), 2u);
}

TEST_F(BARNTHREADTest, MessageIdMarksAtMostSeventyNine) {
    MESSAGEFILE same;
    same.msgid = "<shared@example.invalid>";
    std::vector<std::string> paths;
    for (int i = 1; i <= 100; ++i) {
        char leaf[32];
        snprintf(leaf, sizeof(leaf), "VM%06d.vmf", i);
        paths.push_back(messageWrite(fPath, leaf, same));
    }
    EXPECT_FALSE(barnThread.messageIsRead(same.msgid));
    ASSERT_TRUE(barn.nodeUpdate(fGroup));
    run(BARNTHREAD::MarkReadMsgID, -1, same.msgid, 1);
    size_t marked = 0;
    for (const std::string &path : paths)
        marked += isRead(path) ? 1 : 0;
    EXPECT_EQ(marked, 79u);
    EXPECT_EQ(unread(), 21u);
    EXPECT_EQ(changedCount(), 79u);
}

TEST_F(BARNTHREADTest, MessageIsReadLooksOnlyBelowServers) {
    MESSAGEFILE read;
    read.msgid = "<outbox@example.invalid>";
    read.read = true;
    messageWrite(news() + "/Outbox", "VM000001.vmf", read);
    EXPECT_FALSE(barnThread.messageIsRead(read.msgid));
    messageWrite(fPath, "VM000001.vmf", read);
    EXPECT_TRUE(barnThread.messageIsRead(read.msgid));
    EXPECT_FALSE(barnThread.messageIsRead("<nowhere@example.invalid>"));
}

TEST_F(BARNTHREADTest, StalenessAndRefusedItems) {
    struct STALECASE {
        const char *name;
        uint16_t days;
        int64_t age;
        bool stale;
    };
    const STALECASE cases[] = {
        {"exactly-the-retention", 10, 10 * BARNTHREAD::kDay, true},
        {"a-second-short", 10, 10 * BARNTHREAD::kDay - 1'000'000, false},
        {"keep-for-ever", 0, 5000 * BARNTHREAD::kDay, false},
        {"future", 1, -BARNTHREAD::kDay, false},
    };
    clocksFake(0);
    const int64_t now = 1'700'000'000'000'000;
    gWallFixed = now;
    for (const STALECASE &c : cases) {
        SETTINGS::storage.daysToKeepMessages = c.days;
        EXPECT_EQ(barnThread.messageStale(now - c.age), c.stale) << c.name;
    }
    EXPECT_FALSE(barnThread.fileOp(BARNTHREAD::DeleteStale, fGroup, "", 0));
    run(BARNTHREAD::MarkRead, 424242, "VM000001.vmf", 1); // an unknown node is dropped
    EXPECT_EQ(changedCount(), 0u);
    stopStore();
    EXPECT_FALSE(barnThread.fileOp(BARNTHREAD::MarkRead, fGroup, "", 1));
}
