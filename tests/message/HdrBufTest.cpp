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

HdrBuf parse(const std::vector<const char *> &lines) {
    HdrBuf header;
    for (const char *line : lines)
        header.Add(line);
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
    HdrBuf header = parse({"subject: a", "\tb", "X: y", "Xy: ", "Lines: 123456789",
                           "Newsgroups: a.b, c.d", "Organization: Org", "To: someone"});
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
        std::string line = std::string("Lines: ") + c.value;
        EXPECT_EQ(parse({line.c_str()}).LinesGet(), c.lines) << c.value;
    }
    std::string name, value;
    EXPECT_FALSE(HdrBuf::Split("X: y", name, value));
    EXPECT_TRUE(HdrBuf::Split(" Ab :\tc\td ", name, value));
    EXPECT_EQ(name, "Ab");
    EXPECT_EQ(value, "c d");
}

TEST(HdrBuf, EncodedWords) {
    struct Case {
        const char *text;
        IMsg::Charset charset;
        const char *decoded;
    } cases[] = {
        {"=?ISO-8859-1?Q?a?= =?ISO-8859-1?Q?b?=", IMsg::CharsetISO1, "ab"},
        {"=?bogus?Q?a?=", IMsg::CharsetISO1, "=?bogus?Q?a?="},
        {"=?ISO-8859-1?Q?=00?=", IMsg::CharsetISO1, "<None>"},
        {"x=?ISO-8859-1?Q?=00?=y", IMsg::CharsetISO1, "x y"},
        {"=?iso-8859-1?q?Caf=E9_cr=E8me?=", IMsg::CharsetISO1, "Café crème"},
        {"=?UTF-8?B?w6k=?= and =?UTF-8?B?w6k=?=", IMsg::CharsetISO1, "é and é"},
        // A B word decodes in text mode (controls become spaces); a Q word keeps them.
        {"=?UTF-8?B?CWE=?=", IMsg::CharsetISO1, "a"},
        {"=?ISO-8859-1?Q?a=09b=0Ac?=", IMsg::CharsetISO1, "a\tb\nc"},
        {"=?ISO-8859-1?X?a?=", IMsg::CharsetISO1, "=?ISO-8859-1?X?a?="},
        {"=?ISO-8859-1?Q??a?=", IMsg::CharsetISO1, "=?ISO-8859-1?Q??a?="},
        {"=?ISO-8859-1?Q?a", IMsg::CharsetISO1, "=?ISO-8859-1?Q?a"},
        {"caf\xE9\tau lait", IMsg::CharsetISO1, "café au lait"},
        {"  ", IMsg::CharsetISO1, "<None>"},
    };
    for (const auto &c : cases) {
        std::string out;
        HdrBuf::HeaderDecode(out, c.text, c.charset);
        EXPECT_EQ(out, c.decoded) << c.text;
    }
    std::string tooLong = "=?ISO-8859-1?Q?" + std::string(190, 'a') + "?=";
    std::string out;
    HdrBuf::HeaderDecode(out, tooLong, IMsg::CharsetISO1);
    EXPECT_EQ(out, tooLong);
}

