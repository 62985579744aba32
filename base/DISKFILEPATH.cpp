// DISKFILE: operations on paths: entry types, erase, rename, copy, move, volumes and entries.
#include "base/DISKFILE.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/DISKFILEXATTR.h"
#include "base/FILEINDEX.h"

namespace {

bool sameFile(const char *a, const char *b) {
    struct stat first {};
    struct stat second {};
    return stat(a, &first) == 0 && stat(b, &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

// Whether a regular file holds the indexed attribute, so that index upkeep is only paid for
// message files.
bool carriesIndexed(const char *path, const struct stat &info) {
    return S_ISREG(info.st_mode) &&
           DISKFILEXATTR::has(-1, path, DISKFILEXATTR::fullName(FILEINDEX::kAttribute));
}

} // namespace

std::string DISKFILE::_parentOf(const char *path, std::string *leaf) {
    std::string text = path;
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    size_t slash = text.rfind('/');
    if (leaf != nullptr)
        *leaf = slash == std::string::npos ? text : text.substr(slash + 1);
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : text.substr(0, slash);
}

std::string DISKFILE::dataHome() {
    const char *data = getenv("XDG_DATA_HOME");
    if (data != nullptr && data[0] == '/')
        return data;
    const char *home = getenv("HOME");
    return std::string(home != nullptr ? home : "") + "/.local/share";
}

// The write (or read) check of a path operation: made on the owner bits of the entry itself.
DISKFILE::ERROR DISKFILE::_pathCheck(const char *path, ACCESS access) {
    struct stat info {};
    if (path[0] == '\0')
        return kPathInvalid;
    if (lstat(path, &info) != 0) {
        ERROR error = errorGet(errno, kOpenFailed);
        return error == kNotLocked ? kPathInvalid : error;
    }
    // A symbolic link is erased or renamed itself; its own bits say nothing.
    if (S_ISLNK(info.st_mode))
        return kSuccess;
    return permCheck(access, info.st_mode);
}

DISKFILE::ENTRYTYPE DISKFILE::_typeOf(uint32_t mode) {
    if (S_ISREG(mode))
        return kEntryFile;
    if (S_ISDIR(mode))
        return kEntryDirectory;
    if (S_ISLNK(mode))
        return kEntryLink;
    return kEntryUnknown;
}

DISKFILE::ERROR DISKFILE::typeGet(const char *path, ENTRYTYPE *type) {
    CRITSECT_HOLD hold(*this);
    *type = kEntryUnknown;
    char cut[kPathMax + 1];
    _cut(cut, path);
    struct stat info {};
    if (lstat(cut, &info) != 0)
        return errorGet(errno, kReadFailed);
    *type = _typeOf(info.st_mode);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::erase(const char *path) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    if (ERROR error = _pathCheck(cut, kWrite); error != kSuccess)
        return error;
    struct stat info {};
    if (lstat(cut, &info) != 0)
        return errorGet(errno, kEraseFailed);
    FILEINDEX *index = FILEINDEX::installed();
    const bool indexed = index != nullptr && carriesIndexed(cut, info);
    const int status = S_ISDIR(info.st_mode) ? rmdir(cut) : unlink(cut);
    if (status != 0)
        return errorGet(errno, kEraseFailed);
    if (indexed)
        index->fileSync(cut);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::rename(const char *from, const char *to) {
    CRITSECT_HOLD hold(*this);
    char source[kPathMax + 1];
    char target[kPathMax + 1];
    _cut(source, from);
    _cut(target, to);
    if (ERROR error = _pathCheck(source, kWrite); error != kSuccess)
        return error;
    if (target[0] == '\0')
        return kPathInvalid;
    struct stat info {};
    if (lstat(source, &info) != 0)
        return errorGet(errno, kRenameFailed);
    FILEINDEX *index = FILEINDEX::installed();
    const bool indexed = index != nullptr && carriesIndexed(source, info);
    int status = renameat2(AT_FDCWD, source, AT_FDCWD, target, RENAME_NOREPLACE);
    if (status != 0 && (errno == EINVAL || errno == ENOSYS)) {
        // A file system without no-replace renames: check first, then rename.
        struct stat existing {};
        if (lstat(target, &existing) == 0) {
            errno = EEXIST;
        } else {
            status = ::rename(source, target);
        }
    }
    if (status != 0)
        return errorGet(errno, kRenameFailed);
    if (index != nullptr && S_ISDIR(info.st_mode))
        index->dirRename(source, target);
    else if (indexed)
        index->fileRename(source, target);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::copy(const char *from, const char *to) {
    CRITSECT_HOLD hold(*this);
    close();
    std::unique_ptr<char[]> buffer(new (std::nothrow) char[kCopyChunk]);
    if (!buffer)
        return kOutOfMemory;
    char source[kPathMax + 1];
    char target[kPathMax + 1];
    _cut(source, from);
    _cut(target, to);
    // Creating the destination would truncate the source first.
    if (sameFile(source, target))
        return kFileExists;
    ERROR error = open(source, kRead);
    if (error != kSuccess)
        return error;
    DISKFILE destination;
    error = destination.create(target, kReadWrite);
    if (error != kSuccess) {
        close();
        return error;
    }
    for (;;) {
        size_t count = 0;
        error = read(buffer.get(), kCopyChunk, &count);
        if (error == kEndOfFile) {
            error = kSuccess;
            break;
        }
        if (error != kSuccess)
            break;
        size_t wrote = 0;
        error = destination.write(buffer.get(), count, &wrote);
        if (error != kSuccess)
            break;
    }
    if (error == kSuccess)
        error = _attrCopy(destination);
    close();
    destination.close();
    return error;
}

DISKFILE::ERROR DISKFILE::move(const char *from, const char *to) {
    CRITSECT_HOLD hold(*this);
    char source[kPathMax + 1];
    char target[kPathMax + 1];
    _cut(source, from);
    _cut(target, to);
    // Erasing the destination first would erase the only copy.
    if (sameFile(source, target))
        return kSuccess;
    // The destination is erased first, but only once the move can go ahead: the devices are
    // known and, for a rename, the source may be renamed. A move that fails on those checks
    // returns what it would have returned and leaves the destination as it was.
    int64_t sourceDevice = -10;
    int64_t targetDevice = -10;
    ERROR error = volume(source, &sourceDevice);
    if (error != kSuccess)
        return error;
    if ((error = volume(_parentOf(target).c_str(), &targetDevice)) != kSuccess)
        return error;
    if (sourceDevice == targetDevice && (error = _pathCheck(source, kWrite)) != kSuccess)
        return error;
    error = erase(target);
    if (error != kSuccess && error != kNotFound)
        return error;
    if (sourceDevice == targetDevice)
        return rename(source, target);
    error = copy(source, target);
    if (error != kSuccess)
        return error;
    return erase(source);
}

DISKFILE::ERROR DISKFILE::volume(const char *path, int64_t *device) {
    CRITSECT_HOLD hold(*this);
    *device = -10;
    char cut[kPathMax + 1];
    _cut(cut, path);
    struct stat info {};
    if (stat(cut, &info) != 0)
        return errorGet(errno, kNotFound);
    *device = int64_t(info.st_dev);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::entryToPath(const ENTRY &entry, char *buffer, size_t size) {
    CRITSECT_HOLD hold(*this);
    if (buffer == nullptr || size == 0)
        return kPathInvalid;
    buffer[0] = '\0';
    if (entry.path[0] == '\0')
        return kNotFound;
    size_t length = strnlen(entry.path, size - 1);
    memcpy(buffer, entry.path, length);
    buffer[length] = '\0';
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::refToPath(const ENTRY &ref, char *buffer, size_t size) {
    return entryToPath(ref, buffer, size);
}

DISKFILE::ERROR DISKFILE::pathToRef(ENTRY *ref, const char *path) {
    CRITSECT_HOLD hold(*this);
    *ref = ENTRY();
    char cut[kPathMax + 1];
    _cut(cut, path);
    if (cut[0] == '\0')
        return kNotFound;
    // Like an entry_ref, the leaf need not exist; its directory must.
    struct stat parent {};
    if (stat(_parentOf(cut).c_str(), &parent) != 0)
        return errorGet(errno, kNotFound);
    if (!S_ISDIR(parent.st_mode))
        return kNotFound;
    memcpy(ref->path, cut, sizeof(cut));
    ref->directory = int64_t(parent.st_ino);
    ref->device = int64_t(parent.st_dev);
    struct stat info {};
    if (lstat(cut, &info) == 0) {
        ref->node = int64_t(info.st_ino);
        ref->type = _typeOf(info.st_mode);
        ref->device = int64_t(info.st_dev);
    }
    return kSuccess;
}
