// Bringing a newsgroup up to date: GROUP, the range to fetch, the overview kill list, the
// pipelined HEAD or ARTICLE loop, storing each article, and catching a group up.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <deque>
#include <string>

#include "app/SETTINGS.h"
#include "base/STR.h"
#include "message/HdrBuf.h"
#include "message/VMSG.h"
#include "net/NNTP.h"
#include "net/NNTPOPERATION.h"
#include "storage/AUTHORFILTER.h"
#include "storage/BARNINFO.h"
#include "storage/BARNTHREAD.h"

namespace {

// The index-th blank-separated word of a line as a decimal number; 0 when it is missing or
// not a number. Values past 32 bits are held at the largest article number.
uint32_t wordNumber(const char *line, int index) {
    const char *at = line;
    for (int word = 0;; ++word) {
        while (*at == ' ' || *at == '\t')
            ++at;
        if (*at == 0)
            return 0;
        if (word == index)
            break;
        while (*at != 0 && *at != ' ' && *at != '\t')
            ++at;
    }
    uint64_t value = 0;
    for (; *at >= '0' && *at <= '9'; ++at)
        value = std::min<uint64_t>(value * 10 + unsigned(*at - '0'), UINT32_MAX);
    return uint32_t(value);
}

// The text of tab-separated field index of an overview line.
std::string_view overviewField(std::string_view line, int index) {
    for (int field = 0; field < index; ++field) {
        size_t tab = line.find('\t');
        if (tab == std::string_view::npos)
            return {};
        line.remove_prefix(tab + 1);
    }
    return line.substr(0, line.find('\t'));
}

} // namespace

bool NNTP::groupSelect(BARN::NODE *group, INDEXRANGE *serverRange, unsigned long *count) {
    CRITSECT_HOLD hold(fLock);
    *serverRange = {};
    *count = 0;
    char command[kCommandMax + 1];
    snprintf(command, sizeof command, "GROUP %s", group->name);
    char line[kLineSize];
    if (!nntpop::command(this, command) ||
        !success(response("select newsgroup", true, line, sizeof line))) {
        return false;
    }
    // "211 count first last name"
    *count = wordNumber(line, 1);
    serverRange->first = wordNumber(line, 2);
    serverRange->last = wordNumber(line, 3);
    return true;
}

void NNTP::downloadRange(INDEXRANGE *saved, INDEXRANGE *server, unsigned long count,
                         INDEXRANGE *wanted) {
    *wanted = {};
    if (server->first > server->last)
        server->first = server->last;
    if (server->first == 0 || server->last == 0 || count == 0) {
        *saved = {};
        return;
    }
    int64_t lowest = std::max<int64_t>(int64_t(server->last) - int64_t(count) + 1, 1);
    // A saved last well past the server's last means the server has renumbered the group.
    if (uint64_t(server->last) + kRenumberSlack < saved->last || saved->first > saved->last)
        *saved = {};
    if (saved->first != 0 && saved->last != 0) {
        if (saved->last < server->last) {
            wanted->first = uint32_t(std::max<int64_t>(int64_t(saved->last) + 1, lowest));
            wanted->last = server->last;
        }
    } else {
        wanted->first = uint32_t(lowest);
        wanted->last = server->last;
    }
    saved->first = server->first;
    saved->last = std::max(saved->last, server->first);
}

bool NNTP::downloadSetup(BARN::NODE *group, INDEXRANGE *wanted) {
    CRITSECT_HOLD hold(fLock);
    *wanted = {};
    INDEXRANGE server;
    unsigned long count = 0;
    if (!groupSelect(group, &server, &count))
        return false;
    INDEXRANGE saved{group->group.indexFirst, group->group.indexLast};
    downloadRange(&saved, &server, count, wanted);
    group->group.indexFirst = saved.first;
    group->group.indexLast = saved.last;
    char indexes[48] = "None";
    if (!wanted->none())
        snprintf(indexes, sizeof indexes, "%lu to %lu", (unsigned long)wanted->first,
                 (unsigned long)wanted->last);
    logWrite(kLogStatus,
             "GROUP command index range: %lu to %lu, %lu messages\nIndexes to be downloaded: %s",
             (unsigned long)server.first, (unsigned long)server.last, count, indexes);
    return true;
}

