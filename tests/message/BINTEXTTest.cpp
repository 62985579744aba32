// Base64 and uuencode codecs and the uuencode line recognisers.
#include "message/BINTEXT.h"

#include <gtest/gtest.h>
#include <string>
#include <tuple>

namespace {

enum CODEC { Encode, Decode, Uudecode };

// Runs a codec into a buffer of size followed by guard bytes, which must stay untouched.
std::string run(CODEC codec, const std::string &in, bool binary, size_t size = 1024) {
    std::string out(size + 8, '#');
    const size_t n = codec == Encode
                         ? BINTEXT::base64Encode(in.data(), in.size(), out.data(), size, binary)
                     : codec == Decode ? BINTEXT::base64Decode(in.c_str(), out.data(), size, binary)
                                       : BINTEXT::uuDecode(in.c_str(), out.data(), size, binary);
    EXPECT_EQ(out.substr(size), std::string(8, '#')) << "wrote past the buffer";
    EXPECT_TRUE(size == 0 || n < size);
    if (codec == Encode && size > 0) {
        EXPECT_EQ(out[n], '\0');
    }
    return out.substr(0, n);
}

TEST(BINTEXT, Base64) {
    const std::pair<const char *, const char *> examples[] = {
        {"Man", "TWFu"},
        {"Ma", "TWE="},
        {"M", "TQ=="},
        {"", ""},
        {"Hello, world!", "SGVsbG8sIHdvcmxkIQ=="}};
    for (const auto &[plain, encoded] : examples) {
        EXPECT_EQ(run(Encode, plain, true), encoded);
        EXPECT_EQ(run(Encode, plain, false), encoded);
        EXPECT_EQ(run(Decode, encoded, true), plain);
    }
    // Characters outside the alphabet are skipped. A tab decoded in text mode would break a
    // header line; binary keeps it.
    const std::tuple<const char *, bool, const char *> decodes[] = {
        {"TW Fu", false, "Man"},      {"TQ", false, "M"},   {"T", false, ""},
        {"TW\r\nFu\n", false, "Man"}, {"CQ==", false, " "}, {"CQ==", true, "\t"}};
    for (const auto &[text, binary, plain] : decodes)
        EXPECT_EQ(run(Decode, text, binary), plain) << text;
    EXPECT_EQ(BINTEXT::base64DecodeChar('='), BINTEXT::kInvalid);

    std::string bytes;
    for (int i = 0; i < 256; i++)
        bytes += static_cast<char>(i);
    const std::string text = run(Encode, bytes, true);
    EXPECT_EQ(text.size(), 344u);
    EXPECT_EQ(run(Decode, text, true), bytes);
    for (size_t size : {0u, 1u, 6u, 7u, 10u, 11u, 16u}) {
        SCOPED_TRACE(size);
        run(Encode, std::string(100, 'x'), true, size);
        run(Decode, "eHh4eHh4eHh4eHh4eHh4eHh4", false, size);
    }
}

TEST(BINTEXT, Uudecode) {
    const std::pair<const char *, std::string> cases[] = {
        {"#0V%T", "Cat"},
        {",2&5L;&\\L('=O<FQD", "Hello, world"},
        {"`", ""},
        {"", ""},
        {"\x7f!abc", ""},
        // The last group is written whole: 10 declared bytes, 16 characters, 12 bytes.
        {"*2&5L;&\\L('=O<FQD", "Hello, world"},
        {"#0V%T~~~", "Cat"},
    };
    for (const auto &[line, bytes] : cases)
        EXPECT_EQ(run(Uudecode, line, true), bytes) << line;
    std::string all;
    for (int i = 0; i < 45; i++)
        all += static_cast<char>(i);
    const char *line = "M  $\" P0%!@<(\"0H+# T.#Q 1$A,4%187&!D:&QP='A\\@(2(C)\"4F)R@I*BLL";
    EXPECT_EQ(run(Uudecode, line, true), all);
    EXPECT_TRUE(BINTEXT::uuLineData(line));
    const std::string text = run(Uudecode, line, false);
    EXPECT_EQ(text.find('\0'), std::string::npos);
    EXPECT_EQ(text[9], ' ');
}

TEST(BINTEXT, LineRecognisers) {
    const std::pair<const char *, const char *> starts[] = {
        {"begin 644 file.txt", "file.txt"},
        {"BEGIN 644 x", "x"},
        {"begin\t600\tpic one.jpg", "pic"},
        {"begin 644 file.txt\r\n", "file.txt"},
        {"begin 644 ../../etc/passwd", "passwd"},
        {"begin 0644 file.txt", nullptr},
        {"begin 644", nullptr},
        {"begin 64a x", nullptr},
        {"beginning 644 x", nullptr},
    };
    for (const auto &[line, name] : starts) {
        std::string found = "stale";
        EXPECT_EQ(BINTEXT::uuLineStart(line, &found), name != nullptr) << line;
        EXPECT_EQ(found, name != nullptr ? name : "") << line;
        EXPECT_EQ(BINTEXT::uuLineStart(line, nullptr), name != nullptr) << line;
    }
    for (const char *data :
         {"MABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCDABCD", "`", "#0V%T", "#0V%T\n"})
        EXPECT_TRUE(BINTEXT::uuLineData(data)) << data;
    // A line padded past its count is deliberately not data.
    for (const char *text :
         {"> MABCD", " ABC", "&amp;", "", "*2&5L;&\\L('=O<FQD", "#0V%t", "Hello there"})
        EXPECT_FALSE(BINTEXT::uuLineData(text)) << text;
    for (const char *line : {"end", "END", "end ", "end\t", "end\n", "end\r\n"})
        EXPECT_TRUE(BINTEXT::uuLineStop(line)) << line;
    for (const char *line : {"ending", "en", "", " end"})
        EXPECT_FALSE(BINTEXT::uuLineStop(line)) << line;
}

} // namespace
