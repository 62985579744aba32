// Settings files: sections of "key = value" lines bound to tables of typed program variables.
#include "app/INITFILE.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "app/APPNAME.h"
#include "app/BEMIME.h"
#include "app/PATHMGR.h"
#include "base/ALERT.h"
#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"
#include "base/TextFormat.h"

namespace {
// Beside the file while it is being written; renamed over it when complete.
constexpr const char *kNewSuffix = ".new";
// New settings files are private: a server file holds a password.
constexpr uint32_t kFileMode = 0600;

bool blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f';
}

std::string strip(const std::string &text) {
    size_t first = 0;
    size_t last = text.size();
    while (first < last && blank(text[first]))
        ++first;
    while (last > first && blank(text[last - 1]))
        --last;
    return text.substr(first, last - first);
}

// Keys and section names keep no blanks (and keys no brackets) anywhere.
std::string squeeze(const std::string &text, bool brackets) {
    std::string out;
    for (char c : text)
        if (!blank(c) && !(brackets && (c == '[' || c == ']')))
            out += c;
    return out;
}

// The ".bak" name of a settings file: ".ini" replaced, or ".bak" added.
std::string backupName(const std::string &path) {
    size_t length = std::strlen(INITFILE::kExtension);
    if (path.size() >= length &&
        STR::iequal(std::string_view(path).substr(path.size() - length), INITFILE::kExtension))
        return path.substr(0, path.size() - length) + INITFILE::kBackupExtension;
    return path + INITFILE::kBackupExtension;
}

const char *const kExtensions[] = {"ini", nullptr};

const FILETYPE kFileType = {
    .icon = "text-x-generic",
    .mimeType = INITFILE::kMimeType,
    .preferredApp = "application/x-vnd.Be-STEE",
    .shortDescription = "Initialization file",
    .longDescription = "Saved state data text file",
    .extensions = kExtensions,
};

// The directory part of a path, for the attribute probe.
std::string folderOf(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}
} // namespace

std::vector<INITFILE::PROBLEM> INITFILE::problems() const {
    CRITSECT_HOLD hold(fLock);
    return fProblems;
}

std::string INITFILE::path() const {
    CRITSECT_HOLD hold(fLock);
    return fPath;
}

std::string INITFILE::defaultPath() {
    std::string path = pathMgr.prefDir();
    if (path.empty() || path.back() != '/')
        path += '/';
    return path + pathMgr.progName() + kExtension;
}

INITFILE::LINE INITFILE::lineRead(const std::string &text, unsigned long number) {
    LINE line;
    line.number = number;
    line.raw = text;
    std::string body = text;
    size_t semicolon = text.find(kCommentChar);
    if (semicolon != std::string::npos) {
        line.hasComment = true;
        line.comment = text.substr(semicolon + 1);
        body = text.substr(0, semicolon);
    }
    body = strip(body);
    if (body.empty()) {
        line.type = line.hasComment ? kLineComment : kLineBlank;
        return line;
    }
    if (body.size() >= 3 && body.front() == '[' && body.back() == ']') {
        line.type = kLineSection;
        line.key = squeeze(body.substr(1, body.size() - 2), false);
        return line;
    }
    size_t equals = body.find('=', 1);
    if (equals != std::string::npos) {
        line.key = squeeze(body.substr(0, equals), true);
        if (!line.key.empty()) {
            line.type = kLineItem;
            line.value = strip(body.substr(equals + 1));
            return line;
        }
    }
    line.key.clear();
    line.type = kLineOther;
    return line;
}

int32_t INITFILE::read(SECT **sections, const char *name) {
    CRITSECT_HOLD hold(fLock);
    _begin(name);
    int32_t result = _load();
    if (result == DISKFILE::kNotFound)
        return result;
    if (result == DISKFILE::kSuccess) {
        for (SECT **section = sections; *section != nullptr; ++section) {
            for (const ITEM *item = (*section)->items; item->key != nullptr; ++item) {
                for (unsigned long i = 0; i < item->instances; ++i) {
                    LINE *sectionLine = nullptr;
                    LINE *line = _find(**section, _key(*item, i), &sectionLine);
                    void *variable = _instance(*item, i);
                    if (line == nullptr || line->value.empty()) {
                        if (i < item->required) {
                            if (line == nullptr)
                                _problem(kErrorMissing, DISKFILE::kContentsInvalid, *section, item,
                                         i);
                            else
                                _problem(kErrorEmpty, DISKFILE::kContentsInvalid, *section, item, i,
                                         line->number);
                            if (result == DISKFILE::kSuccess)
                                result = DISKFILE::kContentsInvalid;
                        } else if (!item->keep && item->instances > 1 && variable != nullptr) {
                            std::memset(variable, 0, item->size);
                        }
                        continue;
                    }
                    if (variable == nullptr)
                        continue;
                    FIELD::RESULT converted = FIELD::convert(
                        item->type, variable, FIELD::String, line->value.c_str(), item->size,
                        line->value.size() + 1, item->names, item->min, item->max, item->validator);
                    if (converted >= FIELD::BelowMin) {
                        _problem(kErrorInvalid, DISKFILE::kContentsInvalid, *section, item, i,
                                 line->number);
                        if (result == DISKFILE::kSuccess)
                            result = DISKFILE::kContentsInvalid;
                    }
                }
            }
        }
    }
    _alert();
    fLines.clear();
    return result;
}

