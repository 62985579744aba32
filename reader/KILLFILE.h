// The killfile: authors whose messages the user does not want to see, kept in killfile.txt.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/CRITSECT.h"

// A process-wide list of entries, each naming one author by the exact pair of display name
// and e-mail address. It exists between Start and Stop; every operation runs under one lock,
// so the header loader, the downloader and the storage worker may call Find while the user
// adds an entry. Operations before Start (or after Stop) find nothing and add nothing.
class KILLFILE {
public:
    static constexpr size_t kKeyMax = 300;       // name, TAB, address
    static constexpr size_t kLineMax = 1000;     // longer lines are taken cut, deliberately
    static constexpr size_t kFieldMax = 299;     // each field of a line
    static constexpr size_t kListCapacity = 200; // the list starts with room for this many
    static constexpr int64_t kNever = INT64_MAX; // the expiry of an entry kept for ever
    static constexpr int32_t kSecondsDigitsMax = 10;
    static constexpr const char *kNoneTime = "None";
    static constexpr const char *kMimeType = "text/plain";
    static constexpr uint32_t kFileMode = 0600;

    struct BOZO {
        char key[kKeyMax + 1];
        int64_t added;   // usecs
        int64_t expires; // usecs; kNever for never
    };

    // Creates the list and reads the file. False only when the list cannot be made.
    static bool Start();
    // Writes the file (erased when the list is empty), then frees the list. Safe without a
    // start.
    static void Stop();
    // Whether the author is in the list; false for a refused key.
    static bool Find(const char *name, const char *address);
    // Adds the author (added now, expiring after RemoveTime, or never when it is 0); false
    // when the author is already there or the key is refused.
    static bool Add(const char *name, const char *address);
    // The ApplyToDownload setting.
    static bool ApplyToDownload();

    // The key of an author: empty or "<None>" texts become "<None>". False (key emptied) when
    // both are empty, either holds a TAB, begins or ends with a blank, TAB or line feed, or
    // the key would be longer than kKeyMax.
    static bool nameFormat(char *key, size_t size, const char *name, const char *address);
    // Key order: ASCII case ignored first in the shared list order, then case breaks ties.
    static int listCompare(const char *a, const char *b);
    // Reads one time field of a line: empty 0, "None" never, up to ten digits (an optional
    // '+') as seconds, or a plain date and time text (GMT). False for anything else.
    static bool timeField(const char *text, int64_t *time);

    // A copy of the entries in key order (empty when not started).
    static std::vector<BOZO> entries();

private:
    static CRITSECT sLock;
    static std::vector<BOZO> *sList;

    static void _read();
    static bool _write();
    static bool _listAdd(const char *line, int64_t now);
    static void _sort();
    static int64_t _expiry(int64_t from);
    static const BOZO *_find(const char *key);
};
