// The Message-ID index: which message files carry which Message-ID, kept in SQLite.
#include "storage/MSGIDINDEX.h"

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <mutex>
#include <sqlite3.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "base/DISKFILE.h"
#include "base/DISKFILEXATTR.h"

namespace {

// Directories below the root deeper than this are not scanned (a bind-mount loop).
constexpr int kScanDepthMax = 64;

// Changes are gathered into one transaction, committed after this many rows or this long
// after its first change, whichever comes first: a download files thousands of messages a
// second, and a commit of its own for each one would cost more than writing the file.
constexpr int kBatchRows = 512;
constexpr auto kBatchAge = std::chrono::milliseconds(100);

using CLOCK = std::chrono::steady_clock;

const char *const kSchema = "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value BLOB);"
                            "CREATE TABLE IF NOT EXISTS msgid(path BLOB PRIMARY KEY, "
                            "device INTEGER NOT NULL, msgid BLOB NOT NULL);"
                            "CREATE INDEX IF NOT EXISTS msgid_by_id ON msgid(msgid, device);";

struct STATE {
    std::mutex lock;
    sqlite3 *db = nullptr;
    std::string opened; // location of the open database
    // A descriptor of the open index file: once its link count drops to 0 the file was
    // deleted or replaced behind our back. Cheaper than looking the path up before each use.
    int watch = -1;
    std::string root;
    sqlite3_stmt *insert = nullptr;
    sqlite3_stmt *erase = nullptr;
    sqlite3_stmt *select = nullptr;
    sqlite3_stmt *move = nullptr;
    // The open batch of changes; the flusher commits one that has waited kBatchAge.
    bool batchOpen = false;
    int batchRows = 0;
    CLOCK::time_point batchSince;
    std::condition_variable batchStarted;
    pid_t flusherProcess = 0; // a forked child has no flusher of its own until it starts one
};

// Deliberately never destroyed: workers may still use the index while the process exits.
STATE &state() {
    static STATE *gState = new STATE;
    return *gState;
}

// The one spelling a row is kept under: absolute, without empty or "." parts. Otherwise a
// file written as "a//b" and renamed as "a/b" would keep a row under a name that is gone.
// ".." is left alone: with links in the path, dropping it would name another directory.
std::string absolute(const char *path) {
    std::string given = path != nullptr ? path : "";
    if (!given.empty() && given[0] != '/') {
        char cwd[4096];
        if (getcwd(cwd, sizeof(cwd)) != nullptr)
            given = std::string(cwd) + "/" + given;
    }
    std::string result;
    result.reserve(given.size());
    for (size_t at = 0; at < given.size();) {
        size_t end = given.find('/', at);
        if (end == std::string::npos)
            end = given.size();
        std::string_view part(given.data() + at, end - at);
        if (!part.empty() && part != ".") {
            result.push_back('/');
            result.append(part);
        }
        at = end + 1;
    }
    if (result.empty() && !given.empty() && given[0] == '/')
        result.push_back('/');
    return result;
}

void bindBlob(sqlite3_stmt *statement, int index, std::string_view bytes) {
    sqlite3_bind_blob(statement, index, bytes.data(), int(bytes.size()), SQLITE_TRANSIENT);
}

std::string columnBlob(sqlite3_stmt *statement, int column) {
    const void *bytes = sqlite3_column_blob(statement, column);
    int size = sqlite3_column_bytes(statement, column);
    return bytes != nullptr ? std::string(static_cast<const char *>(bytes), size_t(size))
                            : std::string();
}

bool exec(STATE &s, const char *sql) {
    return sqlite3_exec(s.db, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool commitLocked(STATE &s) {
    if (!s.batchOpen)
        return true;
    s.batchOpen = false;
    if (exec(s, "COMMIT"))
        return true;
    exec(s, "ROLLBACK");
    return false;
}

// Marks whether the index was closed properly: rows of the last batch die with a crash, so
// an index left marked open is built again from the files when next opened.
bool cleanMark(STATE &s, bool clean) {
    return exec(s, clean ? "INSERT OR REPLACE INTO meta(key, value) VALUES('clean', 1)"
                         : "INSERT OR REPLACE INTO meta(key, value) VALUES('clean', 0)");
}

void closeLocked(STATE &s) {
    if (s.db != nullptr && commitLocked(s))
        cleanMark(s, true);
    s.batchOpen = false;
    if (s.watch >= 0)
        ::close(s.watch);
    s.watch = -1;
    sqlite3_finalize(s.insert);
    sqlite3_finalize(s.erase);
    sqlite3_finalize(s.select);
    sqlite3_finalize(s.move);
    s.insert = s.erase = s.select = s.move = nullptr;
    if (s.db != nullptr)
        sqlite3_close(s.db);
    s.db = nullptr;
    s.opened.clear();
}

void unlinkFiles(const std::string &where) {
    for (const char *suffix : {"", "-wal", "-shm", "-journal"})
        unlink((where + suffix).c_str());
}

// Any failure that says the file is not a usable database: the index is thrown away and
// built again, since it only mirrors attributes the files themselves hold.
bool broken(int code) {
    code &= 0xff;
    return code == SQLITE_CORRUPT || code == SQLITE_NOTADB || code == SQLITE_CANTOPEN ||
           code == SQLITE_IOERR || code == SQLITE_READONLY || code == SQLITE_ERROR;
}

// The Message-ID a regular file at path carries; false when it carries none.
bool msgidRead(const std::string &path, std::string *raw, std::string_view *msgid) {
    uint32_t type = 0;
    std::string_view value;
    if (DISKFILEXATTR::get(-1, path.c_str(), DISKFILEXATTR::fullName(MSGIDINDEX::kAttribute),
                           raw) != 0 ||
        !DISKFILEXATTR::decode(*raw, &type, &value))
        return false;
    *msgid = DISKFILEXATTR::text(value);
    return true;
}

int insertLocked(STATE &s, const std::string &path, int64_t device, std::string_view msgid) {
    sqlite3_reset(s.insert);
    bindBlob(s.insert, 1, path);
    sqlite3_bind_int64(s.insert, 2, device);
    bindBlob(s.insert, 3, msgid);
    return sqlite3_step(s.insert);
}

void scanDirectory(STATE &s, const std::string &path, int depth) {
    if (depth > kScanDepthMax)
        return;
    DIR *dir = opendir(path.c_str());
    if (dir == nullptr)
        return;
    struct stat info {};
    fstat(dirfd(dir), &info);
    std::string raw;
    std::string_view msgid;
    while (dirent *entry = readdir(dir)) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0)
            continue;
        std::string child = path + "/" + entry->d_name;
        // The file layer cannot name it: a hit would be handed out cut, naming another entry.
        if (child.size() > DISKFILE::kPathMax)
            continue;
        unsigned char kind = entry->d_type;
        if (kind == DT_UNKNOWN) {
            struct stat childInfo {};
            if (lstat(child.c_str(), &childInfo) != 0)
                continue;
            kind = S_ISDIR(childInfo.st_mode) ? DT_DIR : S_ISREG(childInfo.st_mode) ? DT_REG : 0;
        }
        if (kind == DT_DIR) {
            scanDirectory(s, child, depth + 1);
            continue;
        }
        // Inside the rebuild's transaction a failed insert is left to the commit to report.
        if (kind == DT_REG && msgidRead(child, &raw, &msgid))
            insertLocked(s, child, int64_t(info.st_dev), msgid);
    }
    closedir(dir);
}

bool rebuildLocked(STATE &s) {
    commitLocked(s);
    if (!exec(s, "BEGIN IMMEDIATE"))
        return false;
    exec(s, "DELETE FROM msgid");
    if (!s.root.empty())
        scanDirectory(s, s.root, 0);
    sqlite3_stmt *statement = nullptr;
    sqlite3_prepare_v2(s.db, "INSERT OR REPLACE INTO meta(key, value) VALUES('root', ?1)", -1,
                       &statement, nullptr);
    bindBlob(statement, 1, s.root);
    int code = sqlite3_step(statement);
    sqlite3_finalize(statement);
    if (code != SQLITE_DONE || !exec(s, "COMMIT")) {
        exec(s, "ROLLBACK");
        return false;
    }
    return true;
}

std::string locationGet() {
    return DISKFILE::dataHome() + "/" + MSGIDINDEX::kFolder + "/" + MSGIDINDEX::kFileName;
}

void makeParents(const std::string &file) {
    for (size_t at = 1; (at = file.find('/', at)) != std::string::npos; ++at)
        mkdir(file.substr(0, at).c_str(), 0700);
}

// One attempt at opening; false with *code set when the file is not a usable index.
bool openOnce(STATE &s, const std::string &where, int *code) {
    bool existed = access(where.c_str(), F_OK) == 0;
    *code =
        sqlite3_open_v2(where.c_str(), &s.db,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (*code != SQLITE_OK)
        return false;
    sqlite3_busy_timeout(s.db, 5000);
    // Losing the last commits in a power cut is harmless: the index is rebuilt from the files.
    *code = sqlite3_exec(s.db, "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;", nullptr,
                         nullptr, nullptr);
    if (*code == SQLITE_OK)
        *code = sqlite3_exec(s.db, kSchema, nullptr, nullptr, nullptr);
    if (*code != SQLITE_OK)
        return false;
    const char *statements[] = {
        "INSERT OR REPLACE INTO msgid(path, device, msgid) VALUES(?1, ?2, ?3)",
        "DELETE FROM msgid WHERE path = ?1",
        "SELECT path FROM msgid WHERE msgid = ?1 AND device = ?2",
        "UPDATE OR REPLACE msgid SET path = ?2 WHERE path = ?1",
    };
    sqlite3_stmt **targets[] = {&s.insert, &s.erase, &s.select, &s.move};
    for (size_t i = 0; i < 4; ++i) {
        *code = sqlite3_prepare_v2(s.db, statements[i], -1, targets[i], nullptr);
        if (*code != SQLITE_OK)
            return false;
    }
    // The root the rows were built for; a missing row means a build never finished.
    sqlite3_stmt *statement = nullptr;
    *code = sqlite3_prepare_v2(s.db, "SELECT value FROM meta WHERE key = 'root'", -1, &statement,
                               nullptr);
    if (*code != SQLITE_OK)
        return false;
    int step = sqlite3_step(statement);
    bool built = step == SQLITE_ROW;
    std::string builtRoot = built ? columnBlob(statement, 0) : std::string();
    sqlite3_finalize(statement);
    if (step != SQLITE_ROW && step != SQLITE_DONE) {
        *code = step;
        return false;
    }
    *code = sqlite3_prepare_v2(s.db, "SELECT value FROM meta WHERE key = 'clean'", -1, &statement,
                               nullptr);
    if (*code != SQLITE_OK)
        return false;
    step = sqlite3_step(statement);
    bool crashed = step == SQLITE_ROW && sqlite3_column_int(statement, 0) == 0;
    sqlite3_finalize(statement);
    if (!existed || !built || crashed || (!s.root.empty() && builtRoot != s.root)) {
        if (!rebuildLocked(s)) {
            *code = sqlite3_errcode(s.db);
            return false;
        }
    } else if (s.root.empty()) {
        s.root = builtRoot;
    }
    if (!cleanMark(s, false)) {
        *code = sqlite3_errcode(s.db);
        return false;
    }
    s.watch = ::open(where.c_str(), O_RDONLY | O_CLOEXEC);
    if (s.watch < 0) {
        *code = SQLITE_CANTOPEN;
        return false;
    }
    s.opened = where;
    return true;
}

// Opens the index when needed. An index file deleted or replaced behind our back is noticed
// here, so the next use builds a new one instead of writing into an unlinked file.
bool ready(STATE &s) {
    std::string where = locationGet();
    if (s.db != nullptr) {
        struct stat info {};
        if (where == s.opened && fstat(s.watch, &info) == 0 && info.st_nlink > 0)
            return true;
        closeLocked(s);
    }
    makeParents(where);
    int code = SQLITE_OK;
    if (openOnce(s, where, &code))
        return true;
    closeLocked(s);
    if (!broken(code))
        return false;
    unlinkFiles(where);
    if (openOnce(s, where, &code))
        return true;
    closeLocked(s);
    return false;
}

// A statement that failed because the file went bad: drop it so the next use rebuilds.
void checkStep(STATE &s, int code) {
    if (code != SQLITE_DONE && code != SQLITE_ROW && broken(code) && !s.opened.empty()) {
        std::string where = s.opened;
        closeLocked(s);
        unlinkFiles(where);
    }
}

void flusher() {
    STATE &s = state();
    std::unique_lock hold(s.lock);
    for (;;) {
        s.batchStarted.wait(hold, [&s] { return s.batchOpen; });
        while (s.batchOpen && CLOCK::now() < s.batchSince + kBatchAge)
            s.batchStarted.wait_until(hold, s.batchSince + kBatchAge);
        if (s.batchOpen)
            commitLocked(s);
    }
}

// Opens a batch for the change about to be made; without one the change commits by itself.
void batchJoin(STATE &s) {
    if (s.batchOpen || s.db == nullptr || !exec(s, "BEGIN IMMEDIATE"))
        return;
    s.batchOpen = true;
    s.batchRows = 0;
    s.batchSince = CLOCK::now();
    if (s.flusherProcess != getpid()) {
        s.flusherProcess = getpid();
        std::thread(flusher).detach();
    }
    s.batchStarted.notify_one();
}

void batchCount(STATE &s, int rows) {
    s.batchRows += rows;
    if (s.batchOpen && s.batchRows >= kBatchRows)
        commitLocked(s);
}

void eraseLocked(STATE &s, const std::string &path) {
    sqlite3_reset(s.erase);
    bindBlob(s.erase, 1, path);
    checkStep(s, sqlite3_step(s.erase));
}

// Writes the row of path from what the file there carries now, or drops it. Read under the
// index's lock, so that of two writers the one that records last records the last value.
void syncLocked(STATE &s, const std::string &path) {
    struct stat info {};
    std::string raw;
    std::string_view msgid;
    if (lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && msgidRead(path, &raw, &msgid))
        checkStep(s, insertLocked(s, path, int64_t(info.st_dev), msgid));
    else
        eraseLocked(s, path);
}

// Paths of the rows below directory (path + "/" up to, not including, path + "0", since '0'
// follows '/' in byte order).
std::vector<std::string> below(STATE &s, const std::string &directory) {
    std::vector<std::string> paths;
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(s.db, "SELECT path FROM msgid WHERE path >= ?1 AND path < ?2", -1,
                           &statement, nullptr) != SQLITE_OK)
        return paths;
    bindBlob(statement, 1, directory + "/");
    bindBlob(statement, 2, directory + "0");
    while (sqlite3_step(statement) == SQLITE_ROW)
        paths.push_back(columnBlob(statement, 0));
    sqlite3_finalize(statement);
    return paths;
}

// Moves the row of from to to; the number of rows moved (0 or 1).
int renameLocked(STATE &s, const std::string &from, const std::string &to) {
    sqlite3_reset(s.move);
    bindBlob(s.move, 1, from);
    bindBlob(s.move, 2, to);
    int code = sqlite3_step(s.move);
    sqlite3_reset(s.move);
    checkStep(s, code);
    return code == SQLITE_DONE && s.db != nullptr ? sqlite3_changes(s.db) : 0;
}

} // namespace

