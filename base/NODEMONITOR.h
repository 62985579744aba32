// Node monitoring: changes to the entries of watched directories, posted to their loopers.
#pragma once

#include <cstdint>

#include "base/MESSAGE.h"

// Watches directories with inotify on a thread of its own and posts one message per change
// to every looper watching the directory. Messages have the code kWhat and the fields
// "opcode" (int32), "device" (int64), "node" (int64, the entry's inode number), "name"
// (string, the entry's name after the change) and, for created and removed entries,
// "directory" (int64, inode number of the directory); for moves "from directory" and
// "to directory" (int64; -1 for a directory outside the watched ones, as for an entry
// moved in from or out to an unwatched place) and "from name" (string, the name before the move).
// A move between watched directories reaches the loopers of both, once each; a move onto an
// existing name first reports the replaced entry as removed.
class NODEMONITOR {
public:
    static constexpr uint32_t kWhat = fourcc("NDMN");

    enum OPCODE : int32_t {
        kEntryCreated = 1,
        kEntryRemoved = 2,
        kEntryMoved = 3,
    };

    // Watch flags. kStopWatching ends one directory's watch for a looper; kWatchDirectory
    // asks for entry changes. The other bits are accepted and report nothing.
    static constexpr uint32_t kStopWatching = 0x0000;
    static constexpr uint32_t kWatchName = 0x0001;
    static constexpr uint32_t kWatchStat = 0x0002;
    static constexpr uint32_t kWatchAttr = 0x0004;
    static constexpr uint32_t kWatchDirectory = 0x0008;
    static constexpr uint32_t kWatchAll = 0x000f;

    // An unpaired "moved from" waits this long for its "moved to" before it counts as a move
    // out of the watched directories.
    static constexpr int kPairWaitMillis = 20;

    // Starts (or, with kStopWatching, ends) watching the directory at path for looper. False
    // when the path cannot be watched.
    static bool watch(MESSAGETARGET *looper, const char *path, uint32_t flags);
    // Ends every watch of looper. Once it returns, the looper receives nothing more.
    static void unwatch(MESSAGETARGET *looper);
    // Number of directories watched, for tests.
    static size_t count();
};
