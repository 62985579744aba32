// Attachment decoding: the line decoders, the decode over a file list, slots and the decode thread.
#include "message/FILEDECODE.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <new>
#include <thread>
#include <zlib.h>

#include "base/ALERT.h"
#include "base/CRITSECT.h"
#include "base/LAUNCHER.h"
#include "base/STR.h"
#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "base/TIMEBASE.h"
#include "base/TextFormat.h"
#include "message/BINTEXT.h"
#include "message/HdrBuf.h"
#include "message/YENC.h"

extern char **environ;

namespace {

CRITSECT gSlotLock;
uint32_t gSlotsUsed = 0;
std::atomic<DecodeWindow::HOST *> gHost{nullptr};
// Requests whose threads have not taken them yet. What is left at exit is freed with it.
CRITSECT gPendingLock;
std::vector<std::unique_ptr<DecodeWindow::Data>> gPending;

enum class STEP { Data, Skip, End, Fail };

// A boundary, or anything like one: base64 and copied data end there.
bool boundaryLike(std::string_view line) {
    return line.size() >= FILEDECODE::kBoundaryMin && line.substr(0, 2) == "--";
}

// One line into output bytes; *count is what to write.
STEP decodeLine(IMsg::AttachType type, const char *line, size_t length, char *output,
                size_t *count) {
    *count = 0;
    const std::string_view text(line, length);
    switch (type) {
    case IMsg::AttachBase64:
        if (boundaryLike(text))
            return STEP::End;
        *count = BINTEXT::base64Decode(line, output, FILEDECODE::kOutMax, true);
        return STEP::Data;
    case IMsg::AttachMime:
        if (boundaryLike(text))
            return STEP::End;
        std::memcpy(output, line, length);
        output[length] = '\n';
        *count = length + 1;
        return STEP::Data;
    default:
        if (BINTEXT::uuLineStop(text))
            return STEP::End;
        // A line that cannot be data (a signature or a note around the parts of a split
        // posting) is skipped, where decoding every line would put garbage into the file.
        if (BINTEXT::uuLineStart(text, nullptr) || !FILEDECODE::uuLinePlausible(text))
            return STEP::Skip;
        *count = BINTEXT::uuDecode(line, output, FILEDECODE::kOutMax, true);
        // The decoder writes its last group whole; the file gets the declared bytes only.
        if (*count > BINTEXT::uuDecodeChar(line[0]))
            *count = BINTEXT::uuDecodeChar(line[0]);
        return STEP::Data;
    }
}

// A yEnc file as it is read: what its keyword lines said, and the checks of each part.
struct YENCFILE {
    YENC::HEADER header;
    uint64_t partBytes = 0;
    uint64_t bytes = 0;
    uint32_t partCrc = 0;
    uint32_t crc = 0;
    bool inPart = false;

    void data(const char *bytesIn, size_t count) {
        partCrc = uint32_t(crc32(partCrc, reinterpret_cast<const Bytef *>(bytesIn), uInt(count)));
        partBytes += count;
    }
    // The whole file's CRC grows by each part's, without reading its bytes again.
    void partDone() {
        crc = uint32_t(crc32_combine(crc, partCrc, z_off_t(partBytes)));
        bytes += partBytes;
    }
    // At "=yend": whether the part came whole. A part of a multi-part file is checked
    // against its "=ypart" range and its pcrc32; the last part (or a single-part file) also
    // against the whole file's size and its crc32 when the line gives one.
    bool partGood(bool last) const {
        const YENC::HEADER &h = header;
        if (h.hasPart && h.end >= h.begin && h.begin > 0 && partBytes != h.end - h.begin + 1)
            return false;
        if (h.partSize != 0 && partBytes != h.partSize)
            return false;
        if (h.hasPcrc32 && partCrc != h.pcrc32)
            return false;
        if (!last)
            return true;
        if (bytes != h.size)
            return false;
        return !h.hasCrc32 || crc == h.crc32;
    }
};

struct DECODER {
    const std::vector<std::string> &files;
    uint32_t startOffset;
    IMsg::AttachType type;
    FILEDECODE::PROGRESS progress;
    void *context;
    TEXTFILE *out;
    FILEDECODE::DecodeData data;
    FILEDECODE::FAILURE failure;
    YENCFILE yenc;
    std::unique_ptr<char[]> input;
    std::unique_ptr<char[]> output;

