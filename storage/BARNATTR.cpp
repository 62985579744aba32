// Directory attributes: the table that keeps each node's state on its directory.
#include <cstddef>
#include <cstring>

#include "base/DISKFILE.h"
#include "message/IMsg.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"

// Values are kept in the machine's byte order, as typed attributes always were.
const BARN::ATTR BARN::attrTable[] = {
    {"VELLOWICK:expanded", DISKFILE::kTypeBool, sizeof(bool), offsetof(NODE, expanded), true, false,
     false, true},
    {"VELLOWICK:unread", DISKFILE::kTypeUInt32, sizeof(uint32_t), offsetof(NODE, unread), true,
     true, true, false},
    {"VELLOWICK:download", DISKFILE::kTypeInt32, sizeof(int32_t), offsetof(NODE, group.download),
     false, false, true, false},
    {"VELLOWICK:nextfile", DISKFILE::kTypeUInt32, sizeof(uint32_t), offsetof(NODE, group.nextFile),
     false, false, true, false},
    {"VELLOWICK:indexfirst", DISKFILE::kTypeUInt32, sizeof(uint32_t),
     offsetof(NODE, group.indexFirst), false, false, true, false},
    {"VELLOWICK:indexlast", DISKFILE::kTypeUInt32, sizeof(uint32_t),
     offsetof(NODE, group.indexLast), false, false, true, false},
    {"VELLOWICK:charset", DISKFILE::kTypeUInt32, sizeof(uint32_t), offsetof(NODE, group.charset),
     false, false, true, false},
};
const size_t BARN::attrCount = sizeof(attrTable) / sizeof(attrTable[0]);

namespace {
bool applies(const BARN::ATTR &attr, const BARN::NODE *node) {
    switch (node->type) {
    case NODETYPE::Server:
        return attr.server;
    case NODETYPE::Newsgroup:
        return attr.newsgroup;
    case NODETYPE::Folder:
        return node->folder.kind == FIXEDFOLDER::User ? attr.userFolder : attr.fixedFolder;
    }
    return false;
}
} // namespace

bool BARN::nodeAttrRead(NODE *node) {
    DISKFILE file;
    if (file.open(node->path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    for (size_t i = 0; i < attrCount; ++i) {
        const ATTR &attr = attrTable[i];
        if (!applies(attr, node))
            continue;
        unsigned char value[sizeof(int64_t)] = {};
        size_t count = 0;
        DISKFILE::ERROR error = file.attrRead(attr.name, attr.type, 0, value, attr.size, &count);
        // A missing (or empty) attribute keeps the field's starting value; so does a value of
        // another size, which this program never writes.
        if (error == DISKFILE::kAttrNotFound || error == DISKFILE::kEndOfFile)
            continue;
        if (error != DISKFILE::kSuccess)
            return false;
        if (count != attr.size)
            continue;
        if (attr.type == DISKFILE::kTypeBool)
            value[0] = value[0] != 0; // any other byte would not be a bool
        std::memcpy(reinterpret_cast<char *>(node) + attr.offset, value, attr.size);
    }
    // What other parts read from a newsgroup is always valid: an unknown character set or
    // download mode on disk gives way to a known one.
    if (node->type == NODETYPE::Newsgroup) {
        node->group.charset =
            uint32_t(IMsg::CharsetMakeValid(IMsg::Charset(int32_t(node->group.charset))));
        if (node->group.download < GROUPDOWNLOAD::NoDownload ||
            node->group.download > GROUPDOWNLOAD::HeadersAndBodies)
            node->group.download = BARNINFO::downloadGet();
    }
    if (node->unread > kUnreadMax)
        node->unread = kUnreadMax;
    return true;
}

bool BARN::nodeAttrWrite(const NODE *node) {
    DISKFILE file;
    DISKFILE::ERROR error = file.open(node->path, DISKFILE::kWrite);
    for (size_t i = 0; error == DISKFILE::kSuccess && i < attrCount; ++i) {
        const ATTR &attr = attrTable[i];
        if (!applies(attr, node))
            continue;
        size_t count = 0;
        error =
            file.attrWrite(attr.name, attr.type, 0,
                           reinterpret_cast<const char *>(node) + attr.offset, attr.size, &count);
    }
    if (error != DISKFILE::kSuccess) {
        BARNFILE::alert("Couldn't write folder attribute data", node->path, error);
        return false;
    }
    return true;
}