int32_t INITFILE::write(SECT **sections, const char *name) {
    CRITSECT_HOLD hold(fLock);
    _begin(name);
    // Deliberately only a merge: a missing file stays missing; writeDefault creates files.
    int32_t result = _load();
    if (result == DISKFILE::kSuccess) {
        _writeBack(sections);
        std::string text;
        for (const LINE &line : fLines) {
            if (line.changed)
                text += _commented(line.key + " = " + line.value,
                                   line.hasComment ? line.comment : std::string());
            else
                text += line.raw;
            text += '\n';
        }
        result = _save(text, false);
    }
    if (result != DISKFILE::kNotFound)
        _alert();
    fLines.clear();
    return result;
}

int32_t INITFILE::writeDefault(SECT **sections, const char *name) {
    CRITSECT_HOLD hold(fLock);
    _begin(name);
    int32_t result = _save(_defaultText(sections), true);
    _alert();
    return result;
}

const FILETYPE *INITFILE::fileType() {
    return &kFileType;
}

bool INITFILE::mimeInstall() {
    return BEMIME::install(&kFileType);
}

bool INITFILE::mimeUninstall() {
    return BEMIME::uninstall(&kFileType);
}

void INITFILE::_begin(const char *name) {
    fLines.clear();
    fProblems.clear();
    fPath = name != nullptr && name[0] != '\0' ? std::string(name) : defaultPath();
    if (fPath.size() > kPathMax)
        fPath.resize(kPathMax);
}

int32_t INITFILE::_load() {
    TEXTFILE file;
    DISKFILE::ERROR error = file.open(fPath.c_str(), DISKFILE::kRead);
    // A missing file is no problem to report: the caller decides what it means.
    if (error == DISKFILE::kNotFound)
        return error;
    if (error != DISKFILE::kSuccess) {
        _problem(kErrorRead, error);
        return error;
    }
    char buffer[kLineMax + 1];
    for (unsigned long number = 1;; ++number) {
        size_t length = 0;
        error = file.lineRead(buffer, sizeof buffer, &length);
        if (error == DISKFILE::kEndOfFile)
            return DISKFILE::kSuccess;
        if (error != DISKFILE::kSuccess) {
            _problem(kErrorRead, error);
            fLines.clear();
            return error;
        }
        fLines.push_back(lineRead(std::string(buffer, length), number));
    }
}

void INITFILE::_problem(ERRORKIND kind, DISKFILE::ERROR code, const SECT *section, const ITEM *item,
                        unsigned long instance, unsigned long line) {
    if (fProblems.size() < kErrorMax)
        fProblems.push_back(PROBLEM{kind, code, section, item, instance, line});
}

std::string INITFILE::_problemText(const PROBLEM &problem) const {
    std::string item;
    if (problem.section != nullptr && problem.item != nullptr)
        item = textFormat("[%s] item '%s'", problem.section->name,
                          _key(*problem.item, problem.instance).c_str());
    switch (problem.kind) {
    case kErrorRename:
        return textFormat("Couldn't rename file: %s", DISKFILE::errorStr(problem.code));
    case kErrorErase:
        return textFormat("Couldn't erase file: %s", DISKFILE::errorStr(problem.code));
    case kErrorOpen:
        return textFormat("Couldn't open file: %s", DISKFILE::errorStr(problem.code));
    case kErrorMissing:
        return textFormat("%s is required and was not found", item.c_str());
    case kErrorInvalid:
        return textFormat("Line %lu: %s is set to an invalid value", problem.line, item.c_str());
    case kErrorEmpty:
        return textFormat("Line %lu: %s is required but has no value", problem.line, item.c_str());
    case kErrorRead:
    case kErrorWrite:
        break;
    }
    return DISKFILE::errorStr(problem.code);
}

