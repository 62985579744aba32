// Time values: the text forms, calendar conversions, names, duration texts and clock hooks.
#include <climits>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>

#include "base/TIMEBASE.h"

namespace {

constexpr int64_t kSec = TIMEBASE::kSecond;
constexpr int64_t kOct3 = 970581909 * kSec; // 2000-10-03 14:05:09 UTC, a Tuesday

// Runs a test in a given time zone (a POSIX rule, so no zone database is needed).
class ZONE {
public:
    explicit ZONE(const char *rule) {
        const char *old = getenv("TZ");
        fHad = old != nullptr;
        if (fHad)
            fOld = old;
        setenv("TZ", rule, 1);
        tzset();
    }
    ~ZONE() {
        if (fHad)
            setenv("TZ", fOld.c_str(), 1);
        else
            unsetenv("TZ");
        tzset();
    }

private:
    bool fHad = false;
    std::string fOld;
};
constexpr const char *kPacific = "PST8PDT,M3.2.0,M11.1.0";

struct PARSECASE {
    const char *name, *text;
    bool ok;
    int64_t usecs; // of the parsed time taken as GMT; 0 with ok for "None"
};
class TIMEBASEParse : public testing::TestWithParam<PARSECASE> {};

const PARSECASE kParse[] = {
    {"date_and_time", "2000/10/03 14:05:09", true, kOct3},
    {"half_second", "2000/10/03 14:05:09:5", true, kOct3 + 500000},
    {"all_microseconds", "2000/10/03 14:05:09:000001", true, kOct3 + 1},
    {"blanks_around", "  2000/10/03   14:05:09 ", true, kOct3},
    {"date_only", "2000/10/03", true, 970531200 * kSec},
    {"year_only", "2000", true, 946684800 * kSec},
    {"empty_month_and_day", "2000//", true, 946684800 * kSec},
    {"hour_only", "2000/10/03 14", true, 970581600 * kSec},
    {"empty_time_fields", "2000/10/03 ::", true, 970531200 * kSec},
    {"last_valid_year", "2030/12/31 23:59:59", true, 1924991999 * kSec},
    {"first_valid_year", "1969/12/31 23:59:59", true, -1 * kSec},
    {"none", "none", true, 0},
    {"None_padded", "  NONE ", true, 0},
    {"two_digit_year", "00/10/03", false, 0},
    {"after_window", "2031/01/01", false, 0},
    {"before_window", "1968/12/31", false, 0},
    {"month_13", "2000/13/01", false, 0},
    {"day_32", "2000/10/32", false, 0},
    {"hour_24", "2000/10/03 24:00", false, 0},
    {"minute_60", "2000/10/03 10:60", false, 0},
    {"three_digit_hour", "2000/10/03 100:00", false, 0},
    {"seven_digit_micro", "2000/10/03 1:2:3:1234567", false, 0},
    {"five_time_fields", "2000/10/03 1:2:3:4:5", false, 0},
    {"four_date_fields", "2000/10/03/01", false, 0},
    {"three_tokens", "2000/10/03 14:05 x", false, 0},
    {"dashes", "2000-10-03", false, 0},
    {"letters", "Oct 3 2000", false, 0},
    {"empty", "", false, 0},
    {"blank", "   ", false, 0},
    {"too_long", "2000/10/03                                   14:05:09", false, 0},
};

TEST_P(TIMEBASEParse, PlainTextForm) {
    const PARSECASE &c = GetParam();
    BETIME time;
    time.year = 1;
    bool ok = TIMEBASE::convert(&time, c.text);
    EXPECT_EQ(ok, c.ok);
    int64_t usecs = -1;
    EXPECT_TRUE(TIMEBASE::convert(&usecs, &time, true));
    EXPECT_EQ(usecs, c.ok ? c.usecs : 0);
    if (!c.ok || c.usecs == 0) {
        EXPECT_TRUE(time.cleared());
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, TIMEBASEParse, testing::ValuesIn(kParse),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(TIMEBASEText, ParsingFillsWeekdayAndDayOfYear) {
    BETIME time;
    ASSERT_TRUE(TIMEBASE::convert(&time, "2000/10/03 14:05:09:5"));
    EXPECT_EQ(time.weekday, 2);
    EXPECT_EQ(time.yearday, 276);
    EXPECT_EQ(time.microsecond, 500000u);
    ASSERT_TRUE(TIMEBASE::convert(&time, "2000/02/31")); // normalised like the platform does
    EXPECT_EQ(time.month, 3);
    EXPECT_EQ(time.day, 2);
    EXPECT_FALSE(TIMEBASE::convert(&time, static_cast<const char *>(nullptr)));
}

TEST(TIMEBASEText, FormatsAndRoundTrips) {
    char text[TIMEBASE::kDateTextSize];
    BETIME time;
    EXPECT_TRUE(TIMEBASE::convert(text, sizeof text, &time, false));
    EXPECT_STREQ(text, "None");
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3 + 42, true));
    EXPECT_TRUE(TIMEBASE::convert(text, sizeof text, &time, false));
    EXPECT_STREQ(text, "2000/10/03 14:05:09");
    EXPECT_TRUE(TIMEBASE::convert(text, sizeof text, &time, true));
    EXPECT_STREQ(text, "2000/10/03 14:05:09:000042");
    BETIME back;
    ASSERT_TRUE(TIMEBASE::convert(&back, text));
    int64_t usecs = 0;
    ASSERT_TRUE(TIMEBASE::convert(&usecs, &back, true));
    EXPECT_EQ(usecs, kOct3 + 42);
    time.month = 13;
    EXPECT_FALSE(TIMEBASE::convert(text, sizeof text, &time, false));
    EXPECT_STREQ(text, "None");
    EXPECT_FALSE(TIMEBASE::convert(&usecs, &time, true));
    EXPECT_EQ(usecs, 0);
}

TEST(TIMEBASEConvert, BreakDownLimits) {
    BETIME time;
    EXPECT_FALSE(TIMEBASE::convert(&time, -1, true));
    EXPECT_TRUE(time.cleared());
    EXPECT_TRUE(TIMEBASE::convert(&time, 0, true));
    EXPECT_TRUE(time.cleared());
    EXPECT_TRUE(TIMEBASE::convert(&time, 1924991999 * kSec, true));  // 2030/12/31 23:59:59
    EXPECT_FALSE(TIMEBASE::convert(&time, 1924992000 * kSec, true)); // 2031
    EXPECT_TRUE(time.cleared());
    EXPECT_FALSE(TIMEBASE::convert(&time, INT64_MAX, true));
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3 + 7, true));
    EXPECT_EQ(time.hour, 14);
    EXPECT_EQ(time.microsecond, 7u);
    EXPECT_STREQ(time.zone, "GMT");
    EXPECT_EQ(time.gmtOffset, 0);
}

