// Header block rules: unfolding, fields, encoded words, From forms, parameters, References,
// boundaries, attachments, and the header of a new article read back.
#include "message/HdrBuf.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <vector>

#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/TestHome.h"

namespace {

// The test process's own MIME database: a user globs file in the order the system's has
// them (the case-sensitive "*.C" before "*.c"), and no system folders, so that guesses do
// not depend on the machine.
class MimeDatabase : public testing::Environment {
    void SetUp() override {
        std::string folder = std::string(std::getenv("XDG_DATA_HOME")) + "/mime";
        std::filesystem::create_directories(folder);
        std::ofstream(folder + "/globs2") << "50:text/x-c++src:*.C:cs\n"
                                             "50:text/x-csrc:*.c:cs\n"
                                             "50:text/x-csrc:*.c\n"
                                             "50:application/x-compressed-tar:*.tar.gz\n";
        setenv("XDG_DATA_DIRS", (testhome::path() + "/none").c_str(), 1);
    }
};
testing::Environment *const gMimeDatabase = testing::AddGlobalTestEnvironment(new MimeDatabase);

// One header block given as lines joined by '\n'.
HdrBuf parse(std::string_view block) {
    HdrBuf header;
    for (size_t end; !block.empty(); block.remove_prefix(std::min(end + 1, block.size()))) {
        end = std::min(block.find('\n'), block.size());
        header.Add(block.substr(0, end));
    }
    header.End();
    return header;
}

std::vector<std::string> split(const std::string &text) {
    std::istringstream in(text);
    std::vector<std::string> out;
    for (std::string token; in >> token;)
        out.push_back(token);
    return out;
}

TEST(HdrBuf, FieldsAndFolding) {
    HdrBuf header = parse("subject: a\n\tb\nX: y\nXy: \nLines: 123456789\n"
                          "Newsgroups: a.b, c.d\nOrganization: Org\nTo: someone");
    EXPECT_STREQ(header.StringSubject(), "a b");
    EXPECT_EQ(header.LinesGet(), 0u);
    EXPECT_STREQ(header.StringNewsgroups(), "a.b,c.d");
    EXPECT_STREQ(header.string(HdrBuf::StrOrganization), "Org");
    EXPECT_STREQ(header.StringTo(), "<None>");
    EXPECT_STREQ(header.string(99), "<None>");
    EXPECT_STREQ(header.StringAuthor(), "<None>");
    struct {
        const char *value;
        uint32_t lines;
    } lines[] = {{"-5", 0}, {"+12", 12}, {"42", 42}, {"12345678", 12345678}, {"4x", 0}};
    for (const auto &c : lines) {
        EXPECT_EQ(parse(std::string("Lines: ") + c.value).LinesGet(), c.lines) << c.value;
    }
    std::string name, value;
    EXPECT_FALSE(HdrBuf::Split("X: y", name, value));
    EXPECT_TRUE(HdrBuf::Split(" Ab :\tc\td ", name, value));
    EXPECT_EQ(name, "Ab");
    EXPECT_EQ(value, "c d");
}

TEST(HdrBuf, EncodedWords) {
    // Text in ISO-8859-1 with encoded words, and what it decodes to.
    const std::pair<std::string, std::string> cases[] = {
        {"=?ISO-8859-1?Q?a?= =?ISO-8859-1?Q?b?=", "ab"},
        {"=?bogus?Q?a?=", "=?bogus?Q?a?="},
        {"=?ISO-8859-1?Q?=00?=", "<None>"},
        {"x=?ISO-8859-1?Q?=00?=y", "x y"},
        {"=?iso-8859-1?q?Caf=E9_cr=E8me?=", "Café crème"},
        {"=?UTF-8?B?w6k=?= and =?UTF-8?B?w6k=?=", "é and é"},
        // A B word decodes in text mode (controls become spaces); a Q word keeps them.
        {"=?UTF-8?B?CWE=?=", "a"},
        {"=?ISO-8859-1?Q?a=09b=0Ac?=", "a\tb\nc"},
        {"=?ISO-8859-1?X?a?=", "=?ISO-8859-1?X?a?="},
        {"=?ISO-8859-1?Q??a?=", "=?ISO-8859-1?Q??a?="},
        {"=?ISO-8859-1?Q?a", "=?ISO-8859-1?Q?a"},
        {"caf\xE9\tau lait", "café au lait"},
        {"  ", "<None>"},
        // A whole word of more than 200 characters is text.
        {"=?ISO-8859-1?Q?" + std::string(190, 'a') + "?=",
         "=?ISO-8859-1?Q?" + std::string(190, 'a') + "?="},
    };
    for (const auto &[text, decoded] : cases) {
        std::string out;
        HdrBuf::HeaderDecode(out, text, IMsg::CharsetISO1);
        EXPECT_EQ(out, decoded) << text;
    }
}

TEST(HdrBuf, FromForms) {
    // A From value, and "author|email" of it ('+' in front when both were found).
    const std::pair<const char *, const char *> cases[] = {
        {"John Doe <jd@example>", "+John Doe|jd@example"},
        {"jd@example (John Doe)", "+John Doe|jd@example"},
        {"John", "John|<None>"},
        {"\"Doe, John\" <jd@example.com>", "+Doe, John|jd@example.com"},
        {"<jd@example.com>", "+jd@example.com|jd@example.com"},
        {"jd@example.com", "+jd@example.com|jd@example.com"},
        {"John Doe jd@example.com", "+John Doe|jd@example.com"},
        {"(John) jd@example.com", "+John|jd@example.com"},
        {"J\\\"o <j@example.com>", "+J\"o|j@example.com"},
        {"", "<None>|<None>"},
    };
    for (const auto &[from, want] : cases) {
        std::string author, email;
        const bool both = HdrBuf::SplitFrom(from, author, email);
        EXPECT_EQ((both ? "+" : "") + author + "|" + email, want) << from;
    }
}

TEST(HdrBuf, Parameters) {
    std::string value;
    const char *type = "text/plain; filename=\"f.txt\"; name=n.txt";
    // A plain substring search: "name" is found inside "filename" first.
    EXPECT_TRUE(HdrBuf::subval(type, "name", value));
    EXPECT_EQ(value, "f.txt");
    EXPECT_TRUE(HdrBuf::subval("a; CHARSET = \"koi8-r\" ", "charset", value));
    EXPECT_EQ(value, "koi8-r");
    EXPECT_FALSE(HdrBuf::subval("a; charset; b=c", "charset", value));
    EXPECT_FALSE(HdrBuf::subval("a; charset=\"\"", "charset", value));
    EXPECT_TRUE(HdrBuf::subvalGet(" <multipart/mixed> ; x", value));
    EXPECT_EQ(value, "multipart/mixed");
    EXPECT_TRUE(HdrBuf::subvalGet(std::string(200, 'v'), value));
    EXPECT_EQ(value.size(), HdrBuf::kSubvalMax);

    HdrBuf header =
        parse("Content-Type: Multipart/Foo; boundary=\"b1\"\nContent-Transfer-Encoding: BASE64");
    EXPECT_EQ(header.main().content, HdrBuf::ContentMultipart);
    EXPECT_EQ(header.main().encoding, HdrBuf::EncodingBase64);
    EXPECT_STREQ(header.string(HdrBuf::StrContentType), "Multipart/Foo");
    header = parse("Content-Type: message/partial; number=0012; total=3\n"
                   "Content-Type: text/plain; charset=bogus");
    EXPECT_EQ(header.main().number, 12u);
    EXPECT_EQ(header.main().content, HdrBuf::ContentPlain);
    EXPECT_EQ(header.CharsetGet(), IMsg::CharsetISO1);
    header = parse("Content-Type: message/partial; number=12345");
    EXPECT_EQ(header.main().number, 0u);
    EXPECT_STREQ(HdrBuf::contentString(HdrBuf::ContentMultipart), "[Unknown]");
    EXPECT_EQ(HdrBuf::encodingMakeValid(HdrBuf::EncodingNone), HdrBuf::Encoding8bit);
    EXPECT_FALSE(HdrBuf::encodingIsViewable(HdrBuf::EncodingBase64));
}

// Message-IDs "<" + pad + "r<i>@x>" for i from 0 to count-1, joined by single spaces.
std::string refList(int count, size_t pad = 0) {
    std::string out;
    for (int i = 0; i < count; i++)
        out += (i > 0 ? " <" : "<") + std::string(pad, 'a') + "r" + std::to_string(i) + "@x>";
    return out;
}

TEST(HdrBuf, References) {
    EXPECT_EQ(HdrBuf::referencesNormalise("<a@b><c@d>"), "<a@b> <c@d>");
    EXPECT_EQ(HdrBuf::referencesNormalise(" a@b\t<bad> <x@y <@z>  "), "<a@b> <x@y>");
    EXPECT_EQ(HdrBuf::referencesNormalise(""), "");

    struct Case {
        std::string parentRefs;
        const char *parentId;
        std::string out;
    } cases[] = {
        // The root, the 18 latest ancestors and the parent: 20 IDs.
        {refList(30), "<p@x>", "<r0@x> " + refList(30).substr(refList(12).size() + 1) + " <p@x>"},
        // Long IDs: the walk stops before 998 characters (the root, 9 more, the parent).
        {refList(30, 90), "<p@x>",
         refList(1, 90) + refList(30, 90).substr(refList(21, 90).size()) + " <p@x>"},
        {"", "<p@x>", "<p@x>"},
        {"<a@x> bad <c@x>", "<p@x>", "<a@x> <c@x> <p@x>"},
        // Deliberately, an empty token (two spaces in a row) ends the walk.
        {"<a@x> <b@x>  <c@x> <d@x>", "<p@x>", "<a@x> <c@x> <d@x> <p@x>"},
    };
    for (const auto &c : cases) {
        std::string out;
        HdrBuf::refCreate(c.parentRefs, c.parentId, out);
        EXPECT_EQ(out, c.out) << c.parentRefs;
        EXPECT_LE(out.size(), HdrBuf::kWriteWidth);
    }
}

// A line past the 1000-character limit is read in pieces; cut at a blank, the rest joins
// the field as a folded line.
TEST(HdrBuf, OverLongLineContinuesInTheNextRead) {
    std::string refs = "References:";
    size_t ids = 0;
    while (refs.size() < 950)
        refs += " <id" + std::to_string(ids++) + "@example.com>";
    refs += " <" + std::string(1000 - refs.size() - 15, 'p') + "@example.com>";
    ASSERT_EQ(refs.size(), TEXTFILE::kLineMax);
    std::string path = testhome::path() + "/overlong";
    std::ofstream(path) << refs << " <tail@example.com>\nSubject: s\n\nbody\n";
    TEXTFILE file;
    ASSERT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    HdrBuf header;
    ASSERT_TRUE(header.Read(&file));
    std::vector<std::string> got = split(header.StringReferences());
    EXPECT_EQ(got.size(), ids + 2);
    EXPECT_EQ(got.back(), "<tail@example.com>");
    EXPECT_STREQ(header.StringSubject(), "s");
}

TEST(HdrBuf, Boundaries) {
    HdrBuf header;
    for (int i = 1; i <= 7; i++) {
        header.Add("Content-Type: multipart/mixed; boundary=b" + std::to_string(i));
        header.End();
    }
    ASSERT_EQ(header.boundaries().size(), HdrBuf::kBoundaryMax);
    // Line, and what Boundary makes of it: 0 no boundary, 1 a boundary, 2 the end one.
    const std::pair<const char *, int> lines[] = {{"--b1", 1},  {"--b6--", 2}, {"--b7", 0},
                                                  {"--b1 ", 0}, {"--B1", 0},   {"--", 0}};
    for (const auto &[line, kind] : lines) {
        bool isEnd = kind != 2;
        EXPECT_EQ(header.Boundary(line, isEnd), kind != 0) << line;
        EXPECT_EQ(isEnd, kind == 2) << line;
    }
}

TEST(HdrBuf, Attachments) {
    // What Attachment gives: "name|MIME type|kind"; "||0" for no attachment.
    const std::pair<const char *, const char *> cases[] = {
        {"Content-Type: image/gif; name=a.gif\nContent-Transfer-Encoding: base64",
         "a.gif|image/gif|1"},
        {"Content-Type: application/octet-stream; name=\"x.zip\"\n"
         "Content-Transfer-Encoding: base64",
         "x.zip|application/zip|1"},
        {"Content-Disposition: attachment; filename=n.txt", "n.txt|application/octet-stream|2"},
        {"Content-Disposition: attachment", "||0"},
        {"Content-Type: multipart/mixed; name=x\nContent-Transfer-Encoding: base64", "||0"},
        {"Content-Type: message/partial; number=2; name=x\nContent-Transfer-Encoding: base64",
         "||0"},
        {"Content-Type: text/plain; name=x.txt", "||0"},
    };
    for (const auto &[block, found] : cases) {
        std::string name = "stale", mimeType = "stale";
        IMsg::AttachType type = IMsg::AttachUuencode;
        bool attachment = parse(block).Attachment(name, mimeType, type);
        EXPECT_EQ(name + "|" + mimeType + "|" + std::to_string(type), found) << block;
        EXPECT_EQ(attachment, type != IMsg::AttachNone) << block;
    }
    const std::pair<const char *, const char *> guesses[] = {
        {"Photo.JPG", "image/jpeg"},
        {"README", ""},
        {"main.c", "text/x-csrc"},
        {"MAIN.C", "text/x-c++src"},
        {"a.b/x.TAR.gz", "application/x-compressed-tar"},
    };
    for (const auto &[name, mimeType] : guesses) {
        std::string guess = "stale";
        HdrBuf::FilenameToMIME(name, guess);
        EXPECT_EQ(guess, mimeType) << name;
    }
}

TEST(HdrBuf, MessageIdFallbackAndCharsetKeptAcrossClear) {
    HdrBuf header = parse("Message-ID: <a@b>");
    EXPECT_STREQ(header.StringMessageID(), "<a@b>");
    header = parse("Message-ID: <a@b@c>");
    std::string id = header.StringMessageID();
    EXPECT_TRUE(IMsg::MsgidCheck(id));
    EXPECT_FALSE(IMsg::MsgidGenCheck(id));
    EXPECT_STREQ(header.StringMessageID(), id.c_str()); // stored, not made again

    header.Clear();
    header.CharsetSet(IMsg::CharsetKOI8R, false);
    header.Add("Subject: \xF0\xD2\xC9\xD7\xC5\xD4");
    header.End();
    EXPECT_STREQ(header.StringSubject(), "Привет");
    EXPECT_EQ(header.CharsetGet(), IMsg::CharsetKOI8R);
}

// Writes the header of a new article of 7 lines, then one body line; the file's text.
std::string writeHeader(const HdrBuf::SendInfo &info, const std::string &path) {
    TEXTFILE file;
    EXPECT_EQ(file.create(path.c_str(), DISKFILE::kWrite), DISKFILE::kSuccess);
    HdrBuf header;
    EXPECT_TRUE(header.Write(&file, &info, 7));
    file.lineWrite("body line");
    EXPECT_EQ(file.close(), DISKFILE::kSuccess);
    return decodetest::fileGet(path);
}

std::string fieldOf(const std::string &text, const std::string &name) {
    const size_t at = ("\n" + text).find("\n" + name + ": ");
    if (at == std::string::npos)
        return "";
    const size_t value = at + name.size() + 2;
    return text.substr(value, text.find('\n', value) - value);
}

TEST(HdrBuf, WriteAndReadBack) {
    std::string longSubject = "word";
    for (int i = 1; i < 250; i++)
        longSubject += " word";
    struct CASE {
        IMsg::Charset charset;
        std::string author;
        std::string subject;
        const char *encoding;
    } const cases[] = {
        {IMsg::CharsetUSASCII, "John Doe", "Hello world", "7bit"},
        {IMsg::CharsetISO1, "André Müller", "Café crème", "8bit"},
        {IMsg::CharsetKOI8R, "Иван", "Привет мир", "8bit"},
        {IMsg::CharsetUTF8, "山田", "日本語のテスト", "8bit"},
        // Folded at 998 characters, unfolded again when read.
        {IMsg::CharsetUSASCII, "A", longSubject, "7bit"},
    };
    for (const CASE &c : cases) {
        SCOPED_TRACE(c.subject);
        HdrBuf::SendInfo info;
        info.charset = c.charset;
        info.author = c.author;
        info.email = "poster@example.com";
        info.newsgroups = "alt.test,alt.test.two";
        info.subject = c.subject;
        info.organization = "Test Org";
        info.userAgent = "Vellowick/0.1";
        info.parentMessageID = "<parent@x>";
        info.parentReferences = refList(30);
        const std::string path = testhome::path() + "/written";
        const std::string text = writeHeader(info, path);
        const size_t end = text.find("\n\n");
        ASSERT_NE(end, std::string::npos);
        EXPECT_EQ(text.substr(end + 2), "body line\n");
        std::istringstream lines(text.substr(0, end));
        std::string names;
        for (std::string line; std::getline(lines, line);) {
            EXPECT_LE(line.size(), HdrBuf::kWriteWidth);
            for (char ch : line)
                EXPECT_TRUE(static_cast<unsigned char>(ch) < 128) << line;
            if (line[0] != ' ')
                names += line.substr(0, line.find(':')) + " ";
        }
        EXPECT_EQ(names, "From Subject Date Lines Newsgroups Message-ID References Organization "
                         "MIME-Version Content-Transfer-Encoding Content-Type User-Agent ");
        EXPECT_EQ(fieldOf(text, "Content-Transfer-Encoding"), c.encoding);
        EXPECT_EQ(fieldOf(text, "Content-Type"),
                  std::string("text/plain; charset=") + IMsg::CharsetString(c.charset));
        EXPECT_EQ(fieldOf(text, "Lines"), "7");

        TEXTFILE file;
        ASSERT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
        HdrBuf back;
        ASSERT_TRUE(back.Read(&file));
        EXPECT_EQ(std::string(back.StringAuthor()) + "|" + back.StringEmail() + "|" +
                      back.StringSubject() + "|" + back.StringNewsgroups(),
                  c.author + "|poster@example.com|" + c.subject + "|alt.test,alt.test.two");
        EXPECT_TRUE(IMsg::MsgidGenCheck(back.StringMessageID()));
        const std::vector<std::string> refs = split(back.StringReferences());
        ASSERT_EQ(refs.size(), 20u);
        EXPECT_EQ(refs.front() + refs.back(), "<r0@x><parent@x>");
        EXPECT_EQ(back.LinesGet(), 7u);
        EXPECT_EQ(back.CharsetGet(), c.charset);
        EXPECT_NEAR(static_cast<double>(back.DateTime()),
                    static_cast<double>(TIMEBASE::seconds(TIMEBASE::timeGet())), 120.0);
    }
}

// The Date of a posting is local time with that moment's zone, the day not zero-padded.
TEST(HdrBuf, WriteDateInLocalTime) {
    const std::pair<const char *, const char *> zones[] = {
        {"PST8PDT,M4.1.0,M10.5.0", "Tue, 3 Oct 2000 14:05:09 -0700"},
        {"UTC0", "Tue, 3 Oct 2000 21:05:09 GMT"},
    };
    const char *oldZone = std::getenv("TZ");
    const std::string savedZone = oldZone != nullptr ? oldZone : "";
    TIMEBASE::CLOCK clock;
    clock.wall = [] { return int64_t{970607109} * TIMEBASE::kSecond; };
    TIMEBASE::clockSet(&clock);
    HdrBuf::SendInfo info;
    info.newsgroups = "alt.test";
    for (const auto &[zone, date] : zones) {
        setenv("TZ", zone, 1);
        tzset();
        const std::string text = writeHeader(info, testhome::path() + "/dated");
        EXPECT_EQ(fieldOf(text, "Date"), date) << zone;
        EXPECT_EQ(text.find("References:"), std::string::npos); // no parent, no References
    }
    if (oldZone != nullptr)
        setenv("TZ", savedZone.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
    TIMEBASE::clockSet(nullptr);
}

TEST(HdrBuf, HeaderCreateEncodes) {
    HdrBuf header;
    header.CharsetSet(IMsg::CharsetISO1, true);
    std::string line;
    EXPECT_TRUE(header.HeaderCreate(line, HdrBuf::HdrSubject, "Café au lait*"));
    EXPECT_EQ(line, "Subject: =?ISO-8859-1?Q?Caf=E9_au_lait*?=");
    EXPECT_TRUE(header.HeaderCreate(line, HdrBuf::HdrOrganization, "Plain text"));
    EXPECT_EQ(line, "Organization: Plain text");
    EXPECT_FALSE(header.HeaderCreate(line, HdrBuf::HdrNone, "x"));
}

} // namespace
