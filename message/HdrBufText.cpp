// Header value texts: encoded words both ways, From splitting, parameters, References.
#include "message/HdrBuf.h"

#include <algorithm>

#include "message/BINTEXT.h"

namespace {

bool hasAt(const std::string &text) {
    return text.find('@') != std::string::npos;
}

// Splits at every space, so two spaces in a row give an empty token; each token cut to
// max bytes.
std::vector<std::string> tokens(std::string_view text, size_t max) {
    std::vector<std::string> out;
    size_t pos = 0;
    while (pos <= text.size()) {
        size_t end = std::min(text.find(' ', pos), text.size());
        out.emplace_back(text.substr(pos, std::min(end - pos, max)));
        pos = end + 1;
    }
    return out;
}

} // namespace

bool HdrBuf::hdrDecodeFind(std::string_view text, size_t at, Encode &word) {
    word = Encode();
    if (text.compare(at, 2, "=?") != 0)
        return false;
    size_t nameStart = at + 2;
    // Searches stay within the longest possible word, so a text full of "=?" is still
    // decoded in linear time.
    size_t nameEnd =
        text.substr(0, std::min(text.size(), nameStart + kCharsetNameMax + 1)).find('?', nameStart);
    if (nameEnd == std::string_view::npos)
        return false;
    IMsg::Charset charset = IMsg::CharsetValue(text.substr(nameStart, nameEnd - nameStart));
    if (charset == IMsg::CharsetNone || nameEnd + 2 >= text.size())
        return false;
    char encoding = STR::upper(text[nameEnd + 1]);
    if ((encoding != 'Q' && encoding != 'B') || text[nameEnd + 2] != '?')
        return false;
    size_t textStart = nameEnd + 3;
    if (textStart >= text.size() || text[textStart] == '?')
        return false;
    size_t textEnd =
        text.substr(0, std::min(text.size(), textStart + kWordTextMax + 2)).find("?=", textStart);
    if (textEnd == std::string_view::npos)
        return false;
    size_t length = textEnd - textStart;
    size_t wordLength = textEnd + 2 - at;
    if (length < 1 || length > kWordTextMax || wordLength < kWordMin || wordLength > kWordMax)
        return false;
    word.charset = charset;
    word.encoding = encoding;
    word.text = text.substr(textStart, length);
    word.wordLength = wordLength;
    return true;
}

void HdrBuf::HeaderDecode(std::string &out, std::string_view text, IMsg::Charset charset) {
    out.clear();
    std::string converted;
    if (!IMsg::CharsetConvert(charset, text, IMsg::CharsetUTF8, converted))
        converted.assign(text);
    std::string_view source = converted;
    size_t afterWord = std::string::npos; // output length right after the last encoded word
    size_t i = 0;
    while (i < source.size()) {
        Encode word;
        if (source[i] == '=' && hdrDecodeFind(source, i, word)) {
            std::string bytes;
            if (word.encoding == 'B') {
                std::string input(word.text.substr(0, kWordBase64Max));
                char buffer[kWordBase64Max + BINTEXT::kGuard + 2];
                size_t n = BINTEXT::base64Decode(input.c_str(), buffer, sizeof(buffer), false);
                bytes.assign(buffer, n);
            } else {
                // Deliberately unlike B words, only a zero byte is replaced (by CharDecode);
                // other control characters are kept as the word gives them.
                for (size_t k = 0; k < word.text.size() && bytes.size() < kWordQuotedMax;) {
                    uint8_t byte = word.text[k] == '=' ? IMsg::CharDecode(word.text.substr(k)) : 0;
                    if (byte != 0) {
                        k += 3;
                    } else {
                        byte = static_cast<uint8_t>(word.text[k] == '_' ? ' ' : word.text[k]);
                        k++;
                    }
                    bytes += static_cast<char>(byte);
                }
            }
            // White space between two encoded words is not part of the text.
            if (afterWord != std::string::npos &&
                out.find_first_not_of(' ', afterWord) == std::string::npos) {
                out.resize(afterWord);
            }
            std::string decoded;
            IMsg::CharsetConvert(word.charset, bytes, IMsg::CharsetUTF8, decoded);
            out += decoded;
            afterWord = out.size();
            i += word.wordLength;
            continue;
        }
        out += source[i] == '\t' ? ' ' : source[i];
        i++;
    }
    std::string_view trimmed = STR::trim(out);
    out = trimmed.empty() ? std::string(STR::kNone) : std::string(trimmed);
}

