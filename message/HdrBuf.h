// The header block of one message (or MIME part): parsing, MIME facts, and building the
// header of a new article for posting.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/STR.h"
#include "message/IMsg.h"

class TEXTFILE;

class HdrBuf {
public:
    // Content type of a header block; the numbers are stored in message-file attributes.
    enum Content : int32_t {
        ContentNone = 0, // unknown type
        ContentOctetStream = 1,
        ContentPartial = 2,
        ContentAlternative = 3,
        ContentMixed = 4,
        ContentRelated = 5,
        ContentMultipart = 6, // any other "multipart/"
        ContentHTML = 7,
        ContentPlain = 8,
    };

    enum Encoding : int32_t {
        EncodingNone = 0,
        EncodingBase64 = 1,
        Encoding7bit = 2,
        Encoding8bit = 3,
        EncodingQuoted = 4,
    };

    enum Disposition : int32_t {
        DispositionNone = 0,
        DispositionAttachment = 1,
    };

    // The string slots of a header record.
    enum ValueStr : int32_t {
        StrAuthor = 0, // derived from From
        StrContentDescription = 1,
        StrContentTransferEncoding = 2,
        StrContentType = 3,
        StrDate = 4,
        StrEmail = 5,    // derived from From
        StrFilename = 6, // from the "filename" or "name" parameter
        StrFrom = 7,
        StrLines = 8,
        StrMessageID = 9,
        StrMIMEVersion = 10,
        StrNewsgroups = 11,
        StrOrganization = 12,
        StrProgramURL = 13,
        StrReferences = 14,
        StrReserved = 15, // never read or written
        StrSubject = 16,
        StrTo = 17, // no field fills it
        StrUserAgent = 18,
        StrCount = 19,
    };

    // What scanning a header line recognised.
    enum HdrNum : int32_t {
        HdrNone = 0,
        HdrContentDescription = 1,
        HdrContentDisposition = 2,
        HdrContentTransferEncoding = 3,
        HdrContentType = 4,
        HdrDate = 5,
        HdrFrom = 6,
        HdrLines = 7,
        HdrMessageID = 8,
        HdrMIMEVersion = 9,
        HdrNewsgroups = 10,
        HdrOrganization = 11,
        HdrReferences = 12,
        HdrSubject = 13,
        HdrTo = 14,
        HdrUserAgent = 15,
        HdrProgramURL = 17,
    };

    // One header record.
    struct Data {
        IMsg::Charset charset = IMsg::CharsetNone;
        Content content = ContentPlain;
        int32_t date = 0; // seconds since 1970 UTC
        Disposition disposition = DispositionNone;
        Encoding encoding = EncodingNone;
        uint32_t lines = 0;
        uint32_t number = 0; // part number of a message/partial
        std::string strings[StrCount];

        void clear() { *this = Data(); }
    };

    // One candidate body part of a multipart message.
    struct Section {
        int64_t offset = 0; // of the part's header, just after its boundary line
        Content content = ContentNone;
        Encoding encoding = EncodingNone;
    };

    // One encoded word found in a header value.
    struct Encode {
        IMsg::Charset charset = IMsg::CharsetNone;
        char encoding = 0;     // 'Q' or 'B'
        std::string_view text; // the encoded text
        size_t wordLength = 0; // of the whole "=?...?=" word
    };

    // What the composer hands over for posting. Missing texts are empty.
    struct SendInfo {
        IMsg::MsgType type = IMsg::MsgTypeNews;
        IMsg::Charset charset = IMsg::CharsetISO1;
        uint32_t width = 0;      // body line width for wrapping
        int64_t postServer = -1; // storage node number of the server to post through
        std::string author;
        std::string email;
        std::string newsgroups;
        std::string organization;
        std::string programURL;
        std::string reserved; // never written
        std::string parentMessageID;
        std::string parentReferences;
        std::string subject;
        std::string userAgent;
    };

    using HANDLER = bool (HdrBuf::*)(std::string_view value);

    // One known header field; the row order is also the order fields are written in.
    struct HEADERINFO {
        const char *name;
        HdrNum num;
        HANDLER handler; // null when the value needs no further work
        int32_t slot;    // ValueStr, or -1 when the text is not kept
    };
    static const HEADERINFO headerInfo[];

