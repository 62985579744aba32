// DISKFILE: directories: create, erase, rename, probes, walks, obliteration and monitoring.
#include "base/DISKFILE.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/xattr.h>
#include <vector>

#include "base/NODEMONITOR.h"

namespace {

// The eight bytes dirAccess writes and expects back: 0x54A21692 and 0xE4314DC6, little-endian.
constexpr unsigned char kProbeBytes[8] = {0x92, 0x16, 0xA2, 0x54, 0xC6, 0x4D, 0x31, 0xE4};

// The attribute dirIsBFS writes and removes to learn whether the volume takes attributes.
constexpr const char *kProbeAttr = "user.vellowick.probe";

// The entry type the directory itself reports; kEntryUnknown when it does not say.
DISKFILE::ENTRYTYPE typeOfDirent(unsigned char kind) {
    switch (kind) {
    case DT_REG:
        return DISKFILE::kEntryFile;
    case DT_DIR:
        return DISKFILE::kEntryDirectory;
    case DT_LNK:
        return DISKFILE::kEntryLink;
    default:
        return DISKFILE::kEntryUnknown;
    }
}

// Opens a directory for a walk; on failure *error is set.
DIR *openDirectory(const char *path, struct stat *info, DISKFILE::ERROR *error) {
    *error = DISKFILE::kSuccess;
    DIR *dir = opendir(path);
    if (dir == nullptr) {
        *error = DISKFILE::dirTranslate(DISKFILE::errorGet(errno, DISKFILE::kDirNotFound));
        return nullptr;
    }
    if (fstat(dirfd(dir), info) != 0)
        *info = {};
    return dir;
}

// The path of a child of parent; false when it is longer than a path the class can hold.
// Cut, it would name the parent itself (a walk would enter it again without end) or another
// entry, which the caller would then erase or overwrite; such children are passed over.
bool childPath(const char *parent, const char *name, std::string *path) {
    *path = std::string(parent) + "/" + name;
    return path->size() <= DISKFILE::kPathMax;
}

void fillEntry(DISKFILE::ENTRY *entry, const std::string &path, const struct stat &parentInfo,
               const dirent &raw) {
    memcpy(entry->path, path.c_str(), path.size() + 1);
    entry->type = typeOfDirent(raw.d_type);
    entry->node = int64_t(raw.d_ino);
    entry->directory = int64_t(parentInfo.st_ino);
    entry->device = int64_t(parentInfo.st_dev);
}

bool dotName(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// The next entry other than "." and ".."; null at the end (errno 0) or on failure.
dirent *nextEntry(DIR *dir) {
    for (;;) {
        errno = 0;
        dirent *raw = readdir(dir);
        if (raw == nullptr || !dotName(raw->d_name))
            return raw;
    }
}

} // namespace

DISKFILE::ERROR DISKFILE::dirCreate(const char *path, ACCESS access) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    if (cut[0] == '\0')
        return kPathInvalid;
    mode_t mode = mode_t(permMask(access, 0));
    // A directory that can be read but not searched is useless here: every class that may
    // read it may also enter it. (The umask still applies.)
    mode |= (mode & 0444) >> 2;
    if (mkdir(cut, mode) != 0)
        return dirTranslate(errorGet(errno, kDirCreateFailed));
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::dirErase(const char *path) {
    CRITSECT_HOLD hold(*this);
    return dirTranslate(erase(path));
}

DISKFILE::ERROR DISKFILE::dirRename(const char *from, const char *to) {
    CRITSECT_HOLD hold(*this);
    return dirTranslate(rename(from, to));
}

DISKFILE::ERROR DISKFILE::dirVolume(const char *path, int64_t *device) {
    CRITSECT_HOLD hold(*this);
    return dirTranslate(volume(path, device));
}

DISKFILE::ERROR DISKFILE::dirIsBFS(const char *path, bool *answer) {
    CRITSECT_HOLD hold(*this);
    *answer = false;
    char cut[kPathMax + 1];
    _cut(cut, path);
    struct statvfs volume {};
    if (statvfs(cut, &volume) != 0) {
        ERROR error = errorGet(errno, kPathInvalid);
        return dirTranslate(error == kNotLocked ? kPathInvalid : error);
    }
    if ((volume.f_flag & ST_RDONLY) != 0)
        return kSuccess;
    // MIME types and queries are this program's own; what the volume must give is attributes.
    if (setxattr(cut, kProbeAttr, "1", 1, 0) != 0)
        return kSuccess;
    removexattr(cut, kProbeAttr);
    *answer = true;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::dirAccess(const char *path) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    std::string probe;
    // Cut, the probe's path would name another file, which it would truncate and erase.
    if (!childPath(cut, kAccessProbe, &probe))
        return kPathInvalid;
    ERROR error = create(probe.c_str(), kReadWrite);
    if (error != kSuccess)
        return dirTranslate(error);
    size_t count = 0;
    unsigned char back[sizeof(kProbeBytes)] = {};
    if (write(kProbeBytes, sizeof(kProbeBytes), &count) != kSuccess ||
        count != sizeof(kProbeBytes)) {
        error = kReadFailed;
    } else if ((error = flush()) == kSuccess && (error = position(kFromStart, 0)) == kSuccess) {
        if (read(back, sizeof(back), &count) != kSuccess || count != sizeof(back) ||
            memcmp(back, kProbeBytes, sizeof(back)) != 0)
            error = kReadFailed;
    }
    close();
    erase(probe.c_str());
    return dirTranslate(error);
}

DISKFILE::ERROR DISKFILE::_iterate(const char *path, bool recurse, bool *next, int32_t depth,
                                   ITERATEFUNC callback, void *data) {
    struct stat info {};
    ERROR error;
    DIR *dir = openDirectory(path, &info, &error);
    if (dir == nullptr)
        return error;
    ENTRY entry;
    std::string child;
    for (;;) {
        dirent *raw = nextEntry(dir);
        if (raw == nullptr) {
            if (errno != 0)
                error = dirTranslate(errorGet(errno, kEraseFailed));
            break;
        }
        if (!childPath(path, raw->d_name, &child))
            continue;
        fillEntry(&entry, child, info, *raw);
        if (raw->d_type == DT_UNKNOWN)
            typeGet(entry.path, &entry.type);
        if (!callback(data, next, depth, entry)) {
            error = kIterationAborted;
            break;
        }
        // A cleared flag ends the whole walk, the levels above included.
        if (!*next)
            break;
        if (recurse && entry.type == kEntryDirectory) {
            error = _iterate(entry.path, recurse, next, depth + 1, callback, data);
            if (error != kSuccess || !*next)
                break;
        }
    }
    closedir(dir);
    return error;
}

DISKFILE::ERROR DISKFILE::dirIterate(const char *path, bool recurse, ITERATEFUNC callback,
                                     void *data) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    if (callback == nullptr)
        return kPathInvalid;
    bool next = true;
    return _iterate(cut, recurse, &next, 0, callback, data);
}

