// Compression of a connection's stream in both directions (COMPRESS DEFLATE).
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <zlib.h>

#include "net/NETLAYER.h"

// Raw deflate over the layer below, for the rest of the connection. Reading inflates into the
// caller's buffer and holds at most one input block of its own, so a server cannot make it
// hold more however well its data compresses; every write is flushed whole, so each command
// reaches the server at once.
class NETDEFLATE : public NETLAYER {
public:
    static constexpr size_t kInputBlock = 16384;

    // Bytes already received from below but not yet taken (compressed data that arrived
    // with the server's consent) are passed as pending.
    static std::unique_ptr<NETDEFLATE> create(std::unique_ptr<NETLAYER> below, const char *pending,
                                              size_t pendingLength);
    ~NETDEFLATE() override;

    NETWORK::ERROR read(void *buffer, size_t size, size_t *received) override;
    NETWORK::ERROR write(const void *data, size_t length) override;
    void shutdown() override { fBelow->shutdown(); }

    // Compressed bytes read from and written to the layer below.
    uint64_t wireReceived() const { return fWireReceived; }
    uint64_t wireSent() const { return fWireSent; }

private:
    explicit NETDEFLATE(std::unique_ptr<NETLAYER> below) : fBelow(std::move(below)) {}

    std::unique_ptr<NETLAYER> fBelow;
    z_stream fInflate{};
    z_stream fDeflate{};
    bool fInflateReady = false;
    bool fDeflateReady = false;
    unsigned char fInput[kInputBlock];
    uint64_t fWireReceived = 0;
    uint64_t fWireSent = 0;
};
