// A buffered, line-oriented text file: settings, killfile, message files and the transfer log.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/DISKFILE.h"

// A DISKFILE with a read-ahead / write-behind buffer. Everything that moves through the file's
// contents (reads, writes, positions, sizes, close) goes through this class's own operations,
// which keep the buffer and the file in step; attributes, locks and paths are DISKFILE's.
// Calling the DISKFILE content operations on a TEXTFILE through a base pointer bypasses the
// buffer, so don't. Like DISKFILE, one object may be shared by threads.
class TEXTFILE : public DISKFILE {
public:
    // The longest line lineRead accepts (the "fileLineMax" of the error text).
    static constexpr size_t kLineMax = 1000;
    static constexpr size_t kBufferDefault = 16384;
    static constexpr size_t kBufferMin = 16;

    // The buffer (bufferSize bytes, at least kBufferMin) is allocated on the first open.
    explicit TEXTFILE(size_t bufferSize = kBufferDefault);
    // Writes out what is still buffered, then closes.
    ~TEXTFILE();

    // Whether a file is open.
    bool open() const { return DISKFILE::open(); }
    // As DISKFILE, after closing (and writing out) any file this object had open. A
    // bufferSize above 0 replaces the buffer size. kOutOfMemory when no buffer can be had.
    ERROR open(const char *path, ACCESS access, size_t bufferSize = 0);
    ERROR open(const ENTRY &entry, ACCESS access, size_t bufferSize = 0);
    ERROR create(const char *path, ACCESS access, size_t bufferSize = 0);
    ERROR create(const ENTRY &entry, ACCESS access, size_t bufferSize = 0);
    // Writes out the buffer and closes; the first failure is returned, the file is closed
    // either way.
    ERROR close();

    // Reads one line into buffer (size bytes, always terminated) without its line end
    // (LF or CR LF; a CR elsewhere is text), *length its length. A line longer than
    // kLineMax characters (or than size - 1) gives kLineTooLong with the first part in the
    // buffer; the next lineRead continues with the rest, or lineSkip drops it. A last line
    // without a line end is a line. kEndOfFile only when nothing is left.
    ERROR lineRead(char *buffer, size_t size, size_t *length = nullptr);
    // Drops everything up to and including the next line end.
    ERROR lineSkip();

    // Reads up to size bytes through the buffer; kEndOfFile with *count 0 at the end.
    ERROR read(void *buffer, size_t size, size_t *count);
    // Buffered: *count is size once the bytes are taken; a failure to write out earlier
    // bytes is returned by the call that runs into it.
    ERROR write(const void *buffer, size_t size, size_t *count);
    // Writes text, without and with a line end ("\n").
    ERROR textWrite(const char *text);
    ERROR lineWrite(const char *text);
    ERROR printf(const char *format, ...) __attribute__((format(printf, 2, 3)));
    // Writes out the buffer and has the system put the file on disk.
    ERROR flush();

    // Positions as the reader and writer see them, buffer included.
    ERROR position(PTRMETHOD method, int64_t offset);
    ERROR position(int64_t *offset);
    ERROR sizeGet(uint64_t *size);
    ERROR sizeSet(uint64_t size);

private:
    enum BUFFERMODE : uint8_t { kIdle, kReading, kWriting };

    ERROR _prepare(size_t bufferSize);
    ERROR _fill(size_t want);
    ERROR _drain();
    ERROR _settle();
    ERROR _toReading();
    ERROR _toWriting();
    size_t _available() const { return fFill - fAt; }

    char *fBuffer = nullptr;
    size_t fCapacity;
    size_t fFill = 0; // bytes in the buffer (read-ahead or waiting to be written)
    size_t fAt = 0;   // next unread byte while reading
    BUFFERMODE fMode = kIdle;
};
