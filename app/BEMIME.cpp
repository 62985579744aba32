// File types the program installs: the desktop's MIME database and the Message-ID index.
#include "app/BEMIME.h"

#include <cerrno>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "app/INITFILE.h"
#include "app/PATHMGR.h"
#include "base/DISKFILE.h"
#include "base/FILEINDEX.h"
#include "message/URL.h"

extern char **environ;

namespace {
constexpr const char *kMimeFolder = "/mime";
constexpr const char *kPackagesFolder = "/mime/packages";
constexpr uint32_t kPackageMode = 0644;

std::string xmlEscape(const char *text) {
    std::string out;
    for (const char *p = text; *p != '\0'; ++p) {
        switch (*p) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        default:
            out += *p;
        }
    }
    return out;
}

// Compiles the user's MIME database again. A missing tool is no failure: the packages are in
// place for the next time the database is built.
bool databaseUpdate() {
    std::string folder = std::string(pathMgr.dataDir()) + kMimeFolder;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    char *argv[] = {const_cast<char *>(BEMIME::kUpdateTool), folder.data(), nullptr};
    pid_t child = 0;
    int spawned = posix_spawnp(&child, BEMIME::kUpdateTool, &actions, nullptr, argv, environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned == ENOENT)
        return true;
    if (spawned != 0)
        return false;
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return false;
    // The shell's "not found" status, for a tool that vanished between look-up and start.
    return WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 127);
}

bool hasIndexed(const FILETYPE *type) {
    if (type->attributes == nullptr)
        return false;
    for (const FILETYPE::ATTRINFO *attr = type->attributes; attr->name != nullptr; ++attr)
        if (attr->indexed)
            return true;
    return false;
}
} // namespace

std::string BEMIME::packageName(const char *mimeType) {
    std::string name = mimeType;
    for (char &c : name)
        if (c == '/')
            c = '-';
    return kPackagePrefix + name + ".xml";
}

std::string BEMIME::packagePath(const char *mimeType) {
    return std::string(pathMgr.dataDir()) + kPackagesFolder + "/" + packageName(mimeType);
}

bool BEMIME::installed(const FILETYPE *type) {
    DISKFILE file;
    DISKFILE::ENTRYTYPE entry = DISKFILE::kEntryUnknown;
    return file.typeGet(packagePath(type->mimeType).c_str(), &entry) == DISKFILE::kSuccess &&
           entry == DISKFILE::kEntryFile;
}

// The preferred application (the text editor for this program's types) is what a text
// subtype already gets from the desktop, so it is expressed as a text/plain subclass rather
// than by changing the user's default applications. The database holds one description per
// language: the short one.
std::string BEMIME::packageText(const FILETYPE *type) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<mime-info xmlns=\"http://www.freedesktop.org/standards/"
                       "shared-mime-info\">\n";
    text += "  <mime-type type=\"" + xmlEscape(type->mimeType) + "\"";
    bool textType = std::string_view(type->mimeType).starts_with("text/");
    bool bare = type->shortDescription == nullptr && type->extensions == nullptr &&
                type->icon == nullptr && !textType;
    if (bare)
        return text + "/>\n</mime-info>\n";
    text += ">\n";
    if (type->shortDescription != nullptr)
        text += "    <comment>" + xmlEscape(type->shortDescription) + "</comment>\n";
    if (textType)
        text += "    <sub-class-of type=\"text/plain\"/>\n";
    if (type->icon != nullptr)
        text += "    <generic-icon name=\"" + xmlEscape(type->icon) + "\"/>\n";
    if (type->extensions != nullptr)
        for (const char *const *extension = type->extensions; *extension != nullptr; ++extension)
            text += "    <glob pattern=\"*." + xmlEscape(*extension) + "\"/>\n";
    return text + "  </mime-type>\n</mime-info>\n";
}

bool BEMIME::packageInstall(const FILETYPE *type, bool *written) {
    *written = false;
    if (type == nullptr || type->mimeType == nullptr)
        return false;
    if (!indexInstall(type))
        return false;
    if (installed(type))
        return true;
    std::string folder = std::string(pathMgr.dataDir()) + kPackagesFolder;
    if (!PATHMGR::dirsCreate(folder.c_str()))
        return false;
    INITFILE::ERRORKIND step = INITFILE::kErrorOpen;
    if (INITFILE::textReplace(packagePath(type->mimeType), packageText(type), kPackageMode, nullptr,
                              nullptr, &step) != DISKFILE::kSuccess)
        return false;
    *written = true;
    return true;
}

bool BEMIME::install(const FILETYPE *type) {
    bool written = false;
    if (!packageInstall(type, &written))
        return false;
    return !written || databaseUpdate();
}

// One database update for all of them: the tool takes a noticeable time per run.
bool BEMIME::linkInstall() {
    bool done = true;
    bool written = false;
    for (const URL::INFO *kind = URL::info; done && kind->type != URL::TypeNone; ++kind) {
        const FILETYPE type = {.mimeType = kind->mimeType};
        bool wrote = false;
        done = packageInstall(&type, &wrote);
        written = written || wrote;
    }
    if (written && !databaseUpdate())
        return false;
    return done;
}

bool BEMIME::uninstall(const FILETYPE *type) {
    if (type == nullptr || type->mimeType == nullptr)
        return false;
    if (!installed(type))
        return true;
    DISKFILE file;
    if (file.erase(packagePath(type->mimeType).c_str()) != DISKFILE::kSuccess)
        return false;
    return databaseUpdate();
}

// The only index this system keeps is the Message-ID index; a type asking for any other
// attribute to be indexed cannot be installed as asked.
bool BEMIME::indexInstall(const FILETYPE *type) {
    if (!hasIndexed(type))
        return true;
    for (const FILETYPE::ATTRINFO *attr = type->attributes; attr->name != nullptr; ++attr)
        if (attr->indexed && !FILEINDEX::indexed(attr->name))
            return false;
    return true;
}
