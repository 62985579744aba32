// The file layer's typed attributes: every type code, positions, copy and move.
#include <cstdio>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>

#include "base/DISKFILE.h"
#include "tests/base/DISKFILETestUtil.h"

namespace {

using filetest::freshDir;
using filetest::readRaw;
using filetest::writeRaw;

struct TYPECASE {
    const char *name;
    uint32_t type;
    std::string value;
};

std::string bytesOf(const void *data, size_t size) {
    return std::string(static_cast<const char *>(data), size);
}

std::vector<TYPECASE> typeCases() {
    int32_t time = 1'700'000'000, int32 = -42;
    uint32_t uint32 = 4'000'000'000u;
    int64_t int64 = -1;
    uint64_t uint64 = 1ull << 60;
    int16_t int16 = -300;
    int8_t int8 = -5;
    float real = 1.5f;
    double precise = -2.25;
    return {
        {"string", DISKFILE::kTypeString, std::string("Subject line\0", 13)},
        {"time", DISKFILE::kTypeTime, bytesOf(&time, 4)},
        {"int32", DISKFILE::kTypeInt32, bytesOf(&int32, 4)},
        {"uint32", DISKFILE::kTypeUInt32, bytesOf(&uint32, 4)},
        {"int64", DISKFILE::kTypeInt64, bytesOf(&int64, 8)},
        {"uint64", DISKFILE::kTypeUInt64, bytesOf(&uint64, 8)},
        {"int16", DISKFILE::kTypeInt16, bytesOf(&int16, 2)},
        {"int8", DISKFILE::kTypeInt8, bytesOf(&int8, 1)},
        {"bool", DISKFILE::kTypeBool, std::string(1, '\1')},
        {"float", DISKFILE::kTypeFloat, bytesOf(&real, 4)},
        {"double", DISKFILE::kTypeDouble, bytesOf(&precise, 8)},
        {"raw", DISKFILE::kTypeRaw, std::string("\0\1\2\377", 4)},
        {"mime", DISKFILE::kTypeMimeString, std::string("text/plain\0", 11)},
    };
}

std::string tagOf(uint32_t type) {
    return {char(type >> 24), char(type >> 16), char(type >> 8), char(type)};
}

class DISKFILEAttr : public testing::Test {
protected:
    std::string dir = freshDir("attr");
    std::string path = dir + "/file";
    DISKFILE file;
    void SetUp() override {
        ASSERT_EQ(file.create(path.c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    }
};

TEST_F(DISKFILEAttr, EveryTypeRoundTripsAndIsStoredWithItsTag) {
    for (const TYPECASE &c : typeCases()) {
        std::string name = std::string("VELLOWICK:") + c.name;
        size_t count = 0;
        ASSERT_EQ(file.attrWrite(name.c_str(), c.type, 0, c.value.data(), c.value.size(), &count),
                  DISKFILE::kSuccess)
            << c.name;
        EXPECT_EQ(count, c.value.size());
        uint32_t type = 0;
        uint64_t size = 0;
        ASSERT_EQ(file.attrInfo(name.c_str(), &type, &size), DISKFILE::kSuccess);
        EXPECT_EQ(type, c.type) << c.name;
        EXPECT_EQ(size, c.value.size()) << c.name;
        char buffer[64] = {};
        ASSERT_EQ(file.attrRead(name.c_str(), c.type, 0, buffer, sizeof(buffer), &count),
                  DISKFILE::kSuccess);
        EXPECT_EQ(std::string(buffer, count), c.value) << c.name;
        EXPECT_EQ(filetest::xattrRaw(path, "user." + name), tagOf(c.type) + c.value) << c.name;
    }
}

TEST_F(DISKFILEAttr, MissingEmptyPositionedAndErasedValues) {
    char buffer[16];
    size_t count = 7;
    uint32_t type = 1;
    uint64_t size = 1;
    EXPECT_EQ(file.attrRead("none", DISKFILE::kTypeInt32, 0, buffer, 4, &count),
              DISKFILE::kAttrNotFound);
    EXPECT_EQ(count, 0u);
    // attrInfo reports the plain "not found", unlike attrRead.
    EXPECT_EQ(file.attrInfo("none", &type, &size), DISKFILE::kNotFound);
    EXPECT_EQ(type, 0u);
    EXPECT_EQ(file.attrWrite("empty", DISKFILE::kTypeRaw, 0, nullptr, 0, &count),
              DISKFILE::kSuccess);
    EXPECT_EQ(file.attrRead("empty", DISKFILE::kTypeRaw, 0, buffer, 4, &count),
              DISKFILE::kEndOfFile);
    ASSERT_EQ(file.attrWrite("text", DISKFILE::kTypeString, 0, "abcdef", 6, &count),
              DISKFILE::kSuccess);
    EXPECT_EQ(file.attrWrite("text", DISKFILE::kTypeRaw, 8, "XY", 2, &count), DISKFILE::kSuccess);
    ASSERT_EQ(file.attrRead("text", 0, 2, buffer, sizeof(buffer), &count), DISKFILE::kSuccess);
    EXPECT_EQ(std::string(buffer, count), std::string("cdef\0\0XY", 8));
    EXPECT_EQ(file.attrInfo("text", &type, &size), DISKFILE::kSuccess);
    EXPECT_EQ(type, DISKFILE::kTypeRaw);
    EXPECT_EQ(file.attrRead("text", 0, 10, buffer, sizeof(buffer), &count), DISKFILE::kEndOfFile);
    // Writing from position 0 replaces the whole value.
    EXPECT_EQ(file.attrWrite("text", DISKFILE::kTypeString, 0, "z", 1, &count), DISKFILE::kSuccess);
    EXPECT_EQ(file.attrInfo("text", &type, &size), DISKFILE::kSuccess);
    EXPECT_EQ(size, 1u);
    EXPECT_EQ(file.attrErase("text"), DISKFILE::kSuccess);
    EXPECT_EQ(file.attrRead("text", 0, 0, buffer, 4, &count), DISKFILE::kAttrNotFound);
    // A value too short for a type tag was not written by us.
    ASSERT_EQ(setxattr(path.c_str(), "user.foreign", "ab", 2, 0), 0);
    EXPECT_EQ(file.attrRead("foreign", 0, 0, buffer, 4, &count), DISKFILE::kContentsInvalid);
    file.close();
    EXPECT_EQ(file.attrRead("text", 0, 0, buffer, 4, &count), DISKFILE::kNotOpen);
}

// Linux keeps at most 64 KiB in one extended attribute: a write that would reach past it is
// refused as the file system refuses it (no room), before any padding is built.
TEST_F(DISKFILEAttr, WritesBeyondTheLargestValueAreRefused) {
    size_t count = 0;
    ASSERT_EQ(file.attrWrite("text", DISKFILE::kTypeString, 0, "abc", 3, &count),
              DISKFILE::kSuccess);
    const int64_t positions[] = {int64_t(1) << 40, INT64_MAX, 65536};
    for (int64_t position : positions) {
        count = 9;
        EXPECT_EQ(file.attrWrite("text", DISKFILE::kTypeRaw, position, "x", 1, &count),
                  DISKFILE::kDiskFull)
            << position;
        EXPECT_EQ(count, 0u);
    }
    std::string big(70'000, 'b');
    EXPECT_EQ(file.attrWrite("text", DISKFILE::kTypeRaw, 0, big.data(), big.size(), &count),
              DISKFILE::kDiskFull);
    EXPECT_EQ(filetest::xattrRaw(path, "user.text"), "CSTRabc");
}

TEST_F(DISKFILEAttr, DirectoriesCarryAttributesToo) {
    DISKFILE folder;
    ASSERT_EQ(folder.open(dir.c_str(), DISKFILE::kWrite), DISKFILE::kSuccess);
    uint32_t unread = 17;
    size_t count = 0;
    EXPECT_EQ(folder.attrWrite("VELLOWICK:unread", DISKFILE::kTypeUInt32, 0, &unread, 4, &count),
              DISKFILE::kSuccess);
    unread = 0;
    EXPECT_EQ(folder.attrRead("VELLOWICK:unread", 0, 0, &unread, 4, &count), DISKFILE::kSuccess);
    EXPECT_EQ(unread, 17u);
}

TEST_F(DISKFILEAttr, CopyTakesContentsAndAttributesButPassesOverAnUnreadableFork) {
    std::string contents(200'000, '\0');
    std::mt19937 random(7);
    for (char &c : contents)
        c = char(random());
    size_t count = 0;
    ASSERT_EQ(file.write(contents.data(), contents.size(), &count), DISKFILE::kSuccess);
    ASSERT_EQ(file.mimeSet("text/x-vellowick"), DISKFILE::kSuccess);
    int32_t lines = 12;
    ASSERT_EQ(file.attrWrite("VELLOWICK:lines", DISKFILE::kTypeInt32, 0, &lines, 4, &count),
              DISKFILE::kSuccess);
    file.close();
    ASSERT_EQ(setxattr(path.c_str(), "user.MACOS:RFORK", "x", 1, 0), 0);

    DISKFILE copier;
    std::string copy = dir + "/copy";
    ASSERT_EQ(copier.copy(path.c_str(), copy.c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(readRaw(copy), contents);
    EXPECT_EQ(filetest::xattrRaw(copy, "user.VELLOWICK:lines"),
              filetest::xattrRaw(path, "user.VELLOWICK:lines"));
    EXPECT_EQ(filetest::xattrRaw(copy, "user.mime_type"), "text/x-vellowick");
    EXPECT_EQ(filetest::xattrRaw(copy, "user.MACOS:RFORK"), "<none>");

    // Any other unreadable attribute stops the copy; what was written stays.
    ASSERT_EQ(setxattr(path.c_str(), "user.broken", "x", 1, 0), 0);
    EXPECT_EQ(copier.copy(path.c_str(), (dir + "/second").c_str()), DISKFILE::kContentsInvalid);
    EXPECT_EQ(readRaw(dir + "/second"), contents);
    EXPECT_EQ(copier.copy(path.c_str(), path.c_str()), DISKFILE::kFileExists);
    EXPECT_EQ(readRaw(path), contents);
    EXPECT_EQ(copier.copy((dir + "/none").c_str(), copy.c_str()), DISKFILE::kNotFound);
}

TEST_F(DISKFILEAttr, MoveRenamesOnOneDeviceAndCopiesAcrossDevices) {
    size_t count = 0;
    ASSERT_EQ(file.write("body", 4, &count), DISKFILE::kSuccess);
    ASSERT_EQ(file.attrWrite("VELLOWICK:read", DISKFILE::kTypeBool, 0, "\1", 1, &count),
              DISKFILE::kSuccess);
    file.close();
    int64_t node = filetest::inode(path);
    writeRaw(dir + "/target", "to be replaced");
    DISKFILE mover;
    ASSERT_EQ(mover.move(path.c_str(), (dir + "/target").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(filetest::inode(dir + "/target"), node) << "same device: a rename";
    EXPECT_EQ(readRaw(dir + "/target"), "body");
    EXPECT_EQ(mover.move((dir + "/target").c_str(), (dir + "/target").c_str()), DISKFILE::kSuccess);
    EXPECT_EQ(readRaw(dir + "/target"), "body");

    struct stat here {};
    struct stat shm {};
    stat(dir.c_str(), &here);
    if (stat("/dev/shm", &shm) != 0 || shm.st_dev == here.st_dev)
        GTEST_SKIP() << "no second device to move across";
    std::string away = "/dev/shm/vellowick-move-" + std::to_string(getpid());
    if (setxattr("/dev/shm", "user.probe", "1", 1, 0) != 0 && errno == ENOTSUP)
        GTEST_SKIP() << "/dev/shm takes no user attributes";
    removexattr("/dev/shm", "user.probe");
    ASSERT_EQ(mover.move((dir + "/target").c_str(), away.c_str()), DISKFILE::kSuccess);
    EXPECT_FALSE(filetest::exists(dir + "/target"));
    EXPECT_EQ(readRaw(away), "body");
    EXPECT_EQ(filetest::xattrRaw(away, "user.VELLOWICK:read"), std::string("BOOL\1"));
    unlink(away.c_str());
}

// The destination is erased only when the move can go ahead: a missing source, a missing
// target folder or a source the owner may not move must not cost the user the destination.
TEST(DISKFILEMove, AFailedMoveKeepsTheDestination) {
    std::string dir = freshDir("move");
    writeRaw(dir + "/target", "precious");
    writeRaw(dir + "/fixed", "read-only", 0444);
    DISKFILE mover;
    const struct {
        std::string from;
        std::string to;
        DISKFILE::ERROR expected;
    } cases[] = {
        {dir + "/absent", dir + "/target", DISKFILE::kNotFound},
        {dir + "/fixed", dir + "/target", DISKFILE::kAccessDenied},
        {dir + "/fixed", dir + "/no/folder/target", DISKFILE::kNotFound},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(mover.move(c.from.c_str(), c.to.c_str()), c.expected) << c.from;
        EXPECT_EQ(readRaw(dir + "/target"), "precious") << c.from;
    }
    EXPECT_EQ(readRaw(dir + "/fixed"), "read-only");
}

} // namespace
