// Character sets, quoted-printable, Message-IDs, addresses, delimiters, newsgroup names,
// subject part numbers and message types.
#include "message/IMsg.h"

#include <gtest/gtest.h>
#include <string>

namespace {

TEST(IMsgCharset, Names) {
    struct Case {
        const char *name;
        IMsg::Charset value;
    } cases[] = {
        {"utf-8", IMsg::CharsetUTF8},         {"latin1", IMsg::CharsetNone},
        {"ISO-8859-1", IMsg::CharsetISO1},    {"iso-8859-15", IMsg::CharsetISO15},
        {"koi8-r", IMsg::CharsetKOI8R},       {"WINDOWS-1251", IMsg::CharsetWindows1251},
        {"us-ascii", IMsg::CharsetUSASCII},   {"", IMsg::CharsetNone},
        {"macintosh", IMsg::CharsetMacRoman},
    };
    for (const auto &c : cases)
        EXPECT_EQ(IMsg::CharsetValue(c.name), c.value) << c.name;
    EXPECT_STREQ(IMsg::CharsetString(IMsg::CharsetNone), "ISO-8859-1");
    EXPECT_STREQ(IMsg::CharsetString(IMsg::CharsetWindows1251), "Windows-1251");
    EXPECT_FALSE(IMsg::CharsetIsValid(IMsg::CharsetNone));
    EXPECT_FALSE(IMsg::CharsetIsValid(static_cast<IMsg::Charset>(11)));
    EXPECT_EQ(IMsg::CharsetMakeValid(static_cast<IMsg::Charset>(11)), IMsg::CharsetISO1);
    EXPECT_EQ(IMsg::CharsetMakeValid(IMsg::CharsetKOI8R), IMsg::CharsetKOI8R);
}

struct ConvertCase {
    const char *name;
    IMsg::Charset from;
    std::string text;
    IMsg::Charset to;
    std::string result;
    bool ok;
};

void PrintTo(const ConvertCase &c, std::ostream *os) {
    *os << c.name;
}

class ConvertTest : public testing::TestWithParam<ConvertCase> {};

TEST_P(ConvertTest, Result) {
    const ConvertCase &c = GetParam();
    std::string out = "stale";
    EXPECT_EQ(IMsg::CharsetConvert(c.from, c.text, c.to, out), c.ok);
    EXPECT_EQ(out, c.result);
}

const ConvertCase kConvertCases[] = {
    {"utf8_to_ascii_folds", IMsg::CharsetUTF8, "\xC3\xA9", IMsg::CharsetUSASCII, "i", true},
    {"two_8bit_sets_refused", IMsg::CharsetISO1, "abc", IMsg::CharsetKOI8R, "", false},
    {"latin1_to_utf8", IMsg::CharsetISO1, "\xE9t\xE9", IMsg::CharsetUTF8, "été", true},
    {"utf8_to_latin1", IMsg::CharsetUTF8, "été", IMsg::CharsetISO1, "\xE9t\xE9", true},
    {"koi8r", IMsg::CharsetKOI8R, "\xF0\xD2\xC9\xD7\xC5\xD4", IMsg::CharsetUTF8, "Привет", true},
    {"windows1251", IMsg::CharsetWindows1251, "\xCF\xF0\xE8\xE2\xE5\xF2", IMsg::CharsetUTF8,
     "Привет", true},
    {"utf8_to_windows1251", IMsg::CharsetUTF8, "Привет", IMsg::CharsetWindows1251,
     "\xCF\xF0\xE8\xE2\xE5\xF2", true},
    {"latin2", IMsg::CharsetISO2, "Za\xBF\xF3\xB3\xE6", IMsg::CharsetUTF8, "Zażółć", true},
    {"mac_roman", IMsg::CharsetMacRoman, "\x8E", IMsg::CharsetUTF8, "é", true},
    {"euro_to_1252", IMsg::CharsetUTF8, "€", IMsg::CharsetWindows1252, "\x80", true},
    {"euro_not_in_latin1", IMsg::CharsetUTF8, "a€é", IMsg::CharsetISO1, "a\x1A\xE9", true},
    {"undefined_1252_byte", IMsg::CharsetWindows1252, "a\x81", IMsg::CharsetUTF8, "a\x1A", true},
    {"broken_utf8", IMsg::CharsetUTF8, "a\xFF\xC3", IMsg::CharsetISO1, "a\x1A\x1A", true},
    {"overlong_utf8", IMsg::CharsetUTF8, "\xC0\xAF", IMsg::CharsetISO1, "\x1A\x1A", true},
    {"ascii_reads_as_latin1", IMsg::CharsetUSASCII, "\xE9", IMsg::CharsetUTF8, "é", true},
    {"ascii_to_ascii_folds", IMsg::CharsetUSASCII, "a\x81", IMsg::CharsetUSASCII, "a ", true},
    {"utf8_copied", IMsg::CharsetUTF8, "x\xFF", IMsg::CharsetUTF8, "x\xFF", true},
    {"no_charset", IMsg::CharsetNone, "x", IMsg::CharsetUTF8, "", false},
};

INSTANTIATE_TEST_SUITE_P(IMsg, ConvertTest, testing::ValuesIn(kConvertCases),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(IMsgCharset, StateCarriesSplitCharacter) {
    int32_t state = 0;
    std::string out;
    EXPECT_TRUE(IMsg::CharsetConvert(IMsg::CharsetUTF8, "a\xD0", IMsg::CharsetKOI8R, out, &state));
    EXPECT_EQ(out, "a");
    EXPECT_NE(state, 0);
    EXPECT_TRUE(IMsg::CharsetConvert(IMsg::CharsetUTF8, "\x9F!", IMsg::CharsetKOI8R, out, &state));
    EXPECT_EQ(out, "\xF0!"); // U+041F
    EXPECT_EQ(state, 0);
}

// Every byte an 8-bit set defines comes back from UTF-8 as itself; each defines most bytes.
TEST(IMsgCharset, EveryByteOfEverySetRoundTrips) {
    for (const STR::INDEX *row = IMsg::indexCharset; row->text != nullptr; row++) {
        auto charset = static_cast<IMsg::Charset>(row->value);
        if (charset == IMsg::CharsetUTF8 || charset == IMsg::CharsetUSASCII)
            continue;
        size_t defined = 0;
        for (int byte = 32; byte < 256; byte++) {
            std::string bytes(1, static_cast<char>(byte)), utf8, back;
            ASSERT_TRUE(IMsg::CharsetConvert(charset, bytes, IMsg::CharsetUTF8, utf8));
            if (utf8 == std::string(1, IMsg::kSubstitute))
                continue;
            defined++;
            ASSERT_TRUE(IMsg::CharsetConvert(IMsg::CharsetUTF8, utf8, charset, back));
            EXPECT_EQ(back, bytes) << row->text << " byte " << byte;
        }
        EXPECT_GE(defined, 170u) << row->text;
    }
}

TEST(IMsgQuote, Characters) {
    EXPECT_EQ(IMsg::CharDecode("=41"), 'A');
    EXPECT_EQ(IMsg::CharDecode("=e9"), 0xE9);
    EXPECT_EQ(IMsg::CharDecode("=00"), ' ');
    EXPECT_EQ(IMsg::CharDecode("=4"), 0);
    EXPECT_EQ(IMsg::CharDecode("=G1"), 0);
    EXPECT_EQ(IMsg::CharDecode("A41"), 0);
    for (char c : std::string("09AZaz*"))
        EXPECT_FALSE(IMsg::CharEncodeNeeded(static_cast<uint8_t>(c))) << c;
    for (char c : std::string(" =_?.\x80"))
        EXPECT_TRUE(IMsg::CharEncodeNeeded(static_cast<uint8_t>(c))) << c;
    std::string out = "x";
    IMsg::CharEncode(out, 0xE9);
    EXPECT_EQ(out, "x=E9");
}

TEST(IMsgQuote, BodyLines) {
    struct Case {
        const char *line;
        IMsg::Charset charset;
        const char *out;
        bool complete;
    } cases[] = {
        {"a=3Db", IMsg::CharsetISO1, "a=b", true},
        {"soft=", IMsg::CharsetISO1, "soft", false},
        {"soft=  ", IMsg::CharsetISO1, "soft", false},
        {"=E9t=E9", IMsg::CharsetISO1, "été", true},
        {"=C3=A9", IMsg::CharsetUTF8, "é", true},
        {"x=00y", IMsg::CharsetISO1, "x y", true},
        {"trail \t ", IMsg::CharsetISO1, "trail", true},
        {"=ZZ=", IMsg::CharsetISO1, "=ZZ", false},
        // Escapes are decoded first: an escaped '=' at the end is a soft break too.
        {"ends=3D", IMsg::CharsetISO1, "ends", false},
        {"ends=3D=20", IMsg::CharsetISO1, "ends", false},
        {"", IMsg::CharsetISO1, "", true},
    };
    for (const auto &c : cases) {
        std::string out;
        EXPECT_EQ(IMsg::QuoteDecode(c.charset, out, c.line), c.complete) << c.line;
        EXPECT_EQ(out, c.out) << c.line;
    }
    std::string out;
    IMsg::QuoteDecode(IMsg::CharsetISO1, out, std::string(5000, 'a'));
    EXPECT_EQ(out.size(), IMsg::kQuoteMax);
}

TEST(IMsgMsgid, Check) {
    struct Case {
        const char *id;
        bool valid;
    } cases[] = {
        {"<a@b>", true},    {"<@b>", false},       {"<a@>", false},    {"<a@b@c>", false},
        {"a@b", false},     {"<ab>", false},       {"<a b@c>", false}, {"<a@b>x", false},
        {"<x<y@z>", false}, {"<$1.23@x.y>", true},
    };
    for (const auto &c : cases)
        EXPECT_EQ(IMsg::MsgidCheck(c.id), c.valid) << c.id;
    EXPECT_FALSE(IMsg::MsgidCheck("<" + std::string(252, 'a') + "@b>"));
    EXPECT_TRUE(IMsg::MsgidCheck("<" + std::string(251, 'a') + "@b>"));
}

TEST(IMsgMsgid, Generated) {
    std::string first, second, fallback;
    IMsg::MsgidGen(first, false);
    IMsg::MsgidGen(second, false);
    IMsg::MsgidGen(fallback, true);
    EXPECT_TRUE(IMsg::MsgidGenCheck(first)) << first;
    EXPECT_NE(first, second);
    EXPECT_EQ(first.compare(0, 3, "<VM"), 0);
    EXPECT_TRUE(IMsg::MsgidCheck(fallback)) << fallback;
    EXPECT_FALSE(IMsg::MsgidGenCheck(fallback));
    EXPECT_EQ(fallback.substr(19), "@invalid.invalid>");
    EXPECT_FALSE(IMsg::MsgidGenCheck("<VM0123456789abcdef@x>"));
    EXPECT_TRUE(IMsg::MsgidGenCheck("<VM0123456789ABCDEF@x>"));
}

TEST(IMsgEmail, FindInText) {
    struct Case {
        const char *text;
        const char *address; // "" when none is found
    } cases[] = {
        {"mail me at john.doe@example.com today", "john.doe@example.com"},
        {"<jd@example>", "jd@example"},
        {"a1234567@example.com", ""},
        {"a12345@example.com", "a12345@example.com"},
        {"@example.com", ""},
        {"john.@example.com", ""},
        {"john@.example.com", ""},
        {"..john@example.com", "john@example.com"},
        {"x@y", "x@y"},
        {"john@example..com", "john@example"},
        {"john@example.com.", "john@example.com"},
        {"john@ex_ample.com", ""},
        {"-john@example.com", ""},
        {"first@ second@example.org", "second@example.org"},
        {"a@b@example.com", "a@b"},
    };
    for (const auto &c : cases) {
        size_t start = 0, end = 0;
        std::string text = c.text;
        bool found = IMsg::EmailFind(text, start, end);
        EXPECT_EQ(found ? text.substr(start, end - start + 1) : "", c.address) << c.text;
    }
    EXPECT_TRUE(IMsg::EmailCheck("john@example.com"));
    EXPECT_FALSE(IMsg::EmailCheck(" john@example.com"));
    EXPECT_FALSE(IMsg::EmailCheck("john@example.com>"));
    EXPECT_FALSE(IMsg::EmailCheck(""));
}

TEST(IMsgDelim, Pairs) {
    EXPECT_TRUE(IMsg::DelimPair('\'', '\'') && IMsg::DelimPair('{', '}'));
    EXPECT_FALSE(IMsg::DelimPair('(', ']') || IMsg::DelimRight('\0') || IMsg::DelimLeft(')'));
    EXPECT_EQ(IMsg::DelimFindLeft("a (b (c) d)", 10), 2u);
    EXPECT_EQ(IMsg::DelimFindLeft("a b)", 3), std::string_view::npos);
    EXPECT_EQ(IMsg::DelimFindLeft("\"x\" \"y\"", 6), 4u);
    EXPECT_EQ(IMsg::DelimFindRight("(a (b) c) d"), 8u);
    EXPECT_EQ(IMsg::DelimFindRight("(a"), std::string_view::npos);
    const std::pair<const char *, const char *> removals[] = {
        {"  <a@b>  ", "a@b"}, {" \" Jo \" ", "Jo"}, {"(a]", "(a]"}};
    for (const auto &[before, after] : removals) {
        std::string text = before;
        EXPECT_EQ(IMsg::DelimRemove(text), text != STR::trim(before)) << before;
        EXPECT_EQ(text, after);
    }
}

TEST(IMsgNews, GroupNames) {
    struct Case {
        std::string name;
        bool valid;
    } cases[] = {
        {"alt.binaries.x", true},
        {"alt..x", false},
        {".alt", false},
        {"123", false},
        {"comp.lang.c++", true},
        {"alt.x-", true},
        {"alt.x.", false},
        {"a", true},
        {"-a", false},
        {"de.rec.fahrräder", true},
        {"a b", false},
        {"", false},
        {"fr.comp_os", true},
        {std::string(72, 'a'), true},
        {std::string(73, 'a'), false},
        {"a\xE9z", false},
    };
    for (const auto &c : cases)
        EXPECT_EQ(IMsg::NewsCheck(c.name), c.valid) << c.name;
}

TEST(IMsgNews, SubjectParts) {
    struct Case {
        const char *subject;
        bool numbered;
        const char *base;
        uint32_t part, total;
    } cases[] = {
        {"Re: pic.jpg (1/3)", true, "Re: pic.jpg", 1, 3},
        {"pic.jpg (0/3)", false, "", 0, 0},
        {"pic.jpg (4/3)", false, "", 0, 0},
        {"song.mp3 [03/12] (yEnc)", true, "song.mp3", 3, 12},
        {"big.zip ( 2 / 5 )", true, "big.zip", 2, 5},
        {"(1/2)", false, "", 0, 0},
        {"x (1/2", false, "", 0, 0},
        {"file (1000/2000)", false, "", 0, 0},
        {"a/b (1/1)", true, "a/b", 1, 1},
        {"short", false, "", 0, 0},
    };
    for (const auto &c : cases) {
        std::string base = "stale";
        uint32_t part = 9, total = 9;
        EXPECT_EQ(IMsg::AttachSubject(c.subject, base, part, total), c.numbered) << c.subject;
        EXPECT_EQ(base, c.base) << c.subject;
        EXPECT_EQ(part, c.part) << c.subject;
        EXPECT_EQ(total, c.total) << c.subject;
    }
}

TEST(IMsgType, Tests) {
    struct Case {
        int32_t type;
        bool valid, news, mail, body;
    } cases[] = {
        {15, true, false, true, true},  {20, true, true, false, false},
        {21, true, true, false, false}, {22, true, true, false, true},
        {35, true, true, false, true},  {0, false, false, false, true},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(IMsg::TypeIsValid(c.type), c.valid) << c.type;
        EXPECT_EQ(IMsg::TypeIsNews(c.type), c.news) << c.type;
        EXPECT_EQ(IMsg::TypeIsMail(c.type), c.mail) << c.type;
        EXPECT_EQ(IMsg::TypeHasBody(c.type), c.body) << c.type;
        EXPECT_EQ(IMsg::TypeMarksRead(c.type), c.body) << c.type;
    }
}

} // namespace
