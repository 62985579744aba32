// Tests of attachment decoding against files made by independent encoders, and of the decode
// thread.
#include "message/FILEDECODE.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <sstream>
#include <thread>

#include "base/TEXTFILE.h"
#include "base/THREAD.h"
#include "message/VMSG.h"
#include "tests/message/FILEDECODETestUtil.h"
#include "tests/support/ALERTRECORDER.h"
#include "tests/support/TestHome.h"

namespace {

using decodetest::fileGet;
using decodetest::filePut;
using decodetest::sha256;

const std::string kFixtures = std::string(VW_TEST_DATA) + "/decode/";

std::map<std::string, std::string> digests() {
    std::map<std::string, std::string> out;
    std::istringstream in(fileGet(kFixtures + "SHA256SUMS"));
    std::string digest, name;
    while (in >> digest >> name)
        out[name] = digest;
    return out;
}

std::string outFolder() {
    const std::string folder = testhome::path() + "/decoded-" +
                               ::testing::UnitTest::GetInstance()->current_test_info()->name();
    std::filesystem::create_directories(folder);
    return folder;
}

std::vector<std::string> fixtures(std::initializer_list<const char *> names) {
    std::vector<std::string> files;
    for (const char *name : names)
        files.push_back(kFixtures + name);
    return files;
}

struct PROGRESSLOG {
    std::vector<FILEDECODE::DecodeData> calls;
    size_t cancelAt = SIZE_MAX;
};

bool progressLog(void *context, const FILEDECODE::DecodeData &data) {
    auto *log = static_cast<PROGRESSLOG *>(context);
    log->calls.push_back(data);
    return log->calls.size() < log->cancelAt;
}

TEST(FILEDECODE, Sha256OfKnownText) {
    EXPECT_EQ(sha256("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

struct FIXTURE {
    const char *name;
    std::vector<std::string> files;
    IMsg::AttachType type;
    const char *original;
};

class FixtureDecode : public ::testing::TestWithParam<FIXTURE> {};

TEST_P(FixtureDecode, ByteIdentical) {
    const FIXTURE &fixture = GetParam();
    const std::string out = outFolder() + "/" + fixture.original;
    PROGRESSLOG log;
    ASSERT_TRUE(FILEDECODE::FileDecode(fixture.files, 0, out.c_str(), "application/x-test",
                                       fixture.type, progressLog, &log));
    EXPECT_EQ(sha256(fileGet(out)), digests()[fixture.original]);
    TEXTFILE file;
    ASSERT_EQ(file.open(out.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    char mime[64];
    ASSERT_EQ(file.mimeGet(mime, sizeof(mime)), DISKFILE::kSuccess);
    EXPECT_STREQ(mime, "application/x-test");

    // Each part is announced before its first line, and the end once with done set.
    ASSERT_GE(log.calls.size(), fixture.files.size() + 1);
    uint32_t announced = 0;
    for (const FILEDECODE::DecodeData &call : log.calls) {
        EXPECT_EQ(call.parts, fixture.files.size());
        if (call.part > announced) {
            EXPECT_EQ(call.part, ++announced);
        }
    }
    EXPECT_EQ(announced, fixture.files.size());
    EXPECT_TRUE(log.calls.back().done);
    EXPECT_GT(log.calls.back().lines, 40u);
}

INSTANTIATE_TEST_SUITE_P(
    Fixtures, FixtureDecode,
    ::testing::Values(
        FIXTURE{"single_base64", fixtures({"single-base64.vmf"}), IMsg::AttachBase64, "photo.jpg"},
        FIXTURE{"uuencode_three_parts", fixtures({"uu-part1.vmf", "uu-part2.vmf", "uu-part3.vmf"}),
                IMsg::AttachUuencode, "pic.bin"},
        FIXTURE{"message_partial", fixtures({"partial-1.vmf", "partial-2.vmf", "partial-3.vmf"}),
                IMsg::AttachBase64, "data.bin"}),
    [](const ::testing::TestParamInfo<FIXTURE> &info) { return std::string(info.param.name); });

// The attachment list of a read gives the offset at which a decode can start.
TEST(FILEDECODE, StartOffsetFromReading) {
    const std::string path = kFixtures + "single-base64.vmf";
    TEXTFILE file;
    ASSERT_EQ(file.open(path.c_str(), DISKFILE::kRead), DISKFILE::kSuccess);
    std::unique_ptr<VMSG::ATTACHMENT> list;
    VMSG::READ read;
    read.attachments = &list;
    ASSERT_EQ(VMSG::fileRead(&file, read), DISKFILE::kSuccess);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->filename, "photo.jpg");
    EXPECT_TRUE(list->begins && list->ends);
    const std::string out = outFolder() + "/photo.jpg";
    ASSERT_TRUE(FILEDECODE::FileDecode({path}, uint32_t(list->offset), out.c_str(), "", list->type,
                                       nullptr, nullptr));
    EXPECT_EQ(sha256(fileGet(out)), digests()["photo.jpg"]);
}

TEST(FILEDECODE, CopyStopsAtBoundaryNotSignature) {
    const std::string message = outFolder() + "/notes.vmf";
    filePut(message, "Subject: notes\nContent-Disposition: attachment; filename=notes.txt\n"
                     "Content-Transfer-Encoding: 7bit\n\nline one\n-- \nsig\n--ab\nafter\n");
    const std::string out = outFolder() + "/notes.txt";
    ASSERT_TRUE(FILEDECODE::FileDecode({message}, 0, out.c_str(), nullptr, IMsg::AttachMime,
                                       nullptr, nullptr));
    EXPECT_EQ(fileGet(out), "line one\n-- \nsig\n");
}

TEST(FILEDECODE, FailuresLeaveNoFile) {
    const std::string folder = outFolder();
    const std::string notUu = folder + "/plain.vmf";
    filePut(notUu, "Subject: pic.bin (2/3)\n\njust words\n");
    const std::string out = folder + "/pic.bin";
    struct CASE {
        const char *name;
        std::vector<std::string> files;
        IMsg::AttachType type;
        size_t cancelAt;
        std::string output;
    } const cases[] = {
        {"corrupt-part",
         {kFixtures + "uu-part1.vmf", notUu, kFixtures + "uu-part3.vmf"},
         IMsg::AttachUuencode,
         SIZE_MAX,
         out},
        {"missing-file",
         {kFixtures + "uu-part1.vmf", folder + "/gone.vmf"},
         IMsg::AttachUuencode,
         SIZE_MAX,
         out},
        {"cancelled", fixtures({"uu-part1.vmf", "uu-part2.vmf"}), IMsg::AttachUuencode, 3, out},
        {"bad-type", fixtures({"uu-part1.vmf"}), IMsg::AttachNone, SIZE_MAX, out},
        {"unsafe-leaf", fixtures({"uu-part1.vmf"}), IMsg::AttachUuencode, SIZE_MAX,
         folder + "/.hidden"},
        {"no-files", {}, IMsg::AttachUuencode, SIZE_MAX, out},
    };
    for (const CASE &c : cases) {
        PROGRESSLOG log;
        log.cancelAt = c.cancelAt;
        EXPECT_FALSE(FILEDECODE::FileDecode(c.files, 0, c.output.c_str(), nullptr, c.type,
                                            progressLog, &log))
            << c.name;
        EXPECT_FALSE(std::filesystem::exists(c.output)) << c.name;
    }
}

TEST(FILEDECODE, OutputPathsStayInFolder) {
    struct CASE {
        const char *name;
        bool ok;
        const char *path;
    } const cases[] = {
        {"photo.jpg", true, "/save/photo.jpg"},
        {"../../etc/passwd", true, "/save/passwd"},
        {"C:\\temp\\x.exe", true, "/save/x.exe"},
        {"...", false, ""},
        {"", false, ""},
    };
    for (const CASE &c : cases) {
        std::string path = "stale";
        EXPECT_EQ(FILEDECODE::outputPath("/save", c.name, path), c.ok) << c.name;
        EXPECT_EQ(path, c.path) << c.name;
    }
    FILEDECODE::DecodeData data{2, 3, 40, false};
    EXPECT_EQ(FILEDECODE::formatFile(data), "File: 2 of 3");
    EXPECT_EQ(FILEDECODE::formatLines(data), "Lines: 40");
}

// The interface side of a decode, recorded.
class HOSTRECORDER : public DecodeWindow::HOST {
public:
    class VIEWRECORDER : public DecodeWindow::VIEW {
    public:
        explicit VIEWRECORDER(HOSTRECORDER &host) : fHost(host) {}
        bool update(const FILEDECODE::DecodeData &) override { return !fHost.cancel; }

    private:
        HOSTRECORDER &fHost;
    };

    bool attachList(const void *row, std::vector<std::string> &files) override {
        auto it = lists.find(row);
        if (it == lists.end())
            return false;
        files = it->second;
        return true;
    }
    std::unique_ptr<DecodeWindow::VIEW> viewOpen(const std::string &title) override {
        std::lock_guard<std::mutex> hold(mutex);
        titles.push_back(title);
        return std::make_unique<VIEWRECORDER>(*this);
    }
    bool launch(const char *path, const char *mimeType) override {
        std::lock_guard<std::mutex> hold(mutex);
        launched.push_back(std::string(path) + " " + mimeType);
        return launchWorks;
    }
    std::vector<std::string> titlesGet() {
        std::lock_guard<std::mutex> hold(mutex);
        return titles;
    }

    std::map<const void *, std::vector<std::string>> lists;
    std::atomic<bool> cancel{false};
    bool launchWorks = true;
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
    }
    // Waits until every decode thread has ended.
    static bool finished() {
        for (int i = 0; i < 1000; i++) {
            if (THREAD::count() == 0)
                return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }

    HOSTRECORDER host;
    ALERTRECORDER alerts;
};

TEST_F(DecodeThread, WholeMessageDecodedAndLaunched) {
    const std::string out = outFolder() + "/photo.jpg";
    const std::string message = kFixtures + "single-base64.vmf";
    ASSERT_TRUE(DecodeWindow::Create(nullptr, message.c_str(), 7, out.c_str(), "image/jpeg", 0,
                                     IMsg::AttachBase64, true, true, true));
    ASSERT_TRUE(finished());
    EXPECT_EQ(sha256(fileGet(out)), digests()["photo.jpg"]);
    EXPECT_EQ(host.titlesGet(), std::vector<std::string>{"Decoding photo.jpg"});
    EXPECT_EQ(host.launched, std::vector<std::string>{out + " image/jpeg"});
    EXPECT_EQ(alerts.count(), 0u);
    EXPECT_EQ(FILEDECODE::slotsUsed(), 0u);
}

TEST_F(DecodeThread, ErrorsAreShownOnce) {
    const std::string folder = outFolder();
    const std::string notUu = folder + "/plain.vmf";
    filePut(notUu, "Subject: pic.bin (2/3)\n\njust words\n");
    const int rowMissing = 1, rowCorrupt = 2;
    host.lists[&rowCorrupt] = {kFixtures + "uu-part1.vmf", notUu, kFixtures + "uu-part3.vmf"};
    struct CASE {
        const char *name;
        const void *row;
        bool whole;
        bool launchWorks;
        const char *alert;
    } const cases[] = {
        {"missing", &rowMissing, false, true,
         "Couldn't find all messages for attachment 'pic.bin'.  Make sure all message parts "
         "are in the same folder or newsgroup and that all have had their message bodies "
         "downloaded."},
        {"corrupt", &rowCorrupt, false, true,
         "There was a problem decoding attachment 'pic.bin'.  The original messages may be "
         "corrupt or you might not have enough free disk space."},
        {"corrupt-single", nullptr, true, true,
         "There was a problem decoding attachment 'pic.bin'.  The original message may be "
         "corrupt or you might not have enough free disk space."},
        {"launch", nullptr, false, false,
         "Couldn't launch attachment 'pic.bin'.  Check the FileTypes database to see if its "
         "MIME type has a preferred application.\n\nMIME type: image/x-test"},
    };
    host.lists[nullptr] = fixtures({"uu-part1.vmf", "uu-part2.vmf", "uu-part3.vmf"});
    for (const CASE &c : cases) {
        const std::string out = folder + "/pic.bin";
        host.launchWorks = c.launchWorks;
        const size_t before = alerts.count();
        ASSERT_TRUE(DecodeWindow::Create(c.row, notUu.c_str(), 0, out.c_str(), "image/x-test", 0,
                                         IMsg::AttachUuencode, c.whole, c.whole, true));
        ASSERT_TRUE(finished()) << c.name;
        ASSERT_EQ(alerts.count(), before + 1) << c.name;
        EXPECT_EQ(alerts.texts().back(), c.alert) << c.name;
        EXPECT_EQ(std::filesystem::exists(out), c.launchWorks == false) << c.name;
        std::filesystem::remove(out);
    }
    EXPECT_EQ(FILEDECODE::slotsUsed(), 0u);
}

TEST_F(DecodeThread, CancelShowsNothing) {
    const std::string out = outFolder() + "/pic.bin";
    host.lists[nullptr] = fixtures({"uu-part1.vmf", "uu-part2.vmf", "uu-part3.vmf"});
    host.cancel = true;
    ASSERT_TRUE(DecodeWindow::Create(nullptr, "", 0, out.c_str(), "", 0, IMsg::AttachUuencode,
                                     false, false, false));
    ASSERT_TRUE(finished());
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(alerts.count(), 0u);
}

TEST_F(DecodeThread, FifthDecodeWaitsForSlot) {
    for (uint32_t i = 0; i < FILEDECODE::kSlots; i++)
        ASSERT_TRUE(FILEDECODE::slotTake());
    EXPECT_FALSE(FILEDECODE::slotTake());
    const std::string out = outFolder() + "/photo.jpg";
    const std::string message = kFixtures + "single-base64.vmf";
    ASSERT_TRUE(DecodeWindow::Create(nullptr, message.c_str(), 0, out.c_str(), "", 0,
                                     IMsg::AttachBase64, true, true, false));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_TRUE(host.titlesGet().empty());
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(THREAD::count(), 1u);
    FILEDECODE::slotFree();
    ASSERT_TRUE(finished());
    EXPECT_EQ(sha256(fileGet(out)), digests()["photo.jpg"]);
    EXPECT_EQ(FILEDECODE::slotsUsed(), FILEDECODE::kSlots - 1);
    for (uint32_t i = 1; i < FILEDECODE::kSlots; i++)
        FILEDECODE::slotFree();
}

// Quitting while a decode waits for a slot ends it quietly.
TEST_F(DecodeThread, QuitWhileWaiting) {
    for (uint32_t i = 0; i < FILEDECODE::kSlots; i++)
        ASSERT_TRUE(FILEDECODE::slotTake());
    const std::string out = outFolder() + "/photo.jpg";
    const std::string message = kFixtures + "single-base64.vmf";
    ASSERT_TRUE(DecodeWindow::Create(nullptr, message.c_str(), 0, out.c_str(), "", 0,
                                     IMsg::AttachBase64, true, true, false));
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    THREAD::stop();
    EXPECT_EQ(THREAD::count(), 0u);
    EXPECT_FALSE(std::filesystem::exists(out));
    EXPECT_EQ(alerts.count(), 0u);
    for (uint32_t i = 0; i < FILEDECODE::kSlots; i++)
        FILEDECODE::slotFree();
}

} // namespace
