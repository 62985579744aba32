// DISKFILE: the typed attributes of the open file, and copying them to another file.
#include "base/DISKFILE.h"

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "base/DISKFILEXATTR.h"
#include "base/FILEINDEX.h"

DISKFILE::ERROR DISKFILE::_attrBegin(const char *name, ACCESS access) {
    if (fFd < 0)
        return kNotOpen;
    if (name == nullptr || name[0] == '\0')
        return kPathInvalid;
    return _permRequire(access);
}

DISKFILE::ERROR DISKFILE::attrRead(const char *name, uint32_t /*type*/, int64_t position,
                                   void *buffer, size_t size, size_t *count) {
    CRITSECT_HOLD hold(*this);
    *count = 0;
    if (ERROR error = _attrBegin(name, kRead); error != kSuccess)
        return error;
    std::string raw;
    int status = DISKFILEXATTR::get(fFd, nullptr, DISKFILEXATTR::fullName(name), &raw);
    if (status != 0) {
        ERROR error = errorGet(status, kReadFailed);
        return error == kNotFound ? kAttrNotFound : error;
    }
    uint32_t stored = 0;
    std::string_view value;
    // A value too short for its type tag was not written by this program.
    if (!DISKFILEXATTR::decode(raw, &stored, &value))
        return kContentsInvalid;
    if (position < 0)
        return kReadFailed;
    if (uint64_t(position) >= value.size())
        return kEndOfFile;
    size_t length = value.size() - size_t(position);
    if (length > size)
        length = size;
    if (length == 0)
        return kEndOfFile;
    memcpy(buffer, value.data() + position, length);
    *count = length;
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::attrWrite(const char *name, uint32_t type, int64_t position,
                                    const void *buffer, size_t size, size_t *count) {
    CRITSECT_HOLD hold(*this);
    *count = 0;
    if (ERROR error = _attrBegin(name, kWrite); error != kSuccess)
        return error;
    if (buffer == nullptr && size > 0)
        return kPathInvalid;
    if (position < 0)
        return kWriteFailed;
    // Refused here as the kernel would refuse it, before a far position builds its padding.
    if (uint64_t(position) > DISKFILEXATTR::kValueMax ||
        size > DISKFILEXATTR::kValueMax - size_t(position))
        return errorGet(E2BIG, kWriteFailed);
    const std::string full = DISKFILEXATTR::fullName(name);
    std::string raw;
    if (position == 0) {
        // Writing from the start replaces the value, as the platform's attribute write did.
        DISKFILEXATTR::encode(type, buffer, size, &raw);
    } else {
        std::string old;
        uint32_t oldType = 0;
        std::string_view oldValue;
        if (DISKFILEXATTR::get(fFd, nullptr, full, &old) == 0)
            DISKFILEXATTR::decode(old, &oldType, &oldValue);
        std::string value(oldValue);
        if (value.size() < size_t(position) + size)
            value.resize(size_t(position) + size, '\0');
        if (size > 0)
            memcpy(value.data() + position, buffer, size);
        DISKFILEXATTR::encode(type, value.data(), value.size(), &raw);
    }
    int status = DISKFILEXATTR::set(fFd, full, raw.data(), raw.size());
    if (status != 0) {
        ERROR error = errorGet(status, kWriteFailed);
        return error == kNotFound ? kAttrNotFound : error;
    }
    *count = size;
    if (FILEINDEX *index = FILEINDEX::installed(); index != nullptr && FILEINDEX::indexed(name))
        index->fileSync(fPath);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::attrInfo(const char *name, uint32_t *type, uint64_t *size) {
    CRITSECT_HOLD hold(*this);
    *type = 0;
    *size = 0;
    if (ERROR error = _attrBegin(name, kRead); error != kSuccess)
        return error;
    std::string raw;
    int status = DISKFILEXATTR::get(fFd, nullptr, DISKFILEXATTR::fullName(name), &raw);
    // Deliberately not turned into "Attribute not found": a missing attribute reports 23
    // here, unlike attrRead and attrWrite.
    if (status != 0)
        return errorGet(status, kAttrNotFound);
    std::string_view value;
    if (!DISKFILEXATTR::decode(raw, type, &value))
        return kContentsInvalid;
    *size = value.size();
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::attrErase(const char *name) {
    CRITSECT_HOLD hold(*this);
    if (ERROR error = _attrBegin(name, kWrite); error != kSuccess)
        return error;
    int status = DISKFILEXATTR::remove(fFd, DISKFILEXATTR::fullName(name));
    if (status != 0)
        return errorGet(status, kWriteFailed);
    if (FILEINDEX *index = FILEINDEX::installed(); index != nullptr && FILEINDEX::indexed(name))
        index->fileSync(fPath);
    return kSuccess;
}

// Copies every attribute of this object's open file to the open file of to: each value cut
// to kCopyChunk, the MIME type as it stands. A value that cannot be read stops the copy,
// except the resource fork, whose failure is deliberately passed over.
DISKFILE::ERROR DISKFILE::_attrCopy(DISKFILE &to) {
    std::vector<std::string> names;
    int status = DISKFILEXATTR::list(fFd, &names);
    if (status != 0)
        return errorGet(status, kReadFailed);
    const std::string prefix = kAttrPrefix;
    std::string raw;
    for (const std::string &full : names) {
        if (full.compare(0, prefix.size(), prefix) != 0)
            continue;
        status = DISKFILEXATTR::get(fFd, nullptr, full, &raw);
        if (full == kMimeAttr) {
            if (status == 0)
                status = DISKFILEXATTR::set(to.fFd, full, raw.data(), raw.size());
            if (status != 0 && status != ENODATA)
                return errorGet(status, kWriteFailed);
            continue;
        }
        const std::string name = full.substr(prefix.size());
        const bool fork = name == kResourceFork;
        // Gone since the list was taken: nothing to copy.
        if (status == ENODATA)
            continue;
        if (status != 0) {
            if (fork)
                continue;
            return errorGet(status, kReadFailed);
        }
        uint32_t type = 0;
        std::string_view value;
        if (!DISKFILEXATTR::decode(raw, &type, &value)) {
            if (fork)
                continue;
            return kContentsInvalid;
        }
        if (value.size() > kCopyChunk)
            value = value.substr(0, kCopyChunk);
        size_t count = 0;
        ERROR error = to.attrWrite(name.c_str(), type, 0, value.data(), value.size(), &count);
        if (error != kSuccess)
            return error;
    }
    return kSuccess;
}
