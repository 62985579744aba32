// The Usenet date parser against real-world Date header forms with known UTC seconds.
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "base/ParseDate.h"
#include "tests/support/TESTTABLE.h"

namespace {

struct DATECASE {
    std::string name, text;
    int64_t seconds; // 0: nothing usable
};
class ParseDateForms : public testing::TestWithParam<DATECASE> {};

std::vector<DATECASE> forms() {
    std::vector<DATECASE> cases;
    for (const testtable::ROW &row : testtable::read("dates.txt"))
        cases.push_back({row[0], row[1], std::stoll(row[2])});
    return cases;
}

TEST_P(ParseDateForms, GivesUtcSeconds) {
    const DATECASE &c = GetParam();
    for (int64_t seconds : {parsedate(c.text.c_str()), parsedate(std::string_view(c.text))}) {
        if (c.seconds > 0) {
            EXPECT_EQ(seconds, c.seconds) << c.text;
        } else {
            EXPECT_LE(seconds, 0) << c.text;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Table, ParseDateForms, testing::ValuesIn(forms()),
                         [](const auto &info) { return info.param.name; });

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
