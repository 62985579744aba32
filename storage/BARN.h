// The storage tree: every server, newsgroup and folder of the data directory as one node.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "app/SETTINGS.h"
#include "base/CRITSECT.h"
#include "message/IMsg.h"

class TEXTFILE;

enum class NODETYPE : uint32_t {
    Server = 1,
    Newsgroup = 2,
    Folder = 3,
};

// How a server's connection is protected: in the clear, or TLS from the first byte.
enum SECURITY : uint32_t {
    kSecurityNone = 0,
    kSecurityTLS = 1,
};

enum class FIXEDFOLDER : uint32_t {
    User = 0,
    Outbox = 1,
    Drafts = 2,
    Sent = 3,
};

// Download mode of a newsgroup; also the values of the DownloadDefault setting.
enum class GROUPDOWNLOAD : int32_t {
    NoDownload = SETTINGS::kNoDownload,
    HeadersOnly = SETTINGS::kHeadersOnly,
    HeadersAndBodies = SETTINGS::kHeadersAndBodies,
};

// Order of a node among its siblings in the storage pane.
enum class SORTCLASS : uint32_t {
    Outbox = 1,
    Drafts = 2,
    Sent = 3,
    Folder = 5,
    Server = 8,
    Newsgroup = 10,
    Subfolder = 11,
};

// One global object, barn, owns every node. Other parts name a node by its number (the inode
// of its directory, so it stays the same across runs) and get whole copies of nodes; every
// operation runs under the one lock of the tree, and the observers are called after it is
// left, so an observer may call back in. Failures on disk are shown with the storage alert
// by the operation that met them; an unknown node number fails quietly.
class BARN {
public:
    static constexpr size_t kNameMax = 72;
    static constexpr size_t kPathMax = 300;
    static constexpr int64_t kNodeNone = -1;
    // How often filing messages writes a node's count and next file number (microseconds).
    static constexpr int64_t kCountSaveInterval = 1'000'000;

    // Sizes of the server account fields, each without its terminating zero.
    static constexpr size_t kHostnameMax = 70;
    static constexpr size_t kPostNameMax = 60;
    static constexpr size_t kPostMailMax = 80;
    static constexpr size_t kPostOrgMax = 60;
    static constexpr size_t kUsernameMax = 60;
    static constexpr size_t kPasswordMax = 42;
    static constexpr uint16_t kPortDefault = 119;
    static constexpr uint16_t kPortTLS = 563;               // news over TLS from the first byte
    static constexpr size_t kFingerprintMax = 95;           // SHA-256 as colon-separated hex pairs
    static constexpr int64_t kTimeoutDefault = 120'000'000; // microseconds

    // Deepest level counted and walked.
    static constexpr uint32_t kLevelMax = 200;
    // Unread counts are held at this ceiling, deliberately.
    static constexpr uint32_t kUnreadMax = 1'000'000;
    // The node list grows in steps of this many entries.
    static constexpr size_t kListStep = 100;

    // A plain record copied and compared whole, byte by byte: make new ones with NODE{} so
    // that padding is zero too.
    struct NODE {
        bool expanded;
        uint32_t level;
        bool holdsMessages;
        char name[kNameMax + 1];
        int64_t number;
        NODE *parent;
        char path[kPathMax + 1];
        SORTCLASS sortClass;
        NODETYPE type;
        uint32_t unread;
        union {
            struct {
                FIXEDFOLDER kind;
            } folder;
            struct {
                GROUPDOWNLOAD download;
                uint32_t indexFirst;
                uint32_t indexLast;
                uint32_t nextFile;
                uint32_t charset;
            } group;
            struct {
                char hostname[kHostnameMax + 1];
                uint16_t port;
                int64_t timeout; // microseconds
                char postName[kPostNameMax + 1];
                char postMail[kPostMailMax + 1];
                char postOrg[kPostOrgMax + 1];
                bool login;
                char username[kUsernameMax + 1];
                char password[kPasswordMax + 1];
                uint32_t security; // a SECURITY
                bool compress;     // compress the session when the server offers it
                char fingerprint[kFingerprintMax + 1]; // a certificate the user trusts
            } server;
        };
    };

    // One directory attribute that keeps a node field, and the kinds of node it applies to.
    struct ATTR {
        const char *name;
        uint32_t type;
        size_t size;
        size_t offset; // of the field in NODE
        bool userFolder;
        bool fixedFolder;
        bool newsgroup;
        bool server;
    };
    static const ATTR attrTable[];
    static const size_t attrCount;

