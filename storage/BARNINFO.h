// Paths inside the data directory and small accessors of the storage settings.
#pragma once

#include <cstddef>
#include <cstdint>

#include "message/IMsg.h"
#include "storage/BARN.h"

// Every path operation starts from the Storage/Path setting, joins components with one "/"
// and cuts the result silently at the buffer size (kPathSize for every caller).
class BARNINFO {
public:
    static constexpr size_t kPathMax = 300;
    static constexpr size_t kPathSize = kPathMax + 1;
    // downloadMax without a limit: deliberately a practical "unlimited".
    static constexpr unsigned long kDownloadUnlimited = 20'000'000;

    // Directory and file names of the data directory.
    static constexpr const char *kSaved = "saved";
    static constexpr const char *kStorage = "news";
    static constexpr const char *kDrafts = "Drafts";
    static constexpr const char *kOutbox = "Outbox";
    static constexpr const char *kSent = "Sent Messages";
    static constexpr const char *kServers = "Servers";
    static constexpr const char *kServerINI = "Server";
    static constexpr const char *kList = "Newsgroups";
    static constexpr const char *kListTXT = ".txt";
    static constexpr const char *kListBAK = ".bak";
    static constexpr const char *kKillfile = "killfile.txt";
    static constexpr const char *kTransferLog = "NNTP.log";
    static constexpr const char *kTemp = "temp";
    static constexpr const char *kHTML = "temp.utf8";

    // --- Settings ---
    static IMsg::Charset charsetGet();
    static GROUPDOWNLOAD downloadGet();
    static void downloadSet(GROUPDOWNLOAD mode);
    // Most articles (or headers) fetched in one transfer: the setting when the limit is on
    // and the setting is not 0, else kDownloadUnlimited.
    static unsigned long downloadMax(bool articles);
    static uint16_t messageRetention(); // days
    static uint32_t nntpLogSetting();   // a SETTINGS::TRANSFERLOG
    static void savePathGet(char *buffer, unsigned long size);
    // Keeps at most 250 characters without a trailing slash; an empty path is ignored.
    static void savePathSet(const char *path);
    // The signature file to add, or null for none; *reply says whether replies get it too.
    // Enabled with an empty file name switches the signature (and replies) off.
    static const char *sigFile(bool *reply);

    // --- The data directory ---
    static void pathSaved(char *buffer, unsigned long size);
    static void pathStorage(char *buffer, unsigned long size);
    static void pathDrafts(char *buffer, unsigned long size);
    static void pathOutbox(char *buffer, unsigned long size);
    static void pathSent(char *buffer, unsigned long size);
    static void pathServers(char *buffer, unsigned long size);
    static void pathServer(const char *server, char *buffer, unsigned long size);
    // Without extension: the settings file adds ".ini" and ".bak".
    static void pathServerINI(const char *server, char *buffer, unsigned long size);
    static void pathList(const char *server, char *buffer, unsigned long size);
    static void pathListTXT(const char *server, char *buffer, unsigned long size);
    static void pathListBAK(const char *server, char *buffer, unsigned long size);
    static void pathGroup(const char *server, const char *group, char *buffer, unsigned long size);
    // A message file of a newsgroup, named by the message-file class from its number.
    static void pathMessage(const char *server, const char *group, unsigned long number,
                            char *buffer, unsigned long size);
    // The message file being written before it has a place: number 0 in the "news" folder.
    static void pathMessageTemp(char *buffer, unsigned long size);
    static void pathKillfile(char *buffer, unsigned long size);
    static void pathTransferLog(char *buffer, unsigned long size);
    static void pathTemp(char *buffer, unsigned long size);
    static void pathHTML(char *buffer, unsigned long size);

    // Appends "/" (unless the text already ends in one) and component, cut at size.
    static void pathAppend(char *buffer, unsigned long size, const char *component);
};