bool NNTP::download(BARN::NODE *group, PROGRESSFUNC progress, long overviewKind, long articleKind) {
    CRITSECT_HOLD hold(fLock);
    NNTPOPERATION operation(fGroup, fProgressFunc);
    fGroup = group;
    fProgressFunc = progress;
    fProgress = PROGRESS{};
    fProgress.bodies = BARN::downloadBodies(group);
    fKillDuringDownload = SETTINGS::killfile.applyToDownload;
    logWrite(kLogStatus, "Downloading new %s from %s ...",
             fProgress.bodies ? "messages" : "headers", group->name);
    logWrite(kLogDetail, "Saved index range: %lu to %lu", (unsigned long)group->group.indexFirst,
             (unsigned long)group->group.indexLast);

    INDEXRANGE wanted;
    if (!downloadSetup(group, &wanted))
        return false;
    if (cancel() || wanted.none())
        return true;
    KILLLIST killList;
    if (fKillDuringDownload) {
        fProgress.kind = uint32_t(overviewKind);
        // Without the overview nothing is fetched and the range stays as it was; the
        // request itself has not failed, deliberately.
        if (!downloadXOVER(&wanted, &killList))
            return true;
    }
    fProgress.kind = uint32_t(articleKind);
    unsigned long lastDone = 0;
    bool result = downloadLoop(&wanted, &lastDone, &killList);
    overClear(&killList);

    // Saved even after a failure, so that stored articles are not fetched twice; but the
    // range never passes an article that was not handled, not even the server's first one
    // that the saved last may have been raised to.
    unsigned long handled = lastDone >= wanted.first ? lastDone : wanted.first - 1;
    uint32_t newLast =
        uint32_t(std::min(std::max<unsigned long>(group->group.indexLast, lastDone), handled));
    logWrite(kLogStatus, "Downloaded %lu messages, new index range: %lu to %lu",
             (unsigned long)fProgress.done, (unsigned long)group->group.indexFirst,
             (unsigned long)newLast);
    group->group.indexLast = newLast;
    BARN::NODE node;
    if (!barn.nodeRead(&node, group->number))
        return false;
    node.group.indexFirst = group->group.indexFirst;
    node.group.indexLast = newLast;
    return barn.nodeSave(&node) && result;
}

bool NNTP::downloadXOVER(const INDEXRANGE *wanted, KILLLIST *killList) {
    CRITSECT_HOLD hold(fLock);
    overClear(killList);
    char command[kCommandMax + 1];
    if (wanted->first == wanted->last)
        snprintf(command, sizeof command, "XOVER %lu", (unsigned long)wanted->first);
    else
        snprintf(command, sizeof command, "XOVER %lu-%lu", (unsigned long)wanted->first,
                 (unsigned long)wanted->last);
    if (!nntpop::command(this, command) || !success(response("get overview data from", true)))
        return false;
    char line[kLineSize];
    for (;;) {
        if (cancel() || !read(line, sizeof line) || fAborted)
            return false;
        if (strcmp(line, ".") == 0)
            return true;
        ++fProgress.lines;
        nntpop::report(fProgressFunc, &fProgress);
        overAdd(killList, line);
    }
}

void NNTP::overAdd(KILLLIST *killList, const char *line) {
    std::string_view text(line);
    std::string_view field = STR::trim(overviewField(text, 0));
    if (field.empty() || field.size() > kOverviewNumberMax || !STR::digits(field))
        return;
    uint64_t number = 0;
    for (char digit : field)
        number = number * 10 + unsigned(digit - '0');
    if (number > UINT32_MAX)
        return;
    // Field 1 is the subject, field 2 the From header; nothing else of the line is used.
    std::string from;
    HdrBuf::HeaderDecode(from, overviewField(text, 2), BARNINFO::charsetGet());
    std::string author;
    std::string email;
    HdrBuf::SplitFrom(from, author, email);
    if (!AUTHORFILTER::killed(author.c_str(), email.c_str()))
        return;
    // Overview lines come in ascending order, so this is nearly always an append.
    uint32_t value = uint32_t(number);
    auto at = std::lower_bound(killList->begin(), killList->end(), value);
    if (at == killList->end() || *at != value)
        killList->insert(at, value);
}

bool NNTP::overKilled(const KILLLIST *killList, unsigned long number) {
    return killList != nullptr &&
           std::binary_search(killList->begin(), killList->end(), uint32_t(number));
}

void NNTP::overClear(KILLLIST *killList) {
    killList->clear();
}

bool NNTP::downloadLoop(INDEXRANGE *wanted, unsigned long *lastDone, const KILLLIST *killList) {
    CRITSECT_HOLD hold(fLock);
    *lastDone = 0;
    if (wanted->none() || wanted->first > wanted->last)
        return true;
    unsigned long size = (unsigned long)wanted->last - wanted->first + 1;
    unsigned long total = std::min(size, BARNINFO::downloadMax(fProgress.bodies));
    fProgress.total = uint32_t(total);
    unsigned long next = wanted->first;
    std::deque<unsigned long> outstanding;
    char line[kLineSize];
    for (;;) {
        // A cancel keeps what has been stored; download still saves the range up to the last
        // article handled.
        if (cancel())
            return true;
        unsigned long issued = 0;
        while (issued < kInFlightRound && next <= wanted->last &&
               outstanding.size() < kInFlightMax && outstanding.size() < total - fProgress.done) {
            // Killed articles cost no command and do not count against the round.
            if (!overKilled(killList, next)) {
                if (!downloadCmd(next))
                    return false;
                outstanding.push_back(next);
                ++issued;
            }
            ++next;
        }
        if (outstanding.empty())
            break;
        unsigned long code = response("retrieve message from", false, line, sizeof line);
        if (code == 0)
            return cancel();
        if (success(code)) {
            ++fProgress.done;
            if (!downloadFile()) {
                --fProgress.done;
                // A cancel in the middle of an article is a cancel like any other.
                return cancel();
            }
        }
        // Any other answer (423, no such article) skips the article: it counts as handled.
        *lastDone = outstanding.front();
        outstanding.pop_front();
        nntpop::report(fProgressFunc, &fProgress);
    }
    // Deliberately the first, not first - 1, when nothing was ever asked for.
    *lastDone = next > wanted->first ? next - 1 : wanted->first;
    return true;
}

