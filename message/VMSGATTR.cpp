// Message files: reading and writing the 13 attributes, the DATA record, repair and state changes.
#include "message/VMSG.h"

#include <chrono>
#include <cstring>
#include <sys/statvfs.h>
#include <thread>
#include <vector>

#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"

namespace {

// When the file system has no room for a message's whole texts (ext4 gives a file about
// 4 KiB of attributes in all), they are written again at the next of these levels until
// they fit. The other texts are cut first, so that subject and newsgroups are kept longest;
// the Message-ID (at most 255 bytes) is never cut, and the References keep their first and
// last IDs whatever the level. The last level fits in any attribute space there is.
struct SHORTLEVEL {
    size_t longMax;  // subject and newsgroups
    size_t otherMax; // author, e-mail, to, references
};
constexpr size_t kWhole = SIZE_MAX;
const SHORTLEVEL kShortLevels[] = {
    {kWhole, kWhole},
    {VMSG::kStringReadMax, VMSG::kStringReadMax},
    {VMSG::kStringReadMax, 1024},
    {VMSG::kStringReadMax, 512},
    {VMSG::kStringReadMax, 256},
    {2048, 256},
    {1024, 256},
    {512, 128},
    {255, 128},
};

std::string cut(const std::string &text, size_t max) {
    if (text.size() <= max)
        return text;
    return text.substr(0, STR::utf8Cut(text, max));
}

VMSG::DATA shortened(const VMSG::DATA &data, const SHORTLEVEL &level) {
    VMSG::DATA out = data;
    out.subject = cut(data.subject, level.longMax);
    out.newsgroups = cut(data.newsgroups, level.longMax);
    out.author = cut(data.author, level.otherMax);
    out.email = cut(data.email, level.otherMax);
    out.to = cut(data.to, level.otherMax);
    if (level.otherMax != kWhole)
        out.references = VMSG::referencesShorten(data.references, level.otherMax);
    return out;
}

DISKFILE::ERROR writeString(DISKFILE *file, int32_t attr, const std::string &text) {
    return VMSG::attrWrite(file, attr, text.data(), text.size());
}

template <typename T>
DISKFILE::ERROR writeValue(DISKFILE *file, int32_t attr, T value) {
    return VMSG::attrWrite(file, attr, &value, sizeof(value));
}

// The DATA member of a string attribute.
std::string VMSG::DATA::*textOf(int32_t attr) {
    switch (attr) {
    case VMSG::AttrSubject:
        return &VMSG::DATA::subject;
    case VMSG::AttrAuthor:
        return &VMSG::DATA::author;
    case VMSG::AttrEmail:
        return &VMSG::DATA::email;
    case VMSG::AttrTo:
        return &VMSG::DATA::to;
    case VMSG::AttrNewsgroups:
        return &VMSG::DATA::newsgroups;
    case VMSG::AttrMsgid:
        return &VMSG::DATA::msgid;
    default:
        return &VMSG::DATA::references;
    }
}

// The attributes of data in ATTRNUM order; the first failure stops.
DISKFILE::ERROR writeData(DISKFILE *file, const VMSG::DATA &data) {
    const int32_t seconds = int32_t(data.dateTime / TIMEBASE::kSecond);
    const int8_t read = data.read ? 1 : 0;
    DISKFILE::ERROR error = DISKFILE::kSuccess;
    for (int32_t attr = 0; attr < VMSG::AttrCount && error == DISKFILE::kSuccess; attr++) {
        switch (attr) {
        case VMSG::AttrDateTime:
            error = writeValue(file, attr, seconds);
            break;
        case VMSG::AttrLines:
            error = writeValue(file, attr, data.lines);
            break;
        case VMSG::AttrRead:
            error = writeValue(file, attr, read);
            break;
        case VMSG::AttrType:
            error = writeValue(file, attr, data.type);
            break;
        case VMSG::AttrCharset:
            error = writeValue(file, attr, int32_t(data.charset));
            break;
        case VMSG::AttrPostServer:
            error = writeValue(file, attr, data.postServer);
            break;
        default:
            error = writeString(file, attr, data.*textOf(attr));
            break;
        }
    }
    return error;
}

// True when the volume holding the file has no free block: then a refused write is a full
// disk, not a lack of attribute room, and shortening texts would not help.
bool diskFull(DISKFILE *file) {
    char path[VMSG::kPathMax + 1];
    if (file->filename(path, sizeof(path)) != DISKFILE::kSuccess)
        return true;
    struct statvfs info {};
    if (statvfs(path, &info) != 0)
        return true;
    return info.f_bavail == 0;
}

// One attribute into data; false when it cannot be had.
bool readOne(TEXTFILE *file, int32_t attr, VMSG::DATA *data, std::vector<char> &text) {
    if (VMSG::attrSize(attr) == 0) {
        if (VMSG::attrRead(file, attr, text.data(), text.size()) != DISKFILE::kSuccess)
            return false;
        data->*textOf(attr) = text.data();
        return true;
    }
    int32_t value32 = 0;
    int8_t value8 = 0;
    int64_t value64 = 0;
    switch (attr) {
    case VMSG::AttrRead:
        if (VMSG::attrRead(file, attr, &value8, sizeof(value8)) != DISKFILE::kSuccess)
            return false;
        data->read = value8 != 0;
        return true;
    case VMSG::AttrPostServer:
        if (VMSG::attrRead(file, attr, &value64, sizeof(value64)) != DISKFILE::kSuccess)
            return false;
        data->postServer = value64;
        return true;
    default:
        break;
    }
    if (VMSG::attrRead(file, attr, &value32, sizeof(value32)) != DISKFILE::kSuccess)
        return false;
    if (attr == VMSG::AttrDateTime)
        data->dateTime = TIMEBASE::convert32(value32);
    else if (attr == VMSG::AttrLines)
        data->lines = value32;
    else if (attr == VMSG::AttrType)
        data->type = value32;
    else
        data->charset = IMsg::Charset(value32);
    return true;
}

const char *leafOf(const char *path) {
    const char *slash = std::strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

} // namespace

DISKFILE::ERROR VMSG::attrRead(DISKFILE *file, int32_t attr, void *buffer, size_t size) {
    const FILETYPE::ATTRINFO *row = attrFind(attr);
    if (row == nullptr || buffer == nullptr || size == 0)
        return DISKFILE::kPathInvalid;
    const size_t fixed = attrSize(attr);
    size_t count = 0;
    if (fixed != 0) {
        std::memset(buffer, 0, size);
        if (size != fixed)
            return DISKFILE::kInvalidType;
        DISKFILE::ERROR error = file->attrRead(row->name, row->type, 0, buffer, size, &count);
        if (error != DISKFILE::kSuccess)
            return error;
        return count == fixed ? DISKFILE::kSuccess : DISKFILE::kContentsInvalid;
    }
    char *text = static_cast<char *>(buffer);
    text[0] = '\0';
    const size_t limit = size - 1 < kStringReadMax ? size - 1 : kStringReadMax;
    // A few bytes past the limit tell whether the cut would split a UTF-8 character.
    char raw[kStringReadMax + 4];
    DISKFILE::ERROR error = file->attrRead(row->name, row->type, 0, raw, limit + 3, &count);
    if (error == DISKFILE::kEndOfFile)
        return DISKFILE::kSuccess;
    if (error != DISKFILE::kSuccess)
        return error;
    std::string_view value(raw, count);
    value = value.substr(0, value.find('\0'));
    value = value.substr(0, STR::utf8Cut(value, limit));
    std::memcpy(text, value.data(), value.size());
    text[value.size()] = '\0';
    return DISKFILE::kSuccess;
}

DISKFILE::ERROR VMSG::attrWrite(DISKFILE *file, int32_t attr, const void *buffer, size_t size) {
    const FILETYPE::ATTRINFO *row = attrFind(attr);
    if (row == nullptr || (buffer == nullptr && size > 0))
        return DISKFILE::kPathInvalid;
    size_t count = 0;
    if (attrSize(attr) != 0) {
        if (size != attrSize(attr))
            return DISKFILE::kInvalidType;
        return file->attrWrite(row->name, row->type, 0, buffer, size, &count);
    }
    // Strings are stored with their NUL, and never empty.
    std::string text(static_cast<const char *>(buffer), size);
    if (text.empty())
        text = STR::kNone;
    return file->attrWrite(row->name, row->type, 0, text.c_str(), text.size() + 1, &count);
}

void VMSG::fileFill(DATA *data, HdrBuf *header, int32_t type, bool read, int64_t postServer) {
    data->subject = header->StringSubject();
    data->author = header->StringAuthor();
    data->email = header->StringEmail();
    data->to = header->StringTo();
    data->newsgroups = header->StringNewsgroups();
    int64_t seconds = header->DateTime();
    if (seconds > INT32_MAX)
        seconds = INT32_MAX;
    if (seconds < INT32_MIN)
        seconds = INT32_MIN;
    data->dateTime = seconds * TIMEBASE::kSecond;
    data->lines = int32_t(header->LinesGet());
    data->read = read;
    data->type = type;
    data->msgid = header->StringMessageID();
    data->own = IMsg::MsgidGenCheck(data->msgid);
    data->references = header->StringReferences();
    data->charset = header->CharsetGet();
    data->postServer = postServer;
}

void VMSG::fileFree(DATA *data) {
    *data = DATA{};
}

bool VMSG::attrWriteAll(TEXTFILE *file, HdrBuf *header, int32_t type, bool read,
                        int64_t postServer) {
    DATA data;
    fileFill(&data, header, type, read, postServer);
    for (const SHORTLEVEL &level : kShortLevels) {
        DISKFILE::ERROR error = writeData(file, shortened(data, level));
        if (error == DISKFILE::kSuccess)
            return true;
        if (error != DISKFILE::kDiskFull || diskFull(file))
            return false;
    }
    return false;
}

bool VMSG::attrReadAll(TEXTFILE *file, DATA *data) {
    fileFree(data);
    char path[kPathMax + 1];
    if (file->filename(path, sizeof(path)) != DISKFILE::kSuccess)
        return false;
    data->filename = leafOf(path);
    uint64_t size = 0;
    file->sizeGet(&size);
    data->size = size;
    int64_t node = -1;
    file->node(&node);
    data->node = node;
    std::vector<char> text(kStringReadMax + 1);
    bool repaired = false;
    for (int32_t attr = 0; attr < AttrCount; attr++) {
        if (readOne(file, attr, data, text))
            continue;
        // Another thread may be writing this file's attributes right now.
        std::this_thread::sleep_for(std::chrono::microseconds(kRetryWait));
        if (readOne(file, attr, data, text))
            continue;
        if (!repaired) {
            repaired = true;
            if (fileSetup(path) && readOne(file, attr, data, text))
                continue;
        }
        fileFree(data);
        return false;
    }
    data->own = IMsg::MsgidGenCheck(data->msgid);
    data->charset = IMsg::CharsetMakeValid(data->charset);
    return true;
}

bool VMSG::attrCreate(const char *path, int32_t type, HdrBuf *header, IMsg::Charset charset,
                      bool useCharset, uint32_t lines, bool read, int64_t postServer) {
    TEXTFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    HdrBuf own;
    if (header == nullptr) {
        own.CharsetSet(useCharset ? charset : csetDefault(), false);
        if (!own.Read(&file))
            return false;
        header = &own;
    }
    if (header->LinesGet() == 0 && lines >= 1)
        header->LinesSet(lines);
    return attrWriteAll(&file, header, type, read, postServer);
}

bool VMSG::fileData(DATA *data, const char *path) {
    TEXTFILE file(TEXTFILE::kBufferMin);
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess) {
        fileFree(data);
        return false;
    }
    return attrReadAll(&file, data);
}