    // One line of a yEnc part: keyword lines checked, data decoded and written.
    STEP yencLine(std::string_view line, size_t index, char *output, size_t *count) {
        *count = 0;
        switch (YENC::kind(line)) {
        case YENC::kBegin: {
            yenc.header.hasPart = false;
            yenc.header.hasPcrc32 = yenc.header.hasCrc32 = false;
            yenc.header.partSize = 0;
            YENC::parse(line, &yenc.header);
            // The parts are decoded in list order; a part that names another number is not
            // the one the list promised.
            uint32_t expected = uint32_t(index + 1);
            if ((yenc.header.hasPart && yenc.header.part != expected) ||
                (!yenc.header.hasPart && index > 0)) {
                failure.missing = true;
                return STEP::Fail;
            }
            yenc.partBytes = 0;
            yenc.partCrc = 0;
            yenc.inPart = true;
            return STEP::Skip;
        }
        case YENC::kPart:
            YENC::parse(line, &yenc.header);
            return STEP::Skip;
        case YENC::kEnd: {
            YENC::parse(line, &yenc.header);
            yenc.inPart = false;
            yenc.partDone();
            if (!yenc.partGood(index + 1 == files.size())) {
                failure.damaged = uint32_t(index + 1);
                return STEP::Fail;
            }
            return STEP::End;
        }
        case YENC::kData:
            break;
        }
        if (!yenc.inPart)
            return STEP::Skip;
        // Articles are stored as the server sent them, dot-stuffing included: a data line
        // that begins with a dot arrives with a second one in front.
        if (line.size() >= 2 && line[0] == '.' && line[1] == '.')
            line.remove_prefix(1);
        *count = YENC::decode(line, output);
        return STEP::Data;
    }

    bool tell() { return progress == nullptr || progress(context, data); }

    // Positions a message file at the attachment's data.
    bool seek(TEXTFILE &in, bool first) {
        if (first && startOffset != 0) {
            int64_t at = -1;
            return in.position(DISKFILE::kFromStart, startOffset) == DISKFILE::kSuccess &&
                   in.position(&at) == DISKFILE::kSuccess && at == int64_t(startOffset);
        }
        HdrBuf header;
        return header.GotoAttachment(&in, type);
    }

    // A yEnc part is read in large blocks and cut into lines here: its data is most of a
    // binary posting's bytes, and reading it a line at a time would cost more than decoding.
    // Decoded bytes gather in a block of their own; their CRC is taken over the block, before
    // a keyword line is looked at and before the block is written.
    bool partYenc(TEXTFILE &in, size_t index) {
        // Input: a line cut by a block's end moves to the front before the next read. The
        // blocks serve every part of the decode.
        const size_t room = FILEDECODE::kYencBlock + FILEDECODE::kYencLineMax;
        if (input == nullptr)
            input.reset(new (std::nothrow) char[room]);
        if (output == nullptr)
            output.reset(new (std::nothrow) char[room]);
        if (input == nullptr || output == nullptr)
            return false;
        size_t held = 0;
        size_t filled = 0;
        auto settle = [&] {
            yenc.data(output.get(), filled);
            size_t written = 0;
            bool ok =
                filled == 0 || out->write(output.get(), filled, &written) == DISKFILE::kSuccess;
            filled = 0;
            return ok;
        };
        bool atEnd = false;
        while (!atEnd) {
            size_t got = 0;
            DISKFILE::ERROR error = in.read(input.get() + held, FILEDECODE::kYencBlock, &got);
            if (error != DISKFILE::kSuccess && error != DISKFILE::kEndOfFile)
                return false;
            held += got;
            atEnd = error == DISKFILE::kEndOfFile || got == 0;
            const std::string_view pending(input.get(), held);
            size_t start = 0;
            for (;;) {
                size_t end = pending.find('\n', start);
                // A last line without its line end is a line too.
                if (end == std::string_view::npos && (!atEnd || start == held))
                    break;
                if (end == std::string_view::npos)
                    end = held;
                std::string_view line = pending.substr(start, end - start);
                if (!line.empty() && line.back() == '\r')
                    line.remove_suffix(1);
                start = std::min(end + 1, held);
                if (line.size() > FILEDECODE::kYencLineMax) {
                    failure.damaged = uint32_t(index + 1); // no yEnc line is that long
                    return false;
                }
                data.lines++;
                if (data.lines % FILEDECODE::kProgressEvery == 0 && !tell())
                    return false;
                if (YENC::kind(line) != YENC::kData && !settle())
                    return false;
                size_t count = 0;
                STEP step = yencLine(line, index, output.get() + filled, &count);
                filled += count;
                if (step == STEP::Fail)
                    return false;
                if (step == STEP::End)
                    return true;
                if (filled >= FILEDECODE::kYencBlock && !settle())
                    return false;
            }
            if (held - start > FILEDECODE::kYencLineMax)
                break;
            memmove(input.get(), input.get() + start, held - start);
            held -= start;
        }
        // The part ended, or went on without a line end, before its "=yend" line: cut short.
        failure.damaged = uint32_t(index + 1);
        return false;
    }

