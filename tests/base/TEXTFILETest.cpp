// Buffered text files: line ends, the 1000-character limit, buffered writing and positions.
#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "base/TEXTFILE.h"
#include "tests/support/TestHome.h"

namespace {

std::string pathFor(const char *leaf) {
    return testhome::path() + "/" + leaf;
}

void put(const std::string &path, const std::string &bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

std::string get(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream all;
    all << in.rdbuf();
    return all.str();
}

// Every lineRead result of a file, "18:" marking a cut piece; read with a given buffer size.
std::vector<std::string> lines(const std::string &bytes, size_t bufferSize) {
    std::string path = pathFor("lines.txt");
    put(path, bytes);
    TEXTFILE file(bufferSize);
    EXPECT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    std::vector<std::string> out;
    char line[TEXTFILE::kLineMax + 1];
    for (int guard = 0; guard < 10000; guard++) {
        size_t length = 99;
        DISKFILE::ERROR error = file.lineRead(line, sizeof line, &length);
        if (error == DISKFILE::kEndOfFile) {
            EXPECT_EQ(length, 0u);
            break;
        }
        EXPECT_EQ(line[length], 0);
        out.push_back((error == DISKFILE::kLineTooLong ? "18:" : "") + std::string(line, length));
    }
    return out;
}

struct LINECASE {
    const char *name;
    std::string bytes;
    std::vector<std::string> lines;
};
class TEXTFILELines : public testing::TestWithParam<LINECASE> {};

const std::string k1000(1000, 'x');

const LINECASE kLines[] = {
    {"lf", "a\nb\n", {"a", "b"}},
    {"crlf", "a\r\nb\r\n", {"a", "b"}},
    {"last_line_unended", "a\nb", {"a", "b"}},
    {"empty_file", "", {}},
    {"empty_lines", "\n\r\n\n", {"", "", ""}},
    {"lone_cr_is_text", "a\rb\n", {"a\rb"}},
    {"cr_at_end_is_text", "x\r", {"x\r"}},
    {"cr_cr_lf", "abc\r\r\n", {"abc\r"}},
    {"nul_bytes", std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
    {"exactly_1000", k1000 + "\nz\n", {k1000, "z"}},
    {"exactly_1000_crlf", k1000 + "\r\nz", {k1000, "z"}},
    {"1001_continues", k1000 + "yz\nq\n", {"18:" + k1000, "yz", "q"}},
    {"1000_then_cr_text", k1000 + "\rq\n", {"18:" + k1000, "\rq"}},
    {"2500_in_pieces",
     std::string(2500, 'p') + "\n",
     {"18:" + std::string(1000, 'p'), "18:" + std::string(1000, 'p'), std::string(500, 'p')}},
};

TEST_P(TEXTFILELines, ReadAtEveryBufferSize) {
    const LINECASE &c = GetParam();
    for (size_t bufferSize : {size_t(16), size_t(17), size_t(1001), size_t(65536)})
        EXPECT_EQ(lines(c.bytes, bufferSize), c.lines) << "buffer " << bufferSize;
}

INSTANTIATE_TEST_SUITE_P(Cases, TEXTFILELines, testing::ValuesIn(kLines),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(TEXTFILE, SmallCallerBufferAndSkippingTheRest) {
    std::string path = pathFor("skip.txt");
    put(path, "abcdefgh\r\nsecond\n");
    TEXTFILE file;
    ASSERT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    char small[5];
    size_t length = 0;
    EXPECT_EQ(file.lineRead(small, sizeof small, &length), DISKFILE::kLineTooLong);
    EXPECT_STREQ(small, "abcd");
    EXPECT_EQ(file.lineSkip(), DISKFILE::kSuccess);
    char line[100];
    EXPECT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    EXPECT_STREQ(line, "second");
    EXPECT_EQ(file.lineSkip(), DISKFILE::kEndOfFile);
    EXPECT_EQ(file.lineRead(line, sizeof line), DISKFILE::kEndOfFile);
    EXPECT_STREQ(line, "");
    EXPECT_STREQ(DISKFILE::errorStr(DISKFILE::kLineTooLong),
                 "Line longer than fileLineMax chars, file may contain binary data");
}

TEST(TEXTFILE, NothingOpen) {
    TEXTFILE file;
    char line[10] = "junk";
    size_t count = 5;
    EXPECT_EQ(file.lineRead(line, sizeof line), DISKFILE::kNotOpen);
    EXPECT_STREQ(line, "");
    EXPECT_EQ(file.read(line, sizeof line, &count), DISKFILE::kNotOpen);
    EXPECT_EQ(count, 0u);
    EXPECT_EQ(file.lineWrite("x"), DISKFILE::kNotOpen);
    EXPECT_EQ(file.close(), DISKFILE::kNotOpen);
    EXPECT_EQ(file.open((testhome::path() + "/absent").c_str(), DISKFILE::kRead),
              DISKFILE::kNotFound);
}

TEST(TEXTFILE, BufferedWritingReachesTheFile) {
    std::string path = pathFor("written.txt");
    std::string expected;
    {
        TEXTFILE file(32);
        ASSERT_EQ(file.create(path.c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
        EXPECT_EQ(file.lineWrite("[Storage]"), DISKFILE::kSuccess);
        EXPECT_EQ(file.printf("%s = %d", "Port", 119), DISKFILE::kSuccess);
        EXPECT_EQ(file.textWrite("\n"), DISKFILE::kSuccess);
        std::string big(100, 'b'); // bigger than the buffer: written straight through
        size_t count = 0;
        EXPECT_EQ(file.write(big.data(), big.size(), &count), DISKFILE::kSuccess);
        EXPECT_EQ(count, big.size());
        expected = "[Storage]\nPort = 119\n" + big;
        int64_t at = 0;
        EXPECT_EQ(file.position(&at), DISKFILE::kSuccess);
        EXPECT_EQ(at, int64_t(expected.size()));
        EXPECT_EQ(file.lineWrite("tail"), DISKFILE::kSuccess);
        expected += "tail\n";
        uint64_t size = 0;
        EXPECT_EQ(file.sizeGet(&size), DISKFILE::kSuccess);
        EXPECT_EQ(size, expected.size());
        EXPECT_EQ(file.lineWrite("kept by the destructor"), DISKFILE::kSuccess);
        expected += "kept by the destructor\n";
    }
    EXPECT_EQ(get(path), expected);
}

TEST(TEXTFILE, PositionsMixReadingAndWriting) {
    std::string path = pathFor("mixed.txt");
    put(path, "one\ntwo\nthree\n");
    TEXTFILE file(16);
    ASSERT_EQ(file.open(path.c_str(), DISKFILE::kReadWrite), DISKFILE::kSuccess);
    char line[100];
    ASSERT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    int64_t at = 0;
    EXPECT_EQ(file.position(&at), DISKFILE::kSuccess);
    EXPECT_EQ(at, 4); // after "one\n", though the buffer read ahead
    size_t count = 0;
    char bytes[2];
    EXPECT_EQ(file.read(bytes, sizeof bytes, &count), DISKFILE::kSuccess);
    EXPECT_EQ(std::string(bytes, count), "tw");
    // Writing after a read lands where the reader stopped, not where the read-ahead did.
    EXPECT_EQ(file.textWrite("O"), DISKFILE::kSuccess);
    EXPECT_EQ(file.position(DISKFILE::kFromStart, 8), DISKFILE::kSuccess);
    ASSERT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    EXPECT_STREQ(line, "three");
    EXPECT_EQ(file.position(DISKFILE::kFromStart, 0), DISKFILE::kSuccess);
    ASSERT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    EXPECT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    EXPECT_STREQ(line, "twO");
    EXPECT_EQ(file.position(DISKFILE::kFromCurrent, -4), DISKFILE::kSuccess);
    EXPECT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    EXPECT_STREQ(line, "twO");
    EXPECT_EQ(file.sizeSet(3), DISKFILE::kSuccess);
    EXPECT_EQ(file.close(), DISKFILE::kSuccess);
    EXPECT_EQ(get(path), "one");
}

TEST(TEXTFILE, ReopeningWritesOutTheOldFileFirst) {
    std::string first = pathFor("first.txt"), second = pathFor("second.txt");
    put(second, "x\n");
    TEXTFILE file;
    ASSERT_EQ(file.create(first.c_str(), DISKFILE::kWrite), DISKFILE::kSuccess);
    EXPECT_EQ(file.lineWrite("pending"), DISKFILE::kSuccess);
    ASSERT_EQ(file.open(second.c_str(), DISKFILE::kRead, 64), DISKFILE::kSuccess);
    EXPECT_EQ(get(first), "pending\n");
    char line[10];
    EXPECT_EQ(file.lineRead(line, sizeof line), DISKFILE::kSuccess);
    EXPECT_STREQ(line, "x");
}

// Random bytes, random buffer sizes: the pieces lineRead returns are exactly the file with its
// line ends taken out, whatever the bytes are.
TEST(TEXTFILE, GarbageComesBackWhole) {
    std::mt19937 random(5);
    const std::string path = pathFor("garbage.bin");
    for (int round = 0; round < 200; round++) {
        std::string bytes;
        for (size_t n = random() % 5000; n > 0; n--) {
            unsigned pick = random() % 10;
            bytes += pick == 0 ? '\n' : pick == 1 ? '\r' : char(random() % 255 + 1);
        }
        put(path, bytes);
        TEXTFILE file(TEXTFILE::kBufferMin + random() % 300);
        ASSERT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
        std::string joined;
        char line[TEXTFILE::kLineMax + 1];
        size_t length = 0;
        for (DISKFILE::ERROR error;
             (error = file.lineRead(line, sizeof line, &length)) != DISKFILE::kEndOfFile;) {
            ASSERT_TRUE(error == DISKFILE::kSuccess || error == DISKFILE::kLineTooLong);
            joined.append(line, length);
        }
        std::string expected;
        for (size_t i = 0; i < bytes.size(); i++) {
            if (bytes[i] == '\n' ||
                (bytes[i] == '\r' && i + 1 < bytes.size() && bytes[i + 1] == '\n'))
                continue;
            expected += bytes[i];
        }
        ASSERT_EQ(joined, expected) << "round " << round;
    }
}

} // namespace
