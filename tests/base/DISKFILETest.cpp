// The file layer: error table, open file operations, permissions, locks, paths and the trash.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include "base/DISKFILE.h"
#include "tests/base/DISKFILETestUtil.h"

namespace {

using filetest::exists;
using filetest::freshDir;
using filetest::readRaw;
using filetest::writeRaw;

struct TEXTCASE {
    int32_t error;
    const char *text;
};

TEST(DISKFILEErrors, TextsAndUnknownValues) {
    const TEXTCASE cases[] = {
        {0, "Successful file operation"},
        {1, "File access denied"},
        {13, "End of file reached"},
        {18, "Line longer than fileLineMax chars, file may contain binary data"},
        {19, "File doesn't have MIME type"},
        {29, "Couldn't write to file"},
        {30, "Unknown file error"},
        {-1, "Unknown file error"},
        {1000, "Unknown file error"},
    };
    for (const TEXTCASE &c : cases)
        EXPECT_STREQ(DISKFILE::errorStr(c.error), c.text) << c.error;
}

TEST(DISKFILEErrors, StatusMappingAndDirectoryTranslation) {
    const struct {
        int status;
        DISKFILE::ERROR expected;
    } statuses[] = {
        {0, DISKFILE::kSuccess},
        {EEXIST, DISKFILE::kFileExists},
        {EBUSY, DISKFILE::kAccessDenied},
        {EPERM, DISKFILE::kAccessDenied},
        {EINVAL, DISKFILE::kNotLocked},
        {ENOENT, DISKFILE::kNotFound},
        {ENOTEMPTY, DISKFILE::kDirNotEmpty},
        {ENOSPC, DISKFILE::kDiskFull},
        {EMFILE, DISKFILE::kTooManyFiles},
        // Permission denied is not in the table: the operation's own fallback.
        {EACCES, DISKFILE::kReadFailed},
        {EIO, DISKFILE::kReadFailed},
    };
    for (const auto &c : statuses)
        EXPECT_EQ(DISKFILE::errorGet(c.status, DISKFILE::kReadFailed), c.expected) << c.status;
    EXPECT_EQ(DISKFILE::dirTranslate(DISKFILE::kFileExists), DISKFILE::kDirExists);
    EXPECT_EQ(DISKFILE::dirTranslate(DISKFILE::kCreateFailed), DISKFILE::kDirCreateFailed);
    EXPECT_EQ(DISKFILE::dirTranslate(DISKFILE::kNotFound), DISKFILE::kDirNotFound);
    EXPECT_EQ(DISKFILE::dirTranslate(DISKFILE::kRenameFailed), DISKFILE::kDirRenameFailed);
    EXPECT_EQ(DISKFILE::dirTranslate(DISKFILE::kDirNotEmpty), DISKFILE::kDirNotEmpty);
}

TEST(DISKFILEPerm, MaskKeepsHighBitsAndKnowsTheOddValue) {
    const struct {
        int32_t access;
        uint32_t before, after;
    } cases[] = {
        {DISKFILE::kRead, 04777, 04444},
        {DISKFILE::kWrite, 0555, 0222},
        {DISKFILE::kReadWrite, 01111, 01666},
        {DISKFILE::kNoAccess, 02777, 02000},
        {3, 0751, 0751}, // only the odd 31719 means "none"
    };
    for (const auto &c : cases)
        EXPECT_EQ(DISKFILE::permMask(DISKFILE::ACCESS(c.access), c.before), c.after) << c.access;
}

class DISKFILEOpen : public testing::Test {
protected:
    std::string dir = freshDir("open");
    DISKFILE file;
};

TEST_F(DISKFILEOpen, ReadUntilEndOfFileGives13WithCountZero) {
    writeRaw(dir + "/a", "abcdef");
    ASSERT_EQ(file.open((dir + "/a").c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    char buffer[4];
    size_t count = 99;
    std::string got;
    DISKFILE::ERROR error;
    while ((error = file.read(buffer, sizeof(buffer), &count)) == DISKFILE::kSuccess)
        got.append(buffer, count);
    EXPECT_EQ(error, DISKFILE::kEndOfFile);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(got, "abcdef");
    EXPECT_EQ(file.close(), DISKFILE::kSuccess);
    EXPECT_EQ(file.close(), DISKFILE::kNotOpen);
    EXPECT_EQ(file.read(buffer, sizeof(buffer), &count), DISKFILE::kNotOpen);
}

TEST_F(DISKFILEOpen, CreateLeavesReadOnlyFilesAndTruncatesWritableOnes) {
    writeRaw(dir + "/ro", "keep me", 0444);
    EXPECT_EQ(file.create((dir + "/ro").c_str(), DISKFILE::kReadWrite), DISKFILE::kAccessDenied);
    EXPECT_FALSE(file.open());
    EXPECT_EQ(readRaw(dir + "/ro"), "keep me");
    writeRaw(dir + "/rw", "old contents");
    ASSERT_EQ(file.create((dir + "/rw").c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    size_t count = 0;
    EXPECT_EQ(file.write("new", 3, &count), DISKFILE::kSuccess);
    EXPECT_EQ(count, 3u);
    file.close();
    EXPECT_EQ(readRaw(dir + "/rw"), "new");
    EXPECT_EQ(file.open((dir + "/absent").c_str(), DISKFILE::kRead), DISKFILE::kNotFound);
    EXPECT_EQ(file.create((dir + "/no/such/dir").c_str(), DISKFILE::kWrite), DISKFILE::kNotFound);
}

TEST_F(DISKFILEOpen, PathsAreCutAt300Characters) {
    // Leaf names stop at 255 bytes: a long folder first, then the leaf.
    std::string folder = dir + "/" + std::string(150, 'f');
    std::filesystem::create_directories(folder);
    std::string path = folder + "/";
    path += std::string(DISKFILE::kPathMax - path.size(), 'p');
    ASSERT_EQ(path.size(), 300u);
    writeRaw(path, "cut");
    ASSERT_EQ(file.open((path + "tail beyond the limit").c_str(), DISKFILE::kRead),
              DISKFILE::kSuccess);
    char name[400];
    ASSERT_EQ(file.filename(name, sizeof(name)), DISKFILE::kSuccess);
    EXPECT_EQ(std::string(name), path);
    char small[8];
    ASSERT_EQ(file.filename(small, sizeof(small)), DISKFILE::kSuccess);
    EXPECT_EQ(std::string(small), path.substr(0, 7));
}

// Tests run as root, for whom the kernel ignores permission bits: the class checks the owner
// bits itself, and these cases prove it.
TEST_F(DISKFILEOpen, OwnerBitChecksHoldForEveryUser) {
    writeRaw(dir + "/wo", "secret", 0200);
    ASSERT_EQ(file.open((dir + "/wo").c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    char buffer[8];
    size_t count = 5;
    char mime[32];
    EXPECT_EQ(file.read(buffer, sizeof(buffer), &count), DISKFILE::kAccessDenied);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(file.attrRead("a", DISKFILE::kTypeInt32, 0, buffer, 4, &count),
              DISKFILE::kAccessDenied);
    EXPECT_EQ(file.mimeGet(mime, sizeof(mime)), DISKFILE::kAccessDenied);
    EXPECT_EQ(file.write("x", 1, &count), DISKFILE::kSuccess);

    writeRaw(dir + "/ro", "fixed", 0444);
    ASSERT_EQ(file.open((dir + "/ro").c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    int32_t value = 1;
    EXPECT_EQ(file.write("x", 1, &count), DISKFILE::kAccessDenied);
    EXPECT_EQ(file.attrWrite("a", DISKFILE::kTypeInt32, 0, &value, 4, &count),
              DISKFILE::kAccessDenied);
    EXPECT_EQ(file.attrErase("a"), DISKFILE::kAccessDenied);
    EXPECT_EQ(file.sizeSet(0), DISKFILE::kAccessDenied);
    EXPECT_EQ(file.mimeSet("text/plain"), DISKFILE::kAccessDenied);
    EXPECT_EQ(file.lock(true), DISKFILE::kAccessDenied);
    EXPECT_FALSE(file.locked());
    EXPECT_EQ(file.read(buffer, sizeof(buffer), &count), DISKFILE::kSuccess);
    file.close();
    EXPECT_EQ(file.erase((dir + "/ro").c_str()), DISKFILE::kAccessDenied);
    EXPECT_EQ(file.rename((dir + "/ro").c_str(), (dir + "/moved").c_str()),
              DISKFILE::kAccessDenied);
    EXPECT_EQ(readRaw(dir + "/ro"), "fixed");
}

// A named pipe where a file is expected (a name in a folder the user shares with other
// programs) must not hang the thread that opens it.
TEST_F(DISKFILEOpen, NamedPipesNeverBlockTheOpen) {
    std::string pipe = dir + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    ASSERT_EQ(file.open(pipe.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    char buffer[4];
    size_t count = 9;
    EXPECT_EQ(file.read(buffer, sizeof(buffer), &count), DISKFILE::kEndOfFile);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(file.create(pipe.c_str(), DISKFILE::kWrite), DISKFILE::kCreateFailed);
    EXPECT_FALSE(file.open());
}

TEST_F(DISKFILEOpen, LocksAreRealAndOwnedByTheObject) {
    writeRaw(dir + "/l", "x");
    DISKFILE other;
    ASSERT_EQ(file.open((dir + "/l").c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    ASSERT_EQ(other.open((dir + "/l").c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    EXPECT_EQ(file.lock(false), DISKFILE::kNotLocked);
    ASSERT_EQ(other.lock(true), DISKFILE::kSuccess);
    // Never locked by this object: 21 although another object holds a lock.
    EXPECT_EQ(file.lock(false), DISKFILE::kNotLocked);
    EXPECT_EQ(file.lock(true), DISKFILE::kAccessDenied);
    EXPECT_FALSE(file.locked());
    EXPECT_EQ(other.lock(true), DISKFILE::kAlreadyLocked);
    EXPECT_EQ(other.lock(false), DISKFILE::kSuccess);
    EXPECT_EQ(file.lock(true), DISKFILE::kSuccess);
    EXPECT_TRUE(file.locked());
    file.close();
    EXPECT_FALSE(file.locked());
    EXPECT_EQ(other.lock(true), DISKFILE::kSuccess);
}

TEST_F(DISKFILEOpen, PositionSizeNodeTimesTypePermissionsAndMime) {
    ASSERT_EQ(file.create((dir + "/f").c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    char mime[64];
    EXPECT_EQ(file.mimeGet(mime, sizeof(mime)), DISKFILE::kNoMimeType);
    EXPECT_EQ(file.mimeSet("text/x-vellowick"), DISKFILE::kSuccess);
    EXPECT_EQ(file.mimeGet(mime, sizeof(mime)), DISKFILE::kSuccess);
    EXPECT_STREQ(mime, "text/x-vellowick");
    EXPECT_EQ(filetest::xattrRaw(dir + "/f", "user.mime_type"), "text/x-vellowick");
    size_t count = 0;
    ASSERT_EQ(file.write("0123456789", 10, &count), DISKFILE::kSuccess);
    int64_t at = -1;
    EXPECT_EQ(file.position(DISKFILE::kFromEnd, -4), DISKFILE::kSuccess);
    EXPECT_EQ(file.position(&at), DISKFILE::kSuccess);
    EXPECT_EQ(at, 6);
    // Methods above 2 count from the start.
    EXPECT_EQ(file.position(DISKFILE::PTRMETHOD(9), 2), DISKFILE::kSuccess);
    file.position(&at);
    EXPECT_EQ(at, 2);
    EXPECT_EQ(file.position(DISKFILE::kFromCurrent, -3), DISKFILE::kPositionFailed);
    uint64_t size = 0;
    EXPECT_EQ(file.sizeSet(4), DISKFILE::kSuccess);
    EXPECT_EQ(file.sizeGet(&size), DISKFILE::kSuccess);
    EXPECT_EQ(size, 4u);
    int64_t id = 0;
    EXPECT_EQ(file.node(&id), DISKFILE::kSuccess);
    EXPECT_EQ(id, filetest::inode(dir + "/f"));
    DISKFILE::ENTRYTYPE type = DISKFILE::kEntryUnknown;
    EXPECT_EQ(file.type(&type), DISKFILE::kSuccess);
    EXPECT_EQ(type, DISKFILE::kEntryFile);
    int64_t created = 0;
    EXPECT_EQ(file.creationTimeGet(&created), DISKFILE::kSuccess);
    EXPECT_NEAR(double(created / 1'000'000), double(time(nullptr)), 5.0);
    EXPECT_EQ(created % 1'000'000, 0);
    // Setting changes the modification time (birth times cannot be set on Linux).
    EXPECT_EQ(file.creationTimeSet(1'000'000'000'500'000), DISKFILE::kSuccess);
    struct stat info {};
    stat((dir + "/f").c_str(), &info);
    EXPECT_EQ(info.st_mtime, 1'000'000'000);
    file.close();
    chmod((dir + "/f").c_str(), 04755);
    ASSERT_EQ(file.open((dir + "/f").c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    ASSERT_EQ(file.permUpdate(DISKFILE::kRead), DISKFILE::kSuccess);
    uint32_t bits = 0;
    ASSERT_EQ(file.permGet(&bits), DISKFILE::kSuccess);
    EXPECT_EQ(bits, 04444u);
}

TEST(DISKFILEPaths, TypesRenameEraseAndEntries) {
    std::string dir = freshDir("paths");
    DISKFILE file;
    writeRaw(dir + "/a", "a");
    writeRaw(dir + "/b", "b");
    symlink("a", (dir + "/link").c_str());
    const struct {
        std::string path;
        DISKFILE::ENTRYTYPE type;
    } types[] = {{dir + "/a", DISKFILE::kEntryFile},
                 {dir, DISKFILE::kEntryDirectory},
                 {dir + "/link", DISKFILE::kEntryLink}};
    for (const auto &t : types) {
        DISKFILE::ENTRYTYPE got = DISKFILE::kEntryUnknown;
        EXPECT_EQ(file.typeGet(t.path.c_str(), &got), DISKFILE::kSuccess);
        EXPECT_EQ(got, t.type) << t.path;
    }
    // Renames never replace: the trash's name sequence depends on it.
    EXPECT_EQ(file.rename((dir + "/a").c_str(), (dir + "/b").c_str()), DISKFILE::kFileExists);
    EXPECT_EQ(file.rename((dir + "/a").c_str(), (dir + "/c").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(readRaw(dir + "/c"), "a");
    EXPECT_EQ(file.erase((dir + "/c").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(file.erase((dir + "/c").c_str()), DISKFILE::kNotFound);
    EXPECT_EQ(file.erase((dir + "/link").c_str()), DISKFILE::kSuccess);
    DISKFILE::ENTRY ref;
    ASSERT_EQ(file.pathToRef(&ref, (dir + "/b").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(ref.node, filetest::inode(dir + "/b"));
    EXPECT_EQ(ref.directory, filetest::inode(dir));
    EXPECT_STREQ(ref.leaf(), "b");
    char path[301];
    ASSERT_EQ(file.refToPath(ref, path, sizeof(path)), DISKFILE::kSuccess);
    EXPECT_EQ(std::string(path), dir + "/b");
    ASSERT_EQ(file.open(ref, DISKFILE::kRead), DISKFILE::kSuccess);
    int64_t device = 0;
    EXPECT_EQ(file.volume((dir + "/nothing").c_str(), &device), DISKFILE::kNotFound);
    EXPECT_EQ(device, -10);
}

TEST(DISKFILETrash, NameSequenceAndTrashInfo) {
    std::string dir = freshDir("trash");
    std::string files = testhome::path() + "/.local/share/Trash/files/";
    std::string info = testhome::path() + "/.local/share/Trash/info/";
    DISKFILE file;
    const char *expected[] = {"note", "note copy", "note copy 2", "note copy 3"};
    for (int i = 0; i < 4; ++i) {
        writeRaw(dir + "/note", "version " + std::to_string(i));
        ASSERT_EQ(file.trash((dir + "/note").c_str()), DISKFILE::kSuccess) << i;
        EXPECT_FALSE(exists(dir + "/note"));
        EXPECT_EQ(readRaw(files + expected[i]), "version " + std::to_string(i));
        std::string trashInfo = readRaw(info + expected[i] + ".trashinfo");
        EXPECT_EQ(trashInfo.rfind("[Trash Info]\nPath=" + dir + "/note\nDeletionDate=", 0), 0u)
            << trashInfo;
    }
    EXPECT_EQ(file.trash((dir + "/note").c_str()), DISKFILE::kNotFound);
    std::filesystem::create_directories(dir + "/folder/inner");
    EXPECT_EQ(file.dirTrash((dir + "/folder").c_str()), DISKFILE::kSuccess);
    EXPECT_TRUE(exists(files + "folder/inner"));
    EXPECT_EQ(file.dirTrash((dir + "/folder").c_str()), DISKFILE::kDirNotFound);
    for (const char *name : expected)
        std::filesystem::remove(files + name);
}

// A leaf too long for the trash folder is cut there like any path; its .trashinfo carries
// the name it was given, so that the desktop can restore it.
TEST(DISKFILETrash, ACutNameKeepsItsTrashInfo) {
    std::string dir = freshDir("trashcut");
    // A data folder deep enough that the trash cuts a 200-character name, which still leaves
    // room for ".trashinfo" in a name of at most 255.
    std::string data = freshDir(std::string(100, 'x'));
    std::string trash = data + "/Trash";
    const char *before = getenv("XDG_DATA_HOME");
    std::string saved = before != nullptr ? before : "";
    setenv("XDG_DATA_HOME", data.c_str(), 1);
    std::string leaf(200, 'n');
    writeRaw(dir + "/" + leaf, "long");
    DISKFILE file;
    ASSERT_EQ(file.trash((dir + "/" + leaf).c_str()), DISKFILE::kSuccess);
    std::string kept = (trash + "/files/" + leaf).substr(0, DISKFILE::kPathMax);
    std::string name = kept.substr(kept.rfind('/') + 1);
    EXPECT_EQ(readRaw(kept), "long");
    std::string trashInfo = readRaw(trash + "/info/" + name + ".trashinfo");
    EXPECT_EQ(trashInfo.rfind("[Trash Info]\nPath=" + dir + "/" + leaf + "\n", 0), 0u) << trashInfo;
    EXPECT_LT(name.size(), leaf.size()) << "the name was cut";
    setenv("XDG_DATA_HOME", saved.c_str(), 1);
    std::filesystem::remove_all(data);
}

TEST(DISKFILEDirs, CreateEraseRenameProbes) {
    std::string dir = freshDir("dirs");
    DISKFILE file;
    std::string sub = dir + "/sub";
    EXPECT_EQ(file.dirCreate(sub.c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    struct stat info {};
    stat(sub.c_str(), &info);
    EXPECT_EQ(info.st_mode & S_IXUSR, unsigned(S_IXUSR)) << "readable directories are searchable";
    EXPECT_EQ(file.dirCreate(sub.c_str(), DISKFILE::kReadWrite), DISKFILE::kDirExists);
    EXPECT_EQ(file.dirCreate((dir + "/x/y").c_str(), DISKFILE::kReadWrite), DISKFILE::kDirNotFound);
    writeRaw(sub + "/f", "f");
    EXPECT_EQ(file.dirErase(sub.c_str()), DISKFILE::kDirNotEmpty);
    EXPECT_EQ(file.dirRename(sub.c_str(), (dir + "/renamed").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(file.dirRename(sub.c_str(), (dir + "/again").c_str()), DISKFILE::kDirNotFound);
    EXPECT_EQ(file.dirAccess((dir + "/renamed").c_str()), DISKFILE::kSuccess);
    EXPECT_FALSE(exists(dir + "/renamed/temp_$$@.dat"));
    EXPECT_EQ(file.dirAccess((dir + "/missing").c_str()), DISKFILE::kDirNotFound);
    bool bfs = false;
    EXPECT_EQ(file.dirIsBFS(dir.c_str(), &bfs), DISKFILE::kSuccess);
    EXPECT_TRUE(bfs);
    EXPECT_EQ(file.dirIsBFS((dir + "/missing").c_str(), &bfs), DISKFILE::kDirNotFound);
    EXPECT_FALSE(bfs);
    EXPECT_EQ(file.dirErase((dir + "/missing").c_str()), DISKFILE::kDirNotFound);
}

struct WALK {
    std::vector<std::pair<std::string, int32_t>> seen;
    std::string stopAt;
    bool abort = false;
};

bool walkRecord(void *data, bool *next, int32_t depth, const DISKFILE::ENTRY &entry) {
    auto *walk = static_cast<WALK *>(data);
    walk->seen.emplace_back(entry.leaf(), depth);
    if (walk->stopAt == entry.leaf()) {
        *next = false;
        return !walk->abort;
    }
    return true;
}

TEST(DISKFILEDirs, IterateRecursiveFlatAndObliterate) {
    std::string dir = freshDir("walk");
    std::filesystem::create_directories(dir + "/a/b");
    writeRaw(dir + "/top", "");
    writeRaw(dir + "/a/mid", "");
    writeRaw(dir + "/a/b/deep", "");
    DISKFILE file;
    WALK walk;
    ASSERT_EQ(file.dirIterate(dir.c_str(), true, walkRecord, &walk), DISKFILE::kSuccess);
    std::sort(walk.seen.begin(), walk.seen.end());
    const std::vector<std::pair<std::string, int32_t>> all = {
        {"a", 0}, {"b", 1}, {"deep", 2}, {"mid", 1}, {"top", 0}};
    EXPECT_EQ(walk.seen, all);
    WALK flat;
    ASSERT_EQ(file.dirIterate(dir.c_str(), false, walkRecord, &flat), DISKFILE::kSuccess);
    EXPECT_EQ(flat.seen.size(), 2u);
    WALK stop;
    stop.stopAt = "deep";
    EXPECT_EQ(file.dirIterate(dir.c_str(), true, walkRecord, &stop), DISKFILE::kSuccess);
    EXPECT_EQ(stop.seen.back().first, "deep") << "a cleared flag ends the whole walk";
    WALK aborted = stop;
    aborted.seen.clear();
    aborted.abort = true;
    EXPECT_EQ(file.dirIterate(dir.c_str(), true, walkRecord, &aborted),
              DISKFILE::kIterationAborted);
    int raw = 0;
    auto count = [](void *data, const DISKFILE::ENTRY &) {
        ++*static_cast<int *>(data);
        return true;
    };
    EXPECT_EQ(file.dirIterate(dir.c_str(), count, &raw), DISKFILE::kSuccess);
    EXPECT_EQ(raw, 2);
    EXPECT_EQ(file.dirIterate((dir + "/none").c_str(), count, &raw), DISKFILE::kDirNotFound);
    EXPECT_EQ(file.dirObliterate(dir.c_str()), DISKFILE::kSuccess);
    EXPECT_FALSE(exists(dir));
}

// A folder below dir whose path is exactly length characters long.
std::string folderOfLength(const std::string &dir, size_t length) {
    std::string path = dir;
    while (path.size() + 1 < length) {
        size_t part = std::min<size_t>(length - path.size() - 1, 200);
        // Never leave a remainder too short for a name of its own.
        if (length - path.size() - 1 - part == 1)
            --part;
        path += "/" + std::string(part, 'd');
        std::filesystem::create_directories(path);
    }
    return path;
}

// A child whose full path does not fit is passed over: its cut path would name the folder
// itself (which a walk would enter again without end) or another entry.
TEST(DISKFILEDirs, EntriesWhosePathsDoNotFitArePassedOver) {
    for (size_t length : {DISKFILE::kPathMax - 1, DISKFILE::kPathMax}) {
        std::string dir = freshDir("fit");
        std::string folder = folderOfLength(dir, length);
        ASSERT_EQ(folder.size(), length);
        std::filesystem::create_directories(folder + "/sub/deeper");
        writeRaw(folder + "/file", "keep");
        DISKFILE file;
        WALK walk;
        ASSERT_EQ(file.dirIterate(folder.c_str(), true, walkRecord, &walk), DISKFILE::kSuccess);
        EXPECT_TRUE(walk.seen.empty());
        EXPECT_EQ(file.dirObliterate(folder.c_str()), DISKFILE::kDirNotEmpty);
        EXPECT_EQ(readRaw(folder + "/file"), "keep");
        EXPECT_TRUE(exists(folder + "/sub/deeper"));
        std::filesystem::remove_all(dir);
    }
}

// The probe's cut path would be another file of the folder, which it would empty and erase.
TEST(DISKFILEDirs, AccessProbeNeverStandsInForAnotherFile) {
    std::string dir = freshDir("probe");
    std::string folder = folderOfLength(dir, DISKFILE::kPathMax - 5);
    writeRaw(folder + "/temp", "user data");
    ASSERT_EQ((folder + "/temp").size(), DISKFILE::kPathMax);
    DISKFILE file;
    EXPECT_EQ(file.dirAccess(folder.c_str()), DISKFILE::kPathInvalid);
    EXPECT_EQ(readRaw(folder + "/temp"), "user data");
    std::filesystem::remove_all(dir);
}

} // namespace
