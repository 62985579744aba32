// Fuzz target: a message file read as the program reads one, with the search for the part
// to show and for each kind of attachment.
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

#include "base/TEXTFILE.h"
#include "message/HdrBuf.h"

namespace {

const std::string &scratch() {
    static const std::string path = [] {
        char name[] = "/tmp/vw-fuzz-hdrbuf-XXXXXX";
        int fd = mkstemp(name);
        if (fd >= 0)
            close(fd);
        return std::string(name);
    }();
    return path;
}

bool openInput(TEXTFILE &file) {
    return file.open(scratch().c_str(), DISKFILE::kRead) == DISKFILE::kSuccess;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *out = std::fopen(scratch().c_str(), "wb");
    if (out == nullptr)
        return 0;
    std::fwrite(data, 1, size, out);
    std::fclose(out);

    for (bool wantHTML : {false, true}) {
        TEXTFILE file;
        if (!openInput(file))
            return 0;
        HdrBuf header;
        if (!header.Read(&file))
            continue;
        header.StringAuthor();
        header.StringMessageID();
        header.DateTime();
        header.CharsetGet();
        header.EncodingGet();
        bool isHTML = wantHTML;
        header.GotoSection(&file, isHTML);
    }
    for (IMsg::AttachType type : {IMsg::AttachBase64, IMsg::AttachMime, IMsg::AttachUuencode}) {
        TEXTFILE file;
        if (!openInput(file))
            return 0;
        HdrBuf header;
        if (!header.GotoAttachment(&file, type))
            continue;
        std::string name, mimeType;
        IMsg::AttachType found = IMsg::AttachNone;
        header.Attachment(name, mimeType, found);
        if (!name.empty() && (name.find('/') != std::string::npos || name == "." || name == ".."))
            __builtin_trap(); // an attachment name must never leave the save folder
    }
    return 0;
}
