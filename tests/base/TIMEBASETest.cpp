// Time values: the text forms, calendar conversions, names, duration texts and clock hooks.
#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/TIMEBASE.h"
#include "tests/support/TESTTABLE.h"

namespace {

constexpr int64_t kSec = TIMEBASE::kSecond;
constexpr int64_t kOct3 = 970581909 * kSec;                // 2000-10-03 14:05:09 UTC, a Tuesday
constexpr const char *kPacific = "PST8PDT,M3.2.0,M11.1.0"; // a POSIX rule: no zone files needed

// Runs a scope in a given time zone.
class ZONE {
public:
    explicit ZONE(const char *rule) : fOld(getenv("TZ") ? getenv("TZ") : "") { set(rule); }
    ~ZONE() { set(fOld.empty() ? nullptr : fOld.c_str()); }

private:
    static void set(const char *rule) {
        rule ? setenv("TZ", rule, 1) : unsetenv("TZ");
        tzset();
    }
    std::string fOld;
};

std::string text(const BETIME &time, bool micro) {
    char buffer[TIMEBASE::kDateTextSize];
    TIMEBASE::convert(buffer, sizeof buffer, &time, micro);
    return buffer;
}

struct PARSECASE {
    std::string name, text;
    bool ok;
    int64_t usecs; // of the parsed time taken as GMT; 0 with ok for "None"
};
class TIMEBASEParse : public testing::TestWithParam<PARSECASE> {};

std::vector<PARSECASE> parseCases() {
    std::vector<PARSECASE> cases;
    for (const testtable::ROW &row : testtable::read("time-texts.txt"))
        cases.push_back({row[0], row[1], row[2] == "yes", std::stoll(row[3])});
    return cases;
}

TEST_P(TIMEBASEParse, PlainTextForm) {
    const PARSECASE &c = GetParam();
    BETIME time;
    time.year = 1;
    EXPECT_EQ(TIMEBASE::convert(&time, c.text.c_str()), c.ok);
    int64_t usecs = -1;
    EXPECT_TRUE(TIMEBASE::convert(&usecs, &time, true));
    EXPECT_EQ(usecs, c.ok ? c.usecs : 0);
    if (!c.ok || c.usecs == 0) {
        EXPECT_TRUE(time.cleared());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, TIMEBASEParse, testing::ValuesIn(parseCases()),
                         [](const auto &info) { return info.param.name; });

// Breaking usecs down in GMT, the text written for the result, and back through the parser.
TEST(TIMEBASEConvert, BreakDownFormatAndBack) {
    struct {
        int64_t usecs;
        bool ok;
        const char *text;
    } cases[] = {{-1, false, "None"},
                 {0, true, "None"},
                 {kOct3 + 42, true, "2000/10/03 14:05:09:000042"},
                 {1924991999 * kSec, true, "2030/12/31 23:59:59:000000"},
                 {1924992000 * kSec, false, "None"}, // 2031
                 {INT64_MAX, false, "None"}};
    for (const auto &c : cases) {
        BETIME time;
        EXPECT_EQ(TIMEBASE::convert(&time, c.usecs, true), c.ok) << c.usecs;
        EXPECT_EQ(text(time, true), c.text) << c.usecs;
        if (!c.ok || c.usecs == 0) {
            EXPECT_TRUE(time.cleared());
            continue;
        }
        EXPECT_STREQ(time.zone, "GMT");
        EXPECT_EQ(time.gmtOffset, 0);
        BETIME back;
        ASSERT_TRUE(TIMEBASE::convert(&back, c.text));
        int64_t usecs = 0;
        ASSERT_TRUE(TIMEBASE::convert(&usecs, &back, true));
        EXPECT_EQ(usecs, c.usecs);
    }
    BETIME time;
    ASSERT_TRUE(TIMEBASE::convert(&time, "2000/10/03 14:05:09:5"));
    EXPECT_EQ(time.weekday, 2) << "parsing fills the weekday and the day of the year";
    EXPECT_EQ(time.yearday, 276);
    EXPECT_FALSE(TIMEBASE::convert(&time, static_cast<const char *>(nullptr)));
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3, true));
    EXPECT_EQ(text(time, false), "2000/10/03 14:05:09");
    time.month = 13;
    int64_t usecs = 1;
    EXPECT_EQ(text(time, false), "None");
    EXPECT_FALSE(TIMEBASE::convert(&usecs, &time, true));
    EXPECT_EQ(usecs, 0);
}