    // Per-node callback of the background load and of the level walk; the result of the
    // background load's callback is not used.
    using NODEFUNC = bool (*)(const NODE *node);
    using DONEFUNC = void (*)();
    using UNREADFUNC = void (*)(const NODE *node);
    // A node was created, saved or removed (read it to tell which).
    using TREEFUNC = void (*)(long long number);

    BARN() = default;
    ~BARN();
    BARN(const BARN &) = delete;
    BARN &operator=(const BARN &) = delete;

    // --- Start and stop ---
    // Creates and checks the data directory, adds the fixed folders and starts the storage
    // worker. False (after the alert) when the data directory is unusable.
    bool start();
    // Stops the storage worker and frees every node. Safe without a start.
    void stop();
    // True once the background load has finished.
    bool final();

    // --- Walking ---
    // Loads servers, newsgroups and user folders on the "FolderFind" thread (which runs once
    // the program is running): node is called with each node as it is added, done when the
    // load is complete. Returns at once; false when a load is already under way or the
    // tree is not started.
    bool iterateFolders(NODEFUNC node, DONEFUNC done);
    // Visits the nodes level by level (0 to kLevelMax), in number order within a level, user
    // folders left out. A callback returning false ends the walk of its level only.
    void iterateMain(NODEFUNC callback);

    // --- Nodes ---
    bool nodeRead(NODE *node, long long number);
    // The number of a node's parent, kNodeNone for a top-level node or an unknown one. (A
    // copy's parent pointer is the tree's own and must not be followed without the lock.)
    long long nodeParent(long long number);
    // Stores a changed copy back: a new name renames the directory (and moves the paths of
    // every descendant); the other changes reach the directory attributes and, for a
    // server, its server file. A folder's kind is never changed by a save.
    bool nodeSave(const NODE *node);
    // Recounts a node's unread messages from its files.
    bool nodeUpdate(long long number);
    // mode < 0 subtracts n, 0 sets n, > 0 adds n; the result is held within 0..kUnreadMax.
    bool nodeUnreadCount(long long number, int mode, unsigned long n);
    // Removes the node and its descendants at once; the directory goes to the Trash in the
    // background.
    bool nodeDelete(long long number);
    // nodeDelete for a node of the named type only.
    bool folderDelete(long long number);
    bool groupDelete(long long number);
    bool serverDelete(long long number);

    // Creates a user folder under parent (a user folder), or under "saved" for kNodeNone.
    // Returns the new number or kNodeNone.
    long long folderCreate(const char *name, long long parent);
    long long groupCreate(long long server, const char *name, GROUPDOWNLOAD mode);
    // Creates the server named node->name with node's account fields and its server file;
    // sets node->number. Returns the new number or kNodeNone.
    long long serverCreate(NODE *node);
    // The template server a new account starts from.
    static void serverDefault(NODE *node);

    bool folderFixedNode(FIXEDFOLDER kind, long long *number);
    // Whether path is the directory of a fixed folder (same volume, same node number).
    bool folderIsFixed(const char *path);
    // Whether a sibling under parent (kNodeNone: top-level user folders) or a server already
    // has this name, case-sensitive.
    bool folderIsDuplicate(const char *name, long long parent);
    bool serverIsDuplicate(const char *name);

    // --- Name rules ---
    static bool folderNameCheck(const char *name);
    static bool serverNameCheck(const char *name);
    static bool groupNameCheck(const char *name);
    static bool serverHostnameCheck(const char *hostname);

    static bool folderStorage(const NODE *node);
    static bool downloadBodies(const NODE *node);

    // --- Servers and newsgroups ---
    bool groupCount(long long server, unsigned long *count);
    // The i-th newsgroup of a server, or the i-th server, in name order (ASCII case ignored).
    bool groupNext(long long server, NODE *node, unsigned long i);
    bool serverNext(NODE *node, unsigned long i);
    // A server's newsgroup by name, case-sensitive.
    bool groupRead(long long server, NODE *node, const char *name);
    // The newsgroup's character set, or the CharsetDefault setting for any other node.
    IMsg::Charset charsetGet(long long number);
    // Messages in "Outbox" waiting to be posted through this server.
    unsigned long serverUploadCount(long long server);

