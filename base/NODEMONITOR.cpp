// Node monitoring: changes to the entries of watched directories, posted to their loopers.
#include "base/NODEMONITOR.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <dirent.h>
#include <map>
#include <poll.h>
#include <string>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <unordered_map>
#include <vector>

#include "base/CRITSECT.h"

namespace {

using CLOCK = std::chrono::steady_clock;

constexpr uint32_t kEvents = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ONLYDIR;

struct WATCH {
    std::string path;
    int64_t node = -1;
    int64_t device = -1;
    std::vector<MESSAGETARGET *> loopers;
    // Removed entries can no longer be asked for their node numbers: they are kept here.
    std::unordered_map<std::string, int64_t> names;
};

// A "moved from" waiting for the "moved to" of the same cookie.
struct PENDING {
    uint32_t cookie = 0;
    int wd = -1;
    int64_t directory = -1;
    int64_t device = -1;
    int64_t node = -1;
    std::string name;
    CLOCK::time_point since;
};

// A message on its way to the loopers that were watching when the change was read.
struct LETTER {
    std::vector<MESSAGETARGET *> loopers;
    MESSAGE message;
};

struct STATE {
    // Guards the watches. Never held while posting: a looper's post may stop its own watch,
    // and the watch it would change must not be the one being walked.
    CRITSECT lock;
    // Held while letters are posted, and by every change of who watches: so once unwatch
    // returns, no letter to that looper is still under way. Recursive, so a looper may stop
    // watching from inside its post.
    CRITSECT deliver;
    int fd = -1;
    std::map<int, WATCH> watches;
    std::vector<PENDING> pending;
    std::vector<LETTER> outbox; // filled under lock, posted under deliver
};

// Deliberately never destroyed: the reader thread runs for the life of the process.
STATE &state() {
    static STATE *gState = new STATE;
    return *gState;
}

int64_t nodeOf(const std::string &path) {
    struct stat info {};
    return lstat(path.c_str(), &info) == 0 ? int64_t(info.st_ino) : -1;
}

STATE &state();

// Queues a message for the loopers; it is posted once the watches' lock is left.
void postAll(const std::vector<MESSAGETARGET *> &loopers, const MESSAGE &message) {
    state().outbox.push_back({loopers, message});
}

bool watching(STATE &s, MESSAGETARGET *looper) {
    CRITSECT_HOLD hold(s.lock);
    for (const auto &[wd, watch] : s.watches)
        if (std::find(watch.loopers.begin(), watch.loopers.end(), looper) != watch.loopers.end())
            return true;
    return false;
}

// Posts the queued letters, each to a looper only while it still watches (one that stopped
// in an earlier post of the same batch hears nothing more).
void deliver(STATE &s) {
    CRITSECT_HOLD delivering(s.deliver);
    std::vector<LETTER> letters;
    {
        CRITSECT_HOLD hold(s.lock);
        letters.swap(s.outbox);
    }
    for (const LETTER &letter : letters)
        for (MESSAGETARGET *looper : letter.loopers)
            if (watching(s, looper))
                looper->post(letter.message);
}

MESSAGE entryMessage(int32_t opcode, const WATCH &watch, int64_t node, const std::string &name) {
    MESSAGE message(NODEMONITOR::kWhat);
    message.addInt32("opcode", opcode);
    message.addInt64("device", watch.device);
    message.addInt64("directory", watch.node);
    message.addInt64("node", node);
    message.addString("name", name);
    return message;
}

MESSAGE moveMessage(int64_t device, int64_t from, int64_t to, int64_t node,
                    const std::string &fromName, const std::string &name) {
    MESSAGE message(NODEMONITOR::kWhat);
    message.addInt32("opcode", NODEMONITOR::kEntryMoved);
    message.addInt64("device", device);
    message.addInt64("from directory", from);
    message.addInt64("to directory", to);
    message.addInt64("node", node);
    message.addString("from name", fromName);
    message.addString("name", name);
    return message;
}

// A move whose other half never came: the entry left for a place nobody watches.
void flushPending(STATE &s, bool all) {
    CLOCK::time_point now = CLOCK::now();
    for (size_t i = 0; i < s.pending.size();) {
        PENDING &p = s.pending[i];
        if (!all && now - p.since < std::chrono::milliseconds(NODEMONITOR::kPairWaitMillis)) {
            ++i;
            continue;
        }
        auto found = s.watches.find(p.wd);
        if (found != s.watches.end())
            postAll(found->second.loopers,
                    moveMessage(p.device, p.directory, -1, p.node, p.name, p.name));
        s.pending.erase(s.pending.begin() + long(i));
    }
}

void movedTo(STATE &s, WATCH &watch, uint32_t cookie, const std::string &name) {
    auto from = std::find_if(s.pending.begin(), s.pending.end(),
                             [cookie](const PENDING &p) { return p.cookie == cookie; });
    int64_t node = -1;
    if (from != s.pending.end())
        node = from->node;
    if (node < 0)
        node = nodeOf(watch.path + "/" + name);
    // A move onto an existing name ends that entry, which inotify does not report itself.
    auto replaced = watch.names.find(name);
    if (replaced != watch.names.end() && replaced->second >= 0 && replaced->second != node)
        postAll(watch.loopers,
                entryMessage(NODEMONITOR::kEntryRemoved, watch, replaced->second, name));
    watch.names[name] = node;
    if (from == s.pending.end()) {
        postAll(watch.loopers,
                moveMessage(watch.device, -1, watch.node, node, std::string(), name));
        return;
    }
    std::vector<MESSAGETARGET *> loopers = watch.loopers;
    auto source = s.watches.find(from->wd);
    if (source != s.watches.end())
        for (MESSAGETARGET *looper : source->second.loopers)
            if (std::find(loopers.begin(), loopers.end(), looper) == loopers.end())
                loopers.push_back(looper);
    MESSAGE message =
        moveMessage(watch.device, from->directory, watch.node, node, from->name, name);
    s.pending.erase(from);
    postAll(loopers, message);
}

void handle(STATE &s, const inotify_event &event) {
    auto found = s.watches.find(event.wd);
    if (found == s.watches.end())
        return;
    WATCH &watch = found->second;
    if ((event.mask & IN_IGNORED) != 0) {
        // The directory itself is gone; the kernel dropped the watch.
        std::erase_if(s.pending, [&](const PENDING &p) { return p.wd == event.wd; });
        s.watches.erase(found);
        return;
    }
    if (event.len == 0)
        return;
    const std::string name = event.name;
    if ((event.mask & IN_CREATE) != 0) {
        int64_t node = nodeOf(watch.path + "/" + name);
        watch.names[name] = node;
        postAll(watch.loopers, entryMessage(NODEMONITOR::kEntryCreated, watch, node, name));
    } else if ((event.mask & IN_DELETE) != 0) {
        auto known = watch.names.find(name);
        int64_t node = known != watch.names.end() ? known->second : -1;
        if (known != watch.names.end())
            watch.names.erase(known);
        postAll(watch.loopers, entryMessage(NODEMONITOR::kEntryRemoved, watch, node, name));
    } else if ((event.mask & IN_MOVED_FROM) != 0) {
        auto known = watch.names.find(name);
        PENDING p;
        p.cookie = event.cookie;
        p.wd = event.wd;
        p.directory = watch.node;
        p.device = watch.device;
        p.node = known != watch.names.end() ? known->second : -1;
        p.name = name;
        p.since = CLOCK::now();
        if (known != watch.names.end())
            watch.names.erase(known);
        s.pending.push_back(std::move(p));
    } else if ((event.mask & IN_MOVED_TO) != 0) {
        movedTo(s, watch, event.cookie, name);
    }
}

void readerLoop(STATE *s) {
    alignas(inotify_event) char buffer[65536];
    for (;;) {
        int timeout = -1;
        {
            CRITSECT_HOLD hold(s->lock);
            if (!s->pending.empty())
                timeout = NODEMONITOR::kPairWaitMillis;
        }
        pollfd wait = {s->fd, POLLIN, 0};
        int ready = poll(&wait, 1, timeout);
        if (ready < 0 && errno != EINTR)
            return;
        ssize_t got = ready > 0 ? ::read(s->fd, buffer, sizeof(buffer)) : 0;
        {
            CRITSECT_HOLD hold(s->lock);
            for (ssize_t at = 0; at + ssize_t(sizeof(inotify_event)) <= got;) {
                const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
                handle(*s, *event);
                at += ssize_t(sizeof(inotify_event) + event->len);
            }
            flushPending(*s, ready == 0);
        }
        deliver(*s);
    }
}

bool startLocked(STATE &s) {
    if (s.fd >= 0)
        return true;
    s.fd = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (s.fd < 0)
        return false;
    std::thread(readerLoop, &s).detach();
    return true;
}

void removeLooper(STATE &s, std::map<int, WATCH>::iterator watch, MESSAGETARGET *looper) {
    std::erase(watch->second.loopers, looper);
    if (!watch->second.loopers.empty())
        return;
    inotify_rm_watch(s.fd, watch->first);
    std::erase_if(s.pending, [&](const PENDING &p) { return p.wd == watch->first; });
    s.watches.erase(watch);
}

} // namespace

