// The transfer request queue and the "NNTP" transfer thread that works through it.
#include "net/NEWS.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <thread>

#include "app/SETTINGS.h"
#include "base/ALERT.h"
#include "base/STR.h"
#include "base/THREAD.h"
#include "base/TIMEBASE.h"
#include "net/NETWORK.h"
#include "storage/BARNFILE.h"

NEWS news;

namespace {

struct WEIGHT {
    double queued;
    double step;
};

// Units by action number; a newsgroup list (50000) outweighs everything else in a run.
constexpr WEIGHT kWeights[] = {
    {0, 0},     // none
    {12, 0},    // catch up
    {700, 7},   // download messages
    {400, 4},   // download headers
    {7, 7},     // one body
    {600, 6},   // marked bodies
    {0, 0},     // overview phase
    {50000, 1}, // newsgroup list
    {50, 10},   // upload
};

const WEIGHT &weightOf(NEWS::ACTIONTYPE action) {
    size_t index = size_t(action);
    return index < sizeof kWeights / sizeof kWeights[0] ? kWeights[index] : kWeights[0];
}

NEWS::REQUEST requestMake(NEWS::ACTIONTYPE action, long long server, long long group,
                          const char *fileName) {
    NEWS::REQUEST request;
    request.action = action;
    request.server = server;
    request.group = group;
    STR::copy(request.fileName, fileName != nullptr ? fileName : "", sizeof request.fileName);
    return request;
}

} // namespace

double NEWS::weightQueued(ACTIONTYPE action) {
    return weightOf(action).queued;
}

double NEWS::weightStep(ACTIONTYPE action) {
    return weightOf(action).step;
}

void NEWS::requestClear(REQUEST *request) {
    *request = REQUEST{};
}

bool NEWS::requestEqual(const REQUEST &a, const REQUEST &b) {
    return a.action == b.action && a.server == b.server && a.group == b.group &&
           strcmp(a.fileName, b.fileName) == 0;
}

// --- Start and stop ---

bool NEWS::start() {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    fStarted = false;
    delete fQueue;
    fQueue = new std::vector<REQUEST>;
    fQueue->reserve(kQueueGrowth);
    fBusy = false;
    uint64_t generation = ++fGeneration;
    if (THREAD::spawn(&NEWS::_thread, kThreadName, reinterpret_cast<void *>(generation),
                      kThreadPause, THREAD::kPriorityNormal) == nullptr) {
        delete fQueue;
        fQueue = nullptr;
        return false;
    }
    fCancel = false;
    fCancelSeen = false;
    fStarted = true;
    return true;
}

void NEWS::stop() {
    for (;;) {
        {
            CALLOUT callout(this);
            CRITSECT_HOLD hold(fLock);
            fCancel = true;
            if (fQueue != nullptr)
                fQueue->clear();
            _windowCloseLocked();
        }
        if (!fBusy)
            break;
        std::this_thread::sleep_for(std::chrono::microseconds(kStopSleep));
    }
    NNTP *session;
    {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        session = fSession;
        fSession = nullptr;
        fServer = BARN::kNodeNone;
        // A thread that outlived the program's thread stop ends at its next call.
        ++fGeneration;
    }
    // Outside the lock: the session may still say goodbye to its server.
    delete session;
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    delete fQueue;
    fQueue = nullptr;
    fStarted = false;
    fErrors = 0;
    fEmptyTime = 0;
    fTotal = fDone = 0;
}

int32_t NEWS::_thread(void *data) {
    if (reinterpret_cast<uintptr_t>(data) != news.fGeneration)
        return 0;
    news.daemon();
    return THREAD::kAgain;
}

// --- Adding requests ---

bool NEWS::_add(ACTIONTYPE action, long long server, long long group, const char *fileName) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    return _addLocked(requestMake(action, server, group, fileName));
}

bool NEWS::_addLocked(const REQUEST &request) {
    if (fQueue == nullptr || _findLocked(request))
        return false;
    if (fQueue->empty())
        fTotal = fDone = 0;
    if (fQueue->size() == fQueue->capacity())
        fQueue->reserve(fQueue->size() + kQueueGrowth);
    fQueue->push_back(request);
    fTotal += weightQueued(request.action);
    _windowCallLocked(
        [total = fTotal, done = fDone](NEWSPROGRESS *window) { window->progbarSet(total, done); });
    _postLocked("nala");
    return true;
}

