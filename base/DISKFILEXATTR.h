// Typed attribute values kept as extended attributes: the four-byte type tag and raw access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

// A typed attribute NAME is the extended attribute "user.NAME" whose value is the type code,
// most significant byte first (so getfattr shows "CSTR", "LONG", ...), followed by the value
// bytes in native byte order. The functions return 0 or the errno of the failed call.
class DISKFILEXATTR {
public:
    static constexpr size_t kTagSize = 4;
    // The longest value one attribute holds: the kernel's limit on an extended attribute
    // (XATTR_SIZE_MAX, on every file system) less the tag.
    static constexpr size_t kValueMax = 65536 - kTagSize;

    // "user." followed by name.
    static std::string fullName(const char *name);

    // The whole stored value (tag included) of an attribute of an open file (fd >= 0) or of a
    // path (fd < 0, links not followed).
    static int get(int fd, const char *path, const std::string &fullName, std::string *raw);
    static int set(int fd, const std::string &fullName, const void *data, size_t size);
    static int remove(int fd, const std::string &fullName);
    // Whether the attribute exists, without reading it.
    static bool has(int fd, const char *path, const std::string &fullName);
    // Every extended attribute name of the open file, namespaces included.
    static int list(int fd, std::vector<std::string> *names);

    // Splits a stored value; false when it is too short to hold a tag.
    static bool decode(std::string_view raw, uint32_t *type, std::string_view *value);
    static void encode(uint32_t type, const void *data, size_t size, std::string *raw);
    // A string value up to its first NUL.
    static std::string_view text(std::string_view value);
};
