// Typed attribute values kept as extended attributes: the four-byte type tag and raw access.
#include "base/DISKFILEXATTR.h"

#include <cerrno>
#include <cstring>
#include <sys/xattr.h>

std::string DISKFILEXATTR::fullName(const char *name) {
    std::string full = "user.";
    full += name != nullptr ? name : "";
    return full;
}

namespace {
ssize_t getRaw(int fd, const char *path, const char *name, void *buffer, size_t size) {
    return fd >= 0 ? fgetxattr(fd, name, buffer, size) : lgetxattr(path, name, buffer, size);
}
} // namespace

int DISKFILEXATTR::get(int fd, const char *path, const std::string &fullName, std::string *raw) {
    raw->clear();
    // Most values (message texts, numbers) fit a small buffer: one call instead of two.
    char small[1024];
    ssize_t got = getRaw(fd, path, fullName.c_str(), small, sizeof(small));
    if (got >= 0) {
        raw->assign(small, size_t(got));
        return 0;
    }
    // The value may grow between asking its size and reading it; ask again then.
    for (int attempt = 0; errno == ERANGE && attempt < 4; ++attempt) {
        ssize_t size = getRaw(fd, path, fullName.c_str(), nullptr, 0);
        if (size < 0)
            break;
        raw->resize(size_t(size));
        got = getRaw(fd, path, fullName.c_str(), raw->data(), raw->size());
        if (got >= 0) {
            raw->resize(size_t(got));
            return 0;
        }
    }
    int error = errno;
    raw->clear();
    return error;
}

int DISKFILEXATTR::set(int fd, const std::string &fullName, const void *data, size_t size) {
    return fsetxattr(fd, fullName.c_str(), data, size, 0) == 0 ? 0 : errno;
}

int DISKFILEXATTR::remove(int fd, const std::string &fullName) {
    return fremovexattr(fd, fullName.c_str()) == 0 ? 0 : errno;
}

bool DISKFILEXATTR::has(int fd, const char *path, const std::string &fullName) {
    return getRaw(fd, path, fullName.c_str(), nullptr, 0) >= 0;
}

int DISKFILEXATTR::list(int fd, std::vector<std::string> *names) {
    names->clear();
    std::string buffer;
    for (int attempt = 0; attempt < 4; ++attempt) {
        ssize_t size = flistxattr(fd, nullptr, 0);
        if (size < 0)
            return errno;
        buffer.resize(size_t(size));
        ssize_t got = size > 0 ? flistxattr(fd, buffer.data(), buffer.size()) : 0;
        if (got < 0 && errno == ERANGE)
            continue;
        if (got < 0)
            return errno;
        for (size_t at = 0; at < size_t(got);) {
            size_t length = strnlen(buffer.data() + at, size_t(got) - at);
            if (length > 0)
                names->emplace_back(buffer.data() + at, length);
            at += length + 1;
        }
        return 0;
    }
    return ERANGE;
}

bool DISKFILEXATTR::decode(std::string_view raw, uint32_t *type, std::string_view *value) {
    *type = 0;
    *value = {};
    if (raw.size() < kTagSize)
        return false;
    *type = (uint32_t(uint8_t(raw[0])) << 24) | (uint32_t(uint8_t(raw[1])) << 16) |
            (uint32_t(uint8_t(raw[2])) << 8) | uint32_t(uint8_t(raw[3]));
    *value = raw.substr(kTagSize);
    return true;
}

void DISKFILEXATTR::encode(uint32_t type, const void *data, size_t size, std::string *raw) {
    raw->resize(kTagSize + size);
    (*raw)[0] = char(type >> 24);
    (*raw)[1] = char(type >> 16);
    (*raw)[2] = char(type >> 8);
    (*raw)[3] = char(type);
    if (size > 0)
        memcpy(raw->data() + kTagSize, data, size);
}

std::string_view DISKFILEXATTR::text(std::string_view value) {
    size_t end = value.find('\0');
    return end == std::string_view::npos ? value : value.substr(0, end);
}
