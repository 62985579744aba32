// One row of the storage pane.
#include "ui/STORAGEITEM.h"

#include "base/STR.h"

FIXEDFOLDER STORAGEITEM::fixed() const {
    return fNode.type == NODETYPE::Folder ? fNode.folder.kind : FIXEDFOLDER::User;
}

GROUPDOWNLOAD STORAGEITEM::download() const {
    return fNode.type == NODETYPE::Newsgroup ? fNode.group.download : GROUPDOWNLOAD::NoDownload;
}

void STORAGEITEM::update(const BARN::NODE *node, bool keepUnread) {
    uint32_t unread = fNode.unread;
    BARN::nodeCopy(&fNode, node);
    // The copy's parent pointer is the tree's own: the row keeps the parent's number.
    fNode.parent = nullptr;
    if (keepUnread)
        fNode.unread = unread;
}

std::string STORAGEITEM::text() const {
    if (fNode.unread == 0)
        return fNode.name;
    return std::string(fNode.name) + " (" + std::to_string(fNode.unread) + ")";
}

bool STORAGEITEM::before(const STORAGEITEM &a, const STORAGEITEM &b) {
    if (a.fNode.sortClass != b.fNode.sortClass)
        return a.fNode.sortClass < b.fNode.sortClass;
    return STR::cmpList(a.fNode.name, b.fNode.name) < 0;
}

const char *STORAGEITEM::typeStr(NODETYPE type) {
    switch (type) {
    case NODETYPE::Server:
        return "server";
    case NODETYPE::Newsgroup:
        return "newsgroup";
    case NODETYPE::Folder:
        return "folder";
    }
    return STR::kUnknown;
}
