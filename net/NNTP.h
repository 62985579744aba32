// One client session with one news server: connect, log in, exchange lines, the transfer log.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "base/CRITSECT.h"
#include "base/TEXTFILE.h"
#include "base/TIMEX.h"
#include "net/INDEXRANGE.h"
#include "net/NETWORK.h"
#include "storage/BARN.h"

// Created by the transfer thread for one server and destroyed when it moves on. Every public
// operation holds the session lock for its whole run; cancel() does not, so another thread
// may ask for a stop while an operation waits. Failures are error lines: written to the
// transfer log and handed to the error callback. The download and posting operations are
// further members of this class, kept in files of their own.
class NNTP {
public:
    using ERRORFUNC = void (*)(const char *text);
    using CANCELFUNC = bool (*)();

    // What the progress callback sees; zeroed at the start of each operation.
    struct PROGRESS {
        uint32_t kind;
        uint32_t done;
        uint32_t lines;
        uint32_t bodyLines;
        uint32_t total;
        bool bodies;
        char text[1003];
    };
    static_assert(sizeof(PROGRESS) == 1024, "the progress record is 1024 bytes");
    using PROGRESSFUNC = void (*)(const PROGRESS *progress);

    enum LOGTYPE : uint32_t {
        kLogSeparator = 0,
        kLogError = 1,
        kLogStatus = 2,
        kLogDetail = 3,
        kLogReceived = 4,
        kLogSent = 5,
    };

    // One line of the posting header table: a complete header line and whether the post
    // being sent has already sent it.
    struct HEADER {
        std::string line;
        bool sent = false;
    };

    static constexpr unsigned long kCommandMax = 1019;  // a command line without CR LF
    static constexpr unsigned long kResponseSize = 500; // response() without a caller line
    static constexpr size_t kCodeWordMax = 71;          // the status code's word is cut here
    static constexpr unsigned long kReceiveBuffer = 4096;
    static constexpr size_t kLogLineMax = 1024;     // one log entry, wrapping included
    static constexpr size_t kLogWidth = 78;         // log lines wrap at this column
    static constexpr size_t kLogIndent = 21;        // under the text after the time stamp
    static constexpr size_t kLogBuffer = 16384;     // the log file's write buffer
    static constexpr size_t kCallbackTextMax = 249; // an error's text for the callback
    static constexpr uint32_t kLogMode = 0600;      // the log may hold server names and users
    static constexpr const char *kPasswordCommand = "AUTHINFO PASS ";
    static constexpr const char *kPasswordMasked = "AUTHINFO PASS ********";

    // Copies the server node and opens the transfer log (the TransferLogging setting at this
    // moment decides its level). error and cancel may be null.
    NNTP(const BARN::NODE *server, ERRORFUNC error, CANCELFUNC cancel);
    // Disconnects (QUIT unless aborted), then closes the log.
    ~NNTP();
    NNTP(const NNTP &) = delete;
    NNTP &operator=(const NNTP &) = delete;

    // Resolves the server's host name; needed only when it is not a dotted quad.
    bool dnsLookup();
    // Opens the connection (with TLS first when the server's Security says so; an untrusted
    // certificate is refused and the user asked whether to trust it) and accepts a greeting
    // from 100 to 399 (posting or not).
    bool connect();
    // AUTHINFO USER and PASS with the server's user name and password.
    bool login();
    // Compresses the rest of the session when the server's Compress setting allows it and
    // the server offers COMPRESS DEFLATE. A server without it is not an error; false only
    // when the connection failed.
    bool compress();
    // QUIT (unless aborted), close, "Total connect time". Safe when not connected; clears
    // the aborted flag in every case.
    void disconnect();
    // Sends one command line (cut to kCommandMax) with CR LF. A closed connection frees the
    // connection record and fails without a message. A command awaits its status line in
    // response(); lines of an article being posted are sent as data, not commands.
    bool send(const char *line, bool command = true);
    // Receives one line. A cancel sets the aborted flag and still returns true with what
    // arrived, so the caller's response check fails without a message.
    bool read(char *line, unsigned long size);
    // Reads a status line and returns its code, or 0 for a failed read, an invalid line or
    // (when report is set) a refusal from 400 on, which is then reported with verb in the
    // text. hints adds the clock and network advice to a refusal. line may be null. A 480
    // (login wanted) makes the session log in and send the command again, once, with the
    // commands sent after it; without a login, or when the server asks again, it fails with
    // an error naming the server.
    unsigned long response(const char *verb, bool report, char *line = nullptr,
                           unsigned long size = 0, bool hints = false);
    static bool success(unsigned long code) { return code >= 100 && code < 400; }
    // Asks the cancel hook; a yes also sets the aborted flag.
    bool cancel();
    bool aborted() const { return fAborted; }
    bool connected() const { return fConn != nullptr; }
    uint32_t address() const { return fAddress; }

    // --- The transfer log ---
    void logOpen();
    void logClose();
    void logWrite(LOGTYPE type, const char *format, ...) __attribute__((format(printf, 3, 4)));
    // The log form of a sent or received line: time stamp, two spaces, "S: " or "R: ", line.
    static void logFmtTransfer(char *out, size_t size, LOGTYPE type, const char *line);
    // The error callback's form: time, two spaces, the text cut to kCallbackTextMax with
    // every line feed made a space.
    static void logFmtError(char *out, size_t size, const char *text);
    // A stamped (kinds 1, 2) or indented (kind 3) entry, wrapped at kLogWidth with
    // continuation lines indented by kLogIndent; LF ends the entry. Exposed for the tests.
    static void logFmtWrapped(char *out, size_t size, const char *stamp, const char *text);