bool NEWS::_findLocked(const REQUEST &request) {
    if (fQueue == nullptr)
        return false;
    return std::any_of(fQueue->begin(), fQueue->end(),
                       [&](const REQUEST &queued) { return requestEqual(queued, request); });
}

bool NEWS::requestGroup(long long server, long long group, bool markedOnly) {
    BARN::NODE node;
    if (!barn.nodeRead(&node, group) || node.type != NODETYPE::Newsgroup ||
        node.group.download == GROUPDOWNLOAD::NoDownload) {
        return false;
    }
    ACTIONTYPE action;
    if (markedOnly) {
        // Only a group that downloads headers alone can have messages marked for download.
        if (node.group.download != GROUPDOWNLOAD::HeadersOnly)
            return false;
        action = kDownloadMarked;
    } else {
        action = BARN::downloadBodies(&node) ? kDownloadMessages : kDownloadHeaders;
    }
    return _add(action, server, group, nullptr);
}

unsigned long NEWS::requestServer(long long server, bool markedOnly) {
    unsigned long added = 0;
    BARN::NODE node;
    for (unsigned long i = 0; barn.groupNext(server, &node, i); ++i) {
        if (requestGroup(server, node.number, markedOnly))
            ++added;
    }
    return added;
}

unsigned long NEWS::requestServerAll(bool markedOnly) {
    unsigned long added = 0;
    BARN::NODE node;
    for (unsigned long i = 0; barn.serverNext(&node, i); ++i)
        added += requestServer(node.number, markedOnly);
    return added;
}

bool NEWS::requestCatchupGroup(long long server, long long group) {
    return _add(kCatchup, server, group, nullptr);
}

unsigned long NEWS::requestCatchupServer(long long server) {
    unsigned long added = 0;
    BARN::NODE node;
    for (unsigned long i = 0; barn.groupNext(server, &node, i); ++i) {
        if (requestCatchupGroup(server, node.number))
            ++added;
    }
    return added;
}

unsigned long NEWS::requestCatchupServerAll() {
    unsigned long added = 0;
    BARN::NODE node;
    for (unsigned long i = 0; barn.serverNext(&node, i); ++i)
        added += requestCatchupServer(node.number);
    return added;
}

bool NEWS::requestServerGroupList(long long server) {
    return _add(kGroupList, server, BARN::kNodeNone, nullptr);
}

bool NEWS::requestUpload(long long server) {
    if (barn.serverUploadCount(server) == 0)
        return false;
    return _add(kUpload, server, BARN::kNodeNone, nullptr);
}

unsigned long NEWS::requestUploadAll() {
    unsigned long added = 0;
    BARN::NODE node;
    for (unsigned long i = 0; barn.serverNext(&node, i); ++i) {
        if (requestUpload(node.number))
            ++added;
    }
    return added;
}

bool NEWS::requestBody(long long server, long long group, const char *fileName) {
    return _add(kDownloadBody, server, group, fileName);
}

bool NEWS::requestDupeCheck(ACTIONTYPE action, long long server, long long group,
                            const char *fileName) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    return _findLocked(requestMake(action, server, group, fileName));
}

// --- The user's control ---

unsigned long NEWS::userCount() {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    return fQueue != nullptr ? fQueue->size() : 0;
}

bool NEWS::userGet(REQUEST *out, unsigned long index) {
    requestClear(out);
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr || index >= fQueue->size())
        return false;
    *out = (*fQueue)[index];
    return true;
}

void NEWS::_removeLocked(size_t index) {
    fTotal = std::max(0.0, fTotal - weightQueued((*fQueue)[index].action));
    fQueue->erase(fQueue->begin() + long(index));
    _windowCallLocked(
        [total = fTotal, done = fDone](NEWSPROGRESS *window) { window->progbarSet(total, done); });
}

bool NEWS::userDel(unsigned long index) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr || index >= fQueue->size())
        return false;
    if (index == 0) {
        // The running request stops at its next check of the cancel hook.
        fCancel = true;
        return true;
    }
    _removeLocked(index);
    _postLocked("nalc");
    return true;
}

