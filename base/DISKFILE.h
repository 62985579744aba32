// The one class through which the program touches the file system: files, typed attributes,
// directories, the trash, queries and node monitoring.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "base/CRITSECT.h"
#include "base/MESSAGE.h"

struct stat;

// One open file (or none). The object is itself a critical section: every operation enters it
// and leaves it on every path, so one object may be shared by threads, and operations call one
// another while holding it. Operations on paths use the object only for its lock and as a
// scratch file.
//
// Every operation returns an ERROR; outputs through pointers are set to a defined value before
// the work starts, so a failed call leaves them defined. Paths longer than kPathMax are cut.
class DISKFILE : public CRITSECT {
public:
    // Longest path the class keeps; longer ones are cut silently.
    static constexpr size_t kPathMax = 300;
    // copy() moves contents and attribute values in chunks of this size; longer attribute
    // values are copied cut to it.
    static constexpr size_t kCopyChunk = 65536;
    // trash() tries the leaf name and this many more " copy" names before giving up.
    static constexpr uint32_t kTrashAttempts = 1001;
    // The attribute whose read failure copy() deliberately ignores.
    static constexpr const char *kResourceFork = "MACOS:RFORK";
    // A file's MIME type is kept in the extended attribute of this name (the shared-mime-info
    // convention); queries call it BEOS:TYPE.
    static constexpr const char *kMimeAttr = "user.mime_type";
    static constexpr const char *kQueryTypeName = "BEOS:TYPE";
    // Typed attribute NAME is the extended attribute kAttrPrefix NAME.
    static constexpr const char *kAttrPrefix = "user.";
    // The scratch file dirAccess writes and erases.
    static constexpr const char *kAccessProbe = "temp_$$@.dat";

    // Attribute type codes, stored most significant byte first in front of each value.
    static constexpr uint32_t kTypeString = fourcc("CSTR");
    static constexpr uint32_t kTypeTime = fourcc("TIME");
    static constexpr uint32_t kTypeInt32 = fourcc("LONG");
    static constexpr uint32_t kTypeUInt32 = fourcc("ULNG");
    static constexpr uint32_t kTypeInt64 = fourcc("LLNG");
    static constexpr uint32_t kTypeUInt64 = fourcc("ULLG");
    static constexpr uint32_t kTypeInt16 = fourcc("SHRT");
    static constexpr uint32_t kTypeInt8 = fourcc("BYTE");
    static constexpr uint32_t kTypeBool = fourcc("BOOL");
    static constexpr uint32_t kTypeFloat = fourcc("FLOT");
    static constexpr uint32_t kTypeDouble = fourcc("DBLE");
    static constexpr uint32_t kTypeRaw = fourcc("RAWT");
    static constexpr uint32_t kTypeMimeString = fourcc("MIMS");

    enum ENTRYTYPE : int32_t {
        kEntryUnknown = 0,
        kEntryFile = 1,
        kEntryDirectory = 2,
        kEntryLink = 3,
    };

    enum ACCESS : int32_t {
        kRead = 0,
        kWrite = 1,
        kReadWrite = 2,
        // Deliberately the odd number 0x7BE7, not 3: callers store it in settings.
        kNoAccess = 31719,
    };

    // Any value above kFromEnd is deliberately treated as kFromStart.
    enum PTRMETHOD : uint32_t {
        kFromStart = 0,
        kFromCurrent = 1,
        kFromEnd = 2,
    };

    enum ERROR : int32_t {
        kSuccess = 0,
        kAccessDenied = 1,
        kFileExists = 2,
        kAlreadyLocked = 3,
        kAttrNotFound = 4,
        kPathInvalid = 5,
        kCreateFailed = 6,
        kDirExists = 7,
        kDirCreateFailed = 8,
        kDirNotEmpty = 9,
        kDirNotFound = 10,
        kDirRenameFailed = 11,
        kDiskFull = 12,
        kEndOfFile = 13,
        kEraseFailed = 14,
        kContentsInvalid = 15,
        kInvalidType = 16,
        kIterationAborted = 17,
        kLineTooLong = 18,
        kNoMimeType = 19,
        kOutOfMemory = 20,
        kNotLocked = 21,
        kNotOpen = 22,
        kNotFound = 23,
        kOpenFailed = 24,
        kPositionFailed = 25,
        kReadFailed = 26,
        kRenameFailed = 27,
        kTooManyFiles = 28,
        kWriteFailed = 29,
    };

