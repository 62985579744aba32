// Message files: the file type and its attribute rows, file names, icons and display texts.
#include "message/VMSG.h"

#include <atomic>
#include <cstdio>

#include "base/STR.h"
#include "base/TIMEBASE.h"

namespace {

// The attribute rows, in ATTRNUM order, ended by a null name for the type's list.
const FILETYPE::ATTRINFO kAttributes[] = {
    {"VELLOWICK:subject", "Subject", DISKFILE::kTypeString, true, false, 200, FILETYPE::kAlignLeft,
     false},
    {"VELLOWICK:author", "Author", DISKFILE::kTypeString, true, false, 130, FILETYPE::kAlignLeft,
     false},
    {"VELLOWICK:email", "E-Mail Address", DISKFILE::kTypeString, true, false, 100,
     FILETYPE::kAlignLeft, false},
    {"VELLOWICK:to", "To", DISKFILE::kTypeString, true, false, 130, FILETYPE::kAlignLeft, false},
    {"VELLOWICK:newsgroups", "Newsgroups", DISKFILE::kTypeString, true, false, 150,
     FILETYPE::kAlignLeft, false},
    {"VELLOWICK:datetime", "Date/Time", DISKFILE::kTypeTime, true, false, 100, FILETYPE::kAlignLeft,
     false},
    {"VELLOWICK:lines", "Lines", DISKFILE::kTypeInt32, true, false, 35, FILETYPE::kAlignRight,
     false},
    {"VELLOWICK:read", "Read", DISKFILE::kTypeBool, true, false, 30, FILETYPE::kAlignLeft, false},
    {"VELLOWICK:type", "Type", DISKFILE::kTypeInt32, true, false, 30, FILETYPE::kAlignRight, false},
    {"VELLOWICK:msgid", "Message ID", DISKFILE::kTypeString, true, false, 150, FILETYPE::kAlignLeft,
     true},
    {"VELLOWICK:references", "References", DISKFILE::kTypeString, false, false, 150,
     FILETYPE::kAlignLeft, false},
    {"VELLOWICK:charset", "Character Set", DISKFILE::kTypeInt32, false, false, 50,
     FILETYPE::kAlignRight, false},
    {"VELLOWICK:postserver", "Posting Server", DISKFILE::kTypeInt64, false, false, 80,
     FILETYPE::kAlignLeft, false},
    {nullptr, nullptr, 0, false, false, 0, FILETYPE::kAlignLeft, false},
};

const char *const kExtensions[] = {VMSG::kExtension, nullptr};

const FILETYPE kFileType = {
    .icon = "text-x-generic",
    .mimeType = VMSG::kMimeType,
    .preferredApp = "application/x-vnd.Be-STEE",
    .shortDescription = "Vellowick Message",
    .longDescription = "Vellowick e-mail or news article text file",
    .extensions = kExtensions,
    .attributes = kAttributes,
};

std::atomic<int32_t> gCharsetDefault{IMsg::CharsetISO1};

// Icons of the valid types: unread, read.
struct ICONROW {
    int32_t type;
    VMSG::ICON unread;
    VMSG::ICON read;
};
const ICONROW kIcons[] = {
    {IMsg::MsgTypeMail, VMSG::IconMailUnread, VMSG::IconMailRead},
    {IMsg::MsgTypeNewsHeader, VMSG::IconNewsHeaderUnread, VMSG::IconNewsHeaderRead},
    {IMsg::MsgTypeNewsDownload, VMSG::IconNewsHeaderDownload, VMSG::IconNewsHeaderReadDownload},
    {IMsg::MsgTypeNewsFailed, VMSG::IconNewsHeaderFailed, VMSG::IconNewsHeaderRead},
    {IMsg::MsgTypeNews, VMSG::IconNewsUnread, VMSG::IconNewsRead},
};

constexpr uint64_t kKilo = 1024;

} // namespace

const FILETYPE *VMSG::fileType() {
    return &kFileType;
}

const FILETYPE::ATTRINFO *VMSG::attrFind(int32_t attr) {
    if (attr < 0 || attr >= AttrCount)
        return nullptr;
    return &kAttributes[attr];
}

