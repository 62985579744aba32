// Attachment decoding: the decoder over a list of message files, the decode slots and the thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "message/IMsg.h"

// Turns an attachment carried in one or several message files into a file of its own.
class FILEDECODE {
public:
    // At most this many decodes run at once.
    static constexpr uint32_t kSlots = 4;
    // The output file's write buffer.
    static constexpr size_t kBufferSize = 2048;
    // One line of a message is read up to TEXTFILE's 1000 characters and decodes to at most
    // this many bytes.
    static constexpr size_t kOutMax = 2000;
    // The progress callback hears of every this many lines.
    static constexpr uint64_t kProgressEvery = 40;
    // yEnc parts are read and written in blocks of this size; a longer line means a damaged
    // part (yEnc lines are short by design).
    static constexpr size_t kYencBlock = 1 << 20;
    static constexpr size_t kYencLineMax = 65536;
    // A line starting with "--" that is at least this long ends base64 and copied data.
    static constexpr size_t kBoundaryMin = 4;

    // Progress of one decode.
    struct DecodeData {
        uint32_t part = 0;  // the file being decoded, from 1
        uint32_t parts = 0; // files in the list
        uint64_t lines = 0; // lines read so far
        bool done = false;
    };
    // Why a decode failed, when it can say more than that it did.
    struct FAILURE {
        uint32_t damaged = 0; // a yEnc part whose size or checksum is wrong, from 1
        bool missing = false; // a part is not where the list says (a yEnc part number)
    };
    // Told the progress before each part's first line, every kProgressEvery lines and once
    // more with done set; false cancels the decode.
    using PROGRESS = bool (*)(void *context, const DecodeData &data);

    // Decodes the attachment spread over files (in part order) into outputPath. A start
    // offset other than 0 is where the data begins in the first file; otherwise, and in
    // every later file, the attachment is searched. The output's leaf must be a safe name
    // (STR::filenameFixup leaves it unchanged) and the path no longer than the file layer
    // keeps, so nothing is written outside its folder. On failure or cancel (also when the
    // thread is ended by force) the partial output file is erased and the result is false.
    static bool FileDecode(const std::vector<std::string> &files, uint32_t startOffset,
                           const char *outputPath, const char *mimeType,
                           IMsg::AttachType attachType, PROGRESS progress, void *context,
                           FAILURE *failure = nullptr);

    // The output path for a name taken from a message: folder + "/" + the repaired name.
    // False (path emptied) when no usable name remains.
    static bool outputPath(const char *folder, const char *name, std::string &path);

    // Decode slots: take one (false when all are in use), give it back, count them.
    static bool slotTake();
    static void slotFree();
    static uint32_t slotsUsed();

    // Whether a line can belong to a uuencoded block: every character valid and at least as
    // many as the count it declares (a last line may carry padding beyond it, a zero count
    // line closes the data). Looser than BINTEXT::uuLineData, it still tells signatures and
    // notes between the parts of a split posting from data.
    static bool uuLinePlausible(std::string_view line);

    // The progress window's texts: "File: %lu of %lu" and "Lines: %llu".
    static std::string formatFile(const DecodeData &data);
    static std::string formatLines(const DecodeData &data);
};

// One decode on its own "FileDecode" thread: finding the files, waiting for a slot, the
// progress window, launching the result and the error alerts. The window and the header
// list belong to the interface, which supplies them through HOST.
class DecodeWindow {
public:
    static constexpr const char *kThreadName = "FileDecode";
    static constexpr const char *kTitle = "Decoding ";
    static constexpr int64_t kSlotPoll = 50'000;      // usecs between looks for a slot
    static constexpr int64_t kSlotWait = 300'000'000; // then the decode is given up
    static constexpr int64_t kLaunchPause = 333'333;  // the window stays after a launch

    enum ERRORNUM : int32_t {
        ErrorNone = 0,
        ErrorDecode = 1,
        ErrorMissing = 2,
        ErrorLaunch = 3,
        // Beyond the three of old: yEnc tells which part arrived damaged.
        ErrorDamaged = 4,
    };

    // One decode request; the thread owns it.
    struct Data {
        uint32_t number = 0; // the caller's own number, carried along
        IMsg::AttachType attachType = IMsg::AttachNone;
        std::string outputPath;
        std::string mimeType;
        // Both set: the attachment lies wholly in the one message.
        bool whole1 = false;
        bool whole2 = false;
        const void *row = nullptr; // the header-list row chosen
        std::string messagePath;
        uint32_t startOffset = 0; // in the first file; 0 finds the attachment
        bool launch = false;      // open the file when done
        uint32_t damagedPart = 0; // set by a failed yEnc decode, for the error text
    };

    // The progress window of one decode, closed when deleted.
    class VIEW {
    public:
        virtual ~VIEW() = default;
        // Shows the progress (called on the decode thread); false when the user cancelled.
        virtual bool update(const FILEDECODE::DecodeData &data) = 0;
    };

    // What the decode thread needs from the interface. Called on the decode thread.
    class HOST {
    public:
        virtual ~HOST() = default;
        // The files of the multi-part attachment of a row, in part order; false when a part
        // is missing.
        virtual bool attachList(const void *row, std::vector<std::string> &files) = 0;
        // The progress window, titled title; none by default.
        virtual std::unique_ptr<VIEW> viewOpen(const std::string &title);
        // Opens the file with its preferred application; the desktop's handler by default.
        virtual bool launch(const char *path, const char *mimeType);
    };

    // Installs the interface (nullptr: no window, no multi-part lists, the desktop handler).
    // The caller keeps ownership and keeps it alive while decodes run.
    static void hostSet(HOST *host);

    // Builds the request and starts its thread; false when that cannot be done. Until its
    // thread runs, the request is kept here, so that one whose thread never runs (the
    // program quit first) is freed by stop() or at exit.
    static bool Create(const void *row, const char *messagePath, uint32_t number,
                       const char *outputPath, const char *mimeType, uint32_t startOffset,
                       IMsg::AttachType attachType, bool whole1, bool whole2, bool launch);
    // The thread's work: the whole decode, once; frees the request.
    static int32_t daemon(void *data);
    // After THREAD::stop: frees the requests whose threads never ran; returns their count.
    static size_t stop();

    // Starts the desktop's handler (no shell) for path and waits for its verdict.
    static bool launchDefault(const char *path);
    // The alert text of an error for a request (empty for ErrorNone).
    static std::string errorText(ERRORNUM error, const Data &data);
};
