// Message files: the file type, file names, typed attributes, message states and body reading.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "base/DISKFILE.h"
#include "base/FILETYPE.h"
#include "message/HdrBuf.h"
#include "message/IMsg.h"

class TEXTFILE;

// Every message is one text file (header block, empty line, body) whose list data is copied
// into 13 typed attributes. Each operation opens, changes and closes the file by itself (or
// works on a file the caller opened and keeps open), so readers and writers on other threads
// only ever meet whole attribute values or a missing one, which attrReadAll retries.
class VMSG {
public:
    static constexpr const char *kMimeType = "text/x-vellowick";
    static constexpr const char *kExtension = "vmf";
    static constexpr size_t kPathMax = 300;
    // String attributes are read with this limit (plus the terminating NUL).
    static constexpr size_t kStringReadMax = 3071;
    // File numbers: mode kNumberUp counts up through 1..20000, any other mode down through
    // 20001..999999.
    static constexpr uint32_t kUpFirst = 1;
    static constexpr uint32_t kUpLast = 20000;
    static constexpr uint32_t kDownFirst = 20001;
    static constexpr uint32_t kDownLast = 999999;
    static constexpr int32_t kNumberDown = 0;
    static constexpr int32_t kNumberUp = 1;
    // filenameResolve gives up after this many occupied names.
    static constexpr uint32_t kResolveTries = 5000;
    // attrReadAll waits this long (usecs) before its one retry of a failed read.
    static constexpr int64_t kRetryWait = 50'000;
    // fileSetup counts at most this many body lines.
    static constexpr uint32_t kSetupLinesMax = 201;
    // A posting server of none.
    static constexpr int64_t kServerNone = -1;

    // The attributes, in the order they are written and read.
    enum ATTRNUM : int32_t {
        AttrSubject = 0,
        AttrAuthor = 1,
        AttrEmail = 2,
        AttrTo = 3,
        AttrNewsgroups = 4,
        AttrDateTime = 5,
        AttrLines = 6,
        AttrRead = 7,
        AttrType = 8,
        AttrMsgid = 9,
        AttrReferences = 10,
        AttrCharset = 11,
        AttrPostServer = 12,
        AttrCount = 13,
    };

    // The icon a list shows for a message state; the pictures belong to the interface.
    enum ICON : int32_t {
        IconUnknown = 0,
        IconMailUnread,
        IconMailRead,
        IconNewsHeaderUnread,
        IconNewsHeaderRead,
        IconNewsHeaderDownload,
        IconNewsHeaderReadDownload,
        IconNewsHeaderFailed,
        IconNewsUnread,
        IconNewsRead,
    };

    // What lists and views read from a message file's attributes.
    struct DATA {
        int32_t type = 0;
        int32_t lines = 0;
        IMsg::Charset charset = IMsg::CharsetISO1;
        uint64_t size = 0;
        int64_t node = -1;
        bool own = false; // the Message-ID is one this program generated
        int64_t postServer = kServerNone;
        int64_t dateTime = 0; // usecs
        bool read = false;
        std::string author;
        std::string email;
        std::string filename; // the leaf
        std::string msgid;
        std::string newsgroups;
        std::string references;
        std::string subject;
        std::string to;
    };

    // Display texts of one message for the header list, each cut to its field.
    struct ATTRSTR {
        char author[152];
        char charset[55];
        char dateTime[26];
        char email[122];
        char filename[34];
        char lines[22];
        char newsgroups[226];
        char size[14];
        char subject[202];
        char to[202];
    };

    // One attachment found while reading a body; the list keeps the order of appearance.
    struct ATTACHMENT {
        // A safe leaf, or empty for a later part of a split uuencoded file (yEnc names its
        // file in every part).
        std::string filename;
        std::string mimeType;
        IMsg::AttachType type = IMsg::AttachNone;
        uint32_t number = 1; // how many messages the attachment is spread over
        bool begins = false; // its start lies in this message
        bool ends = false;   // its end lies in this message; both: wholly in this message
        // Where its data starts in the file (the line after a MIME part's header, a uuencode
        // "begin" or first data line): the start offset of a decode, so that an attachment
        // other than the first of its message can be decoded.
        int64_t offset = 0;
        uint64_t size = 0; // the whole file's bytes when the encoding says (yEnc); else 0
        std::unique_ptr<ATTACHMENT> next;
    };

