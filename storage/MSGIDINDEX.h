// The Message-ID index: which message files carry which Message-ID, kept in SQLite.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/FILEINDEX.h"

// Answers the storage worker's Message-ID query without walking the store. DISKFILE keeps it
// true through the FILEINDEX hook the store installs at start: every write of the indexed
// attribute and every erase, rename, move, copy and trash of a file that carries one goes
// through here. The index is only a hint: callers verify every
// hit against the file and drop the rows that no longer hold. A missing or unreadable index
// file is rebuilt by scanning the store root. All operations are safe from any thread.
class MSGIDINDEX {
public:
    // The one indexed attribute.
    static constexpr const char *kAttribute = FILEINDEX::kAttribute;
    // Where the index lives, below $XDG_DATA_HOME (else ~/.local/share).
    static constexpr const char *kFolder = "vellowick";
    static constexpr const char *kFileName = "msgid-index.sqlite";

    // The hook through which the file layer keeps this index true (see FILEINDEX::install).
    static FILEINDEX *hook();
    // The directory a rebuild scans (the data directory). A different root from the one the
    // index was built for makes the next use rebuild it. Until it is set the index holds only
    // what was written through DISKFILE.
    static void rootSet(const char *path);
    static std::string rootGet();
    // Full path of the index file.
    static std::string location();

    // Paths of the files recorded with this Message-ID on this device.
    static bool lookup(int64_t device, std::string_view msgid, std::vector<std::string> *paths);
    // Records what the file at path carries now: its row is written from the attribute, or
    // dropped when the file carries none or is gone. Called after every change to the file
    // (both names of a rename), it keeps the index true whatever order writers run in.
    static void fileSync(const char *path);
    // A file renamed from one name to the other: its row moves along (the file is the same).
    static void fileRename(const char *from, const char *to);
    static void fileRemove(const char *path);
    // Everything below a directory that was renamed or removed.
    static void dirRename(const char *from, const char *to);
    static void dirRemove(const char *path);

    // Drops every row and scans the root again.
    static bool rebuild();
    // Closes and deletes the index file (uninstalling); the next use starts a new one.
    static bool remove();
    // Closes the database; the next use opens it again.
    static void close();
    // Number of rows, for tests and the benchmark.
    static int64_t count();
};
