// Pieces shared by the session's download, body and posting operations.
#pragma once

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

} // namespace nntpop
