// Message files in the storage tree: the temporary file, filing, sent messages, counts.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "base/ALERT.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"
#include "message/VMSG.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"

namespace {
using PATH = char[BARNINFO::kPathSize];

// Downloaded articles take the large downward range of file numbers; messages the user
// files (sent messages) take the upward one.
constexpr int32_t kDownloadNumbers = VMSG::kNumberDown;
constexpr int32_t kLocalNumbers = VMSG::kNumberUp;
} // namespace

bool BARN::messageCreate(TEXTFILE *file) {
    PATH path;
    BARNINFO::pathMessageTemp(path, sizeof(path));
    DISKFILE::ERROR error = VMSG::fileCreate(file, path, 0);
    if (error != DISKFILE::kSuccess) {
        BARNFILE::alert("Couldn't create message file", path, error);
        return false;
    }
    return true;
}

bool BARN::messageMove(long long number, bool read) {
    PATH from, to;
    BARNINFO::pathMessageTemp(from, sizeof(from));
    NODE copy;
    bool notify = false;
    {
        CRITSECT_HOLD hold(fLock);
        NODE *node = _findLocked(number);
        if (node == nullptr || node->parent == nullptr || !node->holdsMessages)
            return false;
        char name[BARNINFO::kPathSize] = "";
        uint32_t last = node->type == NODETYPE::Newsgroup ? node->group.nextFile : 0;
        if (!VMSG::filenameResolve(node->path, kDownloadNumbers, &last, name, sizeof(name))) {
            BARNFILE::alert("Couldn't move message file", node->path, DISKFILE::kFileExists);
            return false;
        }
        STR::copy(to, node->path, sizeof(to));
        BARNINFO::pathAppend(to, sizeof(to), name);
        DISKFILE file;
        DISKFILE::ERROR error = file.rename(from, to);
        if (error != DISKFILE::kSuccess) {
            BARNFILE::alert("Couldn't move message file", from, error);
            return false;
        }
        nodeCopy(&copy, node);
        if (node->type == NODETYPE::Newsgroup)
            copy.group.nextFile = last;
        if (!read && copy.unread < kUnreadMax)
            ++copy.unread;
        if (nodeCompare(&copy, node))
            return true;
        notify = copy.unread != node->unread;
        nodeCopy(node, &copy);
        // Written now and then rather than per message, so a crash loses little of the count
        // (the next file number is only where the search for a free name starts).
        COUNTSAVE &save = fCountSave[number];
        int64_t now = TIMEBASE::tickCount();
        save.pending = true;
        if (now - save.written >= kCountSaveInterval && nodeAttrWrite(&copy)) {
            save.written = now;
            save.pending = false;
        }
    }
    if (notify)
        _notify(copy);
    return true;
}

bool BARN::messageSent(const char *path) {
    long long outbox = kNodeNone, sent = kNodeNone;
    NODE sentNode;
    if (!folderFixedNode(FIXEDFOLDER::Outbox, &outbox) ||
        !folderFixedNode(FIXEDFOLDER::Sent, &sent) || !nodeRead(&sentNode, sent))
        return false;
    bool read = true;
    VMSG::fileIsRead(path, &read);
    char name[BARNINFO::kPathSize] = "";
    uint32_t last;
    {
        CRITSECT_HOLD hold(fLock);
        last = fSentLast;
    }
    if (!VMSG::filenameResolve(sentNode.path, kLocalNumbers, &last, name, sizeof(name))) {
        ALERT::show("Could not move message file to 'Sent Messages' because it contains too "
                    "many files!  Clean out the folder before sending any more messages.");
        return false;
    }
    {
        CRITSECT_HOLD hold(fLock);
        fSentLast = last;
    }
    PATH to;
    STR::copy(to, sentNode.path, sizeof(to));
    BARNINFO::pathAppend(to, sizeof(to), name);
    DISKFILE file;
    DISKFILE::ERROR error = file.rename(path, to);
    if (error != DISKFILE::kSuccess) {
        BARNFILE::alert("Couldn't move sent message file", path, error);
        return false;
    }
    if (!read) {
        nodeUnreadCount(outbox, -1, 1);
        nodeUnreadCount(sent, 1, 1);
    }
    return true;
}

unsigned long BARN::serverUploadCount(long long server) {
    long long outbox = kNodeNone;
    NODE node;
    if (!nodeRead(&node, server) || node.type != NODETYPE::Server ||
        !folderFixedNode(FIXEDFOLDER::Outbox, &outbox) || !nodeRead(&node, outbox))
        return 0;
    unsigned long count = 0;
    for (const std::string &file : BARNFILE::entries(node.path, DISKFILE::kEntryFile)) {
        VMSG::DATA data;
        if (VMSG::fileData(&data, file.c_str()) && data.postServer == server)
            ++count;
    }
    return count;
}

bool BARN::nodeUpdate(long long number) {
    NODE node;
    if (!nodeRead(&node, number) || !node.holdsMessages)
        return false;
    unsigned long unread = 0;
    for (const std::string &file : BARNFILE::entries(node.path, DISKFILE::kEntryFile)) {
        bool read = true;
        if (VMSG::fileIsRead(file.c_str(), &read) && !read)
            ++unread;
    }
    node.unread = uint32_t(std::min<unsigned long>(unread, kUnreadMax));
    return nodeSave(&node);
}
