// One client session with one news server: connect, log in, exchange lines, say goodbye.
#include "net/NNTP.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "base/ALERT.h"
#include "base/STR.h"
#include "base/TIMEBASE.h"
#include "net/NNTPOPERATION.h"

std::vector<NNTP::HEADER> *NNTP::fHeaders = nullptr;

namespace {

constexpr unsigned long kLoginWanted = 480;
constexpr unsigned long kCompressActive = 206;
constexpr unsigned long kCapabilitiesFollow = 101;

// Whether a command's answer with this code goes on with lines up to a lone ".".
bool multiLine(const std::string &command, unsigned long code) {
    std::string_view verb(command);
    verb = verb.substr(0, verb.find(' '));
    struct ROW {
        const char *verb;
        unsigned long code;
    };
    static const ROW kRows[] = {
        {"ARTICLE", 220},   {"HEAD", 221},         {"BODY", 222},      {"XOVER", 224},
        {"OVER", 224},      {"LIST", 215},         {"LISTGROUP", 211}, {"NEWNEWS", 230},
        {"NEWGROUPS", 231}, {"CAPABILITIES", 101}, {"HELP", 100},
    };
    for (const ROW &row : kRows)
        if (row.code == code && STR::iequal(verb, row.verb))
            return true;
    return false;
}

// Keeps the fingerprint the user chose to trust in the server's account file.
void certificatePin(long long server, const std::string &fingerprint) {
    BARN::NODE node{};
    if (!barn.nodeRead(&node, server) || node.type != NODETYPE::Server)
        return;
    STR::copy(node.server.fingerprint, fingerprint.c_str(), sizeof node.server.fingerprint);
    barn.nodeSave(&node);
}

} // namespace

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
    // Nothing is read or sent in the clear on a secure server, the greeting included.
    if (fServer.server.security == kSecurityTLS && !_tlsStart()) {
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

bool NNTP::_tlsStart() {
    logWrite(kLogStatus, "Starting a secure connection to server %s ...", fServer.name);
    NETWORK::TLSINFO info;
    NETWORK::ERROR error =
        NETWORK::tlsStart(fConn, fServer.server.hostname, fServer.server.fingerprint,
                          fServer.server.timeout, fCancel, &info);
    if (error == NETWORK::kOk) {
        logWrite(kLogStatus, "Secure connection: %s, %s", info.version.c_str(),
                 info.cipher.c_str());
        if (info.verdict == NETWORK::TLSINFO::kPinned)
            logWrite(kLogDetail, "Certificate trusted by its fingerprint %s",
                     info.fingerprint.c_str());
        return true;
    }
    if (error == NETWORK::kCancelled)
        return false;
    logWrite(kLogError, "Couldn't make a secure connection to server %s: %s", fServer.name,
             NETWORK::errorStr(error));
    if (info.fingerprint.empty())
        return false;
    // A certificate the trust store does not vouch for: the user may know it is the server's
    // own (a private server's self-signed certificate) and trust this one certificate.
    std::string text = std::string("The certificate of server ") + fServer.name +
                       " cannot be trusted: " + NETWORK::errorStr(error) +
                       ".\n\nSHA-256 fingerprint:\n" + info.fingerprint +
                       "\n\nTrust it only if you know this is the server's certificate. "
                       "A different certificate will be refused again.";
    long long server = fServer.number;
    std::string fingerprint = info.fingerprint;
    ALERT::ask(text, {"Trust This Certificate", "Cancel"}, [server, fingerprint](size_t choice) {
        if (choice == 0)
            certificatePin(server, fingerprint);
    });
    return false;
}

bool NNTP::compress() {
    CRITSECT_HOLD hold(fLock);
    if (!fServer.server.compress || fConn == nullptr)
        return fConn != nullptr;
    char line[kLineSize];
    if (!nntpop::command(this, "CAPABILITIES"))
        return false;
    unsigned long code = response("get capabilities from", false, line, sizeof line);
    if (code != kCapabilitiesFollow)
        return fConn != nullptr && !fAborted;
    bool offered = false;
    for (;;) {
        if (!read(line, sizeof line) || fAborted)
            return false;
        if (strcmp(line, ".") == 0)
            break;
        offered = offered || (STR::istarts(line, "COMPRESS ") &&
                              STR::ifind(line, " DEFLATE") != std::string_view::npos);
    }
    if (!offered)
        return true;
    if (!nntpop::command(this, "COMPRESS DEFLATE"))
        return false;
    code = response("compress the connection to", false, line, sizeof line);
    if (code != kCompressActive)
        return fConn != nullptr && !fAborted;
    NETWORK::ERROR error = NETWORK::compressStart(fConn, fServer.server.timeout);
    if (error != NETWORK::kOk) {
        logWrite(kLogError, "Couldn't compress the connection to server %s: %s", fServer.name,
                 NETWORK::errorStr(error));
        fAborted = true;
        return false;
    }
    logWrite(kLogStatus, "Compressing the connection to server %s", fServer.name);
    return true;
}

void NNTP::disconnect() {
    CRITSECT_HOLD hold(fLock);
    fOutstanding.clear();
    if (fConn != nullptr) {
        logWrite(kLogStatus, "%s", "Disconnecting ...");
        if (!fAborted && send("QUIT")) {
            response("disconnect from", false);
        }
        if (fConn != nullptr && NETWORK::wireReceived(fConn) != fConn->received) {
            logWrite(kLogStatus, "Received %llu bytes, %llu compressed on the wire",
                     (unsigned long long)fConn->received,
                     (unsigned long long)NETWORK::wireReceived(fConn));
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

bool NNTP::send(const char *line, bool command) {
    CRITSECT_HOLD hold(fLock);
    if (fConn == nullptr || fAborted) {
        return false;
    }
    if (command) {
        fOutstanding.emplace_back(line);
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
    std::string command;
    if (!fOutstanding.empty()) {
        command = std::move(fOutstanding.front());
        fOutstanding.pop_front();
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
    if (code == kLoginWanted && !command.empty()) {
        return _loginAgain(command, verb, report, line, size, hints);
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

unsigned long NNTP::_loginAgain(const std::string &command, const char *verb, bool report,
                                char *line, unsigned long size, bool hints) {
    const bool repeatable = command != "." && !STR::istarts(command, "AUTHINFO ");
    if (!fServer.server.login || !repeatable || fLoggingInAgain) {
        if (!fServer.server.login)
            logWrite(kLogError,
                     "Server %s asks for a login, but no user name and password are "
                     "set for it.\nResponse: %s",
                     fServer.name, line);
        else
            logWrite(kLogError, "Server %s still refuses after logging in again.\nResponse: %s",
                     fServer.name, line);
        return 0;
    }
    // Commands sent after this one are answered before a login can be: take their answers
    // and send them again after it, so the caller reads what it expects in its order.
    std::deque<std::string> later;
    later.swap(fOutstanding);
    for (const std::string &each : later) {
        char skipped[kLineSize];
        if (!read(skipped, sizeof skipped) || fAborted)
            return 0;
        if (!multiLine(each, nntpop::lineCode(skipped)))
            continue;
        do {
            if (!read(skipped, sizeof skipped) || fAborted)
                return 0;
        } while (strcmp(skipped, ".") != 0);
    }
    fLoggingInAgain = true;
    bool ok = login() && send(command.c_str());
    for (const std::string &each : later)
        ok = ok && send(each.c_str());
    unsigned long code = ok ? response(verb, report, line, size, hints) : 0;
    fLoggingInAgain = false;
    return code;
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
