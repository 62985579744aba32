// Tests of reading message bodies: decoded text lines, the chosen part, HTML, raw forms,
// attachments.
#include "message/VMSG.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "base/TEXTFILE.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/TestHome.h"

namespace {

using decodetest::fileGet;

struct COLLECTED {
    std::string lines;             // each line followed by '|'
    std::vector<std::string> html; // paths handed over
    size_t stopAfter = SIZE_MAX;   // the line callback wants no more after this many
    size_t contAfter = SIZE_MAX;   // the continue callback says stop after this many asks
    size_t count = 0, asks = 0;
};

std::string messagePath(const std::string &name) {
    const std::string folder = testhome::path() + "/vmsgread";
    std::filesystem::create_directories(folder);
    return folder + "/" + name;
}

// Reads text (stored as the file) in the form asked; the result, the lines in collected.
DISKFILE::ERROR readMessage(const std::string &text, VMSG::READ read, COLLECTED &collected,
                            std::unique_ptr<VMSG::ATTACHMENT> *attachments = nullptr) {
    const std::string path = messagePath("read.vmf");
    decodetest::filePut(path, text);
    TEXTFILE file;
    EXPECT_EQ(file.open(path.c_str(), DISKFILE::kRead, 2048), DISKFILE::kSuccess);
    read.line = [](void *context, std::string_view line) {
        auto *collected = static_cast<COLLECTED *>(context);
        collected->lines.append(line).append("|");
        return ++collected->count < collected->stopAfter;
    };
    read.cont = [](void *context) {
        auto *collected = static_cast<COLLECTED *>(context);
        return ++collected->asks <= collected->contAfter;
    };
    read.context = &collected;
    read.attachments = attachments;
    return VMSG::fileRead(&file, read);
}

std::string linesOf(const std::string &text, VMSG::READ read = {}) {
    COLLECTED collected;
    EXPECT_EQ(readMessage(text, read, collected), DISKFILE::kSuccess);
    return collected.lines;
}

const char kAlternative[] =
    "Subject: alt\nMIME-Version: 1.0\n"
    "Content-Type: multipart/alternative; boundary=\"b1\"\n\n"
    "preamble\n--b1\nContent-Type: text/plain; charset=UTF-8\n"
    "Content-Transfer-Encoding: quoted-printable\n\n"
    "caf=C3=A9 au =\nlait\n--b1\nContent-Type: text/html; charset=ISO-8859-1\n"
    "Content-Transfer-Encoding: 8bit\n\n<p>caf\xE9</p>\n--b1--\nepilogue\n";

TEST(VMSGRead, TextBodies) {
    struct CASE {
        std::string text;
        IMsg::Charset charset;
        const char *lines;
    } const cases[] = {
        {"Subject: a\n\ncaf\xE9\n\nend\n", IMsg::CharsetISO1, "caf\xC3\xA9||end|"},
        {"Subject: a\n\n\xD0\xD2\xC9\n", IMsg::CharsetKOI8R, "\xD0\xBF\xD1\x80\xD0\xB8|"},
        {"Subject: q\nContent-Transfer-Encoding: quoted-printable\n\nsoft =\nbreak=3D1\n=\n",
         IMsg::CharsetISO1, "soft break=1|"},
        {kAlternative, IMsg::CharsetISO1, "caf\xC3\xA9 au lait|"},
        {"Subject: m\nContent-Type: multipart/mixed; boundary=zz\n\n--zz\n"
         "Content-Type: text/plain\n\nhello\n--zz--\n",
         IMsg::CharsetISO1, "hello|"},
        {"Subject: b\nContent-Type: text/plain\nContent-Transfer-Encoding: base64\n\n"
         "b25lCnR3bw==\n",
         IMsg::CharsetISO1, "one|two|"},
        {"Subject: u\n\nsee file\nbegin 644 a.bin\n#86)C\n`\nend\nbye\n", IMsg::CharsetISO1,
         "see file|bye|"},
        // Data without its "end" line (a part of a split posting) is hidden up to the text.
        {"Subject: u (1/2)\n\nsee\nbegin 644 a.bin\n#86)C\nback to text\nmore\n", IMsg::CharsetISO1,
         "see|back to text|more|"},
        {"Subject: u\n\nbegin 100 meters from the start\nthen run\n", IMsg::CharsetISO1,
         "then run|"},
        {"Subject: h\nNewsgroups: alt.test\n", IMsg::CharsetISO1, ""},
    };
    for (const CASE &c : cases) {
        VMSG::READ read;
        read.charset = c.charset;
        EXPECT_EQ(linesOf(c.text, read), c.lines) << c.text;
    }
    // The raw forms: every line, converted or as stored.
    const std::string text = "Subject: r\n\ncaf\xE9\n";
    VMSG::READ read;
    read.form = VMSG::ReadRaw;
    EXPECT_EQ(linesOf(text, read), "Subject: r||caf\xC3\xA9|");
    read.form = VMSG::ReadBinary;
    EXPECT_EQ(linesOf(text, read), "Subject: r||caf\xE9|");
}

// The HTML part goes to the scratch file in UTF-8, from its own charset unless the user
// forced one.
TEST(VMSGRead, HtmlPartGoesToScratchFile) {
    VMSG::READ read;
    read.html = [](void *context, const char *path) {
        static_cast<COLLECTED *>(context)->html.emplace_back(path);
    };
    read.htmlPath = messagePath("temp.utf8");
    COLLECTED collected;
    ASSERT_EQ(readMessage(kAlternative, read, collected), DISKFILE::kSuccess);
    EXPECT_EQ(collected.lines, "");
    ASSERT_EQ(collected.html, std::vector<std::string>{read.htmlPath});
    EXPECT_EQ(fileGet(read.htmlPath), "<p>caf\xC3\xA9</p>\n");

    read.charset = IMsg::CharsetKOI8R;
    read.charsetForce = true;
    ASSERT_EQ(readMessage(kAlternative, read, collected), DISKFILE::kSuccess);
    EXPECT_EQ(fileGet(read.htmlPath), "<p>caf\xD0\x98</p>\n");
}

TEST(VMSGRead, WrapStopAndContinue) {
    const std::string text = "Subject: w\n\naaa bbb ccc ddd\nx\ny\nz\n";
    VMSG::READ read;
    read.width = 8;
    EXPECT_EQ(linesOf(text, read), "aaa bbb|ccc ddd|x|y|z|");

    COLLECTED stopped;
    stopped.stopAfter = 3;
    EXPECT_EQ(readMessage(text, read, stopped), DISKFILE::kIterationAborted);
    EXPECT_EQ(stopped.lines, "aaa bbb|ccc ddd|x|");

    COLLECTED cancelled;
    cancelled.contAfter = 1;
    EXPECT_EQ(readMessage(text, {}, cancelled), DISKFILE::kIterationAborted);
    EXPECT_EQ(cancelled.lines, "aaa bbb ccc ddd|");
}

// Each attachment found: name, MIME type, kind, messages it spans, whether it begins and ends
// here, and the line at its offset.
std::vector<std::string> listed(const std::string &text, const std::string &lines) {
    COLLECTED collected;
    std::unique_ptr<VMSG::ATTACHMENT> list;
    EXPECT_EQ(readMessage(text, {}, collected, &list), DISKFILE::kSuccess);
    EXPECT_EQ(collected.lines, lines);
    std::vector<std::string> out;
    for (const VMSG::ATTACHMENT *at = list.get(); at != nullptr; at = at->next.get()) {
        const size_t offset = size_t(at->offset);
        out.push_back(at->filename + " " + at->mimeType + " " + std::to_string(at->type) + " " +
                      std::to_string(at->number) + (at->begins ? " begins" : "") +
                      (at->ends ? " ends" : "") + " @" +
                      text.substr(offset, text.find('\n', offset) - offset));
    }
    return out;
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
    const std::string uu = std::to_string(IMsg::AttachUuencode);
    const std::string base64 = std::to_string(IMsg::AttachBase64);
    EXPECT_EQ(listed(text, "look|"),
              (std::vector<std::string>{
                  "inline.txt text/plain " + uu + " 1 begins ends @begin 644 inline.txt",
                  "a.png image/png " + base64 + " 1 begins ends @iVBORw0KGgo=",
                  "b.bin application/octet-stream " + base64 + " 1 begins ends @AAAA",
                  "tail.bin application/octet-stream " + uu + " 2 begins @begin 644 tail.bin"}));
    // A whole-body base64 attachment shows nothing and is listed with the body's offset.
    EXPECT_EQ(
        listed("Subject: s\nContent-Type: application/zip; name=\"z.zip\"\n"
               "Content-Transfer-Encoding: base64\n\nUEsDBA==\n",
               ""),
        std::vector<std::string>{"z.zip application/zip " + base64 + " 1 begins ends @UEsDBA=="});
}

} // namespace