bool NEWS::userDelAll() {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr || fQueue->empty())
        return false;
    fCancel = true;
    bool removed = fQueue->size() > 1;
    while (fQueue->size() > 1)
        _removeLocked(fQueue->size() - 1);
    if (removed)
        _postLocked("nalc");
    return true;
}

bool NEWS::userMoveUp(unsigned long index) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr || index < 2 || index >= fQueue->size())
        return false;
    std::swap((*fQueue)[index], (*fQueue)[index - 1]);
    _postLocked("nalu");
    return true;
}

bool NEWS::userMoveDown(unsigned long index) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr || index < 1 || index + 1 >= fQueue->size())
        return false;
    std::swap((*fQueue)[index], (*fQueue)[index + 1]);
    _postLocked("nald");
    return true;
}

bool NEWS::_dropServerLocked(long long server) {
    bool removed = false;
    for (size_t i = fQueue != nullptr ? fQueue->size() : 0; i-- > 1;) {
        if ((*fQueue)[i].server == server) {
            _removeLocked(i);
            removed = true;
        }
    }
    if (removed)
        _postLocked("nalc");
    return removed;
}

// --- The window ---

void NEWS::windowOpenerSet(NEWSPROGRESS::OPENER *opener) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    _windowCloseLocked();
    fOpener = opener;
}

void NEWS::windowClosed() {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    fWindow = nullptr;
    fWindowWanted = false;
}

void NEWS::windowStrGet(NEWSPROGRESS::VIEWSTRINGNUM line, char *buffer, size_t size) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    STR::copy(buffer, line < NEWSPROGRESS::kLineCount ? fStatus[line] : "", size);
}

void NEWS::progbarGet(double *total, double *done) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    *total = fTotal;
    *done = fDone;
}

unsigned long NEWS::errorCount() {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    return fErrors;
}

long long NEWS::serverConnected() {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    return fServer;
}

// --- Calling out ---
// The window, its opener and the alerts are called with the queue's lock left, so one that
// answers on the interface thread (which may itself be waiting for the queue) cannot
// deadlock the two. Calls made under the lock wait in order; the outermost CALLOUT of a
// thread runs them, one thread at a time, in that order. A thread that finds another one
// running them leaves its calls to it, rather than wait (the other may be waiting on it).

thread_local int NEWS::CALLOUT::tDepth = 0;

NEWS::CALLOUT::~CALLOUT() {
    if (--tDepth == 0)
        fNews->_callsRun();
}

void NEWS::_callLocked(std::function<void()> call) {
    fCalls.push_back(std::move(call));
}

void NEWS::_windowCallLocked(std::function<void(NEWSPROGRESS *)> call) {
    if (!fWindowWanted)
        return;
    _callLocked([this, call = std::move(call)] {
        NEWSPROGRESS *window;
        {
            CRITSECT_HOLD hold(fLock);
            window = fWindow;
        }
        if (window != nullptr)
            call(window);
    });
}

void NEWS::_callsRun() {
    for (;;) {
        if (fCalling.exchange(true))
            return;
        std::vector<std::function<void()>> calls;
        {
            CRITSECT_HOLD hold(fLock);
            calls.swap(fCalls);
            if (calls.empty()) {
                // Cleared under the lock: a call queued from now on sees no one running.
                fCalling = false;
                return;
            }
        }
        // A call may queue more (the window asking the queue back): they run next.
        ++CALLOUT::tDepth;
        for (const auto &call : calls)
            call();
        --CALLOUT::tDepth;
        fCalling = false;
    }
}

void NEWS::_postLocked(const char (&code)[5]) {
    const uint32_t what = fourcc(code);
    _windowCallLocked([what](NEWSPROGRESS *window) { window->post(MESSAGE(what)); });
}

void NEWS::_windowOpenLocked() {
    if (fWindowWanted || fOpener == nullptr)
        return;
    fWindowWanted = true;
    for (auto &line : fStatus)
        line[0] = 0;
    NEWSPROGRESS::OPENER *opener = fOpener;
    _callLocked([this, opener] {
        NEWSPROGRESS *window = opener->open();
        CRITSECT_HOLD hold(fLock);
        if (fWindowWanted && fOpener == opener)
            fWindow = window;
        else if (window != nullptr)
            _callLocked([opener, window] { opener->close(window); });
    });
    for (uint32_t line = 0; line < NEWSPROGRESS::kLineCount; ++line)
        _windowCallLocked([line](NEWSPROGRESS *window) {
            window->progressStr(NEWSPROGRESS::VIEWSTRINGNUM(line));
        });
    _windowCallLocked([this](NEWSPROGRESS *window) {
        double total, done;
        progbarGet(&total, &done);
        window->progbarSet(total, done);
    });
}

