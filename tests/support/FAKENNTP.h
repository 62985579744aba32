// A scripted news server on a loopback port for protocol tests: plays lines, records the client.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

struct ssl_st;
struct ssl_ctx_st;

// The script is a list of steps, one per line:
//   "S: text"   send text and CR LF
//   "B: bytes"  send bytes as written, with \r \n \0 \\ and \xNN escapes (no CR LF added)
//   "L: n c"    send a line of n copies of the character c, then CR LF
//   "C: text"   read one client line (up to LF, CR LF removed) and compare; "C: *" takes any
//   "P: ms"     pause this many milliseconds
//   "H"         hang: send nothing until the client closes or the server is stopped
//   "X"         close the connection; the next step first accepts a new one
//   "T"         answer a TLS handshake with the certificate of tls(); the steps after it run
//               over TLS, and received() records what the client sent inside it
// The first step accepts the first connection. After the last step the connection is kept
// open and read until the client closes it, so a final QUIT is recorded too.
class FAKENNTP {
public:
    FAKENNTP();
    ~FAKENNTP();
    FAKENNTP(const FAKENNTP &) = delete;
    FAKENNTP &operator=(const FAKENNTP &) = delete;

    // The loopback port the server listens on (chosen by the system).
    uint16_t port() const { return fPort; }
    // Starts playing on a thread of its own. Steps separated by '\n'.
    void play(const std::string &script);
    // The certificate and key files a "T" step presents.
    void tls(const std::string &certFile, const std::string &keyFile);
    // Waits until the script has ended and the client has closed; false on time-out.
    bool wait(int64_t timeoutMicros = 10'000'000);
    // Ends the play at once (pauses and hangs included) and closes everything.
    void stop();

    // Every byte the client sent, across all connections, in order.
    std::string received();
    // Empty, or what went wrong: a "C:" line that differed, a bad step, a client that
    // did not send in time.
    std::string error();
    // Connections accepted so far.
    int connections() const { return fConnections.load(); }

    // A loopback port with nothing listening on it: bound, then released at once.
    static uint16_t closedPort();

private:
    void _run(std::vector<std::string> steps);
    bool _accept();
    void _closeClient();
    bool _sendAll(const std::string &bytes);
    // Reads one line from the client; false when it closed, the time-out passed or stop.
    bool _readLine(std::string *line);
    // Reads and records whatever the client sends until it closes or stop.
    void _drain();
    // Waits up to millis for the client socket to be readable; false on stop.
    bool _waitReadable(int millis, bool *ready);
    void _fail(const std::string &text);
    bool _tlsAccept();
    // One receive from the client, through TLS after a "T" step.
    long _recv(char *buffer, size_t size);

    int fListen = -1;
    int fClient = -1;
    uint16_t fPort = 0;
    std::thread fThread;
    std::atomic<bool> fStop{false};
    std::atomic<int> fConnections{0};
    std::mutex fMutex;
    std::condition_variable fDone;
    bool fFinished = false;
    std::string fReceived;
    std::string fPending; // received bytes not yet taken by a "C:" step
    std::string fError;
    std::string fCertFile;
    std::string fKeyFile;
    ssl_ctx_st *fContext = nullptr;
    ssl_st *fSsl = nullptr;
};
