// The storage tree: start and stop, the sorted node list, copies, unread counts, level walk.
#include "storage/BARN.h"

#include <algorithm>
#include <cstring>

#include "app/SETTINGS.h"
#include "base/DISKFILE.h"
#include "message/VMSG.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"
#include "storage/BARNTHREAD.h"
#include "storage/MSGIDINDEX.h"

BARN barn;

namespace {
bool numberLess(const BARN::NODE *node, int64_t number) {
    return node->number < number;
}
} // namespace

BARN::~BARN() {
    if (fList != nullptr) {
        for (NODE *node : *fList)
            delete node;
        delete fList;
    }
}

bool BARN::start() {
    {
        CRITSECT_HOLD hold(fLock);
        if (fList != nullptr)
            return true;
        fFinal = false;
        fLoading = false;
        ++fGeneration;
        fList = new std::vector<NODE *>;
        fList->reserve(kListStep);
    }
    // The message-file class finds its HTML scratch file in the data directory itself.
    VMSG::csetDefault(BARNINFO::charsetGet());
    if (!BARNFILE::storageCreate()) {
        stop();
        return false;
    }
    DISKFILE file;
    int64_t device = -10;
    if (file.dirVolume(SETTINGS::storage.path, &device) != DISKFILE::kSuccess) {
        stop();
        return false;
    }
    {
        CRITSECT_HOLD hold(fLock);
        fVolume = device;
    }
    // The Message-ID index is rebuilt from this directory when it is missing or was built
    // for another one.
    MSGIDINDEX::rootSet(SETTINGS::storage.path);
    FILEINDEX::install(MSGIDINDEX::hook());
    if (!_fixedAdd(FIXEDFOLDER::Drafts) || !_fixedAdd(FIXEDFOLDER::Outbox) ||
        !_fixedAdd(FIXEDFOLDER::Sent) || !barnThread.start()) {
        stop();
        return false;
    }
    return true;
}

void BARN::stop() {
    barnThread.stop();
    // Every other thread has stopped: what the index batched and the counts filing kept in
    // memory are written now.
    FILEINDEX::install(nullptr);
    MSGIDINDEX::close();
    CRITSECT_HOLD hold(fLock);
    for (const auto &[number, save] : fCountSave)
        if (NODE *node = _findLocked(number); node != nullptr && save.pending)
            nodeAttrWrite(node);
    fCountSave.clear();
    if (fList != nullptr) {
        for (NODE *node : *fList)
            delete node;
        delete fList;
        fList = nullptr;
    }
    ++fGeneration;
    fVolume = -10;
    fFinal = false;
    fLoading = false;
    fLoadNode = nullptr;
    fLoadDone = nullptr;
}

bool BARN::final() {
    CRITSECT_HOLD hold(fLock);
    return fFinal;
}

long long BARN::volumeGet() {
    CRITSECT_HOLD hold(fLock);
    return fVolume;
}

size_t BARN::count() {
    CRITSECT_HOLD hold(fLock);
    return fList != nullptr ? fList->size() : 0;
}

BARN::NODE *BARN::_findLocked(int64_t number) const {
    if (fList == nullptr)
        return nullptr;
    auto at = std::lower_bound(fList->begin(), fList->end(), number, numberLess);
    return (at != fList->end() && (*at)->number == number) ? *at : nullptr;
}

bool BARN::_addLocked(NODE *node, int64_t parent) {
    if (fList == nullptr || node->number == kNodeNone)
        return false;
    auto at = std::lower_bound(fList->begin(), fList->end(), node->number, numberLess);
    if (at != fList->end() && (*at)->number == node->number)
        return false;
    node->parent = parent != kNodeNone ? _findLocked(parent) : nullptr;
    node->level = 0;
    for (NODE *up = node->parent; up != nullptr && node->level < kLevelMax; up = up->parent)
        ++node->level;
    if (fList->size() == fList->capacity()) {
        size_t index = size_t(at - fList->begin());
        fList->reserve(fList->capacity() + kListStep);
        at = fList->begin() + ptrdiff_t(index);
    }
    fList->insert(at, node);
    return true;
}

void BARN::_removeLocked(NODE *node) {
    // Depth first, so no node is left pointing at a freed parent.
    for (;;) {
        auto child = std::find_if(fList->begin(), fList->end(),
                                  [node](const NODE *each) { return each->parent == node; });
        if (child == fList->end())
            break;
        _removeLocked(*child);
    }
    auto at = std::lower_bound(fList->begin(), fList->end(), node->number, numberLess);
    if (at != fList->end() && *at == node)
        fList->erase(at);
    delete node;
}

