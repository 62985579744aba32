// Message files: reading a body line by line in UTF-8 for the view and for quoting.
#include "message/VMSG.h"

#include "base/TEXTFILE.h"
#include "message/BINTEXT.h"
#include "message/FILEDECODE.h"
#include "message/FORMAT.h"
#include "message/YENC.h"

namespace {

constexpr size_t kLineSize = TEXTFILE::kLineMax + 1;
// A full uuencode data line: the count character 'M' (45 bytes) and 60 data characters.
constexpr size_t kUuFullLine = 61;

size_t utf8Length(std::string_view text) {
    size_t count = 0;
    for (char c : text) {
        if ((uint8_t(c) & 0xC0) != 0x80)
            count++;
    }
    return count;
}

// The middle of a uuencoded file (a later part of a split posting starts with such lines).
bool uuFullLine(std::string_view line) {
    return line.size() == kUuFullLine && line[0] == 'M' && BINTEXT::uuLineData(line);
}

// One reading of one message: the file, the caller's wishes and the header of the message.
class BODYREADER {
public:
    BODYREADER(TEXTFILE *file, const VMSG::READ &read) : fFile(file), fRead(read) {
        if (read.attachments != nullptr) {
            read.attachments->reset();
            fTail = read.attachments;
        }
    }

    DISKFILE::ERROR whole();
    DISKFILE::ERROR text();

private:
    // The next line of the file (an over-long line comes in pieces); start gets its offset.
    // False at the end of the file (error kSuccess) or on a failure (error says which); the
    // continue callback is asked first, and its stop is the failure kIterationAborted.
    bool more(std::string_view &line, DISKFILE::ERROR &error, int64_t *start = nullptr);
    // Hands a UTF-8 line to the caller, word-wrapped when asked; false stops.
    bool emit(std::string_view line);
    static bool emitWrapped(void *context, std::string_view line);
    // A line of shown text: written to the HTML file, hidden as uuencode data, or emitted.
    bool deliver(std::string_view line, TEXTFILE *html);
    bool uuHide(std::string_view line);
    // yEnc data is listed as an attachment too: hidden from its "=ybegin" to its "=yend".
    bool yencHide(std::string_view line);
    // Shows the body from the file position: up to the next boundary when bounded, else to
    // the end of the file.
    DISKFILE::ERROR section(HdrBuf::Encoding encoding, IMsg::Charset charset, bool isHTML,
                            bool bounded);
    // A multipart body without a part the header code would choose: its first text part.
    DISKFILE::ERROR firstTextPart(int64_t bodyStart);
    IMsg::Charset partCharset() const {
        return fRead.charsetForce ? fRead.charset : fHeader.CharsetGet();
    }
    DISKFILE::ERROR collect(int64_t bodyStart);
    VMSG::ATTACHMENT *attachAdd(const std::string &name, const std::string &mimeType,
                                IMsg::AttachType type, bool begins, bool ends, int64_t offset);

