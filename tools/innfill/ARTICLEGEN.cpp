// Generated news articles for tests and benchmarks: threads, encoded subjects, attachments.
#include "tools/innfill/ARTICLEGEN.h"

#include <cstdio>
#include <ctime>
#include <utility>
#include <vector>

namespace {

// One subject in one character set: the bytes in that set and what they read as in UTF-8.
struct SUBJECT {
    const char *charset; // null: plain ASCII, no encoded word
    char encoding;       // 'B' or 'Q'
    const char *bytes;
    const char *utf8;
};

const SUBJECT kSubjects[] = {
    {nullptr, 0, "Plain subject", "Plain subject"},
    {"UTF-8", 'B',
     "Gr\xC3\xBC\xC3\x9F"
     "e aus K\xC3\xB6ln",
     "Gr\xC3\xBC\xC3\x9F"
     "e aus K\xC3\xB6ln"},
    {"ISO-8859-1", 'Q', "Caf\xE9 cr\xE8me", "Caf\xC3\xA9 cr\xC3\xA8me"},
    {"KOI8-R", 'B', "\xF0\xD2\xC9\xD7\xC5\xD4 \xCD\xC9\xD2",
     "\xD0\x9F\xD1\x80\xD0\xB8\xD0\xB2\xD0\xB5\xD1\x82 \xD0\xBC\xD0\xB8\xD1\x80"},
    {"windows-1252", 'Q', "Price 100\x80 \x96 \x93quoted\x94",
     "Price 100\xE2\x82\xAC \xE2\x80\x93 \xE2\x80\x9Cquoted\xE2\x80\x9D"},
    {"ISO-8859-15", 'Q', "\xBCuvre \xE0 5\xA4", "\xC5\x92uvre \xC3\xA0 5\xE2\x82\xAC"},
    {"UTF-8", 'Q', "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x83\x86\xE3\x82\xB9",
     "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E\xE3\x81\xAE\xE3\x83\x86\xE3\x82\xB9"},
};
constexpr size_t kSubjectCount = sizeof kSubjects / sizeof kSubjects[0];

// Body texts in 8-bit sets for the article that carries one.
struct BODYTEXT {
    const char *charset;
    const char *line;
};
const BODYTEXT kBodies[] = {
    {"ISO-8859-1", "Sch\xF6ne Gr\xFC\xDF"
                   "e, \xE0 bient\xF4t."},
    {"KOI8-R", "\xF0\xD2\xC9\xD7\xC5\xD4, \xCD\xC9\xD2!"},
    {"windows-1252", "\x93Smart quotes\x94 and a dash \x96 here."},
    {"ISO-8859-15", "Le prix: 5\xA4, \xBCuvre compl\xE8te."},
};
constexpr size_t kBodyCount = sizeof kBodies / sizeof kBodies[0];

const char *const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char *const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string quotedWord(const std::string &bytes) {
    std::string out;
    for (unsigned char c : bytes) {
        if (c == ' ') {
            out += '_';
        } else if (c > 32 && c < 127 && c != '=' && c != '?' && c != '_') {
            out += char(c);
        } else {
            char hex[4];
            snprintf(hex, sizeof hex, "=%02X", c);
            out += hex;
        }
    }
    return out;
}

} // namespace

