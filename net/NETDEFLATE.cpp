// Compression of a connection's stream: raw deflate with zlib, flushed after every write.
#include "net/NETDEFLATE.h"

#include <cstring>

namespace {
// Raw deflate, no zlib header, as the compression extension of NNTP specifies.
constexpr int kRawWindow = -15;
constexpr int kMemoryLevel = 8;
constexpr size_t kOutputBlock = 16384;
} // namespace

std::unique_ptr<NETDEFLATE> NETDEFLATE::create(std::unique_ptr<NETLAYER> below, const char *pending,
                                               size_t pendingLength) {
    if (pendingLength > kInputBlock)
        return nullptr;
    std::unique_ptr<NETDEFLATE> layer(new NETDEFLATE(std::move(below)));
    layer->fInflateReady = inflateInit2(&layer->fInflate, kRawWindow) == Z_OK;
    layer->fDeflateReady = deflateInit2(&layer->fDeflate, Z_DEFAULT_COMPRESSION, Z_DEFLATED,
                                        kRawWindow, kMemoryLevel, Z_DEFAULT_STRATEGY) == Z_OK;
    if (!layer->fInflateReady || !layer->fDeflateReady)
        return nullptr;
    memcpy(layer->fInput, pending, pendingLength);
    layer->fInflate.next_in = layer->fInput;
    layer->fInflate.avail_in = uInt(pendingLength);
    layer->fWireReceived = pendingLength;
    return layer;
}

NETDEFLATE::~NETDEFLATE() {
    if (fInflateReady)
        inflateEnd(&fInflate);
    if (fDeflateReady)
        deflateEnd(&fDeflate);
}

NETWORK::ERROR NETDEFLATE::read(void *buffer, size_t size, size_t *received) {
    *received = 0;
    for (;;) {
        fInflate.next_out = static_cast<Bytef *>(buffer);
        fInflate.avail_out = uInt(size);
        int status = inflate(&fInflate, Z_SYNC_FLUSH);
        *received = size - fInflate.avail_out;
        if (status == Z_DATA_ERROR || status == Z_MEM_ERROR || status == Z_NEED_DICT)
            return NETWORK::kReceive;
        if (*received > 0)
            return NETWORK::kOk;
        if (status == Z_STREAM_END)
            return NETWORK::kClosed;
        if (fInflate.avail_in > 0)
            continue; // a flush marker gives no output; the rest of the input may
        size_t got = 0;
        NETWORK::ERROR error = fBelow->read(fInput, sizeof fInput, &got);
        if (error != NETWORK::kOk)
            return error;
        fWireReceived += got;
        fInflate.next_in = fInput;
        fInflate.avail_in = uInt(got);
    }
}

NETWORK::ERROR NETDEFLATE::write(const void *data, size_t length) {
    fDeflate.next_in = static_cast<Bytef *>(const_cast<void *>(data));
    fDeflate.avail_in = uInt(length);
    unsigned char output[kOutputBlock];
    do {
        fDeflate.next_out = output;
        fDeflate.avail_out = sizeof output;
        if (deflate(&fDeflate, Z_SYNC_FLUSH) == Z_STREAM_ERROR)
            return NETWORK::kTransmit;
        size_t produced = sizeof output - fDeflate.avail_out;
        if (produced > 0) {
            NETWORK::ERROR error = fBelow->write(output, produced);
            if (error != NETWORK::kOk)
                return error;
            fWireSent += produced;
        }
    } while (fDeflate.avail_out == 0);
    return NETWORK::kOk;
}