namespace {

class HOOK : public FILEINDEX {
public:
    bool lookup(int64_t device, std::string_view value, std::vector<std::string> *paths) override {
        return MSGIDINDEX::lookup(device, value, paths);
    }
    void fileSync(const char *path) override { MSGIDINDEX::fileSync(path); }
    void fileRename(const char *from, const char *to) override { MSGIDINDEX::fileRename(from, to); }
    void fileRemove(const char *path) override { MSGIDINDEX::fileRemove(path); }
    void dirRename(const char *from, const char *to) override { MSGIDINDEX::dirRename(from, to); }
    void dirRemove(const char *path) override { MSGIDINDEX::dirRemove(path); }
};

} // namespace

FILEINDEX *MSGIDINDEX::hook() {
    static HOOK hook;
    return &hook;
}

void MSGIDINDEX::rootSet(const char *path) {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    std::string root = absolute(path);
    if (root == s.root)
        return;
    s.root = root;
    // Reopening compares the new root with the one the rows were built for.
    closeLocked(s);
}

std::string MSGIDINDEX::rootGet() {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    return s.root;
}

std::string MSGIDINDEX::location() {
    return locationGet();
}

bool MSGIDINDEX::lookup(int64_t device, std::string_view msgid, std::vector<std::string> *paths) {
    paths->clear();
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return false;
    sqlite3_reset(s.select);
    bindBlob(s.select, 1, msgid);
    sqlite3_bind_int64(s.select, 2, device);
    int code;
    while ((code = sqlite3_step(s.select)) == SQLITE_ROW)
        paths->push_back(columnBlob(s.select, 0));
    sqlite3_reset(s.select);
    checkStep(s, code);
    return code == SQLITE_DONE;
}

