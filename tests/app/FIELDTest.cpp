// The typed value converter: every type's text form both ways, names, limits, validators.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "app/FIELD.h"

namespace {
const STR::INDEX kYesNo[] = {{0, "No"}, {1, "Yes"}, {0, nullptr}};
const STR::INDEX kLog[] = {{0, "Off"}, {0, "None"}, {1, "Actions"}, {0, nullptr}};

// One value read from text: the bytes expected in the variable are given as text again
// (the value written back), so each row also proves the round trip.
struct LOADCASE {
    const char *name;
    FIELD::TYPE type;
    unsigned long size;
    const char *text;
    const STR::INDEX *names;
    long long min;
    long long max;
    FIELD::RESULT result;
    const char *written; // the variable saved again; null when the load failed
};

constexpr long long kNoMin = FIELD::kNoMin;
constexpr long long kNoMax = FIELD::kNoMax;

const LOADCASE kLoadCases[] = {
    {"bool_names", FIELD::Bool, 1, "yes", kYesNo, kNoMin, kNoMax, FIELD::Converted, "Yes"},
    {"bool_names_unknown", FIELD::Bool, 1, "On", kYesNo, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"bool_plain_on", FIELD::Bool, 1, "ON", nullptr, kNoMin, kNoMax, FIELD::Converted, "On"},
    {"bool_plain_yes_refused", FIELD::Bool, 1, "Yes", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"int16_negative", FIELD::Int16, 2, "-32768", nullptr, kNoMin, kNoMax, FIELD::Converted,
     "-32768"},
    {"int16_past_type", FIELD::Int16, 2, "40000", nullptr, -2147483648LL, 2147483647LL,
     FIELD::AboveMax, nullptr},
    {"int32_plus_sign", FIELD::Int32, 4, "+17", nullptr, kNoMin, kNoMax, FIELD::Converted, "17"},
    {"int64_min", FIELD::Int64, 8, "-9223372036854775808", nullptr, kNoMin, kNoMax,
     FIELD::Converted, "-9223372036854775808"},
    {"int64_overflow", FIELD::Int64, 8, "9223372036854775808", nullptr, kNoMin, kNoMax,
     FIELD::AboveMax, nullptr},
    {"int32_garbage", FIELD::Int32, 4, "12abc", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"uint16_below_min", FIELD::Uint16, 2, "40", nullptr, 50, 80, FIELD::BelowMin, nullptr},
    {"uint16_above_max", FIELD::Uint16, 2, "81", nullptr, 50, 80, FIELD::AboveMax, nullptr},
    {"uint16_at_max", FIELD::Uint16, 2, "80", nullptr, 50, 80, FIELD::Converted, "80"},
    {"uint8_negative", FIELD::Uint8, 1, "-1", nullptr, kNoMin, kNoMax, FIELD::BelowMin, nullptr},
    {"uint8_past_type", FIELD::Uint8, 1, "256", nullptr, kNoMin, kNoMax, FIELD::AboveMax, nullptr},
    {"uint32_by_name", FIELD::Uint32, 4, "none", kLog, 0, 2, FIELD::Converted, "Off"},
    {"uint32_by_number", FIELD::Uint32, 4, "1", kLog, 0, 2, FIELD::Converted, "Actions"},
    {"uint32_unknown_name", FIELD::Uint32, 4, "Loud", kLog, 0, 2, FIELD::NotUnderstood, nullptr},
    {"uint64_top", FIELD::Uint64, 8, "18446744073709551615", nullptr, kNoMin, kNoMax,
     FIELD::Converted, "18446744073709551615"},
    {"uint64_limited", FIELD::Uint64, 8, "18446744073709551615", nullptr, kNoMin, 100,
     FIELD::AboveMax, nullptr},
    {"float", FIELD::Float, 4, "12.5", nullptr, -2147483648LL, 2147483647LL, FIELD::Converted,
     "12.500000"},
    {"float_above_limit", FIELD::Float, 4, "3e9", nullptr, -2147483648LL, 2147483647LL,
     FIELD::AboveMax, nullptr},
    {"float_nan", FIELD::Float, 4, "nan", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood, nullptr},
    {"double_hex_refused", FIELD::Double, 8, "0x10", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"double", FIELD::Double, 8, "-0.25", nullptr, kNoMin, kNoMax, FIELD::Converted, "-0.250000"},
    {"rgb_three", FIELD::RGB, 4, "186 201 209", nullptr, kNoMin, kNoMax, FIELD::Converted,
     "186 201 209"},
    {"rgb_short_digits", FIELD::RGB, 4, "0 0  229", nullptr, kNoMin, kNoMax, FIELD::Converted,
     "000 000 229"},
    {"rgb_alpha", FIELD::RGB, 4, "1 2 3 128", nullptr, kNoMin, kNoMax, FIELD::Converted,
     "001 002 003 128"},
    {"rgb_opaque_alpha_dropped", FIELD::RGB, 4, "1 2 3 255", nullptr, kNoMin, kNoMax,
     FIELD::Converted, "001 002 003"},
    {"rgb_above_255", FIELD::RGB, 4, "1 2 256", nullptr, kNoMin, kNoMax, FIELD::AboveMax, nullptr},
    {"rgb_four_digits", FIELD::RGB, 4, "1 2 0003", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"rgb_two_numbers", FIELD::RGB, 4, "1 2", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"rgb_five_numbers", FIELD::RGB, 4, "1 2 3 4 5", nullptr, kNoMin, kNoMax, FIELD::NotUnderstood,
     nullptr},
    {"string", FIELD::String, 81, "/home/user/data", nullptr, 4, 80, FIELD::Converted,
     "/home/user/data"},
    {"string_short", FIELD::String, 81, "/h", nullptr, 4, 80, FIELD::BelowMin, nullptr},
    {"string_past_buffer", FIELD::String, 8, "12345678", nullptr, 0, kNoMax, FIELD::AboveMax,
     nullptr},
    {"microseconds_days", FIELD::Microseconds, 8, "180 days", nullptr, 0, 315360000000000LL,
     FIELD::Converted, "180 days"},
    {"microseconds_plain_seconds", FIELD::Microseconds, 8, "5", nullptr, kNoMin, kNoMax,
     FIELD::Converted, "5 seconds"},
    {"microseconds_above", FIELD::Microseconds, 8, "31 seconds", nullptr, 0, 30000000,
     FIELD::AboveMax, nullptr},
    {"microseconds_unknown_unit", FIELD::Microseconds, 8, "3 fortnights", nullptr, kNoMin, kNoMax,
     FIELD::NotUnderstood, nullptr},
    {"datetime", FIELD::DateTime, 8, "2000/10/03 14:05:09", nullptr, kNoMin, kNoMax,
     FIELD::Converted, "2000/10/03 14:05:09"},
    {"datetime_micro", FIELD::DateTime, 8, "2000/10/03 14:05:09:5", nullptr, kNoMin, kNoMax,
     FIELD::Converted, "2000/10/03 14:05:09:500000"},
    {"datetime_bad_year", FIELD::DateTime, 8, "00/10/03", nullptr, kNoMin, kNoMax,
     FIELD::NotUnderstood, nullptr},
    {"phnum", FIELD::Phnum, 101, "+1 (555) 010-9999", nullptr, 0, 100, FIELD::Converted,
     "+1 (555) 010-9999"},
    {"phnum_letters", FIELD::Phnum, 101, "call me", nullptr, 0, 100, FIELD::NotUnderstood, nullptr},
};

class FieldLoad : public testing::TestWithParam<LOADCASE> {};

TEST_P(FieldLoad, ReadsAndWritesBack) {
    const LOADCASE &c = GetParam();
    unsigned char value[128];
    std::memset(value, 0xA5, sizeof value);
    FIELD::RESULT result = FIELD::convert(c.type, value, FIELD::String, c.text, c.size,
                                          std::strlen(c.text) + 1, c.names, c.min, c.max, nullptr);
    EXPECT_EQ(result, c.result);
    if (c.written == nullptr) {
        // A refused value leaves the variable exactly as it was.
        for (unsigned long i = 0; i < c.size; ++i)
            ASSERT_EQ(value[i], 0xA5) << "byte " << i;
        return;
    }
    char text[FIELD::kTextSize];
    EXPECT_EQ(FIELD::convert(FIELD::String, text, c.type, value, sizeof text, c.size, c.names,
                             c.min, c.max, nullptr),
              FIELD::Converted);
    EXPECT_STREQ(text, c.written);
}

INSTANTIATE_TEST_SUITE_P(Field, FieldLoad, testing::ValuesIn(kLoadCases),
                         [](const testing::TestParamInfo<LOADCASE> &info) {
                             return std::string(info.param.name);
                         });

TEST(Field, EmptyTextZeroesTheValueAndCountsAsSuccess) {
    uint32_t value = 77;
    EXPECT_EQ(FIELD::convert(FIELD::Uint32, &value, FIELD::String, "", sizeof value, 1, nullptr, 1,
                             3, nullptr),
              FIELD::Empty);
    EXPECT_EQ(value, 0u);
}

TEST(Field, ValidatorRefusalKeepsTheValue) {
    uint32_t value = 7;
    auto odd = [](const void *v) { return *static_cast<const uint32_t *>(v) % 2 == 1; };
    EXPECT_EQ(FIELD::convert(FIELD::Uint32, &value, FIELD::String, "10", sizeof value, 3, nullptr,
                             0, 100, odd),
              FIELD::Refused);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(FIELD::convert(FIELD::Uint32, &value, FIELD::String, "11", sizeof value, 3, nullptr,
                             0, 100, odd),
              FIELD::Converted);
    EXPECT_EQ(value, 11u);
}

TEST(Field, ValueWithoutANameIsWrittenUnknown) {
    uint32_t value = 9;
    char text[FIELD::kTextSize];
    EXPECT_EQ(FIELD::convert(FIELD::String, text, FIELD::Uint32, &value, sizeof text, sizeof value,
                             kLog, 0, 2, nullptr),
              FIELD::NotUnderstood);
    EXPECT_STREQ(text, "[Unknown]");
}

TEST(Field, WrongSizeOrTypeIsNotUnderstood) {
    uint32_t value = 0;
    EXPECT_EQ(FIELD::convert(FIELD::Uint16, &value, FIELD::String, "1", sizeof value, 2, nullptr,
                             kNoMin, kNoMax, nullptr),
              FIELD::NotUnderstood);
    EXPECT_EQ(FIELD::convert(FIELD::Uint32, &value, FIELD::Int32, &value, sizeof value,
                             sizeof value, nullptr, kNoMin, kNoMax, nullptr),
              FIELD::NotUnderstood);
    EXPECT_STREQ(FIELD::infoGet(FIELD::TYPE(99)).name, "[Unknown]");
    EXPECT_STREQ(FIELD::infoGet(FIELD::Microseconds).name, "Microseconds");
}
} // namespace
