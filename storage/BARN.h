// The storage tree's node record and its kinds: one server, newsgroup or folder.
#pragma once

#include <cstddef>
#include <cstdint>

enum class NODETYPE : uint32_t {
    Server = 1,
    Newsgroup = 2,
    Folder = 3,
};

enum class FIXEDFOLDER : uint32_t {
    User = 0,
    Outbox = 1,
    Drafts = 2,
    Sent = 3,
};

// Download mode of a newsgroup; also the values of the DownloadDefault setting.
enum class GROUPDOWNLOAD : int32_t {
    NoDownload = 1,
    HeadersOnly = 2,
    HeadersAndBodies = 3,
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

class BARN {
public:
    static constexpr size_t kNameMax = 72;
    static constexpr size_t kPathMax = 300;
    static constexpr int64_t kNodeNone = -1;

    // Sizes of the server account fields, each without its terminating zero.
    static constexpr size_t kHostnameMax = 70;
    static constexpr size_t kPostNameMax = 60;
    static constexpr size_t kPostMailMax = 80;
    static constexpr size_t kPostOrgMax = 60;
    static constexpr size_t kUsernameMax = 60;
    static constexpr size_t kPasswordMax = 42;
    static constexpr uint16_t kPortDefault = 119;
    static constexpr int64_t kTimeoutDefault = 120'000'000; // microseconds

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
            } server;
        };
    };
};
