// DISKFILE: queries by attribute, answered from the Message-ID index and checked on the files.
#include "base/DISKFILE.h"

#include <cstring>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

#include "base/DISKFILEXATTR.h"
#include "base/FILEINDEX.h"

namespace {

struct TERM {
    std::string name;
    std::string value;
};

// Reads a conjunction of equality terms: (a=="x")&&(b=="y"), with any nesting of brackets.
// Everything else (other operators, "||", negation) is refused.
class PREDICATE {
public:
    explicit PREDICATE(std::string_view text) : fText(text) {}

    bool parse(std::vector<TERM> *terms) {
        terms->clear();
        if (!_conjunction(terms))
            return false;
        _blanks();
        return fAt == fText.size() && !terms->empty();
    }

private:
    std::string_view fText;
    size_t fAt = 0;

    void _blanks() {
        while (fAt < fText.size() && (fText[fAt] == ' ' || fText[fAt] == '\t'))
            ++fAt;
    }
    bool _take(std::string_view token) {
        _blanks();
        if (fText.substr(fAt, token.size()) != token)
            return false;
        fAt += token.size();
        return true;
    }
    bool _conjunction(std::vector<TERM> *terms) {
        if (!_primary(terms))
            return false;
        while (_take("&&"))
            if (!_primary(terms))
                return false;
        return true;
    }
    bool _primary(std::vector<TERM> *terms) {
        if (_take("("))
            return _conjunction(terms) && _take(")");
        return _term(terms);
    }
    bool _term(std::vector<TERM> *terms) {
        _blanks();
        TERM term;
        while (fAt < fText.size() && strchr(" \t=!<>()&|\"", fText[fAt]) == nullptr)
            term.name += fText[fAt++];
        if (term.name.empty() || !_take("=="))
            return false;
        _blanks();
        if (fAt < fText.size() && fText[fAt] == '"') {
            for (++fAt;; ++fAt) {
                if (fAt >= fText.size())
                    return false;
                char c = fText[fAt];
                if (c == '"')
                    break;
                if (c == '\\' && fAt + 1 < fText.size())
                    c = fText[++fAt];
                term.value += c;
            }
            ++fAt;
        } else {
            while (fAt < fText.size() && strchr(" \t()&|", fText[fAt]) == nullptr)
                term.value += fText[fAt++];
        }
        terms->push_back(std::move(term));
        return true;
    }
};

// Whether the file still holds the value a term asks for. The MIME type is its own attribute;
// every other name is a typed attribute compared as text.
bool termHolds(const std::string &path, const TERM &term) {
    std::string raw;
    if (term.name == DISKFILE::kQueryTypeName) {
        if (DISKFILEXATTR::get(-1, path.c_str(), DISKFILE::kMimeAttr, &raw) != 0)
            return false;
        return DISKFILEXATTR::text(raw) == term.value;
    }
    if (DISKFILEXATTR::get(-1, path.c_str(), DISKFILEXATTR::fullName(term.name.c_str()), &raw) != 0)
        return false;
    uint32_t type = 0;
    std::string_view value;
    return DISKFILEXATTR::decode(raw, &type, &value) && DISKFILEXATTR::text(value) == term.value;
}

} // namespace

DISKFILE::ERROR DISKFILE::query(int64_t device, const char *predicate, ENTRYFUNC callback,
                                void *data) {
    CRITSECT_HOLD hold(*this);
    if (predicate == nullptr || callback == nullptr || device < 0)
        return kPathInvalid;
    std::vector<TERM> terms;
    if (!PREDICATE(predicate).parse(&terms))
        return kPathInvalid;
    const TERM *key = nullptr;
    for (const TERM &term : terms)
        if (FILEINDEX::indexed(term.name.c_str()))
            key = &term;
    if (key == nullptr)
        return kPathInvalid;
    FILEINDEX *index = FILEINDEX::installed();
    if (index == nullptr)
        return kSuccess; // no store is open: nothing is indexed, nothing found
    std::vector<std::string> paths;
    if (!index->lookup(device, key->value, &paths))
        return kPathInvalid;
    for (const std::string &path : paths) {
        // The index is a hint: a row whose file is gone or holds another Message-ID is
        // written again from the file; a file that fails another term is only passed over.
        struct stat info {};
        if (lstat(path.c_str(), &info) != 0 || !S_ISREG(info.st_mode) ||
            int64_t(info.st_dev) != device || !termHolds(path, *key)) {
            index->fileSync(path.c_str());
            continue;
        }
        bool holds = true;
        for (const TERM &term : terms)
            holds = holds && (&term == key || termHolds(path, term));
        if (!holds)
            continue;
        ENTRY entry;
        if (pathToRef(&entry, path.c_str()) != kSuccess)
            continue;
        if (!callback(data, entry))
            return kIterationAborted;
    }
    return kSuccess;
}