DISKFILE::ERROR DISKFILE::dirIterate(const char *path, ENTRYFUNC callback, void *data) {
    CRITSECT_HOLD hold(*this);
    if (callback == nullptr)
        return kPathInvalid;
    // The flat walk is the recursive one without recursion and without the flag and depth.
    struct FLAT {
        ENTRYFUNC callback;
        void *data;
    } flat = {callback, data};
    auto visit = [](void *data, bool *, int32_t, const ENTRY &entry) {
        const FLAT *flat = static_cast<const FLAT *>(data);
        return flat->callback(flat->data, entry);
    };
    return dirIterate(path, false, visit, &flat);
}

DISKFILE::ERROR DISKFILE::dirObliterate(const char *path) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    struct stat info {};
    ERROR error;
    DIR *dir = openDirectory(cut, &info, &error);
    if (dir == nullptr)
        return error;
    // The names are taken first so that erasing does not disturb the walk. A child too long
    // to name stays, and the folder's own erase then reports it as not empty.
    std::vector<std::string> children;
    std::string child;
    while (dirent *raw = nextEntry(dir))
        if (childPath(cut, raw->d_name, &child))
            children.push_back(child);
    closedir(dir);
    for (const std::string &child : children) {
        error = erase(child.c_str());
        if (error == kDirNotEmpty)
            error = dirObliterate(child.c_str());
        if (error != kSuccess)
            return dirTranslate(error);
    }
    return dirTranslate(erase(cut));
}

DISKFILE::ERROR DISKFILE::dirMonitorStart(MESSAGETARGET *looper, const char *path, uint32_t flags) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    return NODEMONITOR::watch(looper, cut, flags) ? kSuccess : kDirNotFound;
}

DISKFILE::ERROR DISKFILE::dirMonitorStop(MESSAGETARGET *looper) {
    CRITSECT_HOLD hold(*this);
    if (looper == nullptr)
        return kOutOfMemory;
    NODEMONITOR::unwatch(looper);
    return kSuccess;
}
