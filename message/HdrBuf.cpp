// Header block parsing: the field table, unfolding, the field handlers and the accessors.
#include "message/HdrBuf.h"

#include <climits>

#include "base/ParseDate.h"
#include "base/TIMEBASE.h"

const HdrBuf::HEADERINFO HdrBuf::headerInfo[] = {
    {"From", HdrFrom, nullptr, StrFrom},
    {"Subject", HdrSubject, nullptr, StrSubject},
    {"Date", HdrDate, &HdrBuf::procDate, StrDate},
    {"To", HdrTo, nullptr, -1},
    {"Lines", HdrLines, &HdrBuf::procLines, StrLines},
    {"Newsgroups", HdrNewsgroups, &HdrBuf::procNewsgroups, StrNewsgroups},
    {"Message-ID", HdrMessageID, nullptr, StrMessageID},
    {"References", HdrReferences, &HdrBuf::procReferences, StrReferences},
    {"Organization", HdrOrganization, nullptr, StrOrganization},
    {"MIME-Version", HdrMIMEVersion, nullptr, StrMIMEVersion},
    {"Content-Transfer-Encoding", HdrContentTransferEncoding, &HdrBuf::procContentTransferEncoding,
     StrContentTransferEncoding},
    {"Content-Type", HdrContentType, &HdrBuf::procContentType, StrContentType},
    {"Content-Disposition", HdrContentDisposition, &HdrBuf::procContentDisposition, -1},
    {"Content-Description", HdrContentDescription, nullptr, StrContentDescription},
    {"User-Agent", HdrUserAgent, nullptr, StrUserAgent},
    {"X-Program-URL", HdrProgramURL, nullptr, StrProgramURL},
    {nullptr, HdrNone, nullptr, -1},
};

const STR::INDEX HdrBuf::indexContent[] = {
    {ContentOctetStream, "application/octet-stream"},
    {ContentPartial, "message/partial"},
    {ContentAlternative, "multipart/alternative"},
    {ContentMixed, "multipart/mixed"},
    {ContentRelated, "multipart/related"},
    {ContentHTML, "text/html"},
    {ContentPlain, "text/plain"},
    {0, nullptr},
};

const STR::INDEX HdrBuf::indexEncoding[] = {
    {EncodingBase64, "Base64"},           {Encoding7bit, "7bit"}, {Encoding8bit, "8bit"},
    {EncodingQuoted, "quoted-printable"}, {0, nullptr},
};

const STR::INDEX HdrBuf::indexDisposition[] = {
    {DispositionAttachment, "Attachment"},
    {0, nullptr},
};