std::string ARTICLEGEN::base64(const std::string &data, size_t lineLength) {
    static const char kAlphabet[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    size_t column = 0;
    for (size_t i = 0; i < data.size(); i += 3) {
        uint32_t value = uint32_t(uint8_t(data[i])) << 16;
        if (i + 1 < data.size()) {
            value |= uint32_t(uint8_t(data[i + 1])) << 8;
        }
        if (i + 2 < data.size()) {
            value |= uint8_t(data[i + 2]);
        }
        out += kAlphabet[(value >> 18) & 63];
        out += kAlphabet[(value >> 12) & 63];
        out += i + 1 < data.size() ? kAlphabet[(value >> 6) & 63] : '=';
        out += i + 2 < data.size() ? kAlphabet[value & 63] : '=';
        column += 4;
        if (lineLength != 0 && column >= lineLength && i + 3 < data.size()) {
            out += "\r\n";
            column = 0;
        }
    }
    return out;
}

std::vector<std::string> ARTICLEGEN::uuencode(const std::string &data, const std::string &name) {
    auto code = [](uint32_t value) { return char(value == 0 ? '`' : value + 32); };
    std::vector<std::string> lines;
    lines.push_back("begin 644 " + name);
    for (size_t i = 0; i < data.size(); i += 45) {
        size_t count = data.size() - i < 45 ? data.size() - i : 45;
        std::string line(1, code(uint32_t(count)));
        for (size_t j = 0; j < count; j += 3) {
            uint32_t value = 0;
            for (size_t k = 0; k < 3; ++k) {
                value = (value << 8) | (j + k < count ? uint8_t(data[i + j + k]) : 0);
            }
            for (int shift = 18; shift >= 0; shift -= 6) {
                line += code((value >> shift) & 63);
            }
        }
        lines.push_back(line);
    }
    lines.push_back("`");
    lines.push_back("end");
    return lines;
}

ARTICLEGEN::ARTICLEGEN(std::string group, uint32_t seed, std::string domain)
    : fGroup(std::move(group)), fSeed(seed), fDomain(std::move(domain)) {}

uint32_t ARTICLEGEN::_random(size_t index, uint32_t salt) const {
    // A small integer hash: the same inputs always give the same article.
    uint64_t x = (uint64_t(fSeed) << 32) ^ (uint64_t(index) * 0x9E3779B97F4A7C15ull) ^ salt;
    x ^= x >> 33;
    x *= 0xFF51AFD7ED558CCDull;
    x ^= x >> 33;
    x *= 0xC4CEB9FE1A85EC53ull;
    x ^= x >> 33;
    return uint32_t(x);
}

std::string ARTICLEGEN::messageId(size_t index) const {
    return "<fill." + std::to_string(fSeed) + "." + std::to_string(index) + "@" + fDomain + ">";
}

size_t ARTICLEGEN::_parent(size_t index) const {
    size_t position = index % kBlock;
    return index - position + _random(index, 1) % position;
}

std::string ARTICLEGEN::references(size_t index) const {
    size_t position = index % kBlock;
    if (position == 0 || position >= 5) {
        return "";
    }
    size_t parent = _parent(index);
    std::string above = references(parent);
    return above.empty() ? messageId(parent) : above + " " + messageId(parent);
}

std::string ARTICLEGEN::_subjectHeader(size_t index) const {
    size_t block = index / kBlock;
    size_t position = index % kBlock;
    if (position >= 7) {
        return attachmentName(index) + " (" + std::to_string(position - 6) + "/" +
               std::to_string(kSplitParts) + ")";
    }
    const SUBJECT &subject = kSubjects[block % kSubjectCount];
    std::string text;
    if (subject.charset == nullptr) {
        text = subject.bytes;
    } else {
        text = std::string("=?") + subject.charset + "?" + subject.encoding + "?" +
               (subject.encoding == 'B' ? base64(subject.bytes, 0) : quotedWord(subject.bytes)) +
               "?=";
    }
    text += " #" + std::to_string(block);
    if (position >= 5) {
        text += position == 5 ? " text" : " attachment";
    }
    return (position >= 1 && position <= 4) ? "Re: " + text : text;
}

std::string ARTICLEGEN::subjectText(size_t index) const {
    size_t block = index / kBlock;
    size_t position = index % kBlock;
    if (position >= 7) {
        return _subjectHeader(index);
    }
    std::string text =
        std::string(kSubjects[block % kSubjectCount].utf8) + " #" + std::to_string(block);
    if (position >= 5) {
        text += position == 5 ? " text" : " attachment";
    }
    return (position >= 1 && position <= 4) ? "Re: " + text : text;
}

std::string ARTICLEGEN::attachmentName(size_t index) const {
    size_t position = index % kBlock;
    size_t block = index / kBlock;
    if (position == 6) {
        return "data-" + std::to_string(block) + ".bin";
    }
    if (position >= 7) {
        return "file-" + std::to_string(block) + ".dat";
    }
    return "";
}

std::string ARTICLEGEN::attachment(size_t index) const {
    size_t position = index % kBlock;
    if (position < 6) {
        return "";
    }
    // The three parts of a split file share the file, so it is made from the first part.
    size_t owner = position >= 7 ? index - position + 7 : index;
    size_t size = 1000 + _random(owner, 2) % 5000;
    std::string data(size, 0);
    for (size_t i = 0; i < size; ++i) {
        data[i] = char(_random(owner, uint32_t(1000 + i)) & 0xFF);
    }
    return data;
}

std::string ARTICLEGEN::article(size_t index) const {
    size_t block = index / kBlock;
    size_t position = index % kBlock;
    time_t seconds = time_t(kDateBase + int64_t(index) * 60);
    struct tm date;
    gmtime_r(&seconds, &date);
    char dateText[64];
    snprintf(dateText, sizeof dateText, "%s, %02d %s %04d %02d:%02d:%02d +0000",
             kWeekdays[date.tm_wday], date.tm_mday, kMonths[date.tm_mon], date.tm_year + 1900,
             date.tm_hour, date.tm_min, date.tm_sec);
    uint32_t author = _random(index, 3) % 5;

    std::string head;
    head += "Path: " + fDomain + "!not-for-mail\r\n";
    head += "From: Tester " + std::to_string(author) + " <tester" + std::to_string(author) + "@" +
            fDomain + ">\r\n";
    head += "Newsgroups: " + fGroup + "\r\n";
    head += "Subject: " + _subjectHeader(index) + "\r\n";
    head += "Date: " + std::string(dateText) + "\r\n";
    head += "Message-ID: " + messageId(index) + "\r\n";
    std::string refs = references(index);
    if (!refs.empty()) {
        head += "References: " + refs + "\r\n";
    }

    std::string body;
    if (position <= 4) {
        head += "Content-Type: text/plain; charset=US-ASCII\r\n";
        if (position > 0) {
            body += "> Quoted from " + messageId(_parent(index)) + "\r\n\r\n";
        }
        body += "Article " + std::to_string(index) + " of block " + std::to_string(block) + ".\r\n";
        // A line that is a lone dot and one that begins with a dot: the wire format doubles
        // the first, and both must come back as they were.
        body += ".\r\n.dotted line\r\n";
        uint32_t lines = 1 + _random(index, 4) % 20;
        for (uint32_t i = 0; i < lines; ++i) {
            body += "Line " + std::to_string(i) + " of some text to read.\r\n";
        }
    } else if (position == 5) {
        const BODYTEXT &text = kBodies[block % kBodyCount];
        head += "MIME-Version: 1.0\r\n";
        head += std::string("Content-Type: text/plain; charset=") + text.charset + "\r\n";
        head += "Content-Transfer-Encoding: 8bit\r\n";
        body += std::string(text.line) + "\r\n";
    } else if (position == 6) {
        std::string boundary = "=_vwfill_" + std::to_string(index);
        std::string name = attachmentName(index);
        head += "MIME-Version: 1.0\r\n";
        head += "Content-Type: multipart/mixed; boundary=\"" + boundary + "\"\r\n";
        body += "This is a multi-part message in MIME format.\r\n\r\n";
        body += "--" + boundary + "\r\n";
        body += "Content-Type: text/plain; charset=US-ASCII\r\n\r\n";
        body += "Attached: " + name + "\r\n\r\n";
        body += "--" + boundary + "\r\n";
        body += "Content-Type: application/octet-stream; name=\"" + name + "\"\r\n";
        body += "Content-Transfer-Encoding: base64\r\n";
        body += "Content-Disposition: attachment; filename=\"" + name + "\"\r\n\r\n";
        body += base64(attachment(index), 76) + "\r\n";
        body += "--" + boundary + "--\r\n";
    } else {
        std::vector<std::string> lines = uuencode(attachment(index), attachmentName(index));
        size_t part = position - 7;
        size_t per = (lines.size() + kSplitParts - 1) / kSplitParts;
        for (size_t i = part * per; i < lines.size() && i < (part + 1) * per; ++i) {
            body += lines[i] + "\r\n";
        }
    }
    return head + "\r\n" + body;
}
