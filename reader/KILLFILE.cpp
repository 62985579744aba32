// The killfile: entries, key rules and order, the file with its time forms, expiry.
#include "reader/KILLFILE.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "app/INITFILE.h"
#include "app/SETTINGS.h"
#include "base/BETIME.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/TIMEBASE.h"
#include "storage/AUTHORFILTER.h"
#include "storage/BARNINFO.h"

CRITSECT KILLFILE::sLock;
std::vector<KILLFILE::BOZO> *KILLFILE::sList = nullptr;

namespace {
constexpr size_t kFieldsMin = 4;
constexpr size_t kFieldsMax = 5; // a fifth field only when it is empty

bool edgeBlank(std::string_view text) {
    auto blank = [](char c) { return c == ' ' || c == '\t' || c == '\n'; };
    return !text.empty() && (blank(text.front()) || blank(text.back()));
}

// What stands for an empty text reads as empty.
std::string_view emptied(const char *text) {
    std::string_view view = text != nullptr ? text : "";
    return view == STR::kNone ? std::string_view() : view;
}

// A time in the plain text form (GMT). Times the form cannot hold (past its last valid
// year) are written "None" and so read back as never, deliberately.
std::string timeText(int64_t time) {
    if (time == KILLFILE::kNever)
        return KILLFILE::kNoneTime;
    BETIME broken{};
    char text[TIMEBASE::kDateTextSize];
    if (!TIMEBASE::convert(&broken, time, true) ||
        !TIMEBASE::convert(text, sizeof(text), &broken, false))
        return KILLFILE::kNoneTime;
    return text;
}
} // namespace

bool KILLFILE::nameFormat(char *key, size_t size, const char *name, const char *address) {
    if (size > 0)
        key[0] = '\0';
    std::string_view first = emptied(name);
    std::string_view second = emptied(address);
    if (first.empty() && second.empty())
        return false;
    for (std::string_view part : {first, second})
        if (part.find('\t') != std::string_view::npos || edgeBlank(part))
            return false;
    std::string whole;
    whole.append(first.empty() ? std::string_view(STR::kNone) : first);
    whole += '\t';
    whole.append(second.empty() ? std::string_view(STR::kNone) : second);
    if (whole.size() > kKeyMax || whole.size() >= size)
        return false;
    std::memcpy(key, whole.c_str(), whole.size() + 1);
    return true;
}

int KILLFILE::listCompare(const char *a, const char *b) {
    return STR::cmpList(a, b);
}

bool KILLFILE::timeField(const char *text, int64_t *time) {
    *time = 0;
    std::string_view field = text != nullptr ? text : "";
    if (field.empty())
        return true;
    if (STR::iequal(field, kNoneTime)) {
        *time = kNever;
        return true;
    }
    std::string_view digits = field.front() == '+' ? field.substr(1) : field;
    if (!digits.empty() && digits.size() <= size_t(kSecondsDigitsMax) &&
        std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        int64_t seconds = 0;
        for (char c : digits)
            seconds = seconds * 10 + (c - '0');
        if (seconds > INT32_MAX)
            return false;
        *time = seconds * TIMEBASE::kSecond;
        return true;
    }
    BETIME broken{};
    int64_t value = 0;
    std::string copy(field);
    if (!TIMEBASE::convert(&broken, copy.c_str()) || !TIMEBASE::convert(&value, &broken, true))
        return false;
    *time = value;
    return true;
}

int64_t KILLFILE::_expiry(int64_t from) {
    int64_t span = SETTINGS::killfile.removeTime;
    return span == 0 ? kNever : from + span;
}

bool KILLFILE::_listAdd(const char *line, int64_t now) {
    // The line loses its blanks and line end but not its TABs, which separate fields: an
    // empty last time field stays a field.
    std::string_view rest = line;
    while (!rest.empty() && STR::isBlank(rest.front()) && rest.front() != '\t')
        rest.remove_prefix(1);
    while (!rest.empty() && STR::isBlank(rest.back()) && rest.back() != '\t')
        rest.remove_suffix(1);
    std::string_view fields[kFieldsMax + 1];
    size_t count = 0;
    for (;;) {
        size_t tab = rest.find('\t');
        if (count == kFieldsMax + 1)
            return false;
        fields[count++] = STR::trim(rest.substr(0, tab));
        if (tab == std::string_view::npos)
            break;
        rest.remove_prefix(tab + 1);
    }
    if (count < kFieldsMin || count > kFieldsMax || (count == kFieldsMax && !fields[4].empty()))
        return false;
    for (size_t i = 0; i < count; ++i)
        if (fields[i].size() > kFieldMax)
            return false;
    BOZO entry{};
    std::string name(fields[0]), address(fields[1]), added(fields[2]), expires(fields[3]);
    if (!nameFormat(entry.key, sizeof(entry.key), name.c_str(), address.c_str()) ||
        !timeField(added.c_str(), &entry.added) || !timeField(expires.c_str(), &entry.expires))
        return false;
    if (entry.added <= 0)
        entry.added = now;
    if (entry.expires <= 0)
        entry.expires = _expiry(entry.added);
    // This is how old entries leave the killfile: at the first start after they expire.
    if (entry.expires <= now)
        return false;
    sList->push_back(entry);
    return true;
}