TEST(HdrBuf, FromForms) {
    struct Case {
        const char *from;
        const char *author;
        const char *email;
        bool both;
    } cases[] = {
        {"John Doe <jd@example>", "John Doe", "jd@example", true},
        {"jd@example (John Doe)", "John Doe", "jd@example", true},
        {"John", "John", "<None>", false},
        {"\"Doe, John\" <jd@example.com>", "Doe, John", "jd@example.com", true},
        {"<jd@example.com>", "jd@example.com", "jd@example.com", true},
        {"jd@example.com", "jd@example.com", "jd@example.com", true},
        {"John Doe jd@example.com", "John Doe", "jd@example.com", true},
        {"(John) jd@example.com", "John", "jd@example.com", true},
        {"J\\\"o <j@example.com>", "J\"o", "j@example.com", true},
        {"", "<None>", "<None>", false},
    };
    for (const auto &c : cases) {
        std::string author, email;
        EXPECT_EQ(HdrBuf::SplitFrom(c.from, author, email), c.both) << c.from;
        EXPECT_EQ(author, c.author) << c.from;
        EXPECT_EQ(email, c.email) << c.from;
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

    HdrBuf header = parse(
        {"Content-Type: Multipart/Foo; boundary=\"b1\"", "Content-Transfer-Encoding: BASE64"});
    EXPECT_EQ(header.main().content, HdrBuf::ContentMultipart);
    EXPECT_EQ(header.main().encoding, HdrBuf::EncodingBase64);
    EXPECT_STREQ(header.string(HdrBuf::StrContentType), "Multipart/Foo");
    header = parse({"Content-Type: message/partial; number=0012; total=3",
                    "Content-Type: text/plain; charset=bogus"});
    EXPECT_EQ(header.main().number, 12u);
    EXPECT_EQ(header.main().content, HdrBuf::ContentPlain);
    EXPECT_EQ(header.CharsetGet(), IMsg::CharsetISO1);
    header = parse({"Content-Type: message/partial; number=12345"});
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
        std::string line = "Content-Type: multipart/mixed; boundary=b" + std::to_string(i);
        header.Add(line.c_str());
        header.End();
    }
    ASSERT_EQ(header.boundaries().size(), HdrBuf::kBoundaryMax);
    bool isEnd = true;
    EXPECT_TRUE(header.Boundary("--b1", isEnd));
    EXPECT_FALSE(isEnd);
    EXPECT_TRUE(header.Boundary("--b6--", isEnd));
    EXPECT_TRUE(isEnd);
    EXPECT_FALSE(header.Boundary("--b7", isEnd));
    EXPECT_FALSE(header.Boundary("--b1 ", isEnd));
    EXPECT_FALSE(header.Boundary("--B1", isEnd));
    EXPECT_FALSE(header.Boundary("--", isEnd));
}

