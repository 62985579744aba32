// Character sets, quoted-printable, Message-IDs, addresses, delimiters, newsgroup names,
// subject part numbers and message types.
#include "message/IMsg.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using STRINGS = std::vector<std::string>;

TEST(IMsgCharset, NamesAndConversions) {
    const std::pair<const char *, IMsg::Charset> names[] = {
        {"utf-8", IMsg::CharsetUTF8},         {"latin1", IMsg::CharsetNone},
        {"ISO-8859-1", IMsg::CharsetISO1},    {"iso-8859-15", IMsg::CharsetISO15},
        {"koi8-r", IMsg::CharsetKOI8R},       {"WINDOWS-1251", IMsg::CharsetWindows1251},
        {"us-ascii", IMsg::CharsetUSASCII},   {"", IMsg::CharsetNone},
        {"macintosh", IMsg::CharsetMacRoman},
    };
    for (const auto &[name, value] : names)
        EXPECT_EQ(IMsg::CharsetValue(name), value) << name;
    EXPECT_STREQ(IMsg::CharsetString(IMsg::CharsetNone), "ISO-8859-1");
    EXPECT_STREQ(IMsg::CharsetString(IMsg::CharsetWindows1251), "Windows-1251");
    EXPECT_FALSE(IMsg::CharsetIsValid(IMsg::CharsetNone));
    EXPECT_EQ(IMsg::CharsetMakeValid(static_cast<IMsg::Charset>(11)), IMsg::CharsetISO1);
    EXPECT_EQ(IMsg::CharsetMakeValid(IMsg::CharsetKOI8R), IMsg::CharsetKOI8R);

    struct CASE {
        IMsg::Charset from;
        std::string text;
        IMsg::Charset to;
        std::string result; // "!" when refused
    } const cases[] = {
        {IMsg::CharsetUTF8, "\xC3\xA9", IMsg::CharsetUSASCII, "i"},
        {IMsg::CharsetISO1, "abc", IMsg::CharsetKOI8R, "!"}, // two 8-bit sets
        {IMsg::CharsetISO1, "\xE9t\xE9", IMsg::CharsetUTF8, "été"},
        {IMsg::CharsetUTF8, "été", IMsg::CharsetISO1, "\xE9t\xE9"},
        {IMsg::CharsetKOI8R, "\xF0\xD2\xC9\xD7\xC5\xD4", IMsg::CharsetUTF8, "Привет"},
        {IMsg::CharsetWindows1251, "\xCF\xF0\xE8\xE2\xE5\xF2", IMsg::CharsetUTF8, "Привет"},
        {IMsg::CharsetUTF8, "Привет", IMsg::CharsetWindows1251, "\xCF\xF0\xE8\xE2\xE5\xF2"},
        {IMsg::CharsetISO2, "Za\xBF\xF3\xB3\xE6", IMsg::CharsetUTF8, "Zażółć"},
        {IMsg::CharsetMacRoman, "\x8E", IMsg::CharsetUTF8, "é"},
        {IMsg::CharsetUTF8, "€", IMsg::CharsetWindows1252, "\x80"},
        {IMsg::CharsetUTF8, "a€é", IMsg::CharsetISO1, "a\x1A\xE9"},
        {IMsg::CharsetWindows1252, "a\x81", IMsg::CharsetUTF8, "a\x1A"},
        {IMsg::CharsetUTF8, "a\xFF\xC3", IMsg::CharsetISO1, "a\x1A\x1A"},
        {IMsg::CharsetUTF8, "\xC0\xAF", IMsg::CharsetISO1, "\x1A\x1A"},
        {IMsg::CharsetUSASCII, "\xE9", IMsg::CharsetUTF8, "é"},
        {IMsg::CharsetUSASCII, "a\x81", IMsg::CharsetUSASCII, "a "},
        {IMsg::CharsetUTF8, "x\xFF", IMsg::CharsetUTF8, "x\xFF"},
        {IMsg::CharsetNone, "x", IMsg::CharsetUTF8, "!"},
    };
    for (const CASE &c : cases) {
        std::string out = "stale";
        const bool ok = IMsg::CharsetConvert(c.from, c.text, c.to, out);
        EXPECT_EQ(ok ? out : "!", c.result) << c.from << " " << c.text << " " << c.to;
        EXPECT_TRUE(ok || out.empty());
    }

    // A character split between two calls is carried in the state.
    int32_t state = 0;
    std::string out;
    EXPECT_TRUE(IMsg::CharsetConvert(IMsg::CharsetUTF8, "a\xD0", IMsg::CharsetKOI8R, out, &state));
    EXPECT_EQ(out, "a");
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

TEST(IMsgQuote, CharactersAndLines) {
    const std::pair<const char *, int> chars[] = {{"=41", 'A'}, {"=e9", 0xE9}, {"=00", ' '},
                                                  {"=4", 0},    {"=G1", 0},    {"A41", 0}};
    for (const auto &[text, value] : chars)
        EXPECT_EQ(IMsg::CharDecode(text), value) << text;
    for (char c : std::string("09AZaz*"))
        EXPECT_FALSE(IMsg::CharEncodeNeeded(static_cast<uint8_t>(c))) << c;
    for (char c : std::string(" =_?.\x80"))
        EXPECT_TRUE(IMsg::CharEncodeNeeded(static_cast<uint8_t>(c))) << c;
    std::string out = "x";
    IMsg::CharEncode(out, 0xE9);
    EXPECT_EQ(out, "x=E9");

    struct CASE {
        const char *line;
        IMsg::Charset charset;
        const char *out;
        bool complete;
    } const cases[] = {
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
    for (const CASE &c : cases) {
        out.clear();
        EXPECT_EQ(IMsg::QuoteDecode(c.charset, out, c.line), c.complete) << c.line;
        EXPECT_EQ(out, c.out) << c.line;
    }
    out.clear();
    IMsg::QuoteDecode(IMsg::CharsetISO1, out, std::string(5000, 'a'));
    EXPECT_EQ(out.size(), IMsg::kQuoteMax);
}

TEST(IMsgMsgid, CheckAndGenerate) {
    for (const std::string &id :
         STRINGS{"<a@b>", "<$1.23@x.y>", "<" + std::string(251, 'a') + "@b>"})
        EXPECT_TRUE(IMsg::MsgidCheck(id)) << id;
    for (const std::string &id : STRINGS{"<@b>", "<a@>", "<a@b@c>", "a@b", "<ab>", "<a b@c>",
                                         "<a@b>x", "<x<y@z>", "<" + std::string(252, 'a') + "@b>"})
        EXPECT_FALSE(IMsg::MsgidCheck(id)) << id;

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
    // The text, and the address found in it ("" for none).
    const std::pair<const char *, const char *> cases[] = {
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
    for (const auto &[text, address] : cases) {
        size_t start = 0, end = 0;
        const std::string_view view = text;
        const bool found = IMsg::EmailFind(view, start, end);
        EXPECT_EQ(found ? view.substr(start, end - start + 1) : "", address) << text;
    }
    EXPECT_TRUE(IMsg::EmailCheck("john@example.com"));
    for (const char *text : {" john@example.com", "john@example.com>", ""})
        EXPECT_FALSE(IMsg::EmailCheck(text)) << text;
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

TEST(IMsgNews, GroupNamesAndSubjectParts) {
    for (const std::string &name : STRINGS{"alt.binaries.x", "comp.lang.c++", "alt.x-", "a",
                                           "de.rec.fahrräder", "fr.comp_os", std::string(72, 'a')})
        EXPECT_TRUE(IMsg::NewsCheck(name)) << name;
    for (const std::string &name : STRINGS{"alt..x", ".alt", "123", "alt.x.", "-a", "a b", "",
                                           std::string(73, 'a'), "a\xE9z"})
        EXPECT_FALSE(IMsg::NewsCheck(name)) << name;

    // The subject, and "base|part/total" of a numbered one ("" when not numbered).
    const std::pair<const char *, const char *> subjects[] = {
        {"Re: pic.jpg (1/3)", "Re: pic.jpg|1/3"},
        {"song.mp3 [03/12] (yEnc)", "song.mp3|3/12"},
        {"big.zip ( 2 / 5 )", "big.zip|2/5"},
        {"a/b (1/1)", "a/b|1/1"},
        {"pic.jpg (0/3)", ""},
        {"pic.jpg (4/3)", ""},
        {"(1/2)", ""},
        {"x (1/2", ""},
        {"file (1000/2000)", ""},
        {"short", ""},
    };
    for (const auto &[subject, want] : subjects) {
        std::string base = "stale";
        uint32_t part = 9, total = 9;
        const bool numbered = IMsg::AttachSubject(subject, base, part, total);
        EXPECT_EQ(numbered, *want != '\0') << subject;
        EXPECT_EQ(base + "|" + std::to_string(part) + "/" + std::to_string(total),
                  numbered ? want : "|0/0")
            << subject;
    }
}

TEST(IMsgType, Tests) {
    // Type, and its valid / news / mail / has-a-body flags.
    const std::pair<int32_t, const char *> cases[] = {{15, "1011"}, {20, "1100"}, {21, "1100"},
                                                      {22, "1101"}, {35, "1101"}, {0, "0001"}};
    for (const auto &[type, flags] : cases) {
        const std::string got = {
            char('0' + IMsg::TypeIsValid(type)), char('0' + IMsg::TypeIsNews(type)),
            char('0' + IMsg::TypeIsMail(type)), char('0' + IMsg::TypeHasBody(type))};
        EXPECT_EQ(got, flags) << type;
        EXPECT_EQ(IMsg::TypeMarksRead(type), IMsg::TypeHasBody(type)) << type;
    }
}

} // namespace