TEST(TIMEBASEConvert, LocalTimeRoundTripsThroughTheAutumnHour) {
    ZONE zone(kPacific);
    BETIME time;
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3, false));
    EXPECT_EQ(time.hour, 7);
    EXPECT_TRUE(time.daylight);
    EXPECT_EQ(time.gmtOffset, -7 * 3600 * kSec);
    // 2000-11-05 from 06:00 to 12:00 UTC: 01:00-02:00 local happens twice.
    for (int64_t t = 973404000; t <= 973425600; t += 900) {
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
    BETIME time;
    ASSERT_TRUE(TIMEBASE::convert(&time, kOct3, true));
    struct tm tm {};
    TIMEBASE::convert(&tm, &time);
    EXPECT_EQ(tm.tm_year, 100);
    EXPECT_EQ(tm.tm_mon, 9);
    EXPECT_EQ(tm.tm_mday, 3);
    EXPECT_EQ(tm.tm_wday, 2);
    BETIME back;
    TIMEBASE::convert(&back, &tm);
    EXPECT_EQ(back.year, 2000);
    EXPECT_EQ(back.month, 10);
    EXPECT_STREQ(back.zone, "GMT");
    tm.tm_year = 70000; // does not wrap into a plausible year
    TIMEBASE::convert(&back, &tm);
    EXPECT_FALSE(back.validate());
}

TEST(TIMEBASEConvert, SecondsAndThirtyTwoBitValues) {
    EXPECT_EQ(TIMEBASE::convert32(INT32_MIN), INT64_MIN);
    EXPECT_EQ(TIMEBASE::convert32(INT32_MAX), INT64_MAX);
    EXPECT_EQ(TIMEBASE::convert32(-5), -5 * kSec);
    EXPECT_EQ(TIMEBASE::seconds(0), 0);
    EXPECT_EQ(TIMEBASE::seconds(1), 1);
    EXPECT_EQ(TIMEBASE::seconds(1000000), 1);
    EXPECT_EQ(TIMEBASE::seconds(1000001), 2);
    EXPECT_EQ(TIMEBASE::seconds(-1500000), -1);
}