    // The forms fileRead gives a message in.
    enum READFORM : int32_t {
        // The body to show or quote: the chosen part, decoded into UTF-8 lines, attachment
        // data left out and listed instead.
        ReadText = 0,
        // Every line of the file, header included, converted into UTF-8 and nothing else.
        ReadRaw = 1,
        // Every line of the file exactly as stored.
        ReadBinary = 2,
    };

    // Receives one line (UTF-8 unless ReadBinary), without its line end; false wants no more.
    using LINEFUNC = bool (*)(void *context, std::string_view line);
    // Receives the path of the scratch file holding the HTML part in UTF-8.
    using HTMLFUNC = void (*)(void *context, const char *path);
    // Asked before every line whether to go on.
    using CONTFUNC = bool (*)(void *context);

    struct READ {
        READFORM form = ReadText;
        // The message's character set (the charset attribute, or the user's choice).
        IMsg::Charset charset = IMsg::CharsetISO1;
        // A MIME part names its own character set, which is used in its place unless this
        // is set (the user chose a set for this message).
        bool charsetForce = false;
        // Lines longer than this many characters are word-wrapped (quoting); 0 never.
        uint32_t width = 0;
        LINEFUNC line = nullptr;
        // With one, an HTML part is preferred and handed over through the scratch file.
        HTMLFUNC html = nullptr;
        CONTFUNC cont = nullptr;
        void *context = nullptr;
        // Filled with the attachments found (emptied first), when given.
        std::unique_ptr<ATTACHMENT> *attachments = nullptr;
        // The scratch file for the HTML part (the message view gives the data directory's);
        // without one the HTML part is read as text.
        std::string htmlPath;
    };

    // --- The file type ---
    // The type with its attribute list; the Message-ID attribute is the indexed one.
    static const FILETYPE *fileType();
    // The row of an attribute; null above AttrPostServer.
    static const FILETYPE::ATTRINFO *attrFind(int32_t attr);
    // Bytes of a fixed-size attribute; 0 for the strings.
    static size_t attrSize(int32_t attr);

    // --- Names ---
    // "VM%06lu.vmf" of the number, cut to size.
    static void filename(char *buffer, unsigned long number, size_t size);
    static uint32_t msgNumNext(int32_t mode, uint32_t last);
    // A free name in folder: the given name when it is free, else numbered ones (name is
    // emptied and refilled); last follows every number taken. False after kResolveTries.
    static bool filenameResolve(const char *folder, int32_t mode, uint32_t *last, char *name,
                                size_t size);

    // --- Attributes ---
    // Creates (or empties) a message file, typed as a message, open for reading and writing.
    static DISKFILE::ERROR fileCreate(TEXTFILE *file, const char *path, size_t size);
    // Writes all attributes of an existing file. Without a header the file's own header
    // block is read, with charset set beforehand when useCharset (else the default set of
    // csetDefault, which a Content-Type charset overrides). A header without a Lines value
    // takes lines when it is 1 or more.
    static bool attrCreate(const char *path, int32_t type, HdrBuf *header, IMsg::Charset charset,
                           bool useCharset, uint32_t lines, bool read, int64_t postServer);
    // The 13 attributes in order. When the file system refuses the whole texts for room (not
    // a full disk), they are written again shortened (see VMSGATTR.cpp) rather than lost.
    static bool attrWriteAll(TEXTFILE *file, HdrBuf *header, int32_t type, bool read,
                             int64_t postServer);
    // The DATA of an open message file. A failed read is retried once after kRetryWait,
    // then the file is repaired with fileSetup once; if that does not help, data is
    // cleared and the result is false.
    static bool attrReadAll(TEXTFILE *file, DATA *data);
    // One attribute. Strings are read up to kStringReadMax bytes (never splitting a UTF-8
    // character) and always terminated; fixed-size values need their exact size.
    static DISKFILE::ERROR attrRead(DISKFILE *file, int32_t attr, void *buffer, size_t size);
    // One attribute; a string is given without its NUL, which is written with it.
    static DISKFILE::ERROR attrWrite(DISKFILE *file, int32_t attr, const void *buffer, size_t size);
    static void attrStr(const DATA *data, ATTRSTR *out);

