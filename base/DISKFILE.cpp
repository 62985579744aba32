// The one class through which the program touches the file system: the open file, its
// permissions, MIME type and lock, and the error table.
#include "base/DISKFILE.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/DISKFILEXATTR.h"

namespace {

const char *const kErrorText[] = {
    "Successful file operation",
    "File access denied",
    "File already exists",
    "File already locked",
    "Attribute not found",
    "Path invalid",
    "Couldn't create file",
    "Directory already exists",
    "Couldn't create directory",
    "Directory contains files",
    "Directory not found",
    "Couldn't rename directory",
    "Disk is full",
    "End of file reached",
    "Couldn't erase file",
    "File contents invalid",
    "Invalid file type",
    "Directory iteration aborted",
    "Line longer than fileLineMax chars, file may contain binary data",
    "File doesn't have MIME type",
    "Out of memory",
    "File is not locked",
    "File is not open",
    "File not found",
    "Couldn't open file",
    "Couldn't set file position",
    "Couldn't read from file",
    "Couldn't rename file",
    "Too many open files",
    "Couldn't write to file",
};

constexpr uint32_t kPermBits = 0777;

int openMode(DISKFILE::ACCESS access) {
    switch (access) {
    case DISKFILE::kRead:
        return O_RDONLY;
    case DISKFILE::kWrite:
        return O_WRONLY;
    case DISKFILE::kReadWrite:
        return O_RDWR;
    default:
        return -1;
    }
}

} // namespace

