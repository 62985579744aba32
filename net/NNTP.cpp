// One client session with one news server: connect, log in, exchange lines, say goodbye.
#include "net/NNTP.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/STR.h"
#include "base/TIMEBASE.h"

std::vector<NNTP::HEADER> *NNTP::fHeaders = nullptr;

NNTP::NNTP(const BARN::NODE *server, ERRORFUNC error, CANCELFUNC cancel)
    : fCancel(cancel), fConnectStart(0), fError(error), fServer(*server) {
    logOpen();
}

NNTP::~NNTP() {
    disconnect();
    logClose();
}

bool NNTP::dnsLookup() {
    CRITSECT_HOLD hold(fLock);
    const char *host = fServer.server.hostname;
    logWrite(kLogStatus, "Looking up IP address for DNS name %s ...", host);
    uint32_t address = 0;
    NETWORK::ERROR error = NETWORK::addrFind(&address, host);
    if (error != NETWORK::kOk) {
        logWrite(kLogError, "Couldn't get IP address for %s: %s", host, NETWORK::errorStr(error));
        logWrite(kLogSeparator, "%s", "");
        return false;
    }
    fAddress = address;
    char quad[16];
    NETWORK::inetStr(quad, address, false);
    logWrite(kLogStatus, "Found IP address: %s", quad);
    return true;
}

bool NNTP::connect() {
    CRITSECT_HOLD hold(fLock);
    disconnect();
    fConnectStart = TIMEBASE::timeGet();
    if (fAddress == 0) {
        fAddress = NETWORK::inetAddr(fServer.server.hostname);
    }
    fAborted = false;
    NETWORK::ERROR error = NETWORK::open(&fConn, kReceiveBuffer, 0, 0, NETWORK::kStream, 0);
    if (error != NETWORK::kOk) {
        logWrite(kLogError, "Couldn't open network socket: %s", NETWORK::errorStr(error));
        fAborted = true;
        return false;
    }
    logWrite(kLogStatus, "Connecting to server %s ...", fServer.name);
    NETWORK::ADDR peer{fAddress, fServer.server.port};
    error = NETWORK::connect(fConn, &peer, fServer.server.timeout, fCancel);
    if (error != NETWORK::kOk) {
        if (error != NETWORK::kCancelled) {
            logWrite(kLogError, "Couldn't connect to server %s: %s", fServer.name,
                     NETWORK::errorStr(error));
        }
        fAborted = true;
        return false;
    }
    // Both 200 (posting allowed) and 201 (no posting) are a greeting; the session does not
    // tell them apart.
    if (!success(response("connect to", true))) {
        fAborted = true;
        return false;
    }
    fConnectStart = TIMEBASE::timeGet();
    return true;
}

bool NNTP::login() {
    CRITSECT_HOLD hold(fLock);
    logWrite(kLogStatus, "%s", "Logging in ...");
    char command[kCommandMax + 1];
    snprintf(command, sizeof command, "AUTHINFO USER %s", fServer.server.username);
    if (!send(command) || !success(response("send username to", true))) {
        return false;
    }
    // The password goes out even after a 281 to the user name; deliberate, some servers
    // answer the user name with 281 and still expect the password.
    snprintf(command, sizeof command, "AUTHINFO PASS %s", fServer.server.password);
    return send(command) && success(response("log in to", true));
}

void NNTP::disconnect() {
    CRITSECT_HOLD hold(fLock);
    if (fConn != nullptr) {
        logWrite(kLogStatus, "%s", "Disconnecting ...");
        if (!fAborted && send("QUIT")) {
            response("disconnect from", false);
        }
        NETWORK::close(&fConn);
        int64_t elapsed = TIMEBASE::timeGet() - fConnectStart.usecs();
        fConnectStart = 0;
        char duration[TIMEBASE::kRunTextSize];
        TIMEBASE::runStr(duration, sizeof duration, elapsed, false);
        logWrite(kLogStatus, "Total connect time: %s", duration);
        logWrite(kLogSeparator, "%s", "");
    }
    fAborted = false;
}