void MSGIDINDEX::fileSync(const char *path) {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return;
    batchJoin(s);
    syncLocked(s, absolute(path));
    batchCount(s, 1);
}

void MSGIDINDEX::fileRename(const char *from, const char *to) {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return;
    batchJoin(s);
    std::string target = absolute(to);
    // The file had no row under its old name: record what it carries.
    if (renameLocked(s, absolute(from), target) == 0 && s.db != nullptr)
        syncLocked(s, target);
    batchCount(s, 1);
}

void MSGIDINDEX::fileRemove(const char *path) {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return;
    batchJoin(s);
    eraseLocked(s, absolute(path));
    batchCount(s, 1);
}

void MSGIDINDEX::dirRename(const char *from, const char *to) {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return;
    std::string source = absolute(from);
    std::string target = absolute(to);
    std::vector<std::string> paths = below(s, source);
    if (paths.empty())
        return;
    batchJoin(s);
    for (const std::string &path : paths)
        renameLocked(s, path, target + path.substr(source.size()));
    batchCount(s, int(paths.size()));
}

void MSGIDINDEX::dirRemove(const char *path) {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return;
    std::string directory = absolute(path);
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(s.db, "DELETE FROM msgid WHERE path >= ?1 AND path < ?2", -1, &statement,
                           nullptr) != SQLITE_OK)
        return;
    batchJoin(s);
    bindBlob(statement, 1, directory + "/");
    bindBlob(statement, 2, directory + "0");
    int code = sqlite3_step(statement);
    sqlite3_finalize(statement);
    checkStep(s, code);
    batchCount(s, s.db != nullptr ? sqlite3_changes(s.db) : 0);
}

bool MSGIDINDEX::rebuild() {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return false;
    return rebuildLocked(s);
}

bool MSGIDINDEX::remove() {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    closeLocked(s);
    std::string where = locationGet();
    unlinkFiles(where);
    return access(where.c_str(), F_OK) != 0;
}

void MSGIDINDEX::close() {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    closeLocked(s);
}

int64_t MSGIDINDEX::count() {
    STATE &s = state();
    std::lock_guard hold(s.lock);
    if (!ready(s))
        return -1;
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v2(s.db, "SELECT count(*) FROM msgid", -1, &statement, nullptr) !=
        SQLITE_OK)
        return -1;
    int64_t rows = sqlite3_step(statement) == SQLITE_ROW ? sqlite3_column_int64(statement, 0) : -1;
    sqlite3_finalize(statement);
    return rows;
}