void NEWS::_windowCloseLocked() {
    if (!fWindowWanted)
        return;
    fWindowWanted = false;
    NEWSPROGRESS::OPENER *opener = fOpener;
    _callLocked([this, opener] {
        NEWSPROGRESS *window;
        {
            CRITSECT_HOLD hold(fLock);
            window = fWindow;
            fWindow = nullptr;
        }
        if (window != nullptr && opener != nullptr)
            opener->close(window);
    });
}

void NEWS::windowStr(NEWSPROGRESS::VIEWSTRINGNUM line, const char *format, ...) {
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(fStatus[line], sizeof fStatus[line], format, arguments);
    va_end(arguments);
    _windowCallLocked([line](NEWSPROGRESS *window) { window->progressStr(line); });
}

void NEWS::_progbarStepLocked(double units) {
    double add = std::min(units, fRequestWeight - fRequestUnits);
    if (add <= 0)
        return;
    fRequestUnits += add;
    fDone += add;
    _windowCallLocked([add](NEWSPROGRESS *window) { window->progbarInc(add); });
}

// --- The session's hooks ---

void NEWS::error(const char *text) {
    CALLOUT callout(&news);
    CRITSECT_HOLD hold(news.fLock);
    news._windowOpenLocked();
    if (!news.fWindowWanted)
        return;
    ++news.fErrors;
    std::string copy = text;
    news._windowCallLocked([copy](NEWSPROGRESS *window) { window->error(copy.c_str()); });
}

bool NEWS::cancel() {
    if (!THREAD::running())
        news.fCancel = true;
    if (!news.fCancel)
        return false;
    if (!news.fCancelSeen.exchange(true))
        news.windowStr(NEWSPROGRESS::kLineAction, "%s", "Cancelling ...");
    return true;
}

void NEWS::progressTransfer(const NNTP::PROGRESS *progress) {
    news._progress(progress);
}

void NEWS::_progress(const NNTP::PROGRESS *progress) {
    bool doneChanged = progress->done != fLastDone;
    fLastDone = progress->done;
    int64_t now = TIMEBASE::tickCount();
    bool text = now - fLastText >= kTextInterval;
    if (progress->kind == kOverview) {
        if (text) {
            fLastText = now;
            windowStr(NEWSPROGRESS::kLineProgress, "Getting overview data line %lu",
                      (unsigned long)progress->lines);
        }
        return;
    }
    if (progress->total > 1 && progress->done >= 2 && doneChanged) {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        _progbarStepLocked(weightQueued(ACTIONTYPE(progress->kind)) / progress->total);
    }
    if (!text)
        return;
    fLastText = now;
    if (progress->done == 0) {
        windowStr(NEWSPROGRESS::kLineProgress, "%s",
                  progress->bodies ? "No messages" : "No headers");
        return;
    }
    char line[kStatusMax + 1];
    snprintf(line, sizeof line, "%s %s %lu of %lu",
             progress->kind == kUpload ? "Sending" : "Getting",
             progress->bodies ? "message" : "header", (unsigned long)progress->done,
             (unsigned long)progress->total);
    if (!doneChanged && progress->bodyLines > 99) {
        size_t length = strlen(line);
        snprintf(line + length, sizeof line - length, " line %lu",
                 (unsigned long)progress->bodyLines);
    }
    windowStr(NEWSPROGRESS::kLineProgress, "%s", line);
}

void NEWS::progressList(const NNTP::PROGRESS *progress) {
    {
        CALLOUT callout(&news);
        CRITSECT_HOLD hold(news.fLock);
        news._progbarStepLocked(weightStep(kGroupList));
    }
    int64_t now = TIMEBASE::tickCount();
    if (now - news.fLastText < kTextInterval)
        return;
    news.fLastText = now;
    news.windowStr(NEWSPROGRESS::kLineGroup, "%s", progress->text);
    news.windowStr(NEWSPROGRESS::kLineProgress, "Getting newsgroup %lu",
                   (unsigned long)progress->done);
}

