// yEnc attachments against an encoder written here: round trips of single and multi-part
// files, damaged, missing and mis-sized parts, and what the body reader lists and shows.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>
#include <zlib.h>

#include "base/TEXTFILE.h"
#include "message/FILEDECODE.h"
#include "message/VMSG.h"
#include "message/YENC.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/TestHome.h"

namespace {

using decodetest::fileGet;
using decodetest::filePut;

std::string crcHex(const std::string &data) {
    char text[9];
    snprintf(text, sizeof text, "%08x",
             unsigned(crc32(0, reinterpret_cast<const Bytef *>(data.data()), uInt(data.size()))));
    return text;
}

// An encoder written from the format's description, independent of the decoder: the
// critical bytes escaped, blanks and a dot at a line's edges too, lines of 128 characters.
// With stuffed, a dot that begins a line is left unescaped and doubled, as an article is
// stored after a news server's dot-stuffing.
std::vector<std::string> encode(const std::string &data, const std::string &name, size_t parts,
                                const char *eol = "\r\n", bool withCrc = true,
                                bool stuffed = false) {
    std::vector<std::string> bodies;
    const size_t per = parts > 1 ? (data.size() + parts - 1) / parts : data.size();
    for (size_t part = 0; part < parts; ++part) {
        size_t begin = part * per;
        std::string chunk = data.substr(std::min(begin, data.size()), per);
        std::string body = "=ybegin " +
                           (parts > 1 ? "part=" + std::to_string(part + 1) +
                                            " total=" + std::to_string(parts) + " "
                                      : std::string()) +
                           "line=128 size=" + std::to_string(data.size()) + " name=" + name + eol;
        if (parts > 1)
            body += "=ypart begin=" + std::to_string(begin + 1) +
                    " end=" + std::to_string(begin + chunk.size()) + eol;
        std::string line;
        for (size_t i = 0; i < chunk.size(); ++i) {
            unsigned char c = static_cast<unsigned char>(chunk[i] + 42);
            bool edge = line.empty() || i + 1 == chunk.size() || line.size() >= 127;
            if (c == 0 || c == '\n' || c == '\r' || c == '=' || (edge && (c == ' ' || c == '\t')) ||
                (line.empty() && c == '.' && !stuffed)) {
                line += '=';
                c = static_cast<unsigned char>(c + 64);
            }
            line += char(c);
            if (line.size() >= 128) {
                body += (stuffed && line[0] == '.' ? "." : "") + line + eol;
                line.clear();
            }
        }
        if (!line.empty())
            body += (stuffed && line[0] == '.' ? "." : "") + line + eol;
        body += "=yend size=" + std::to_string(chunk.size());
        if (parts > 1)
            body += " part=" + std::to_string(part + 1) + " pcrc32=" + crcHex(chunk);
        if (withCrc && part + 1 == parts)
            body += " crc32=" + crcHex(data);
        bodies.push_back(body + eol);
    }
    return bodies;
}

class Yenc : public testing::Test {
protected:
    // Message files carrying the bodies, in part order.
    std::vector<std::string> messages(const std::vector<std::string> &bodies,
                                      const std::string &subject = "file") {
        std::vector<std::string> paths;
        for (size_t i = 0; i < bodies.size(); ++i) {
            std::string path = testhome::path() + "/part" + std::to_string(++fCount) + ".vmf";
            filePut(path, "From: Poster <poster@example.invalid>\nSubject: " + subject + " (" +
                              std::to_string(i + 1) + "/" + std::to_string(bodies.size()) +
                              ")\nNewsgroups: alt.binaries.test\n\nA note before the data.\n" +
                              bodies[i] + "A signature after it.\n");
            paths.push_back(path);
        }
        return paths;
    }
    bool decode(const std::vector<std::string> &files, FILEDECODE::FAILURE *failure = nullptr) {
        return FILEDECODE::FileDecode(files, 0, fOut.c_str(), "application/octet-stream",
                                      IMsg::AttachYenc, nullptr, nullptr, failure);
    }
    std::string fOut = testhome::path() + "/decoded.bin";
    int fCount = 0;
};

TEST_F(Yenc, RoundTripsOfEverySize) {
    std::string every;
    for (int i = 0; i < 256 * 40; ++i)
        every += char(i % 256);
    std::mt19937 random(3);
    std::string large(300'000, '\0');
    for (char &c : large)
        c = char(random());
    const struct {
        const char *name;
        std::string data;
        size_t parts;
        const char *eol;
    } rows[] = {
        {"every byte value", every, 1, "\r\n"},
        {"three parts", large, 3, "\r\n"},
        {"bare line feeds", large.substr(0, 5000), 2, "\n"},
        {"empty", "", 1, "\r\n"},
        {"one byte", "=", 1, "\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(decode(messages(encode(row.data, "data.bin", row.parts, row.eol))));
        EXPECT_TRUE(fileGet(fOut) == row.data);
    }
    // Lines that begin with dots, as stored after the news server's dot-stuffing.
    std::string dots;
    for (int i = 0; i < 300; ++i)
        dots += std::string(size_t(i % 5), '\x04') + char(i);
    std::vector<std::string> stuffed = encode(dots, "dots.bin", 2, "\r\n", true, true);
    ASSERT_NE(stuffed[0].find("\n.."), std::string::npos);
    ASSERT_TRUE(decode(messages(stuffed)));
    EXPECT_TRUE(fileGet(fOut) == dots);
    // Without a crc32 on "=yend" the size alone is checked.
    ASSERT_TRUE(decode(messages(encode(every, "data.bin", 1, "\r\n", false))));
    EXPECT_TRUE(fileGet(fOut) == every);
}

TEST_F(Yenc, DamagedMissingAndMisSizedPartsLeaveNoFile) {
    std::mt19937 random(5);
    std::string data(20'000, '\0');
    for (char &c : data)
        c = char(random());
    std::vector<std::string> bodies = encode(data, "data.bin", 3);
    // One byte of part 2 flipped (a data character after its "=ypart" line).
    std::vector<std::string> flipped = bodies;
    size_t at = flipped[1].find("\r\n", flipped[1].find("=ypart")) + 10;
    flipped[1][at] = flipped[1][at] == 'a' ? 'b' : 'a';
    std::string wrongSize = bodies[2];
    wrongSize.replace(wrongSize.find("size=20000"), 10, "size=20001");
    const struct {
        const char *name;
        std::vector<std::string> files;
        uint32_t damaged;
        bool missing;
    } rows[] = {
        {"flipped byte", messages(flipped), 2, false},
        {"part 2 missing", messages({bodies[0], bodies[2]}), 0, true},
        {"wrong size", messages({bodies[0], bodies[1], wrongSize}), 3, false},
        {"cut short", messages({bodies[0], bodies[1].substr(0, bodies[1].size() / 2), bodies[2]}),
         2, false},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.name);
        FILEDECODE::FAILURE failure;
        EXPECT_FALSE(decode(row.files, &failure));
        EXPECT_EQ(failure.damaged, row.damaged);
        EXPECT_EQ(failure.missing, row.missing);
        EXPECT_FALSE(std::filesystem::exists(fOut));
    }
    DecodeWindow::Data request;
    request.outputPath = fOut;
    request.damagedPart = 2;
    EXPECT_EQ(DecodeWindow::errorText(DecodeWindow::ErrorDamaged, request),
              "Part 2 of attachment 'decoded.bin' arrived damaged: its size or checksum does not "
              "match what its sender wrote.  Download that message again, or look for a repost.");
}

TEST_F(Yenc, BodyReaderListsTheFileAndHidesItsLines) {
    std::vector<std::string> files =
        messages(encode(std::string(1000, 'x'), "holiday photo 1.jpg", 1), "photo");
    TEXTFILE file;
    ASSERT_EQ(file.open(files[0].c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    std::vector<std::string> shown;
    std::unique_ptr<VMSG::ATTACHMENT> attachments;
    VMSG::READ read;
    read.attachments = &attachments;
    read.context = &shown;
    read.line = [](void *context, std::string_view line) {
        static_cast<std::vector<std::string> *>(context)->emplace_back(line);
        return true;
    };
    ASSERT_EQ(VMSG::fileRead(&file, read), DISKFILE::kSuccess);
    EXPECT_THAT(shown, testing::ElementsAre("A note before the data.", "A signature after it."));
    ASSERT_NE(attachments, nullptr);
    EXPECT_EQ(attachments->filename, "holiday photo 1.jpg");
    EXPECT_EQ(attachments->type, IMsg::AttachYenc);
    EXPECT_EQ(attachments->size, 1000u);
    EXPECT_TRUE(attachments->begins && attachments->ends);
    EXPECT_EQ(attachments->next, nullptr);
}

TEST(YencLines, KeywordsAndEscapes) {
    YENC::HEADER header;
    YENC::parse("=ybegin part=2 total=5 line=128 size=9000 name=  two  blanks .bin", &header);
    EXPECT_EQ(header.part, 2u);
    EXPECT_EQ(header.total, 5u);
    EXPECT_EQ(header.size, 9000u);
    EXPECT_EQ(header.name, "  two  blanks .bin");
    YENC::parse("=ypart begin=2001 end=4000", &header);
    YENC::parse("=yend size=2000 part=2 pcrc32=DEADBEEF", &header);
    EXPECT_EQ(header.begin, 2001u);
    EXPECT_EQ(header.end, 4000u);
    EXPECT_EQ(header.pcrc32, 0xDEADBEEFu);
    EXPECT_FALSE(header.hasCrc32);
    EXPECT_EQ(YENC::kind("=yend"), YENC::kEnd);
    EXPECT_EQ(YENC::kind("=yendless"), YENC::kData);
    char out[16];
    // "*" is 0, "=}" the escaped "=" (0x13), a trailing "=" escapes nothing, CR ignored.
    ASSERT_EQ(YENC::decode("*=}+\r=", out), 3u);
    EXPECT_EQ(std::string(out, 3), std::string("\x00\x13\x01", 3));
}

} // namespace
