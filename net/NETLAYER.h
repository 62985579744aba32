// What carries a connection's bytes when a plain socket is not enough: TLS, compression.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "net/NETWORK.h"

// A connection record may hold a stack of layers; the top one is asked for every read and
// write, and each layer owns the one below it. Reads never wait, so the network layer keeps
// its own polling loop with its time-out and cancel hook; writes send everything or fail,
// waiting at most the layer's write time-out for the socket to take more.
class NETLAYER {
public:
    virtual ~NETLAYER() = default;

    // Whatever is ready now, at most size bytes: kOk with *received > 0, kNoData when
    // nothing is, kClosed when the peer ended the stream, or another error.
    virtual NETWORK::ERROR read(void *buffer, size_t size, size_t *received) = 0;
    // Every byte of data, or an error (kClosed when the peer is gone).
    virtual NETWORK::ERROR write(const void *data, size_t length) = 0;
    // Ends the stream politely before the socket is closed; never waits.
    virtual void shutdown() {}

    // The bare socket as a layer, for a layer that needs one below it.
    static std::unique_ptr<NETLAYER> socket(int fd, int64_t writeTimeout);

protected:
    // Waits until the socket can take more bytes or the time-out passes; false on time-out.
    static bool writable(int fd, int64_t timeout);
};