TEST(TIMEBASEConvert, LocalTimeRoundTripsThroughTheChangeHours) {
    ZONE zone(kPacific);
    BETIME time;
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3, false));
    EXPECT_EQ(time.hour, 7);
    EXPECT_TRUE(time.daylight);
    EXPECT_EQ(time.gmtOffset, -7 * 3600 * kSec);
    // A time typed in as text carries no daylight flag; summer time still applies to it.
    int64_t typed = 0;
    ASSERT_TRUE(TIMEBASE::convert(&time, "2000/10/03 07:05:09"));
    ASSERT_TRUE(TIMEBASE::convert(&typed, &time, false));
    EXPECT_EQ(typed, kOct3);
    // 2000-03-12 08:00 to 12:00 UTC (02:00-03:00 local never happens) and 2000-11-05 06:00
    // to 12:00 UTC (01:00-02:00 local happens twice).
    const int64_t days[][2] = {{952848000, 952862400}, {973404000, 973425600}};
    for (const auto &day : days)
        for (int64_t t = day[0]; t <= day[1]; t += 900) {
            ASSERT_TRUE(TIMEBASE::convert(&time, t * kSec + 3, false));
            int64_t back = 0;
            ASSERT_TRUE(TIMEBASE::convert(&back, &time, false));
            EXPECT_EQ(back, t * kSec + 3) << time.hour << ":" << int(time.minute);
            ASSERT_TRUE(TIMEBASE::convert(&time, t * kSec, true));
            ASSERT_TRUE(TIMEBASE::convert(&back, &time, true));
            EXPECT_EQ(back, t * kSec);
        }
}

TEST(TIMEBASEConvert, StructTmFieldCopies) {
    BETIME time, back;
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3, true));
    struct tm tm {};
    TIMEBASE::convert(&tm, &time);
    EXPECT_EQ(timegm(&tm), kOct3 / kSec);
    TIMEBASE::convert(&back, &tm);
    EXPECT_EQ(text(back, true), text(time, true));
    EXPECT_STREQ(back.zone, "GMT");
    tm.tm_year = 70000; // does not wrap into a plausible year
    TIMEBASE::convert(&back, &tm);
    EXPECT_FALSE(back.validate());
}

TEST(TIMEBASEConvert, SecondsAndThirtyTwoBitValues) {
    EXPECT_EQ(TIMEBASE::convert32(INT32_MIN), INT64_MIN);
    EXPECT_EQ(TIMEBASE::convert32(INT32_MAX), INT64_MAX);
    EXPECT_EQ(TIMEBASE::convert32(-5), -5 * kSec);
    const int64_t seconds[][2] = {{0, 0}, {1, 1}, {kSec, 1}, {kSec + 1, 2}, {-1500000, -1}};
    for (const auto &s : seconds)
        EXPECT_EQ(TIMEBASE::seconds(s[0]), s[1]) << s[0];
}

TEST(TIMEBASENames, MonthsWeekdaysAndHalfDays) {
    struct {
        int number;
        const char *full, *shortName;
    } months[] = {{5, "May", "May"}, {9, "September", "Sep"}, {12, "December", "Dec"}, {0, "", ""}},
      weekdays[] = {{0, "Sunday", "Sun"}, {6, "Saturday", "Sat"}, {7, "", ""}};
    for (const auto &m : months) {
        EXPECT_STREQ(TIMEBASE::month(m.number, true), m.full);
        EXPECT_STREQ(TIMEBASE::month(m.number, false), m.shortName);
        EXPECT_EQ(TIMEBASE::month(m.full), m.number);
    }
    for (const auto &w : weekdays) {
        EXPECT_STREQ(TIMEBASE::weekday(w.number, true), w.full);
        EXPECT_STREQ(TIMEBASE::weekday(w.number, false), w.shortName);
    }
    EXPECT_EQ(TIMEBASE::month("dec"), 12);
    EXPECT_EQ(TIMEBASE::month("Decem"), 0);
    EXPECT_EQ(TIMEBASE::weekday("sun"), 0);
    EXPECT_EQ(TIMEBASE::weekday("Funday"), -1);
    const unsigned hours[][3] = {{0, 12, 0},  {1, 1, 0},  {11, 11, 0},
                                 {12, 12, 1}, {13, 1, 1}, {23, 11, 1}}; // hour, 12-hour, PM
    for (const auto &h : hours) {
        bool pm = !h[2];
        EXPECT_EQ(TIMEBASE::ampm(h[0], &pm), h[1]) << h[0];
        EXPECT_EQ(pm, bool(h[2])) << h[0];
        EXPECT_STREQ(TIMEBASE::ampm(pm), pm ? "PM" : "AM");
    }
}

