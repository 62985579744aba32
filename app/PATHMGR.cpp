// Where the program's own directories are: settings, home, and the executable's name.
#include "app/PATHMGR.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <string>
#include <unistd.h>

#include "base/DISKFILE.h"
#include "base/STR.h"

PATHMGR pathMgr;

void PATHMGR::slashesDrop(char *path) {
    size_t length = std::strlen(path);
    while (length > 1 && path[length - 1] == '/')
        path[--length] = '\0';
}

bool PATHMGR::dirsCreate(const char *path) {
    DISKFILE file;
    std::string whole = path;
    size_t at = 0;
    while (at != std::string::npos) {
        at = whole.find('/', at + 1);
        std::string part = whole.substr(0, at);
        DISKFILE::ENTRYTYPE type = DISKFILE::kEntryUnknown;
        if (file.typeGet(part.c_str(), &type) == DISKFILE::kSuccess) {
            // A link is taken to lead to a directory; if not, the next level fails.
            if (type == DISKFILE::kEntryDirectory || type == DISKFILE::kEntryLink)
                continue;
            return false;
        }
        DISKFILE::ERROR error = file.dirCreate(part.c_str(), DISKFILE::kReadWrite);
        if (error != DISKFILE::kSuccess && error != DISKFILE::kDirExists)
            return false;
    }
    return true;
}

const char *PATHMGR::prefDir() {
    CRITSECT_HOLD hold(fLock);
    if (!fPrefFound) {
        _xdgFind(fPrefDir, "XDG_CONFIG_HOME", kConfigFolder);
        // A directory that cannot be made is reported by whoever writes into it.
        dirsCreate(fPrefDir);
        fPrefFound = true;
    }
    return fPrefDir;
}

const char *PATHMGR::dataDir() {
    CRITSECT_HOLD hold(fLock);
    if (!fDataFound) {
        _xdgFind(fDataDir, "XDG_DATA_HOME", kDataFolder);
        fDataFound = true;
    }
    return fDataDir;
}

void PATHMGR::_xdgFind(char *buffer, const char *variable, const char *folder) {
    const char *value = std::getenv(variable);
    if (value != nullptr && value[0] == '/') {
        STR::copy(buffer, value, kPathMax + 1);
    } else {
        STR::copy(buffer, pathHome(), kPathMax + 1);
        if (std::strcmp(buffer, "/") != 0)
            STR::cat(buffer, "/", kPathMax + 1);
        STR::cat(buffer, folder, kPathMax + 1);
    }
    slashesDrop(buffer);
}

const char *PATHMGR::progName() {
    CRITSECT_HOLD hold(fLock);
    _progFind();
    return fProgName;
}

const char *PATHMGR::progDir() {
    CRITSECT_HOLD hold(fLock);
    _progFind();
    return fProgDir;
}

const char *PATHMGR::pathHome() {
    CRITSECT_HOLD hold(fLock);
    _homeFind();
    return fHome;
}

bool PATHMGR::homeDir(const char *path) {
    if (path == nullptr || path[0] == '\0')
        return false;
    char home[kPathMax + 1];
    STR::copy(home, path, sizeof home);
    slashesDrop(home);
    DISKFILE file;
    if (file.dirAccess(home) != DISKFILE::kSuccess) {
        if (!dirsCreate(home) || file.dirAccess(home) != DISKFILE::kSuccess)
            return false;
    }
    CRITSECT_HOLD hold(fLock);
    STR::copy(fHome, home, sizeof fHome);
    fHomeFound = true;
    return true;
}

void PATHMGR::progSet(const char *path) {
    CRITSECT_HOLD hold(fLock);
    const char *slash = std::strrchr(path, '/');
    STR::copy(fProgName, slash != nullptr ? slash + 1 : path, sizeof fProgName);
    if (slash == nullptr)
        fProgDir[0] = '\0';
    else
        STR::copy(fProgDir, std::string_view(path, size_t(slash - path)), sizeof fProgDir);
    if (fProgDir[0] == '\0' && slash == path)
        STR::copy(fProgDir, "/", sizeof fProgDir);
    fProgFound = true;
}

void PATHMGR::_homeFind() {
    if (fHomeFound)
        return;
    const char *home = std::getenv("HOME");
    if (home != nullptr && home[0] == '/') {
        STR::copy(fHome, home, sizeof fHome);
    } else {
        struct passwd entry;
        struct passwd *found = nullptr;
        char buffer[4096];
        bool known = getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 &&
                     found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/';
        STR::copy(fHome, known ? found->pw_dir : "/", sizeof fHome);
    }
    slashesDrop(fHome);
    fHomeFound = true;
}

void PATHMGR::_progFind() {
    if (fProgFound)
        return;
    char path[PATH_MAX + 1];
    ssize_t length = readlink("/proc/self/exe", path, PATH_MAX);
    if (length <= 0) {
        // Without /proc the program still needs a name for its settings file.
        progSet("vellowick");
        return;
    }
    path[length] = '\0';
    progSet(path);
}