    bool part(size_t index) {
        TEXTFILE in;
        if (in.open(files[index].c_str(), DISKFILE::kRead) != DISKFILE::kSuccess)
            return false;
        if (!seek(in, index == 0))
            return false;
        data.part = uint32_t(index + 1);
        if (!tell())
            return false;
        if (type == IMsg::AttachYenc)
            return partYenc(in, index);
        char line[TEXTFILE::kLineMax + 1];
        char output[FILEDECODE::kOutMax + 1];
        for (;;) {
            size_t length = 0;
            DISKFILE::ERROR error = in.lineRead(line, sizeof(line), &length);
            if (error == DISKFILE::kEndOfFile)
                return true;
            if (error != DISKFILE::kSuccess && error != DISKFILE::kLineTooLong)
                return false;
            data.lines++;
            if (data.lines % FILEDECODE::kProgressEvery == 0 && !tell())
                return false;
            size_t count = 0;
            STEP step = decodeLine(type, line, length, output, &count);
            if (step == STEP::End)
                return true;
            size_t written = 0;
            if (count > 0 && out->write(output, count, &written) != DISKFILE::kSuccess)
                return false;
        }
    }
};

void sleepUsecs(int64_t usecs) {
    std::this_thread::sleep_for(std::chrono::microseconds(usecs));
}

const char *leafOf(const std::string &path) {
    size_t slash = path.rfind('/');
    return path.c_str() + (slash == std::string::npos ? 0 : slash + 1);
}

// The output of a decode that has not finished: closed and erased when it goes out of scope,
// whether the decode failed, was cancelled, or its thread is unwinding from a forced end.
struct PARTIAL {
    TEXTFILE &file;
    const char *path;
    bool kept = false;
    ~PARTIAL() {
        if (kept)
            return;
        file.close();
        DISKFILE eraser;
        eraser.erase(path);
    }
};

} // namespace

bool FILEDECODE::uuLinePlausible(std::string_view line) {
    if (line.empty())
        return false;
    const uint8_t count = BINTEXT::uuDecodeChar(line[0]);
    if (count == BINTEXT::kInvalid)
        return false;
    for (char c : line.substr(1)) {
        if (BINTEXT::uuDecodeChar(c) == BINTEXT::kInvalid)
            return false;
    }
    return (line.size() - 1) * 3 >= size_t(count) * 4;
}

bool FILEDECODE::FileDecode(const std::vector<std::string> &files, uint32_t startOffset,
                            const char *outputPath, const char *mimeType,
                            IMsg::AttachType attachType, PROGRESS progress, void *context,
                            FAILURE *failure) {
    if (failure != nullptr)
        *failure = FAILURE{};
    if (attachType != IMsg::AttachBase64 && attachType != IMsg::AttachMime &&
        attachType != IMsg::AttachUuencode && attachType != IMsg::AttachYenc)
        return false;
    if (files.empty() || outputPath == nullptr)
        return false;
    // The file layer cuts longer paths, which could then name a file outside the folder.
    const std::string path(outputPath);
    if (path.size() > DISKFILE::kPathMax)
        return false;
    char leaf[DISKFILE::kPathMax + 1];
    STR::copy(leaf, leafOf(path), sizeof(leaf));
    if (!STR::filenameFixup(leaf, sizeof(leaf)) || std::strcmp(leaf, leafOf(path)) != 0)
        return false;
    // yEnc writes in blocks of its own; the other decoders through the small buffer of old.
    const size_t buffer = attachType == IMsg::AttachYenc ? kYencBlock : kBufferSize;
    TEXTFILE out(buffer);
    if (out.create(outputPath, DISKFILE::kReadWrite, buffer) != DISKFILE::kSuccess)
        return false;
    PARTIAL partial{out, outputPath};
    if (mimeType != nullptr && mimeType[0] != '\0')
        out.mimeSet(mimeType);
    DECODER decoder{files, startOffset, attachType, progress, context, &out, {}, {}, {}, {}, {}};
    decoder.data.parts = uint32_t(files.size());
    for (size_t index = 0; index < files.size(); index++) {
        if (!decoder.part(index)) {
            if (failure != nullptr)
                *failure = decoder.failure;
            return false;
        }
    }
    if (out.close() != DISKFILE::kSuccess)
        return false;
    partial.kept = true;
    decoder.data.done = true;
    decoder.tell();
    return true;
}

