// Fetching the bodies of header-only messages the user marked for download (BODY).
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "message/VMSG.h"
#include "net/NNTP.h"
#include "net/NNTPOPERATION.h"
#include "storage/BARNINFO.h"
#include "storage/BARNTHREAD.h"

namespace {

// The message type attribute of a file; 0 when it has none.
int32_t fileType(const char *path) {
    DISKFILE file;
    int32_t type = 0;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess ||
        VMSG::attrRead(&file, VMSG::AttrType, &type, sizeof type) != DISKFILE::kSuccess) {
        return 0;
    }
    return type;
}

} // namespace

bool NNTP::downloadBodies(BARN::NODE *group, PROGRESSFUNC progress, long kind,
                          const char *fileName) {
    CRITSECT_HOLD hold(fLock);
    NNTPOPERATION operation(fGroup, fProgressFunc);
    fGroup = group;
    fProgressFunc = progress;
    fProgress = PROGRESS{};
    fProgress.kind = uint32_t(kind);
    fProgress.bodies = true;

    bool single = fileName != nullptr && fileName[0] != 0;
    char named[BARNINFO::kPathSize] = "";
    if (single) {
        STR::copy(named, group->path, sizeof named);
        BARNINFO::pathAppend(named, sizeof named, fileName);
        DISKFILE file;
        int32_t type = 0;
        // A file that has gone, or that has its body by now, leaves nothing to do.
        if (file.open(named, DISKFILE::kRead) != DISKFILE::kSuccess ||
            VMSG::attrRead(&file, VMSG::AttrType, &type, sizeof type) != DISKFILE::kSuccess ||
            IMsg::TypeHasBody(type)) {
            return true;
        }
        if (!VMSG::setType(&file, IMsg::MsgTypeNewsDownload))
            return true;
        fProgress.total = 1;
    } else {
        fProgress.total = uint32_t(groupMarkedTotal());
        if (fProgress.total == 0)
            return true;
    }

    INDEXRANGE server;
    unsigned long count = 0;
    if (!groupSelect(group, &server, &count))
        return false;
    if (single)
        return bodyCallback(named) || cancel();
    for (const std::string &path : nntpop::folderFiles(group->path)) {
        if (!bodyCallback(path.c_str()))
            return cancel();
    }
    return true;
}

unsigned long NNTP::groupMarkedTotal() {
    CRITSECT_HOLD hold(fLock);
    unsigned long total = 0;
    if (fGroup == nullptr)
        return 0;
    for (const std::string &path : nntpop::folderFiles(fGroup->path)) {
        if (fileType(path.c_str()) == IMsg::MsgTypeNewsDownload)
            ++total;
    }
    return total;
}

bool NNTP::bodyCallback(const char *path) {
    CRITSECT_HOLD hold(fLock);
    TEXTFILE file;
    int32_t type = 0;
    char msgid[VMSG::kStringReadMax + 1] = "";
    if (file.open(path, DISKFILE::kReadWrite) != DISKFILE::kSuccess ||
        VMSG::attrRead(&file, VMSG::AttrType, &type, sizeof type) != DISKFILE::kSuccess ||
        type != IMsg::MsgTypeNewsDownload ||
        VMSG::attrRead(&file, VMSG::AttrMsgid, msgid, sizeof msgid) != DISKFILE::kSuccess ||
        file.position(DISKFILE::kFromEnd, 0) != DISKFILE::kSuccess) {
        return true;
    }
    char command[kCommandMax + 1];
    snprintf(command, sizeof command, "BODY %s", msgid);
    if (!nntpop::command(this, command))
        return false;
    ++fProgress.done;
    fProgress.bodyLines = 0;
    nntpop::report(fProgressFunc, &fProgress);
    char line[kLineSize];
    unsigned long code = response("retrieve message from", false, line, sizeof line);
    if (code == 0)
        return false;
    const char *leaf = strrchr(path, '/');
    leaf = leaf != nullptr ? leaf + 1 : path;
    // The empty line that ends the header, then the body.
    bool broken = file.lineWrite("") != DISKFILE::kSuccess;

    if (!success(code)) {
        // Cut to the progress record's text, which is also the body line stored.
        std::string text = std::string("Couldn't retrieve message, server response was: ") + line;
        STR::copy(fProgress.text, text.c_str(), sizeof fProgress.text);
        file.lineWrite(fProgress.text);
        file.close();
        barnThread.fileOp(BARNTHREAD::MessageType, fGroup->number, leaf, IMsg::MsgTypeNewsFailed);
        return true;
    }

    while (!broken) {
        // A cancel while waiting returns true with the aborted flag set.
        if (!read(line, sizeof line) || fAborted) {
            broken = true;
            break;
        }
        if (strcmp(line, ".") == 0)
            break;
        ++fProgress.lines;
        ++fProgress.bodyLines;
        if (file.lineWrite(line) != DISKFILE::kSuccess) {
            broken = true;
            break;
        }
        nntpop::report(fProgressFunc, &fProgress);
    }
    if (broken || file.close() != DISKFILE::kSuccess) {
        // The rest of the body may still be on its way: nothing more can be said on this
        // connection.
        fAborted = true;
        file.close();
        VMSG::fileTruncate(path);
        return false;
    }
    barnThread.fileOp(BARNTHREAD::MessageType, fGroup->number, leaf, IMsg::MsgTypeNews);
    return true;
}
