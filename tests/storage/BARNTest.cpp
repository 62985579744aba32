// The storage tree: persistence across a restart, unread counts, renames, loads and walks.
#include <future>
#include <map>
#include <sys/stat.h>
#include <vector>

#include "base/DISKFILE.h"
#include "storage/BARNINFO.h"
#include "tests/storage/STORETEST.h"
#include "tests/support/ALERTRECORDER.h"

using namespace storetest;

namespace {
class BARNTest : public STORETEST {};

// A node as it must look after a restart: the parent pointer is the only thing that moves.
BARN::NODE comparable(BARN::NODE node) {
    node.parent = nullptr;
    return node;
}
} // namespace

TEST_F(BARNTest, StoreSurvivesRestart) {
    ASSERT_TRUE(startStore());
    ASSERT_TRUE(load());
    BARN::NODE server;
    BARN::serverDefault(&server);
    STR::copy(server.name, "Main", sizeof(server.name));
    STR::copy(server.server.hostname, "news.example.invalid", sizeof(server.server.hostname));
    server.server.port = 563;
    server.server.timeout = 30'000'000;
    STR::copy(server.server.postOrg, "Lab", sizeof(server.server.postOrg));
    server.server.login = true;
    long long main = barn.serverCreate(&server);
    ASSERT_NE(main, BARN::kNodeNone);
    long long other = serverMake("Other");
    ASSERT_NE(other, BARN::kNodeNone);

    long long group = barn.groupCreate(main, "comp.lang.c", GROUPDOWNLOAD::HeadersAndBodies);
    ASSERT_NE(group, BARN::kNodeNone);
    BARN::NODE node;
    ASSERT_TRUE(barn.nodeRead(&node, group));
    node.group.indexFirst = 100;
    node.group.indexLast = 250;
    node.group.nextFile = 20'417;
    node.group.charset = IMsg::CharsetKOI8R;
    ASSERT_TRUE(barn.nodeSave(&node));
    ASSERT_NE(barn.groupCreate(other, "alt.test", GROUPDOWNLOAD::NoDownload), BARN::kNodeNone);

    long long top = barn.folderCreate("Keep", BARN::kNodeNone);
    long long middle = barn.folderCreate("Middle", top);
    long long bottom = barn.folderCreate("Bottom", middle);
    ASSERT_NE(bottom, BARN::kNodeNone);
    ASSERT_TRUE(barn.nodeUnreadCount(group, 0, 17));
    ASSERT_TRUE(barn.nodeUnreadCount(bottom, 1, 3));

    std::map<long long, BARN::NODE> before;
    for (long long number : {main, other, group, top, middle, bottom}) {
        ASSERT_TRUE(barn.nodeRead(&node, number));
        before[number] = comparable(node);
    }
    ASSERT_TRUE(restart());
    for (const auto &[number, was] : before) {
        ASSERT_TRUE(barn.nodeRead(&node, number)) << was.name;
        BARN::NODE now = comparable(node);
        EXPECT_TRUE(BARN::nodeCompare(&now, &was)) << was.name;
    }
    ASSERT_TRUE(barn.nodeRead(&node, bottom));
    EXPECT_EQ(node.level, 2u);
    EXPECT_EQ(node.unread, 3u);
    EXPECT_EQ(node.sortClass, SORTCLASS::Subfolder);
}

struct UNREADCASE {
    const char *name;
    uint32_t start;
    int mode;
    unsigned long n;
    uint32_t expected;
};

TEST_F(BARNTest, UnreadCountsAreClamped) {
    const UNREADCASE cases[] = {
        {"set-over-ceiling", 0, 0, 2'000'000, 1'000'000},
        {"subtract-below-zero", 5, -1, 9, 0},
        {"add-past-ceiling", 999'999, 1, 5, 1'000'000},
        {"subtract-huge", 7, -1, ~0UL, 0},
        {"add", 7, 1, 3, 10},
    };
    ASSERT_TRUE(startStore());
    long long outbox;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Outbox, &outbox));
    for (const UNREADCASE &c : cases) {
        ASSERT_TRUE(barn.nodeUnreadCount(outbox, 0, c.start)) << c.name;
        ASSERT_TRUE(barn.nodeUnreadCount(outbox, c.mode, c.n)) << c.name;
        BARN::NODE node;
        ASSERT_TRUE(barn.nodeRead(&node, outbox));
        EXPECT_EQ(node.unread, c.expected) << c.name;
    }
    long long server = serverMake("NoMessages");
    EXPECT_FALSE(barn.nodeUnreadCount(server, 0, 1)) << "servers keep no unread count";
}

