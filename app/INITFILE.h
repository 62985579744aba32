// Settings files: sections of "key = value" lines bound to tables of typed program variables.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "app/FIELD.h"
#include "base/CRITSECT.h"
#include "base/DISKFILE.h"
#include "base/FILETYPE.h"

// One INITFILE reads or writes one file at a time; its own lock makes read, write and
// writeDefault whole operations, so one object may be shared by threads. Results are 0 or a
// DISKFILE::ERROR. Problems are collected (at most kErrorMax) and shown in one alert at the end
// of the operation.
class INITFILE {
public:
    static constexpr size_t kLineMax = 1000;     // longest line read
    static constexpr size_t kValueMax = 150;     // longest value text written
    static constexpr size_t kCommentColumn = 39; // comments start after this many characters
    static constexpr size_t kErrorMax = 4;       // further problems are dropped
    static constexpr size_t kAlertMax = 3000;    // the alert text is cut to this
    static constexpr size_t kPathMax = DISKFILE::kPathMax;
    static constexpr char kCommentChar = ';';
    static constexpr const char *kExtension = ".ini";
    static constexpr const char *kBackupExtension = ".bak";
    static constexpr const char *kMimeType = "text/x-initialization";

    // One setting, or a numbered family of them (key0001, key0002, ...) laid out in memory
    // every `stride` bytes from `variable`. An item array ends with a null key.
    struct ITEM {
        const char *key = nullptr;
        // Written instead of the variable's value when set; "" writes an empty value.
        const char *fixed = nullptr;
        const char *description = nullptr;
        FIELD::TYPE type = FIELD::Unknown;
        void *variable = nullptr;
        unsigned long size = 0; // bytes of one instance; strings: buffer with its zero
        const STR::INDEX *names = nullptr;
        long long min = FIELD::kNoMin; // strings: shortest length
        long long max = FIELD::kNoMax; // strings: longest length
        FIELD::VALIDATOR validator = nullptr;
        unsigned long instances = 1; // above 1: a numbered item
        unsigned long stride = 0;
        unsigned long required = 0;     // instances below this must be in the file
        unsigned long defaultWrite = 1; // instances written into a default file
        unsigned long writeCount = 1;   // instances merged back by write
        // Clear: a numbered instance missing from the file is zeroed on read.
        bool keep = true;
        // On the first item of a group: how many consecutive items a default file writes
        // instance by instance (all items' instance 1, then all items' instance 2, ...).
        unsigned long group = 0;
    };

    struct SECT {
        const char *name;
        const char *description;
        ITEM *items;
        bool writeDefault; // written into a default file
    };

    enum LINETYPE : char {
        kLineSection = 'S',
        kLineItem = 'I',
        kLineBlank = 'B',
        kLineComment = 'C',
        kLineOther = 'G', // neither section nor item: dropped when the file is written
    };

    struct LINE {
        unsigned long number = 0; // from 1; 0 for lines added by write
        LINETYPE type = kLineBlank;
        std::string raw;
        std::string key; // the item key, or the section name
        std::string value;
        std::string comment; // the text after the first ';'
        bool hasComment = false;
        bool used = false;
        bool changed = false;
    };

    enum ERRORKIND : int32_t {
        kErrorRead = 1,
        kErrorRename = 2,
        kErrorErase = 3,
        kErrorOpen = 4,
        kErrorWrite = 5,
        kErrorMissing = 100,
        kErrorInvalid = 101,
        kErrorEmpty = 102,
    };

    struct PROBLEM {
        ERRORKIND kind;
        DISKFILE::ERROR code;
        const SECT *section;
        const ITEM *item;
        unsigned long instance; // from 0
        unsigned long line;
    };

    INITFILE() = default;
    INITFILE(const INITFILE &) = delete;
    INITFILE &operator=(const INITFILE &) = delete;

    // Reads the file into the bound variables of every section (a null-terminated array). A
    // missing file answers kNotFound without an alert, so the caller can write a default one.
    // Invalid values keep the variables' current values; missing required ones are reported.
    int32_t read(SECT **sections, const char *name);
    // Merges the variables back into an existing file, keeping comments and blank lines;
    // stale keys and unrecognised lines are dropped. A missing file is not created (kNotFound).
    // The new text is written beside the file and renamed over it.
    int32_t write(SECT **sections, const char *name);
    // Writes a complete default file after renaming any old one to ".bak".
    int32_t writeDefault(SECT **sections, const char *name);

    // The problems of the last operation, kept until the next one.
    std::vector<PROBLEM> problems() const;
    // The file the last operation used: name, or the default settings file for null or "".
    std::string path() const;

    // The default settings file: <settings directory>/<program name>.ini.
    static std::string defaultPath();
    // A line as the reader sees it.
    static LINE lineRead(const std::string &text, unsigned long number);

    // Writes text into a new file beside path and renames it over path, so that a failure
    // never leaves a truncated or empty file. The new file gets mode and, where the volume
    // keeps attributes, mimeType (null: none). With a backup name, an existing file at path
    // becomes the backup (an older backup is erased) just before the new file replaces it.
    // *step says which step failed: kErrorOpen, kErrorWrite, kErrorErase or kErrorRename.
    static DISKFILE::ERROR textReplace(const std::string &path, const std::string &text,
                                       uint32_t mode, const char *mimeType,
                                       const std::string *backup, ERRORKIND *step);

    // The settings file type.
    static bool mimeInstall();
    static bool mimeUninstall();
    static const FILETYPE *fileType();

private:
    mutable CRITSECT fLock;
    std::vector<LINE> fLines;
    std::vector<PROBLEM> fProblems;
    std::string fPath;

    void _begin(const char *name);
    int32_t _load();
    void _problem(ERRORKIND kind, DISKFILE::ERROR code, const SECT *section = nullptr,
                  const ITEM *item = nullptr, unsigned long instance = 0, unsigned long line = 0);
    void _alert() const;
    std::string _problemText(const PROBLEM &problem) const;
    LINE *_find(const SECT &section, const std::string &key, LINE **sectionLine);
    int32_t _save(const std::string &text, bool backup);
    void _writeBack(SECT **sections);
    std::string _defaultText(SECT **sections) const;
    static std::string _key(const ITEM &item, unsigned long instance);
    static void *_instance(const ITEM &item, unsigned long instance);
    static std::string _valueText(const ITEM &item, unsigned long instance);
    static std::string _itemLine(const ITEM &item, unsigned long instance);
    static std::string _commented(const std::string &line, const std::string &comment);
};