const char *DISKFILE::ENTRY::leaf() const {
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

DISKFILE::DISKFILE() = default;

DISKFILE::~DISKFILE() {
    close();
}

void DISKFILE::_cut(char (&out)[kPathMax + 1], const char *path) {
    out[0] = '\0';
    if (path == nullptr)
        return;
    size_t length = strnlen(path, kPathMax);
    memcpy(out, path, length);
    out[length] = '\0';
}

const char *DISKFILE::errorStr(int32_t error) {
    if (error < 0 || error > kWriteFailed)
        return "Unknown file error";
    return kErrorText[error];
}

DISKFILE::ERROR DISKFILE::errorGet(int status, ERROR fallback) {
    switch (status) {
    case 0:
        return kSuccess;
    case EEXIST:
        return kFileExists;
    case EBUSY:
    case EPERM:
        return kAccessDenied;
    case EINVAL:
        // Deliberately "File is not locked", as the platform's bad-value status always was;
        // several callers turn it into kPathInvalid.
        return kNotLocked;
    case ENOENT:
    case ENODATA:
        return kNotFound;
    case ENOTEMPTY:
        return kDirNotEmpty;
    case ENOSPC:
    case EDQUOT:
    case E2BIG:
        // E2BIG: the volume has no room left for this file's attributes (ext4 gives each
        // file about 4 KiB); the message-file layer tells that from a full disk.
        return kDiskFull;
    case EMFILE:
    case ENFILE:
        return kTooManyFiles;
    default:
        return fallback;
    }
}

DISKFILE::ERROR DISKFILE::dirTranslate(ERROR error) {
    switch (error) {
    case kFileExists:
        return kDirExists;
    case kCreateFailed:
        return kDirCreateFailed;
    case kNotFound:
        return kDirNotFound;
    case kRenameFailed:
        return kDirRenameFailed;
    default:
        return error;
    }
}

uint32_t DISKFILE::permMask(ACCESS access, uint32_t bits) {
    uint32_t set;
    switch (access) {
    case kRead:
        set = S_IRUSR | S_IRGRP | S_IROTH;
        break;
    case kWrite:
        set = S_IWUSR | S_IWGRP | S_IWOTH;
        break;
    case kReadWrite:
        set = S_IRUSR | S_IRGRP | S_IROTH | S_IWUSR | S_IWGRP | S_IWOTH;
        break;
    case kNoAccess:
        set = 0;
        break;
    default:
        return bits;
    }
    return (bits & ~kPermBits) | set;
}

DISKFILE::ERROR DISKFILE::permCheck(ACCESS access, uint32_t bits) {
    if ((access == kRead || access == kReadWrite) && (bits & S_IRUSR) == 0)
        return kAccessDenied;
    if ((access == kWrite || access == kReadWrite) && (bits & S_IWUSR) == 0)
        return kAccessDenied;
    return kSuccess;
}

// The owner-bit check of a reading or writing operation on the open file. Made here rather
// than left to the kernel, so it holds the same for root. The bits are fetched when the file
// opens and kept by permSet: filing a message takes a dozen attribute writes in a row, and
// asking the kernel before each one cost more than the write.
DISKFILE::ERROR DISKFILE::_permRequire(ACCESS access) {
    if (fFd < 0)
        return kNotOpen;
    return permCheck(access, fModeBits);
}

DISKFILE::ERROR DISKFILE::_fstat(struct stat *info, ERROR fallback) {
    if (fFd < 0)
        return kNotOpen;
    return fstat(fFd, info) == 0 ? kSuccess : errorGet(errno, fallback);
}

DISKFILE::ERROR DISKFILE::_open(const char *path, ACCESS access, int extraFlags, ERROR fallback) {
    close();
    char cut[kPathMax + 1];
    _cut(cut, path);
    int mode = openMode(access);
    if (mode < 0 || cut[0] == '\0')
        return kPathInvalid;
    // Opened without waiting: a named pipe in place of a file would otherwise hang the thread
    // until some other program opened its other end. Reads and writes block as usual.
    int fd = ::open(cut, mode | extraFlags | O_CLOEXEC | O_NONBLOCK, 0666);
    // Directories carry attributes too (the storage tree keeps its state in them) but only
    // open for reading here; their attributes are written through that descriptor.
    if (fd < 0 && errno == EISDIR && extraFlags == 0)
        fd = ::open(cut, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        ERROR error = errorGet(errno, fallback);
        return error == kNotLocked ? kPathInvalid : error;
    }
    struct stat info {};
    if (fstat(fd, &info) != 0) {
        ERROR error = errorGet(errno, fallback);
        ::close(fd);
        return error;
    }
    // Waiting only matters for what is not a plain file or directory.
    if (!S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode)) {
        int flags = fcntl(fd, F_GETFL);
        if (flags >= 0)
            fcntl(fd, F_SETFL, flags & ~O_NONBLOCK);
    }
    fFd = fd;
    fModeBits = uint32_t(info.st_mode);
    memcpy(fPath, cut, sizeof(fPath));
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::open(const char *path, ACCESS access) {
    CRITSECT_HOLD hold(*this);
    return _open(path, access, 0, kOpenFailed);
}

DISKFILE::ERROR DISKFILE::open(const ENTRY &entry, ACCESS access) {
    CRITSECT_HOLD hold(*this);
    char path[kPathMax + 1];
    ERROR error = entryToPath(entry, path, sizeof(path));
    if (error != kSuccess)
        return error;
    error = _open(path, access, 0, kOpenFailed);
    if (error == kSuccess)
        fType = entry.type;
    return error;
}

bool DISKFILE::open() const {
    CRITSECT_HOLD hold(const_cast<DISKFILE &>(*this));
    return fFd >= 0;
}

DISKFILE::ERROR DISKFILE::create(const char *path, ACCESS access) {
    CRITSECT_HOLD hold(*this);
    close();
    char cut[kPathMax + 1];
    _cut(cut, path);
    // The probe: an absent file is created, a writable one truncated, a read-only one left
    // untouched. Made on the owner bits, so it holds for root as well.
    struct stat info {};
    if (stat(cut, &info) == 0) {
        if ((info.st_mode & S_IWUSR) == 0)
            return kAccessDenied;
    } else if (errno != ENOENT) {
        ERROR error = errorGet(errno, kOpenFailed);
        return error == kNotLocked ? kPathInvalid : error;
    }
    return _open(cut, access, O_CREAT | O_TRUNC, kCreateFailed);
}

DISKFILE::ERROR DISKFILE::create(const ENTRY &entry, ACCESS access) {
    CRITSECT_HOLD hold(*this);
    char path[kPathMax + 1];
    ERROR error = entryToPath(entry, path, sizeof(path));
    if (error != kSuccess)
        return error;
    error = create(path, access);
    if (error == kSuccess)
        fType = entry.type;
    return error;
}

DISKFILE::ERROR DISKFILE::close() {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    // Closing the descriptor releases its flock too.
    ::close(fFd);
    fFd = -1;
    fType = kEntryUnknown;
    fPath[0] = '\0';
    fLocked = false;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::read(void *buffer, size_t size, size_t *count) {
    CRITSECT_HOLD hold(*this);
    *count = 0;
    if (fFd < 0)
        return kNotOpen;
    if (ERROR error = _permRequire(kRead); error != kSuccess)
        return error;
    ssize_t got;
    do {
        got = ::read(fFd, buffer, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0)
        return errorGet(errno, kReadFailed);
    if (got == 0)
        return kEndOfFile;
    *count = size_t(got);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::write(const void *buffer, size_t size, size_t *count) {
    CRITSECT_HOLD hold(*this);
    *count = 0;
    if (fFd < 0)
        return kNotOpen;
    if (ERROR error = _permRequire(kWrite); error != kSuccess)
        return error;
    const char *at = static_cast<const char *>(buffer);
    size_t left = size;
    while (left > 0) {
        ssize_t wrote = ::write(fFd, at, left);
        if (wrote < 0 && errno == EINTR)
            continue;
        if (wrote < 0)
            return errorGet(errno, kWriteFailed);
        if (wrote == 0)
            return kWriteFailed;
        at += wrote;
        left -= size_t(wrote);
    }
    *count = size;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::flush() {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    if (fsync(fFd) == 0)
        return kSuccess;
    ERROR error = errorGet(errno, kWriteFailed);
    return error == kNotLocked ? kSuccess : error;
}

DISKFILE::ERROR DISKFILE::position(PTRMETHOD method, int64_t offset) {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    int whence = method == kFromCurrent ? SEEK_CUR : method == kFromEnd ? SEEK_END : SEEK_SET;
    return lseek(fFd, off_t(offset), whence) < 0 ? kPositionFailed : kSuccess;
}

DISKFILE::ERROR DISKFILE::position(int64_t *offset) {
    CRITSECT_HOLD hold(*this);
    *offset = 0;
    if (fFd < 0)
        return kNotOpen;
    off_t at = lseek(fFd, 0, SEEK_CUR);
    if (at < 0)
        return kPositionFailed;
    *offset = int64_t(at);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::sizeGet(uint64_t *size) {
    CRITSECT_HOLD hold(*this);
    *size = 0;
    struct stat info {};
    if (ERROR error = _fstat(&info, kReadFailed); error != kSuccess)
        return error;
    *size = uint64_t(info.st_size);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::sizeSet(uint64_t size) {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    if (ERROR error = _permRequire(kWrite); error != kSuccess)
        return error;
    return ftruncate(fFd, off_t(size)) == 0 ? kSuccess : errorGet(errno, kWriteFailed);
}

DISKFILE::ERROR DISKFILE::creationTimeGet(int64_t *time) {
    CRITSECT_HOLD hold(*this);
    *time = 0;
    if (fFd < 0)
        return kNotOpen;
    struct statx info {};
    if (statx(fFd, "", AT_EMPTY_PATH, STATX_BTIME | STATX_MTIME, &info) == 0) {
        int64_t seconds =
            (info.stx_mask & STATX_BTIME) != 0 ? info.stx_btime.tv_sec : info.stx_mtime.tv_sec;
        *time = seconds * 1'000'000;
        return kSuccess;
    }
    // Some sandboxes refuse statx itself; the modification time is still there.
    if (errno != ENOSYS && errno != EPERM)
        return errorGet(errno, kReadFailed);
    struct stat plain {};
    if (ERROR error = _fstat(&plain, kReadFailed); error != kSuccess)
        return error;
    *time = int64_t(plain.st_mtime) * 1'000'000;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::creationTimeSet(int64_t time) {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    struct timespec times[2] = {};
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = time_t(time / 1'000'000);
    return futimens(fFd, times) == 0 ? kSuccess : errorGet(errno, kWriteFailed);
}

DISKFILE::ERROR DISKFILE::node(int64_t *id) {
    CRITSECT_HOLD hold(*this);
    *id = -1;
    struct stat info {};
    if (ERROR error = _fstat(&info, kNotOpen); error != kSuccess)
        return error;
    *id = int64_t(info.st_ino);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::filename(char *buffer, size_t size) {
    CRITSECT_HOLD hold(*this);
    if (buffer == nullptr || size == 0)
        return kPathInvalid;
    buffer[0] = '\0';
    if (fFd < 0)
        return kNotOpen;
    size_t length = strnlen(fPath, size - 1);
    memcpy(buffer, fPath, length);
    buffer[length] = '\0';
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::type(ENTRYTYPE *type) {
    CRITSECT_HOLD hold(*this);
    *type = kEntryUnknown;
    if (fFd < 0)
        return kNotOpen;
    if (fType == kEntryUnknown) {
        ERROR error = typeGet(fPath, &fType);
        if (error != kSuccess)
            return error;
    }
    *type = fType;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::permGet(uint32_t *bits) {
    CRITSECT_HOLD hold(*this);
    *bits = 0;
    struct stat info {};
    if (ERROR error = _fstat(&info, kReadFailed); error != kSuccess)
        return error;
    // A fresh reading also refreshes the bits the owner checks use.
    fModeBits = uint32_t(info.st_mode);
    *bits = uint32_t(info.st_mode) & 07777;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::permSet(uint32_t bits) {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    if (fchmod(fFd, mode_t(bits & 07777)) != 0)
        return errorGet(errno, kWriteFailed);
    fModeBits = (fModeBits & ~07777u) | (bits & 07777);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::permUpdate(ACCESS access) {
    CRITSECT_HOLD hold(*this);
    uint32_t bits = 0;
    ERROR error = permGet(&bits);
    if (error != kSuccess)
        return error;
    return permSet(permMask(access, bits));
}

DISKFILE::ERROR DISKFILE::mimeGet(char *buffer, size_t size) {
    CRITSECT_HOLD hold(*this);
    if (buffer == nullptr || size == 0)
        return kPathInvalid;
    buffer[0] = '\0';
    if (fFd < 0)
        return kNotOpen;
    if (ERROR error = _permRequire(kRead); error != kSuccess)
        return error;
    std::string value;
    int status = DISKFILEXATTR::get(fFd, nullptr, kMimeAttr, &value);
    if (status != 0) {
        ERROR error = errorGet(status, kReadFailed);
        return error == kNotFound ? kNoMimeType : error;
    }
    std::string_view text = DISKFILEXATTR::text(value);
    if (text.empty())
        return kNoMimeType;
    size_t length = text.size() < size ? text.size() : size - 1;
    memcpy(buffer, text.data(), length);
    buffer[length] = '\0';
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::mimeSet(const char *type) {
    CRITSECT_HOLD hold(*this);
    if (fFd < 0)
        return kNotOpen;
    if (type == nullptr)
        return kPathInvalid;
    if (ERROR error = _permRequire(kWrite); error != kSuccess)
        return error;
    int status = DISKFILEXATTR::set(fFd, kMimeAttr, type, strlen(type));
    return errorGet(status, kWriteFailed);
}

DISKFILE::ERROR DISKFILE::lock(bool lock) {
    CRITSECT_HOLD hold(*this);
    if (!lock) {
        if (!fLocked)
            return kNotLocked;
        fLocked = false;
        if (flock(fFd, LOCK_UN) != 0)
            return errorGet(errno, kAccessDenied);
        return kSuccess;
    }
    if (fLocked)
        return kAlreadyLocked;
    if (fFd < 0)
        return kNotOpen;
    if (ERROR error = _permRequire(kWrite); error != kSuccess)
        return error;
    // A lock held through another descriptor refuses at once, as the platform's node lock did.
    fLocked = true;
    if (flock(fFd, LOCK_EX | LOCK_NB) != 0) {
        fLocked = false;
        return errorGet(errno == EWOULDBLOCK ? EBUSY : errno, kAccessDenied);
    }
    return kSuccess;
}

bool DISKFILE::locked() const {
    CRITSECT_HOLD hold(const_cast<DISKFILE &>(*this));
    return fLocked;
}
