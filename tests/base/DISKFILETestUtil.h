// Scratch folders and raw file helpers for the file-layer tests, independent of DISKFILE.
#pragma once

#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "tests/support/TestHome.h"

namespace filetest {

// A fresh, empty folder below the test home for each call.
inline std::string freshDir(const std::string &name) {
    static int serial = 0;
    std::string path = testhome::path() + "/" + name + "-" + std::to_string(++serial);
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
    return path;
}

inline void writeRaw(const std::string &path, const std::string &bytes, mode_t mode = 0644) {
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0)
        return;
    [[maybe_unused]] ssize_t wrote = ::write(fd, bytes.data(), bytes.size());
    ::close(fd);
    chmod(path.c_str(), mode);
}

inline std::string readRaw(const std::string &path) {
    std::string bytes;
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0)
        return "<missing>";
    char buffer[4096];
    ssize_t got;
    while ((got = ::read(fd, buffer, sizeof(buffer))) > 0)
        bytes.append(buffer, size_t(got));
    ::close(fd);
    return bytes;
}

inline bool exists(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0;
}

inline int64_t inode(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? int64_t(info.st_ino) : -1;
}

// The stored bytes of extended attribute name (with its namespace), or "<none>".
inline std::string xattrRaw(const std::string &path, const std::string &name) {
    char buffer[65536 + 16];
    ssize_t got = lgetxattr(path.c_str(), name.c_str(), buffer, sizeof(buffer));
    return got < 0 ? std::string("<none>") : std::string(buffer, size_t(got));
}

} // namespace filetest