    // One directory entry, as walks, queries and entry-based opens see it. Entries are paths
    // on this system; an "entry_ref" is the same record.
    struct ENTRY {
        char path[kPathMax + 1] = {};
        ENTRYTYPE type = kEntryUnknown; // of the entry itself, links not followed
        int64_t node = -1;              // inode number
        int64_t directory = -1;         // inode number of the containing directory
        int64_t device = -10;
        // The part after the last '/'.
        const char *leaf() const;
    };

    // Recursive walk: called per entry with a continue flag that starts true and the depth
    // (0 for the starting directory). false aborts the walk with kIterationAborted; clearing
    // *next ends it at once with success.
    using ITERATEFUNC = bool (*)(void *data, bool *next, int32_t depth, const ENTRY &entry);
    // Flat walk and query results: false stops with kIterationAborted.
    using ENTRYFUNC = bool (*)(void *data, const ENTRY &entry);

    DISKFILE();
    // Closes the file (releasing its lock).
    ~DISKFILE();
    DISKFILE(const DISKFILE &) = delete;
    DISKFILE &operator=(const DISKFILE &) = delete;

    // --- Texts and status mapping ---
    // The fixed text of an error; any value outside 0..29 gives "Unknown file error".
    static const char *errorStr(int32_t error);
    // Turns an errno value (0 is success) into an ERROR by the fixed table; every other value
    // gives fallback.
    static ERROR errorGet(int status, ERROR fallback);
    // What directory operations report: 2 becomes 7, 6 becomes 8, 23 becomes 10, 27 becomes
    // 11; everything else is unchanged.
    static ERROR dirTranslate(ERROR error);
    // Permission bits for a new directory or an update: the nine bits set for access, bits
    // above them kept; an access outside the table leaves bits unchanged.
    static uint32_t permMask(ACCESS access, uint32_t bits);
    // kAccessDenied unless the owner bit that access needs (read, write, or both) is set in
    // bits. The class makes this check itself, so it holds for every user, root included.
    static ERROR permCheck(ACCESS access, uint32_t bits);

    // --- One open file ---
    // Closes any open file and opens path with the access's mode.
    ERROR open(const char *path, ACCESS access);
    ERROR open(const ENTRY &entry, ACCESS access);
    // Whether a file is open.
    bool open() const;
    // Creates (or truncates) path; an existing file without the owner-write bit gives
    // kAccessDenied and is left untouched.
    ERROR create(const char *path, ACCESS access);
    ERROR create(const ENTRY &entry, ACCESS access);
    // Releases the file and its lock; kNotOpen when nothing was open.
    ERROR close();
    // Up to size bytes; end of file gives kEndOfFile with *count 0 (callers loop until it).
    ERROR read(void *buffer, size_t size, size_t *count);
    // Succeeds only when all size bytes were written; otherwise *count is 0.
    ERROR write(const void *buffer, size_t size, size_t *count);
    ERROR flush();
    ERROR position(PTRMETHOD method, int64_t offset);
    ERROR position(int64_t *offset);
    ERROR sizeGet(uint64_t *size);
    ERROR sizeSet(uint64_t size);
    // Microseconds since 1970, whole seconds: the file's birth time where the file system
    // reports one, else its modification time.
    ERROR creationTimeGet(int64_t *time);
    // Linux cannot set a birth time: this sets the modification time to time (whole
    // seconds), which creationTimeGet answers on file systems without birth times.
    ERROR creationTimeSet(int64_t time);
    // The file's inode number; -1 on failure.
    ERROR node(int64_t *id);
    // The kept path, cut to size.
    ERROR filename(char *buffer, size_t size);
    // The entry type of the kept path (links not followed), cached after the first answer.
    ERROR type(ENTRYTYPE *type);
    ERROR permGet(uint32_t *bits);
    ERROR permSet(uint32_t bits);
    ERROR permUpdate(ACCESS access);
    // The MIME type (kNoMimeType when the file has none), cut to size.
    ERROR mimeGet(char *buffer, size_t size);
    ERROR mimeSet(const char *type);
    // An exclusive advisory lock on the file (flock), refused at once when another open
    // holds one. lock(false) without this object holding a lock gives kNotLocked.
    ERROR lock(bool lock);
    bool locked() const;

    // --- Typed attributes of the open file ---
    // Reads the value from position on; an empty result gives kEndOfFile.
    ERROR attrRead(const char *name, uint32_t type, int64_t position, void *buffer, size_t size,
                   size_t *count);
    // Writing at position 0 replaces the value; at a later position it patches the value,
    // padding with zero bytes. The type becomes type. Keeps the Message-ID index true.
    ERROR attrWrite(const char *name, uint32_t type, int64_t position, const void *buffer,
                    size_t size, size_t *count);
    // The attribute's type code and value size (without the type tag).
    ERROR attrInfo(const char *name, uint32_t *type, uint64_t *size);
    ERROR attrErase(const char *name);