TEST(TIMEBASEZone, SuffixTexts) {
    struct {
        int64_t minutes;
        const char *text;
    } cases[] = {{0, "GMT"}, {-420, "-0700"}, {330, "+0530"}, {-210, "-0330"}, {840, "+1400"}};
    for (const auto &c : cases) {
        char text[TIMEBASE::kZoneTextSize];
        TIMEBASE::timezoneStr(text, sizeof text, c.minutes * 60 * kSec);
        EXPECT_STREQ(text, c.text);
    }
}

// A wall clock the test sets.
int64_t gFakeWall = 0;
int64_t gSetTo = 0;
int64_t fakeWall() {
    return gFakeWall;
}
bool fakeWallSet(int64_t usecs) {
    gSetTo = usecs;
    return true;
}

class TIMEBASEClock : public testing::Test {
protected:
    void SetUp() override {
        TIMEBASE::CLOCK clock;
        clock.wall = fakeWall;
        clock.wallSet = fakeWallSet;
        TIMEBASE::clockSet(&clock);
    }
    void TearDown() override { TIMEBASE::clockSet(nullptr); }
};

TEST_F(TIMEBASEClock, ZoneFollowsTheDateAndTheRule) {
    ZONE zone(kPacific);
    char text[TIMEBASE::kDateTextSize];
    struct {
        int64_t wall;
        int64_t offset;
        bool daylight;
        const char *suffix, *now;
    } cases[] = {{kOct3, -7, true, "-0700", "2000/10/03 07:05:09"},
                 {947000000 * kSec, -8, false, "-0800", "2000/01/04 07:33:20"}};
    for (const auto &c : cases) {
        gFakeWall = c.wall;
        EXPECT_EQ(TIMEBASE::timezone(), c.offset * 3600 * kSec);
        EXPECT_EQ(TIMEBASE::daylight(), c.daylight);
        TIMEBASE::timezoneStr(text, sizeof text);
        EXPECT_STREQ(text, c.suffix);
        TIMEBASE::timeGetStr(text, sizeof text);
        EXPECT_STREQ(text, c.now);
    }
}

TEST_F(TIMEBASEClock, HooksReplaceTheClocks) {
    gFakeWall = 123;
    EXPECT_EQ(TIMEBASE::timeGet(), 123);
    EXPECT_GT(TIMEBASE::tickCount(), 0); // the tick clock stays the system's
    EXPECT_FALSE(TIMEBASE::timeSet(TIMEBASE::kTimeSetMin - 1));
    EXPECT_TRUE(TIMEBASE::timeSet(kOct3 + 999999));
    EXPECT_EQ(gSetTo, kOct3);
    TIMEBASE::clockSet(nullptr);
    EXPECT_GT(TIMEBASE::timeGet(), kOct3);
}

TEST(TIMEBASEText, ShortDateOfTheHeaderList) {
    struct {
        const char *zone;
        int64_t usecs;
        const char *text;
    } cases[] = {{"UTC0", kOct3, "Oct 3 2000 2:05PM"},
                 {"UTC0", 970531500 * kSec, "Oct 3 2000 12:05AM"},
                 {"UTC0", 0, "None"},
                 {kPacific, kOct3, "Oct 3 2000 7:05AM"}};
    for (const auto &c : cases) {
        ZONE zone(c.zone);
        char text[TIMEBASE::kShortTextSize];
        TIMEBASE::timeFormat(text, sizeof text, c.usecs);
        EXPECT_STREQ(text, c.text);
    }
}