    // --- The server file (Server.ini) ---
    // Binds the server settings table to node's fields (null unbinds).
    static void serverSet(NODE *node);
    static bool serverRead(NODE *node);
    // Merges node's fields into its server file (writes a default one when it is missing).
    static bool serverWrite(const NODE *node);

    // --- Directory attributes ---
    // Reads every attribute that applies to the node; a missing attribute keeps the field.
    static bool nodeAttrRead(NODE *node);
    static bool nodeAttrWrite(const NODE *node);

    // --- Message files ---
    // Creates the temporary message file the transfer thread writes an article into.
    bool messageCreate(TEXTFILE *file);
    // Moves the temporary message file into the node (which must have a parent) under a
    // free name; an unread message raises the node's unread count. The count and the next
    // file number change in memory and reach the disk at most once per kCountSaveInterval
    // (a download files thousands of messages a second), and at stop.
    bool messageMove(long long number, bool read);
    // Moves a posted message from "Outbox" into "Sent Messages".
    bool messageSent(const char *path);

    // --- Observer ---
    // One observer of unread-count changes; a second one is refused, and only the same
    // function removes it.
    bool unreadCallbackRegister(UNREADFUNC callback);
    bool unreadCallbackUnregister(UNREADFUNC callback);
    // One observer of nodes created, saved or removed through the operations above (the
    // background load reports its own); called after the tree's lock is left.
    bool treeCallbackRegister(TREEFUNC callback);
    bool treeCallbackUnregister(TREEFUNC callback);

    // --- Records ---
    static void nodeCopy(NODE *to, const NODE *from);
    // True when the two records are equal byte for byte.
    static bool nodeCompare(const NODE *a, const NODE *b);
    // The inode number of the directory at path, or kNodeNone.
    static long long nodeNumber(const char *path);
    // The device of the data directory, kept from start to stop (-10 when stopped).
    long long volumeGet();
    // Number of nodes in the tree.
    size_t count();

private:
    CRITSECT fLock;
    std::vector<NODE *> *fList = nullptr; // sorted by number; null when stopped
    bool fFinal = false;
    bool fLoading = false;
    uint64_t fGeneration = 0; // one per start, so a stale load adds nothing
    NODEFUNC fLoadNode = nullptr;
    DONEFUNC fLoadDone = nullptr;
    UNREADFUNC fUnread = nullptr;
    TREEFUNC fTree = nullptr;
    long long fVolume = -10;
    uint32_t fSentLast = 0; // where the search for a free name in "Sent Messages" goes on
    // Nodes whose count or next file number filing changed: when they were last written
    // (tick count) and whether memory has moved on since.
    struct COUNTSAVE {
        int64_t written = 0;
        bool pending = false;
    };
    std::map<long long, COUNTSAVE> fCountSave;

    // Helpers whose names end in "Locked" expect fLock to be held.
    NODE *_findLocked(int64_t number) const;
    bool _addLocked(NODE *node, int64_t parent);
    void _removeLocked(NODE *node);
    void _pathChildrenLocked(NODE *node);
    void _pathSetLocked(NODE *node);
    long long _createLocked(NODE *node, int64_t parent);
    std::vector<NODE *> _sortedLocked(NODETYPE type, int64_t parent) const;
    void _notify(const NODE &copy);
    void _treeNotify(long long number);
    // Tells the tree observer about a node when it goes out of scope: declared before an
    // operation's lock is taken, it runs after the lock is left.
    struct TREENOTE {
        BARN *barn;
        long long number = kNodeNone;
        ~TREENOTE() {
            if (number != kNodeNone)
                barn->_treeNotify(number);
        }
    };
    bool _save(const NODE *node);
    bool _fixedAdd(FIXEDFOLDER kind);
    bool _delete(long long number, int type);

    // Makes a node of the type with its starting fields.
    static void _nodeInit(NODE *node, NODETYPE type);
    // Clears the bytes behind each text's terminator, so that equal nodes compare equal.
    static void _tidy(NODE *node);
    // Reads the node whose directory is path; false when it must be left out.
    static bool _listNodeRead(NODE *node, const char *path, NODETYPE type, FIXEDFOLDER kind,
                              SORTCLASS sortClass);
    static bool _nameCheck(NODETYPE type, const char *name);

    // The background load.
    static int32_t _folderFind(void *data);
    void _load(uint64_t generation);
    bool _loadAdd(uint64_t generation, NODE *node, int64_t parent);
    bool _loadFolders(uint64_t generation, const char *path, int64_t parent, int depth);
};

extern BARN barn;
