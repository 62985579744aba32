// Newsgroup names, part numbers of multi-part postings, and the message-type tests.
#include "message/IMsg.h"

namespace {

bool isAsciiAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// A trimmed run of 1 to kPartDigitsMax digits.
bool partNumber(std::string_view text, uint32_t &number) {
    number = 0;
    if (text.size() > IMsg::kPartTextMax)
        return false;
    text = STR::trim(text);
    if (text.empty() || text.size() > IMsg::kPartDigitsMax)
        return false;
    for (char c : text) {
        if (!isDigit(c))
            return false;
        number = number * 10 + static_cast<uint32_t>(c - '0');
    }
    return true;
}

} // namespace

bool IMsg::NewsCheck(std::string_view name) {
    if (name.empty())
        return false;
    size_t chars = 0;
    bool hasLetter = false;
    size_t i = 0;
    while (i < name.size()) {
        auto lead = static_cast<uint8_t>(name[i]);
        size_t length = lead < 0x80 ? 1 : (lead & 0xE0) == 0xC0 ? 2 : (lead & 0xF0) == 0xE0 ? 3 : 0;
        if (length == 0 || i + length > name.size())
            return false;
        chars++;
        if (length > 1) {
            for (size_t k = 1; k < length; k++) {
                if ((static_cast<uint8_t>(name[i + k]) & 0xC0) != 0x80)
                    return false;
            }
            hasLetter = true;
            i += length;
            continue;
        }
        char c = name[i];
        bool first = i == 0;
        bool last = i + 1 == name.size();
        bool ok = isAsciiAlpha(c) || isDigit(c);
        if (!first && !last)
            ok = ok || c == '+' || c == '-' || c == '_' || c == '.';
        else if (last && !first)
            ok = ok || c == '+' || c == '-';
        if (!ok)
            return false;
        if (c == '.' && name[i + 1] == '.')
            return false;
        hasLetter = hasLetter || isAsciiAlpha(c);
        i++;
    }
    return chars <= kNewsNameMax && hasLetter;
}

bool IMsg::AttachSubject(std::string_view subject, std::string &base, uint32_t &part,
                         uint32_t &total) {
    base.clear();
    part = 0;
    total = 0;
    std::string_view text = STR::trim(subject.substr(0, kSubjectMax));
    if (text.size() < kSubjectMin)
        return false;
    for (size_t close = text.size(); close-- > 0;) {
        if (!DelimRight(text[close]))
            continue;
        size_t open = DelimFindLeft(text, close);
        if (open == std::string_view::npos)
            continue;
        size_t slash = text.find('/', open + 1);
        if (slash == std::string_view::npos || slash >= close)
            continue;
        uint32_t number = 0;
        uint32_t count = 0;
        if (!partNumber(text.substr(open + 1, slash - open - 1), number) ||
            !partNumber(text.substr(slash + 1, close - slash - 1), count)) {
            return false;
        }
        if (number < 1 || count < 1 || number > count)
            return false;
        std::string_view before = STR::trim(text.substr(0, open));
        if (before.empty())
            return false;
        base.assign(before);
        part = number;
        total = count;
        return true;
    }
    return false;
}

bool IMsg::TypeIsValid(int32_t type) {
    return TypeIsMail(type) || TypeIsNews(type);
}

bool IMsg::TypeIsNews(int32_t type) {
    return type == MsgTypeNewsHeader || type == MsgTypeNewsDownload || type == MsgTypeNewsFailed ||
           type == MsgTypeNews;
}

bool IMsg::TypeIsMail(int32_t type) {
    return type == MsgTypeMail;
}

bool IMsg::TypeHasBody(int32_t type) {
    return type != MsgTypeNewsHeader && type != MsgTypeNewsDownload;
}

bool IMsg::TypeMarksRead(int32_t type) {
    return TypeHasBody(type);
}
