// TLS on a connected socket: the handshake, the judgement of the certificate, the stream.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "net/NETLAYER.h"

struct ssl_st;
struct ssl_ctx_st;

// Implicit TLS as news servers offer it on port 563. The certificate is checked against the
// system's trust store (or the file named by SSL_CERT_FILE) and the host name; one the store
// does not trust is still accepted when its SHA-256 fingerprint is the one the user chose to
// trust for this server. Nothing is sent to the server before that decision: the caller reads
// the greeting only after the handshake returned kOk.
class NETTLS : public NETLAYER {
public:
    using RESULT = NETWORK::TLSINFO;
    using VERDICT = NETWORK::TLSINFO::VERDICT;

    ~NETTLS() override;

    // The handshake on a connected socket, which it leaves non-blocking. host names the
    // server for SNI and the name check (a dotted quad is checked as an address); pinned is
    // the fingerprint the user trusts for this server, or empty. kOk with *layer set when
    // the certificate is trusted or pinned; kCancelled, kTimedOut, kClosed, kTlsFailed, or
    // the certificate's error (see verdictError) otherwise, with *result filled as far as
    // the handshake got.
    static NETWORK::ERROR handshake(int fd, const char *host, const char *pinned, int64_t timeout,
                                    NETWORK::CANCEL cancel, std::unique_ptr<NETLAYER> *layer,
                                    RESULT *result);
    // The network error of a certificate that was not accepted.
    static NETWORK::ERROR verdictError(VERDICT verdict);

    NETWORK::ERROR read(void *buffer, size_t size, size_t *received) override;
    NETWORK::ERROR write(const void *data, size_t length) override;
    void shutdown() override;

private:
    NETTLS(int fd, ssl_ctx_st *context, ssl_st *ssl, int64_t writeTimeout)
        : fFd(fd), fContext(context), fSsl(ssl), fWriteTimeout(writeTimeout) {}

    int fFd;
    ssl_ctx_st *fContext;
    ssl_st *fSsl;
    int64_t fWriteTimeout;
};