namespace {
std::atomic<int> gObserved{0};
std::atomic<bool> gLockFree{false};

void observer(const BARN::NODE *node) {
    // Another thread must get into the tree while the observer runs.
    auto other = std::async(std::launch::async, [] { return barn.count(); });
    gLockFree = other.wait_for(2s) == std::future_status::ready;
    gObserved = int(node->unread);
}
void otherObserver(const BARN::NODE *) {}
} // namespace

TEST_F(BARNTest, UnreadObserverRunsOutsideTheLock) {
    ASSERT_TRUE(startStore());
    ASSERT_TRUE(barn.unreadCallbackRegister(observer));
    EXPECT_FALSE(barn.unreadCallbackRegister(otherObserver));
    EXPECT_FALSE(barn.unreadCallbackUnregister(otherObserver));
    long long drafts;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Drafts, &drafts));
    ASSERT_TRUE(barn.nodeUnreadCount(drafts, 1, 4));
    EXPECT_EQ(gObserved, 4);
    EXPECT_TRUE(gLockFree);
    gObserved = -1;
    ASSERT_TRUE(barn.nodeUnreadCount(drafts, 1, 0));
    EXPECT_EQ(gObserved, -1) << "no change, no call";
    EXPECT_TRUE(barn.unreadCallbackUnregister(observer));
}

TEST_F(BARNTest, RenamingAServerMovesItsNewsgroups) {
    ASSERT_TRUE(startStore());
    ASSERT_TRUE(load());
    long long server = serverMake("Before");
    long long first = barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly);
    long long second = barn.groupCreate(server, "alt.test", GROUPDOWNLOAD::HeadersOnly);
    BARN::NODE node;
    ASSERT_TRUE(barn.nodeRead(&node, server));
    STR::copy(node.name, "After", sizeof(node.name));
    ASSERT_TRUE(barn.nodeSave(&node));
    EXPECT_FALSE(exists(servers() + "/Before"));
    for (long long group : {first, second}) {
        ASSERT_TRUE(barn.nodeRead(&node, group));
        std::string path = node.path;
        EXPECT_EQ(path, servers() + "/After/" + node.name);
        EXPECT_TRUE(exists(path));
    }
    ASSERT_TRUE(restart());
    BARN::NODE found;
    EXPECT_TRUE(barn.groupRead(server, &found, "alt.test"));
    EXPECT_EQ(found.number, second);
}

TEST_F(BARNTest, BadDirectoryNamesAreSkippedSilently) {
    ASSERT_TRUE(startStore());
    ASSERT_TRUE(load());
    long long good = serverMake("Good");
    ASSERT_NE(good, BARN::kNodeNone);
    ASSERT_EQ(mkdir((servers() + "/Bad\x01Name").c_str(), 0755), 0);
    ASSERT_EQ(mkdir((servers() + "/Good/not a group!").c_str(), 0755), 0);
    ALERTRECORDER alerts;
    ASSERT_TRUE(restart());
    EXPECT_EQ(alerts.count(), 0u);
    BARN::NODE node;
    EXPECT_TRUE(barn.serverNext(&node, 0));
    EXPECT_STREQ(node.name, "Good");
    EXPECT_FALSE(barn.serverNext(&node, 1));
    unsigned long groups = 9;
    EXPECT_TRUE(barn.groupCount(good, &groups));
    EXPECT_EQ(groups, 0u);
}

namespace {
std::vector<BARN::NODE> gVisited;
bool visitRefusingFirst(const BARN::NODE *node) {
    gVisited.push_back(*node);
    return gVisited.size() != 1;
}
} // namespace