    // --- DATA ---
    // The DATA of a message file by path or entry (opened and closed here).
    static bool fileData(DATA *data, const char *path);
    static bool fileData(DATA *data, const DISKFILE::ENTRY &entry);
    // The DATA a header block gives, as attrWriteAll stores it (texts "<None>" when empty,
    // a fallback Message-ID when the header's is invalid). File facts are left alone.
    static void fileFill(DATA *data, HdrBuf *header, int32_t type, bool read, int64_t postServer);
    // Releases the texts.
    static void fileFree(DATA *data);
    // Opens a message file with mode; with data given its DATA is loaded too, and a file
    // whose attributes cannot be had is closed again (kAttrNotFound).
    static DISKFILE::ERROR fileOpen(TEXTFILE *file, const char *path, DATA *data,
                                    DISKFILE::ACCESS mode, size_t size);
    static DISKFILE::ERROR fileOpen(TEXTFILE *file, const DISKFILE::ENTRY &entry, DATA *data,
                                    DISKFILE::ACCESS mode, size_t size);

    // --- Repair and change ---
    // Gives a file without attributes (copied in by the user) its type and attributes from
    // its header block: read, no posting server, type from Newsgroups and body.
    static bool fileSetup(const char *path);
    // Cuts the body off, keeping the header lines (for a failed body download).
    static bool fileTruncate(const char *path);
    // Writes an outgoing message into file (created by the caller): the header with the line
    // count of the wrapped body, the body wrapped and converted into the message's charset,
    // then the attributes (unread).
    static bool fileWrite(TEXTFILE *file, const HdrBuf::SendInfo *info, std::string_view body);
    static bool fileIsRead(const char *path, bool *read);
    // Write only the read attribute; *node (when given) is the file's node number.
    static bool setRead(const char *path, bool read, int64_t *node = nullptr);
    static bool setRead(DISKFILE *file, bool read, int64_t *node = nullptr);
    static bool setType(const char *path, int32_t type);
    static bool setType(DISKFILE *file, int32_t type);
    // Marks a header-only news message for download (21) or unmarks it (20); any other type
    // is left alone. True when the file ends in the asked state or is left alone by rule.
    static bool setDownload(const char *path, bool download);
    static bool setDownload(DISKFILE *file, bool download);

    // --- Display ---
    static ICON typeIcon(int32_t type, bool read);
    // The charset a file is given when its header names none.
    static void csetDefault(IMsg::Charset charset);
    static IMsg::Charset csetDefault();
    static void dataDateTime(const DATA *data, char *buffer, size_t size);
    static void dataLines(const DATA *data, char *buffer, size_t size);
    // "%llu bytes" below 1 KB, "%.2f KB" below 1 MB, else "%.2f MB".
    static void dataSize(const DATA *data, char *buffer, size_t size);

    // --- Bodies ---
    // Reads the open message file (from its start) in the asked form. kIterationAborted
    // when a callback stopped it; a file error otherwise.
    static DISKFILE::ERROR fileRead(TEXTFILE *file, const READ &read);
    // Reads the signature file line by line.
    static DISKFILE::ERROR sigRead(const char *path, LINEFUNC line, void *context);

    // References shortened to at most max bytes: whole IDs only, the first and the last
    // always kept (so threading survives), then as many of the latest others as fit.
    static std::string referencesShorten(std::string_view references, size_t max);
};