bool HdrBuf::SplitFrom(std::string_view value, std::string &author, std::string &email) {
    author.clear();
    email.clear();
    std::string_view text = STR::trim(value);
    std::string first, second;
    bool addressFound = true;
    size_t open = std::string_view::npos;
    size_t close = std::string_view::npos;
    if (!text.empty() && IMsg::DelimRight(text.back()))
        open = IMsg::DelimFindLeft(text, text.size() - 1);
    if (open != std::string_view::npos) {
        first = text.substr(0, open);
        second = text.substr(open);
    } else if (!text.empty() && IMsg::DelimLeft(text.front()) &&
               (close = IMsg::DelimFindRight(text)) != std::string_view::npos) {
        first = text.substr(0, close + 1);
        second = text.substr(close + 1);
    } else {
        size_t start = 0;
        size_t end = 0;
        if (!IMsg::EmailFind(text, start, end)) {
            first = text;
            addressFound = false;
        } else {
            if (start > 0 && end + 1 < text.size() &&
                IMsg::DelimPair(text[start - 1], text[end + 1])) {
                start--;
                end++;
            }
            second = text.substr(start, end - start + 1);
            first = std::string(text.substr(0, start)) + std::string(text.substr(end + 1));
        }
    }
    if (addressFound) {
        IMsg::DelimRemove(first);
        IMsg::DelimRemove(second);
        if (first.empty() && !second.empty() && hasAt(second))
            first = second;
        else if (second.empty() && !first.empty() && hasAt(first))
            second = first;
        if (hasAt(second)) {
            author = first;
            email = second;
        } else if (hasAt(first)) {
            author = second;
            email = first;
        } else {
            author = first.empty() ? second : first;
        }
    } else {
        author = first;
    }
    for (std::string *part : {&author, &email}) {
        std::string clean;
        for (char c : *part) {
            if (c != '\\')
                clean += c;
        }
        *part = clean;
    }
    bool both = !author.empty() && !email.empty();
    if (author.empty())
        author = STR::kNone;
    if (email.empty())
        email = STR::kNone;
    return both;
}

bool HdrBuf::subvalGet(std::string_view text, std::string &value) {
    size_t end = text.find(';');
    if (end == std::string_view::npos)
        end = text.size();
    value.assign(text.substr(0, std::min(end, kSubvalMax)));
    IMsg::DelimRemove(value);
    return !value.empty();
}

bool HdrBuf::subval(std::string_view text, std::string_view name, std::string &value) {
    value.clear();
    size_t found = STR::ifind(text, name);
    if (found == std::string_view::npos)
        return false;
    for (size_t i = found + name.size(); i < text.size(); i++) {
        if (text[i] == ';')
            return false;
        if (text[i] == '=')
            return subvalGet(text.substr(i + 1), value);
    }
    return false;
}

std::string HdrBuf::referencesNormalise(std::string_view text) {
    std::string work(text.substr(0, std::min(text.size(), kReferencesMax)));
    for (char &c : work) {
        if (c == '\t')
            c = ' ';
    }
    std::string spaced;
    std::string_view trimmed = STR::trim(work);
    for (size_t i = 0; i < trimmed.size(); i++) {
        spaced += trimmed[i];
        if (trimmed[i] == '>' && i + 1 < trimmed.size() && trimmed[i + 1] == '<')
            spaced += ' ';
    }
    std::string out;
    for (std::string &token : tokens(spaced, kReferenceTokenMax)) {
        if (token.empty() || token.front() != '<')
            token.insert(token.begin(), '<');
        if (token.back() != '>')
            token += '>';
        if (!IMsg::MsgidCheck(token))
            continue;
        if (!out.empty())
            out += ' ';
        out += token;
    }
    return out;
}

void HdrBuf::hdrEncode(std::string &out, std::string_view text, IMsg::Charset charset) {
    out.clear();
    bool plain = true;
    for (char c : text) {
        auto byte = static_cast<uint8_t>(c);
        plain = plain && byte >= 32 && byte <= 127;
    }
    if (plain) {
        out.assign(text);
        return;
    }
    std::string bytes;
    IMsg::CharsetConvert(IMsg::CharsetUTF8, text, charset, bytes);
    // Deliberately one encoded word however long: folding the line keeps it within limits.
    out = "=?";
    out += IMsg::CharsetString(charset);
    out += "?Q?";
    for (char c : bytes) {
        auto byte = static_cast<uint8_t>(c);
        if (byte == ' ')
            out += '_';
        else if (IMsg::CharEncodeNeeded(byte))
            IMsg::CharEncode(out, byte);
        else
            out += c;
    }
    out += "?=";
}

void HdrBuf::refCreate(std::string_view parentReferences, std::string_view parentMessageID,
                       std::string &out) {
    out.clear();
    const bool parentValid = IMsg::MsgidCheck(parentMessageID);
    size_t count = parentValid ? 1 : 0;
    size_t length = parentValid ? parentMessageID.size() : 0;
    std::vector<std::string> refs = tokens(parentReferences, kRefCreateTokenMax);
    std::string first;
    if (!refs.empty() && IMsg::MsgidCheck(refs[0])) {
        first = refs[0];
        count++;
        length += first.size() + 1;
    }
    std::vector<std::string> later; // newest first while walking
    for (size_t i = refs.size(); i-- > 1 && count < kRefCreateCount;) {
        const std::string &id = refs[i];
        // Deliberate: an empty token (two spaces in a row) ends the walk like a full line.
        if (id.empty())
            break;
        if (!IMsg::MsgidCheck(id))
            continue;
        if (length + id.size() + 1 > kWriteWidth)
            break;
        later.push_back(id);
        count++;
        length += id.size() + 1;
    }
    std::string text = first;
    for (size_t i = later.size(); i-- > 0;)
        text += " " + later[i];
    text += " ";
    text.append(parentMessageID);
    out.assign(STR::trim(text));
}

bool HdrBuf::HeaderCreate(std::string &out, HdrNum num, std::string_view value) const {
    out.clear();
    for (const HEADERINFO *row = headerInfo; row->name != nullptr; row++) {
        if (row->num != num)
            continue;
        std::string encoded;
        hdrEncode(encoded, value, CharsetGet());
        out = std::string(row->name) + ": " + encoded;
        return true;
    }
    return false;
}