    static const STR::INDEX indexContent[];
    static const STR::INDEX indexEncoding[];
    static const STR::INDEX indexDisposition[];

    static constexpr size_t kLineMax = 1000;       // a header line read from a file
    static constexpr size_t kFieldMax = 65536;     // an unfolded field; more is cut
    static constexpr size_t kBoundaryMax = 6;      // multipart boundaries kept
    static constexpr size_t kSubvalMax = 102;      // a parameter value
    static constexpr size_t kReferencesMax = 3071; // References text considered
    static constexpr size_t kReferenceTokenMax = 519;
    static constexpr size_t kRefCreateTokenMax = 500;
    static constexpr size_t kRefCreateCount = 20;  // IDs in a follow-up's References
    static constexpr size_t kWriteWidth = 998;     // header lines are folded at this width
    static constexpr size_t kCharsetNameMax = 127; // in an encoded word
    static constexpr size_t kWordTextMax = 200;    // encoded text of an encoded word
    static constexpr size_t kWordMin = 11;         // a whole encoded word
    static constexpr size_t kWordMax = 200;
    static constexpr size_t kWordBase64Max = 450;    // base64 input decoded per word
    static constexpr size_t kWordQuotedMax = 247;    // bytes a Q word decodes to
    static constexpr uint32_t kPartNumberDigits = 4; // "number" parameter of message/partial
    static constexpr uint32_t kLinesDigits = 8;

    HdrBuf() { Clear(); }

    // --- Reading ---
    // Back to an empty header: writing mode off, main record current, boundaries gone.
    void Clear();
    // Reads one header block up to its empty line (end of file ends it too), and for the
    // first part of a message/partial also the embedded header that follows. False on a
    // file error.
    bool Read(TEXTFILE *file);
    // Feeds one line of a header block; continuation lines join the line before.
    void Add(const char *line);
    void Add(std::string_view line);
    // Finishes a block: last field scanned, charset made valid, From split, encoded words
    // decoded.
    void End();
    static bool LineHeaderEnd(const char *line) { return line == nullptr || *line == '\0'; }

    // Texts of the main record; "<None>" when empty. The pointers live until the next
    // change of this header.
    const char *StringAuthor() const { return string(StrAuthor); }
    const char *StringEmail() const { return string(StrEmail); }
    const char *StringNewsgroups() const { return string(StrNewsgroups); }
    const char *StringReferences() const { return string(StrReferences); }
    const char *StringSubject() const { return string(StrSubject); }
    const char *StringTo() const { return string(StrTo); }
    // The Message-ID; an invalid one is first replaced by a generated fallback ID, so
    // every stored message has a valid one.
    const char *StringMessageID();
    const char *string(int32_t slot) const;
    // Main date if set, else the inner record's, else now (seconds).
    int64_t DateTime() const;
    uint32_t LinesGet() const { return fMain.lines; }
    void LinesSet(uint32_t lines) { fMain.lines = lines; }
    // Writing mode: the main charset made valid. Reading: the inner record's when valid
    // (the part being shown), else the main one made valid.
    IMsg::Charset CharsetGet() const;
    // Sets the main record's charset, e.g. before reading a file whose charset is known;
    // writingMode keeps Content-Type from changing it.
    void CharsetSet(IMsg::Charset charset, bool writingMode);
    // The inner record's encoding when valid, else the main one made valid.
    Encoding EncodingGet() const;

    const Data &main() const { return fMain; }
    const Data &inner() const { return fInner; }
    const Data &current() const { return fCurrentInner ? fInner : fMain; }
    uint32_t blocks() const { return fBlocks; }

    // --- Parts and attachments ---
    // A boundary line of a known boundary; isEnd for the closing "--boundary--".
    bool Boundary(std::string_view line, bool &isEnd) const;
    // Positions the file at the part to show and reads its header (see the .cpp);
    // isHTML asks for HTML when both forms exist and tells what was chosen.
    bool GotoSection(TEXTFILE *file, bool &isHTML);
    // Reads the message header and positions the file at the attachment data of the type.
    bool GotoAttachment(TEXTFILE *file, IMsg::AttachType type);
    // Whether the current record is an attachment, with its safe file name and MIME type.
    bool Attachment(std::string &fileName, std::string &mimeType,
                    IMsg::AttachType &attachType) const;
    // The desktop's MIME type for a file name ("" when unknown).
    static void FilenameToMIME(std::string_view fileName, std::string &mimeType);
    // The outer header of part 1 of a message/partial has been read, and only that.
    bool PartialStart() const;
    const std::vector<std::string> &boundaries() const { return fBoundaries; }

