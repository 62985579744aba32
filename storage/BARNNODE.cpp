// Storage tree nodes: reading, creating, saving, deleting, name rules and look-ups.
#include <algorithm>
#include <cstring>
#include <string>

#include "app/INITFILE.h"
#include "base/NETNAMES.h"
#include "base/STR.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"
#include "storage/BARNTHREAD.h"
#include "storage/SERVERSETTINGS.h"

namespace {
using PATH = char[BARNINFO::kPathSize];

// Placeholders of the template server: reserved names that can never reach a real site.
constexpr const char *kTemplateName = "ISP News";
constexpr const char *kTemplateHost = "news.example.invalid";
constexpr const char *kTemplateMail = "your.name@example.invalid";
constexpr const char *kTemplatePostName = "Your Name Here";
constexpr const char *kTemplateOrg = "Your Organization Here";
constexpr const char *kTemplateUser = "username";
constexpr const char *kTemplatePassword = "changeme";

const char *leafOf(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// The server file of a server node: <server directory>/Server.ini.
std::string serverFile(const BARN::NODE *node) {
    return std::string(node->path) + "/" + BARNINFO::kServerINI + INITFILE::kExtension;
}

void fixedPath(FIXEDFOLDER kind, char *path, unsigned long size) {
    switch (kind) {
    case FIXEDFOLDER::Drafts:
        BARNINFO::pathDrafts(path, size);
        break;
    case FIXEDFOLDER::Outbox:
        BARNINFO::pathOutbox(path, size);
        break;
    case FIXEDFOLDER::Sent:
        BARNINFO::pathSent(path, size);
        break;
    case FIXEDFOLDER::User:
        BARNINFO::pathSaved(path, size);
        break;
    }
}

bool nameOrder(const BARN::NODE *a, const BARN::NODE *b) {
    int order = STR::icmp(a->name, b->name);
    return order != 0 ? order < 0 : std::strcmp(a->name, b->name) < 0;
}
} // namespace

// --- Records and name rules ---

void BARN::_nodeInit(NODE *node, NODETYPE type) {
    *node = NODE{};
    node->number = kNodeNone;
    node->type = type;
    switch (type) {
    case NODETYPE::Server:
        node->expanded = true;
        node->sortClass = SORTCLASS::Server;
        node->server.port = kPortDefault;
        node->server.timeout = kTimeoutDefault;
        node->server.security = kSecurityNone;
        node->server.compress = true;
        break;
    case NODETYPE::Newsgroup:
        node->holdsMessages = true;
        node->sortClass = SORTCLASS::Newsgroup;
        node->group.download = BARNINFO::downloadGet();
        node->group.charset = uint32_t(BARNINFO::charsetGet());
        break;
    case NODETYPE::Folder:
        node->expanded = true;
        node->holdsMessages = true;
        node->sortClass = SORTCLASS::Folder;
        node->folder.kind = FIXEDFOLDER::User;
        break;
    }
}

namespace {
template <size_t SIZE>
void tidyText(char (&text)[SIZE]) {
    size_t length = strnlen(text, SIZE - 1);
    std::memset(text + length, 0, SIZE - length);
}
} // namespace

void BARN::_tidy(NODE *node) {
    tidyText(node->name);
    tidyText(node->path);
    if (node->type != NODETYPE::Server)
        return;
    tidyText(node->server.hostname);
    tidyText(node->server.postName);
    tidyText(node->server.postMail);
    tidyText(node->server.postOrg);
    tidyText(node->server.username);
    tidyText(node->server.password);
}

bool BARN::folderNameCheck(const char *name) {
    return name != nullptr && std::strlen(name) <= kNameMax && STR::isLeaf(name);
}

bool BARN::serverNameCheck(const char *name) {
    return folderNameCheck(name);
}

bool BARN::groupNameCheck(const char *name) {
    return name != nullptr && IMsg::NewsCheck(name);
}

bool BARN::serverHostnameCheck(const char *hostname) {
    return hostname != nullptr && NETNAMES::hostnameCheck(hostname);
}

bool BARN::_nameCheck(NODETYPE type, const char *name) {
    switch (type) {
    case NODETYPE::Server:
        return serverNameCheck(name);
    case NODETYPE::Newsgroup:
        return groupNameCheck(name);
    case NODETYPE::Folder:
        return folderNameCheck(name);
    }
    return false;
}

bool BARN::folderStorage(const NODE *node) {
    return node->type == NODETYPE::Folder && node->folder.kind == FIXEDFOLDER::User;
}

bool BARN::downloadBodies(const NODE *node) {
    return node->group.download != GROUPDOWNLOAD::HeadersOnly;
}

bool BARN::_listNodeRead(NODE *node, const char *path, NODETYPE type, FIXEDFOLDER kind,
                         SORTCLASS sortClass) {
    const char *leaf = leafOf(path);
    if (!_nameCheck(type, leaf))
        return false;
    _nodeInit(node, type);
    node->sortClass = sortClass;
    if (type == NODETYPE::Folder && kind != FIXEDFOLDER::User) {
        node->folder.kind = kind;
        node->expanded = false;
    }
    STR::copy(node->path, path, sizeof(node->path));
    STR::copy(node->name, leaf, sizeof(node->name));
    node->number = nodeNumber(path);
    if (node->number == kNodeNone || !nodeAttrRead(node))
        return false;
    return type != NODETYPE::Server || serverRead(node);
}

// --- Paths ---

void BARN::_pathSetLocked(NODE *node) {
    switch (node->type) {
    case NODETYPE::Server:
        BARNINFO::pathServer(node->name, node->path, sizeof(node->path));
        break;
    case NODETYPE::Newsgroup:
        if (node->parent != nullptr)
            BARNINFO::pathGroup(node->parent->name, node->name, node->path, sizeof(node->path));
        break;
    case NODETYPE::Folder:
        if (node->folder.kind != FIXEDFOLDER::User) {
            fixedPath(node->folder.kind, node->path, sizeof(node->path));
            break;
        }
        if (node->parent != nullptr)
            STR::copy(node->path, node->parent->path, sizeof(node->path));
        else
            BARNINFO::pathSaved(node->path, sizeof(node->path));
        BARNINFO::pathAppend(node->path, sizeof(node->path), node->name);
        break;
    }
}

void BARN::_pathChildrenLocked(NODE *node) {
    _pathSetLocked(node);
    for (NODE *each : *fList)
        if (each->parent == node)
            _pathChildrenLocked(each);
}

// --- Creating ---

bool BARN::_fixedAdd(FIXEDFOLDER kind) {
    PATH path;
    fixedPath(kind, path, sizeof(path));
    auto *node = new NODE;
    if (!_listNodeRead(node, path, NODETYPE::Folder, kind, SORTCLASS(uint32_t(kind)))) {
        delete node;
        return false;
    }
    CRITSECT_HOLD hold(fLock);
    if (!_addLocked(node, kNodeNone)) {
        delete node;
        return false;
    }
    return true;
}

long long BARN::_createLocked(NODE *node, int64_t parent) {
    _tidy(node);
    if (!BARNFILE::dirReboot(node->path))
        return kNodeNone;
    node->number = nodeNumber(node->path);
    if (node->number == kNodeNone)
        return kNodeNone;
    if (node->type == NODETYPE::Server &&
        SERVERSETTINGS::writeDefault(node, serverFile(node).c_str()) != 0)
        return kNodeNone;
    if (!nodeAttrWrite(node))
        return kNodeNone;
    auto *entry = new NODE;
    nodeCopy(entry, node);
    if (!_addLocked(entry, parent)) {
        delete entry;
        return kNodeNone;
    }
    return entry->number;
}

long long BARN::folderCreate(const char *name, long long parent) {
    if (!folderNameCheck(name))
        return kNodeNone;
    TREENOTE note{this};
    CRITSECT_HOLD hold(fLock);
    if (fList == nullptr || folderIsDuplicate(name, parent))
        return kNodeNone;
    NODE node;
    _nodeInit(&node, NODETYPE::Folder);
    STR::copy(node.name, name, sizeof(node.name));
    if (parent == kNodeNone) {
        BARNINFO::pathSaved(node.path, sizeof(node.path));
    } else {
        const NODE *above = _findLocked(parent);
        if (above == nullptr || !folderStorage(above))
            return kNodeNone;
        node.sortClass = SORTCLASS::Subfolder;
        STR::copy(node.path, above->path, sizeof(node.path));
    }
    BARNINFO::pathAppend(node.path, sizeof(node.path), name);
    return note.number = _createLocked(&node, parent);
}

long long BARN::groupCreate(long long server, const char *name, GROUPDOWNLOAD mode) {
    if (!groupNameCheck(name) || mode < GROUPDOWNLOAD::NoDownload ||
        mode > GROUPDOWNLOAD::HeadersAndBodies)
        return kNodeNone;
    TREENOTE note{this};
    CRITSECT_HOLD hold(fLock);
    const NODE *above = _findLocked(server);
    if (above == nullptr || above->type != NODETYPE::Server)
        return kNodeNone;
    for (const NODE *each : *fList)
        if (each->parent == above && std::strcmp(each->name, name) == 0)
            return kNodeNone;
    NODE node;
    _nodeInit(&node, NODETYPE::Newsgroup);
    STR::copy(node.name, name, sizeof(node.name));
    node.group.download = mode;
    BARNINFO::pathGroup(above->name, name, node.path, sizeof(node.path));
    return note.number = _createLocked(&node, server);
}

long long BARN::serverCreate(NODE *node) {
    node->number = kNodeNone;
    if (!serverNameCheck(node->name) || !serverHostnameCheck(node->server.hostname))
        return kNodeNone;
    TREENOTE note{this};
    CRITSECT_HOLD hold(fLock);
    if (fList == nullptr || serverIsDuplicate(node->name))
        return kNodeNone;
    NODE fresh;
    _nodeInit(&fresh, NODETYPE::Server);
    STR::copy(fresh.name, node->name, sizeof(fresh.name));
    std::memcpy(&fresh.server, &node->server, sizeof(fresh.server));
    BARNINFO::pathServer(fresh.name, fresh.path, sizeof(fresh.path));
    node->number = note.number = _createLocked(&fresh, kNodeNone);
    return node->number;
}

void BARN::serverDefault(NODE *node) {
    _nodeInit(node, NODETYPE::Server);
    STR::copy(node->name, kTemplateName, sizeof(node->name));
    BARNINFO::pathServer(node->name, node->path, sizeof(node->path));
    STR::copy(node->server.hostname, kTemplateHost, sizeof(node->server.hostname));
    STR::copy(node->server.postName, kTemplatePostName, sizeof(node->server.postName));
    STR::copy(node->server.postMail, kTemplateMail, sizeof(node->server.postMail));
    STR::copy(node->server.postOrg, kTemplateOrg, sizeof(node->server.postOrg));
    node->server.login = false;
    STR::copy(node->server.username, kTemplateUser, sizeof(node->server.username));
    STR::copy(node->server.password, kTemplatePassword, sizeof(node->server.password));
}

// --- The server file ---

void BARN::serverSet(NODE *node) {
    SERVERSETTINGS::bind(node);
}

bool BARN::serverRead(NODE *node) {
    return SERVERSETTINGS::read(node, serverFile(node).c_str()) == 0;
}

bool BARN::serverWrite(const NODE *node) {
    NODE copy;
    nodeCopy(&copy, node);
    std::string file = serverFile(node);
    int32_t result = SERVERSETTINGS::write(&copy, file.c_str());
    if (result == DISKFILE::kNotFound)
        result = SERVERSETTINGS::writeDefault(&copy, file.c_str());
    return result == 0;
}

// --- Saving and deleting ---

bool BARN::nodeSave(const NODE *node) {
    if (!_save(node))
        return false;
    _treeNotify(node->number);
    return true;
}

bool BARN::_save(const NODE *node) {
    NODE notify;
    bool unreadChanged = false;
    {
        CRITSECT_HOLD hold(fLock);
        NODE *stored = _findLocked(node->number);
        if (stored == nullptr)
            return false;
        if (std::strcmp(stored->name, node->name) != 0) {
            // The fixed folders live at fixed paths and newsgroup directories are named
            // after their groups; neither can take another name.
            if (stored->type == NODETYPE::Newsgroup ||
                (stored->type == NODETYPE::Folder && !folderStorage(stored)) ||
                !_nameCheck(stored->type, node->name))
                return false;
            if (!BARNFILE::dirRename(stored->path, node->name))
                return false;
            STR::copy(stored->name, node->name, sizeof(stored->name));
            _pathChildrenLocked(stored);
        }
        if (nodeCompare(node, stored))
            return true;
        NODE next;
        nodeCopy(&next, stored);
        next.expanded = node->expanded;
        next.unread = std::min<uint32_t>(node->unread, kUnreadMax);
        // Deliberately not for folders: a save never changes a folder's kind.
        if (stored->type == NODETYPE::Newsgroup)
            std::memcpy(&next.group, &node->group, sizeof(next.group));
        else if (stored->type == NODETYPE::Server)
            std::memcpy(&next.server, &node->server, sizeof(next.server));
        _tidy(&next);
        if (nodeCompare(&next, stored))
            return true;
        if (stored->type == NODETYPE::Server && !serverWrite(&next))
            return false;
        if (!nodeAttrWrite(&next))
            return false;
        unreadChanged = next.unread != stored->unread;
        nodeCopy(stored, &next);
        nodeCopy(&notify, stored);
    }
    if (unreadChanged)
        _notify(notify);
    return true;
}

bool BARN::_delete(long long number, int type) {
    TREENOTE note{this};
    CRITSECT_HOLD hold(fLock);
    NODE *node = _findLocked(number);
    if (node == nullptr || (type != 0 && int(node->type) != type))
        return false;
    if (node->type == NODETYPE::Folder && !folderStorage(node))
        return false;
    // The reaper is kept out of a server or newsgroup directory before it goes.
    bool pause = node->type != NODETYPE::Folder;
    if (!barnThread.fileOp(BARNTHREAD::DeleteNode, kNodeNone, node->path, pause))
        return false;
    _removeLocked(node);
    note.number = number;
    return true;
}

bool BARN::nodeDelete(long long number) {
    return _delete(number, 0);
}

bool BARN::folderDelete(long long number) {
    return _delete(number, int(NODETYPE::Folder));
}

bool BARN::groupDelete(long long number) {
    return _delete(number, int(NODETYPE::Newsgroup));
}

bool BARN::serverDelete(long long number) {
    return _delete(number, int(NODETYPE::Server));
}

// --- Look-ups ---

bool BARN::folderFixedNode(FIXEDFOLDER kind, long long *number) {
    *number = kNodeNone;
    CRITSECT_HOLD hold(fLock);
    if (fList == nullptr || kind == FIXEDFOLDER::User)
        return false;
    for (const NODE *node : *fList) {
        if (node->type == NODETYPE::Folder && node->folder.kind == kind) {
            *number = node->number;
            return true;
        }
    }
    return false;
}

bool BARN::folderIsFixed(const char *path) {
    DISKFILE file;
    DISKFILE::ENTRY entry;
    if (path == nullptr || file.pathToRef(&entry, path) != DISKFILE::kSuccess || entry.node < 0)
        return false;
    CRITSECT_HOLD hold(fLock);
    if (fList == nullptr || entry.device != fVolume)
        return false;
    const NODE *node = _findLocked(entry.node);
    return node != nullptr && node->type == NODETYPE::Folder && !folderStorage(node);
}

bool BARN::folderIsDuplicate(const char *name, long long parent) {
    CRITSECT_HOLD hold(fLock);
    if (fList == nullptr || name == nullptr)
        return false;
    for (const NODE *node : *fList) {
        if (!folderStorage(node) || std::strcmp(node->name, name) != 0)
            continue;
        int64_t above = node->parent != nullptr ? node->parent->number : kNodeNone;
        if (above == parent)
            return true;
    }
    return false;
}

bool BARN::serverIsDuplicate(const char *name) {
    CRITSECT_HOLD hold(fLock);
    if (fList == nullptr || name == nullptr)
        return false;
    for (const NODE *node : *fList)
        if (node->type == NODETYPE::Server && std::strcmp(node->name, name) == 0)
            return true;
    return false;
}

std::vector<BARN::NODE *> BARN::_sortedLocked(NODETYPE type, int64_t parent) const {
    std::vector<NODE *> found;
    if (fList == nullptr)
        return found;
    for (NODE *node : *fList) {
        if (node->type != type)
            continue;
        if (type == NODETYPE::Newsgroup &&
            (node->parent == nullptr || node->parent->number != parent))
            continue;
        found.push_back(node);
    }
    std::sort(found.begin(), found.end(), nameOrder);
    return found;
}

bool BARN::groupCount(long long server, unsigned long *count) {
    *count = 0;
    CRITSECT_HOLD hold(fLock);
    const NODE *node = _findLocked(server);
    if (node == nullptr || node->type != NODETYPE::Server)
        return false;
    for (const NODE *each : *fList)
        if (each->parent == node && each->type == NODETYPE::Newsgroup)
            ++*count;
    return true;
}

bool BARN::groupNext(long long server, NODE *node, unsigned long i) {
    *node = NODE{};
    node->number = kNodeNone;
    CRITSECT_HOLD hold(fLock);
    std::vector<NODE *> groups = _sortedLocked(NODETYPE::Newsgroup, server);
    if (i >= groups.size())
        return false;
    nodeCopy(node, groups[i]);
    return true;
}

bool BARN::serverNext(NODE *node, unsigned long i) {
    *node = NODE{};
    node->number = kNodeNone;
    CRITSECT_HOLD hold(fLock);
    std::vector<NODE *> servers = _sortedLocked(NODETYPE::Server, kNodeNone);
    if (i >= servers.size())
        return false;
    nodeCopy(node, servers[i]);
    return true;
}

bool BARN::groupRead(long long server, NODE *node, const char *name) {
    *node = NODE{};
    node->number = kNodeNone;
    if (name == nullptr)
        return false;
    CRITSECT_HOLD hold(fLock);
    const NODE *above = _findLocked(server);
    if (above == nullptr || above->type != NODETYPE::Server)
        return false;
    for (const NODE *each : *fList) {
        if (each->parent == above && each->type == NODETYPE::Newsgroup &&
            std::strcmp(each->name, name) == 0) {
            nodeCopy(node, each);
            return true;
        }
    }
    return false;
}

IMsg::Charset BARN::charsetGet(long long number) {
    CRITSECT_HOLD hold(fLock);
    const NODE *node = _findLocked(number);
    if (node != nullptr && node->type == NODETYPE::Newsgroup)
        return IMsg::Charset(int32_t(node->group.charset));
    return BARNINFO::charsetGet();
}
