// Scratch folders and raw file helpers for the file-layer tests, independent of DISKFILE.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
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
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    chmod(path.c_str(), mode);
}

inline std::string readRaw(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "<missing>";
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
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
