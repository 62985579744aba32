// MIME facts of a header: boundary lines, attachments, partial messages, MIME type guesses.
#include "message/HdrBuf.h"

#include <cstdlib>
#include <fstream>
#include <mutex>
#include <unordered_map>

namespace {

constexpr const char *kOctetStream = "application/octet-stream";
// Attachment names are repaired in a path-sized buffer.
constexpr size_t kNameSize = 300;

// Used when the desktop's MIME database is missing or does not know an extension.
const struct {
    const char *extension;
    const char *mimeType;
} kFallbackTypes[] = {
    {"txt", "text/plain"},      {"html", "text/html"},      {"htm", "text/html"},
    {"jpg", "image/jpeg"},      {"jpeg", "image/jpeg"},     {"gif", "image/gif"},
    {"png", "image/png"},       {"zip", "application/zip"}, {"gz", "application/gzip"},
    {"pdf", "application/pdf"}, {"mp3", "audio/mpeg"},      {"wav", "audio/x-wav"},
    {"mpg", "video/mpeg"},      {"avi", "video/x-msvideo"}, {"rar", "application/vnd.rar"},
    {"nfo", "text/x-nfo"},
};

std::string lowerCase(std::string_view text) {
    std::string out(text);
    for (char &c : out)
        c = STR::lower(c);
    return out;
}

// Extensions to MIME types: globs marked case-sensitive ("cs") match only as written (so
// "*.C" is C++ but "*.c" is C), the others whatever the case.
struct GLOBS {
    std::unordered_map<std::string, std::string> exact;
    std::unordered_map<std::string, std::string> folded; // keys in lower case
};

// Reads the simple "*.ext" globs of one shared-mime-info globs2 file; earlier (heavier)
// entries win, as do files read earlier.
void globsRead(const std::string &path, GLOBS &globs) {
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#')
            continue;
        size_t first = line.find(':');
        size_t second = first == std::string::npos ? first : line.find(':', first + 1);
        if (second == std::string::npos)
            continue;
        std::string mimeType = line.substr(first + 1, second - first - 1);
        std::string glob = line.substr(second + 1);
        std::string flags;
        size_t flagsAt = glob.find(':');
        if (flagsAt != std::string::npos) {
            flags = "," + glob.substr(flagsAt + 1) + ",";
            glob.resize(flagsAt);
        }
        if (glob.size() < 3 || glob.compare(0, 2, "*.") != 0 ||
            glob.find_first_of("*?[", 2) != std::string::npos) {
            continue;
        }
        if (flags.find(",cs,") != std::string::npos)
            globs.exact.emplace(glob.substr(2), mimeType);
        else
            globs.folded.emplace(lowerCase(glob.substr(2)), mimeType);
    }
}

const GLOBS &globs() {
    static GLOBS globs;
    static std::once_flag once;
    std::call_once(once, [] {
        const char *home = std::getenv("XDG_DATA_HOME");
        const char *user = std::getenv("HOME");
        if (home != nullptr && *home != '\0')
            globsRead(std::string(home) + "/mime/globs2", globs);
        else if (user != nullptr && *user != '\0')
            globsRead(std::string(user) + "/.local/share/mime/globs2", globs);
        const char *dirs = std::getenv("XDG_DATA_DIRS");
        std::string list = dirs != nullptr && *dirs != '\0' ? dirs : "/usr/local/share:/usr/share";
        size_t pos = 0;
        while (pos <= list.size()) {
            size_t end = list.find(':', pos);
            if (end == std::string::npos)
                end = list.size();
            if (end > pos)
                globsRead(list.substr(pos, end - pos) + "/mime/globs2", globs);
            pos = end + 1;
        }
        for (const auto &row : kFallbackTypes)
            globs.folded.emplace(row.extension, row.mimeType);
    });
    return globs;
}

} // namespace

bool HdrBuf::Boundary(std::string_view line, bool &isEnd) const {
    isEnd = false;
    if (line.size() < 3 || line.compare(0, 2, "--") != 0)
        return false;
    for (const std::string &boundary : fBoundaries) {
        if (line.size() == boundary.size() + 2 && line.compare(2, boundary.size(), boundary) == 0)
            return true;
        if (line.size() == boundary.size() + 4 && line.compare(2, boundary.size(), boundary) == 0 &&
            line.compare(line.size() - 2, 2, "--") == 0) {
            isEnd = true;
            return true;
        }
    }
    return false;
}

bool HdrBuf::PartialStart() const {
    return fMain.content == ContentPartial && fMain.number == 1 && !fCurrentInner;
}

bool HdrBuf::Attachment(std::string &fileName, std::string &mimeType,
                        IMsg::AttachType &attachType) const {
    fileName.clear();
    mimeType.clear();
    attachType = IMsg::AttachNone;
    const Data &data = current();
    if (data.disposition != DispositionAttachment && data.encoding != EncodingBase64)
        return false;
    // The later parts of a partial message carry data, not a part header.
    if (data.content == ContentPartial && data.number > 1)
        return false;
    char name[kNameSize];
    STR::copy(name, data.strings[StrFilename], sizeof(name));
    if (!STR::filenameFixup(name, sizeof(name)))
        return false;
    std::string type;
    switch (data.content) {
    case ContentNone:
    case ContentHTML:
    case ContentPlain:
        type = data.strings[StrContentType];
        break;
    case ContentOctetStream:
        FilenameToMIME(name, type);
        break;
    default:
        return false;
    }
    fileName = name;
    mimeType = type.empty() ? kOctetStream : type;
    attachType = data.encoding == EncodingBase64 ? IMsg::AttachBase64 : IMsg::AttachMime;
    return true;
}

void HdrBuf::FilenameToMIME(std::string_view fileName, std::string &mimeType) {
    mimeType.clear();
    size_t slash = fileName.find_last_of('/');
    if (slash != std::string_view::npos)
        fileName.remove_prefix(slash + 1);
    const GLOBS &known = globs();
    // The longest known extension wins: "x.tar.gz" before "x.gz".
    for (size_t dot = fileName.find('.'); dot != std::string_view::npos;
         dot = fileName.find('.', dot + 1)) {
        std::string extension(fileName.substr(dot + 1));
        auto found = known.exact.find(extension);
        if (found == known.exact.end()) {
            found = known.folded.find(lowerCase(extension));
            if (found == known.folded.end())
                continue;
        }
        mimeType = found->second;
        return;
    }
}