bool FILEDECODE::outputPath(const char *folder, const char *name, std::string &path) {
    path.clear();
    char leaf[DISKFILE::kPathMax + 1];
    STR::copy(leaf, name != nullptr ? name : "", sizeof(leaf));
    if (!STR::filenameFixup(leaf, sizeof(leaf)))
        return false;
    path = folder != nullptr ? folder : "";
    if (path.empty() || path.back() != '/')
        path += '/';
    path += leaf;
    if (path.size() > DISKFILE::kPathMax) {
        path.clear();
        return false;
    }
    return true;
}

bool FILEDECODE::slotTake() {
    CRITSECT_HOLD hold(gSlotLock);
    if (gSlotsUsed >= kSlots)
        return false;
    gSlotsUsed++;
    return true;
}

void FILEDECODE::slotFree() {
    CRITSECT_HOLD hold(gSlotLock);
    if (gSlotsUsed > 0)
        gSlotsUsed--;
}

uint32_t FILEDECODE::slotsUsed() {
    CRITSECT_HOLD hold(gSlotLock);
    return gSlotsUsed;
}

std::string FILEDECODE::formatFile(const DecodeData &data) {
    return textFormat("File: %lu of %lu", static_cast<unsigned long>(data.part),
                      static_cast<unsigned long>(data.parts));
}

std::string FILEDECODE::formatLines(const DecodeData &data) {
    return textFormat("Lines: %llu", static_cast<unsigned long long>(data.lines));
}

std::unique_ptr<DecodeWindow::VIEW> DecodeWindow::HOST::viewOpen(const std::string &) {
    return nullptr;
}

bool DecodeWindow::HOST::launch(const char *path, const char *) {
    return launchDefault(path);
}

void DecodeWindow::hostSet(HOST *host) {
    gHost = host;
}

namespace {

// Takes a request out of the pending list; null when it is no longer there.
std::unique_ptr<DecodeWindow::Data> pendingTake(const DecodeWindow::Data *data) {
    CRITSECT_HOLD hold(gPendingLock);
    for (auto it = gPending.begin(); it != gPending.end(); ++it) {
        if (it->get() == data) {
            std::unique_ptr<DecodeWindow::Data> taken = std::move(*it);
            gPending.erase(it);
            return taken;
        }
    }
    return nullptr;
}

} // namespace

bool DecodeWindow::Create(const void *row, const char *messagePath, uint32_t number,
                          const char *outputPath, const char *mimeType, uint32_t startOffset,
                          IMsg::AttachType attachType, bool whole1, bool whole2, bool launch) {
    std::unique_ptr<Data> data(new (std::nothrow) Data);
    if (data == nullptr)
        return false;
    data->number = number;
    data->attachType = attachType;
    data->outputPath = outputPath != nullptr ? outputPath : "";
    data->mimeType = mimeType != nullptr ? mimeType : "";
    data->whole1 = whole1;
    data->whole2 = whole2;
    data->row = row;
    data->messagePath = messagePath != nullptr ? messagePath : "";
    data->startOffset = startOffset;
    data->launch = launch;
    Data *request = data.get();
    {
        CRITSECT_HOLD hold(gPendingLock);
        gPending.push_back(std::move(data));
    }
    if (THREAD::spawn(daemon, kThreadName, request) == nullptr) {
        pendingTake(request);
        return false;
    }
    return true;
}

size_t DecodeWindow::stop() {
    CRITSECT_HOLD hold(gPendingLock);
    const size_t count = gPending.size();
    gPending.clear();
    return count;
}