TEST(HdrBuf, Attachments) {
    struct Case {
        std::vector<const char *> lines;
        bool attachment;
        const char *name;
        const char *mimeType;
        IMsg::AttachType type;
    } cases[] = {
        {{"Content-Type: image/gif; name=a.gif", "Content-Transfer-Encoding: base64"},
         true,
         "a.gif",
         "image/gif",
         IMsg::AttachBase64},
        {{"Content-Type: application/octet-stream; name=\"x.zip\"",
          "Content-Transfer-Encoding: base64"},
         true,
         "x.zip",
         "application/zip",
         IMsg::AttachBase64},
        {{"Content-Disposition: attachment; filename=n.txt"},
         true,
         "n.txt",
         "application/octet-stream",
         IMsg::AttachMime},
        {{"Content-Disposition: attachment"}, false, "", "", IMsg::AttachNone},
        {{"Content-Type: multipart/mixed; name=x", "Content-Transfer-Encoding: base64"},
         false,
         "",
         "",
         IMsg::AttachNone},
        {{"Content-Type: message/partial; number=2; name=x", "Content-Transfer-Encoding: base64"},
         false,
         "",
         "",
         IMsg::AttachNone},
        {{"Content-Type: text/plain; name=x.txt"}, false, "", "", IMsg::AttachNone},
    };
    for (const auto &c : cases) {
        HdrBuf header = parse(c.lines);
        std::string name = "stale", mimeType = "stale";
        IMsg::AttachType type = IMsg::AttachUuencode;
        EXPECT_EQ(header.Attachment(name, mimeType, type), c.attachment) << c.lines[0];
        EXPECT_EQ(name, c.name) << c.lines[0];
        EXPECT_EQ(mimeType, c.mimeType) << c.lines[0];
        EXPECT_EQ(type, c.type) << c.lines[0];
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
    HdrBuf header = parse({"Message-ID: <a@b>"});
    EXPECT_STREQ(header.StringMessageID(), "<a@b>");
    header = parse({"Message-ID: <a@b@c>"});
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

struct Written {
    std::string path;
    std::vector<std::string> lines;
};

Written writeHeader(const HdrBuf::SendInfo &info, const char *leaf) {
    Written out;
    out.path = testhome::path() + "/" + leaf;
    TEXTFILE file;
    EXPECT_EQ(file.create(out.path.c_str(), DISKFILE::kWrite), DISKFILE::kSuccess);
    HdrBuf header;
    EXPECT_TRUE(header.Write(&file, &info, 7));
    file.lineWrite("body line");
    EXPECT_EQ(file.close(), DISKFILE::kSuccess);
    TEXTFILE in;
    EXPECT_EQ(in.open(out.path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    char buffer[TEXTFILE::kLineMax + 1];
    while (in.lineRead(buffer, sizeof(buffer)) == DISKFILE::kSuccess)
        out.lines.emplace_back(buffer);
    return out;
}

std::string fieldOf(const std::vector<std::string> &lines, const std::string &name) {
    for (const std::string &line : lines) {
        if (line.compare(0, name.size() + 2, name + ": ") == 0)
            return line.substr(name.size() + 2);
    }
    return "";
}

TEST(HdrBuf, WriteAndReadBack) {
    struct Case {
        const char *name;
        IMsg::Charset charset;
        const char *author;
        const char *subject;
        const char *encoding;
    } cases[] = {
        {"ascii", IMsg::CharsetUSASCII, "John Doe", "Hello world", "7bit"},
        {"latin1", IMsg::CharsetISO1, "André Müller", "Café crème", "8bit"},
        {"koi8r", IMsg::CharsetKOI8R, "Иван", "Привет мир", "8bit"},
        {"utf8", IMsg::CharsetUTF8, "山田", "日本語のテスト", "8bit"},
    };
    const std::string parentRefs = refList(30);
    for (const auto &c : cases) {
        SCOPED_TRACE(c.name);
        HdrBuf::SendInfo info;
        info.charset = c.charset;
        info.author = c.author;
        info.email = "poster@example.com";
        info.newsgroups = "alt.test,alt.test.two";
        info.subject = c.subject;
        info.organization = "Test Org";
        info.userAgent = "Vellowick/0.1";
        info.parentMessageID = "<parent@x>";
        info.parentReferences = parentRefs;
        Written written = writeHeader(info, c.name);
        ASSERT_GE(written.lines.size(), 12u);
        const char *order[] = {"From",         "Subject",
                               "Date",         "Lines",
                               "Newsgroups",   "Message-ID",
                               "References",   "Organization",
                               "MIME-Version", "Content-Transfer-Encoding",
                               "Content-Type", "User-Agent"};
        for (size_t i = 0; i < std::size(order); i++)
            EXPECT_EQ(written.lines[i].substr(0, written.lines[i].find(':')), order[i]);
        EXPECT_EQ(written.lines[12], "");
        EXPECT_EQ(written.lines[13], "body line");
        EXPECT_EQ(fieldOf(written.lines, "Content-Transfer-Encoding"), c.encoding);
        EXPECT_EQ(fieldOf(written.lines, "Content-Type"),
                  std::string("text/plain; charset=") + IMsg::CharsetString(c.charset));
        EXPECT_EQ(fieldOf(written.lines, "Lines"), "7");
        for (const std::string &line : written.lines) {
            for (char ch : line)
                EXPECT_TRUE(static_cast<unsigned char>(ch) < 128) << line;
        }

        TEXTFILE file;
        ASSERT_EQ(file.open(written.path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
        HdrBuf back;
        ASSERT_TRUE(back.Read(&file));
        EXPECT_STREQ(back.StringAuthor(), c.author);
        EXPECT_STREQ(back.StringEmail(), "poster@example.com");
        EXPECT_STREQ(back.StringSubject(), c.subject);
        EXPECT_STREQ(back.StringNewsgroups(), "alt.test,alt.test.two");
        EXPECT_TRUE(IMsg::MsgidGenCheck(back.StringMessageID()));
        std::vector<std::string> refs = split(back.StringReferences());
        ASSERT_EQ(refs.size(), 20u);
        EXPECT_EQ(refs.front(), "<r0@x>");
        EXPECT_EQ(refs.back(), "<parent@x>");
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
        Written written = writeHeader(info, "dated");
        EXPECT_EQ(fieldOf(written.lines, "Date"), date) << zone;
    }
    if (oldZone != nullptr)
        setenv("TZ", savedZone.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
    TIMEBASE::clockSet(nullptr);
}

TEST(HdrBuf, WriteFoldsLongFields) {
    HdrBuf::SendInfo info;
    info.charset = IMsg::CharsetUSASCII;
    info.author = "A";
    info.email = "a@example.com";
    info.newsgroups = "alt.test";
    std::string subject;
    for (int i = 0; i < 250; i++)
        subject += "word ";
    info.subject = subject;
    Written written = writeHeader(info, "long");
    EXPECT_EQ(written.lines[1].compare(0, 9, "Subject: "), 0);
    EXPECT_LE(written.lines[1].size(), HdrBuf::kWriteWidth);
    EXPECT_EQ(written.lines[2][0], ' ');
    TEXTFILE file;
    ASSERT_EQ(file.open(written.path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    HdrBuf back;
    ASSERT_TRUE(back.Read(&file));
    EXPECT_EQ(split(back.StringSubject()).size(), 250u);
    EXPECT_EQ(back.StringReferences(), std::string("<None>"));
    EXPECT_EQ(fieldOf(written.lines, "References"), "");
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
