// Storage directories, the per-server newsgroups list file, bookmarks and the storage alert.
#pragma once

#include <string>
#include <vector>

#include "base/DISKFILE.h"

// Every operation shows its own alert on failure (the storage alert, or the text given with
// it) and reports false; callers do not alert again.
class BARNFILE {
public:
    // The newsgroups list is read in lines of up to this many characters.
    static constexpr size_t kListLineMax = 1001;
    // A bookmark's file name is the link cut to this many characters.
    static constexpr size_t kBookmarkNameMax = 60;
    static constexpr const char *kListMime = "text/plain";
    static constexpr const char *kBookmarkMime = "application/x-vnd.Be-bookmark";
    static constexpr const char *kBookmarkUrl = "META:url";
    static constexpr const char *kBookmarkTitle = "META:title";

    using LIST = std::vector<std::string>;

    // Creates the data directory's folders in their fixed order and checks its volume.
    static bool storageCreate();
    // The data directory must lie on a writable volume that keeps user attributes.
    static bool volumeCheck();
    // Creates a directory (an existing one is fine) and proves it can be written and read.
    static bool dirCreate(const char *path);
    // Moves a directory to the Trash; one that is not there counts as moved.
    static bool dirTrash(const char *path);
    // Moves any directory of that name to the Trash, deliberately keeping a leftover
    // recoverable, then creates a fresh empty one.
    static bool dirReboot(const char *path);
    // Replaces the last component of path with leaf.
    static bool dirRename(const char *path, const char *leaf);

    // The server's newsgroups list: valid names only, in list order without duplicates. An
    // unknown server gives an empty list and true.
    static bool slistRead(long long server, LIST *list);
    // Writes the list (sorted first), keeping the previous file as "Newsgroups.bak".
    static bool slistWrite(long long server, LIST *list);
    static void slistAdd(LIST *list, const char *name);
    static void slistClear(LIST *list);
    // Sorts in list order and removes duplicates (of equal names the first stays).
    static void slistSort(LIST *list);

    // A bookmark file for a link in the scratch folder; *ref names it. False without an
    // alert on any failure or for an empty link.
    static bool bookmarkCreate(const char *url, DISKFILE::ENTRY *ref);

    // Paths of the entries of one type in a directory (and, with recurse, below it), in the
    // order the directory lists them, collected before the caller touches any of them.
    static std::vector<std::string> entries(const char *path, DISKFILE::ENTRYTYPE type,
                                            bool recurse = false);

    // "<what>.\n\nPath: <path>\nProblem: <error text>\n"
    static void alert(const char *what, const char *path, DISKFILE::ERROR error);
};
