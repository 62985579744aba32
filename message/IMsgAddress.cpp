// E-mail addresses in text and the delimiter pairs used to peel names and addresses.
#include "message/IMsg.h"

#include <cstring>

#include "base/NETNAMES.h"

namespace {

bool isAlnum(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

} // namespace

bool IMsg::EmailChar(char c) {
    return isAlnum(c) || c == '+' || c == '-' || c == '.' || c == '@' || c == '_';
}

bool IMsg::EmailFindAt(std::string_view text, size_t at, size_t &start, size_t &end) {
    start = 0;
    end = 0;
    if (at == 0 || at >= text.size() || text[at] != '@')
        return false;
    if (text[at - 1] == '.' || (at + 1 < text.size() && text[at + 1] == '.'))
        return false;

    // A walk longer than a part may be can stop early: one dot more or less (".." ends a
    // walk) cannot bring it back within the limit.
    const size_t reach = kEmailPartMax + 2;
    size_t left = at;
    while (left > 0 && at - left < reach) {
        char c = text[left - 1];
        if (c == '@' || !EmailChar(c))
            break;
        if (c == '.' && left >= 2 && text[left - 2] == '.')
            break;
        left--;
    }
    while (left < at && text[left] == '.')
        left++;
    std::string_view local = text.substr(left, at - left);
    if (local.empty() || local.size() > kEmailPartMax || !isAlnum(local.front()) ||
        !isAlnum(local.back())) {
        return false;
    }

    size_t right = at + 1;
    while (right < text.size() && right - at - 1 < reach) {
        char c = text[right];
        if (c == '@' || !EmailChar(c))
            break;
        if (c == '.' && right + 1 < text.size() && text[right + 1] == '.')
            break;
        right++;
    }
    while (right > at + 1 && text[right - 1] == '.')
        right--;
    std::string domain(text.substr(at + 1, right - at - 1));
    if (domain.empty() || domain.size() > kEmailPartMax || !NETNAMES::hostnameCheck(domain.c_str()))
        return false;

    size_t length = right - left;
    if (length < kEmailMin || length > kEmailMax)
        return false;
    // Deliberate: a local part full of digits is far more often a Message-ID than an
    // address.
    size_t digits = 0;
    for (char c : local) {
        if (c >= '0' && c <= '9')
            digits++;
    }
    if (digits > kEmailLocalDigitsMax)
        return false;
    start = left;
    end = right - 1;
    return true;
}

bool IMsg::EmailFind(std::string_view text, size_t &start, size_t &end) {
    start = 0;
    end = 0;
    for (size_t at = text.find('@'); at != std::string_view::npos; at = text.find('@', at + 1)) {
        if (EmailFindAt(text, at, start, end))
            return true;
    }
    return false;
}

bool IMsg::EmailCheck(std::string_view text) {
    size_t start = 0;
    size_t end = 0;
    return !text.empty() && EmailFind(text, start, end) && start == 0 && end == text.size() - 1;
}

bool IMsg::DelimLeft(char c) {
    return c != '\0' && std::strchr(kDelimOpen, c) != nullptr;
}

bool IMsg::DelimRight(char c) {
    return c != '\0' && std::strchr(kDelimClose, c) != nullptr;
}

char IMsg::DelimMatchLeft(char c) {
    const char *found = c != '\0' ? std::strchr(kDelimClose, c) : nullptr;
    return found != nullptr ? kDelimOpen[found - kDelimClose] : '\0';
}

char IMsg::DelimMatchRight(char c) {
    const char *found = c != '\0' ? std::strchr(kDelimOpen, c) : nullptr;
    return found != nullptr ? kDelimClose[found - kDelimOpen] : '\0';
}

bool IMsg::DelimPair(char open, char close) {
    return DelimLeft(open) && DelimMatchRight(open) == close;
}

size_t IMsg::DelimFindLeft(std::string_view text, size_t at) {
    if (at >= text.size())
        return std::string_view::npos;
    char close = text[at];
    char open = DelimMatchLeft(close);
    if (open == '\0')
        return std::string_view::npos;
    int depth = 0;
    for (size_t i = at; i-- > 0;) {
        if (text[i] == open) {
            if (depth == 0)
                return i;
            depth--;
        } else if (text[i] == close) {
            depth++;
        }
    }
    return std::string_view::npos;
}

size_t IMsg::DelimFindRight(std::string_view text) {
    if (text.empty())
        return std::string_view::npos;
    char open = text[0];
    char close = DelimMatchRight(open);
    if (close == '\0')
        return std::string_view::npos;
    int depth = 0;
    for (size_t i = 1; i < text.size(); i++) {
        if (text[i] == close) {
            if (depth == 0)
                return i;
            depth--;
        } else if (text[i] == open) {
            depth++;
        }
    }
    return std::string_view::npos;
}

bool IMsg::DelimRemove(std::string &text) {
    std::string_view trimmed = STR::trim(text);
    bool removed = false;
    if (trimmed.size() >= 2 && DelimPair(trimmed.front(), trimmed.back())) {
        trimmed = STR::trim(trimmed.substr(1, trimmed.size() - 2));
        removed = true;
    }
    text = std::string(trimmed);
    return removed;
}
