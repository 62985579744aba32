// Tests of reading message bodies: decoded text lines, the chosen part, HTML, raw forms,
// attachments.
#include "message/VMSG.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/TEXTFILE.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/TestHome.h"

namespace {

using decodetest::fileGet;
using decodetest::filePut;

struct COLLECTED {
    std::vector<std::string> lines;
    std::vector<std::string> html; // paths handed over
    size_t stopAfter = SIZE_MAX;   // the line callback wants no more after this many
    size_t contAfter = SIZE_MAX;   // the continue callback says stop after this many asks
    size_t asks = 0;
};

bool lineTake(void *context, std::string_view line) {
    auto *collected = static_cast<COLLECTED *>(context);
    collected->lines.emplace_back(line);
    return collected->lines.size() < collected->stopAfter;
}

void htmlTake(void *context, const char *path) {
    static_cast<COLLECTED *>(context)->html.emplace_back(path);
}

bool contAsk(void *context) {
    auto *collected = static_cast<COLLECTED *>(context);
    return ++collected->asks <= collected->contAfter;
}

std::string messagePath(const std::string &name) {
    const std::string folder = testhome::path() + "/vmsgread";
    std::filesystem::create_directories(folder);
    return folder + "/" + name;
}

// Reads text (stored as the file) in the form asked; the result and the lines.
DISKFILE::ERROR readMessage(const std::string &text, VMSG::READ read, COLLECTED &collected,
                            std::unique_ptr<VMSG::ATTACHMENT> *attachments = nullptr) {
    const std::string path = messagePath("read.vmf");
    filePut(path, text);
    TEXTFILE file;
    EXPECT_EQ(file.open(path.c_str(), DISKFILE::kRead, 2048), DISKFILE::kSuccess);
    read.line = lineTake;
    read.cont = contAsk;
    read.context = &collected;
    read.attachments = attachments;
    return VMSG::fileRead(&file, read);
}

std::vector<std::string> linesOf(const std::string &text, VMSG::READ read = {}) {
    COLLECTED collected;
    EXPECT_EQ(readMessage(text, read, collected), DISKFILE::kSuccess);
    return collected.lines;
}

using LINES = std::vector<std::string>;

const char kAlternative[] =
    "Subject: alt\nMIME-Version: 1.0\n"
    "Content-Type: multipart/alternative; boundary=\"b1\"\n\n"
    "preamble\n--b1\nContent-Type: text/plain; charset=UTF-8\n"
    "Content-Transfer-Encoding: quoted-printable\n\n"
    "caf=C3=A9 au =\nlait\n--b1\nContent-Type: text/html; charset=ISO-8859-1\n"
    "Content-Transfer-Encoding: 8bit\n\n<p>caf\xE9</p>\n--b1--\nepilogue\n";

TEST(VMSGRead, TextBodies) {
    struct CASE {
        const char *name;
        std::string text;
        IMsg::Charset charset;
        LINES lines;
    } const cases[] = {
        {"plain-latin1",
         "Subject: a\n\ncaf\xE9\n\nend\n",
         IMsg::CharsetISO1,
         {"caf\xC3\xA9", "", "end"}},
        {"plain-koi8",
         "Subject: a\n\n\xD0\xD2\xC9\n",
         IMsg::CharsetKOI8R,
         {"\xD0\xBF\xD1\x80\xD0\xB8"}},
        {"quoted-soft-break",
         "Subject: q\nContent-Transfer-Encoding: quoted-printable\n\nsoft =\nbreak=3D1\n=\n",
         IMsg::CharsetISO1,
         {"soft break=1"}},
        {"alternative-plain", kAlternative, IMsg::CharsetISO1, {"caf\xC3\xA9 au lait"}},
        {"multipart-no-encoding",
         "Subject: m\nContent-Type: multipart/mixed; boundary=zz\n\n--zz\n"
         "Content-Type: text/plain\n\nhello\n--zz--\n",
         IMsg::CharsetISO1,
         {"hello"}},
        {"base64-text",
         "Subject: b\nContent-Type: text/plain\nContent-Transfer-Encoding: base64\n\n"
         "b25lCnR3bw==\n",
         IMsg::CharsetISO1,
         {"one", "two"}},
        {"uuencode-hidden",
         "Subject: u\n\nsee file\nbegin 644 a.bin\n#86)C\n`\nend\nbye\n",
         IMsg::CharsetISO1,
         {"see file", "bye"}},
        // Data without its "end" line (a part of a split posting) is hidden up to the text.
        {"uuencode-open",
         "Subject: u (1/2)\n\nsee\nbegin 644 a.bin\n#86)C\nback to text\nmore\n",
         IMsg::CharsetISO1,
         {"see", "back to text", "more"}},
        {"begin-like-text",
         "Subject: u\n\nbegin 100 meters from the start\nthen run\n",
         IMsg::CharsetISO1,
         {"then run"}},
        {"header-only", "Subject: h\nNewsgroups: alt.test\n", IMsg::CharsetISO1, {}},
    };
    for (const CASE &c : cases) {
        VMSG::READ read;
        read.charset = c.charset;
        EXPECT_EQ(linesOf(c.text, read), c.lines) << c.name;
    }
}

// The HTML part goes to the scratch file in UTF-8, from its own charset unless the user
// forced one.
TEST(VMSGRead, HtmlPartGoesToScratchFile) {
    VMSG::READ read;
    read.html = htmlTake;
    read.htmlPath = messagePath("temp.utf8");
    COLLECTED collected;
    ASSERT_EQ(readMessage(kAlternative, read, collected), DISKFILE::kSuccess);
    EXPECT_TRUE(collected.lines.empty());
    ASSERT_EQ(collected.html, LINES{read.htmlPath});
    EXPECT_EQ(fileGet(read.htmlPath), "<p>caf\xC3\xA9</p>\n");

    read.charset = IMsg::CharsetKOI8R;
    read.charsetForce = true;
    ASSERT_EQ(readMessage(kAlternative, read, collected), DISKFILE::kSuccess);
    EXPECT_EQ(fileGet(read.htmlPath), "<p>caf\xD0\x98</p>\n");
}

TEST(VMSGRead, RawAndBinaryForms) {
    const std::string text = "Subject: r\n\ncaf\xE9\n";
    VMSG::READ read;
    read.form = VMSG::ReadRaw;
    EXPECT_EQ(linesOf(text, read), (LINES{"Subject: r", "", "caf\xC3\xA9"}));
    read.form = VMSG::ReadBinary;
    EXPECT_EQ(linesOf(text, read), (LINES{"Subject: r", "", "caf\xE9"}));
}

TEST(VMSGRead, WrapStopAndContinue) {
    const std::string text = "Subject: w\n\naaa bbb ccc ddd\nx\ny\nz\n";
    VMSG::READ read;
    read.width = 8;
    EXPECT_EQ(linesOf(text, read), (LINES{"aaa bbb", "ccc ddd", "x", "y", "z"}));

    COLLECTED stopped;
    stopped.stopAfter = 3;
    EXPECT_EQ(readMessage(text, read, stopped), DISKFILE::kIterationAborted);
    EXPECT_EQ(stopped.lines.size(), 3u);

    COLLECTED cancelled;
    cancelled.contAfter = 1;
    EXPECT_EQ(readMessage(text, {}, cancelled), DISKFILE::kIterationAborted);
    EXPECT_EQ(cancelled.lines, LINES{"aaa bbb ccc ddd"});
}

TEST(VMSGRead, AttachmentsListed) {
    const std::string text =
        "Subject: pics (1/2)\nContent-Type: multipart/mixed; boundary=\"q\"\n\n"
        "--q\nContent-Type: text/plain\nContent-Transfer-Encoding: 7bit\n\nlook\n"
        "begin 644 inline.txt\n#86)C\n`\nend\n"
        "--q\nContent-Type: image/png; name=\"a.png\"\nContent-Transfer-Encoding: base64\n\n"
        "iVBORw0KGgo=\n"
        "--q\nContent-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n"
        "Content-Disposition: attachment; filename=\"../../etc/b.bin\"\n\nAAAA\n--q--\n"
        "begin 644 tail.bin\nM86)C86)C86)C86)C86)C86)C86)C86)C86)C86)C86)C86)C86)C86)C86)C\n";
    COLLECTED collected;
    std::unique_ptr<VMSG::ATTACHMENT> list;
    ASSERT_EQ(readMessage(text, {}, collected, &list), DISKFILE::kSuccess);
    EXPECT_EQ(collected.lines, LINES{"look"});
    struct WANT {
        const char *name;
        const char *mime;
        IMsg::AttachType type;
        bool begins, ends;
        uint32_t number;
        const char *data; // the line at the offset
    } const wants[] = {
        {"inline.txt", "text/plain", IMsg::AttachUuencode, true, true, 1, "begin 644 inline.txt"},
        {"a.png", "image/png", IMsg::AttachBase64, true, true, 1, "iVBORw0KGgo="},
        {"b.bin", nullptr, IMsg::AttachBase64, true, true, 1, "AAAA"},
        {"tail.bin", nullptr, IMsg::AttachUuencode, true, false, 2, "begin 644 tail.bin"},
    };
    const VMSG::ATTACHMENT *at = list.get();
    for (const WANT &want : wants) {
        ASSERT_NE(at, nullptr) << want.name;
        EXPECT_EQ(at->filename, want.name);
        if (want.mime != nullptr) {
            EXPECT_EQ(at->mimeType, want.mime) << want.name;
        }
        EXPECT_EQ(at->type, want.type) << want.name;
        EXPECT_EQ(at->begins, want.begins) << want.name;
        EXPECT_EQ(at->ends, want.ends) << want.name;
        EXPECT_EQ(at->number, want.number) << want.name;
        EXPECT_EQ(text.compare(size_t(at->offset), std::strlen(want.data), want.data), 0)
            << want.name;
        at = at->next.get();
    }
    EXPECT_EQ(at, nullptr);

    // A whole-body base64 attachment shows nothing and is listed with the body's offset.
    const std::string single = "Subject: s\nContent-Type: application/zip; name=\"z.zip\"\n"
                               "Content-Transfer-Encoding: base64\n\nUEsDBA==\n";
    COLLECTED none;
    ASSERT_EQ(readMessage(single, {}, none, &list), DISKFILE::kSuccess);
    EXPECT_TRUE(none.lines.empty());
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->filename, "z.zip");
    EXPECT_EQ(single.compare(size_t(list->offset), 8, "UEsDBA=="), 0);
    EXPECT_EQ(list->next, nullptr);
}

} // namespace