    // --- Program-wide start and stop: the posting header table ---
    static bool start();
    static void stop();
    static bool hdrStart();
    static void hdrStop();
    static void hdrClear();
    // The table between start and stop, null otherwise; filled once while the program
    // starts and only read (sent flags aside) by posting on the transfer thread.
    static std::vector<HEADER> *headerTable() { return fHeaders; }

    // ---- Downloading, newsgroup lists and posting (NNTPDOWNLOAD.cpp, NNTPBODIES.cpp,
    // NNTPPOST.cpp). Each public operation below holds the session lock for its whole run
    // and keeps the group and the progress callback only while it runs. ----
    using KILLLIST = std::vector<uint32_t>;            // article numbers, ascending
    using NAMELIST = std::vector<std::string>;         // the newsgroup names of LIST
    static constexpr unsigned long kInFlightMax = 10;  // commands outstanding at once
    static constexpr unsigned long kInFlightRound = 2; // new commands per round
    static constexpr uint32_t kRenumberSlack = 40;     // a saved last this far past the
                                                       // server's last means renumbered
    static constexpr unsigned long kLineSize = 1001;   // a received line and its NUL
    static constexpr size_t kOverviewNumberMax = 10;   // digits of an overview number
    static constexpr size_t kUploadLineMax = 1009;     // a line read from an Outbox file
    static constexpr size_t kUploadBuffer = 2048;      // the Outbox file's read buffer

    // Brings the group up to date: new headers (HeadersOnly) or whole articles, the killfile
    // applied through overview data when the user wants that, the new range saved in the
    // group. Articles stored before a cancel or a failure stay, and the saved range never
    // passes an article that was not handled. False for a failed GROUP, read, send or save.
    bool download(BARN::NODE *group, PROGRESSFUNC progress, long overviewKind, long articleKind);
    // Bodies of the group's messages marked for download, or of the one named file.
    bool downloadBodies(BARN::NODE *group, PROGRESSFUNC progress, long kind, const char *fileName);
    // Marks every article the server has now as seen, without fetching any.
    bool catchup(BARN::NODE *group, PROGRESSFUNC progress, long kind);
    // The valid group names of LIST, in the server's order.
    bool groupList(NAMELIST *names, PROGRESSFUNC progress, long kind);
    // Posts every Outbox message that names this server and hands it to "Sent Messages".
    bool upload(PROGRESSFUNC progress, long kind);

    // The steps, public for the tests.
    bool groupSelect(BARN::NODE *group, INDEXRANGE *serverRange, unsigned long *count);
    // GROUP, then the wanted range; group's saved range is updated in memory only.
    bool downloadSetup(BARN::NODE *group, INDEXRANGE *wanted);
    // What to fetch from the saved range, the server's range and count; both ranges are
    // brought to their new values. wanted is {0, 0} when nothing is to be fetched.
    static void downloadRange(INDEXRANGE *saved, INDEXRANGE *server, unsigned long count,
                              INDEXRANGE *wanted);
    bool downloadXOVER(const INDEXRANGE *wanted, KILLLIST *killList);
    static void overAdd(KILLLIST *killList, const char *line);
    static bool overKilled(const KILLLIST *killList, unsigned long number);
    static void overClear(KILLLIST *killList);
    bool downloadLoop(INDEXRANGE *wanted, unsigned long *lastDone, const KILLLIST *killList);
    bool downloadCmd(unsigned long number);
    bool downloadFile();
    unsigned long groupMarkedTotal();
    bool bodyCallback(const char *path);
    bool uploadFile(const char *path);
    bool uploadSend(TEXTFILE *file, bool *accepted);
    bool uploadSendHdr();
    // The posting header table: lines sorted by header name (ASCII case ignored).
    static bool hdrAdd(const char *line);
    static void hdrListClear();
    // Whether a header line of the article being posted goes out as it is.
    static bool hdrSent(const char *line);
    static int hdrComp(const char *a, const char *b);

private:
    CANCELFUNC fCancel;
    NETWORK::CONNECT *fConn = nullptr;
    TIMEX fConnectStart;
    CRITSECT fLock;
    ERRORFUNC fError;
    BARN::NODE *fGroup = nullptr;
    uint32_t fAddress = 0;
    bool fKillDuringDownload = false;
    TEXTFILE fLog{kLogBuffer};
    uint32_t fLogLevel = 0;
    PROGRESS fProgress{};
    PROGRESSFUNC fProgressFunc = nullptr;
    char fOverflow = 0;
    BARN::NODE fServer;
    std::atomic<bool> fAborted{false};
    // Commands sent whose status line has not been read yet, oldest first.
    std::deque<std::string> fOutstanding;
    bool fLoggingInAgain = false;

    unsigned long _statusLine(const char *verb, bool report, char *line, unsigned long size,
                              bool hints);
    unsigned long _loginAgain(const std::string &command, const char *verb, bool report, char *line,
                              unsigned long size, bool hints);
    bool _tlsStart();

    static std::vector<HEADER> *fHeaders;
};
