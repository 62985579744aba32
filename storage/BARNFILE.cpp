// Storage directories: creation in the fixed order, the volume check, trash, renames, alert.
#include "storage/BARNFILE.h"

#include <cstring>

#include "app/PATHMGR.h"
#include "app/SETTINGS.h"
#include "base/ALERT.h"
#include "base/STR.h"
#include "storage/BARNINFO.h"

namespace {
using PATH = char[BARNINFO::kPathSize];

// The data directory itself may be missing on a first run; its parents are made quietly and
// the directory is then created and proved like the others.
bool rootCreate() {
    PATH root;
    STR::copy(root, SETTINGS::storage.path, sizeof(root));
    DISKFILE file;
    DISKFILE::ENTRYTYPE type = DISKFILE::kEntryUnknown;
    if (file.typeGet(root, &type) != DISKFILE::kSuccess)
        PATHMGR::dirsCreate(root);
    return BARNFILE::dirCreate(root);
}
} // namespace

std::vector<std::string> BARNFILE::entries(const char *path, DISKFILE::ENTRYTYPE type,
                                           bool recurse) {
    struct FOUND {
        DISKFILE::ENTRYTYPE type;
        std::vector<std::string> paths;
    } found{type, {}};
    DISKFILE file;
    if (recurse) {
        file.dirIterate(
            path, true,
            [](void *data, bool *, int32_t, const DISKFILE::ENTRY &entry) {
                auto *found = static_cast<FOUND *>(data);
                if (entry.type == found->type)
                    found->paths.emplace_back(entry.path);
                return true;
            },
            &found);
    } else {
        file.dirIterate(
            path,
            [](void *data, const DISKFILE::ENTRY &entry) {
                auto *found = static_cast<FOUND *>(data);
                if (entry.type == found->type)
                    found->paths.emplace_back(entry.path);
                return true;
            },
            &found);
    }
    return found.paths;
}

void BARNFILE::alert(const char *what, const char *path, DISKFILE::ERROR error) {
    ALERT::showf("%s.\n\nPath: %s\nProblem: %s\n", what, path, DISKFILE::errorStr(error));
}

bool BARNFILE::dirCreate(const char *path) {
    DISKFILE file;
    DISKFILE::ERROR error = file.dirCreate(path, DISKFILE::kReadWrite);
    if (error != DISKFILE::kSuccess && error != DISKFILE::kDirExists) {
        alert("Couldn't create storage directory", path, error);
        return false;
    }
    error = file.dirAccess(path);
    if (error != DISKFILE::kSuccess) {
        alert("Can't access storage directory", path, error);
        return false;
    }
    return true;
}

bool BARNFILE::volumeCheck() {
    PATH root;
    STR::copy(root, SETTINGS::storage.path, sizeof(root));
    DISKFILE file;
    bool answer = false;
    DISKFILE::ERROR error = file.dirIsBFS(root, &answer);
    if (error != DISKFILE::kSuccess) {
        ALERT::showf("Invalid storage path: %s\n\nPath: %s", DISKFILE::errorStr(error), root);
        return false;
    }
    if (!answer) {
        ALERT::showf("Your storage path points to a location that is unacceptable.  Message "
                     "files must be stored on a writable BFS volume.\n\nPath: %s",
                     root);
        return false;
    }
    return true;
}

bool BARNFILE::storageCreate() {
    if (!rootCreate())
        return false;
    PATH path;
    BARNINFO::pathStorage(path, sizeof(path));
    if (!dirCreate(path) || !volumeCheck())
        return false;
    void (*const folders[])(char *, unsigned long) = {
        BARNINFO::pathDrafts, BARNINFO::pathOutbox,  BARNINFO::pathSaved,
        BARNINFO::pathSent,   BARNINFO::pathServers, BARNINFO::pathTemp,
    };
    for (auto folder : folders) {
        folder(path, sizeof(path));
        if (!dirCreate(path))
            return false;
    }
    return true;
}

bool BARNFILE::dirTrash(const char *path) {
    DISKFILE file;
    DISKFILE::ERROR error = file.dirTrash(path);
    if (error == DISKFILE::kSuccess || error == DISKFILE::kDirNotFound)
        return true;
    alert("Couldn't send storage directory to the trash", path, error);
    return false;
}

bool BARNFILE::dirReboot(const char *path) {
    return dirTrash(path) && dirCreate(path);
}

bool BARNFILE::dirRename(const char *path, const char *leaf) {
    PATH to;
    STR::copy(to, path, sizeof(to));
    char *slash = std::strrchr(to, '/');
    if (slash != nullptr)
        slash[1] = '\0';
    else
        to[0] = '\0';
    STR::cat(to, leaf, sizeof(to));
    DISKFILE file;
    DISKFILE::ERROR error = file.dirRename(path, to);
    if (error != DISKFILE::kSuccess) {
        alert("Couldn't rename storage directory", path, error);
        return false;
    }
    return true;
}