bool NNTP::downloadCmd(unsigned long number) {
    CRITSECT_HOLD hold(fLock);
    char command[kCommandMax + 1];
    snprintf(command, sizeof command, "%s %lu", fProgress.bodies ? "ARTICLE" : "HEAD", number);
    return nntpop::command(this, command);
}

bool NNTP::downloadFile() {
    CRITSECT_HOLD hold(fLock);
    TEXTFILE file;
    if (!barn.messageCreate(&file)) {
        // The article stays unread on the connection, which is out of step from here on.
        fAborted = true;
        return false;
    }
    char path[DISKFILE::kPathMax + 1] = "";
    file.filename(path, sizeof path);
    DISKFILE eraser;
    HdrBuf header;
    header.CharsetSet(barn.charsetGet(fGroup->number), false);
    fProgress.bodyLines = 0;
    bool inHeader = true;
    char line[kLineSize];
    for (;;) {
        // A cancel while waiting returns true with the aborted flag set.
        if (!read(line, sizeof line) || fAborted) {
            file.close();
            eraser.erase(path);
            fAborted = true;
            return false;
        }
        // Lines are kept exactly as received: a doubled leading dot stays doubled, as it
        // always has in this program's files.
        if (strcmp(line, ".") == 0)
            break;
        ++fProgress.lines;
        if (inHeader) {
            if (HdrBuf::LineHeaderEnd(line))
                inHeader = false;
            else
                header.Add(line);
        } else {
            ++fProgress.bodyLines;
        }
        DISKFILE::ERROR error = file.lineWrite(line);
        if (error != DISKFILE::kSuccess) {
            logWrite(kLogError, "Couldn't write message file %s: %s", path,
                     DISKFILE::errorStr(error));
            file.close();
            eraser.erase(path);
            // The rest of the article is still on its way: the connection is out of step.
            fAborted = true;
            return false;
        }
        nntpop::report(fProgressFunc, &fProgress);
    }
    DISKFILE::ERROR error = file.close();
    if (error != DISKFILE::kSuccess) {
        logWrite(kLogError, "Couldn't write message file %s: %s", path, DISKFILE::errorStr(error));
        eraser.erase(path);
        return false;
    }
    header.End();
    bool readBefore = barnThread.messageIsRead(header.StringMessageID());
    bool killed = AUTHORFILTER::killed(header.StringAuthor(), header.StringEmail());
    int32_t type = fProgress.bodies ? IMsg::MsgTypeNews : IMsg::MsgTypeNewsHeader;
    if (!VMSG::attrCreate(path, type, &header, IMsg::CharsetNone, false, fProgress.bodyLines,
                          readBefore, VMSG::kServerNone)) {
        logWrite(kLogError, "Couldn't write the attributes of message file %s", path);
        eraser.erase(path);
        return false;
    }
    // The storage tree shows its own alert when the move fails.
    if (!barn.messageMove(fGroup->number, readBefore || killed)) {
        eraser.erase(path);
        return false;
    }
    return true;
}

bool NNTP::catchup(BARN::NODE *group, PROGRESSFUNC progress, long kind) {
    CRITSECT_HOLD hold(fLock);
    NNTPOPERATION operation(fGroup, fProgressFunc);
    fGroup = group;
    fProgressFunc = progress;
    fProgress = PROGRESS{};
    fProgress.kind = uint32_t(kind);
    logWrite(kLogStatus, "Catching up %s ...", group->name);
    nntpop::report(fProgressFunc, &fProgress);
    INDEXRANGE server;
    unsigned long count = 0;
    if (!groupSelect(group, &server, &count))
        return false;
    server.first = std::min(server.first, server.last);
    BARN::NODE node;
    if (!barn.nodeRead(&node, group->number))
        return false;
    node.group.indexFirst = server.first;
    node.group.indexLast = server.last;
    if (!barn.nodeSave(&node))
        return false;
    group->group.indexFirst = server.first;
    group->group.indexLast = server.last;
    logWrite(kLogStatus, "Index range updated: %u to %u", unsigned(server.first),
             unsigned(server.last));
    return true;
}