namespace {

struct PROGRESSLINK {
    DecodeWindow::VIEW *view = nullptr;
    bool cancelled = false;
};

// Quitting the program cancels like the user does: quietly.
bool progressPass(void *context, const FILEDECODE::DecodeData &data) {
    auto *link = static_cast<PROGRESSLINK *>(context);
    if (!THREAD::running() || (link->view != nullptr && !link->view->update(data))) {
        link->cancelled = true;
        return false;
    }
    return true;
}

// A taken decode slot, given back at the end of its scope, also when the thread unwinds
// from a forced end.
struct SLOTHOLD {
    SLOTHOLD() = default;
    SLOTHOLD(const SLOTHOLD &) = delete;
    SLOTHOLD &operator=(const SLOTHOLD &) = delete;
    ~SLOTHOLD() { FILEDECODE::slotFree(); }
};

// Waits for a free slot; false when the program stops or kSlotWait passes first.
bool slotWait() {
    const int64_t begun = TIMEBASE::tickCount();
    while (!FILEDECODE::slotTake()) {
        if (!THREAD::running() || TIMEBASE::tickCount() - begun >= DecodeWindow::kSlotWait)
            return false;
        sleepUsecs(DecodeWindow::kSlotPoll);
    }
    return true;
}

} // namespace

int32_t DecodeWindow::daemon(void *pointer) {
    std::unique_ptr<Data> data = pendingTake(static_cast<Data *>(pointer));
    if (data == nullptr)
        return 0;
    HOST *host = gHost.load();
    const bool whole = data->whole1 && data->whole2;
    std::vector<std::string> files;
    ERRORNUM error = ErrorNone;
    if (whole)
        files.push_back(data->messagePath);
    else if (host == nullptr || !host->attachList(data->row, files))
        error = ErrorMissing;
    if (error == ErrorNone) {
        if (!slotWait())
            return 0;
        SLOTHOLD slot;
        const std::string title = std::string(kTitle) + leafOf(data->outputPath);
        std::unique_ptr<VIEW> view = host != nullptr ? host->viewOpen(title) : nullptr;
        PROGRESSLINK link;
        link.view = view.get();
        FILEDECODE::FAILURE failure;
        if (FILEDECODE::FileDecode(files, data->startOffset, data->outputPath.c_str(),
                                   data->mimeType.c_str(), data->attachType, progressPass, &link,
                                   &failure)) {
            if (data->launch) {
                const bool launched =
                    host != nullptr ? host->launch(data->outputPath.c_str(), data->mimeType.c_str())
                                    : launchDefault(data->outputPath.c_str());
                if (launched)
                    sleepUsecs(kLaunchPause);
                else
                    error = ErrorLaunch;
            }
        } else if (!link.cancelled && THREAD::running()) {
            data->damagedPart = failure.damaged;
            error = failure.missing        ? ErrorMissing
                    : failure.damaged != 0 ? ErrorDamaged
                                           : ErrorDecode;
        }
    }
    if (error != ErrorNone)
        ALERT::show(errorText(error, *data));
    return 0;
}

bool DecodeWindow::launchDefault(const char *path) {
    return LAUNCHER::open(path != nullptr ? path : "") == 0;
}

std::string DecodeWindow::errorText(ERRORNUM error, const Data &data) {
    const char *name = leafOf(data.outputPath);
    switch (error) {
    case ErrorDecode:
        return textFormat("There was a problem decoding attachment '%s'.  The original "
                          "message%s may be corrupt or you might not have enough free disk "
                          "space.",
                          name, data.whole1 && data.whole2 ? "" : "s");
    case ErrorMissing:
        return textFormat("Couldn't find all messages for attachment '%s'.  Make sure all "
                          "message parts are in the same folder or newsgroup and that all have "
                          "had their message bodies downloaded.",
                          name);
    case ErrorLaunch:
        return textFormat("Couldn't launch attachment '%s'.  Check the FileTypes database to "
                          "see if its MIME type has a preferred application.\n\nMIME type: %s",
                          name, data.mimeType.c_str());
    case ErrorDamaged:
        return textFormat("Part %lu of attachment '%s' arrived damaged: its size or checksum "
                          "does not match what its sender wrote.  Download that message again, "
                          "or look for a repost.",
                          static_cast<unsigned long>(data.damagedPart), name);
    default:
        return std::string();
    }
}