TEST(TIMEBASENames, MonthsWeekdaysAndHalfDays) {
    EXPECT_STREQ(TIMEBASE::month(5, true), "May");
    EXPECT_STREQ(TIMEBASE::month(5, false), "May");
    EXPECT_STREQ(TIMEBASE::month(9, true), "September");
    EXPECT_STREQ(TIMEBASE::month(9, false), "Sep");
    EXPECT_STREQ(TIMEBASE::month(0, true), "");
    EXPECT_STREQ(TIMEBASE::month(13, false), "");
    EXPECT_EQ(TIMEBASE::month("dec"), 12);
    EXPECT_EQ(TIMEBASE::month("DECEMBER"), 12);
    EXPECT_EQ(TIMEBASE::month("Decem"), 0);
    EXPECT_STREQ(TIMEBASE::weekday(0, true), "Sunday");
    EXPECT_STREQ(TIMEBASE::weekday(6, false), "Sat");
    EXPECT_STREQ(TIMEBASE::weekday(7, false), "");
    EXPECT_EQ(TIMEBASE::weekday("sun"), 0);
    EXPECT_EQ(TIMEBASE::weekday("Funday"), -1);
    struct {
        unsigned hour, twelve;
        bool pm;
    } hours[] = {{0, 12, false}, {1, 1, false}, {11, 11, false},
                 {12, 12, true}, {13, 1, true}, {23, 11, true}};
    for (const auto &h : hours) {
        bool pm = !h.pm;
        EXPECT_EQ(TIMEBASE::ampm(h.hour, &pm), h.twelve) << h.hour;
        EXPECT_EQ(pm, h.pm) << h.hour;
    }
    EXPECT_STREQ(TIMEBASE::ampm(true), "PM");
    EXPECT_STREQ(TIMEBASE::ampm(false), "AM");
}

