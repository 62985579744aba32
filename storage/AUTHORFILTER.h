// Whether an author's messages are hidden: the killfile, as the store and the downloader ask it.
#pragma once

// The killfile belongs to the reading side, which builds on the store and the transfers; it
// installs its test here when it starts, so the reaper and the downloader can ask it without
// depending on it.
class AUTHORFILTER {
public:
    using FIND = bool (*)(const char *name, const char *address);

    // The test in use from now on; null removes it (nobody is hidden).
    static void install(FIND find);
    // True when the installed test hides this author.
    static bool killed(const char *name, const char *address);
};
