// The storage pane's behaviour: commands, context menu, drops, removing and renaming.
#include "ui/STORAGE.h"

#include <atomic>
#include <cstring>

#include "base/ALERT.h"
#include "base/DISKFILE.h"
#include "base/STR.h"
#include "base/THREAD.h"
#include "base/TextFormat.h"
#include "message/VMSG.h"
#include "net/NEWS.h"
#include "ui/STORAGEITEM.h"

namespace {

// One drop at a time: the files, where they go, and how far the worker has got.
struct DROPJOB {
    std::vector<std::string> files;
    std::string target;
    long long targetNode = BARN::kNodeNone;
    std::string source;
    bool move = false;
    size_t next = 0;
    uint32_t last = 0;
};

std::atomic<bool> gDropPending{false};

bool isFixed(const BARN::NODE &node) {
    return node.type == NODETYPE::Folder && node.folder.kind != FIXEDFOLDER::User;
}

std::string parentFolder(const std::string &path) {
    size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// One file per call, so the pane and the other workers get their turn between files.
int32_t dropWork(void *data) {
    auto *job = static_cast<DROPJOB *>(data);
    if (job->next < job->files.size()) {
        const std::string &from = job->files[job->next++];
        char name[BARN::kPathMax + 1];
        STR::copy(name, from.substr(from.find_last_of('/') + 1).c_str(), sizeof name);
        DISKFILE file;
        if (VMSG::filenameResolve(job->target.c_str(), VMSG::kNumberUp, &job->last, name,
                                  sizeof name)) {
            std::string to = job->target + "/" + name;
            DISKFILE::ERROR error = job->move ? file.move(from.c_str(), to.c_str())
                                              : file.copy(from.c_str(), to.c_str());
            if (error != DISKFILE::kSuccess)
                ALERT::showf("%s.\n\nPath: %s\nProblem: %s\n",
                             job->move ? "Couldn't move message file"
                                       : "Couldn't copy message file",
                             from.c_str(), DISKFILE::errorStr(error));
        }
        return THREAD::kAgain;
    }
    // Both folders' counts follow the files that came and went.
    barn.nodeUpdate(job->targetNode);
    if (job->move)
        barn.nodeUpdate(BARN::nodeNumber(job->source.c_str()));
    delete job;
    gDropPending = false;
    return 0;
}

} // namespace

std::string STORAGE::noneSelected(NODETYPE type) {
    const char *word = STORAGEITEM::typeStr(type);
    return textFormat("No %s is currently selected.  To select a %s, click on its icon.", word,
                      word);
}

std::string STORAGE::notConfigured(const BARN::NODE &group) {
    return textFormat("Newsgroup '%s' is not configured for downloading.  Right-click on it and "
                      "select 'Download Headers' or 'Download Headers and Bodies'.",
                      group.name);
}

bool STORAGE::_selected(long long selected, NODETYPE type, BARN::NODE *node) {
    if (barn.nodeRead(node, selected)) {
        if (node->type == type)
            return true;
        // A newsgroup stands for its server in the server's commands.
        if (type == NODETYPE::Server && node->type == NODETYPE::Newsgroup &&
            barn.nodeRead(node, barn.nodeParent(selected)))
            return true;
    }
    ALERT::show(noneSelected(type));
    return false;
}

bool STORAGE::_waitLoad() {
    if (barn.final())
        return true;
    ALERT::show("Please wait until the program has finished reading storage information before "
                "performing this operation.");
    return false;
}

bool STORAGE::_anyServer() {
    BARN::NODE node;
    if (barn.serverNext(&node, 0))
        return true;
    ALERT::show("There are no server accounts.  Select the Account menu, then Create.");
    return false;
}

void STORAGE::_duplicate() {
    ALERT::show(NEWS::kDuplicateText);
}

// The actions that go to the transfer queue.
void STORAGE::_transfer(const MESSAGE &message, long long selected) {
    const std::string code = message.whatText();
    BARN::NODE node;
    if (code == "scgp" || code == "sdgf" || code == "sdgm") {
        if (!_selected(selected, NODETYPE::Newsgroup, &node))
            return;
        long long server = barn.nodeParent(node.number);
        if (code == "scgp") {
            if (!news.requestCatchupGroup(server, node.number))
                _duplicate();
            return;
        }
        if (node.group.download == GROUPDOWNLOAD::NoDownload) {
            ALERT::show(notConfigured(node));
            return;
        }
        bool marked = code == "sdgm";
        // Marked messages exist only in a group that downloads headers alone.
        if (!news.requestGroup(server, node.number, marked) &&
            (!marked || node.group.download == GROUPDOWNLOAD::HeadersOnly))
            _duplicate();
        return;
    }
    if (code == "scsr" || code == "sdsf" || code == "sdsm" || code == "sslt" || code == "ssus") {
        if (!_selected(selected, NODETYPE::Server, &node))
            return;
        unsigned long groups = 0;
        barn.groupCount(node.number, &groups);
        if (code == "scsr") {
            if (groups > 0 && news.requestCatchupServer(node.number) == 0)
                _duplicate();
        } else if (code == "sdsf" || code == "sdsm") {
            if (groups > 0 && news.requestServer(node.number, code == "sdsm") == 0)
                _duplicate();
        } else if (code == "sslt") {
            if (!news.requestServerGroupList(node.number))
                _duplicate();
        } else if (barn.serverUploadCount(node.number) == 0) {
            ALERT::show("There are no messages in the Outbox for the current server.");
        } else if (!news.requestUpload(node.number)) {
            _duplicate();
        }
        return;
    }
    if (!_waitLoad() || !_anyServer())
        return;
    if (code == "ssua") {
        unsigned long waiting = 0;
        for (unsigned long i = 0; barn.serverNext(&node, i); ++i)
            waiting += barn.serverUploadCount(node.number);
        if (waiting == 0)
            ALERT::show("No Outbox messages are ready to be sent.");
        else if (news.requestUploadAll() == 0)
            ALERT::show(NEWS::kUploadDuplicateText);
        return;
    }
    unsigned long added = 0;
    if (code == "scsa")
        added = news.requestCatchupServerAll();
    else if (code == "sdaf" || code == "sdam")
        added = news.requestServerAll(code == "sdam");
    else if (code == "stra")
        added = news.requestUploadAll() + news.requestServerAll(false);
    if (added == 0)
        _duplicate();
}

void STORAGE::_remove(const BARN::NODE &node) {
    std::string refusal = removeRefusal(node);
    if (!refusal.empty()) {
        ALERT::show(refusal);
        return;
    }
    std::string button;
    std::string question = removeQuestion(node, &button);
    long long number = node.number;
    ALERT::ask(question, {"Cancel", button}, [number](size_t choice) {
        if (choice == 1)
            barn.nodeDelete(number);
    });
}

void STORAGE::_groupMode(long long selected, GROUPDOWNLOAD mode) {
    BARN::NODE node;
    if (!_selected(selected, NODETYPE::Newsgroup, &node))
        return;
    node.group.download = mode;
    barn.nodeSave(&node);
}

bool STORAGE::command(const MESSAGE &message, long long selected, HOST *host) {
    const std::string code = message.whatText();
    static const char *const kTransfers[] = {"scgp", "scsr", "scsa", "sdgf", "sdgm", "sdsf", "sdsm",
                                             "sdaf", "sdam", "sslt", "ssus", "ssua", "stra"};
    for (const char *each : kTransfers) {
        if (code == each) {
            _transfer(message, selected);
            return true;
        }
    }
    BARN::NODE node;
    if (code == "sscr") {
        BARN::serverDefault(&node);
        host->serverDialog(node, true);
    } else if (code == "ssup" || code == "ssrn" || code == "ssde" || code == "ssgp") {
        if (!_selected(selected, NODETYPE::Server, &node))
            return true;
        if (code == "ssup") {
            host->serverDialog(node, false);
        } else if (code == "ssrn") {
            host->nameDialog(HOST::kServerEdit, &node);
        } else if (code == "ssde") {
            _remove(node);
        } else {
            MESSAGE open(message.what);
            open.addInt64("server", node.number);
            host->windowCommand(open);
        }
    } else if (code == "sfcr") {
        // Under the selected user folder, or at the top.
        bool under =
            barn.nodeRead(&node, selected) && node.type == NODETYPE::Folder && !isFixed(node);
        host->nameDialog(HOST::kFolderNew, under ? &node : nullptr);
    } else if (code == "sfrn" || code == "sfdl") {
        if (!_selected(selected, NODETYPE::Folder, &node))
            return true;
        if (code == "sfdl") {
            _remove(node);
        } else if (std::string refusal = renameRefusal(node); !refusal.empty()) {
            ALERT::show(refusal);
        } else {
            host->nameDialog(HOST::kFolderEdit, &node);
        }
    } else if (code == "sgch" || code == "sgdl") {
        if (!_selected(selected, NODETYPE::Newsgroup, &node))
            return true;
        if (code == "sgch")
            host->charsetDialog(node);
        else
            _remove(node);
    } else if (code == "sgnd") {
        _groupMode(selected, GROUPDOWNLOAD::NoDownload);
    } else if (code == "sghd") {
        _groupMode(selected, GROUPDOWNLOAD::HeadersOnly);
    } else if (code == "sghb") {
        _groupMode(selected, GROUPDOWNLOAD::HeadersAndBodies);
    } else if (code == "smcr" || code == "smed" || code == "smrp" || code == "snop" ||
               code == "sncl") {
        host->windowCommand(message);
    } else {
        return false;
    }
    return true;
}

std::vector<STORAGE::MENUENTRY> STORAGE::menuCreate(const BARN::NODE &node) {
    std::vector<std::vector<MENUENTRY>> groups(5);
    const bool group = node.type == NODETYPE::Newsgroup;
    const bool server = node.type == NODETYPE::Server;
    const bool userFolder = node.type == NODETYPE::Folder && !isFixed(node);
    if (group && node.group.download != GROUPDOWNLOAD::NoDownload) {
        groups[0].push_back({textFormat("Download '%s'", node.name), "sdgf"});
        if (node.group.download == GROUPDOWNLOAD::HeadersOnly)
            groups[0].push_back({"Download marked messages", "sdgm"});
    } else if (server) {
        groups[0].push_back({textFormat("Download '%s'", node.name), "sdsf"});
        groups[0].push_back({"Download marked messages", "sdsm"});
    }
    if (group || server)
        groups[0].push_back({"Catch-up", group ? "scgp" : "scsr"});
    if (group)
        groups[0].push_back({"Character set", "sgch"});
    if (server) {
        groups[1].push_back({"Properties", "ssup"});
        groups[1].push_back({"Select Newsgroups", "ssgp"});
    }
    if (userFolder)
        groups[1].push_back({"Create folder here", "sfcr"});
    if (node.holdsMessages) {
        groups[2].push_back({"Mark all read", "hmra"});
        groups[2].push_back({"Delete all", "hmdb"});
    }
    if (!isFixed(node)) {
        const char *word = STORAGEITEM::typeStr(node.type);
        if (!group)
            groups[3].push_back({textFormat("Rename %s", word), server ? "ssrn" : "sfrn"});
        if (group)
            groups[3].push_back({textFormat("Unsubscribe from %s", word), "sgdl"});
        else
            groups[3].push_back({textFormat("Remove %s", word), server ? "ssde" : "sfdl"});
    }
    if (group) {
        GROUPDOWNLOAD mode = node.group.download;
        groups[4].push_back({"No download", "sgnd", mode == GROUPDOWNLOAD::NoDownload});
        groups[4].push_back({"Download Headers", "sghd", mode == GROUPDOWNLOAD::HeadersOnly});
        groups[4].push_back(
            {"Download Headers and Bodies", "sghb", mode == GROUPDOWNLOAD::HeadersAndBodies});
    }
    std::vector<MENUENTRY> menu;
    for (const auto &entries : groups) {
        if (entries.empty())
            continue;
        if (!menu.empty())
            menu.push_back({});
        menu.insert(menu.end(), entries.begin(), entries.end());
    }
    return menu;
}

STORAGE::DROP STORAGE::dropAction(const BARN::NODE *target, const std::string &sourceFolder,
                                  bool secondaryButton) {
    if (target == nullptr || !target->holdsMessages || isFixed(*target))
        return kDropNone;
    if (sourceFolder == target->path)
        return kDropNone;
    if (secondaryButton)
        return kDropAsk;
    // Messages leave the fixed folders (Outbox, Drafts, Sent Messages) rather than stay
    // there twice; from anywhere else they are copied.
    return barn.folderIsFixed(sourceFolder.c_str()) ? kDropMove : kDropCopy;
}

bool STORAGE::dropStart(const std::vector<std::string> &files, long long target, bool move) {
    BARN::NODE node;
    if (files.empty() || !barn.nodeRead(&node, target) || gDropPending.exchange(true))
        return false;
    auto *job = new DROPJOB{files, node.path, target, parentFolder(files.front()), move};
    if (THREAD::spawn(dropWork, kWorkerName, job, THREAD::kPauseDefault, THREAD::kPriorityNormal) ==
        nullptr) {
        delete job;
        gDropPending = false;
        return false;
    }
    return true;
}

bool STORAGE::dropPending() {
    return gDropPending.load();
}

std::string STORAGE::removeRefusal(const BARN::NODE &node) {
    if (isFixed(node))
        return textFormat("Folder '%s' is required for proper operation of the program and "
                          "cannot be removed.",
                          node.name);
    return {};
}

std::string STORAGE::removeQuestion(const BARN::NODE &node, std::string *button) {
    const char *word = STORAGEITEM::typeStr(node.type);
    *button = textFormat("Remove %s", word);
    return textFormat("Are you sure you want to remove %s '%s'?", word, node.name);
}

std::string STORAGE::renameRefusal(const BARN::NODE &node) {
    if (node.type == NODETYPE::Newsgroup)
        return "Newsgroups cannot be renamed.";
    if (isFixed(node))
        return textFormat("Folder '%s' is required for proper operation of the program and "
                          "cannot be renamed.",
                          node.name);
    return {};
}

std::string STORAGE::nameApply(HOST::NAMEDIALOG kind, const BARN::NODE *node, const char *name) {
    const bool server = kind == HOST::kServerEdit;
    const char *word = server ? "server" : "folder";
    // A new folder goes under node; a renamed one stays under its parent.
    long long parent =
        kind == HOST::kFolderNew
            ? (node != nullptr ? node->number : BARN::kNodeNone)
            : (node != nullptr && !server ? barn.nodeParent(node->number) : BARN::kNodeNone);
    BARN::NODE above;
    if (parent != BARN::kNodeNone && !barn.nodeRead(&above, parent))
        parent = BARN::kNodeNone;
    if (!(server ? BARN::serverNameCheck(name) : BARN::folderNameCheck(name)) || name[0] == 0)
        return textFormat("'%s' is not a valid %s name.", name, word);
    if (node != nullptr && kind != HOST::kFolderNew && strcmp(node->name, name) == 0)
        return {};
    if (server ? barn.serverIsDuplicate(name) : barn.folderIsDuplicate(name, parent)) {
        if (parent != BARN::kNodeNone)
            return textFormat("There is already a %s underneath '%s' named '%s'.", word, above.name,
                              name);
        return textFormat("There is already a %s named '%s'.", word, name);
    }
    if (kind == HOST::kFolderNew)
        return barn.folderCreate(name, parent) != BARN::kNodeNone
                   ? std::string()
                   : textFormat("Couldn't create folder '%s'.", name);
    BARN::NODE renamed;
    if (node == nullptr || !barn.nodeRead(&renamed, node->number))
        return noneSelected(server ? NODETYPE::Server : NODETYPE::Folder);
    STR::copy(renamed.name, name, sizeof renamed.name);
    return barn.nodeSave(&renamed) ? std::string()
                                   : textFormat("Couldn't rename %s '%s'.", word, node->name);
}

bool STORAGE::charsetApply(long long group, uint32_t charset) {
    BARN::NODE node;
    if (!barn.nodeRead(&node, group) || node.type != NODETYPE::Newsgroup)
        return false;
    node.group.charset = charset;
    return barn.nodeSave(&node);
}
