// Tests of message files: names, attributes with their types and limits, repair, state changes.
#include "message/VMSG.h"

#include <atomic>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <tuple>
#include <unistd.h>

#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"
#include "base/TextFormat.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/TestHome.h"

namespace {

using decodetest::fileGet;
using decodetest::filePut;

std::string testFolder() {
    const std::string folder = testhome::path() + "/vmsg-" +
                               ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::filesystem::create_directories(folder);
    return folder;
}

VMSG::DATA dataOf(const std::string &path) {
    VMSG::DATA data;
    EXPECT_TRUE(VMSG::fileData(&data, path.c_str())) << path;
    return data;
}

// The list facts of a message in one line, so that a test compares them whole.
std::string facts(const VMSG::DATA &d) {
    return textFormat("type %d, %d lines, %s%s, server %lld, %s | ", d.type, d.lines,
                      d.read ? "read" : "unread", d.own ? ", own" : "",
                      static_cast<long long>(d.postServer), IMsg::CharsetString(d.charset)) +
           d.subject + " | " + d.author + " <" + d.email + "> | to " + d.to + " | " + d.newsgroups +
           " | " + d.references;
}

void headerAdd(HdrBuf &header, std::initializer_list<std::string> lines) {
    header.Clear();
    for (const std::string &line : lines)
        header.Add(line);
    header.End();
}

// Writes the attributes of a header of these lines onto the file at path, reads them back.
VMSG::DATA stored(const std::string &path, std::initializer_list<std::string> lines) {
    HdrBuf header;
    headerAdd(header, lines);
    TEXTFILE file;
    VMSG::DATA data;
    EXPECT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    EXPECT_TRUE(VMSG::attrWriteAll(&file, &header, 35, false, -1));
    EXPECT_TRUE(VMSG::attrReadAll(&file, &data));
    return data;
}

TEST(VMSGNames, NumbersAndNames) {
    // Mode, last number, next number.
    const std::tuple<int32_t, uint32_t, uint32_t> cases[] = {{VMSG::kNumberUp, 20000, 1},
                                                             {VMSG::kNumberUp, 0, 1},
                                                             {VMSG::kNumberUp, 20001, 1},
                                                             {VMSG::kNumberUp, 5, 6},
                                                             {VMSG::kNumberDown, 20001, 999999},
                                                             {VMSG::kNumberDown, 5, 999999},
                                                             {VMSG::kNumberDown, 0, 999999},
                                                             {VMSG::kNumberDown, 1000000, 999999},
                                                             {VMSG::kNumberDown, 20002, 20001},
                                                             {VMSG::kNumberDown, 999999, 999998},
                                                             {7, 500000, 499999}};
    for (const auto &[mode, last, next] : cases)
        EXPECT_EQ(VMSG::msgNumNext(mode, last), next) << mode << " " << last;
    char name[40];
    VMSG::filename(name, 20001, sizeof(name));
    EXPECT_STREQ(name, "VM020001.vmf");
    VMSG::filename(name, 7, 5);
    EXPECT_STREQ(name, "VM00");

    const std::string folder = testFolder();
    filePut(folder + "/VM999999.vmf", "x");
    uint32_t number = 0;
    name[0] = '\0';
    ASSERT_TRUE(
        VMSG::filenameResolve(folder.c_str(), VMSG::kNumberDown, &number, name, sizeof(name)));
    EXPECT_STREQ(name, "VM999998.vmf");
    EXPECT_EQ(number, 999998u);
    // A free name the caller gives is kept as it is.
    std::strcpy(name, "Mine.vmf");
    ASSERT_TRUE(
        VMSG::filenameResolve(folder.c_str(), VMSG::kNumberDown, &number, name, sizeof(name)));
    EXPECT_STREQ(name, "Mine.vmf");
    // 5000 taken names in a row: links to one file, cheap where new files are not.
    const std::string one = folder + "/one";
    filePut(one, "");
    for (number = 1; number <= VMSG::kResolveTries; number++) {
        VMSG::filename(name, number, sizeof(name));
        ASSERT_EQ(link(one.c_str(), (folder + "/" + name).c_str()), 0);
    }
    number = 0;
    name[0] = '\0';
    EXPECT_FALSE(
        VMSG::filenameResolve(folder.c_str(), VMSG::kNumberUp, &number, name, sizeof(name)));
    EXPECT_EQ(number, VMSG::kResolveTries);
}

TEST(VMSGDisplay, IconsAndTexts) {
    // A failed download shows its own icon only while unread; unknown types the unknown one.
    EXPECT_EQ(VMSG::typeIcon(22, false), VMSG::IconNewsHeaderFailed);
    EXPECT_EQ(VMSG::typeIcon(22, true), VMSG::IconNewsHeaderRead);
    EXPECT_EQ(VMSG::typeIcon(36, false), VMSG::IconUnknown);

    const std::pair<uint64_t, const char *> sizes[] = {
        {0, "0 bytes"},    {1023, "1023 bytes"}, {1024, "1.00 KB"},
        {1536, "1.50 KB"}, {1048576, "1.00 MB"}, {5 * 1048576 + 1, "5.00 MB"}};
    VMSG::DATA data;
    VMSG::ATTRSTR texts;
    for (const auto &[size, text] : sizes) {
        data.size = size;
        VMSG::attrStr(&data, &texts);
        EXPECT_STREQ(texts.size, text);
    }
    data.own = true;
    data.lines = 42;
    data.subject = std::string(500, 's');
    VMSG::attrStr(&data, &texts);
    EXPECT_STREQ(texts.charset, "ISO-8859-1 *");
    EXPECT_STREQ(texts.lines, "42");
    EXPECT_EQ(std::strlen(texts.subject), sizeof(texts.subject) - 1);
}

TEST(VMSGAttributes, RepairedFileGetsTypeFromHeader) {
    const char *const repaired = ", read, server -1, ISO-8859-1 | ";
    const std::pair<const char *, std::string> cases[] = {
        {"Newsgroups: alt.test\nSubject: h\n", "type 20, 0 lines"},
        {"Newsgroups: alt.test\nSubject: h\n\n", "type 20, 0 lines"},
        {"Newsgroups: alt.test\nSubject: b\n\none\ntwo\n", "type 35, 2 lines"},
        {"Newsgroups: alt.test\nLines: 9\n\none\n", "type 35, 9 lines"},
        {"Subject: m\nFrom: a@b.example\n\nbody\n", "type 15, 1 lines"},
        {"Newsgroups: <None>\n\nbody\n", "type 15, 1 lines"},
    };
    const std::string folder = testFolder();
    int index = 0;
    for (const auto &[text, want] : cases) {
        const std::string leaf = "repair" + std::to_string(index++);
        const std::string path = folder + "/" + leaf;
        filePut(path, text);
        ASSERT_TRUE(VMSG::fileSetup(path.c_str())) << text;
        VMSG::DATA data = dataOf(path);
        EXPECT_EQ(facts(data).substr(0, facts(data).find(" | ") + 3), want + repaired) << text;
        EXPECT_EQ(data.filename, leaf);
        // No Message-ID: a generated fallback one, not taken for this program's own.
        EXPECT_EQ(data.msgid.rfind("<BG", 0), 0u) << data.msgid;
        EXPECT_TRUE(IMsg::MsgidCheck(data.msgid)) << data.msgid;
        TEXTFILE file;
        ASSERT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
        char mime[64];
        ASSERT_EQ(file.mimeGet(mime, sizeof(mime)), DISKFILE::kSuccess);
        EXPECT_STREQ(mime, VMSG::kMimeType);
    }
    // Reading a file without attributes repairs it; body lines are counted only up to 201.
    std::string many = "Subject: x\n\n";
    for (int i = 0; i < 500; i++)
        many += "line\n";
    filePut(folder + "/many", many);
    VMSG::DATA data = dataOf(folder + "/many");
    EXPECT_EQ(data.lines, int32_t(VMSG::kSetupLinesMax));
    EXPECT_EQ(data.type, IMsg::MsgTypeMail);

    // A file that cannot be repaired is left out, its DATA cleared, and not left open.
    const std::string locked = folder + "/locked.vmf";
    filePut(locked, "Subject: x\n\nbody\n");
    chmod(locked.c_str(), 0444);
    data.subject = "stale";
    EXPECT_FALSE(VMSG::fileData(&data, locked.c_str()));
    EXPECT_TRUE(data.subject.empty());
    EXPECT_EQ(data.node, -1);
    TEXTFILE file;
    EXPECT_EQ(VMSG::fileOpen(&file, locked.c_str(), &data, DISKFILE::kRead, 2048),
              DISKFILE::kAttrNotFound);
    EXPECT_FALSE(file.open());
}

TEST(VMSGAttributes, ValuesTypesAndSizes) {
    const std::string path = testFolder() + "/msg.vmf";
    filePut(path, "Subject: Hello\nFrom: John Doe <jd@example.invalid>\nNewsgroups: a.b, c.d\n"
                  "Date: Tue, 3 Oct 2000 14:05:09 -0700\nLines: 3\n"
                  "Message-ID: <VM0123456789ABCDEF@host.example>\n"
                  "References: <a@b><c@d>\n"
                  "Content-Type: text/plain; charset=KOI8-R\n\nbody\n");
    ASSERT_TRUE(
        VMSG::attrCreate(path.c_str(), 35, nullptr, IMsg::CharsetNone, false, 0, false, 77));
    VMSG::DATA data = dataOf(path);
    EXPECT_EQ(facts(data), "type 35, 3 lines, unread, own, server 77, KOI8-R | Hello | John Doe "
                           "<jd@example.invalid> | to <None> | a.b,c.d | <a@b> <c@d>");
    EXPECT_EQ(data.dateTime, int64_t(970607109) * TIMEBASE::kSecond);
    EXPECT_EQ(data.size, std::filesystem::file_size(path));

    // The stored form: the type tag, then the value; strings with their NUL.
    const std::tuple<const char *, const char *, size_t> raws[] = {
        {"subject", "CSTR", 6},    {"datetime", "TIME", 4}, {"lines", "LONG", 4},
        {"read", "BOOL", 1},       {"type", "LONG", 4},     {"charset", "LONG", 4},
        {"postserver", "LLNG", 8}, {"to", "CSTR", 7}};
    for (const auto &[name, tag, size] : raws) {
        char value[64];
        const std::string attr = std::string("user.VELLOWICK:") + name;
        ASSERT_EQ(getxattr(path.c_str(), attr.c_str(), value, sizeof(value)), ssize_t(4 + size))
            << name;
        EXPECT_EQ(std::string(value, 4), tag) << name;
    }

    // Without a Lines field the caller's count is taken, when it is at least 1.
    filePut(path, "Subject: x\n\nbody\n");
    ASSERT_TRUE(
        VMSG::attrCreate(path.c_str(), 20, nullptr, IMsg::CharsetNone, false, 12, true, -1));
    EXPECT_EQ(dataOf(path).lines, 12);
    // A charset the caller knows is set before reading; the header's own charset still wins.
    ASSERT_TRUE(
        VMSG::attrCreate(path.c_str(), 20, nullptr, IMsg::CharsetWindows1251, true, 0, true, -1));
    EXPECT_EQ(dataOf(path).charset, IMsg::CharsetWindows1251);
    VMSG::csetDefault(IMsg::CharsetISO15);
    ASSERT_TRUE(VMSG::attrCreate(path.c_str(), 20, nullptr, IMsg::CharsetNone, false, 0, true, -1));
    EXPECT_EQ(dataOf(path).charset, IMsg::CharsetISO15);
    VMSG::csetDefault(IMsg::CharsetISO1);
}

TEST(VMSGAttributes, LongTexts) {
    const std::string path = testFolder() + "/long.vmf";
    filePut(path, "Subject: x\n\nbody\n");
    EXPECT_EQ(stored(path, {"Subject: " + std::string(4000, 'a')}).subject,
              std::string(VMSG::kStringReadMax, 'a'));
    // A cut never splits a UTF-8 character: "é" is two bytes.
    std::string accents;
    while (accents.size() < 4000)
        accents += "\xC3\xA9";
    EXPECT_EQ(stored(path, {"Subject: ab" + accents}).subject.size(), VMSG::kStringReadMax - 1);

    // References keep their first and last IDs and the latest others that fit.
    const std::pair<size_t, const char *> shortened[] = {{100, "<a@x> <b@x> <c@x> <d@x>"},
                                                         {22, "<a@x> <c@x> <d@x>"},
                                                         {17, "<a@x> <c@x> <d@x>"},
                                                         {16, "<a@x> <d@x>"},
                                                         {3, "<a@x> <d@x>"}};
    for (const auto &[max, out] : shortened)
        EXPECT_EQ(VMSG::referencesShorten("<a@x> <b@x> <c@x> <d@x>", max), out) << max;
    EXPECT_EQ(VMSG::referencesShorten("<only@x>", 2), "<only@x>");
}

// On ext4 the whole values cannot be stored (about 4 KiB of attributes per file); the
// message must still be stored, listed and threaded. Elsewhere they are stored whole.
TEST(VMSGAttributes, LongTextsSurviveSmallAttributeSpace) {
    const std::string path = testFolder() + "/big.vmf";
    filePut(path, "Subject: x\n\nbody\n");
    std::string references = "<root@example.invalid>";
    int id = 0;
    while (references.size() < 2000)
        references += " <id" + std::to_string(++id) + "@example.invalid>";
    references += " <parent@example.invalid>";
    const std::string subject(3000, 'S');

    // Does this file system take both texts whole?
    const std::string probe = path + ".probe";
    filePut(probe, "");
    const std::string value(subject.size() + references.size() + 600, 'v');
    const bool roomy = setxattr(probe.c_str(), "user.probe", value.data(), value.size(), 0) == 0;

    const VMSG::DATA data =
        stored(path, {"Subject: " + subject, "Newsgroups: alt.test",
                      "Message-ID: <big@example.invalid>", "References: " + references});
    EXPECT_EQ(data.msgid, "<big@example.invalid>");
    if (roomy) {
        EXPECT_EQ(data.subject + "|" + data.references, subject + "|" + references);
        return;
    }
    EXPECT_EQ(subject.compare(0, data.subject.size(), data.subject), 0);
    // The other texts are cut to their floor before the subject is touched.
    if (data.subject.size() < subject.size()) {
        EXPECT_LE(data.references.size(), 256u);
    }
    EXPECT_EQ(data.references.rfind("<root@example.invalid> ", 0), 0u) << data.references;
    const std::string parent = " <parent@example.invalid>";
    ASSERT_GE(data.references.size(), parent.size());
    EXPECT_EQ(data.references.substr(data.references.size() - parent.size()), parent);
    EXPECT_LT(data.references.size(), references.size());
}

TEST(VMSGAttributes, ReadersSeeWholeValuesWhileAnotherThreadWrites) {
    const std::string path = testFolder() + "/busy.vmf";
    filePut(path, "Subject: first\n\nbody\n");
    ASSERT_TRUE(VMSG::fileSetup(path.c_str()));
    std::atomic<bool> stop{false};
    std::thread writer([&] {
        HdrBuf header;
        for (int i = 0; !stop; i++) {
            headerAdd(header, {i % 2 ? "Subject: first" : "Subject: second"});
            TEXTFILE file;
            if (file.open(path.c_str(), DISKFILE::kRead) == DISKFILE::kSuccess)
                VMSG::attrWriteAll(&file, &header, 35, i % 2, -1);
        }
    });
    for (int i = 0; i < 300; i++) {
        VMSG::DATA data;
        ASSERT_TRUE(VMSG::fileData(&data, path.c_str()));
        ASSERT_TRUE(data.subject == "first" || data.subject == "second") << data.subject;
    }
    stop = true;
    writer.join();
}

TEST(VMSGState, DownloadReadTypeAndTruncate) {
    // The type, the download mark asked, the type after.
    const std::tuple<int32_t, bool, int32_t> cases[] = {
        {20, true, 21}, {21, false, 20}, {20, false, 20}, {21, true, 21},
        {22, true, 22}, {35, true, 35},  {15, true, 15}};
    const std::string folder = testFolder();
    const std::string path = folder + "/state.vmf";
    filePut(path, "Newsgroups: alt.test\nSubject: s\n");
    ASSERT_TRUE(VMSG::fileSetup(path.c_str()));
    for (const auto &[type, download, after] : cases) {
        ASSERT_TRUE(VMSG::setType(path.c_str(), type));
        EXPECT_TRUE(VMSG::setDownload(path.c_str(), download));
        EXPECT_EQ(dataOf(path).type, after) << type << " " << download;
    }
    int64_t node = 0;
    ASSERT_TRUE(VMSG::setRead(path.c_str(), false, &node));
    EXPECT_NE(node, -1);
    EXPECT_EQ(node, dataOf(path).node);
    for (bool want : {false, true}) {
        bool read = !want;
        ASSERT_TRUE(VMSG::setRead(path.c_str(), want));
        ASSERT_TRUE(VMSG::fileIsRead(path.c_str(), &read));
        EXPECT_EQ(read, want);
    }
    bool read = true;
    EXPECT_FALSE(VMSG::fileIsRead((path + ".gone").c_str(), &read));
    EXPECT_FALSE(read);

    // A failed body download keeps the header lines only.
    const std::pair<const char *, const char *> cuts[] = {
        {"Subject: a\nFrom: b\n\nbody\nmore\n", "Subject: a\nFrom: b\n"},
        {"Subject: a\n", "Subject: a\n"},
        {"Subject: a\n\n", "Subject: a\n"},
        {"\nbody\n", ""}};
    for (const auto &[text, after] : cuts) {
        filePut(path, text);
        ASSERT_TRUE(VMSG::fileTruncate(path.c_str())) << text;
        EXPECT_EQ(fileGet(path), after) << text;
    }
    EXPECT_FALSE(VMSG::fileTruncate((folder + "/missing").c_str()));
}

// What the composer writes is read back as it was meant: header fields, wrapped body in the
// message's character set, attributes.
TEST(VMSGFiles, OutgoingMessageReadsBack) {
    // The charset, the word in it and its bytes there.
    const std::tuple<IMsg::Charset, const char *, const char *> cases[] = {
        {IMsg::CharsetISO1, "Grüße",
         "Gr\xFC\xDF"
         "e"},
        {IMsg::CharsetKOI8R, "привет", "\xD0\xD2\xC9\xD7\xC5\xD4"}};
    const std::string folder = testFolder();
    for (const auto &[charset, word, bytes] : cases) {
        HdrBuf::SendInfo info;
        info.type = IMsg::MsgTypeNews;
        info.charset = charset;
        info.width = 20;
        info.postServer = 4242;
        info.author = "Ann Poster";
        info.email = "ann@example.invalid";
        info.newsgroups = "alt.test";
        info.subject = "Test post";
        const std::string path = folder + "/out-" + std::to_string(charset) + ".vmf";
        TEXTFILE file;
        ASSERT_EQ(VMSG::fileCreate(&file, path.c_str(), 2048), DISKFILE::kSuccess);
        ASSERT_TRUE(VMSG::fileWrite(&file, &info,
                                    "one two three four five six seven\n\n" + std::string(word)));
        ASSERT_EQ(file.close(), DISKFILE::kSuccess);

        const std::string text = fileGet(path);
        const size_t split = text.find("\n\n");
        ASSERT_NE(split, std::string::npos);
        EXPECT_EQ(text.substr(split + 2),
                  "one two three four\nfive six seven\n\n" + std::string(bytes) + "\n");
        EXPECT_NE(text.find("Lines: 4\n"), std::string::npos) << text;
        TEXTFILE in;
        ASSERT_EQ(in.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
        HdrBuf header;
        ASSERT_TRUE(header.Read(&in));
        EXPECT_EQ(header.CharsetGet(), charset);
        EXPECT_EQ(
            facts(dataOf(path)),
            textFormat("type 35, 4 lines, unread, own, server 4242, %s | ",
                       IMsg::CharsetString(charset)) +
                "Test post | Ann Poster <ann@example.invalid> | to <None> | alt.test | <None>");
    }
}

TEST(VMSGFiles, SignatureLines) {
    const std::string path = testFolder() + "/sig.txt";
    filePut(path, "-- \nAnn\n" + std::string(1500, 'x') + "\nlast");
    std::vector<std::string> lines;
    auto collect = [](void *context, std::string_view line) {
        static_cast<std::vector<std::string> *>(context)->emplace_back(line);
        return true;
    };
    ASSERT_EQ(VMSG::sigRead(path.c_str(), collect, &lines), DISKFILE::kSuccess);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0], "-- ");
    EXPECT_EQ(lines[2].size() + lines[3].size(), 1500u);
    EXPECT_EQ(lines[4], "last");
    EXPECT_EQ(VMSG::sigRead((path + ".none").c_str(), collect, &lines), DISKFILE::kNotFound);
}

} // namespace