bool VMSG::fileData(DATA *data, const DISKFILE::ENTRY &entry) {
    return fileData(data, entry.path);
}

DISKFILE::ERROR VMSG::fileOpen(TEXTFILE *file, const char *path, DATA *data, DISKFILE::ACCESS mode,
                               size_t size) {
    if (data != nullptr)
        fileFree(data);
    DISKFILE::ERROR error = file->open(path, mode, size);
    if (error != DISKFILE::kSuccess)
        return error;
    if (data != nullptr && !attrReadAll(file, data)) {
        file->close();
        return DISKFILE::kAttrNotFound;
    }
    return DISKFILE::kSuccess;
}

DISKFILE::ERROR VMSG::fileOpen(TEXTFILE *file, const DISKFILE::ENTRY &entry, DATA *data,
                               DISKFILE::ACCESS mode, size_t size) {
    return fileOpen(file, entry.path, data, mode, size);
}

bool VMSG::fileSetup(const char *path) {
    TEXTFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    if (file.mimeSet(kMimeType) != DISKFILE::kSuccess)
        return false;
    HdrBuf header;
    header.CharsetSet(csetDefault(), false);
    if (!header.Read(&file))
        return false;
    const std::string_view groups = header.StringNewsgroups();
    const bool news = !groups.empty() && groups != STR::kNone;
    uint32_t body = 0;
    char line[TEXTFILE::kLineMax + 1];
    while (body < kSetupLinesMax) {
        DISKFILE::ERROR error = file.lineRead(line, sizeof(line));
        if (error == DISKFILE::kLineTooLong)
            error = file.lineSkip();
        if (error != DISKFILE::kSuccess)
            break;
        body++;
    }
    if (header.LinesGet() < 1)
        header.LinesSet(body);
    int32_t type = IMsg::MsgTypeMail;
    if (news)
        type = body > 0 ? IMsg::MsgTypeNews : IMsg::MsgTypeNewsHeader;
    return attrWriteAll(&file, &header, type, true, kServerNone);
}