    // --- Field texts ---
    static const char *contentString(Content content);
    static Content contentValue(std::string_view text);
    static const char *encodingString(Encoding encoding);
    static Encoding encodingValue(std::string_view text);
    static bool encodingIsValid(Encoding encoding);
    static bool encodingIsViewable(Encoding encoding);
    static Encoding encodingMakeValid(Encoding encoding);
    static Disposition dispositionValue(std::string_view text);

    // --- Texts of values ---
    // "Name: value" split and trimmed; false for a line to ignore.
    static bool Split(std::string_view line, std::string &name, std::string &value);
    // Author and e-mail of a From value ("<None>" for a missing one); true when both found.
    static bool SplitFrom(std::string_view value, std::string &author, std::string &email);
    // The value of a parameter: a plain case-insensitive search for its name, then the
    // next '=' (deliberately not anchored to a ';').
    static bool subval(std::string_view text, std::string_view name, std::string &value);
    // Text up to the next ';', without one surrounding pair of delimiters.
    static bool subvalGet(std::string_view text, std::string &value);
    // Decodes encoded words into UTF-8; the rest of the text is taken in charset.
    static void HeaderDecode(std::string &out, std::string_view text, IMsg::Charset charset);
    // The normalised References text: valid IDs joined by single spaces.
    static std::string referencesNormalise(std::string_view text);

    // --- Writing ---
    // Writes the header block of a new article and its empty separator line.
    bool Write(TEXTFILE *file, const SendInfo *info, unsigned long lines);
    // "Name: value" of a field, the value encoded for the main record's charset.
    bool HeaderCreate(std::string &out, HdrNum num, std::string_view value) const;
    // Stores a main-record slot; with useEmptyMarker an empty text is stored as "<None>".
    void set(int32_t slot, std::string_view text, bool useEmptyMarker);
    // References of a follow-up: the root, the latest ancestors and the parent, at most
    // kRefCreateCount IDs and kWriteWidth characters.
    static void refCreate(std::string_view parentReferences, std::string_view parentMessageID,
                          std::string &out);
    // A header value as it is posted: unchanged when plain ASCII, else one Q encoded word.
    static void hdrEncode(std::string &out, std::string_view text, IMsg::Charset charset);

private:
    Data &_current() { return fCurrentInner ? fInner : fMain; }
    HdrNum scan(std::string_view line);
    void readBegin();
    bool readBlock(TEXTFILE *file);
    void boundaryAdd(std::string_view boundary);
    static bool hdrDecodeFind(std::string_view text, size_t at, Encode &word);
    bool sectionScan(TEXTFILE *file, std::vector<Section> &sections);
    static const Section *sectionSelect(const std::vector<Section> &sections, bool wantHTML);
    bool gotoMime(TEXTFILE *file);
    // Positions the file at the start of the first line from here on that starts accepts.
    bool gotoLine(TEXTFILE *file, bool (*starts)(std::string_view line));
    bool writeAll(TEXTFILE *file);

    bool procDate(std::string_view value);
    bool procLines(std::string_view value);
    bool procNewsgroups(std::string_view value);
    bool procReferences(std::string_view value);
    bool procContentTransferEncoding(std::string_view value);
    bool procContentType(std::string_view value);
    bool procContentDisposition(std::string_view value);

    bool fCurrentInner = false; // which record parsing fills
    Data fMain;
    Data fInner; // embedded header of a partial message, or the MIME part last read
    bool fWriting = false;
    uint32_t fBlocks = 0; // header blocks completed since Clear
    bool fBeginPending = true;
    std::vector<std::string> fBoundaries; // at most kBoundaryMax, nested ones included
    std::string fLine;                    // the field being unfolded
};