    TEXTFILE *fFile;
    const VMSG::READ &fRead;
    HdrBuf fHeader;
    char fLine[kLineSize] = {};
    bool fUuBlock = false;
    bool fYencBlock = false;
    uint32_t fTotal = 1; // messages of a split posting, from the subject
    std::unique_ptr<VMSG::ATTACHMENT> *fTail = nullptr;
};

bool BODYREADER::more(std::string_view &line, DISKFILE::ERROR &error, int64_t *start) {
    line = std::string_view();
    error = DISKFILE::kSuccess;
    if (fRead.cont != nullptr && !fRead.cont(fRead.context)) {
        error = DISKFILE::kIterationAborted;
        return false;
    }
    if (start != nullptr && fFile->position(start) != DISKFILE::kSuccess) {
        error = DISKFILE::kPositionFailed;
        return false;
    }
    size_t length = 0;
    error = fFile->lineRead(fLine, sizeof(fLine), &length);
    if (error == DISKFILE::kEndOfFile) {
        error = DISKFILE::kSuccess;
        return false;
    }
    if (error == DISKFILE::kLineTooLong)
        error = DISKFILE::kSuccess;
    if (error != DISKFILE::kSuccess)
        return false;
    line = std::string_view(fLine, length);
    return true;
}

bool BODYREADER::emit(std::string_view line) {
    if (fRead.line == nullptr)
        return true;
    if (fRead.form == VMSG::ReadText && fRead.width > 0 && utf8Length(line) > fRead.width)
        return FORMAT::wordWrap(line, this, false, 0, fRead.width, emitWrapped, true);
    return fRead.line(fRead.context, line);
}

bool BODYREADER::emitWrapped(void *context, std::string_view line) {
    auto *reader = static_cast<BODYREADER *>(context);
    return reader->fRead.line(reader->fRead.context, line);
}

// Uuencoded data is listed as an attachment, not shown: a block runs from its "begin" line
// (or, in a later part of a split posting, its first full data line) through the lines that
// can be data to its "end" line. The first line that cannot be data (an empty line, text)
// ends a block that has no "end" line here, and is shown.
bool BODYREADER::uuHide(std::string_view line) {
    if (fUuBlock) {
        if (BINTEXT::uuLineStop(line)) {
            fUuBlock = false;
            return true;
        }
        if (FILEDECODE::uuLinePlausible(line))
            return true;
    }
    fUuBlock = BINTEXT::uuLineStart(line, nullptr) || uuFullLine(line);
    return fUuBlock;
}

bool BODYREADER::yencHide(std::string_view line) {
    YENC::LINE kind = YENC::kind(line);
    if (fYencBlock) {
        fYencBlock = kind != YENC::kEnd;
        return true;
    }
    fYencBlock = kind == YENC::kBegin;
    return fYencBlock;
}

bool BODYREADER::deliver(std::string_view line, TEXTFILE *html) {
    if (html != nullptr) {
        size_t count = 0;
        return html->write(line.data(), line.size(), &count) == DISKFILE::kSuccess &&
               html->textWrite("\n") == DISKFILE::kSuccess;
    }
    if (yencHide(line) || uuHide(line))
        return true;
    return emit(line);
}

DISKFILE::ERROR BODYREADER::section(HdrBuf::Encoding encoding, IMsg::Charset charset, bool isHTML,
                                    bool bounded) {
    TEXTFILE htmlFile;
    char htmlPath[VMSG::kPathMax + 1] = {};
    TEXTFILE *html = nullptr;
    if (isHTML && fRead.html != nullptr && !fRead.htmlPath.empty()) {
        STR::copy(htmlPath, fRead.htmlPath, sizeof(htmlPath));
        // Without a scratch file the HTML is at least shown as text.
        if (htmlFile.create(htmlPath, DISKFILE::kReadWrite) == DISKFILE::kSuccess)
            html = &htmlFile;
    }
    std::string pending; // text of soft-broken quoted-printable lines, or decoded base64
    std::string text;
    int32_t state = 0;
    std::string_view line;
    DISKFILE::ERROR error = DISKFILE::kSuccess;
    while (more(line, error)) {
        bool isEnd = false;
        if (bounded && fHeader.Boundary(line, isEnd))
            break;
        if (encoding == HdrBuf::EncodingQuoted) {
            const bool complete = IMsg::QuoteDecode(charset, text, line);
            pending += text;
            if (!complete)
                continue;
            text = std::move(pending);
            pending.clear();
        } else if (encoding == HdrBuf::EncodingBase64) {
            // A text body in base64: decoded bytes are split into lines again.
            char bytes[kLineSize];
            const size_t count = BINTEXT::base64Decode(fLine, bytes, sizeof(bytes), true);
            pending.append(bytes, count);
            size_t end;
            while ((end = pending.find('\n')) != std::string::npos) {
                std::string_view piece(pending.data(), end);
                if (!piece.empty() && piece.back() == '\r')
                    piece.remove_suffix(1);
                IMsg::CharsetConvert(charset, piece, IMsg::CharsetUTF8, text, &state);
                pending.erase(0, end + 1);
                if (!deliver(text, html))
                    return DISKFILE::kIterationAborted;
            }
            continue;
        } else {
            IMsg::CharsetConvert(charset, line, IMsg::CharsetUTF8, text, &state);
        }
        if (!deliver(text, html))
            return DISKFILE::kIterationAborted;
    }
    if (error != DISKFILE::kSuccess)
        return error;
    if (!pending.empty()) {
        if (encoding == HdrBuf::EncodingBase64)
            IMsg::CharsetConvert(charset, pending, IMsg::CharsetUTF8, text, &state);
        else
            text = pending;
        if (!deliver(text, html))
            return DISKFILE::kIterationAborted;
    }
    if (html != nullptr) {
        if (htmlFile.close() != DISKFILE::kSuccess)
            return DISKFILE::kWriteFailed;
        fRead.html(fRead.context, htmlPath);
    }
    return DISKFILE::kSuccess;
}

DISKFILE::ERROR BODYREADER::firstTextPart(int64_t bodyStart) {
    if (fFile->position(DISKFILE::kFromStart, bodyStart) != DISKFILE::kSuccess)
        return DISKFILE::kPositionFailed;
    std::string_view line;
    DISKFILE::ERROR error = DISKFILE::kSuccess;
    while (more(line, error)) {
        bool isEnd = false;
        if (!fHeader.Boundary(line, isEnd) || isEnd)
            continue;
        if (!fHeader.Read(fFile))
            return DISKFILE::kReadFailed;
        const HdrBuf::Data &part = fHeader.inner();
        if ((part.content == HdrBuf::ContentPlain || part.content == HdrBuf::ContentHTML) &&
            part.encoding != HdrBuf::EncodingBase64) {
            return section(HdrBuf::encodingMakeValid(part.encoding), partCharset(),
                           part.content == HdrBuf::ContentHTML, true);
        }
    }
    return error;
}

VMSG::ATTACHMENT *BODYREADER::attachAdd(const std::string &name, const std::string &mimeType,
                                        IMsg::AttachType type, bool begins, bool ends,
                                        int64_t offset) {
    auto attachment = std::make_unique<VMSG::ATTACHMENT>();
    attachment->filename = name;
    attachment->mimeType = mimeType;
    attachment->type = type;
    attachment->begins = begins;
    attachment->ends = ends;
    attachment->number = begins && ends ? 1 : fTotal;
    attachment->offset = offset;
    *fTail = std::move(attachment);
    VMSG::ATTACHMENT *added = fTail->get();
    fTail = &added->next;
    return added;
}

DISKFILE::ERROR BODYREADER::collect(int64_t bodyStart) {
    if (fFile->position(DISKFILE::kFromStart, bodyStart) != DISKFILE::kSuccess)
        return DISKFILE::kPositionFailed;
    const bool multipart = !fHeader.boundaries().empty();
    std::string name, mimeType;
    IMsg::AttachType type = IMsg::AttachNone;
    if (!multipart && fHeader.Attachment(name, mimeType, type)) {
        // The body itself is the attachment; of a message/partial only its first piece.
        const bool partial = fHeader.main().content == HdrBuf::ContentPartial;
        attachAdd(name, mimeType, type, true, !partial, bodyStart);
        if (type == IMsg::AttachBase64)
            return DISKFILE::kSuccess;
    }
    bool skipPart = false;
    VMSG::ATTACHMENT *uu = nullptr;
    VMSG::ATTACHMENT *yenc = nullptr;
    std::string_view line;
    int64_t start = 0;
    DISKFILE::ERROR error = DISKFILE::kSuccess;
    while (more(line, error, &start)) {
        bool isEnd = false;
        if (multipart && fHeader.Boundary(line, isEnd)) {
            skipPart = false;
            uu = nullptr;
            if (isEnd)
                continue;
            if (!fHeader.Read(fFile))
                return DISKFILE::kReadFailed;
            int64_t dataStart = 0;
            if (fFile->position(&dataStart) != DISKFILE::kSuccess)
                return DISKFILE::kPositionFailed;
            if (fHeader.Attachment(name, mimeType, type)) {
                attachAdd(name, mimeType, type, true, true, dataStart);
                skipPart = true;
            }
            continue;
        }
        if (skipPart)
            continue;
        if (yenc != nullptr) {
            yenc = YENC::kind(line) == YENC::kEnd ? nullptr : yenc;
            continue;
        }
        if (YENC::kind(line) == YENC::kBegin) {
            YENC::HEADER header;
            YENC::parse(line, &header);
            char leaf[VMSG::kPathMax + 1];
            STR::copy(leaf, header.name.c_str(), sizeof leaf);
            std::string fileName = STR::filenameFixup(leaf, sizeof leaf) ? leaf : "";
            HdrBuf::FilenameToMIME(fileName, mimeType);
            if (mimeType.empty())
                mimeType = "application/octet-stream";
            const bool first = !header.hasPart || header.part <= 1;
            const bool last = !header.hasPart || header.part >= header.total;
            yenc = attachAdd(fileName, mimeType, IMsg::AttachYenc, first, last, start);
            yenc->size = header.size;
            if (first && last)
                yenc->number = 1;
            else if (header.total > 0)
                yenc->number = header.total;
            continue;
        }
        // A block ends as uuHide ends it: at its "end" line, or open at a line of text.
        if (uu != nullptr) {
            if (BINTEXT::uuLineStop(line)) {
                uu->ends = true;
                uu->number = uu->begins ? 1 : fTotal;
                uu = nullptr;
                continue;
            }
            if (FILEDECODE::uuLinePlausible(line))
                continue;
            uu = nullptr;
        }
        if (BINTEXT::uuLineStart(line, &name)) {
            HdrBuf::FilenameToMIME(name, mimeType);
            if (mimeType.empty())
                mimeType = "application/octet-stream";
            uu = attachAdd(name, mimeType, IMsg::AttachUuencode, true, false, start);
        } else if (uuFullLine(line)) {
            uu = attachAdd(std::string(), std::string(), IMsg::AttachUuencode, false, false, start);
        }
    }
    return error;
}

DISKFILE::ERROR BODYREADER::whole() {
    std::string text;
    int32_t state = 0;
    std::string_view line;
    DISKFILE::ERROR error = DISKFILE::kSuccess;
    while (more(line, error)) {
        if (fRead.form == VMSG::ReadRaw) {
            IMsg::CharsetConvert(fRead.charset, line, IMsg::CharsetUTF8, text, &state);
            line = text;
        }
        if (!emit(line))
            return DISKFILE::kIterationAborted;
    }
    return error;
}

DISKFILE::ERROR BODYREADER::text() {
    fHeader.Clear();
    fHeader.CharsetSet(fRead.charset, false);
    if (!fHeader.Read(fFile))
        return DISKFILE::kReadFailed;
    int64_t bodyStart = 0;
    if (fFile->position(&bodyStart) != DISKFILE::kSuccess)
        return DISKFILE::kPositionFailed;
    std::string base;
    uint32_t part = 0, total = 0;
    if (IMsg::AttachSubject(fHeader.StringSubject(), base, part, total))
        fTotal = total;
    const bool multipart = !fHeader.boundaries().empty();
    std::string name, mimeType;
    IMsg::AttachType type = IMsg::AttachNone;
    bool isHTML = fRead.html != nullptr;
    DISKFILE::ERROR error = DISKFILE::kSuccess;
    if (!multipart && fHeader.Attachment(name, mimeType, type) && type == IMsg::AttachBase64) {
        // The whole body is binary data: nothing to show, only the attachment to list.
    } else if (fHeader.GotoSection(fFile, isHTML)) {
        error = section(fHeader.EncodingGet(), multipart ? partCharset() : fRead.charset, isHTML,
                        multipart);
    } else if (multipart) {
        error = firstTextPart(bodyStart);
    } else {
        // A piece of a message/partial: its body as it stands.
        error = section(fHeader.EncodingGet(), fRead.charset, false, false);
    }
    if (error != DISKFILE::kSuccess || fRead.attachments == nullptr)
        return error;
    return collect(bodyStart);
}

} // namespace

DISKFILE::ERROR VMSG::fileRead(TEXTFILE *file, const READ &read) {
    BODYREADER reader(file, read);
    if (file->position(DISKFILE::kFromStart, 0) != DISKFILE::kSuccess)
        return DISKFILE::kPositionFailed;
    return read.form == ReadText ? reader.text() : reader.whole();
}
