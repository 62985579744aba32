// Base64 and uuencode codecs and the uuencode line recognisers.
#include "message/BINTEXT.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string encode(const std::string &bytes, size_t size = 256) {
    std::string out(size, '\0');
    size_t n = BINTEXT::base64Encode(bytes.data(), bytes.size(), out.data(), size, true);
    EXPECT_EQ(out[n], '\0');
    return out.substr(0, n);
}

std::string decode(const char *text, bool binary, size_t size = 256) {
    std::string out(size, '\0');
    size_t n = BINTEXT::base64Decode(text, out.data(), size, binary);
    return out.substr(0, n);
}

std::string uu(const char *line, bool binary, size_t size = 256) {
    std::string out(size, '\0');
    size_t n = BINTEXT::uuDecode(line, out.data(), size, binary);
    return out.substr(0, n);
}

TEST(BINTEXT, Base64Examples) {
    struct Case {
        const char *plain;
        const char *encoded;
    } cases[] = {
        {"Man", "TWFu"},
        {"Ma", "TWE="},
        {"M", "TQ=="},
        {"", ""},
        {"Hello, world!", "SGVsbG8sIHdvcmxkIQ=="},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.plain);
        EXPECT_EQ(encode(c.plain), c.encoded);
        char text[64];
        BINTEXT::base64Encode(c.plain, 0, text, sizeof(text), false);
        EXPECT_STREQ(text, c.encoded);
        EXPECT_EQ(decode(c.encoded, true), c.plain);
    }
    EXPECT_EQ(decode("TW Fu", false), "Man");
    EXPECT_EQ(decode("TQ", false), "M");
    EXPECT_EQ(decode("T", false), "");
    EXPECT_EQ(decode("TW\r\nFu\n", false), "Man");
    // A tab decoded in text mode would break a header line; binary keeps it.
    EXPECT_EQ(decode("CQ==", false), " ");
    EXPECT_EQ(decode("CQ==", true), "\t");
    EXPECT_EQ(BINTEXT::base64DecodeChar('='), BINTEXT::kInvalid);
    EXPECT_EQ(BINTEXT::base64DecodeChar('/'), 63);
}

TEST(BINTEXT, Base64RoundTripEveryByte) {
    std::string bytes;
    for (int i = 0; i < 256; i++)
        bytes += static_cast<char>(i);
    std::string text = encode(bytes, 1024);
    EXPECT_EQ(text.size(), 344u);
    EXPECT_EQ(decode(text.c_str(), true, 1024), bytes);
}

TEST(BINTEXT, Base64StaysInsideSmallBuffers) {
    std::string bytes(100, 'x');
    for (size_t size : {0u, 1u, 6u, 7u, 10u, 11u, 16u}) {
        SCOPED_TRACE(size);
        std::string out(size + 8, '#');
        size_t n = BINTEXT::base64Encode(bytes.data(), bytes.size(), out.data(), size, true);
        EXPECT_TRUE(size == 0 || n < size);
        EXPECT_EQ(out.substr(size), std::string(8, '#'));
        std::string back(size + 8, '#');
        n = BINTEXT::base64Decode("eHh4eHh4eHh4eHh4eHh4eHh4", back.data(), size, false);
        EXPECT_TRUE(size == 0 || n < size);
        EXPECT_EQ(back.substr(size), std::string(8, '#'));
    }
}

TEST(BINTEXT, UudecodeLines) {
    struct Case {
        const char *line;
        std::string bytes;
    } cases[] = {
        {"#0V%T", "Cat"},
        {",2&5L;&\\L('=O<FQD", "Hello, world"},
        {"`", ""},
        {"", ""},
        {"\x7f!abc", ""},
        // The last group is written whole: 10 declared bytes, 16 characters, 12 bytes.
        {"*2&5L;&\\L('=O<FQD", "Hello, world"},
        {"#0V%T~~~", "Cat"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(uu(c.line, true), c.bytes);
    }
    std::string all;
    for (int i = 0; i < 45; i++)
        all += static_cast<char>(i);
    const char *line = "M  $\" P0%!@<(\"0H+# T.#Q 1$A,4%187&!D:&QP='A\\@(2(C)\"4F)R@I*BLL";
    EXPECT_EQ(uu(line, true), all);
    EXPECT_TRUE(BINTEXT::uuLineData(line));
    std::string text = uu(line, false);
    EXPECT_EQ(text.find('\0'), std::string::npos);
    EXPECT_EQ(text[9], ' ');
}

TEST(BINTEXT, LineRecognisers) {
    std::string name;
    struct Start {
        const char *line;
        bool begin;
        const char *name;
    } starts[] = {
        {"begin 644 file.txt", true, "file.txt"},
        {"BEGIN 644 x", true, "x"},
        {"begin\t600\tpic one.jpg", true, "pic"},
        {"begin 644 file.txt\r\n", true, "file.txt"},
        {"begin 0644 file.txt", false, ""},
        {"begin 644", false, ""},
        {"begin 64a x", false, ""},
        {"beginning 644 x", false, ""},
        {"begin 644 ../../etc/passwd", true, "passwd"},
    };
    for (const auto &s : starts) {
        SCOPED_TRACE(s.line);
        EXPECT_EQ(BINTEXT::uuLineStart(s.line, &name), s.begin);
        EXPECT_EQ(name, s.name);
        EXPECT_EQ(BINTEXT::uuLineStart(s.line, nullptr), s.begin);
    }
    struct Data {
        const char *line;
        bool data;
    } data[] = {
        {"MABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCD", true},
        {"> MABCD", false},
        {" ABC", false},
        {"&amp;", false},
        {"", false},
        {"`", true},
        {"#0V%T", true},
        {"#0V%T\n", true},
        {"*2&5L;&\\L('=O<FQD", false}, // padded past its count: deliberately not data
        {"#0V%t", false},
        {"Hello there", false},
    };
    for (const auto &d : data) {
        SCOPED_TRACE(d.line);
        EXPECT_EQ(BINTEXT::uuLineData(d.line), d.data);
    }
    for (const char *line : {"end", "END", "end ", "end\t", "end\n", "end\r\n"})
        EXPECT_TRUE(BINTEXT::uuLineStop(line)) << line;
    for (const char *line : {"ending", "en", "", " end"})
        EXPECT_FALSE(BINTEXT::uuLineStop(line)) << line;
}

} // namespace