bool BARN::nodeRead(NODE *node, long long number) {
    *node = NODE{};
    node->number = kNodeNone;
    CRITSECT_HOLD hold(fLock);
    const NODE *stored = _findLocked(number);
    if (stored == nullptr)
        return false;
    nodeCopy(node, stored);
    return true;
}

long long BARN::nodeParent(long long number) {
    CRITSECT_HOLD hold(fLock);
    const NODE *stored = _findLocked(number);
    return stored != nullptr && stored->parent != nullptr ? stored->parent->number : kNodeNone;
}

void BARN::nodeCopy(NODE *to, const NODE *from) {
    std::memcpy(static_cast<void *>(to), from, sizeof(NODE));
}

bool BARN::nodeCompare(const NODE *a, const NODE *b) {
    return std::memcmp(a, b, sizeof(NODE)) == 0;
}

long long BARN::nodeNumber(const char *path) {
    DISKFILE file;
    DISKFILE::ENTRY entry;
    if (file.pathToRef(&entry, path) != DISKFILE::kSuccess || entry.node < 0)
        return kNodeNone;
    return entry.node;
}

bool BARN::nodeUnreadCount(long long number, int mode, unsigned long n) {
    NODE copy{};
    {
        CRITSECT_HOLD hold(fLock);
        NODE *node = _findLocked(number);
        if (node == nullptr || !node->holdsMessages)
            return false;
        // Any amount beyond twice the ceiling lands on the same side of the clamp.
        int64_t amount = int64_t(std::min<unsigned long>(n, 2UL * kUnreadMax));
        int64_t value = node->unread;
        if (mode < 0)
            value -= amount;
        else if (mode == 0)
            value = amount;
        else
            value += amount;
        value = std::clamp<int64_t>(value, 0, kUnreadMax);
        if (uint32_t(value) == node->unread)
            return true;
        nodeCopy(&copy, node);
        copy.unread = uint32_t(value);
        if (!nodeAttrWrite(&copy))
            return false;
        node->unread = copy.unread;
    }
    _notify(copy);
    return true;
}

void BARN::_notify(const NODE &copy) {
    UNREADFUNC callback;
    {
        CRITSECT_HOLD hold(fLock);
        callback = fUnread;
    }
    if (callback != nullptr && copy.holdsMessages)
        callback(&copy);
}

void BARN::_treeNotify(long long number) {
    TREEFUNC callback;
    {
        CRITSECT_HOLD hold(fLock);
        callback = fTree;
    }
    if (callback != nullptr)
        callback(number);
}

bool BARN::treeCallbackRegister(TREEFUNC callback) {
    CRITSECT_HOLD hold(fLock);
    if (callback == nullptr || fTree != nullptr)
        return false;
    fTree = callback;
    return true;
}

bool BARN::treeCallbackUnregister(TREEFUNC callback) {
    CRITSECT_HOLD hold(fLock);
    if (callback == nullptr || fTree != callback)
        return false;
    fTree = nullptr;
    return true;
}

bool BARN::unreadCallbackRegister(UNREADFUNC callback) {
    CRITSECT_HOLD hold(fLock);
    if (callback == nullptr || fUnread != nullptr)
        return false;
    fUnread = callback;
    return true;
}

bool BARN::unreadCallbackUnregister(UNREADFUNC callback) {
    CRITSECT_HOLD hold(fLock);
    if (callback == nullptr || fUnread != callback)
        return false;
    fUnread = nullptr;
    return true;
}

void BARN::iterateMain(NODEFUNC callback) {
    std::vector<NODE> copies;
    {
        CRITSECT_HOLD hold(fLock);
        if (fList == nullptr)
            return;
        copies.reserve(fList->size());
        for (const NODE *node : *fList)
            if (!folderStorage(node))
                copies.push_back(*node);
    }
    // Number order within a level, as the list holds them.
    std::stable_sort(copies.begin(), copies.end(),
                     [](const NODE &a, const NODE &b) { return a.level < b.level; });
    auto at = copies.begin();
    for (uint32_t level = 0; level <= kLevelMax; ++level) {
        auto end = std::find_if(at, copies.end(),
                                [level](const NODE &node) { return node.level != level; });
        // A false result ends this level only; the next level is still walked, deliberately.
        for (; at != end; ++at)
            if (!callback(&*at))
                break;
        at = end;
    }
}
