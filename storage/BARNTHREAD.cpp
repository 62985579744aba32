// The storage worker: the file-operation queue, its kinds, the change observer, queries.
#include "storage/BARNTHREAD.h"

#include <cstring>
#include <string>
#include <vector>

#include "base/DISKFILE.h"
#include "base/STR.h"
#include "base/THREAD.h"
#include "base/TIMEBASE.h"
#include "message/VMSG.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"
#include "storage/MSGIDINDEX.h"

BARNTHREAD barnThread;

namespace {
// "((VELLOWICK:msgid=="<id>")&&(BEOS:TYPE=="text/x-vellowick"))"
std::string msgidQuery(const char *msgid) {
    return std::string("((") + MSGIDINDEX::kAttribute + "==\"" + msgid + "\")&&(" +
           DISKFILE::kQueryTypeName + "==\"" + VMSG::kMimeType + "\"))";
}

// The value of a message file's type attribute, or 0.
int32_t typeOf(DISKFILE *file) {
    int32_t type = 0;
    if (VMSG::attrRead(file, VMSG::AttrType, &type, sizeof(type)) != DISKFILE::kSuccess)
        return 0;
    return type;
}
} // namespace

bool BARNTHREAD::start() {
    {
        CRITSECT_HOLD hold(fLock);
        if (fQueue != nullptr)
            return true;
        BARNINFO::pathServers(fServers, sizeof(fServers));
        DISKFILE file;
        DISKFILE::ENTRYTYPE type = DISKFILE::kEntryUnknown;
        if (file.typeGet(fServers, &type) != DISKFILE::kSuccess ||
            type != DISKFILE::kEntryDirectory)
            return false;
        fQueue = new std::deque<ITEM>;
        fPause = false;
        fPasses = 0;
    }
    if (THREAD::spawn(_work, kWorkerName, this, THREAD::kPauseDefault, THREAD::kPriorityNormal) ==
            nullptr ||
        THREAD::spawn(_reap, kReaperName, this, THREAD::kPauseDefault, THREAD::kPriorityLow) ==
            nullptr) {
        stop();
        return false;
    }
    return true;
}

void BARNTHREAD::stop() {
    CRITSECT_HOLD hold(fLock);
    delete fQueue;
    fQueue = nullptr;
}

bool BARNTHREAD::fileOp(FILEOP op, long long node, const char *text, long value) {
    if (op < DeleteFile || op > MessageType || op == DeleteStale)
        return false;
    ITEM item{};
    item.op = op;
    item.node = node;
    STR::copy(item.text, text != nullptr ? text : "", sizeof(item.text));
    item.value = int32_t(value);
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr)
        return false;
    fQueue->push_back(item);
    return true;
}

size_t BARNTHREAD::queued() {
    CRITSECT_HOLD hold(fLock);
    return fQueue != nullptr ? fQueue->size() : 0;
}

bool BARNTHREAD::changeCallbackRegister(CHANGEFUNC callback) {
    CRITSECT_HOLD hold(fLock);
    if (callback == nullptr || fChange != nullptr)
        return false;
    fChange = callback;
    return true;
}

bool BARNTHREAD::changeCallbackUnregister(CHANGEFUNC callback) {
    CRITSECT_HOLD hold(fLock);
    if (callback == nullptr || fChange != callback)
        return false;
    fChange = nullptr;
    return true;
}

void BARNTHREAD::_changed(long long node) {
    CHANGEFUNC callback;
    {
        CRITSECT_HOLD hold(fLock);
        callback = fChange;
    }
    if (callback != nullptr && node >= 0)
        callback(node);
}

bool BARNTHREAD::_take(ITEM *item) {
    CRITSECT_HOLD hold(fLock);
    if (fQueue == nullptr || fQueue->empty())
        return false;
    *item = fQueue->front();
    fQueue->pop_front();
    return true;
}

int32_t BARNTHREAD::_work(void *data) {
    auto *self = static_cast<BARNTHREAD *>(data);
    ITEM item;
    if (self->_take(&item))
        self->_apply(item);
    return THREAD::kAgain;
}