    // --- Paths ---
    // Entry type of a path, links not followed (file, then directory, then link).
    ERROR typeGet(const char *path, ENTRYTYPE *type);
    ERROR erase(const char *path);
    // Never replaces: an existing target gives kFileExists (the trash relies on it).
    ERROR rename(const char *from, const char *to);
    // Contents and attributes; a partly written destination is left in place on failure.
    ERROR copy(const char *from, const char *to);
    // Replaces to: renames on one device; across devices copies and erases the source after a
    // good copy. A missing source or target folder, or a source the owner may not rename,
    // fails before the destination is touched.
    ERROR move(const char *from, const char *to);
    // Into the freedesktop.org trash of the path's volume, as "x", "x copy", "x copy 2", ...
    ERROR trash(const char *path);
    // Device of the path; -10 on failure.
    ERROR volume(const char *path, int64_t *device);
    // The user's data folder, $XDG_DATA_HOME, else $HOME/.local/share: the home volume's trash
    // and the Message-ID index live below it.
    static std::string dataHome();
    ERROR entryToPath(const ENTRY &entry, char *buffer, size_t size);
    ERROR refToPath(const ENTRY &ref, char *buffer, size_t size);
    ERROR pathToRef(ENTRY *ref, const char *path);
    // Runs a query on the volume with the given device. The supported predicate is the
    // Message-ID query, ((VELLOWICK:msgid=="<id>")&&(BEOS:TYPE=="text/x-vellowick")), and any
    // conjunction of equality terms that includes the indexed attribute; others give
    // kPathInvalid. Each hit is checked against the file before the callback sees it.
    ERROR query(int64_t device, const char *predicate, ENTRYFUNC callback, void *data);

    // --- Directories (results pass through dirTranslate) ---
    ERROR dirCreate(const char *path, ACCESS access);
    ERROR dirErase(const char *path);
    ERROR dirRename(const char *from, const char *to);
    ERROR dirTrash(const char *path);
    ERROR dirVolume(const char *path, int64_t *device);
    // True when the volume is writable and takes a user attribute (probed in the directory).
    ERROR dirIsBFS(const char *path, bool *answer);
    // Writes eight known bytes into a scratch file in path, reads them back and compares
    // (kReadFailed on any difference); the scratch file is always erased. kPathInvalid when
    // the scratch file's path would be cut (it would name another file).
    ERROR dirAccess(const char *path);
    // Walks and obliteration pass over entries whose paths would be longer than kPathMax:
    // cut, such a path names the folder itself or another entry.
    ERROR dirIterate(const char *path, bool recurse, ITERATEFUNC callback, void *data);
    // The flat walk over raw entries, "." and ".." skipped.
    ERROR dirIterate(const char *path, ENTRYFUNC callback, void *data);
    // Deletes the directory and everything in it (kDirNotEmpty when an entry too long to
    // name stays).
    ERROR dirObliterate(const char *path);
    // Node monitoring (see NODEMONITOR for the messages and flags). The looper receives
    // messages until dirMonitorStop returns; posts happen on the monitor's own thread.
    ERROR dirMonitorStart(MESSAGETARGET *looper, const char *path, uint32_t flags);
    ERROR dirMonitorStop(MESSAGETARGET *looper);

private:
    ENTRYTYPE fType = kEntryUnknown;
    int fFd = -1;
    uint32_t fModeBits = 0; // st_mode of the open file, as fetched at open and set by permSet
    char fPath[kPathMax + 1] = {};
    bool fLocked = false;

    // Copies path into out, cut at kPathMax.
    static void _cut(char (&out)[kPathMax + 1], const char *path);
    ERROR _open(const char *path, ACCESS access, int extraFlags, ERROR fallback);
    ERROR _permRequire(ACCESS access);
    // The open file's status; kNotOpen without one.
    ERROR _fstat(struct stat *info, ERROR fallback);
    // The common start of an attribute operation: an open file, a name, the owner bit.
    ERROR _attrBegin(const char *name, ACCESS access);
    static ENTRYTYPE _typeOf(uint32_t mode);
    // The folder part of a path ("." for a bare leaf, "/" for an entry of the root), trailing
    // slashes passed over; leaf, when given, receives the last part.
    static std::string _parentOf(const char *path, std::string *leaf = nullptr);
    ERROR _pathCheck(const char *path, ACCESS access);
    ERROR _attrCopy(DISKFILE &to);
    ERROR _iterate(const char *path, bool recurse, bool *next, int32_t depth, ITERATEFUNC callback,
                   void *data);
};