void INITFILE::_alert() const {
    if (fProblems.empty())
        return;
    std::string text = textFormat("%s initialization file problem\n", appName);
    text += textFormat("Filename: %s\n", fPath.c_str());
    for (const PROBLEM &problem : fProblems)
        text += _problemText(problem) + "\n";
    if (text.size() > kAlertMax - 1)
        text.resize(kAlertMax - 1);
    ALERT::show(text);
}

INITFILE::LINE *INITFILE::_find(const SECT &section, const std::string &key, LINE **sectionLine) {
    *sectionLine = nullptr;
    LINE *open = nullptr;
    for (LINE &line : fLines) {
        if (line.type == kLineSection) {
            open = STR::iequal(line.key, section.name) ? &line : nullptr;
            if (open != nullptr && *sectionLine == nullptr)
                *sectionLine = open;
        } else if (open != nullptr && line.type == kLineItem && STR::iequal(line.key, key)) {
            open->used = true;
            line.used = true;
            *sectionLine = open;
            return &line;
        }
    }
    return nullptr;
}

void INITFILE::_writeBack(SECT **sections) {
    for (SECT **section = sections; *section != nullptr; ++section) {
        for (const ITEM *item = (*section)->items; item->key != nullptr; ++item) {
            for (unsigned long i = 0; i < item->writeCount && i < item->instances; ++i) {
                std::string key = _key(*item, i);
                std::string value = _valueText(*item, i);
                LINE *sectionLine = nullptr;
                LINE *line = _find(**section, key, &sectionLine);
                if (line == nullptr) {
                    if (sectionLine == nullptr) {
                        fLines.push_back(LINE{});
                        LINE added;
                        added.type = kLineSection;
                        added.key = (*section)->name;
                        added.raw =
                            _commented(textFormat("[%s]", (*section)->name),
                                       (*section)->description != nullptr ? (*section)->description
                                                                          : std::string());
                        added.used = true;
                        fLines.push_back(added);
                        sectionLine = &fLines.back();
                    }
                    // After the section's last item line, so added items keep table order.
                    size_t at = size_t(sectionLine - fLines.data()) + 1;
                    for (size_t j = at; j < fLines.size() && fLines[j].type != kLineSection; ++j)
                        if (fLines[j].type == kLineItem)
                            at = j + 1;
                    LINE added;
                    added.type = kLineItem;
                    added.key = key;
                    added.used = true;
                    added.changed = true;
                    std::string comment = item->description != nullptr ? item->description : "";
                    if (item->description != nullptr && item->instances > 1)
                        comment += textFormat(" %04lu", i + 1);
                    added.hasComment = item->description != nullptr;
                    added.comment = comment;
                    added.value = value;
                    fLines.insert(fLines.begin() + long(at), added);
                    continue;
                }
                if (line->value != value) {
                    line->value = value;
                    line->changed = true;
                }
            }
        }
    }
    // Deliberate: lines that match nothing, and unrecognised text, do not survive a write.
    std::vector<LINE> kept;
    for (LINE &line : fLines) {
        bool stale = (line.type == kLineSection || line.type == kLineItem) && !line.used;
        if (!stale && line.type != kLineOther)
            kept.push_back(std::move(line));
    }
    fLines = std::move(kept);
}

std::string INITFILE::_defaultText(SECT **sections) const {
    char now[TIMEBASE::kDateTextSize];
    TIMEBASE::timeGetStr(now, sizeof now);
    std::string text = textFormat("; %s initialization file\n", appName);
    text += textFormat("; Created %s\n", now);
    for (SECT **section = sections; *section != nullptr; ++section) {
        if (!(*section)->writeDefault)
            continue;
        text += '\n';
        text += _commented(textFormat("[%s]", (*section)->name),
                           (*section)->description != nullptr ? (*section)->description : "");
        text += '\n';
        const ITEM *items = (*section)->items;
        for (size_t first = 0; items[first].key != nullptr;) {
            size_t count = 1;
            if (items[first].group > 1)
                for (count = 1; count < items[first].group && items[first + count].key != nullptr;)
                    ++count;
            unsigned long rounds = 0;
            for (size_t j = first; j < first + count; ++j)
                rounds = std::max(rounds, std::min(items[j].defaultWrite, items[j].instances));
            for (unsigned long i = 0; i < rounds; ++i)
                for (size_t j = first; j < first + count; ++j)
                    if (i < items[j].defaultWrite && i < items[j].instances)
                        text += _itemLine(items[j], i) + '\n';
            first += count;
        }
    }
    return text;
}