void KILLFILE::_sort() {
    std::stable_sort(sList->begin(), sList->end(),
                     [](const BOZO &a, const BOZO &b) { return listCompare(a.key, b.key) < 0; });
    // Of equal keys the one that sorts first stays.
    sList->erase(
        std::unique(sList->begin(), sList->end(),
                    [](const BOZO &a, const BOZO &b) { return std::strcmp(a.key, b.key) == 0; }),
        sList->end());
}

const KILLFILE::BOZO *KILLFILE::_find(const char *key) {
    auto at = std::lower_bound(
        sList->begin(), sList->end(), key,
        [](const BOZO &entry, const char *wanted) { return listCompare(entry.key, wanted) < 0; });
    return (at != sList->end() && std::strcmp(at->key, key) == 0) ? &*at : nullptr;
}

void KILLFILE::_read() {
    int64_t now = TIMEBASE::timeGet();
    char path[BARNINFO::kPathSize];
    BARNINFO::pathKillfile(path, sizeof(path));
    TEXTFILE file;
    if (file.open(path, DISKFILE::kRead) != DISKFILE::kSuccess)
        return; // no file is an empty killfile
    char line[kLineMax + 1];
    for (;;) {
        DISKFILE::ERROR error = file.lineRead(line, sizeof(line));
        if (error == DISKFILE::kLineTooLong) {
            // Deliberately taken cut to its first kLineMax characters; the read goes on.
            file.lineSkip();
            error = DISKFILE::kSuccess;
        }
        if (error != DISKFILE::kSuccess)
            break;
        _listAdd(line, now);
    }
    _sort();
}

bool KILLFILE::_write() {
    char path[BARNINFO::kPathSize];
    BARNINFO::pathKillfile(path, sizeof(path));
    DISKFILE file;
    if (sList->empty()) {
        DISKFILE::ERROR error = file.erase(path);
        return error == DISKFILE::kSuccess || error == DISKFILE::kNotFound;
    }
    std::string text;
    for (const BOZO &entry : *sList) {
        text += entry.key;
        text += '\t';
        text += timeText(entry.added);
        text += '\t';
        text += timeText(entry.expires);
        text += '\n';
    }
    INITFILE::ERRORKIND step = INITFILE::kErrorOpen;
    return INITFILE::textReplace(path, text, kFileMode, kMimeType, nullptr, &step) ==
           DISKFILE::kSuccess;
}

bool KILLFILE::Start() {
    CRITSECT_HOLD hold(sLock);
    if (sList != nullptr)
        return true;
    sList = new std::vector<BOZO>;
    sList->reserve(kListCapacity);
    _read();
    AUTHORFILTER::install(&KILLFILE::Find);
    return true;
}

void KILLFILE::Stop() {
    CRITSECT_HOLD hold(sLock);
    if (sList == nullptr)
        return;
    AUTHORFILTER::install(nullptr);
    _write();
    delete sList;
    sList = nullptr;
}

bool KILLFILE::Find(const char *name, const char *address) {
    char key[kKeyMax + 1];
    if (!nameFormat(key, sizeof(key), name, address))
        return false;
    CRITSECT_HOLD hold(sLock);
    return sList != nullptr && !sList->empty() && _find(key) != nullptr;
}

bool KILLFILE::Add(const char *name, const char *address) {
    char key[kKeyMax + 1];
    if (!nameFormat(key, sizeof(key), name, address))
        return false;
    CRITSECT_HOLD hold(sLock);
    if (sList == nullptr || _find(key) != nullptr)
        return false;
    BOZO entry{};
    std::memcpy(entry.key, key, sizeof(key));
    entry.added = TIMEBASE::timeGet();
    entry.expires = _expiry(entry.added);
    sList->push_back(entry);
    _sort();
    return true;
}

bool KILLFILE::ApplyToDownload() {
    return SETTINGS::killfile.applyToDownload;
}

std::vector<KILLFILE::BOZO> KILLFILE::entries() {
    CRITSECT_HOLD hold(sLock);
    return sList != nullptr ? *sList : std::vector<BOZO>();
}