// --- The transfer thread ---

void NEWS::daemon() {
    fBusy = true;
    bool did = false;
    REQUEST request;
    bool have = false;
    {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        if (fQueue != nullptr && !fQueue->empty()) {
            request = fQueue->front();
            have = true;
        }
    }
    BARN::NODE server{};
    BARN::NODE group{};
    if (have) {
        char text[NNTP::kCallbackTextMax + 64];
        const char *missing = nullptr;
        if (!barn.nodeRead(&server, request.server))
            missing = "Server with node number %lld cannot be found.";
        else if (request.group != BARN::kNodeNone && !barn.nodeRead(&group, request.group))
            missing = "Newsgroup with node number %lld cannot be found.";
        if (missing != nullptr) {
            char message[NNTP::kCallbackTextMax + 1];
            snprintf(message, sizeof message, missing,
                     missing[0] == 'S' ? (long long)request.server : (long long)request.group);
            NNTP::logFmtError(text, sizeof text, message);
            error(text);
            // The node has gone for good: left at the head, the request would fail on every
            // call, so it is dropped as a failed one.
            CALLOUT callout(this);
            CRITSECT_HOLD hold(fLock);
            if (fQueue != nullptr && !fQueue->empty() && requestEqual(fQueue->front(), request)) {
                _removeLocked(0);
                _postLocked("nalf");
            }
            have = false;
            did = true;
        }
    }

    bool transferStart = SETTINGS::progressWindow.transferStart;
    {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        int64_t now = TIMEBASE::tickCount();
        if (!have && fEmptyTime != 0 && now - fEmptyTime >= SETTINGS::progressWindow.delay) {
            if (transferStart)
                _windowCloseLocked();
            fEmptyTime = 0;
        }
        if (have && fSession == nullptr && transferStart)
            _windowOpenLocked();
    }

    if (fSession != nullptr && (!have || request.server != fServer)) {
        serverDisconnect();
        did = true;
    }

    bool stopping = !THREAD::running();
    if (have && fSession == nullptr && !stopping) {
        fCancel = false;
        fCancelSeen = false;
        did = true;
        if (!serverConnect(&server)) {
            CALLOUT callout(this);
            CRITSECT_HOLD hold(fLock);
            _dropServerLocked(request.server);
            if (fQueue != nullptr && !fQueue->empty() && requestEqual(fQueue->front(), request)) {
                _removeLocked(0);
                _postLocked("nalf");
            }
        }
    }

    if (have && fSession != nullptr && !stopping) {
        fCancel = false;
        fCancelSeen = false;
        did = true;
        bool ok = execute(request, &server, request.group != BARN::kNodeNone ? &group : nullptr);
        {
            CALLOUT callout(this);
            CRITSECT_HOLD hold(fLock);
            if (!ok)
                _dropServerLocked(request.server);
            if (fQueue != nullptr && !fQueue->empty() && requestEqual(fQueue->front(), request)) {
                fQueue->erase(fQueue->begin());
                _postLocked("nalf");
            }
        }
        // A cancel or a time-out leaves the session unable to send; the next request of
        // this server starts on a new connection.
        if (fSession->aborted())
            serverDisconnect();
        fCancel = false;
        fCancelSeen = false;
    }

    std::string finished;
    if (did) {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        if (fQueue != nullptr && fQueue->empty() && fSession == nullptr) {
            if (fErrors > 0) {
                fErrors = 0;
                _callLocked([] { ALERT::show(kErrorsText); });
            } else {
                fEmptyTime = TIMEBASE::tickCount();
            }
            finished = fSummary.text();
            fSummary.clear();
        }
    }
    // Told after the queue's lock is left: the listener may post to a window.
    if (FINISHEDFUNC tell = fFinished.load(); tell != nullptr && !finished.empty())
        tell(finished.c_str());
    fBusy = false;
}