void BARNTHREAD::_apply(const ITEM &item) {
    if (item.op == DeleteNode) {
        if (item.value != 0)
            reaperPauseSet();
        BARNFILE::dirTrash(item.text);
        return;
    }
    if (item.op == MarkReadMsgID) {
        _msgidMark(item.text, item.value != 0);
        return;
    }
    BARN::NODE node;
    if (!barn.nodeRead(&node, item.node))
        return; // the node has gone meanwhile
    if (item.text[0] != '\0') {
        char path[BARNINFO::kPathSize];
        STR::copy(path, node.path, sizeof(path));
        BARNINFO::pathAppend(path, sizeof(path), item.text);
        _fileApply(item, node.number, path);
        return;
    }
    for (const std::string &file : BARNFILE::entries(node.path, DISKFILE::kEntryFile)) {
        if (!THREAD::running())
            return;
        _fileApply(item, node.number, file.c_str());
    }
}

// One message file; failures skip the file.
bool BARNTHREAD::_fileApply(const ITEM &item, int64_t node, const char *path) {
    switch (item.op) {
    case DeleteFile: {
        bool read = true;
        bool message = VMSG::fileIsRead(path, &read);
        DISKFILE file;
        if (file.trash(path) != DISKFILE::kSuccess)
            return false;
        if (message && !read)
            barn.nodeUnreadCount(node, -1, 1);
        return true;
    }
    case MarkRead: {
        bool wanted = item.value != 0;
        bool read = false;
        if (!VMSG::fileIsRead(path, &read) || read == wanted)
            return false;
        int64_t number = -1;
        if (!VMSG::setRead(path, wanted, &number))
            return false;
        _changed(number);
        barn.nodeUnreadCount(node, wanted ? -1 : 1, 1);
        return true;
    }
    case MarkDownload:
    case MessageType: {
        DISKFILE file;
        int64_t number = -1;
        if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess ||
            file.node(&number) != DISKFILE::kSuccess)
            return false;
        int32_t before = typeOf(&file);
        bool done = item.op == MarkDownload ? VMSG::setDownload(&file, item.value != 0)
                                            : VMSG::setType(&file, item.value);
        if (!done || typeOf(&file) == before)
            return false;
        _changed(number);
        return true;
    }
    default:
        return false;
    }
}

bool BARNTHREAD::_inServers(const char *path) {
    size_t length = std::strlen(fServers);
    return length > 0 && std::strncmp(path, fServers, length) == 0 && path[length] == '/';
}

void BARNTHREAD::_msgidMark(const char *msgid, bool read) {
    struct FOUND {
        std::vector<DISKFILE::ENTRY> entries;
    } found;
    DISKFILE file;
    file.query(
        barn.volumeGet(), msgidQuery(msgid).c_str(),
        [](void *data, const DISKFILE::ENTRY &entry) {
            auto *found = static_cast<FOUND *>(data);
            // The 80th result ends the query, deliberately bounding the work.
            if (found->entries.size() >= size_t(kQueryMarkMax))
                return false;
            found->entries.push_back(entry);
            return true;
        },
        &found);
    for (const DISKFILE::ENTRY &entry : found.entries) {
        if (!THREAD::running())
            return;
        BARN::NODE node;
        if (!barn.nodeRead(&node, entry.directory) || !node.holdsMessages)
            continue;
        bool isRead = false;
        if (!VMSG::fileIsRead(entry.path, &isRead) || isRead == read)
            continue;
        int64_t number = -1;
        if (!VMSG::setRead(entry.path, read, &number))
            continue;
        _changed(number);
        barn.nodeUnreadCount(node.number, read ? -1 : 1, 1);
    }
}

bool BARNTHREAD::messageIsRead(const char *msgid) {
    if (msgid == nullptr || msgid[0] == '\0')
        return false;
    struct FIRST {
        BARNTHREAD *self;
        bool found = false;
        bool read = false;
    } first{this};
    DISKFILE file;
    file.query(
        barn.volumeGet(), msgidQuery(msgid).c_str(),
        [](void *data, const DISKFILE::ENTRY &entry) {
            auto *first = static_cast<FIRST *>(data);
            if (!first->self->_inServers(entry.path))
                return true;
            first->found = VMSG::fileIsRead(entry.path, &first->read);
            return !first->found;
        },
        &first);
    return first.found && first.read;
}

bool BARNTHREAD::messageStale(long long datetime) {
    uint16_t days = BARNINFO::messageRetention();
    if (days == 0)
        return false;
    return TIMEBASE::timeGet() - datetime >= int64_t(days) * kDay;
}

void BARNTHREAD::timingSet(const TIMING &timing) {
    CRITSECT_HOLD hold(fLock);
    fTiming = timing;
}

BARNTHREAD::TIMING BARNTHREAD::timingGet() {
    CRITSECT_HOLD hold(fLock);
    return fTiming;
}
