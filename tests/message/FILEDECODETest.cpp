// Tests of attachment decoding against files made by independent encoders, of hostile names,
// and of the decode thread.
#include "message/FILEDECODE.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>
#include <tuple>

#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "message/VMSG.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"

namespace {

namespace fs = std::filesystem;
using decodetest::fileGet;
using decodetest::filePut;
using decodetest::sha256;

const std::string kFixtures = std::string(VW_TEST_DATA) + "/decode/";

std::string digest(const std::string &name) {
    std::istringstream in(fileGet(kFixtures + "SHA256SUMS"));
    std::string sum, file;
    while (in >> sum >> file) {
        if (file == name)
            return sum;
    }
    return "no digest for " + name;
}

std::string outFolder() {
    const std::string folder = testhome::path() + "/decoded-" +
                               ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::create_directories(folder);
    return folder;
}

std::vector<std::string> fixtures(std::initializer_list<const char *> names) {
    std::vector<std::string> files;
    for (const char *name : names)
        files.push_back(kFixtures + name);
    return files;
}

const std::vector<std::string> kUuParts =
    fixtures({"uu-part1.vmf", "uu-part2.vmf", "uu-part3.vmf"});

struct PROGRESSLOG {
    std::vector<FILEDECODE::DecodeData> calls;
    size_t cancelAt = SIZE_MAX;
};

bool progressLog(void *context, const FILEDECODE::DecodeData &data) {
    auto *log = static_cast<PROGRESSLOG *>(context);
    log->calls.push_back(data);
    return log->calls.size() < log->cancelAt;
}

// Each fixture, made by an independent encoder, decodes byte for byte; each part is announced,
// in order, before its lines, and the end once more with done set.
TEST(FILEDECODE, FixturesByteIdentical) {
    const std::tuple<std::vector<std::string>, IMsg::AttachType, const char *> cases[] = {
        {fixtures({"single-base64.vmf"}), IMsg::AttachBase64, "photo.jpg"},
        {kUuParts, IMsg::AttachUuencode, "pic.bin"},
        {fixtures({"partial-1.vmf", "partial-2.vmf", "partial-3.vmf"}), IMsg::AttachBase64,
         "data.bin"}};
    for (const auto &[files, type, original] : cases) {
        SCOPED_TRACE(original);
        const std::string out = outFolder() + "/" + original;
        PROGRESSLOG log;
        ASSERT_TRUE(FILEDECODE::FileDecode(files, 0, out.c_str(), "application/x-test", type,
                                           progressLog, &log));
        EXPECT_EQ(sha256(out), digest(original));
        TEXTFILE file;
        char mime[64];
        ASSERT_EQ(file.open(out.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
        ASSERT_EQ(file.mimeGet(mime, sizeof(mime)), DISKFILE::kSuccess);
        EXPECT_STREQ(mime, "application/x-test");
        uint32_t announced = 0;
        for (const FILEDECODE::DecodeData &call : log.calls) {
            EXPECT_EQ(call.parts, files.size());
            if (call.part != announced) {
                EXPECT_EQ(call.part, ++announced);
            }
        }
        EXPECT_EQ(announced, files.size());
        ASSERT_FALSE(log.calls.empty());
        EXPECT_TRUE(log.calls.back().done);
        EXPECT_GT(log.calls.back().lines, FILEDECODE::kProgressEvery);
    }
}

// The attachments reading lists in a message file.
std::unique_ptr<VMSG::ATTACHMENT> attachmentsOf(const std::string &path) {
    std::unique_ptr<VMSG::ATTACHMENT> list;
    TEXTFILE file;
    VMSG::READ read;
    read.attachments = &list;
    EXPECT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    EXPECT_EQ(VMSG::fileRead(&file, read), DISKFILE::kSuccess);
    return list;
}

// Lines between the data (a signature, a note) are not decoded into the file; a text line
// "-- " does not stop copied data, a boundary-like "--ab" does.
TEST(FILEDECODE, TextAroundDataStaysOut) {
    const std::string folder = outFolder();
    const std::string withNote = folder + "/part2.vmf";
    filePut(withNote, fileGet(kFixtures + "uu-part2.vmf") + "\nPosted via Example News XYZ\n");
    const std::string out = folder + "/pic.bin";
    ASSERT_TRUE(FILEDECODE::FileDecode({kUuParts[0], withNote, kUuParts[2]}, 0, out.c_str(),
                                       nullptr, IMsg::AttachUuencode, nullptr, nullptr));
    EXPECT_EQ(sha256(out), digest("pic.bin"));

    const std::string notes = folder + "/notes.vmf";
    filePut(notes, "Subject: notes\nContent-Disposition: attachment; filename=notes.txt\n"
                   "Content-Transfer-Encoding: 7bit\n\nline one\n-- \nsig\n--ab\nafter\n");
    ASSERT_TRUE(FILEDECODE::FileDecode({notes}, 0, (folder + "/notes.txt").c_str(), nullptr,
                                       IMsg::AttachMime, nullptr, nullptr));
    EXPECT_EQ(fileGet(folder + "/notes.txt"), "line one\n-- \nsig\n");
}

TEST(FILEDECODE, FailuresLeaveNoFile) {
    const std::string folder = outFolder();
    const std::string notUu = folder + "/plain.vmf";
    filePut(notUu, "Subject: pic.bin (2/3)\n\njust words\n");
    const std::string out = folder + "/pic.bin";
    // Cut by the file layer, a longer path would name another file, here this one.
    ASSERT_LT(folder.size(), DISKFILE::kPathMax - 20);
    const std::string victim =
        folder + "/" + std::string(DISKFILE::kPathMax - folder.size() - 1, 'v');
    filePut(victim, "keep me");
    const std::string tooLong = victim + "/pic.bin";
    struct CASE {
        const char *name;
        std::vector<std::string> files;
        IMsg::AttachType type;
        size_t cancelAt;
        std::string output;
    } const cases[] = {
        {"corrupt-part", {kUuParts[0], notUu, kUuParts[2]}, IMsg::AttachUuencode, SIZE_MAX, out},
        {"missing-file", {kUuParts[0], folder + "/gone.vmf"}, IMsg::AttachUuencode, SIZE_MAX, out},
        {"cancelled", kUuParts, IMsg::AttachUuencode, 3, out},
        {"bad-type", kUuParts, IMsg::AttachNone, SIZE_MAX, out},
        {"unsafe-leaf", kUuParts, IMsg::AttachUuencode, SIZE_MAX, folder + "/.hidden"},
        {"no-files", {}, IMsg::AttachUuencode, SIZE_MAX, out},
        {"path-too-long", kUuParts, IMsg::AttachUuencode, SIZE_MAX, tooLong},
    };
    for (const CASE &c : cases) {
        PROGRESSLOG log;
        log.cancelAt = c.cancelAt;
        EXPECT_FALSE(FILEDECODE::FileDecode(c.files, 0, c.output.c_str(), nullptr, c.type,
                                            progressLog, &log))
            << c.name;
        EXPECT_FALSE(fs::exists(c.output)) << c.name;
        EXPECT_EQ(fileGet(victim), "keep me") << c.name;
    }
}

// Names from a hostile article, through reading, the output path and the decode, never
// leave the save folder; a name with nothing usable left is refused.
TEST(FILEDECODE, HostileNamesStayInSaveFolder) {
    const std::string root = outFolder();
    const std::string save = root + "/save/inner";
    fs::create_directories(save);
    const std::string message = root + "/hostile.vmf";
    const std::string uuLine = "#86)C\n`\nend\n";
    filePut(message,
            "Subject: names\nContent-Type: multipart/mixed; boundary=\"hostile\"\n\n"
            "--hostile\nContent-Type: application/octet-stream\nContent-Transfer-Encoding: base64\n"
            "Content-Disposition: attachment; filename=\"../../up.bin\"\n\nYWJj\n"
            "--hostile\nContent-Type: text/plain\nContent-Disposition: attachment; "
            "filename=\"C:\\\\dir\\\\..\\\\win.txt\"\nContent-Transfer-Encoding: 7bit\n\ntext\n"
            "--hostile\nContent-Type: text/plain\nContent-Transfer-Encoding: 7bit\n\nsee\n"
            "begin 644 /etc/abs.bin\n" +
                uuLine + "begin 644 ../../../dots..\n" + uuLine + "--hostile--\n");
    const std::unique_ptr<VMSG::ATTACHMENT> list = attachmentsOf(message);
    std::vector<std::string> names;
    for (const VMSG::ATTACHMENT *at = list.get(); at != nullptr; at = at->next.get()) {
        std::string out;
        ASSERT_TRUE(FILEDECODE::outputPath(save.c_str(), at->filename.c_str(), out));
        ASSERT_TRUE(FILEDECODE::FileDecode({message}, uint32_t(at->offset), out.c_str(), "",
                                           at->type, nullptr, nullptr))
            << out;
        names.push_back(fs::path(out).filename());
    }
    EXPECT_EQ(names, (std::vector<std::string>{"up.bin", "win.txt", "abs.bin", "dots.."}));
    for (const fs::directory_entry &entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file() && entry.path() != message) {
            EXPECT_EQ(entry.path().parent_path(), save) << entry.path();
        }
    }
    EXPECT_EQ(fileGet(save + "/up.bin"), "abc");

    std::string path = "stale";
    for (const char *refused : {" .. ", ""}) {
        EXPECT_FALSE(FILEDECODE::outputPath(save.c_str(), refused, path)) << refused;
        EXPECT_EQ(path, "");
    }
    EXPECT_FALSE(FILEDECODE::outputPath(std::string(DISKFILE::kPathMax, 'd').c_str(), "x", path));
    FILEDECODE::DecodeData data{2, 3, 40, false};
    EXPECT_EQ(FILEDECODE::formatFile(data), "File: 2 of 3");
    EXPECT_EQ(FILEDECODE::formatLines(data), "Lines: 40");
}

// The interface side of a decode, recorded. A view can cancel, or hold the decode until the
// thread is ended by force.
class HOSTRECORDER : public DecodeWindow::HOST {
public:
    bool attachList(const void *row, std::vector<std::string> &files) override {
        auto it = lists.find(row);
        if (it == lists.end())
            return false;
        files = it->second;
        return true;
    }
    std::unique_ptr<DecodeWindow::VIEW> viewOpen(const std::string &title) override {
        std::lock_guard<std::mutex> lock(mutex);
        titles.push_back(title);
        return std::make_unique<VIEWOF>(*this);
    }
    bool launch(const char *path, const char *mimeType) override {
        std::lock_guard<std::mutex> lock(mutex);
        launched.push_back(std::string(path) + " " + mimeType);
        return launchWorks;
    }
    // Under the lock: "titles | launched".
    std::string calls() {
        std::lock_guard<std::mutex> lock(mutex);
        std::string out;
        for (const std::string &title : titles)
            out += title + ";";
        out += " |";
        for (const std::string &launch : launched)
            out += " " + launch;
        return out;
    }

    std::map<const void *, std::vector<std::string>> lists;
    std::atomic<bool> cancel{false};
    std::atomic<bool> hold{false};
    std::atomic<bool> launchWorks{true};

private:
    struct VIEWOF : DecodeWindow::VIEW {
        explicit VIEWOF(HOSTRECORDER &host) : host(host) {}
        bool update(const FILEDECODE::DecodeData &) override {
            while (host.hold)
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            return !host.cancel;
        }
        HOSTRECORDER &host;
    };
    std::mutex mutex;
    std::vector<std::string> titles;
    std::vector<std::string> launched;
};

class DecodeThread : public ::testing::Test {
protected:
    void SetUp() override {
        THREAD::start();
        THREAD::state(true);
        DecodeWindow::hostSet(&host);
    }
    void TearDown() override {
        THREAD::stop();
        DecodeWindow::hostSet(nullptr);
        EXPECT_EQ(DecodeWindow::stop(), 0u);
        EXPECT_EQ(FILEDECODE::slotsUsed(), 0u);
    }
    // Waits until the condition holds (every decode thread ended, by default).
    static bool waitFor(bool (*done)() = [] { return THREAD::count() == 0; }) {
        for (int i = 0; i < 1000 && !done(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return done();
    }
    bool create(const void *row, const std::string &message, const std::string &out,
                IMsg::AttachType type, bool whole, bool launch) {
        return DecodeWindow::Create(row, message.c_str(), 7, out.c_str(), "image/x-test", 0, type,
                                    whole, whole, launch);
    }
    static void slotsTakeAll() {
        for (uint32_t i = 0; i < FILEDECODE::kSlots; i++)
            ASSERT_TRUE(FILEDECODE::slotTake());
    }
    static void slotsFree(uint32_t count) {
        for (uint32_t i = 0; i < count; i++)
            FILEDECODE::slotFree();
    }

    HOSTRECORDER host;
    ALERTRECORDER alerts;
};

// A cancelled decode shows nothing and leaves no file; each error shows its alert once.
TEST_F(DecodeThread, ErrorsAreShownOnce) {
    const std::string folder = outFolder();
    const std::string notUu = folder + "/plain.vmf";
    filePut(notUu, "Subject: pic.bin (2/3)\n\njust words\n");
    const int rowMissing = 1, rowCorrupt = 2;
    host.lists[&rowCorrupt] = {kUuParts[0], notUu, kUuParts[2]};
    host.lists[nullptr] = kUuParts;
    struct CASE {
        const void *row;
        bool whole;
        bool launchWorks;
        const char *alert; // null: cancelled
    } const cases[] = {
        {&rowMissing, false, true,
         "Couldn't find all messages for attachment 'pic.bin'.  Make sure all message parts "
         "are in the same folder or newsgroup and that all have had their message bodies "
         "downloaded."},
        {&rowCorrupt, false, true,
         "There was a problem decoding attachment 'pic.bin'.  The original messages may be "
         "corrupt or you might not have enough free disk space."},
        {nullptr, true, true,
         "There was a problem decoding attachment 'pic.bin'.  The original message may be "
         "corrupt or you might not have enough free disk space."},
        {nullptr, false, false,
         "Couldn't launch attachment 'pic.bin'.  Check the FileTypes database to see if its "
         "MIME type has a preferred application.\n\nMIME type: image/x-test"},
        {nullptr, false, true, nullptr},
    };
    for (const CASE &c : cases) {
        SCOPED_TRACE(c.alert != nullptr ? c.alert : "cancelled");
        const std::string out = folder + "/pic.bin";
        host.launchWorks = c.launchWorks;
        host.cancel = c.alert == nullptr;
        const size_t before = alerts.count();
        ASSERT_TRUE(create(c.row, notUu, out, IMsg::AttachUuencode, c.whole, true));
        ASSERT_TRUE(waitFor());
        ASSERT_EQ(alerts.count(), before + (c.alert != nullptr));
        if (c.alert != nullptr) {
            EXPECT_EQ(alerts.texts().back(), c.alert);
        }
        EXPECT_EQ(fs::exists(out), !c.launchWorks);
        fs::remove(out);
    }
}

TEST_F(DecodeThread, FifthDecodeWaitsForSlot) {
    slotsTakeAll();
    EXPECT_FALSE(FILEDECODE::slotTake());
    const std::string out = outFolder() + "/photo.jpg";
    ASSERT_TRUE(
        create(nullptr, kFixtures + "single-base64.vmf", out, IMsg::AttachBase64, true, true));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(host.calls(), " |");
    EXPECT_EQ(THREAD::count(), 1u);
    FILEDECODE::slotFree();
    ASSERT_TRUE(waitFor());
    EXPECT_EQ(sha256(out), digest("photo.jpg"));
    EXPECT_EQ(host.calls(), "Decoding photo.jpg; | " + out + " image/x-test");
    EXPECT_EQ(alerts.count(), 0u);
    EXPECT_EQ(FILEDECODE::slotsUsed(), FILEDECODE::kSlots - 1);
    slotsFree(FILEDECODE::kSlots - 1);
}

// Quitting ends a decode waiting for a slot quietly; a request whose thread never ran (the
// program quit before running) is freed by stop().
TEST_F(DecodeThread, QuitBeforeDecoding) {
    slotsTakeAll();
    const std::string out = outFolder() + "/photo.jpg";
    const std::string message = kFixtures + "single-base64.vmf";
    ASSERT_TRUE(create(nullptr, message, out, IMsg::AttachBase64, true, false));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    THREAD::stop();
    EXPECT_EQ(THREAD::count(), 0u);
    slotsFree(FILEDECODE::kSlots);

    THREAD::start();
    ASSERT_TRUE(create(nullptr, message, out, IMsg::AttachBase64, true, false));
    THREAD::stop();
    EXPECT_EQ(DecodeWindow::stop(), 1u);
    EXPECT_FALSE(fs::exists(out));
    EXPECT_EQ(alerts.count(), 0u);
}

// A decode that does not heed the stop is ended by force: its partial file and its slot go
// with it.
TEST_F(DecodeThread, ForcedEndCleansUp) {
    const std::string out = outFolder() + "/pic.bin";
    host.lists[nullptr] = kUuParts;
    host.hold = true;
    ASSERT_TRUE(create(nullptr, "", out, IMsg::AttachUuencode, false, false));
    ASSERT_TRUE(waitFor([] { return FILEDECODE::slotsUsed() == 1; }));
    THREAD::stop();
    ASSERT_TRUE(waitFor([] { return FILEDECODE::slotsUsed() == 0; }));
    EXPECT_FALSE(fs::exists(out));
    EXPECT_EQ(alerts.count(), 0u);
}

} // namespace
