// A server's newsgroups list file (Newsgroups.txt with its backup) and bookmark files.
#include <algorithm>
#include <cstring>

#include "app/INITFILE.h"
#include "base/ALERT.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "message/IMsg.h"
#include "storage/BARN.h"
#include "storage/BARNFILE.h"
#include "storage/BARNINFO.h"

namespace {
using PATH = char[BARNINFO::kPathSize];

constexpr uint32_t kListMode = 0644;
constexpr uint32_t kStringType = 0x43535452; // B_STRING_TYPE, "CSTR"

void readAlert(const char *path, DISKFILE::ERROR error) {
    ALERT::showf("Couldn't read newsgroups file.\nFilename: %s\nProblem: %s", path,
                 DISKFILE::errorStr(error));
}

bool serverFind(long long server, BARN::NODE *node) {
    return barn.nodeRead(node, server) && node->type == NODETYPE::Server;
}
} // namespace

void BARNFILE::slistAdd(LIST *list, const char *name) {
    list->emplace_back(name != nullptr ? name : "");
}

void BARNFILE::slistClear(LIST *list) {
    list->clear();
    list->shrink_to_fit();
}

void BARNFILE::slistSort(LIST *list) {
    std::stable_sort(list->begin(), list->end(), [](const std::string &a, const std::string &b) {
        return STR::cmpList(a, b) < 0;
    });
    list->erase(std::unique(list->begin(), list->end()), list->end());
}

bool BARNFILE::slistRead(long long server, LIST *list) {
    slistClear(list);
    BARN::NODE node{};
    if (!serverFind(server, &node))
        return true;
    PATH path;
    BARNINFO::pathListTXT(node.name, path, sizeof(path));
    TEXTFILE file;
    DISKFILE::ERROR error = file.open(path, DISKFILE::kRead);
    if (error != DISKFILE::kSuccess) {
        readAlert(path, error);
        return false;
    }
    char line[kListLineMax + 1];
    for (;;) {
        size_t length = 0;
        error = file.lineRead(line, sizeof(line), &length);
        if (error == DISKFILE::kEndOfFile)
            break;
        if (error == DISKFILE::kLineTooLong) {
            // Far longer than any newsgroup name: dropped like any other invalid line.
            error = file.lineSkip();
            if (error == DISKFILE::kSuccess || error == DISKFILE::kEndOfFile)
                continue;
        }
        if (error != DISKFILE::kSuccess) {
            readAlert(path, error);
            slistClear(list);
            return false;
        }
        std::string_view name = STR::trim(std::string_view(line, length));
        if (IMsg::NewsCheck(name))
            list->emplace_back(name);
    }
    slistSort(list);
    return true;
}

bool BARNFILE::slistWrite(long long server, LIST *list) {
    BARN::NODE node{};
    if (!serverFind(server, &node))
        return false;
    PATH path, backup;
    BARNINFO::pathListTXT(node.name, path, sizeof(path));
    BARNINFO::pathListBAK(node.name, backup, sizeof(backup));
    slistSort(list);
    std::string text;
    for (const std::string &name : *list) {
        text += name;
        text += '\n';
    }
    // Written beside the old file and renamed into place, so a failure part-way never
    // leaves a cut list; the old list becomes the backup just before.
    std::string backupPath = backup;
    INITFILE::ERRORKIND step = INITFILE::kErrorOpen;
    DISKFILE::ERROR error =
        INITFILE::textReplace(path, text, kListMode, kListMime, &backupPath, &step);
    if (error == DISKFILE::kSuccess)
        return true;
    if (step == INITFILE::kErrorRename || step == INITFILE::kErrorErase)
        alert("Couldn't rename newsgroups file", path, error);
    else
        alert("Couldn't write newsgroups file", path, error);
    return false;
}

bool BARNFILE::bookmarkCreate(const char *url, DISKFILE::ENTRY *ref) {
    *ref = DISKFILE::ENTRY();
    if (url == nullptr || url[0] == '\0')
        return false;
    char leaf[kBookmarkNameMax + 1];
    STR::copy(leaf, url, sizeof(leaf));
    if (!STR::leafSanitize(leaf, sizeof(leaf)))
        return false;
    PATH path;
    BARNINFO::pathTemp(path, sizeof(path));
    BARNINFO::pathAppend(path, sizeof(path), leaf);
    DISKFILE file;
    if (file.create(path, DISKFILE::kReadWrite) != DISKFILE::kSuccess)
        return false;
    size_t size = std::strlen(url) + 1;
    size_t count = 0;
    bool good =
        file.mimeSet(kBookmarkMime) == DISKFILE::kSuccess &&
        file.attrWrite(kBookmarkUrl, kStringType, 0, url, size, &count) == DISKFILE::kSuccess &&
        file.attrWrite(kBookmarkTitle, kStringType, 0, url, size, &count) == DISKFILE::kSuccess;
    file.close();
    if (good && file.pathToRef(ref, path) == DISKFILE::kSuccess)
        return true;
    *ref = DISKFILE::ENTRY();
    file.erase(path);
    return false;
}
