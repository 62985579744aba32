// The newsgroup list (LIST), posting the Outbox (POST), and the posting header table.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "message/HdrBuf.h"
#include "message/VMSG.h"
#include "net/NNTP.h"
#include "net/NNTPOPERATION.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"

namespace {

// The header name of a line as the header block splits it; empty when it is no header.
std::string headerName(const char *line) {
    std::string name;
    std::string value;
    if (!HdrBuf::Split(line, name, value))
        name.clear();
    return name;
}

} // namespace

bool NNTP::groupList(NAMELIST *names, PROGRESSFUNC progress, long kind) {
    CRITSECT_HOLD hold(fLock);
    NNTPOPERATION operation(fGroup, fProgressFunc);
    fProgressFunc = progress;
    fProgress = PROGRESS{};
    fProgress.kind = uint32_t(kind);
    logWrite(kLogStatus, "%s", "Getting newsgroup list ...");
    BARNFILE::slistClear(names);
    if (!nntpop::command(this, "LIST") || !success(response("get newsgroup list from", true)))
        return false;
    char line[kLineSize];
    for (;;) {
        if (cancel() || !read(line, sizeof line) || fAborted)
            return false;
        if (strcmp(line, ".") == 0)
            return true;
        ++fProgress.lines;
        if (line[0] == 0)
            continue;
        // "name last first posting": only the name is kept.
        size_t length = strcspn(line, " \t");
        STR::copy(fProgress.text, std::string_view(line, length), sizeof fProgress.text);
        if (BARN::groupNameCheck(fProgress.text)) {
            ++fProgress.done;
            BARNFILE::slistAdd(names, fProgress.text);
        }
        nntpop::report(fProgressFunc, &fProgress);
    }
}

bool NNTP::upload(PROGRESSFUNC progress, long kind) {
    CRITSECT_HOLD hold(fLock);
    NNTPOPERATION operation(fGroup, fProgressFunc);
    fProgressFunc = progress;
    fProgress = PROGRESS{};
    fProgress.kind = uint32_t(kind);
    fProgress.bodies = true;
    fProgress.total = uint32_t(barn.serverUploadCount(fServer.number));
    if (fProgress.total == 0)
        return true;
    char outbox[BARNINFO::kPathSize];
    BARNINFO::pathOutbox(outbox, sizeof outbox);
    // The names are taken first: posted files leave the folder during the walk.
    for (const std::string &path : nntpop::folderFiles(outbox)) {
        if (!uploadFile(path.c_str()))
            return false;
    }
    return true;
}

bool NNTP::uploadFile(const char *path) {
    CRITSECT_HOLD hold(fLock);
    TEXTFILE file(kUploadBuffer);
    VMSG::DATA data;
    if (VMSG::fileOpen(&file, path, &data, DISKFILE::kRead, kUploadBuffer) != DISKFILE::kSuccess)
        return true;
    bool attempted = data.postServer == fServer.number;
    bool accepted = true;
    bool posted = attempted ? uploadSend(&file, &accepted) : true;
    file.close();
    // Kept in the Outbox only when the post failed before the server's verdict. A refused
    // article is not tried again, and a message naming another server is handed on too:
    // deliberate, the storage tree decides what becomes of it.
    if (posted || !accepted || !attempted)
        barn.messageSent(path);
    // Deliberately the posting result: a failed post ends the walk.
    return posted;
}

bool NNTP::uploadSend(TEXTFILE *file, bool *accepted) {
    CRITSECT_HOLD hold(fLock);
    *accepted = true;
    if (cancel())
        return false;
    if (!nntpop::command(this, "POST") || !success(response("post to", true)))
        return false;
    fProgress.bodyLines = 0;
    ++fProgress.done;
    hdrListClear();
    if (file->position(DISKFILE::kFromStart, 0) != DISKFILE::kSuccess)
        return false;

    bool inHeader = true;
    bool readError = false;
    char line[kUploadLineMax + 1];
    for (;;) {
        if (cancel())
            return false;
        DISKFILE::ERROR error = file->lineRead(line, sizeof line);
        if (error == DISKFILE::kEndOfFile)
            break;
        // An over-long line goes out in pieces, each its own line.
        if (error != DISKFILE::kSuccess && error != DISKFILE::kLineTooLong) {
            readError = true;
            break;
        }
        if (inHeader) {
            if (HdrBuf::LineHeaderEnd(line)) {
                if (!uploadSendHdr())
                    return false;
                inHeader = false;
            } else if (!hdrSent(line)) {
                continue;
            }
        }
        // Only the lone dot is doubled; a line that merely begins with one goes out as
        // stored, deliberately.
        if (!send(strcmp(line, ".") == 0 ? ".." : line, false))
            return false;
        ++fProgress.lines;
        ++fProgress.bodyLines;
        nntpop::report(fProgressFunc, &fProgress);
    }
    if (!nntpop::command(this, "."))
        return false;
    char verdict[kLineSize] = "";
    if (success(response("post to", true, verdict, sizeof verdict, true)))
        return !readError;
    unsigned long code = nntpop::lineCode(verdict);
    if (code >= 400 && code <= 599)
        *accepted = false;
    return false;
}

bool NNTP::uploadSendHdr() {
    CRITSECT_HOLD hold(fLock);
    if (fHeaders == nullptr)
        return true;
    for (HEADER &entry : *fHeaders) {
        if (entry.sent)
            continue;
        if (!send(entry.line.c_str(), false))
            return false;
        entry.sent = true;
        ++fProgress.lines;
        ++fProgress.bodyLines;
        nntpop::report(fProgressFunc, &fProgress);
    }
    return true;
}

bool NNTP::hdrAdd(const char *line) {
    if (fHeaders == nullptr || line == nullptr || headerName(line).empty())
        return false;
    auto at = std::upper_bound(fHeaders->begin(), fHeaders->end(), line,
                               [](const char *text, const HEADER &entry) {
                                   return hdrComp(text, entry.line.c_str()) < 0;
                               });
    fHeaders->insert(at, HEADER{line, false});
    return true;
}

void NNTP::hdrListClear() {
    if (fHeaders == nullptr)
        return;
    for (HEADER &entry : *fHeaders)
        entry.sent = false;
}

bool NNTP::hdrSent(const char *line) {
    // The empty line and continuation lines always go; so the continuation of a suppressed
    // header goes out unchanged, deliberately.
    if (line[0] == 0 || line[0] == ' ' || line[0] == '\t' || line[0] == '\n')
        return true;
    if (fHeaders == nullptr || headerName(line).empty())
        return true;
    for (HEADER &entry : *fHeaders) {
        if (hdrComp(entry.line.c_str(), line) != 0)
            continue;
        if (entry.line != line)
            return false; // the table's own line goes out at the end of the header instead
        entry.sent = true;
        return true;
    }
    return true;
}

int NNTP::hdrComp(const char *a, const char *b) {
    return STR::icmp(headerName(a).c_str(), headerName(b).c_str());
}