bool NEWS::serverConnect(const BARN::NODE *server) {
    windowStr(NEWSPROGRESS::kLineServer, "%s (%s)", server->name, server->server.hostname);
    NNTP *session = new NNTP(server, &NEWS::error, &NEWS::cancel);
    bool ok = true;
    if (NETWORK::inetAddr(server->server.hostname) == 0) {
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Looking up DNS name ...");
        ok = session->dnsLookup();
    }
    if (ok) {
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Connecting to server ...");
        ok = session->connect();
    }
    if (ok && server->server.login) {
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Logging in to server ...");
        ok = session->login();
    }
    if (ok) {
        ok = session->compress();
    }
    if (!ok) {
        delete session;
        return false;
    }
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    fSession = session;
    fServer = server->number;
    return true;
}

void NEWS::serverDisconnect() {
    windowStr(NEWSPROGRESS::kLineAction, "%s", "Disconnecting ...");
    windowStr(NEWSPROGRESS::kLineGroup, "%s", "");
    windowStr(NEWSPROGRESS::kLineProgress, "%s", "");
    NNTP *session;
    {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        session = fSession;
        fSession = nullptr;
        fServer = BARN::kNodeNone;
    }
    delete session; // QUIT unless aborted
    windowStr(NEWSPROGRESS::kLineAction, "%s", "Finished.");
}

bool NEWS::execute(const REQUEST &request, BARN::NODE *server, BARN::NODE *group) {
    {
        CALLOUT callout(this);
        CRITSECT_HOLD hold(fLock);
        fRequestWeight = weightQueued(request.action);
        fRequestUnits = 0;
        fLastDone = 0;
        fLastText = 0;
    }
    const char *groupName = group != nullptr ? group->name : "";
    bool ok = false;
    switch (request.action) {
    case kCatchup:
        if (group == nullptr)
            break;
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Catch-up");
        windowStr(NEWSPROGRESS::kLineGroup, "%s", groupName);
        windowStr(NEWSPROGRESS::kLineProgress, "%s", "Working ...");
        ok = fSession->catchup(group, nullptr, kCatchup);
        break;
    case kDownloadMessages:
    case kDownloadHeaders: {
        if (group == nullptr)
            break;
        bool messages = request.action == kDownloadMessages;
        windowStr(NEWSPROGRESS::kLineAction, "%s",
                  messages ? "Downloading messages" : "Downloading headers");
        windowStr(NEWSPROGRESS::kLineGroup, "%s", groupName);
        windowStr(NEWSPROGRESS::kLineProgress, "%s", messages ? "No messages" : "No headers");
        uint32_t unreadBefore = group->unread;
        ok = fSession->download(group, &NEWS::progressTransfer, kOverview, request.action);
        BARN::NODE after;
        if (barn.nodeRead(&after, group->number) && after.unread > unreadBefore)
            fSummary.add(groupName, after.unread - unreadBefore);
        break;
    }
    case kDownloadBody:
    case kDownloadMarked:
        if (group == nullptr)
            break;
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Downloading messages");
        windowStr(NEWSPROGRESS::kLineGroup, "%s", groupName);
        windowStr(NEWSPROGRESS::kLineProgress, "%s", "No messages");
        ok = fSession->downloadBodies(group, &NEWS::progressTransfer, request.action,
                                      request.action == kDownloadBody ? request.fileName : "");
        break;
    case kGroupList: {
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Getting newsgroup list");
        NNTP::NAMELIST names;
        names.reserve(kGroupListRoom);
        ok = fSession->groupList(&names, &NEWS::progressList, kGroupList);
        if (ok) {
            windowStr(NEWSPROGRESS::kLineAction, "%s", "Writing newsgroup list");
            ok = BARNFILE::slistWrite(server->number, &names);
        }
        BARNFILE::slistClear(&names);
        break;
    }
    case kUpload:
        windowStr(NEWSPROGRESS::kLineAction, "%s", "Uploading messages");
        windowStr(NEWSPROGRESS::kLineGroup, "%s", "None");
        windowStr(NEWSPROGRESS::kLineProgress, "%s", "No messages");
        ok = fSession->upload(&NEWS::progressTransfer, kUpload);
        break;
    default:
        break;
    }
    // Every request ends with exactly its weight on the bar.
    CALLOUT callout(this);
    CRITSECT_HOLD hold(fLock);
    _progbarStepLocked(fRequestWeight - fRequestUnits);
    return ok;
}
