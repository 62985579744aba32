// The killfile: key rules and order, the line forms, expiry at start, the file at stop.
#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/stat.h>
#include <thread>

#include "app/BARNINFO.h"
#include "app/SETTINGS.h"
#include "base/TIMEBASE.h"
#include "reader/KILLFILE.h"
#include "tests/support/TestHome.h"

namespace {
constexpr int64_t kDay = 86'400'000'000;
constexpr int64_t kNow = 1'700'000'000'000'000; // 2023-11-14 22:13:20 GMT
std::atomic<int64_t> gNow{kNow};

int64_t fixedWall() {
    return gNow.load();
}

class KILLFILETest : public testing::Test {
protected:
    void SetUp() override {
        SETTINGS::reset(testhome::path().c_str());
        fRoot = testhome::path() + "/kill-" +
                testing::UnitTest::GetInstance()->current_test_info()->name();
        mkdir(fRoot.c_str(), 0755);
        mkdir((fRoot + "/news").c_str(), 0755);
        STR::copy(SETTINGS::storage.path, fRoot.c_str(), sizeof(SETTINGS::storage.path));
        gNow = kNow;
        TIMEBASE::CLOCK clock;
        clock.wall = fixedWall;
        TIMEBASE::clockSet(&clock);
    }
    void TearDown() override {
        KILLFILE::Stop();
        TIMEBASE::clockSet(nullptr);
    }
    std::string path() const { return fRoot + "/news/killfile.txt"; }
    void fileWrite(const std::string &text) { std::ofstream(path()) << text; }
    std::string fileRead() const {
        std::ifstream in(path());
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    std::string fRoot;
};

struct KEYCASE {
    const char *name;
    const char *author;
    const char *address;
    const char *key; // null: refused
};
} // namespace

TEST(KILLFILEKeys, Rules) {
    std::string longName(290, 'n');
    std::string longKey = longName + "\t123456789";
    const KEYCASE cases[] = {
        {"both-given", "Ann", "ann@example.invalid", "Ann\tann@example.invalid"},
        {"no-name", "", "ann@example.invalid", "<None>\tann@example.invalid"},
        {"none-text-name", "<None>", "a@b.invalid", "<None>\ta@b.invalid"},
        {"no-address", "Ann", nullptr, "Ann\t<None>"},
        {"neither", "", nullptr, nullptr},
        {"neither-none-texts", "<None>", "<None>", nullptr},
        {"tab-inside", "A\tnn", "a@b.invalid", nullptr},
        {"leading-blank", " Ann", "a@b.invalid", nullptr},
        {"trailing-line-feed", "Ann", "a@b.invalid\n", nullptr},
        {"trailing-tab", "Ann\t", "a@b.invalid", nullptr},
        {"inner-blank", "Ann Author", "a@b.invalid", "Ann Author\ta@b.invalid"},
        {"key-of-300", longName.c_str(), "123456789", longKey.c_str()},
        {"key-of-301", longName.c_str(), "1234567890", nullptr},
    };
    for (const KEYCASE &c : cases) {
        char key[KILLFILE::kKeyMax + 1];
        EXPECT_EQ(KILLFILE::nameFormat(key, sizeof(key), c.author, c.address), c.key != nullptr)
            << c.name;
        EXPECT_STREQ(key, c.key != nullptr ? c.key : "") << c.name;
    }
}

struct TIMECASE {
    const char *name;
    const char *text;
    bool valid;
    int64_t time;
};

TEST(KILLFILEKeys, TimeFields) {
    const TIMECASE cases[] = {
        {"empty", "", true, 0},
        {"none", "nOnE", true, KILLFILE::kNever},
        {"seconds", "1000000000", true, 1'000'000'000'000'000},
        {"plus-seconds", "+60", true, 60'000'000},
        {"minus", "-60", false, 0},
        {"eleven-digits", "10000000000", false, 0},
        {"past-32-bits", "2147483648", false, 0},
        {"date-text", "2000/10/03 14:05:09", true, 970'581'909'000'000},
        {"date-only", "2000/10/03", true, 970'531'200'000'000},
        {"garbage", "yesterday", false, 0},
    };
    for (const TIMECASE &c : cases) {
        int64_t time = -1;
        EXPECT_EQ(KILLFILE::timeField(c.text, &time), c.valid) << c.name;
        EXPECT_EQ(time, c.time) << c.name;
    }
}

TEST_F(KILLFILETest, LinesAreCheckedAndExpiredAtStart) {
    SETTINGS::killfile.removeTime = 7 * kDay;
    std::string cut = "Cut\tcut@example.invalid\t0\tNone\t" + std::string(1200, ' ') + "X\n";
    fileWrite("Forever\tf@example.invalid\t0\tNone\n"
              "Old\told@example.invalid\t1000000000\t1000000001\n"
              "Seven\t<None>\t1699900000\t\n"
              "Fifth\tfifth@example.invalid\t0\tNone\t\n"
              "Fifth bad\tbad@example.invalid\t0\tNone\tX\n"
              "Three\tfields@example.invalid\t0\n"
              "Minus\tm@example.invalid\t-5\tNone\n"
              "forever\tf@example.invalid\t0\tNone\n"
              "Forever\tf@example.invalid\t5\tNone\n" +
              cut);
    ASSERT_TRUE(KILLFILE::Start());
    std::vector<KILLFILE::BOZO> entries = KILLFILE::entries();
    std::vector<std::string> keys;
    for (const KILLFILE::BOZO &entry : entries)
        keys.emplace_back(entry.key);
    // Case-different names are two entries side by side; of equal keys the first stays.
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

    KILLFILE::Stop();
    gNow = kNow + 8 * kDay;
    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_FALSE(KILLFILE::Find("Seven", nullptr)) << "gone at the first start after expiry";
    EXPECT_TRUE(KILLFILE::Find("Forever", "f@example.invalid"));
}

TEST_F(KILLFILETest, AddedEntriesExpireAfterRemoveTime) {
    SETTINGS::killfile.removeTime = 7 * kDay;
    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_TRUE(KILLFILE::Add("Ann", "ann@example.invalid"));
    EXPECT_FALSE(KILLFILE::Add("Ann", "ann@example.invalid")) << "already there";
    EXPECT_FALSE(KILLFILE::Add("", "")) << "nobody can be killed";
    SETTINGS::killfile.removeTime = 0;
    EXPECT_TRUE(KILLFILE::Add("Bob", "bob@example.invalid"));
    KILLFILE::Stop();
    EXPECT_EQ(fileRead(), "Ann\tann@example.invalid\t2023/11/14 22:13:20\t2023/11/21 22:13:20\n"
                          "Bob\tbob@example.invalid\t2023/11/14 22:13:20\tNone\n");
    struct stat info {};
    ASSERT_EQ(stat(path().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    gNow = kNow + 6 * kDay;
    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_TRUE(KILLFILE::Find("Ann", "ann@example.invalid"));
    KILLFILE::Stop();
    gNow = kNow + 8 * kDay;
    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_FALSE(KILLFILE::Find("Ann", "ann@example.invalid"));
    EXPECT_TRUE(KILLFILE::Find("Bob", "bob@example.invalid"));
}

TEST_F(KILLFILETest, AllExpiredKillfileIsErasedAtStop) {
    fileWrite("Old\told@example.invalid\t1000000000\t1000000001\n");
    ASSERT_TRUE(KILLFILE::Start());
    EXPECT_TRUE(KILLFILE::entries().empty());
    KILLFILE::Stop();
    struct stat info {};
    EXPECT_NE(stat(path().c_str(), &info), 0);
}

TEST_F(KILLFILETest, NotStartedFindsNothing) {
    EXPECT_FALSE(KILLFILE::Find("Ann", "ann@example.invalid"));
    EXPECT_FALSE(KILLFILE::Add("Ann", "ann@example.invalid"));
    SETTINGS::killfile.applyToDownload = true;
    EXPECT_TRUE(KILLFILE::ApplyToDownload());
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
