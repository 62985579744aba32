// The Message-ID index behind DISKFILE::query: kept true through every file operation.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "base/DISKFILE.h"
#include "storage/MSGIDINDEX.h"
#include "tests/base/DISKFILETestUtil.h"

namespace {

using filetest::freshDir;

const char *const kMime = "text/x-vellowick";

std::string predicate(const std::string &msgid) {
    char text[512];
    snprintf(text, sizeof(text), "((%s==\"%s\")&&(BEOS:TYPE==\"%s\"))", MSGIDINDEX::kAttribute,
             msgid.c_str(), kMime);
    return text;
}

class MSGIDINDEXTest : public testing::Test {
protected:
    std::string store = freshDir("store");
    int64_t device = -1;
    DISKFILE file;

    void SetUp() override {
        MSGIDINDEX::rootSet(store.c_str());
        FILEINDEX::install(MSGIDINDEX::hook());
        std::filesystem::create_directories(store + "/news/a");
        std::filesystem::create_directories(store + "/news/b");
        struct stat info {};
        stat(store.c_str(), &info);
        device = int64_t(info.st_dev);
    }
    void TearDown() override { FILEINDEX::install(nullptr); }

    void message(const std::string &path, const std::string &msgid, const char *mime = kMime) {
        ASSERT_EQ(file.create(path.c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
        size_t count = 0;
        ASSERT_EQ(file.mimeSet(mime), DISKFILE::kSuccess);
        ASSERT_EQ(file.attrWrite(MSGIDINDEX::kAttribute, DISKFILE::kTypeString, 0, msgid.c_str(),
                                 msgid.size() + 1, &count),
                  DISKFILE::kSuccess);
        file.close();
    }

    // A message written behind the program's back: only a scan can find it.
    static void foreign(const std::string &path, const std::string &msgid) {
        filetest::writeRaw(path, "");
        std::string raw = "CSTR" + msgid + '\0';
        ASSERT_EQ(setxattr(path.c_str(), "user.VELLOWICK:msgid", raw.data(), raw.size(), 0), 0);
        ASSERT_EQ(setxattr(path.c_str(), "user.mime_type", kMime, strlen(kMime), 0), 0);
    }

    std::vector<std::string> find(const std::string &msgid,
                                  DISKFILE::ERROR expected = DISKFILE::kSuccess) {
        std::vector<std::string> hits;
        auto record = [](void *data, const DISKFILE::ENTRY &entry) {
            static_cast<std::vector<std::string> *>(data)->push_back(entry.path);
            return true;
        };
        EXPECT_EQ(file.query(device, predicate(msgid).c_str(), record, &hits), expected);
        std::sort(hits.begin(), hits.end());
        return hits;
    }
    using PATHS = std::vector<std::string>;
};

TEST_F(MSGIDINDEXTest, StaysTrueThroughWriteRenameMoveCopyTrashAndErase) {
    std::string a = store + "/news/a/VM000001.vmf";
    message(a, "<one@example.invalid>");
    message(store + "/news/a/VM000002.vmf", "<two@example.invalid>");
    EXPECT_EQ(find("<one@example.invalid>"), PATHS{a});

    std::string renamed = store + "/news/a/VM000003.vmf";
    ASSERT_EQ(file.rename(a.c_str(), renamed.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<one@example.invalid>"), PATHS{renamed});

    std::string moved = store + "/news/b/VM000001.vmf";
    ASSERT_EQ(file.move(renamed.c_str(), moved.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<one@example.invalid>"), PATHS{moved});

    std::string copied = store + "/news/a/VM000009.vmf";
    ASSERT_EQ(file.copy(moved.c_str(), copied.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<one@example.invalid>"), (PATHS{copied, moved}));

    ASSERT_EQ(file.trash(copied.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<one@example.invalid>"), PATHS{moved});

    std::string folder = store + "/news/c";
    ASSERT_EQ(file.dirRename((store + "/news/b").c_str(), folder.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<one@example.invalid>"), PATHS{folder + "/VM000001.vmf"});

    // A new value replaces the old one; erasing the attribute or the file forgets it.
    ASSERT_EQ(file.open((folder + "/VM000001.vmf").c_str(), DISKFILE::kReadWrite),
              DISKFILE::kSuccess);
    size_t count = 0;
    ASSERT_EQ(
        file.attrWrite(MSGIDINDEX::kAttribute, DISKFILE::kTypeString, 0, "<new@x>", 8, &count),
        DISKFILE::kSuccess);
    file.close();
    EXPECT_EQ(find("<one@example.invalid>"), PATHS{});
    EXPECT_EQ(find("<new@x>"), PATHS{folder + "/VM000001.vmf"});
    ASSERT_EQ(file.erase((folder + "/VM000001.vmf").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<new@x>"), PATHS{});
    ASSERT_EQ(file.dirObliterate((store + "/news/a").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(find("<two@example.invalid>"), PATHS{});
    EXPECT_EQ(MSGIDINDEX::count(), 0);
}

TEST_F(MSGIDINDEXTest, HitsAreCheckedAgainstTheFiles) {
    std::string gone = store + "/news/a/gone.vmf";
    std::string plain = store + "/news/a/plain.vmf";
    message(gone, "<same@x>");
    message(plain, "<same@x>", "text/plain");
    int64_t rows = MSGIDINDEX::count();
    // Deleted behind the program's back: not reported, and the row goes.
    ASSERT_EQ(unlink(gone.c_str()), 0);
    EXPECT_EQ(find("<same@x>"), PATHS{});
    EXPECT_EQ(MSGIDINDEX::count(), rows - 1) << "the wrong type keeps its row";
    ASSERT_EQ(setxattr(plain.c_str(), "user.mime_type", kMime, strlen(kMime), 0), 0);
    EXPECT_EQ(find("<same@x>"), PATHS{plain});
    EXPECT_EQ(find("<other@x>"), PATHS{});
}

TEST_F(MSGIDINDEXTest, MissingOrBrokenIndexIsRebuiltByAScan) {
    std::string known = store + "/news/a/known.vmf";
    message(known, "<scan@x>");
    std::string outside = store + "/news/b/outside.vmf";
    foreign(outside, "<scan@x>");
    EXPECT_EQ(find("<scan@x>"), PATHS{known});

    ASSERT_EQ(unlink(MSGIDINDEX::location().c_str()), 0);
    EXPECT_EQ(find("<scan@x>"), (PATHS{known, outside}));
    EXPECT_TRUE(filetest::exists(MSGIDINDEX::location()));

    MSGIDINDEX::close();
    for (const char *suffix : {"-wal", "-shm"})
        unlink((MSGIDINDEX::location() + suffix).c_str());
    filetest::writeRaw(MSGIDINDEX::location(), std::string(8192, 'g'));
    EXPECT_EQ(find("<scan@x>"), (PATHS{known, outside}));

    EXPECT_TRUE(MSGIDINDEX::remove());
    EXPECT_FALSE(filetest::exists(MSGIDINDEX::location()));
}

TEST_F(MSGIDINDEXTest, OnlyIndexedConjunctionsAreAnswered) {
    message(store + "/news/a/1.vmf", "<q@x>");
    message(store + "/news/a/2.vmf", "<q@x>");
    auto none = [](void *, const DISKFILE::ENTRY &) { return true; };
    const char *refused[] = {
        "(VELLOWICK:subject==\"hello\")",
        "((VELLOWICK:msgid==\"<q@x>\")||(BEOS:TYPE==\"text/x-vellowick\"))",
        "(VELLOWICK:msgid!=\"<q@x>\")",
        "((VELLOWICK:msgid==\"<q@x>\")",
        "",
    };
    for (const char *text : refused)
        EXPECT_EQ(file.query(device, text, none, nullptr), DISKFILE::kPathInvalid) << text;
    EXPECT_EQ(file.query(device, "VELLOWICK:msgid==\"<q@x>\"", none, nullptr), DISKFILE::kSuccess);
    auto stop = [](void *data, const DISKFILE::ENTRY &) {
        ++*static_cast<int *>(data);
        return false;
    };
    int calls = 0;
    EXPECT_EQ(file.query(device, predicate("<q@x>").c_str(), stop, &calls),
              DISKFILE::kIterationAborted);
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(find("<q@x>").size(), 2u);
}

// Two objects writing the Message-ID of one file at once: whatever the order of their
// attribute writes and index updates, the index ends with the value the file holds.
TEST_F(MSGIDINDEXTest, ConcurrentWritersLeaveTheIndexWithTheFilesValue) {
    std::string path = store + "/news/a/shared.vmf";
    message(path, "<start@x>");
    constexpr int kRounds = 400;
    std::atomic<int> round{0};
    std::atomic<int> done{0};
    auto writer = [&](char side) {
        DISKFILE own;
        ASSERT_EQ(own.open(path.c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
        for (int r = 1; r <= kRounds; ++r) {
            while (round.load() < r)
                std::this_thread::yield();
            std::string msgid = "<" + std::string(1, side) + std::to_string(r) + "@x>";
            size_t count = 0;
            own.attrWrite(MSGIDINDEX::kAttribute, DISKFILE::kTypeString, 0, msgid.c_str(),
                          msgid.size() + 1, &count);
            ++done;
        }
    };
    std::thread first(writer, 'a');
    std::thread second(writer, 'b');
    int wrong = 0;
    for (int r = 1; r <= kRounds; ++r) {
        round = r;
        while (done.load() < 2 * r)
            std::this_thread::yield();
        std::string raw = filetest::xattrRaw(path, std::string("user.") + MSGIDINDEX::kAttribute);
        std::string held = raw.substr(4, raw.find('\0', 4) - 4);
        if (find(held) != PATHS{path})
            ++wrong;
    }
    first.join();
    second.join();
    EXPECT_EQ(wrong, 0) << "rounds whose Message-ID the index did not find";
}

// One file named in two spellings is one row: a rename through the plain spelling moves it.
TEST_F(MSGIDINDEXTest, PathSpellingsOfOneFileShareTheirRow) {
    ASSERT_GE(MSGIDINDEX::count(), 0) << "the index is built before the file exists";
    message(store + "/news//a/./spelled.vmf", "<spelled@x>");
    EXPECT_EQ(find("<spelled@x>"), PATHS{store + "/news/a/spelled.vmf"});
    std::string renamed = store + "/news/a/renamed.vmf";
    ASSERT_EQ(file.rename((store + "/news/a/spelled.vmf").c_str(), renamed.c_str()),
              DISKFILE::kSuccess);
    EXPECT_EQ(find("<spelled@x>"), PATHS{renamed});
}

// A file whose path is longer than the file layer can hold is not indexed by a scan: its cut
// path would name another entry.
TEST_F(MSGIDINDEXTest, ScanPassesOverPathsTooLongToName) {
    std::string folder = store + "/news/b/" + std::string(250, 'f');
    ASSERT_TRUE(std::filesystem::create_directories(folder));
    foreign(folder + "/" + std::string(60, 'm'), "<long@x>");
    message(store + "/news/a/short.vmf", "<long@x>");
    ASSERT_TRUE(MSGIDINDEX::rebuild());
    EXPECT_EQ(find("<long@x>"), PATHS{store + "/news/a/short.vmf"});
}

} // namespace

// Rows are committed in batches. One that waits is committed without being asked, so another
// reader of the file sees it; one lost with a crashed process is found again by a scan.
TEST_F(MSGIDINDEXTest, BatchesReachTheFileAndACrashLeadsToARescan) {
    std::string early = store + "/news/a/early.vmf";
    message(early, "<early@x>");
    sqlite3 *reader = nullptr;
    ASSERT_EQ(
        sqlite3_open_v2(MSGIDINDEX::location().c_str(), &reader, SQLITE_OPEN_READONLY, nullptr),
        SQLITE_OK);
    int rows = 0;
    for (int tries = 0; tries < 200 && rows == 0; ++tries) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        sqlite3_exec(
            reader, "SELECT count(*) FROM msgid",
            [](void *data, int, char **values, char **) {
                *static_cast<int *>(data) = atoi(values[0]);
                return 0;
            },
            &rows, nullptr);
    }
    sqlite3_close(reader);
    EXPECT_EQ(rows, 1) << "the batch was never committed";

    // The child files a message and dies before its batch is committed.
    MSGIDINDEX::close();
    std::string lost = store + "/news/b/lost.vmf";
    pid_t child = fork();
    if (child == 0) {
        message(lost, "<lost@x>");
        _exit(MSGIDINDEX::count() == 2 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(find("<lost@x>"), PATHS{lost});
    EXPECT_EQ(find("<early@x>"), PATHS{early});
}
