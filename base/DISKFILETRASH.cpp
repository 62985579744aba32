// DISKFILE: moving files and directories to the freedesktop.org trash of their volume.
#include "base/DISKFILE.h"

#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/DISKFILEXATTR.h"
#include "base/FILEINDEX.h"
#include "base/TextFormat.h"

namespace {

bool makeDirectories(const std::string &path, mode_t mode) {
    for (size_t at = 1; at <= path.size(); ++at) {
        if (at < path.size() && path[at] != '/')
            continue;
        std::string part = path.substr(0, at);
        if (mkdir(part.c_str(), mode) != 0 && errno != EEXIST)
            return false;
    }
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// The directory an absolute path's volume is mounted on: the last ancestor on its device.
std::string topDirectory(const std::string &absolute, dev_t device) {
    std::string top = absolute;
    for (;;) {
        size_t slash = top.rfind('/');
        if (slash == std::string::npos || top == "/")
            return "/";
        std::string parent = slash == 0 ? "/" : top.substr(0, slash);
        struct stat info {};
        if (stat(parent.c_str(), &info) != 0 || info.st_dev != device)
            return top;
        top = parent;
    }
}

// Percent-encodes a path for the Path= line, keeping '/' and the unreserved characters.
std::string escaped(const std::string &path) {
    std::string out;
    for (unsigned char c : path) {
        if (isalnum(c) || strchr("/-_.~", c) != nullptr)
            out += char(c);
        else
            out += textFormat("%%%02X", c);
    }
    return out;
}

void writeInfo(const std::string &infoDir, const std::string &name, const std::string &original) {
    time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    char date[32];
    strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &local);
    std::string text = "[Trash Info]\nPath=" + escaped(original) + "\nDeletionDate=" + date + "\n";
    std::string where = infoDir + "/" + name + ".trashinfo";
    int fd = ::open(where.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0)
        return;
    ssize_t wrote = ::write(fd, text.data(), text.size());
    (void)wrote;
    ::close(fd);
}

} // namespace

DISKFILE::ERROR DISKFILE::trash(const char *path) {
    CRITSECT_HOLD hold(*this);
    char cut[kPathMax + 1];
    _cut(cut, path);
    int64_t device = -10;
    ERROR error = volume(cut, &device);
    if (error != kSuccess)
        return error;
    // The absolute form of the path, its leaf not resolved (it may be a link).
    std::string leaf;
    char resolved[PATH_MAX];
    if (realpath(_parentOf(cut, &leaf).c_str(), resolved) == nullptr || leaf.empty() ||
        leaf == "." || leaf == "..")
        return kPathInvalid;
    const std::string original =
        (strcmp(resolved, "/") == 0 ? "/" : std::string(resolved) + "/") + leaf;

    // The home trash serves the home volume; any other volume has its own at its top.
    std::string trashDir = dataHome() + "/Trash";
    std::string shownPath = original;
    struct stat home {};
    bool onHome = makeDirectories(trashDir, 0700) && stat(trashDir.c_str(), &home) == 0 &&
                  int64_t(home.st_dev) == device;
    if (!onHome) {
        std::string top = topDirectory(original, dev_t(device));
        trashDir =
            (top == "/" ? std::string() : top) + textFormat("/.Trash-%u", unsigned(getuid()));
        // A volume's own trash records paths relative to its top.
        if (top != "/" && original.compare(0, top.size() + 1, top + "/") == 0)
            shownPath = original.substr(top.size() + 1);
    }
    const std::string filesDir = trashDir + "/files";
    const std::string infoDir = trashDir + "/info";
    if (!makeDirectories(filesDir, 0700) || !makeDirectories(infoDir, 0700))
        return kRenameFailed;

    struct stat info {};
    const bool listed = lstat(cut, &info) == 0;
    const bool directory = listed && S_ISDIR(info.st_mode);
    FILEINDEX *index = FILEINDEX::installed();
    const bool indexed =
        index != nullptr && listed && S_ISREG(info.st_mode) &&
        DISKFILEXATTR::has(-1, cut, DISKFILEXATTR::fullName(FILEINDEX::kAttribute));
    std::string name;
    char target[kPathMax + 1];
    error = kFileExists;
    for (uint32_t attempt = 0; attempt < kTrashAttempts && error == kFileExists; ++attempt) {
        name = leaf;
        if (attempt >= 1)
            name += " copy";
        if (attempt >= 2)
            name += textFormat(" %lu", static_cast<unsigned long>(attempt));
        _cut(target, (filesDir + "/" + name).c_str());
        error = rename(cut, target);
    }
    if (error != kSuccess)
        return error;
    // The info file is named after what the entry is called in the trash, which the path cut
    // may have shortened.
    name = target + filesDir.size() + 1;
    writeInfo(infoDir, name, shownPath);
    // What lies in the trash is no longer part of the store: the index forgets it.
    if (index != nullptr && directory)
        index->dirRemove(target);
    else if (indexed)
        index->fileRemove(target);
    return kSuccess;
}

DISKFILE::ERROR DISKFILE::dirTrash(const char *path) {
    CRITSECT_HOLD hold(*this);
    return dirTranslate(trash(path));
}
