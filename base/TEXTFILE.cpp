// A buffered, line-oriented text file: settings, killfile, message files and the transfer log.
#include "base/TEXTFILE.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/TextFormat.h"

TEXTFILE::TEXTFILE(size_t bufferSize)
    : fCapacity(bufferSize < kBufferMin ? kBufferMin : bufferSize) {}

TEXTFILE::~TEXTFILE() {
    close();
    free(fBuffer);
}

// Closes (writing out) any file still open, then sizes and empties the buffer for the next.
DISKFILE::ERROR TEXTFILE::_prepare(size_t bufferSize) {
    close();
    if (bufferSize > 0) {
        size_t capacity = bufferSize < kBufferMin ? kBufferMin : bufferSize;
        if (capacity != fCapacity) {
            free(fBuffer);
            fBuffer = nullptr;
            fCapacity = capacity;
        }
    }
    if (!fBuffer)
        fBuffer = static_cast<char *>(malloc(fCapacity));
    fFill = 0;
    fAt = 0;
    fMode = kIdle;
    return fBuffer ? kSuccess : kOutOfMemory;
}

DISKFILE::ERROR TEXTFILE::open(const char *path, ACCESS access, size_t bufferSize) {
    CRITSECT_HOLD hold(*this);
    ERROR error = _prepare(bufferSize);
    return error != kSuccess ? error : DISKFILE::open(path, access);
}

DISKFILE::ERROR TEXTFILE::open(const ENTRY &entry, ACCESS access, size_t bufferSize) {
    CRITSECT_HOLD hold(*this);
    ERROR error = _prepare(bufferSize);
    return error != kSuccess ? error : DISKFILE::open(entry, access);
}

DISKFILE::ERROR TEXTFILE::create(const char *path, ACCESS access, size_t bufferSize) {
    CRITSECT_HOLD hold(*this);
    ERROR error = _prepare(bufferSize);
    return error != kSuccess ? error : DISKFILE::create(path, access);
}

DISKFILE::ERROR TEXTFILE::create(const ENTRY &entry, ACCESS access, size_t bufferSize) {
    CRITSECT_HOLD hold(*this);
    ERROR error = _prepare(bufferSize);
    return error != kSuccess ? error : DISKFILE::create(entry, access);
}

DISKFILE::ERROR TEXTFILE::close() {
    CRITSECT_HOLD hold(*this);
    ERROR drained = _drain();
    fFill = 0;
    fAt = 0;
    fMode = kIdle;
    ERROR closed = DISKFILE::close();
    return drained != kSuccess ? drained : closed;
}

// Writes out whatever waits in the buffer.
DISKFILE::ERROR TEXTFILE::_drain() {
    if (fMode != kWriting)
        return kSuccess;
    ERROR error = kSuccess;
    if (fFill > 0) {
        size_t count = 0;
        error = DISKFILE::write(fBuffer, fFill, &count);
    }
    // A failed write is reported once, here; keeping the bytes would only fail again at close.
    fFill = 0;
    fMode = kIdle;
    return error;
}

// Empties the buffer so that the file's own position is the one the caller sees: waiting bytes
// are written, read-ahead is given back by seeking over it.
DISKFILE::ERROR TEXTFILE::_settle() {
    if (fMode == kWriting)
        return _drain();
    ERROR error = kSuccess;
    if (fMode == kReading && _available() > 0)
        error = DISKFILE::position(kFromCurrent, -int64_t(_available()));
    fFill = 0;
    fAt = 0;
    fMode = kIdle;
    return error;
}

DISKFILE::ERROR TEXTFILE::_toReading() {
    if (!DISKFILE::open() || !fBuffer)
        return kNotOpen;
    if (ERROR error = _drain(); error != kSuccess)
        return error;
    fMode = kReading;
    return kSuccess;
}

DISKFILE::ERROR TEXTFILE::_toWriting() {
    if (fMode == kWriting)
        return kSuccess;
    ERROR error = _settle();
    fMode = kWriting;
    return error;
}

// Makes at least want bytes available unless the file ends first; read-ahead moves to the
// front of the buffer so a CR at its end can still be paired with the LF after it.
DISKFILE::ERROR TEXTFILE::_fill(size_t want) {
    if (_available() >= want)
        return kSuccess;
    if (fAt > 0) {
        memmove(fBuffer, fBuffer + fAt, _available());
        fFill = _available();
        fAt = 0;
    }
    while (fFill < want) {
        size_t count = 0;
        ERROR error = DISKFILE::read(fBuffer + fFill, fCapacity - fFill, &count);
        if (error == kEndOfFile)
            return kSuccess;
        if (error != kSuccess)
            return error;
        fFill += count;
    }
    return kSuccess;
}

