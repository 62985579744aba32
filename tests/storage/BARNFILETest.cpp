// Storage files: the newsgroups list, the volume check on a file system without attributes,
// bookmarks and the storage alert.
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "storage/BARNFILE.h"
#include "tests/storage/STORETEST.h"
#include "tests/support/ALERTRECORDER.h"

using namespace storetest;

namespace {
class BARNFILETest : public STORETEST {
protected:
    std::string listPath(const char *server, const char *extension) {
        return servers() + "/" + server + "/Newsgroups" + extension;
    }
};

std::string contents(const std::string &path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Set in the process the volume test starts inside its own mount namespace.
constexpr const char *kRamfsVariable = "VW_TEST_RAMFS";
} // namespace

TEST_F(BARNFILETest, ListReadReportsAMissingFileAndKeepsValidNamesInListOrder) {
    ASSERT_TRUE(startStore());
    long long server = serverMake("List");
    BARNFILE::LIST list{"stale"};
    ALERTRECORDER alerts;
    EXPECT_FALSE(BARNFILE::slistRead(server, &list));
    EXPECT_EQ(alerts.texts(),
              std::vector<std::string>{"Couldn't read newsgroups file.\nFilename: " +
                                       listPath("List", ".txt") + "\nProblem: File not found"});
    std::ofstream(listPath("List", ".txt"))
        << "comp.lang.c\nComp.Lang.C\ncomp.lang.c\nnot a group\n" + std::string(1500, 'x') + "\n";
    list = {"stale"};
    ASSERT_TRUE(BARNFILE::slistRead(server, &list));
    EXPECT_EQ(list, (BARNFILE::LIST{"Comp.Lang.C", "comp.lang.c"}));
    EXPECT_EQ(alerts.count(), 1u);
    EXPECT_TRUE(BARNFILE::slistRead(server + 12345, &list));
    EXPECT_TRUE(list.empty());
}

TEST_F(BARNFILETest, ListWriteKeepsTheOldListAsBackup) {
    ASSERT_TRUE(startStore());
    long long server = serverMake("Backup");
    BARNFILE::LIST first{"b.first", "a.first"};
    ASSERT_TRUE(BARNFILE::slistWrite(server, &first));
    BARNFILE::LIST second{"z.second", "z.second", "m.second"};
    ASSERT_TRUE(BARNFILE::slistWrite(server, &second));
    EXPECT_EQ(contents(listPath("Backup", ".txt")), "m.second\nz.second\n");
    EXPECT_EQ(contents(listPath("Backup", ".bak")), "a.first\nb.first\n");
    char type[64] = "";
    DISKFILE file;
    ASSERT_EQ(file.open(listPath("Backup", ".txt").c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    EXPECT_EQ(file.mimeGet(type, sizeof(type)), DISKFILE::kSuccess);
    EXPECT_STREQ(type, "text/plain");
    BARNFILE::LIST list{"alt_x", "altx", "alt.x", "ALTX", "altx"};
    BARNFILE::slistSort(&list);
    EXPECT_EQ(list, (BARNFILE::LIST{"alt.x", "ALTX", "altx", "alt_x"}))
        << "underscore after letters";
}

TEST_F(BARNFILETest, StartCreatesTheLayout) {
    ASSERT_TRUE(startStore());
    for (const char *folder : {"/news", "/news/Drafts", "/news/Outbox", "/saved",
                               "/news/Sent Messages", "/news/Servers", "/news/temp"}) {
        struct stat info {};
        EXPECT_EQ(stat((fRoot + folder).c_str(), &info), 0) << folder;
        EXPECT_TRUE(S_ISDIR(info.st_mode)) << folder;
    }
    EXPECT_TRUE(BARNFILE::dirTrash((fRoot + "/never-there").c_str()));
}

TEST_F(BARNFILETest, BookmarkCarriesTheLink) {
    ASSERT_TRUE(startStore());
    const char *link = "http://www.example.invalid/a/very/long/path/that/goes/on/and/on/past/sixty";
    DISKFILE::ENTRY ref;
    ASSERT_TRUE(BARNFILE::bookmarkCreate(link, &ref));
    EXPECT_EQ(std::string(ref.leaf()).size(), BARNFILE::kBookmarkNameMax);
    EXPECT_EQ(std::string(ref.path).rfind(news() + "/temp/", 0), 0u);
    DISKFILE file;
    ASSERT_EQ(file.open(ref, DISKFILE::kRead), DISKFILE::kSuccess);
    char value[200] = "";
    size_t count = 0;
    ASSERT_EQ(file.attrRead("META:url", 0, 0, value, sizeof(value), &count), DISKFILE::kSuccess);
    EXPECT_EQ(count, strlen(link) + 1);
    EXPECT_STREQ(value, link);
    EXPECT_FALSE(BARNFILE::bookmarkCreate("", &ref));
}

TEST(BARNFILEAlert, Format) {
    ALERTRECORDER alerts;
    BARNFILE::alert("Couldn't create storage directory", "/x/y", DISKFILE::kDiskFull);
    EXPECT_EQ(alerts.texts().at(0),
              "Couldn't create storage directory.\n\nPath: /x/y\nProblem: Disk is full\n");
}

// The data directory on a ramfs, which keeps no user attributes. The outer test runs this
// test again in a private mount namespace with the ramfs mounted; the inner run checks.
TEST_F(BARNFILETest, VolumeWithoutAttributesIsRefused) {
    if (const char *mounted = std::getenv(kRamfsVariable)) {
        std::string data = std::string(mounted) + "/data";
        ASSERT_LT(data.size(), sizeof(SETTINGS::storage.path));
        STR::copy(SETTINGS::storage.path, data.c_str(), sizeof(SETTINGS::storage.path));
        ALERTRECORDER alerts;
        THREAD::start();
        EXPECT_FALSE(barn.start());
        ASSERT_EQ(alerts.count(), 1u);
        EXPECT_EQ(alerts.texts()[0],
                  "Your storage path points to a location that is unacceptable.  Message files "
                  "must be stored on a writable BFS volume.\n\nPath: " +
                      data);
        return;
    }
    if (std::system("unshare --mount --propagation private true 2>/dev/null") != 0)
        GTEST_SKIP() << "no private mount namespace here (needs root)";
    std::string point = fRoot + "r";
    ASSERT_EQ(mkdir(point.c_str(), 0755), 0);
    std::string filter = "--gtest_filter=BARNFILETest.VolumeWithoutAttributesIsRefused";
    char self[4096] = "";
    ASSERT_GT(readlink("/proc/self/exe", self, sizeof(self) - 1), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        setenv(kRamfsVariable, point.c_str(), 1);
        execlp("unshare", "unshare", "--mount", "--propagation", "private", "sh", "-c",
               "mount -t ramfs none \"$0\" || exit 77; exec \"$1\" \"$2\" >&2", point.c_str(), self,
               filter.c_str(), nullptr);
        _exit(77);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    rmdir(point.c_str());
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "no ramfs can be mounted here";
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
