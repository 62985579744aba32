// Paths inside the data directory and small accessors of the storage settings.
#include "storage/BARNINFO.h"

#include <cstring>
#include <initializer_list>

#include "app/PATHMGR.h"
#include "app/SETTINGS.h"
#include "base/STR.h"
#include "message/VMSG.h"

namespace {
// <root>/<part>/<part>..., each join through pathAppend.
void pathBuild(char *buffer, unsigned long size, std::initializer_list<const char *> parts) {
    if (size == 0)
        return;
    STR::copy(buffer, SETTINGS::storage.path, size);
    for (const char *part : parts)
        BARNINFO::pathAppend(buffer, size, part);
}
} // namespace

IMsg::Charset BARNINFO::charsetGet() {
    return IMsg::Charset(SETTINGS::storage.charsetDefault);
}

GROUPDOWNLOAD BARNINFO::downloadGet() {
    return GROUPDOWNLOAD(SETTINGS::storage.downloadDefault);
}

void BARNINFO::downloadSet(GROUPDOWNLOAD mode) {
    SETTINGS::storage.downloadDefault = uint32_t(mode);
}

unsigned long BARNINFO::downloadMax(bool articles) {
    uint32_t limit =
        articles ? SETTINGS::storage.downloadArticles : SETTINGS::storage.downloadHeaders;
    if (!SETTINGS::storage.downloadLimit || limit == 0)
        return kDownloadUnlimited;
    return limit;
}

uint16_t BARNINFO::messageRetention() {
    return SETTINGS::storage.daysToKeepMessages;
}

uint32_t BARNINFO::nntpLogSetting() {
    return SETTINGS::storage.transferLogging;
}

void BARNINFO::savePathGet(char *buffer, unsigned long size) {
    if (size > 0)
        STR::copy(buffer, SETTINGS::storage.savePath, size);
}

void BARNINFO::savePathSet(const char *path) {
    if (path == nullptr || path[0] == '\0')
        return;
    STR::copy(SETTINGS::storage.savePath, path, SETTINGS::kSavePathMax + 1);
    PATHMGR::slashesDrop(SETTINGS::storage.savePath);
}

const char *BARNINFO::sigFile(bool *reply) {
    *reply = false;
    if (!SETTINGS::signature.enabled)
        return nullptr;
    if (SETTINGS::signature.filename[0] == '\0') {
        SETTINGS::signature.enabled = false;
        SETTINGS::signature.reply = false;
        return nullptr;
    }
    *reply = SETTINGS::signature.reply;
    return SETTINGS::signature.filename;
}

void BARNINFO::pathAppend(char *buffer, unsigned long size, const char *component) {
    size_t length = strnlen(buffer, size);
    if (length == 0 || buffer[length - 1] != '/')
        STR::cat(buffer, "/", size);
    STR::cat(buffer, component, size);
}

void BARNINFO::pathSaved(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kSaved});
}

void BARNINFO::pathStorage(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage});
}

void BARNINFO::pathDrafts(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kDrafts});
}

void BARNINFO::pathOutbox(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kOutbox});
}

void BARNINFO::pathSent(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kSent});
}

void BARNINFO::pathServers(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kServers});
}

void BARNINFO::pathServer(const char *server, char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kServers, server});
}

void BARNINFO::pathServerINI(const char *server, char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kServers, server, kServerINI});
}

void BARNINFO::pathList(const char *server, char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kServers, server, kList});
}

void BARNINFO::pathListTXT(const char *server, char *buffer, unsigned long size) {
    pathList(server, buffer, size);
    STR::cat(buffer, kListTXT, size);
}

void BARNINFO::pathListBAK(const char *server, char *buffer, unsigned long size) {
    pathList(server, buffer, size);
    STR::cat(buffer, kListBAK, size);
}

void BARNINFO::pathGroup(const char *server, const char *group, char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kServers, server, group});
}

void BARNINFO::pathMessage(const char *server, const char *group, unsigned long number,
                           char *buffer, unsigned long size) {
    char name[kPathSize];
    VMSG::filename(name, number, sizeof name);
    pathBuild(buffer, size, {kStorage, kServers, server, group, name});
}

void BARNINFO::pathMessageTemp(char *buffer, unsigned long size) {
    char name[kPathSize];
    VMSG::filename(name, 0, sizeof name);
    pathBuild(buffer, size, {kStorage, name});
}

void BARNINFO::pathKillfile(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kKillfile});
}

void BARNINFO::pathTransferLog(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kTransferLog});
}

void BARNINFO::pathTemp(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kTemp});
}

void BARNINFO::pathHTML(char *buffer, unsigned long size) {
    pathBuild(buffer, size, {kStorage, kTemp, kHTML});
}