DISKFILE::ERROR TEXTFILE::lineRead(char *buffer, size_t size, size_t *length) {
    CRITSECT_HOLD hold(*this);
    size_t ignored = 0;
    if (!length)
        length = &ignored;
    *length = 0;
    if (buffer && size > 0)
        buffer[0] = 0;
    if (ERROR error = _toReading(); error != kSuccess)
        return error;
    if (!buffer)
        size = 0;

    size_t limit = size == 0 ? 0 : (size - 1 < kLineMax ? size - 1 : kLineMax);
    size_t n = 0;
    bool any = false;
    ERROR result = kSuccess;
    while (true) {
        if (ERROR error = _fill(1); error != kSuccess) {
            result = error;
            break;
        }
        if (_available() == 0) {
            result = any ? kSuccess : kEndOfFile;
            break;
        }
        char c = fBuffer[fAt];
        if (c == '\n') {
            fAt++;
            break;
        }
        if (c == '\r') {
            if (ERROR error = _fill(2); error != kSuccess) {
                result = error;
                break;
            }
            if (_available() >= 2 && fBuffer[fAt + 1] == '\n') {
                fAt += 2;
                break;
            }
        }
        if (n >= limit) {
            result = kLineTooLong; // the rest stays for the next read
            break;
        }
        buffer[n++] = c;
        fAt++;
        any = true;
    }
    if (size > 0)
        buffer[n] = 0;
    *length = n;
    return result;
}

DISKFILE::ERROR TEXTFILE::lineSkip() {
    CRITSECT_HOLD hold(*this);
    if (ERROR error = _toReading(); error != kSuccess)
        return error;
    bool any = false;
    while (true) {
        if (ERROR error = _fill(1); error != kSuccess)
            return error;
        if (_available() == 0)
            return any ? kSuccess : kEndOfFile;
        any = true;
        // A CR LF pair ends at its LF, so looking for the LF alone is enough.
        char *end = static_cast<char *>(memchr(fBuffer + fAt, '\n', _available()));
        if (end) {
            fAt = size_t(end - fBuffer) + 1;
            return kSuccess;
        }
        fAt = fFill;
    }
}

DISKFILE::ERROR TEXTFILE::read(void *buffer, size_t size, size_t *count) {
    CRITSECT_HOLD hold(*this);
    *count = 0;
    if (ERROR error = _toReading(); error != kSuccess)
        return error;
    if (_available() == 0) {
        // A large read goes straight to the caller's buffer.
        if (size >= fCapacity)
            return DISKFILE::read(buffer, size, count);
        if (ERROR error = _fill(1); error != kSuccess)
            return error;
        if (_available() == 0)
            return kEndOfFile;
    }
    size_t take = size < _available() ? size : _available();
    if (take > 0)
        memcpy(buffer, fBuffer + fAt, take);
    fAt += take;
    *count = take;
    return kSuccess;
}

DISKFILE::ERROR TEXTFILE::write(const void *buffer, size_t size, size_t *count) {
    CRITSECT_HOLD hold(*this);
    *count = 0;
    if (!DISKFILE::open() || !fBuffer)
        return kNotOpen;
    if (ERROR error = _toWriting(); error != kSuccess)
        return error;
    if (size > fCapacity - fFill) {
        ERROR error = _drain();
        fMode = kWriting;
        if (error != kSuccess)
            return error;
    }
    if (size >= fCapacity)
        return DISKFILE::write(buffer, size, count);
    if (size > 0)
        memcpy(fBuffer + fFill, buffer, size);
    fFill += size;
    *count = size;
    return kSuccess;
}

DISKFILE::ERROR TEXTFILE::textWrite(const char *text) {
    size_t count = 0;
    return write(text ? text : "", text ? strlen(text) : 0, &count);
}

DISKFILE::ERROR TEXTFILE::lineWrite(const char *text) {
    CRITSECT_HOLD hold(*this);
    ERROR error = textWrite(text);
    return error != kSuccess ? error : textWrite("\n");
}

DISKFILE::ERROR TEXTFILE::printf(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string text = textVFormat(format, args);
    va_end(args);
    size_t count = 0;
    return write(text.data(), text.size(), &count);
}

DISKFILE::ERROR TEXTFILE::flush() {
    CRITSECT_HOLD hold(*this);
    ERROR drained = _drain();
    ERROR synced = DISKFILE::flush();
    return drained != kSuccess ? drained : synced;
}

DISKFILE::ERROR TEXTFILE::position(PTRMETHOD method, int64_t offset) {
    CRITSECT_HOLD hold(*this);
    if (!DISKFILE::open())
        return kNotOpen;
    if (ERROR error = _settle(); error != kSuccess)
        return error;
    return DISKFILE::position(method, offset);
}

DISKFILE::ERROR TEXTFILE::position(int64_t *offset) {
    CRITSECT_HOLD hold(*this);
    *offset = 0;
    int64_t raw = 0;
    if (ERROR error = DISKFILE::position(&raw); error != kSuccess)
        return error;
    if (fMode == kReading)
        raw -= int64_t(_available());
    else if (fMode == kWriting)
        raw += int64_t(fFill);
    *offset = raw;
    return kSuccess;
}

DISKFILE::ERROR TEXTFILE::sizeGet(uint64_t *size) {
    CRITSECT_HOLD hold(*this);
    *size = 0;
    if (ERROR error = _drain(); error != kSuccess)
        return error;
    return DISKFILE::sizeGet(size);
}

DISKFILE::ERROR TEXTFILE::sizeSet(uint64_t size) {
    CRITSECT_HOLD hold(*this);
    if (!DISKFILE::open())
        return kNotOpen;
    if (ERROR error = _settle(); error != kSuccess)
        return error;
    return DISKFILE::sizeSet(size);
}