bool NODEMONITOR::watch(MESSAGETARGET *looper, const char *path, uint32_t flags) {
    if (looper == nullptr || path == nullptr)
        return false;
    STATE &s = state();
    CRITSECT_HOLD delivering(s.deliver);
    CRITSECT_HOLD hold(s.lock);
    struct stat info {};
    if (stat(path, &info) != 0 || !S_ISDIR(info.st_mode))
        return false;
    if (flags == kStopWatching) {
        for (auto it = s.watches.begin(); it != s.watches.end(); ++it)
            if (it->second.node == int64_t(info.st_ino) &&
                it->second.device == int64_t(info.st_dev)) {
                removeLooper(s, it, looper);
                break;
            }
        return true;
    }
    if ((flags & kWatchDirectory) == 0)
        return true;
    if (!startLocked(s))
        return false;
    int wd = inotify_add_watch(s.fd, path, kEvents);
    if (wd < 0)
        return false;
    auto found = s.watches.find(wd);
    if (found != s.watches.end()) {
        std::vector<MESSAGETARGET *> &loopers = found->second.loopers;
        if (std::find(loopers.begin(), loopers.end(), looper) == loopers.end())
            loopers.push_back(looper);
        return true;
    }
    WATCH &watch = s.watches[wd];
    watch.path = path;
    watch.node = int64_t(info.st_ino);
    watch.device = int64_t(info.st_dev);
    watch.loopers.push_back(looper);
    // The watch is in place before the scan, so no entry falls between the two.
    if (DIR *dir = opendir(path)) {
        while (dirent *entry = readdir(dir))
            if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0)
                watch.names[entry->d_name] = int64_t(entry->d_ino);
        closedir(dir);
    }
    return true;
}

void NODEMONITOR::unwatch(MESSAGETARGET *looper) {
    STATE &s = state();
    CRITSECT_HOLD delivering(s.deliver);
    CRITSECT_HOLD hold(s.lock);
    for (auto it = s.watches.begin(); it != s.watches.end();) {
        auto next = std::next(it);
        if (std::find(it->second.loopers.begin(), it->second.loopers.end(), looper) !=
            it->second.loopers.end())
            removeLooper(s, it, looper);
        it = next;
    }
}

size_t NODEMONITOR::count() {
    STATE &s = state();
    CRITSECT_HOLD hold(s.lock);
    return s.watches.size();
}
