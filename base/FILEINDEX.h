// What the file layer reports to the store's attribute index, and how its queries are answered.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

// DISKFILE keeps an installed index true: every write of the indexed attribute and every erase,
// rename, move, copy and trash of a file that carries one is reported here, and queries on the
// attribute are answered from it. The store installs its index at start and removes it at stop;
// with none installed, files are written unindexed and queries find nothing.
class FILEINDEX {
public:
    // The one attribute the store indexes: a message file's Message-ID.
    static constexpr const char *kAttribute = "VELLOWICK:msgid";
    static bool indexed(const char *name) {
        return name != nullptr && strcmp(name, kAttribute) == 0;
    }

    virtual ~FILEINDEX() = default;
    // Paths of the files recorded with this value on this device; false when the index cannot
    // be read.
    virtual bool lookup(int64_t device, std::string_view value,
                        std::vector<std::string> *paths) = 0;
    // Records what the file at path carries now (written, dropped, or gone).
    virtual void fileSync(const char *path) = 0;
    virtual void fileRename(const char *from, const char *to) = 0;
    virtual void fileRemove(const char *path) = 0;
    // Everything below a directory that was renamed or removed.
    virtual void dirRename(const char *from, const char *to) = 0;
    virtual void dirRemove(const char *path) = 0;

    // The index in use, or null. Installing is safe while other threads use files.
    static void install(FILEINDEX *index);
    static FILEINDEX *installed();
};