namespace {

// Trimmed, with tabs turned into spaces.
std::string cleanPart(std::string_view text) {
    std::string out(STR::trim(text));
    for (char &c : out) {
        if (c == '\t')
            c = ' ';
    }
    return out;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

void HdrBuf::Clear() {
    fWriting = false;
    fBlocks = 0;
    fBeginPending = true;
    fCurrentInner = false;
    fMain.clear();
    fInner.clear();
    fBoundaries.clear();
    fLine.clear();
}

void HdrBuf::readBegin() {
    if (fBlocks > 0)
        fCurrentInner = true;
    // A charset set before reading (the folder's or the caller's) survives the clear.
    IMsg::Charset charset = fMain.charset;
    _current().clear();
    fMain.charset = charset;
    fBeginPending = false;
}

void HdrBuf::Add(const char *line) {
    Add(std::string_view(line != nullptr ? line : ""));
}

void HdrBuf::Add(std::string_view line) {
    if (fBeginPending)
        readBegin();
    if (!line.empty() && (line[0] == ' ' || line[0] == '\t')) {
        if (fLine.size() < kFieldMax)
            fLine.append(line.substr(0, kFieldMax - fLine.size()));
        return;
    }
    if (!fLine.empty())
        scan(fLine);
    fLine.assign(line.substr(0, kFieldMax));
}

void HdrBuf::End() {
    if (fBeginPending)
        readBegin();
    if (!fLine.empty())
        scan(fLine);
    fLine.clear();
    fBeginPending = true;
    Data &data = _current();
    data.charset = IMsg::CharsetMakeValid(data.charset);
    if (!data.strings[StrFrom].empty()) {
        std::string from;
        HeaderDecode(from, data.strings[StrFrom], data.charset);
        SplitFrom(from, data.strings[StrAuthor], data.strings[StrEmail]);
    }
    for (int32_t slot = 0; slot < StrCount; slot++) {
        if (slot == StrAuthor || slot == StrEmail || slot == StrFrom)
            continue;
        std::string &text = data.strings[slot];
        if (text.empty())
            continue;
        std::string decoded;
        HeaderDecode(decoded, text, data.charset);
        text = decoded;
    }
    fBlocks++;
}

bool HdrBuf::Split(std::string_view line, std::string &name, std::string &value) {
    name.clear();
    value.clear();
    size_t colon = line.find(':');
    if (colon == std::string_view::npos || colon < 2)
        return false;
    name = cleanPart(line.substr(0, colon));
    value = cleanPart(line.substr(colon + 1));
    if (name.empty() || value.empty()) {
        name.clear();
        value.clear();
        return false;
    }
    return true;
}

HdrBuf::HdrNum HdrBuf::scan(std::string_view line) {
    std::string name, value;
    if (!Split(line, name, value))
        return HdrNone;
    for (const HEADERINFO *row = headerInfo; row->name != nullptr; row++) {
        if (!STR::iequal(name, row->name))
            continue;
        if (row->slot >= 0)
            _current().strings[row->slot] = value;
        if (row->handler != nullptr)
            (this->*row->handler)(value);
        return row->num;
    }
    return HdrNone;
}

bool HdrBuf::procDate(std::string_view value) {
    int64_t seconds = parsedate(value);
    if (seconds <= 0 || seconds > INT32_MAX) {
        _current().date = static_cast<int32_t>(TIMEBASE::seconds(TIMEBASE::timeGet()));
        return false;
    }
    _current().date = static_cast<int32_t>(seconds);
    return true;
}

bool HdrBuf::procLines(std::string_view value) {
    if (!STR::digits(value) || value[0] == '-')
        return false;
    std::string_view digits = value[0] == '+' ? value.substr(1) : value;
    if (digits.empty() || digits.size() > kLinesDigits)
        return false;
    uint32_t lines = 0;
    for (char c : digits)
        lines = lines * 10 + static_cast<uint32_t>(c - '0');
    _current().lines = lines;
    return true;
}

bool HdrBuf::procNewsgroups(std::string_view value) {
    std::string groups;
    for (char c : value) {
        if (c != ' ')
            groups += c;
    }
    _current().strings[StrNewsgroups] = groups;
    return true;
}

bool HdrBuf::procReferences(std::string_view value) {
    _current().strings[StrReferences] = referencesNormalise(value);
    return true;
}

bool HdrBuf::procContentTransferEncoding(std::string_view value) {
    Encoding encoding = encodingValue(value);
    if (encoding != EncodingNone)
        _current().encoding = encoding;
    return true;
}

bool HdrBuf::procContentType(std::string_view value) {
    Data &data = _current();
    std::string text;
    if (subvalGet(value, text)) {
        data.content = contentValue(text);
        data.strings[StrContentType] = text;
    }
    std::string parameter;
    if (!fWriting && subval(value, "charset", parameter)) {
        IMsg::Charset charset = IMsg::CharsetValue(parameter);
        if (charset != IMsg::CharsetNone)
            data.charset = charset;
    }
    if (subval(value, "boundary", parameter))
        boundaryAdd(parameter);
    if (subval(value, "name", parameter))
        data.strings[StrFilename] = parameter;
    if (subval(value, "number", parameter) && parameter.size() <= kPartNumberDigits) {
        bool digits = true;
        uint32_t number = 0;
        for (char c : parameter) {
            digits = digits && isDigit(c);
            number = number * 10 + static_cast<uint32_t>(c - '0');
        }
        if (digits)
            data.number = number;
    }
    return data.content != ContentNone;
}

bool HdrBuf::procContentDisposition(std::string_view value) {
    Data &data = _current();
    std::string text;
    subvalGet(value, text);
    data.disposition = dispositionValue(text);
    std::string name;
    if (subval(value, "filename", name))
        data.strings[StrFilename] = name;
    return true;
}

void HdrBuf::boundaryAdd(std::string_view boundary) {
    if (boundary.empty() || fBoundaries.size() >= kBoundaryMax)
        return;
    for (const std::string &known : fBoundaries) {
        if (known == boundary)
            return;
    }
    fBoundaries.emplace_back(boundary);
}

const char *HdrBuf::string(int32_t slot) const {
    if (slot < 0 || slot >= StrCount || fMain.strings[slot].empty())
        return STR::kNone;
    return fMain.strings[slot].c_str();
}

const char *HdrBuf::StringMessageID() {
    std::string &id = fMain.strings[StrMessageID];
    if (!IMsg::MsgidCheck(id))
        IMsg::MsgidGen(id, true);
    return id.c_str();
}

int64_t HdrBuf::DateTime() const {
    if (fMain.date > 0)
        return fMain.date;
    if (fInner.date > 0)
        return fInner.date;
    return TIMEBASE::seconds(TIMEBASE::timeGet());
}

IMsg::Charset HdrBuf::CharsetGet() const {
    if (!fWriting && IMsg::CharsetIsValid(fInner.charset))
        return fInner.charset;
    return IMsg::CharsetMakeValid(fMain.charset);
}

void HdrBuf::CharsetSet(IMsg::Charset charset, bool writingMode) {
    fMain.charset = charset;
    if (writingMode)
        fWriting = true;
}

HdrBuf::Encoding HdrBuf::EncodingGet() const {
    if (encodingIsValid(fInner.encoding))
        return fInner.encoding;
    return encodingMakeValid(fMain.encoding);
}

const char *HdrBuf::contentString(Content content) {
    return STR::indexText(indexContent, content);
}

HdrBuf::Content HdrBuf::contentValue(std::string_view text) {
    int64_t value = 0;
    if (STR::indexValue(indexContent, text, &value))
        return static_cast<Content>(value);
    if (STR::istarts(text, "multipart/"))
        return ContentMultipart;
    return ContentNone;
}

const char *HdrBuf::encodingString(Encoding encoding) {
    return STR::indexText(indexEncoding, encoding);
}

HdrBuf::Encoding HdrBuf::encodingValue(std::string_view text) {
    int64_t value = 0;
    return STR::indexValue(indexEncoding, text, &value) ? static_cast<Encoding>(value)
                                                        : EncodingNone;
}

bool HdrBuf::encodingIsValid(Encoding encoding) {
    return encoding >= EncodingBase64 && encoding <= EncodingQuoted;
}

bool HdrBuf::encodingIsViewable(Encoding encoding) {
    return encoding == Encoding7bit || encoding == Encoding8bit || encoding == EncodingQuoted;
}

HdrBuf::Encoding HdrBuf::encodingMakeValid(Encoding encoding) {
    return encodingIsValid(encoding) ? encoding : Encoding8bit;
}

HdrBuf::Disposition HdrBuf::dispositionValue(std::string_view text) {
    return STR::iequal(text, "Attachment") ? DispositionAttachment : DispositionNone;
}

void HdrBuf::set(int32_t slot, std::string_view text, bool useEmptyMarker) {
    if (slot < 0 || slot >= StrCount)
        return;
    if (text.empty() && useEmptyMarker)
        text = STR::kNone;
    fMain.strings[slot].assign(text);
}