TEST_F(BARNTest, LevelWalkGoesOnAfterALevelEnds) {
    ASSERT_TRUE(startStore());
    ASSERT_TRUE(load());
    long long server = serverMake("Walk");
    ASSERT_NE(barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly), -1);
    ASSERT_NE(barn.groupCreate(server, "alt.test", GROUPDOWNLOAD::HeadersOnly), -1);
    long long folder = barn.folderCreate("Mine", BARN::kNodeNone);
    ASSERT_NE(barn.folderCreate("Inner", folder), -1);
    gVisited.clear();
    barn.iterateMain(visitRefusingFirst);
    // Level 0 ends after its first node; both newsgroups of level 1 are still seen, and
    // user folders never come through this walk.
    ASSERT_EQ(gVisited.size(), 3u);
    EXPECT_EQ(gVisited[0].level, 0u);
    EXPECT_EQ(gVisited[1].level, 1u);
    EXPECT_EQ(gVisited[2].level, 1u);
    EXPECT_LT(gVisited[1].number, gVisited[2].number);
}

TEST_F(BARNTest, CreatingOverADirectoryTrashesTheOldOne) {
    ASSERT_TRUE(startStore());
    long long server = serverMake("Reboot");
    std::string old = servers() + "/Reboot/comp.lang.c";
    ASSERT_EQ(mkdir(old.c_str(), 0755), 0);
    messageWrite(old, "VM999999.vmf");
    long long group = barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly);
    ASSERT_NE(group, BARN::kNodeNone);
    EXPECT_FALSE(exists(old + "/VM999999.vmf"));
    EXPECT_TRUE(exists(trash() + "/comp.lang.c/VM999999.vmf"));
    EXPECT_EQ(barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly), BARN::kNodeNone)
        << "a subscribed newsgroup is not created twice";
}

TEST_F(BARNTest, UnknownStoredCharsetReadsAsAValidOne) {
    ASSERT_TRUE(startStore());
    long long server = serverMake("Charset");
    long long group = barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly);
    BARN::NODE node;
    ASSERT_TRUE(barn.nodeRead(&node, group));
    DISKFILE file;
    ASSERT_EQ(file.open(node.path, DISKFILE::kWrite), DISKFILE::kSuccess);
    uint32_t bogus = 77;
    size_t count = 0;
    ASSERT_EQ(file.attrWrite("VELLOWICK:charset", DISKFILE::kTypeUInt32, 0, &bogus, sizeof(bogus),
                             &count),
              DISKFILE::kSuccess);
    file.close();
    ASSERT_TRUE(restart());
    ASSERT_TRUE(barn.nodeRead(&node, group));
    EXPECT_TRUE(IMsg::CharsetIsValid(IMsg::Charset(node.group.charset)));
}

TEST_F(BARNTest, DeletingRemovesDescendantsAtOnceAndTheDirectoryLater) {
    ASSERT_TRUE(startStore());
    long long server = serverMake("Gone");
    long long group = barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly);
    long long outbox;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Outbox, &outbox));
    EXPECT_FALSE(barn.nodeDelete(outbox)) << "fixed folders stay";
    EXPECT_FALSE(barn.folderDelete(server)) << "not a folder";
    ASSERT_TRUE(barn.serverDelete(server));
    BARN::NODE node;
    EXPECT_FALSE(barn.nodeRead(&node, group));
    EXPECT_FALSE(barn.nodeRead(&node, server));
    EXPECT_TRUE(waitFor([&] { return exists(trash() + "/Gone/comp.lang.c"); }));
    EXPECT_FALSE(exists(servers() + "/Gone"));
}

struct NAMECASE {
    const char *name;
    bool folder;
    bool group;
};

TEST(BARNNames, Rules) {
    const NAMECASE cases[] = {
        {"Saved", true, true},
        {"comp.lang.c", true, true},
        {"", false, false},
        {"a/b", false, false},
        {".hidden", false, false},
        {"tab\there", false, false},
        {"123456789012345678901234567890123456789012345678901234567890123456789012", true, false},
        {"1234567890123456789012345678901234567890123456789012345678901234567890123", false, false},
    };
    for (const NAMECASE &c : cases) {
        EXPECT_EQ(BARN::folderNameCheck(c.name), c.folder) << c.name;
        EXPECT_EQ(BARN::serverNameCheck(c.name), c.folder) << c.name;
        EXPECT_EQ(BARN::groupNameCheck(c.name), c.group) << c.name;
    }
    BARN::NODE node;
    BARN::serverDefault(&node);
    EXPECT_STREQ(node.name, "ISP News");
    EXPECT_TRUE(BARN::serverHostnameCheck(node.server.hostname));
    EXPECT_TRUE(IMsg::EmailCheck(node.server.postMail));
    EXPECT_EQ(node.server.port, 119);
    EXPECT_EQ(node.server.timeout, 120'000'000);
}

