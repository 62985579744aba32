// TLS on a connected socket through OpenSSL: handshake with time-out and cancel, certificate
// verdict and fingerprint, and reading and writing without ever blocking the poll loop.
#include "net/NETTLS.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <poll.h>

#include "base/NETNAMES.h"
#include "base/TIMEBASE.h"

namespace {

// Where the handshake keeps the first problem verification met; later ones are consequences
// of it (an unknown issuer also makes the chain too short, and so on).
int firstErrorIndex() {
    static const int index = SSL_get_ex_new_index(0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

int keepFirstError(int preverified, X509_STORE_CTX *store) {
    if (!preverified) {
        SSL *ssl = static_cast<SSL *>(
            X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
        auto *first = static_cast<long *>(SSL_get_ex_data(ssl, firstErrorIndex()));
        if (first != nullptr && *first == X509_V_OK)
            *first = X509_STORE_CTX_get_error(store);
    }
    // The verdict is made after the handshake, where a pinned certificate can still pass.
    return 1;
}

NETTLS::VERDICT verdictOf(long error) {
    switch (error) {
    case X509_V_OK:
        return NETTLS::RESULT::kTrusted;
    case X509_V_ERR_CERT_HAS_EXPIRED:
    case X509_V_ERR_CERT_NOT_YET_VALID:
        return NETTLS::RESULT::kExpired;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
        return NETTLS::RESULT::kWrongName;
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
        return NETTLS::RESULT::kSelfSigned;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        return NETTLS::RESULT::kUnknownIssuer;
    default:
        return NETTLS::RESULT::kUntrusted;
    }
}

std::string fingerprintOf(X509 *certificate) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (certificate == nullptr || X509_digest(certificate, EVP_sha256(), digest, &length) != 1)
        return {};
    std::string text;
    for (unsigned int i = 0; i < length; ++i) {
        char pair[4];
        snprintf(pair, sizeof pair, i == 0 ? "%02X" : ":%02X", digest[i]);
        text += pair;
    }
    return text;
}

bool nonBlockingSet(int fd) {
    int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

// Waits one poll step for what OpenSSL asked for.
void pauseFor(int fd, int sslError) {
    pollfd watch{fd, short(sslError == SSL_ERROR_WANT_WRITE ? POLLOUT : POLLIN), 0};
    poll(&watch, 1, int(NETWORK::kPollMicros / 1000));
}

// A handshake or stream failure as a network error: the peer gone, or TLS itself.
NETWORK::ERROR failureOf(int sslError, NETWORK::ERROR protocolError) {
    if (sslError == SSL_ERROR_ZERO_RETURN)
        return NETWORK::kClosed;
    // OpenSSL 3 reports a peer that simply closed the socket as a protocol error.
    if (sslError == SSL_ERROR_SSL &&
        ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING)
        return NETWORK::kClosed;
    if (sslError == SSL_ERROR_SYSCALL) {
        // End of file without a TLS goodbye, or the socket failed.
        return errno == 0 ? NETWORK::kClosed : NETWORK::errorGet(protocolError);
    }
    return protocolError;
}

} // namespace

NETTLS::~NETTLS() {
    SSL_free(fSsl);
    SSL_CTX_free(fContext);
}

NETWORK::ERROR NETTLS::handshake(int fd, const char *host, const char *pinned, int64_t timeout,
                                 NETWORK::CANCEL cancel, std::unique_ptr<NETLAYER> *layer,
                                 RESULT *result) {
    layer->reset();
    *result = RESULT{};
    // A context per connection: it is cheap next to a session, and the trust store is read
    // as it is now.
    SSL_CTX *context = SSL_CTX_new(TLS_client_method());
    if (context == nullptr)
        return NETWORK::kNoMemory;
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_default_verify_paths(context);
    SSL_CTX_set_verify(context, SSL_VERIFY_NONE, keepFirstError);
    SSL *ssl = SSL_new(context);
    if (ssl == nullptr || !nonBlockingSet(fd) || SSL_set_fd(ssl, fd) != 1) {
        SSL_free(ssl);
        SSL_CTX_free(context);
        return NETWORK::kTlsFailed;
    }
    std::unique_ptr<NETTLS> session(new NETTLS(fd, context, ssl, timeout));
    long firstError = X509_V_OK;
    SSL_set_ex_data(ssl, firstErrorIndex(), &firstError);
    if (NETNAMES::inetAddr(host) != 0) {
        X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host);
    } else {
        SSL_set_tlsext_host_name(ssl, host);
        SSL_set1_host(ssl, host);
    }

    const int64_t begin = TIMEBASE::tickCount();
    for (;;) {
        ERR_clear_error();
        errno = 0;
        int done = SSL_connect(ssl);
        if (done == 1)
            break;
        int error = SSL_get_error(ssl, done);
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
            return failureOf(error, NETWORK::kTlsFailed);
        if (cancel != nullptr && cancel())
            return NETWORK::kCancelled;
        if (TIMEBASE::tickCount() - begin >= timeout)
            return NETWORK::kTimedOut;
        pauseFor(fd, error);
    }
    // A renegotiation later must not write into this function's frame.
    SSL_set_ex_data(ssl, firstErrorIndex(), nullptr);

    result->version = SSL_get_version(ssl);
    result->cipher = SSL_get_cipher_name(ssl);
    X509 *certificate = SSL_get1_peer_certificate(ssl);
    result->fingerprint = fingerprintOf(certificate);
    X509_free(certificate);
    if (certificate == nullptr)
        firstError = X509_V_ERR_UNSPECIFIED;
    else if (firstError == X509_V_OK)
        firstError = SSL_get_verify_result(ssl);
    result->verdict = verdictOf(firstError);
    if (result->verdict != RESULT::kTrusted && pinned != nullptr && pinned[0] != 0 &&
        result->fingerprint == pinned)
        result->verdict = RESULT::kPinned;
    if (result->verdict != RESULT::kTrusted && result->verdict != RESULT::kPinned)
        return verdictError(result->verdict);
    *layer = std::move(session);
    return NETWORK::kOk;
}

NETWORK::ERROR NETTLS::verdictError(VERDICT verdict) {
    switch (verdict) {
    case RESULT::kTrusted:
    case RESULT::kPinned:
        return NETWORK::kOk;
    case RESULT::kExpired:
        return NETWORK::kTlsExpired;
    case RESULT::kWrongName:
        return NETWORK::kTlsWrongName;
    case RESULT::kUnknownIssuer:
        return NETWORK::kTlsUnknownIssuer;
    case RESULT::kSelfSigned:
        return NETWORK::kTlsSelfSigned;
    case RESULT::kUntrusted:
        break;
    }
    return NETWORK::kTlsUntrusted;
}

NETWORK::ERROR NETTLS::read(void *buffer, size_t size, size_t *received) {
    *received = 0;
    ERR_clear_error();
    errno = 0;
    if (SSL_read_ex(fSsl, buffer, size, received) == 1)
        return NETWORK::kOk;
    int error = SSL_get_error(fSsl, 0);
    if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE)
        return NETWORK::kNoData;
    return failureOf(error, NETWORK::kReceive);
}

NETWORK::ERROR NETTLS::write(const void *data, size_t length) {
    const auto *bytes = static_cast<const char *>(data);
    const int64_t begin = TIMEBASE::tickCount();
    while (length > 0) {
        ERR_clear_error();
        errno = 0;
        size_t written = 0;
        if (SSL_write_ex(fSsl, bytes, length, &written) == 1) {
            bytes += written;
            length -= written;
            continue;
        }
        int error = SSL_get_error(fSsl, 0);
        if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE)
            return failureOf(error, NETWORK::kTransmit);
        if (TIMEBASE::tickCount() - begin >= fWriteTimeout)
            return NETWORK::kTimedOut;
        pauseFor(fFd, error);
    }
    return NETWORK::kOk;
}

void NETTLS::shutdown() {
    ERR_clear_error();
    SSL_shutdown(fSsl);
}
