// The killfile: key rules and order, the line forms, expiry at start, the file at stop.
#include <atomic>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <thread>

#include "app/SETTINGS.h"
#include "base/TIMEBASE.h"
#include "reader/KILLFILE.h"
#include "tests/support/TestHome.h"

namespace {
constexpr int64_t kDay = 86'400'000'000;
constexpr int64_t kNow = 1'700'000'000'000'000; // 2023-11-14 22:13:20 GMT
std::atomic<int64_t> gNow{kNow};

class KILLFILETest : public testing::Test {
protected:
    void SetUp() override {
        SETTINGS::reset(testhome::path().c_str());
        fRoot = testhome::path() + "/kill-" +
                testing::UnitTest::GetInstance()->current_test_info()->name();
        std::filesystem::create_directories(fRoot + "/news");
        STR::copy(SETTINGS::storage.path, fRoot.c_str(), sizeof(SETTINGS::storage.path));
        gNow = kNow;
        TIMEBASE::CLOCK clock;
        clock.wall = [] { return gNow.load(); };
        TIMEBASE::clockSet(&clock);
    }
    void TearDown() override {
        KILLFILE::Stop();
        TIMEBASE::clockSet(nullptr);
    }
    // Stops (writing the file) and starts again at the given time.
    static void restartAt(int64_t now) {
        KILLFILE::Stop();
        gNow = now;
        ASSERT_TRUE(KILLFILE::Start());
    }
    std::string path() const { return fRoot + "/news/killfile.txt"; }

    std::string fRoot;
};
} // namespace