TEST_F(BARNTest, MessagesAreFiledCountedAndSent) {
    ASSERT_TRUE(startStore());
    long long server = serverMake("Files");
    long long group = barn.groupCreate(server, "comp.lang.c", GROUPDOWNLOAD::HeadersOnly);
    TEXTFILE file;
    ASSERT_TRUE(barn.messageCreate(&file));
    file.close();
    std::string temp = news() + "/VM000000.vmf";
    messageWrite(news(), "VM000000.vmf");
    ASSERT_TRUE(barn.messageMove(group, false));
    BARN::NODE node;
    ASSERT_TRUE(barn.nodeRead(&node, group));
    EXPECT_EQ(node.unread, 1u);
    EXPECT_EQ(node.group.nextFile, 999'999u);
    EXPECT_TRUE(exists(std::string(node.path) + "/VM999999.vmf"));
    EXPECT_FALSE(exists(temp));
    // Filed in quick succession, the later counts live in memory until the stop writes them.
    for (int i = 0; i < 3; ++i) {
        messageWrite(news(), "VM000000.vmf");
        ASSERT_TRUE(barn.messageMove(group, i == 1));
    }
    ASSERT_TRUE(restart());
    ASSERT_TRUE(barn.nodeRead(&node, group));
    EXPECT_EQ(node.unread, 3u) << "a read message adds nothing";
    EXPECT_EQ(node.group.nextFile, 999'996u);
    long long drafts;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Drafts, &drafts));
    messageWrite(news(), "VM000000.vmf");
    EXPECT_FALSE(barn.messageMove(drafts, false)) << "a node without a parent is refused";

    MESSAGEFILE post;
    post.postServer = server;
    std::string outbox = news() + "/Outbox";
    std::string first = messageWrite(outbox, "VM000001.vmf", post);
    messageWrite(outbox, "VM000002.vmf", post);
    messageWrite(outbox, "VM000003.vmf");
    EXPECT_EQ(barn.serverUploadCount(server), 2u);
    long long outboxNode, sentNode;
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Outbox, &outboxNode));
    ASSERT_TRUE(barn.folderFixedNode(FIXEDFOLDER::Sent, &sentNode));
    ASSERT_TRUE(barn.nodeUpdate(outboxNode));
    ASSERT_TRUE(barn.nodeRead(&node, outboxNode));
    EXPECT_EQ(node.unread, 3u);
    ASSERT_TRUE(barn.messageSent(first.c_str()));
    EXPECT_EQ(barn.serverUploadCount(server), 1u);
    ASSERT_TRUE(barn.nodeRead(&node, outboxNode));
    EXPECT_EQ(node.unread, 2u);
    ASSERT_TRUE(barn.nodeRead(&node, sentNode));
    EXPECT_EQ(node.unread, 1u);
    EXPECT_TRUE(exists(news() + "/Sent Messages/VM000001.vmf"));
    EXPECT_TRUE(barn.folderIsFixed(outbox.c_str()));
    EXPECT_FALSE(barn.folderIsFixed(servers().c_str()));
}

TEST_F(BARNTest, AnUnusableDataDirectoryStopsTheStart) {
    std::string blocker = fRoot + "-file";
    FILE *plain = fopen(blocker.c_str(), "w");
    ASSERT_NE(plain, nullptr);
    fclose(plain);
    STR::copy(SETTINGS::storage.path, blocker.c_str(), sizeof(SETTINGS::storage.path));
    ALERTRECORDER alerts;
    THREAD::start();
    EXPECT_FALSE(barn.start());
    ASSERT_EQ(alerts.count(), 1u);
    EXPECT_EQ(alerts.texts()[0].rfind("Can't access storage directory.\n\nPath: " + blocker, 0), 0u)
        << alerts.texts()[0];
}
