// The program's only layer over sockets: connection records, name look-ups, line reception.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include "base/CRITSECT.h"
#include "base/NETNAMES.h"

// The program has one network layer, so its state and operations are all static. The host-name
// texts come from NETNAMES, so NETWORK::hostnameCheck and its kin read as one layer.
class NETLAYER;

class NETWORK : public NETNAMES {
public:
    // The network error enumeration; errorStr gives each value's fixed text.
    enum ERROR : uint32_t {
        kOk = 0,
        kAddressInUse = 1,
        kAddressUnavailable = 2,
        kAlreadyConnected = 3,
        kCancelled = 4,
        kClosed = 5,
        kRefused = 6,
        kSocketOpen = 7,
        kSocketClose = 8,
        kNoMemory = 9,
        kHardware = 10,
        kNotAvailable = 11,
        kNoData = 12,
        kReceive = 13,
        kTimedOut = 14,
        kTransmit = 15,
        // Secure connections, beyond the plain socket's errors.
        kTlsFailed = 16,
        kTlsExpired = 17,
        kTlsWrongName = 18,
        kTlsUnknownIssuer = 19,
        kTlsSelfSigned = 20,
        kTlsUntrusted = 21,
    };

    enum SOCKETTYPE : uint32_t {
        kDatagram = 1,
        kStream = 2,
    };

    // An IPv4 end point in host byte order; the first dotted-quad number is the top byte.
    struct ADDR {
        uint32_t address = 0;
        uint16_t port = 0;
    };

    // One socket. Owned by the connection list from open/accept until close.
    struct CONNECT {
        ADDR local;
        ADDR peer;
        uint32_t connected = 0;
        int32_t socket = -1;
        SOCKETTYPE type = kStream;
        uint32_t backlog = 0;
        char *buffer = nullptr;
        uint32_t count = 0;    // bytes in buffer not yet handed out
        uint32_t position = 0; // next byte to hand out
        uint32_t size = 0;
        CONNECT *next = nullptr;
        // TLS and compression, when the stream is more than the bare socket; owned.
        NETLAYER *layer = nullptr;
        // Bytes handed to the record's buffer, and how many of them crossed the wire (fewer
        // when the stream is compressed).
        uint64_t received = 0;
        uint64_t wireReceived = 0;
    };

    // What a TLS handshake found out about the server's certificate and the session.
    struct TLSINFO {
        enum VERDICT : uint32_t {
            kTrusted = 0,
            kPinned = 1,
            kExpired = 2,
            kWrongName = 3,
            kUnknownIssuer = 4,
            kSelfSigned = 5,
            kUntrusted = 6,
        };
        VERDICT verdict = kUntrusted;
        std::string fingerprint; // SHA-256 of the certificate, "AB:CD:...", empty without one
        std::string version;     // "TLSv1.3"
        std::string cipher;
    };

    // A cancel hook answers true when the user asked to stop; it may be null.
    using CANCEL = bool (*)();

    static constexpr uint32_t kBufferMin = 512;
    static constexpr uint32_t kBufferMax = 32768;
    static constexpr int64_t kPollMicros = 2'000; // the wait step of connect and receive
    static constexpr size_t kNameMax = 89;        // addrFind copies at most this much
    static constexpr size_t kReverseNameMax = 69; // reverse look-up result cut

    NETWORK() = delete;

    // Makes broken pipes harmless and allows connections. Returns the started flag.
    static bool start();
    // Closes every connection still open, then refuses new work until start.
    static void stop();
    static bool started();

    // Allocates and opens a record; *conn is null on any failure (nothing is left behind).
    static ERROR open(CONNECT **conn, unsigned long bufferSize, uint32_t localAddress,
                      uint16_t localPort, SOCKETTYPE type, uint16_t backlog);
    // Connects without blocking longer than timeout (microseconds); cancel is asked every 2 ms.
    static ERROR connect(CONNECT *conn, const ADDR *peer, int64_t timeout, CANCEL cancel);
    // One send call; a short write counts as success. 5 leaves the record unconnected.
    static ERROR send(CONNECT *conn, const ADDR *peer, const void *data, unsigned long length);
    // One receive of whatever is ready now; 12 when nothing is.
    static ERROR recv(CONNECT *conn, ADDR *from, void *buffer, unsigned long size,
                      unsigned long *received);
    // Exactly count bytes through the receive buffer.
    static ERROR recvBuf(CONNECT *conn, ADDR *from, void *dest, unsigned long count,
                         int64_t timeout, CANCEL cancel, unsigned long *received);
    // One line through the receive buffer; always terminated, *overflow set when cut.
    static ERROR recvLine(CONNECT *conn, ADDR *from, char *line, unsigned long size, char *overflow,
                          int64_t timeout, CANCEL cancel, unsigned long *length);
    // Puts TLS on a connected stream record: handshake and certificate check (see NETTLS);
    // host is the server's name, pinned the fingerprint the user trusts for it or empty.
    // result receives the verdict, the fingerprint, the version and the cipher.
    static ERROR tlsStart(CONNECT *conn, const char *host, const char *pinned, int64_t timeout,
                          CANCEL cancel, TLSINFO *result);
    // Compresses the rest of the stream both ways, right after the server agreed to it.
    static ERROR compressStart(CONNECT *conn, int64_t writeTimeout);
    // Bytes that crossed the wire for what the record received: fewer than conn->received
    // once the stream is compressed.
    static uint64_t wireReceived(const CONNECT *conn);
    // Disconnects, closes and frees the record; *conn becomes null. Safe with null.
    static ERROR close(CONNECT **conn);
    // Takes one waiting connection from a listening record.
    static ERROR accept(CONNECT *listener, CONNECT **conn, unsigned long bufferSize);
    // Broadcasting is never needed; kept for the record interface.
    static ERROR connectBroadcast(CONNECT *conn);
    // The record's invariants, including membership of the connection list.
    static bool connectValidate(const CONNECT *conn);
    // Number of records in the connection list.
    static size_t connectCount();

    // Name to address: "localhost" and dotted quads without the resolver. 2 when unknown.
    static ERROR addrFind(uint32_t *address, const char *name);
    // Address to name through the resolver, cut to kReverseNameMax characters.
    static ERROR addrFind(char *name, uint32_t address);
    static int addrCmp(const ADDR *a, const ADDR *b);
    // out must hold 22 bytes.
    static void addrStr(char *out, const ADDR *addr, bool padded);
    // The local address a new stream socket is bound to, 0 on failure.
    static uint32_t ipAddr();
    static const char *errorStr(ERROR error);
    // The current errno as an ERROR, or fallback when it belongs to no group.
    static ERROR errorGet(ERROR fallback);
    static ERROR errorMap(int number, ERROR fallback);

private:
    static std::atomic<bool> fStarted;
    static CRITSECT fLock;
    static CONNECT *fList;

    static ERROR _recordNew(CONNECT **conn, unsigned long bufferSize, SOCKETTYPE type);
    static ERROR _fill(CONNECT *conn, ADDR *from, int64_t timeout, CANCEL cancel);
    static void _listAdd(CONNECT *conn);
    static void _listRemove(CONNECT *conn);
    static bool _listHas(const CONNECT *conn);
    static ERROR _closeRecord(CONNECT *conn);
};
