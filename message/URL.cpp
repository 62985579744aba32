// Table-driven scanner for URLs in message text, and the text handed to the URL opener.
#include "message/URL.h"

#include <cstring>
#include <string>

#include "base/STR.h"
#include "message/IMsg.h"

namespace {

bool charEmail(char c) {
    return IMsg::EmailChar(c);
}
bool charMsgid(char c) {
    return IMsg::MsgidChar(c);
}

bool isAsciiAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

// Characters dropped from the end of a URL: sentence punctuation rarely ends a real one.
bool droppable(char c) {
    return c == '\n' || (c != '\0' && std::strchr(".,;:?!", c) != nullptr);
}

bool startsWith(std::string_view text, size_t at, const char *prefix) {
    return prefix != nullptr && at <= text.size() && STR::istarts(text.substr(at), prefix);
}

constexpr const char *kMailto = "mailto:";
constexpr const char *kNews = "news:";

} // namespace

const URL::INFO URL::info[] = {
    {TypeEmail, kMailto, nullptr, charEmail, "application/x-vnd.Be.URL.mailto", "UrlEmail",
     findEmail},
    {TypeFile, "file://", nullptr, charDefault, "application/x-vnd.Be.URL.file", "UrlFile",
     findGeneric},
    {TypeFTP, "ftp://", "ftp.", charDefault, "application/x-vnd.Be.URL.ftp", "UrlFTP", findGeneric},
    {TypeHTTP, "http://", "www.", charDefault, "application/x-vnd.Be.URL.http", "UrlHTTP",
     findGeneric},
    {TypeHTTPS, "https://", nullptr, charDefault, "application/x-vnd.Be.URL.https", "UrlHTTPS",
     findGeneric},
    {TypeNews, kNews, nullptr, charMsgid, "application/x-vnd.Be.URL.news", "UrlNNTP", findNNTP},
    {TypeRTSP, "rtsp://", nullptr, charDefault, "application/x-vnd.Be.URL.rtsp", "UrlRTSP",
     findGeneric},
    {TypeTelnet, "telnet://", nullptr, charDefault, "application/x-vnd.Be.URL.telnet", "UrlTelnet",
     findGeneric},
    {TypeNone, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

const URL::TRIGGER URL::trigger[] = {
    {"@Mm", {TypeEmail, TypeNone, TypeNone}}, {"<nN", {TypeNews, TypeNone, TypeNone}},
    {"Ff", {TypeFTP, TypeFile, TypeNone}},    {"Hh", {TypeHTTP, TypeHTTPS, TypeNone}},
    {"Rr", {TypeRTSP, TypeNone, TypeNone}},   {"Tt", {TypeTelnet, TypeNone, TypeNone}},
    {"Ww", {TypeHTTP, TypeNone, TypeNone}},   {nullptr, {TypeNone, TypeNone, TypeNone}},
};

bool URL::charDefault(char c) {
    return isAsciiAlnum(c) || (c != '\0' && std::strchr("!#$%&'()*+,-./:;=?@[]_|~", c) != nullptr);
}

bool URL::charLeft(char c) {
    return isAsciiAlnum(c) || c == '.';
}

const URL::TRIGGER *URL::triggerFor(char c) {
    if (c == '\0')
        return nullptr;
    for (const TRIGGER *row = trigger; row->chars != nullptr; row++) {
        if (std::strchr(row->chars, c) != nullptr)
            return row;
    }
    return nullptr;
}

// Whether any kind finds a URL at this position, judged without joining wrapped lines so
// that the look-ahead of a wrapped URL never recurses.
bool URL::startsAt(std::string_view text, size_t at, bool wrap) {
    if (at >= text.size())
        return false;
    const TRIGGER *row = triggerFor(text[at]);
    if (row == nullptr)
        return false;
    for (TYPE kind : row->kinds) {
        if (kind == TypeNone)
            break;
        size_t start = 0;
        size_t end = 0;
        if (info[kind].finder(text, at, info[kind], start, end, wrap))
            return true;
    }
    return false;
}

bool URL::findEnd(std::string_view text, size_t start, size_t body, CHARCLASS charClass, bool wrap,
                  size_t &end) {
    end = 0;
    if (body >= text.size() || text[body] == '.')
        return false;
    size_t lineStart = start;
    size_t kept = start; // one past the last character that trimming will not drop
    size_t pos = body;
    while (pos < text.size() && text[pos] != '\0') {
        char c = text[pos];
        if (c == '\n') {
            char next = pos + 1 < text.size() ? text[pos + 1] : '\0';
            if (!wrap || pos - lineStart < kWrapMin || next == '\n' || next == '\0' ||
                !charClass(next)) {
                break;
            }
            bool urlAhead = false;
            for (size_t k = 1; k <= kWrapLook && !urlAhead; k++)
                urlAhead = startsAt(text, pos + k, false);
            if (urlAhead)
                break;
            pos++;
            lineStart = pos;
            continue;
        }
        if (!charClass(c))
            break;
        pos++;
        if (!droppable(c)) {
            kept = pos;
            // Whatever follows can only make the URL longer.
            if (kept - start > kMax)
                return false;
        }
    }
    if (kept <= body || kept - body < kBodyMin)
        return false;
    end = kept - 1;
    return true;
}

void URL::delimCheck(std::string_view text, size_t start, size_t &end) {
    if (!IMsg::DelimRight(text[end]))
        return;
    std::string_view url = text.substr(start, end - start + 1);
    if (IMsg::DelimFindLeft(url, url.size() - 1) == std::string_view::npos)
        end--;
}

bool URL::findGeneric(std::string_view text, size_t at, const INFO &info, size_t &start,
                      size_t &end, bool wrap) {
    start = 0;
    end = 0;
    size_t body;
    if (startsWith(text, at, info.prefix)) {
        body = at + std::strlen(info.prefix);
    } else if (startsWith(text, at, info.prefix2) && (at == 0 || !charLeft(text[at - 1]))) {
        body = at + std::strlen(info.prefix2);
    } else {
        return false;
    }
    size_t last = 0;
    if (!findEnd(text, at, body, info.charClass, wrap, last))
        return false;
    delimCheck(text, at, last);
    start = at;
    end = last;
    return true;
}

bool URL::findEmail(std::string_view text, size_t at, const INFO &info, size_t &start, size_t &end,
                    bool wrap) {
    (void)wrap;
    start = 0;
    end = 0;
    if (text[at] == '@')
        return IMsg::EmailFindAt(text, at, start, end);
    if (!startsWith(text, at, info.prefix))
        return false;
    size_t body = at + std::strlen(info.prefix);
    for (size_t k = body; k < text.size() && k - body < kMailtoReach; k++) {
        if (!IMsg::EmailChar(text[k]))
            return false;
        if (text[k] != '@')
            continue;
        size_t first = 0;
        size_t last = 0;
        if (!IMsg::EmailFindAt(text, k, first, last))
            return false;
        start = at;
        end = last;
        return true;
    }
    return false;
}

bool URL::findNNTP(std::string_view text, size_t at, const INFO &info, size_t &start, size_t &end,
                   bool wrap) {
    start = 0;
    end = 0;
    const bool angle = text[at] == '<';
    size_t body;
    if (angle)
        body = at + 1;
    else if (startsWith(text, at, info.prefix))
        body = at + std::strlen(info.prefix);
    else
        return false;
    size_t last = 0;
    if (!findEnd(text, at, body, info.charClass, wrap, last) || last - body + 1 > kNewsBodyMax)
        return false;
    std::string_view content = text.substr(body, last - body + 1);
    if (angle) {
        if (last + 1 >= text.size() || text[last + 1] != '>')
            return false;
        last++;
        // Addresses in angle brackets are the e-mail kind's.
        if (STR::istarts(content, kMailto) || IMsg::EmailCheck(content))
            return false;
    } else if (IMsg::NewsCheck(content)) {
        start = at;
        end = last;
        return true;
    }
    std::string id = "<" + std::string(content) + ">";
    if (!IMsg::MsgidCheck(id))
        return false;
    start = at;
    end = last;
    return true;
}

void URL::find(std::string_view text, CALLBACK callback, void *data, KEEPGOING keepGoing,
               void *keepGoingData) {
    size_t pos = 0;
    while (pos < text.size() && text[pos] != '\0') {
        if (keepGoing != nullptr && pos > 0 && pos % kKeepGoingEvery == 0 &&
            !keepGoing(keepGoingData)) {
            return;
        }
        const TRIGGER *row = triggerFor(text[pos]);
        bool found = false;
        for (size_t k = 0; row != nullptr && k < 3 && row->kinds[k] != TypeNone; k++) {
            const INFO &kind = info[row->kinds[k]];
            size_t start = 0;
            size_t end = 0;
            if (!kind.finder(text, pos, kind, start, end, true))
                continue;
            if (callback != nullptr)
                callback(data, kind.type, start, end);
            if (keepGoing != nullptr && !keepGoing(keepGoingData))
                return;
            pos = end + 1;
            found = true;
            break;
        }
        if (!found)
            pos++;
    }
}

bool URL::launch(std::string_view text, size_t start, size_t end, TYPE type, const char **mimeType,
                 char *buffer, size_t size) {
    if (mimeType != nullptr)
        *mimeType = nullptr;
    if (buffer != nullptr && size > 0)
        buffer[0] = '\0';
    if (type < TypeEmail || type > TypeTelnet || buffer == nullptr || size < 3 || start > end ||
        end >= text.size()) {
        return false;
    }
    const INFO &kind = info[type];
    if (mimeType != nullptr)
        *mimeType = kind.mimeType;
    std::string out = kind.prefix;
    size_t from = start;
    if (startsWith(text, start, kind.prefix))
        from += std::strlen(kind.prefix);
    for (size_t i = from; i <= end && out.size() < size - 2; i++) {
        if (kind.charClass(text[i]))
            out += text[i];
    }
    if (out.size() < kBodyMin || out.size() > kMax)
        return false;
    STR::copy(buffer, out, size);
    return true;
}