size_t VMSG::attrSize(int32_t attr) {
    const FILETYPE::ATTRINFO *row = attrFind(attr);
    if (row == nullptr)
        return 0;
    switch (row->type) {
    case DISKFILE::kTypeTime:
    case DISKFILE::kTypeInt32:
        return 4;
    case DISKFILE::kTypeBool:
        return 1;
    case DISKFILE::kTypeInt64:
        return 8;
    default:
        return 0;
    }
}

void VMSG::filename(char *buffer, unsigned long number, size_t size) {
    if (size == 0)
        return;
    char text[32];
    std::snprintf(text, sizeof(text), "VM%06lu.%s", number, kExtension);
    STR::copy(buffer, text, size);
}

uint32_t VMSG::msgNumNext(int32_t mode, uint32_t last) {
    if (mode == kNumberUp) {
        if (last < kUpFirst || last >= kUpLast)
            return kUpFirst;
        return last + 1;
    }
    if (last <= kDownFirst || last > kDownLast)
        return kDownLast;
    return last - 1;
}

bool VMSG::filenameResolve(const char *folder, int32_t mode, uint32_t *last, char *name,
                           size_t size) {
    if (size == 0 || name == nullptr || last == nullptr)
        return false;
    DISKFILE probe;
    for (uint32_t tries = 0; tries < kResolveTries; tries++) {
        if (name[0] == '\0') {
            *last = msgNumNext(mode, *last);
            filename(name, *last, size);
        }
        char path[kPathMax + 1];
        STR::copy(path, folder != nullptr ? folder : "", sizeof(path));
        STR::cat(path, "/", sizeof(path));
        STR::cat(path, name, sizeof(path));
        DISKFILE::ENTRYTYPE type = DISKFILE::kEntryUnknown;
        if (probe.typeGet(path, &type) == DISKFILE::kNotFound)
            return true;
        name[0] = '\0';
    }
    return false;
}

VMSG::ICON VMSG::typeIcon(int32_t type, bool read) {
    for (const ICONROW &row : kIcons) {
        if (row.type == type)
            return read ? row.read : row.unread;
    }
    return IconUnknown;
}

void VMSG::csetDefault(IMsg::Charset charset) {
    gCharsetDefault = IMsg::CharsetMakeValid(charset);
}

IMsg::Charset VMSG::csetDefault() {
    return IMsg::Charset(gCharsetDefault.load());
}

void VMSG::dataDateTime(const DATA *data, char *buffer, size_t size) {
    TIMEBASE::timeFormat(buffer, size, data->dateTime);
}

void VMSG::dataLines(const DATA *data, char *buffer, size_t size) {
    if (size == 0)
        return;
    std::snprintf(buffer, size, "%ld", long(data->lines));
}

void VMSG::dataSize(const DATA *data, char *buffer, size_t size) {
    if (size == 0)
        return;
    const uint64_t bytes = data->size;
    if (bytes < kKilo)
        std::snprintf(buffer, size, "%llu bytes", static_cast<unsigned long long>(bytes));
    else if (bytes < kKilo * kKilo)
        std::snprintf(buffer, size, "%.2f KB", double(bytes) / double(kKilo));
    else
        std::snprintf(buffer, size, "%.2f MB", double(bytes) / double(kKilo * kKilo));
}

void VMSG::attrStr(const DATA *data, ATTRSTR *out) {
    STR::copy(out->author, data->author, sizeof(out->author));
    STR::copy(out->charset, IMsg::CharsetString(data->charset), sizeof(out->charset));
    if (data->own)
        STR::cat(out->charset, " *", sizeof(out->charset));
    dataDateTime(data, out->dateTime, sizeof(out->dateTime));
    STR::copy(out->email, data->email, sizeof(out->email));
    STR::copy(out->filename, data->filename, sizeof(out->filename));
    dataLines(data, out->lines, sizeof(out->lines));
    STR::copy(out->newsgroups, data->newsgroups, sizeof(out->newsgroups));
    dataSize(data, out->size, sizeof(out->size));
    STR::copy(out->subject, data->subject, sizeof(out->subject));
    STR::copy(out->to, data->to, sizeof(out->to));
}
