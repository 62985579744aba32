// The background load of servers, newsgroups and user folders on the "FolderFind" thread.
#include <cstdint>
#include <string>
#include <vector>

#include "base/DISKFILE.h"
#include "base/THREAD.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"

namespace {
constexpr const char *kThreadName = "FolderFind";
} // namespace

bool BARN::iterateFolders(NODEFUNC node, DONEFUNC done) {
    uint64_t generation;
    {
        CRITSECT_HOLD hold(fLock);
        if (fList == nullptr || fLoading)
            return false;
        fLoading = true;
        fLoadNode = node;
        fLoadDone = done;
        generation = fGeneration;
    }
    // The thread is told which start it belongs to; after a stop it adds nothing.
    if (THREAD::spawn(_folderFind, kThreadName, reinterpret_cast<void *>(uintptr_t(generation)),
                      THREAD::kPauseDefault, THREAD::kPriorityNormal) == nullptr) {
        CRITSECT_HOLD hold(fLock);
        if (fGeneration == generation) {
            fLoading = false;
            fLoadNode = nullptr;
            fLoadDone = nullptr;
        }
        return false;
    }
    return true;
}

int32_t BARN::_folderFind(void *data) {
    barn._load(uint64_t(reinterpret_cast<uintptr_t>(data)));
    return 0; // one load per request
}

// Adds a node read by the load and tells the caller's callback; a node that is already in
// the tree (a second load) is passed on as it is stored. False when the load must end.
bool BARN::_loadAdd(uint64_t generation, NODE *node, int64_t parent) {
    NODEFUNC callback;
    NODE copy;
    {
        CRITSECT_HOLD hold(fLock);
        if (fGeneration != generation || fList == nullptr) {
            delete node;
            return false;
        }
        callback = fLoadNode;
        if (const NODE *stored = _findLocked(node->number); stored != nullptr) {
            nodeCopy(&copy, stored);
            delete node;
        } else {
            if (!_addLocked(node, parent)) {
                delete node;
                return false;
            }
            nodeCopy(&copy, node);
        }
    }
    if (callback != nullptr)
        callback(&copy);
    return true;
}

bool BARN::_loadFolders(uint64_t generation, const char *path, int64_t parent, int depth) {
    for (const std::string &folder : BARNFILE::entries(path, DISKFILE::kEntryDirectory)) {
        if (!THREAD::running())
            return false;
        auto *node = new NODE;
        SORTCLASS sortClass = depth == 0 ? SORTCLASS::Folder : SORTCLASS::Subfolder;
        if (!_listNodeRead(node, folder.c_str(), NODETYPE::Folder, FIXEDFOLDER::User, sortClass)) {
            delete node;
            continue;
        }
        int64_t number = node->number;
        if (!_loadAdd(generation, node, parent))
            return false;
        if (!_loadFolders(generation, folder.c_str(), number, depth + 1))
            return false;
    }
    return true;
}

void BARN::_load(uint64_t generation) {
    char path[BARNINFO::kPathSize];
    BARNINFO::pathServers(path, sizeof(path));
    bool going = true;
    for (const std::string &server : BARNFILE::entries(path, DISKFILE::kEntryDirectory)) {
        auto *node = new NODE;
        if (!_listNodeRead(node, server.c_str(), NODETYPE::Server, FIXEDFOLDER::User,
                           SORTCLASS::Server)) {
            delete node; // a bad name or unreadable state: not shown, deliberately silent
            continue;
        }
        int64_t number = node->number;
        if (!_loadAdd(generation, node, kNodeNone)) {
            going = false;
            break;
        }
        for (const std::string &group :
             BARNFILE::entries(server.c_str(), DISKFILE::kEntryDirectory)) {
            auto *child = new NODE;
            if (!_listNodeRead(child, group.c_str(), NODETYPE::Newsgroup, FIXEDFOLDER::User,
                               SORTCLASS::Newsgroup)) {
                delete child;
                continue;
            }
            if (!_loadAdd(generation, child, number))
                break;
        }
    }
    if (going) {
        BARNINFO::pathSaved(path, sizeof(path));
        _loadFolders(generation, path, kNodeNone, 0);
    }
    DONEFUNC done = nullptr;
    {
        CRITSECT_HOLD hold(fLock);
        if (fGeneration != generation)
            return;
        done = fLoadDone;
    }
    if (THREAD::running() && done != nullptr)
        done();
    CRITSECT_HOLD hold(fLock);
    if (fGeneration != generation)
        return;
    fLoadNode = nullptr;
    fLoadDone = nullptr;
    fLoading = false;
    fFinal = true;
}