struct DURATIONCASE {
    std::string name;
    int64_t usecs;
    std::string length, run, runMicro, unit;
};
class TIMEBASEDuration : public testing::TestWithParam<DURATIONCASE> {};

std::vector<DURATIONCASE> durations() {
    std::vector<DURATIONCASE> cases;
    for (const testtable::ROW &row : testtable::read("durations.txt"))
        cases.push_back({row[0], std::stoll(row[1]), row[2], row[3], row[4], row[5]});
    return cases;
}

TEST_P(TIMEBASEDuration, Texts) {
    const DURATIONCASE &c = GetParam();
    char text[TIMEBASE::kRunTextSize];
    TIMEBASE::lengthStr(text, sizeof text, c.usecs);
    EXPECT_EQ(text, c.length);
    TIMEBASE::runStr(text, sizeof text, c.usecs, false);
    EXPECT_EQ(text, c.run);
    TIMEBASE::runStr(text, sizeof text, c.usecs, true);
    EXPECT_EQ(text, c.runMicro);
    TIMEBASE::usecs(text, sizeof text, c.usecs);
    EXPECT_EQ(text, c.unit);
    int64_t back = 1;
    ASSERT_TRUE(TIMEBASE::usecs(&back, text));
    EXPECT_EQ(back, c.usecs);
}

INSTANTIATE_TEST_SUITE_P(Cases, TIMEBASEDuration, testing::ValuesIn(durations()),
                         [](const auto &info) { return info.param.name; });

TEST(TIMEBASEDuration, ParsingEitherOrder) {
    struct {
        const char *text;
        int64_t usecs;
    } cases[] = {{"5", 5 * kSec},
                 {"min 3", 180 * kSec},
                 {"3 MIN", 180 * kSec},
                 {"+4 w", 4 * 604800 * kSec},
                 {"10 ms", 10000},
                 {"usecs 7", 7},
                 {"  -2   hrs ", -7200 * kSec},
                 {"9223372036854775807 us", INT64_MAX}};
    for (const auto &c : cases) {
        int64_t value = 99;
        EXPECT_TRUE(TIMEBASE::usecs(&value, c.text)) << c.text;
        EXPECT_EQ(value, c.usecs) << c.text;
    }
    const std::string longUnit = "1 " + std::string(TIMEBASE::kTokenMax + 1, 's');
    const char *refused[] = {"3 fortnights",
                             "1 2",
                             "sec min",
                             "sec",
                             "",
                             "1 sec 2",
                             "1sec",
                             "+",
                             "9223372036854775807 s",
                             "9223372036854775808",
                             "12345678901234567890 us",
                             longUnit.c_str(),
                             nullptr};
    for (const char *text : refused) {
        int64_t value = 99;
        EXPECT_FALSE(TIMEBASE::usecs(&value, text)) << (text ? text : "null");
        EXPECT_EQ(value, 0) << (text ? text : "null");
    }
}

TEST(TIMEBASEText, SmallBuffersAreCutNotOverrun) {
    char text[5];
    TIMEBASE::runStr(text, sizeof text, 90061 * kSec, false);
    EXPECT_STREQ(text, "1 da");
    TIMEBASE::usecs(text, sizeof text, 7200 * kSec);
    EXPECT_STREQ(text, "2 ho");
    BETIME time;
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3, true));
    EXPECT_TRUE(TIMEBASE::convert(text, sizeof text, &time, true));
    EXPECT_STREQ(text, "2000");
}

// Random bytes to both text parsers: a clean refusal or a value, never a crash.
TEST(TIMEBASEGarbage, RandomBytes) {
    std::mt19937 random(3);
    const char likely[] = "0123456789/: smhdw";
    for (int round = 0; round < 5000; round++) {
        std::string text;
        for (size_t n = random() % 120; n > 0; n--)
            text +=
                random() % 2 ? likely[random() % (sizeof likely - 1)] : char(random() % 255 + 1);
        BETIME time;
        if (TIMEBASE::convert(&time, text.c_str())) {
            EXPECT_TRUE(time.cleared() || time.validate()) << text;
        } else {
            EXPECT_TRUE(time.cleared());
        }
        int64_t value = 0;
        if (!TIMEBASE::usecs(&value, text.c_str())) {
            EXPECT_EQ(value, 0);
        }
    }
}

} // namespace