std::string INITFILE::_key(const ITEM &item, unsigned long instance) {
    if (item.instances > 1)
        return textFormat("%s%04lu", item.key, instance + 1);
    return item.key;
}

void *INITFILE::_instance(const ITEM &item, unsigned long instance) {
    if (item.variable == nullptr)
        return nullptr;
    return static_cast<char *>(item.variable) + instance * item.stride;
}

std::string INITFILE::_valueText(const ITEM &item, unsigned long instance) {
    if (item.fixed != nullptr)
        return std::string(item.fixed).substr(0, kValueMax);
    const void *variable = _instance(item, instance);
    if (variable == nullptr)
        return std::string();
    char text[kValueMax + 1] = {};
    FIELD::convert(FIELD::String, text, item.type, variable, sizeof text, item.size, item.names,
                   item.min, item.max, nullptr);
    return text;
}

std::string INITFILE::_itemLine(const ITEM &item, unsigned long instance) {
    std::string line = _key(item, instance) + " = " + _valueText(item, instance);
    if (item.description == nullptr)
        return line;
    std::string comment = item.description;
    if (item.instances > 1)
        comment += textFormat(" %04lu", instance + 1);
    return _commented(line, comment);
}

// Deliberately no blank is added when the text already reaches the comment column: the
// comment then follows the value directly, as the file format has always done.
std::string INITFILE::_commented(const std::string &line, const std::string &comment) {
    if (comment.empty())
        return line;
    std::string out = line;
    if (out.size() < kCommentColumn)
        out.append(kCommentColumn - out.size(), ' ');
    return out + kCommentChar + comment;
}

DISKFILE::ERROR INITFILE::textReplace(const std::string &path, const std::string &text,
                                      uint32_t mode, const char *mimeType,
                                      const std::string *backup, ERRORKIND *step) {
    *step = kErrorOpen;
    std::string fresh = path + kNewSuffix;
    DISKFILE file;
    DISKFILE::ERROR error = file.create(fresh.c_str(), DISKFILE::kReadWrite);
    if (error != DISKFILE::kSuccess)
        return error;
    file.permSet(mode);
    *step = kErrorWrite;
    size_t count = 0;
    if (!text.empty())
        error = file.write(text.data(), text.size(), &count);
    if (error == DISKFILE::kSuccess)
        error = file.flush();
    if (error == DISKFILE::kSuccess && mimeType != nullptr) {
        // A volume without attributes keeps no file types; the name still says what it is.
        bool attributes = false;
        if (file.mimeSet(mimeType) != DISKFILE::kSuccess &&
            file.dirIsBFS(folderOf(path).c_str(), &attributes) == DISKFILE::kSuccess && attributes)
            error = DISKFILE::kWriteFailed;
    }
    file.close();
    if (error == DISKFILE::kSuccess && backup != nullptr) {
        DISKFILE::ENTRYTYPE type = DISKFILE::kEntryUnknown;
        if (file.typeGet(path.c_str(), &type) == DISKFILE::kSuccess) {
            *step = kErrorErase;
            error = file.erase(backup->c_str());
            if (error == DISKFILE::kNotFound)
                error = DISKFILE::kSuccess;
            if (error == DISKFILE::kSuccess) {
                *step = kErrorRename;
                error = file.rename(path.c_str(), backup->c_str());
            }
        }
    }
    if (error == DISKFILE::kSuccess) {
        // DISKFILE's rename never replaces a file; rename(2) replaces it in one step, so the
        // old text stays whole until the new one takes its place.
        *step = kErrorRename;
        if (std::rename(fresh.c_str(), path.c_str()) != 0)
            error = DISKFILE::errorGet(errno, DISKFILE::kRenameFailed);
    }
    if (error != DISKFILE::kSuccess)
        file.erase(fresh.c_str());
    return error;
}

int32_t INITFILE::_save(const std::string &text, bool backup) {
    uint32_t mode = kFileMode;
    if (!backup) {
        // A merge keeps the permissions the user gave the file.
        DISKFILE old;
        uint32_t bits = 0;
        if (old.open(fPath.c_str(), DISKFILE::kRead) == DISKFILE::kSuccess &&
            old.permGet(&bits) == DISKFILE::kSuccess)
            mode = bits & 0777;
    }
    std::string backupPath = backupName(fPath);
    ERRORKIND step = kErrorOpen;
    DISKFILE::ERROR error =
        textReplace(fPath, text, mode, kMimeType, backup ? &backupPath : nullptr, &step);
    if (error != DISKFILE::kSuccess)
        _problem(step, error);
    return error;
}