bool NNTP::send(const char *line) {
    CRITSECT_HOLD hold(fLock);
    if (fConn == nullptr || fAborted) {
        return false;
    }
    fOverflow = 0;
    // The password never reaches the log in clear.
    bool password = strncmp(line, kPasswordCommand, strlen(kPasswordCommand)) == 0;
    logWrite(kLogSent, "%s", password ? kPasswordMasked : line);
    char wire[kCommandMax + 3];
    size_t length = STR::copy(wire, line, kCommandMax + 1);
    wire[length++] = '\r';
    wire[length++] = '\n';
    NETWORK::ERROR error = NETWORK::send(fConn, nullptr, wire, length);
    if (error == NETWORK::kClosed) {
        NETWORK::close(&fConn);
        return false;
    }
    if (error != NETWORK::kOk) {
        logWrite(kLogError, "Couldn't send data to server %s: %s", fServer.name,
                 NETWORK::errorStr(error));
        return false;
    }
    return true;
}

bool NNTP::read(char *line, unsigned long size) {
    CRITSECT_HOLD hold(fLock);
    if (size == 0) {
        return false;
    }
    line[0] = 0;
    if (fConn == nullptr) {
        logWrite(kLogError, "Couldn't get data from server %s: %s", fServer.name,
                 NETWORK::errorStr(NETWORK::kClosed));
        return false;
    }
    // The rest of an over-long line arrives as a line of its own; a leading blank makes it
    // look like a folded header line, so header parsing joins it back. Deliberate.
    char *into = line;
    unsigned long room = size;
    if (fOverflow != 0 && fOverflow != ' ' && size > 1) {
        line[0] = ' ';
        into = line + 1;
        room = size - 1;
    }
    unsigned long length = 0;
    NETWORK::ERROR error = NETWORK::recvLine(fConn, nullptr, into, room, &fOverflow,
                                             fServer.server.timeout, fCancel, &length);
    if (error == NETWORK::kOk) {
        logWrite(kLogReceived, "%s", line);
        return true;
    }
    if (error == NETWORK::kCancelled) {
        fAborted = true;
        return true;
    }
    logWrite(kLogError, "Couldn't get data from server %s: %s", fServer.name,
             NETWORK::errorStr(error));
    if (error == NETWORK::kTimedOut) {
        fAborted = true;
    }
    return false;
}

unsigned long NNTP::response(const char *verb, bool report, char *line, unsigned long size,
                             bool hints) {
    CRITSECT_HOLD hold(fLock);
    char own[kResponseSize];
    if (line == nullptr || size == 0) {
        line = own;
        size = sizeof own;
    }
    if (!read(line, size)) {
        return 0;
    }
    char word[kCodeWordMax + 1];
    const char *begin = line;
    while (*begin == ' ' || *begin == '\t') {
        ++begin;
    }
    size_t length = 0;
    while (begin[length] != 0 && begin[length] != ' ' && begin[length] != '\t' &&
           length < kCodeWordMax) {
        word[length] = begin[length];
        ++length;
    }
    word[length] = 0;
    unsigned long code = 0;
    for (const char *digit = word; *digit >= '0' && *digit <= '9' && code < 1000; ++digit) {
        code = code * 10 + unsigned(*digit - '0');
    }
    if (code < 100 || code > 599) {
        if (!fAborted) {
            logWrite(kLogError, "Server %s returned an invalid response: %s", fServer.name, line);
        }
        return 0;
    }
    if (code < 400 || !report) {
        return code;
    }
    logWrite(kLogError, "Couldn't %s server %s.\nResponse: %s", verb, fServer.name, line);
    if (hints) {
        if (STR::ifind(line, "date") != std::string_view::npos) {
            logWrite(kLogError, "%s",
                     "Your BeOS timezone setting is incorrect.  Check the help topic 'If you "
                     "have a problem' for more information.");
        }
        if (STR::ifind(line, "message") != std::string_view::npos) {
            logWrite(kLogError, "%s",
                     "Your BeOS network settings are incorrect.  Check the help topic 'If you "
                     "have a problem' for more information.");
        }
    }
    return 0;
}

bool NNTP::cancel() {
    if (fCancel != nullptr && fCancel()) {
        fAborted = true;
        return true;
    }
    return false;
}

bool NNTP::start() {
    return hdrStart();
}

void NNTP::stop() {
    hdrStop();
}

bool NNTP::hdrStart() {
    if (fHeaders == nullptr) {
        fHeaders = new (std::nothrow) std::vector<HEADER>;
    }
    return fHeaders != nullptr;
}

void NNTP::hdrStop() {
    delete fHeaders;
    fHeaders = nullptr;
}

void NNTP::hdrClear() {
    if (fHeaders != nullptr) {
        fHeaders->clear();
    }
}