TEST(TIMEBASEZone, SuffixTexts) {
    struct {
        int64_t offset;
        const char *text;
    } cases[] = {{0, "GMT"},
                 {-7 * 3600 * kSec, "-0700"},
                 {(5 * 3600 + 30 * 60) * kSec, "+0530"},
                 {-(3 * 3600 + 30 * 60) * kSec, "-0330"},
                 {14 * 3600 * kSec, "+1400"}};
    for (const auto &c : cases) {
        char text[TIMEBASE::kZoneTextSize];
        TIMEBASE::timezoneStr(text, sizeof text, c.offset);
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
    gFakeWall = kOct3;
    EXPECT_EQ(TIMEBASE::timezone(), -7 * 3600 * kSec);
    EXPECT_TRUE(TIMEBASE::daylight());
    char text[TIMEBASE::kZoneTextSize];
    TIMEBASE::timezoneStr(text, sizeof text);
    EXPECT_STREQ(text, "-0700");
    gFakeWall = 947000000 * kSec; // January 2000
    EXPECT_EQ(TIMEBASE::timezone(), -8 * 3600 * kSec);
    EXPECT_FALSE(TIMEBASE::daylight());
    char now[TIMEBASE::kDateTextSize];
    TIMEBASE::timeGetStr(now, sizeof now);
    EXPECT_STREQ(now, "2000/01/04 07:33:20");
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
    char text[TIMEBASE::kShortTextSize];
    {
        ZONE zone("UTC0");
        TIMEBASE::timeFormat(text, sizeof text, kOct3);
        EXPECT_STREQ(text, "Oct 3 2000 2:05PM");
        TIMEBASE::timeFormat(text, sizeof text, 970531500 * kSec); // 00:05
        EXPECT_STREQ(text, "Oct 3 2000 12:05AM");
        TIMEBASE::timeFormat(text, sizeof text, 0);
        EXPECT_STREQ(text, "None");
    }
    ZONE zone(kPacific);
    TIMEBASE::timeFormat(text, sizeof text, kOct3);
    EXPECT_STREQ(text, "Oct 3 2000 7:05AM");
}

struct DURATIONCASE {
    const char *name;
    int64_t usecs;
    const char *length, *run, *runMicro, *unit;
};
class TIMEBASEDuration : public testing::TestWithParam<DURATIONCASE> {};

const DURATIONCASE kDurations[] = {
    {"zero", 0, "00:00:00", "0 seconds", "0.000000 seconds", "0 seconds"},
    {"one_usec", 1, "00:00:01", "1 second", "0.000001 seconds", "1 microsecond"},
    {"one_and_a_half_ms", 1500, "00:00:01", "1 second", "0.001500 seconds", "1500 microseconds"},
    {"one_ms", 1000, "00:00:01", "1 second", "0.001000 seconds", "1 millisecond"},
    {"one_second", kSec, "00:00:01", "1 second", "1.000000 second", "1 second"},
    {"two_and_a_half", 2500000, "00:00:03", "3 seconds", "2.500000 seconds", "2500 milliseconds"},
    {"ninety_seconds", 90 * kSec, "00:01:30", "1 minute, 30 seconds", "1 minute, 30.000000 seconds",
     "90 seconds"},
    {"two_hours", 7200 * kSec, "02:00:00", "2 hours, 0 minutes, 0 seconds",
     "2 hours, 0 minutes, 0.000000 seconds", "2 hours"},
    {"day_hour_minute_second", 90061 * kSec, "25:01:01", "1 day, 1 hour, 1 minute, 1 second",
     "1 day, 1 hour, 1 minute, 1.000000 second", "90061 seconds"},
    {"one_week", 604800 * kSec, "99:59:59", "7 days, 0 hours, 0 minutes, 0 seconds",
     "7 days, 0 hours, 0 minutes, 0.000000 seconds", "1 week"},
    {"length_cap", 400000 * kSec, "99:59:59", "4 days, 15 hours, 6 minutes, 40 seconds",
     "4 days, 15 hours, 6 minutes, 40.000000 seconds", "400000 seconds"},
    {"negative_day", -86400 * kSec, "24:00:00", "1 day, 0 hours, 0 minutes, 0 seconds",
     "1 day, 0 hours, 0 minutes, 0.000000 seconds", "-1 day"},
    {"negative_minutes", -120 * kSec, "00:02:00", "2 minutes, 0 seconds",
     "2 minutes, 0.000000 seconds", "-2 minutes"},
    {"smallest", INT64_MIN, "99:59:59", "106751991 days, 4 hours, 0 minutes, 54 seconds",
     "106751991 days, 4 hours, 0 minutes, 54.775808 seconds", "-9223372036854775808 microseconds"},
};

TEST_P(TIMEBASEDuration, Texts) {
    const DURATIONCASE &c = GetParam();
    char text[TIMEBASE::kRunTextSize];
    TIMEBASE::lengthStr(text, sizeof text, c.usecs);
    EXPECT_STREQ(text, c.length);
    TIMEBASE::runStr(text, sizeof text, c.usecs, false);
    EXPECT_STREQ(text, c.run);
    TIMEBASE::runStr(text, sizeof text, c.usecs, true);
    EXPECT_STREQ(text, c.runMicro);
    TIMEBASE::usecs(text, sizeof text, c.usecs);
    EXPECT_STREQ(text, c.unit);
    int64_t back = 1;
    ASSERT_TRUE(TIMEBASE::usecs(&back, text));
    EXPECT_EQ(back, c.usecs);
}

INSTANTIATE_TEST_SUITE_P(Cases, TIMEBASEDuration, testing::ValuesIn(kDurations),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(TIMEBASEDuration, ParsingEitherOrder) {
    struct {
        const char *text;
        bool ok;
        int64_t usecs;
    } cases[] = {
        {"5", true, 5 * kSec},
        {"min 3", true, 180 * kSec},
        {"3 MIN", true, 180 * kSec},
        {"  -2   hrs ", true, -7200 * kSec},
        {"+4 w", true, 4 * 604800 * kSec},
        {"10 ms", true, 10000},
        {"usecs 7", true, 7},
        {"3 fortnights", false, 0},
        {"1 2", false, 0},
        {"sec min", false, 0},
        {"sec", false, 0},
        {"", false, 0},
        {"1 sec 2", false, 0},
        {"1sec", false, 0},
        {"+", false, 0},
        {"9223372036854775807 us", true, INT64_MAX},
        {"9223372036854775807 s", false, 0},
        {"9223372036854775808", false, 0},
        {"12345678901234567890 us", false, 0},
    };
    for (const auto &c : cases) {
        int64_t value = 99;
        EXPECT_EQ(TIMEBASE::usecs(&value, c.text), c.ok) << c.text;
        EXPECT_EQ(value, c.usecs) << c.text;
    }
    int64_t value = 99;
    EXPECT_FALSE(TIMEBASE::usecs(&value, nullptr));
    EXPECT_EQ(value, 0);
    std::string longUnit = "1 " + std::string(TIMEBASE::kTokenMax + 1, 's');
    EXPECT_FALSE(TIMEBASE::usecs(&value, longUnit.c_str()));
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