bool VMSG::fileIsRead(const char *path, bool *read) {
    *read = false;
    DISKFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    int8_t value = 0;
    if (attrRead(&file, AttrRead, &value, sizeof(value)) != DISKFILE::kSuccess)
        return false;
    *read = value != 0;
    return true;
}

bool VMSG::setRead(DISKFILE *file, bool read, int64_t *node) {
    if (node != nullptr)
        *node = -1;
    const int8_t value = read ? 1 : 0;
    if (attrWrite(file, AttrRead, &value, sizeof(value)) != DISKFILE::kSuccess)
        return false;
    if (node != nullptr)
        file->node(node);
    return true;
}

bool VMSG::setRead(const char *path, bool read, int64_t *node) {
    if (node != nullptr)
        *node = -1;
    DISKFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    return setRead(&file, read, node);
}

bool VMSG::setType(DISKFILE *file, int32_t type) {
    return attrWrite(file, AttrType, &type, sizeof(type)) == DISKFILE::kSuccess;
}

bool VMSG::setType(const char *path, int32_t type) {
    DISKFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    return setType(&file, type);
}

bool VMSG::setDownload(DISKFILE *file, bool download) {
    int32_t type = 0;
    if (attrRead(file, AttrType, &type, sizeof(type)) != DISKFILE::kSuccess)
        return false;
    // A failed download (22) counts as having a body, so it is deliberately left alone.
    if (type != IMsg::MsgTypeNewsHeader && type != IMsg::MsgTypeNewsDownload)
        return true;
    const int32_t wanted = download ? IMsg::MsgTypeNewsDownload : IMsg::MsgTypeNewsHeader;
    if (type == wanted)
        return true;
    return setType(file, wanted);
}

bool VMSG::setDownload(const char *path, bool download) {
    DISKFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return false;
    return setDownload(&file, download);
}

std::string VMSG::referencesShorten(std::string_view references, size_t max) {
    if (references.size() <= max)
        return std::string(references);
    std::vector<std::string_view> ids;
    size_t at = 0;
    while (at < references.size()) {
        size_t end = references.find(' ', at);
        if (end == std::string_view::npos)
            end = references.size();
        if (end > at)
            ids.push_back(references.substr(at, end - at));
        at = end + 1;
    }
    if (ids.empty())
        return std::string();
    if (ids.size() == 1)
        return std::string(ids[0]);
    size_t length = ids.front().size() + 1 + ids.back().size();
    // The latest ancestors that fit, walking back from the parent.
    size_t firstKept = ids.size() - 1;
    while (firstKept > 1 && length + ids[firstKept - 1].size() + 1 <= max) {
        firstKept--;
        length += ids[firstKept].size() + 1;
    }
    std::string out(ids.front());
    for (size_t i = firstKept; i < ids.size(); i++) {
        out += ' ';
        out += ids[i];
    }
    return out;
}
