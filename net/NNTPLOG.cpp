// The transfer log NNTP.log of a news session: levels, line forms and word wrapping.
#include "net/NNTP.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "app/SETTINGS.h"
#include "base/STR.h"
#include "base/TIMEBASE.h"
#include "storage/BARNINFO.h"

namespace {

// Appends count bytes of text to out (size bytes in all), cut silently; *used is the length.
void append(char *out, size_t size, size_t *used, const char *text, size_t count) {
    if (*used + 1 >= size) {
        return;
    }
    size_t room = size - 1 - *used;
    if (count > room) {
        count = room;
    }
    memcpy(out + *used, text, count);
    *used += count;
    out[*used] = 0;
}

void appendSpaces(char *out, size_t size, size_t *used, size_t count) {
    static const char kSpaces[] = "                                ";
    while (count > 0) {
        size_t take = count < sizeof kSpaces - 1 ? count : sizeof kSpaces - 1;
        append(out, size, used, kSpaces, take);
        count -= take;
    }
}

} // namespace

void NNTP::logOpen() {
    CRITSECT_HOLD hold(fLock);
    logClose();
    fLogLevel = BARNINFO::nntpLogSetting();
    if (fLogLevel == SETTINGS::kLogOff) {
        return;
    }
    char path[BARNINFO::kPathSize];
    BARNINFO::pathTransferLog(path, sizeof path);
    DISKFILE::ERROR error = fLog.open(path, DISKFILE::kWrite);
    if (error == DISKFILE::kSuccess) {
        error = fLog.position(DISKFILE::kFromEnd, 0);
    } else if (error == DISKFILE::kNotFound) {
        // Only a missing log is created: any other failure must not truncate what is there.
        error = fLog.create(path, DISKFILE::kWrite);
        if (error == DISKFILE::kSuccess) {
            fLog.permSet(kLogMode);
            fLog.mimeSet("text/plain");
        }
    }
    if (error != DISKFILE::kSuccess) {
        fLog.close();
        char text[kLogLineMax];
        snprintf(text, sizeof text, "Couldn't open NNTP log file.\nFilename: %s\nError: %s", path,
                 DISKFILE::errorStr(error));
        if (fError != nullptr) {
            char line[kLogLineMax];
            logFmtError(line, sizeof line, text);
            fError(line);
        }
    }
}

void NNTP::logClose() {
    CRITSECT_HOLD hold(fLock);
    if (fLog.open()) {
        fLog.close();
    }
}

void NNTP::logWrite(LOGTYPE type, const char *format, ...) {
    CRITSECT_HOLD hold(fLock);
    bool wanted = fLog.open() && (type < kLogReceived ? fLogLevel >= SETTINGS::kLogActions
                                                      : fLogLevel >= SETTINGS::kLogTransfers);
    if (!wanted && (type != kLogError || fError == nullptr)) {
        return;
    }
    char message[kLogLineMax];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof message, format, arguments);
    va_end(arguments);

    if (type == kLogError && fError != nullptr) {
        char line[kLogLineMax];
        logFmtError(line, sizeof line, message);
        fError(line);
    }
    if (!wanted) {
        return;
    }
    char entry[kLogLineMax];
    char stamp[TIMEBASE::kDateTextSize];
    switch (type) {
    case kLogSeparator:
        entry[0] = 0;
        break;
    case kLogError:
    case kLogStatus:
        TIMEBASE::timeGetStr(stamp, sizeof stamp);
        logFmtWrapped(entry, sizeof entry, stamp, message);
        break;
    case kLogDetail:
        logFmtWrapped(entry, sizeof entry, nullptr, message);
        break;
    default:
        logFmtTransfer(entry, sizeof entry, type, message);
        break;
    }
    DISKFILE::ERROR error = fLog.lineWrite(entry);
    if (error != DISKFILE::kSuccess) {
        logClose();
        if (fError != nullptr) {
            char text[kLogLineMax];
            snprintf(text, sizeof text, "Couldn't write to NNTP log: %s",
                     DISKFILE::errorStr(error));
            char line[kLogLineMax];
            logFmtError(line, sizeof line, text);
            fError(line);
        }
    }
}

void NNTP::logFmtTransfer(char *out, size_t size, LOGTYPE type, const char *line) {
    if (size == 0) {
        return;
    }
    char stamp[TIMEBASE::kDateTextSize];
    TIMEBASE::timeGetStr(stamp, sizeof stamp);
    out[0] = 0;
    size_t used = 0;
    append(out, size, &used, stamp, strlen(stamp));
    append(out, size, &used, type == kLogSent ? "  S: " : "  R: ", 5);
    append(out, size, &used, line, strlen(line));
}

void NNTP::logFmtError(char *out, size_t size, const char *text) {
    if (size == 0) {
        return;
    }
    char cut[kCallbackTextMax + 1];
    STR::copy(cut, text, sizeof cut);
    for (char *each = cut; *each != 0; ++each) {
        if (*each == '\n') {
            *each = ' ';
        }
    }
    char stamp[TIMEBASE::kDateTextSize];
    TIMEBASE::timeGetStr(stamp, sizeof stamp);
    out[0] = 0;
    size_t used = 0;
    append(out, size, &used, stamp, strlen(stamp));
    append(out, size, &used, "  ", 2);
    append(out, size, &used, cut, strlen(cut));
}

void NNTP::logFmtWrapped(char *out, size_t size, const char *stamp, const char *text) {
    if (size == 0) {
        return;
    }
    out[0] = 0;
    size_t used = 0;
    if (stamp != nullptr) {
        append(out, size, &used, stamp, strlen(stamp));
        append(out, size, &used, "  ", 2);
    } else {
        appendSpaces(out, size, &used, kLogIndent);
    }
    const size_t width = kLogWidth - kLogIndent;
    bool first = true;
    // Each line feed of the text starts a continuation line; within a paragraph the text
    // breaks at the last blank that fits, or mid-word when a word is wider than a line.
    for (const char *paragraph = text; paragraph != nullptr;) {
        const char *end = strchr(paragraph, '\n');
        size_t length = end != nullptr ? size_t(end - paragraph) : strlen(paragraph);
        const char *rest = paragraph;
        do {
            if (!first) {
                append(out, size, &used, "\n", 1);
                appendSpaces(out, size, &used, kLogIndent);
            }
            first = false;
            size_t take = length;
            size_t skip = 0;
            if (length > width) {
                take = width;
                for (size_t at = width; at > 0; --at) {
                    if (rest[at] == ' ') {
                        take = at;
                        break;
                    }
                }
                while (take + skip < length && rest[take + skip] == ' ') {
                    ++skip;
                }
            }
            append(out, size, &used, rest, take);
            rest += take + skip;
            length -= take + skip;
        } while (length > 0);
        paragraph = end != nullptr ? end + 1 : nullptr;
    }
}
