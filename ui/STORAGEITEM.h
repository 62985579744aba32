// One row of the storage pane: a copy of its node, and how rows are ordered and labelled.
#pragma once

#include <string>

#include "storage/BARN.h"

class STORAGEITEM {
public:
    STORAGEITEM(const BARN::NODE &node, long long parent) : fParent(parent) {
        update(&node, false);
    }

    long long node() const { return fNode.number; }
    const char *name() const { return fNode.name; }
    NODETYPE type() const { return fNode.type; }
    // The fixed-folder kind; User for every other node.
    FIXEDFOLDER fixed() const;
    bool messages() const { return fNode.holdsMessages; }
    GROUPDOWNLOAD download() const;
    unsigned long unread() const { return fNode.unread; }
    void setUnread(unsigned long count) { fNode.unread = uint32_t(count); }
    long long parent() const { return fParent; }
    const BARN::NODE &data() const { return fNode; }
    // Replaces the copy (the parent stays); keepUnread leaves the count as the row shows it.
    void update(const BARN::NODE *node, bool keepUnread);

    // What the row shows: the name, and " (n)" after it when messages are unread (then bold).
    std::string text() const;
    bool bold() const { return fNode.unread != 0; }

    // Sibling order: sort class first (Outbox, Drafts, Sent Messages, user folders, servers,
    // newsgroups, sub-folders), then the name in list order.
    static bool before(const STORAGEITEM &a, const STORAGEITEM &b);
    // The word for a node type in menus and messages: "server", "newsgroup", "folder".
    static const char *typeStr(NODETYPE type);

private:
    BARN::NODE fNode{};
    long long fParent = BARN::kNodeNone;
};
