// Header blocks and message files: reading blocks, finding the part to show and the
// attachment data, and writing the header of a new article.
#include "message/HdrBuf.h"
#include "message/YENC.h"

#include <ctime>

#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"
#include "base/TextFormat.h"
#include "message/BINTEXT.h"
#include "message/FORMAT.h"

namespace {

enum class LINE { kLine, kEnd, kError };

// One line of at most TEXTFILE::kLineMax characters. The first part of a longer line
// counts as a normal line and the rest comes as the next one, so a long header line cut at
// a blank continues as a folded line instead of losing its tail.
LINE lineGet(TEXTFILE *file, char *buffer, size_t size, std::string_view &line) {
    size_t length = 0;
    DISKFILE::ERROR error = file->lineRead(buffer, size, &length);
    if (error == DISKFILE::kEndOfFile)
        return LINE::kEnd;
    if (error != DISKFILE::kSuccess && error != DISKFILE::kLineTooLong)
        return LINE::kError;
    line = std::string_view(buffer, length);
    return LINE::kLine;
}

bool isAttachmentPart(const HdrBuf::Data &data) {
    if (data.content == HdrBuf::ContentPartial && data.number > 1)
        return false;
    return data.disposition == HdrBuf::DispositionAttachment ||
           data.encoding == HdrBuf::EncodingBase64;
}

bool emitLine(void *context, std::string_view line) {
    auto *file = static_cast<TEXTFILE *>(context);
    std::string text(line);
    return file->lineWrite(text.c_str()) == DISKFILE::kSuccess;
}

// "Tue, 3 Oct 2000 14:05:09 -0700": local time with the zone offset of that moment.
std::string dateText(int64_t seconds) {
    time_t when = static_cast<time_t>(seconds);
    struct tm local = {};
    localtime_r(&when, &local);
    char zone[TIMEBASE::kZoneTextSize];
    TIMEBASE::timezoneStr(zone, sizeof(zone),
                          static_cast<int64_t>(local.tm_gmtoff) * TIMEBASE::kSecond);
    return textFormat(
        "%s, %u %s %04u %02u:%02u:%02u %s", TIMEBASE::weekday(local.tm_wday, false),
        static_cast<unsigned>(local.tm_mday), TIMEBASE::month(local.tm_mon + 1, false),
        static_cast<unsigned>(local.tm_year + 1900), static_cast<unsigned>(local.tm_hour),
        static_cast<unsigned>(local.tm_min), static_cast<unsigned>(local.tm_sec), zone);
}

} // namespace

bool HdrBuf::readBlock(TEXTFILE *file) {
    char buffer[kLineMax + 1];
    for (;;) {
        std::string_view line;
        LINE got = lineGet(file, buffer, sizeof(buffer), line);
        if (got == LINE::kError)
            return false;
        if (got == LINE::kEnd || line.empty())
            break;
        Add(line);
    }
    End();
    return true;
}

bool HdrBuf::Read(TEXTFILE *file) {
    if (file == nullptr || !readBlock(file))
        return false;
    // Part 1 of a partial message carries the real message's header next.
    if (PartialStart())
        return readBlock(file);
    return true;
}

bool HdrBuf::sectionScan(TEXTFILE *file, std::vector<Section> &sections) {
    char buffer[kLineMax + 1];
    for (;;) {
        std::string_view line;
        LINE got = lineGet(file, buffer, sizeof(buffer), line);
        if (got == LINE::kError)
            return false;
        if (got == LINE::kEnd || BINTEXT::uuLineStart(line, nullptr))
            return true;
        bool isEnd = false;
        if (!Boundary(line, isEnd) || isEnd)
            continue;
        Section section;
        if (file->position(&section.offset) != DISKFILE::kSuccess || !Read(file))
            return false;
        const Data &part = current();
        section.content = part.content;
        section.encoding = part.encoding;
        switch (part.content) {
        case ContentPartial:
        case ContentAlternative:
        case ContentMixed:
        case ContentRelated:
        case ContentMultipart:
            // Their own boundaries were added while reading, so nested parts come next.
            break;
        case ContentPlain:
        case ContentHTML:
            if (!STR::iequal(part.strings[StrContentDescription], "signature"))
                sections.push_back(section);
            break;
        default:
            return true; // an attachment: no text part follows that is worth showing
        }
    }
}

const HdrBuf::Section *HdrBuf::sectionSelect(const std::vector<Section> &sections, bool wantHTML) {
    const Section *plain = nullptr;
    const Section *html = nullptr;
    for (const Section &section : sections) {
        // Deliberate: a part without Content-Transfer-Encoding (0) is not viewable, so it
        // is never chosen.
        if (!encodingIsViewable(section.encoding))
            continue;
        if (section.content == ContentPlain && plain == nullptr)
            plain = &section;
        if (section.content == ContentHTML && html == nullptr)
            html = &section;
    }
    if (plain != nullptr && html != nullptr)
        return wantHTML ? html : plain;
    return plain != nullptr ? plain : html;
}

