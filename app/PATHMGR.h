// Where the program's own directories are: settings, home, and the executable's name.
#pragma once

#include <cstddef>

#include "base/CRITSECT.h"

// Each directory is found once on first use, under the object's lock, and then kept; the
// answers stay valid for the life of the process.
class PATHMGR {
public:
    static constexpr size_t kPathMax = 300;
    static constexpr size_t kNameMax = 255;
    // Below the home directory when XDG_CONFIG_HOME is not set.
    static constexpr const char *kConfigFolder = ".config";
    static constexpr const char *kDataFolder = ".local/share";

    // The user settings directory: $XDG_CONFIG_HOME, else $HOME/.config; created if missing.
    const char *prefDir();
    // The leaf name of the program's executable, and the directory that holds it.
    const char *progName();
    const char *progDir();
    // The user's home directory: $HOME, else the password database's entry.
    const char *pathHome();
    // Replaces the home directory answered from now on when path can be written and read
    // back, or created; otherwise leaves it and answers false.
    bool homeDir(const char *path);
    // Takes path as the program's executable (an embedding program or a test names itself).
    void progSet(const char *path);
    // The user's data directory: $XDG_DATA_HOME, else $HOME/.local/share (not created).
    const char *dataDir();

    // Creates every missing directory of an absolute path; false when one cannot be made.
    static bool dirsCreate(const char *path);
    // Removes trailing slashes in place, keeping a lone "/".
    static void slashesDrop(char *path);

private:
    CRITSECT fLock;
    bool fPrefFound = false;
    bool fProgFound = false;
    bool fHomeFound = false;
    bool fDataFound = false;
    char fPrefDir[kPathMax + 1] = {};
    char fProgName[kNameMax + 1] = {};
    char fProgDir[kPathMax + 1] = {};
    char fHome[kPathMax + 1] = {};
    char fDataDir[kPathMax + 1] = {};

    void _homeFind();
    // $variable when it holds an absolute path, else home/folder; no trailing slash.
    void _xdgFind(char *buffer, const char *variable, const char *folder);
    void _progFind();
};

extern PATHMGR pathMgr;
