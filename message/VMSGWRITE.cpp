// Message files: creating them, writing outgoing messages, cutting off bodies, signature lines.
#include "message/VMSG.h"

#include "base/TEXTFILE.h"
#include "message/FORMAT.h"

namespace {

bool lineCount(void *context, std::string_view) {
    ++*static_cast<unsigned long *>(context);
    return true;
}

struct BODYWRITER {
    TEXTFILE *file = nullptr;
    IMsg::Charset charset = IMsg::CharsetISO1;
    int32_t state = 0;
    std::string converted;
};

bool lineWrite(void *context, std::string_view line) {
    auto *writer = static_cast<BODYWRITER *>(context);
    IMsg::CharsetConvert(IMsg::CharsetUTF8, line, writer->charset, writer->converted,
                         &writer->state);
    return writer->file->lineWrite(writer->converted.c_str()) == DISKFILE::kSuccess;
}

} // namespace

DISKFILE::ERROR VMSG::fileCreate(TEXTFILE *file, const char *path, size_t size) {
    DISKFILE::ERROR error = file->create(path, DISKFILE::kReadWrite, size);
    if (error != DISKFILE::kSuccess)
        return error;
    return file->mimeSet(kMimeType);
}

bool VMSG::fileWrite(TEXTFILE *file, const HdrBuf::SendInfo *info, std::string_view body) {
    // Without a width only the line limit breaks lines.
    const size_t width = info->width > 0 ? info->width : FORMAT::kLineMax;
    unsigned long lines = 0;
    FORMAT::wordWrap(body, &lines, false, 0, width, lineCount, true);
    HdrBuf header;
    if (!header.Write(file, info, lines))
        return false;
    BODYWRITER writer;
    writer.file = file;
    writer.charset = IMsg::CharsetMakeValid(info->charset);
    if (!FORMAT::wordWrap(body, &writer, false, 0, width, lineWrite, true))
        return false;
    if (file->flush() != DISKFILE::kSuccess)
        return false;
    return attrWriteAll(file, &header, info->type, false, info->postServer);
}

bool VMSG::fileTruncate(const char *path) {
    TEXTFILE file;
    if (file.open(path, DISKFILE::kReadWrite) != DISKFILE::kSuccess)
        return false;
    char line[TEXTFILE::kLineMax + 1];
    for (;;) {
        int64_t start = 0;
        if (file.position(&start) != DISKFILE::kSuccess)
            return false;
        size_t length = 0;
        DISKFILE::ERROR error = file.lineRead(line, sizeof(line), &length);
        if (error == DISKFILE::kLineTooLong) {
            if (file.lineSkip() != DISKFILE::kSuccess)
                return false;
            continue;
        }
        // A file that is all header has nothing to cut.
        if (error == DISKFILE::kEndOfFile)
            return true;
        if (error != DISKFILE::kSuccess)
            return false;
        if (length == 0) {
            if (file.sizeSet(uint64_t(start)) != DISKFILE::kSuccess)
                return false;
            return file.close() == DISKFILE::kSuccess;
        }
    }
}

DISKFILE::ERROR VMSG::sigRead(const char *path, LINEFUNC line, void *context) {
    TEXTFILE file;
    DISKFILE::ERROR error = file.open(path, DISKFILE::kRead);
    if (error != DISKFILE::kSuccess)
        return error;
    char text[TEXTFILE::kLineMax + 1];
    for (;;) {
        size_t length = 0;
        error = file.lineRead(text, sizeof(text), &length);
        if (error == DISKFILE::kEndOfFile)
            return DISKFILE::kSuccess;
        // An over-long line goes on in the next piece, as a line of its own.
        if (error != DISKFILE::kSuccess && error != DISKFILE::kLineTooLong)
            return error;
        if (!line(context, std::string_view(text, length)))
            return DISKFILE::kIterationAborted;
    }
}