bool HdrBuf::GotoSection(TEXTFILE *file, bool &isHTML) {
    const bool wantHTML = isHTML;
    isHTML = false;
    if (fBoundaries.empty()) {
        if (current().content == ContentPartial)
            return false;
        isHTML = current().content == ContentHTML;
        return true;
    }
    if (file == nullptr)
        return false;
    std::vector<Section> sections;
    if (!sectionScan(file, sections))
        return false;
    const Section *chosen = sectionSelect(sections, wantHTML);
    if (chosen == nullptr)
        return false;
    if (file->position(DISKFILE::kFromStart, chosen->offset) != DISKFILE::kSuccess || !Read(file)) {
        return false;
    }
    isHTML = chosen->content == ContentHTML;
    return true;
}

bool HdrBuf::gotoMime(TEXTFILE *file) {
    if (isAttachmentPart(current()) || (fMain.content == ContentPartial && fMain.number > 1)) {
        return true;
    }
    if (fBoundaries.empty())
        return false;
    char buffer[kLineMax + 1];
    for (;;) {
        std::string_view line;
        if (lineGet(file, buffer, sizeof(buffer), line) != LINE::kLine)
            return false;
        bool isEnd = false;
        if (!Boundary(line, isEnd) || isEnd)
            continue;
        if (!Read(file))
            return false;
        if (isAttachmentPart(current()))
            return true;
    }
}

bool HdrBuf::gotoLine(TEXTFILE *file, bool (*starts)(std::string_view line)) {
    char buffer[kLineMax + 1];
    for (;;) {
        int64_t start = 0;
        if (file->position(&start) != DISKFILE::kSuccess)
            return false;
        std::string_view line;
        if (lineGet(file, buffer, sizeof(buffer), line) != LINE::kLine)
            return false;
        if (!starts(line))
            continue;
        int64_t check = -1;
        return file->position(DISKFILE::kFromStart, start) == DISKFILE::kSuccess &&
               file->position(&check) == DISKFILE::kSuccess && check == start;
    }
}

bool HdrBuf::GotoAttachment(TEXTFILE *file, IMsg::AttachType type) {
    Clear();
    if (file == nullptr || !Read(file))
        return false;
    switch (type) {
    case IMsg::AttachBase64:
    case IMsg::AttachMime:
        return gotoMime(file);
    case IMsg::AttachUuencode:
        return gotoLine(file, [](std::string_view line) {
            return BINTEXT::uuLineStart(line, nullptr) || BINTEXT::uuLineData(line);
        });
    case IMsg::AttachYenc:
        // Every part of a yEnc posting starts its data with "=ybegin".
        return gotoLine(file,
                        [](std::string_view line) { return YENC::kind(line) == YENC::kBegin; });
    default:
        return false;
    }
}

bool HdrBuf::Write(TEXTFILE *file, const SendInfo *info, unsigned long lines) {
    Clear();
    if (file == nullptr || info == nullptr)
        return false;
    fWriting = true;
    fMain.charset = IMsg::CharsetMakeValid(info->charset);
    fMain.lines = static_cast<uint32_t>(lines);

    set(StrAuthor, info->author, true);
    set(StrEmail, info->email, true);
    set(StrSubject, info->subject, true);
    set(StrNewsgroups, info->newsgroups, false);
    set(StrOrganization, info->organization, false);
    set(StrProgramURL, info->programURL, false);
    set(StrUserAgent, info->userAgent, false);

    // Bodies are posted as they are, never quoted-printable or base64.
    fMain.encoding = fMain.charset == IMsg::CharsetUSASCII ? Encoding7bit : Encoding8bit;
    set(StrContentTransferEncoding, encodingString(fMain.encoding), false);
    fMain.content = ContentPlain;
    set(StrContentType,
        textFormat("%s; charset=%s", contentString(ContentPlain),
                   IMsg::CharsetString(fMain.charset)),
        false);

    int64_t now = TIMEBASE::seconds(TIMEBASE::timeGet());
    fMain.date = static_cast<int32_t>(now);
    set(StrDate, dateText(now), false);

    std::string author;
    hdrEncode(author, fMain.strings[StrAuthor], fMain.charset);
    set(StrFrom, author + " <" + fMain.strings[StrEmail] + ">", false);
    set(StrLines, textFormat("%lu", lines), false);
    std::string id;
    IMsg::MsgidGen(id, false);
    set(StrMessageID, id, false);
    set(StrMIMEVersion, "1.0", false);
    if (!info->parentMessageID.empty()) {
        std::string references;
        refCreate(info->parentReferences, info->parentMessageID, references);
        set(StrReferences, references, false);
    }
    return writeAll(file);
}

bool HdrBuf::writeAll(TEXTFILE *file) {
    for (const HEADERINFO *row = headerInfo; row->name != nullptr; row++) {
        if (row->slot < 0 || fMain.strings[row->slot].empty())
            continue;
        const std::string &text = fMain.strings[row->slot];
        std::string value;
        // From is encoded already; newsgroup names are never encoded.
        if (row->num == HdrFrom || row->num == HdrNewsgroups)
            value = text;
        else
            hdrEncode(value, text, fMain.charset);
        std::string line = std::string(row->name) + ": " + value;
        if (!FORMAT::wordWrap(line, file, false, 1, kWriteWidth, emitLine, false))
            return false;
    }
    return file->lineWrite("") == DISKFILE::kSuccess;
}