TEST(KILLFILEKeys, RulesAndTimeFields) {
    const std::string longName(290, 'n');
    const std::string longKey = longName + "\t123456789";
    struct KEYCASE {
        const char *author;
        const char *address;
        const char *key; // null: refused
    } const keys[] = {
        {"Ann", "ann@example.invalid", "Ann\tann@example.invalid"},
        {"", "ann@example.invalid", "<None>\tann@example.invalid"},
        {"<None>", "a@b.invalid", "<None>\ta@b.invalid"},
        {"Ann", nullptr, "Ann\t<None>"},
        {"", nullptr, nullptr},
        {"<None>", "<None>", nullptr},
        {"A\tnn", "a@b.invalid", nullptr},
        {" Ann", "a@b.invalid", nullptr},
        {"Ann", "a@b.invalid\n", nullptr},
        {"Ann\t", "a@b.invalid", nullptr},
        {"Ann Author", "a@b.invalid", "Ann Author\ta@b.invalid"},
        {longName.c_str(), "123456789", longKey.c_str()}, // 300 characters
        {longName.c_str(), "1234567890", nullptr},
    };
    for (const KEYCASE &c : keys) {
        char key[KILLFILE::kKeyMax + 1];
        EXPECT_EQ(KILLFILE::nameFormat(key, sizeof(key), c.author, c.address), c.key != nullptr)
            << c.author;
        EXPECT_STREQ(key, c.key != nullptr ? c.key : "") << c.author;
    }

    // A time field, and what it reads as (-1: refused).
    const std::pair<const char *, int64_t> times[] = {
        {"", 0},
        {"nOnE", KILLFILE::kNever},
        {"1000000000", 1'000'000'000'000'000},
        {"+60", 60'000'000},
        {"2000/10/03 14:05:09", 970'581'909'000'000},
        {"2000/10/03", 970'531'200'000'000},
        {"-60", -1},
        {"10000000000", -1},
        {"2147483648", -1},
        {"yesterday", -1},
    };
    for (const auto &[text, want] : times) {
        int64_t time = 7;
        const bool valid = KILLFILE::timeField(text, &time);
        EXPECT_EQ(valid ? time : (time == 0 ? -1 : time), want) << text; // refused: set to 0
    }
}

TEST_F(KILLFILETest, LinesAreCheckedAndExpiredAtStart) {
    SETTINGS::killfile.removeTime = 7 * kDay;
    std::ofstream(path()) << "Forever\tf@example.invalid\t0\tNone\n"
                             "Old\told@example.invalid\t1000000000\t1000000001\n"
                             "Seven\t<None>\t1699900000\t\n"
                             "Fifth\tfifth@example.invalid\t0\tNone\t\n"
                             "Fifth bad\tbad@example.invalid\t0\tNone\tX\n"
                             "Three\tfields@example.invalid\t0\n"
                             "Minus\tm@example.invalid\t-5\tNone\n"
                             "forever\tf@example.invalid\t0\tNone\n"
                             "Forever\tf@example.invalid\t5\tNone\n"
                          << "Cut\tcut@example.invalid\t0\tNone\t" << std::string(1200, ' ')
                          << "X\n";
    ASSERT_TRUE(KILLFILE::Start());
    const std::vector<KILLFILE::BOZO> entries = KILLFILE::entries();
    std::vector<std::string> keys;
    for (const KILLFILE::BOZO &entry : entries)
        keys.emplace_back(entry.key);
    // Case-different names are two entries side by side; of equal keys the first stays; a line
    // over the length limit is taken cut, deliberately.
    EXPECT_EQ(keys,
              (std::vector<std::string>{"Cut\tcut@example.invalid", "Fifth\tfifth@example.invalid",
                                        "Forever\tf@example.invalid", "forever\tf@example.invalid",
                                        "Seven\t<None>"}));
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_EQ(entries[2].added, kNow) << "0 is the load time";
    EXPECT_EQ(entries[2].expires, KILLFILE::kNever);
    EXPECT_EQ(entries[4].expires, 1'699'900'000'000'000 + 7 * kDay);
    EXPECT_TRUE(KILLFILE::Find("Seven", ""));
    EXPECT_TRUE(KILLFILE::Find("Seven", "<None>"));
    EXPECT_FALSE(KILLFILE::Find("seven", ""));
    EXPECT_FALSE(KILLFILE::Find("Old", "old@example.invalid"));

    restartAt(kNow + 8 * kDay);
    EXPECT_FALSE(KILLFILE::Find("Seven", nullptr)) << "gone at the first start after expiry";
    EXPECT_TRUE(KILLFILE::Find("Forever", "f@example.invalid"));
}

TEST_F(KILLFILETest, AddedEntriesExpireAfterRemoveTime) {
    SETTINGS::killfile.removeTime = 7 * kDay;
    // Nothing is found or added before the start.
    EXPECT_FALSE(KILLFILE::Add("Ann", "ann@example.invalid"));
    EXPECT_FALSE(KILLFILE::Find("Ann", "ann@example.invalid"));
    SETTINGS::killfile.applyToDownload = true;
    EXPECT_TRUE(KILLFILE::ApplyToDownload());

    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_TRUE(KILLFILE::Add("Ann", "ann@example.invalid"));
    EXPECT_FALSE(KILLFILE::Add("Ann", "ann@example.invalid")) << "already there";
    EXPECT_FALSE(KILLFILE::Add("", "")) << "nobody can be killed";
    SETTINGS::killfile.removeTime = 0;
    EXPECT_TRUE(KILLFILE::Add("Bob", "bob@example.invalid"));
    KILLFILE::Stop();
    std::stringstream text;
    text << std::ifstream(path()).rdbuf();
    EXPECT_EQ(text.str(), "Ann\tann@example.invalid\t2023/11/14 22:13:20\t2023/11/21 22:13:20\n"
                          "Bob\tbob@example.invalid\t2023/11/14 22:13:20\tNone\n");
    struct stat info {};
    ASSERT_EQ(stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    restartAt(kNow + 6 * kDay);
    EXPECT_TRUE(KILLFILE::Find("Ann", "ann@example.invalid"));
    restartAt(kNow + 8 * kDay);
    EXPECT_FALSE(KILLFILE::Find("Ann", "ann@example.invalid"));
    EXPECT_TRUE(KILLFILE::Find("Bob", "bob@example.invalid"));
    // Once every entry is gone the file is erased at stop.
    KILLFILE::Stop();
    std::ofstream(path()) << "Old\told@example.invalid\t1000000000\t1000000001\n";
    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_TRUE(KILLFILE::entries().empty());
    KILLFILE::Stop();
    EXPECT_FALSE(std::filesystem::exists(path()));
}

TEST_F(KILLFILETest, FindRunsBesideAdd) {
    ASSERT_TRUE(KILLFILE::Start());
    std::atomic<bool> done{false};
    std::thread finder([&] {
        while (!done)
            KILLFILE::Find("Name 10", "n@example.invalid");
    });
    for (int i = 0; i < 300; ++i)
        KILLFILE::Add(("Name " + std::to_string(i)).c_str(), "n@example.invalid");
    done = true;
    finder.join();
    EXPECT_EQ(KILLFILE::entries().size(), 300u);
    EXPECT_TRUE(KILLFILE::Find("Name 299", "n@example.invalid"));
}
