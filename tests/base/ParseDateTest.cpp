// The Usenet date parser against real-world Date header forms with known UTC seconds.
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/ParseDate.h"

namespace {

struct DATECASE {
    const char *name, *text;
    int64_t seconds; // computed independently from the calendar fields and the zone; 0: none
};
class ParseDateForms : public testing::TestWithParam<DATECASE> {};

const DATECASE kForms[] = {
    {"own_form", "Tue, 3 Oct 2000 14:05:09 -0700", 970607109},
    {"rfc5322_zero_day", "Tue, 03 Oct 2000 14:05:09 +0000", 970581909},
    {"no_weekday", "3 Oct 2000 14:05:09 -0700", 970607109},
    {"east_offset", "Wed, 04 Oct 2000 09:15:00 +0200", 970643700},
    {"half_hour_offset", "Thu, 05 Oct 2000 18:30:00 +0530", 970750800},
    {"quarter_offset", "Fri, 6 Oct 2000 01:00:00 +0545", 970773300},
    {"newfoundland", "Sat, 7 Oct 2000 12:00:00 -0330", 970932600},
    {"gmt", "Sun, 8 Oct 2000 23:59:59 GMT", 971049599},
    {"ut", "Mon, 9 Oct 2000 00:00:00 UT", 971049600},
    {"utc", "Mon, 9 Oct 2000 00:00:01 UTC", 971049601},
    {"z", "Mon, 9 Oct 2000 00:00:02 Z", 971049602},
    {"est", "Tue, 10 Oct 2000 10:00:00 EST", 971190000},
    {"edt", "Tue, 10 Oct 2000 10:00:00 EDT", 971186400},
    {"cst", "Tue, 10 Oct 2000 10:00:00 CST", 971193600},
    {"cdt", "Tue, 10 Oct 2000 10:00:00 CDT", 971190000},
    {"mst", "Tue, 10 Oct 2000 10:00:00 MST", 971197200},
    {"mdt", "Tue, 10 Oct 2000 10:00:00 MDT", 971193600},
    {"pst", "Tue, 10 Oct 2000 10:00:00 PST", 971200800},
    {"pdt", "Tue, 10 Oct 2000 10:00:00 PDT", 971197200},
    {"military_a", "Tue, 10 Oct 2000 10:00:00 A", 971168400},
    {"military_m", "Tue, 10 Oct 2000 10:00:00 M", 971128800},
    {"military_n", "Tue, 10 Oct 2000 10:00:00 N", 971175600},
    {"military_y", "Tue, 10 Oct 2000 10:00:00 Y", 971215200},
    {"two_digit_year", "Tue, 3 Oct 00 14:05:09 -0700", 970607109},
    {"two_digit_year_90s", "Fri, 13 Mar 98 08:00:00 GMT", 889776000},
    {"three_digit_year", "Tue, 3 Oct 100 14:05:09 GMT", 970581909},
    {"no_seconds", "Tue, 3 Oct 2000 14:05 -0700", 970607100},
    {"comment_zone", "Tue, 3 Oct 2000 14:05:09 -0700 (PDT)", 970607109},
    {"comment_nested", "Tue, 3 Oct 2000 14:05:09 +0100 (GMT (Standard) Time)", 970578309},
    {"comment_only_zone", "Tue, 3 Oct 2000 14:05:09 (PDT)", 970581909},
    {"lower_case", "tue, 3 oct 2000 14:05:09 gmt", 970581909},
    {"upper_case", "TUE, 3 OCT 2000 14:05:09 PDT", 970607109},
    {"extra_blanks", "  Tue,  3   Oct  2000   14:05:09   -0700  ", 970607109},
    {"tabs", "Tue,\t3 Oct 2000\t14:05:09 -0700", 970607109},
    {"no_zone", "Tue, 3 Oct 2000 14:05:09", 970581909},
    {"no_comma", "Tue 3 Oct 2000 14:05:09 +0000", 970581909},
    {"full_names", "Tuesday, 3 October 2000 14:05:09 +0000", 970581909},
    {"sept", "Sun, 17 Sept 2000 11:11:11 +0000", 969189071},
    {"rfc850", "Tuesday, 03-Oct-00 14:05:09 GMT", 970581909},
    {"rfc850_four_digit", "Tuesday, 03-Oct-2000 14:05:09 GMT", 970581909},
    {"asctime", "Tue Oct  3 14:05:09 2000", 970581909},
    {"asctime_zone", "Tue Oct  3 14:05:09 PDT 2000", 970607109},
    {"month_first", "Oct 3 2000 14:05:09 GMT", 970581909},
    {"numeric_and_name", "Tue, 3 Oct 2000 14:05:09 -0700 PDT", 970607109},
    {"gmt_plus", "Tue, 3 Oct 2000 14:05:09 GMT+0200", 970574709},
    {"js_style", "Tue Oct 03 2000 14:05:09 GMT+0200 (CEST)", 970574709},
    {"named_europe", "Tue, 3 Oct 2000 14:05:09 CEST", 970574709},
    {"iso", "2000-10-03 14:05:09", 970581909},
    {"iso_t_z", "2000-10-03T14:05:09Z", 970581909},
    {"iso_colon_offset", "2000-10-03T14:05:09-07:00", 970607109},
    {"fraction", "Tue, 3 Oct 2000 14:05:09.250 +0000", 970581909},
    {"am_pm", "Tue, 3 Oct 2000 2:05:09 PM -0700", 970607109},
    {"midnight_am", "Tue, 3 Oct 2000 12:05:09 AM +0000", 970531509},
    {"leap_day", "Tue, 29 Feb 2000 12:00:00 +0000", 951825600},
    {"single_digit_hour", "Tue, 3 Oct 2000 4:05:09 +0000", 970545909},
    {"date_only", "3 Oct 2000", 970531200},
    {"year_1970", "Thu, 1 Jan 1970 00:00:01 +0000", 1},
    {"far_future", "Sat, 1 Jan 2050 00:00:00 +0000", 2524608000},
    {"offset_crosses_day", "Mon, 31 Dec 2001 23:30:00 -0100", 1009845000},
    {"y2038", "Tue, 19 Jan 2038 03:14:08 +0000", 2147483648},
    {"dotted_date", "03.10.2000 14:05:09 +0200", 970574709},
    {"slash_us_date", "10/03/2000 14:05:09 GMT", 970581909},
    {"wrong_weekday", "Fri, 3 Oct 2000 14:05:09 +0000", 970581909},
    {"unknown_zone_word", "Tue, 3 Oct 2000 14:05:09 XYZT", 970581909},
    {"met_dst", "Mon, 3 Oct 1994 14:05:09 MET DST", 781185909},
    {"dst_after_offset", "Mon, 3 Oct 1994 14:05:09 +0100 MET DST", 781189509},
    // Nothing usable: a value of 0 or less.
    {"empty", "", 0},
    {"blanks", "   ", 0},
    {"words", "hello world", 0},
    {"no_day", "Oct 2000 14:05:09", 0},
    {"no_year", "Tue, 3 Oct 14:05:09 +0000", 0},
    {"no_month", "Tue, 3 2000 14:05:09", 0},
    {"feb_30", "30 Feb 2000 12:00:00 +0000", 0},
    {"feb_29_nonleap", "29 Feb 2001 12:00:00 +0000", 0},
    {"day_32", "32 Oct 2000", 0},
    {"hour_24", "3 Oct 2000 24:00:00 +0000", 0},
    {"minute_60", "3 Oct 2000 23:60:00 +0000", 0},
    {"offset_minutes_bad", "3 Oct 2000 14:05:09 +0075", 0},
    {"two_times", "3 Oct 2000 14:05:09 15:00:00", 0},
    {"two_months", "3 Oct Nov 2000", 0},
    {"two_offsets", "3 Oct 2000 14:05:09 +0100 +0200", 0},
    {"before_1970", "Wed, 31 Dec 1969 23:59:59 +0000", 0},
    {"epoch", "Thu, 1 Jan 1970 00:00:00 +0000", 0},
    {"huge_number", "3 Oct 20000000000 14:05:09", 0},
    {"pm_hour_13", "3 Oct 2000 13:05 PM", 0},
    {"unclosed_comment", "(Tue, 3 Oct 2000 14:05:09 +0000", 0},
    {"only_comment", "(3 Oct 2000 14:05:09)", 0},
};

TEST_P(ParseDateForms, GivesUtcSeconds) {
    const DATECASE &c = GetParam();
    for (int64_t seconds : {parsedate(c.text), parsedate(std::string_view(c.text))}) {
        if (c.seconds > 0) {
            EXPECT_EQ(seconds, c.seconds) << c.text;
        } else {
            EXPECT_LE(seconds, 0) << c.text;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ParseDateForms, testing::ValuesIn(kForms),
                         [](const auto &info) { return std::string(info.param.name); });

TEST(ParseDate, NullOverlongAndUnterminatedInput) {
    EXPECT_LE(parsedate(static_cast<const char *>(nullptr)), 0);
    std::string padded = "Tue, 3 Oct 2000 14:05:09 -0700" + std::string(2000, ' ');
    EXPECT_LE(parsedate(padded.c_str()), 0);
    // A view into a longer buffer reads only its own bytes.
    const char buffer[] = "3 Oct 2000 14:05:09 -0700 and more";
    EXPECT_EQ(parsedate(std::string_view(buffer, 25)), 970607109);
    EXPECT_EQ(parsedate(std::string_view(buffer, 10)), 970531200);
}

// Random bytes of every length, in exactly sized heap buffers so that the sanitizer build
// catches any read past the end. Date-like pieces are mixed in to reach deeper paths.
TEST(ParseDate, GarbageNeverCrashes) {
    std::mt19937 random(11);
    const char *pieces[] = {"Tue, ", "3 ", "Oct ",        "2000 ", "14:05:09 ", "-0700", "(",
                            ")",     "\\", "+",           "-",     ":",         "GMT",   "PM",
                            "/",     ".",  "99999999999", "T",     "12:",       "-07:"};
    for (int round = 0; round < 20000; round++) {
        std::string text;
        size_t parts = random() % (round % 20 == 0 ? 400 : 12); // some past the 1000 limit
        for (size_t i = 0; i < parts; i++) {
            if (random() % 2)
                text += pieces[random() % (sizeof pieces / sizeof *pieces)];
            else
                text += char(random());
        }
        std::vector<char> exact(text.begin(), text.end());
        int64_t seconds = parsedate(std::string_view(exact.data(), exact.size()));
        // Whatever was read is a date of years 1970 to 9999.
        EXPECT_LT(seconds, int64_t(253402300800)) << text;
    }
}

} // namespace
