// Pieces shared by the session's download, body and posting operations.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "net/NNTP.h"

// Clears the operation's group and progress callback however the operation ends.
class NNTPOPERATION {
public:
    NNTPOPERATION(BARN::NODE *&group, NNTP::PROGRESSFUNC &progress)
        : fGroup(group), fProgress(progress) {}
    ~NNTPOPERATION() {
        fGroup = nullptr;
        fProgress = nullptr;
    }
    NNTPOPERATION(const NNTPOPERATION &) = delete;
    NNTPOPERATION &operator=(const NNTPOPERATION &) = delete;

private:
    BARN::NODE *&fGroup;
    NNTP::PROGRESSFUNC &fProgress;
};

namespace nntpop {

// Sends one command. A connection the server has closed makes the send fail silently; the
// response read that follows then reports it, so only the other failures stop the caller.
inline bool command(NNTP *session, const char *text) {
    return session->send(text) || !session->connected();
}

// The leading status code of a response line, 0 when it has none.
inline unsigned long lineCode(const char *line) {
    unsigned long code = 0;
    for (; *line >= '0' && *line <= '9' && code < 1000; ++line)
        code = code * 10 + unsigned(*line - '0');
    return code;
}

inline void report(NNTP::PROGRESSFUNC progress, const NNTP::PROGRESS *record) {
    if (progress != nullptr)
        progress(record);
}

// Paths of the regular files directly in a folder, in name order so that the work is the
// same on every run, taken before any of them changes or moves away.
inline std::vector<std::string> folderFiles(const char *path) {
    std::vector<std::string> files;
    DISKFILE walk;
    walk.dirIterate(
        path,
        [](void *data, const DISKFILE::ENTRY &entry) {
            if (entry.type == DISKFILE::kEntryFile)
                static_cast<std::vector<std::string> *>(data)->emplace_back(entry.path);
            return true;
        },
        &files);
    std::sort(files.begin(), files.end());
    return files;
}

} // namespace nntpop
