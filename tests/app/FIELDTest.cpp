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
using F = FIELD;
constexpr long long kNoMin = F::kNoMin, kNoMax = F::kNoMax, kInt32Min = INT32_MIN,
                    kInt32Max = INT32_MAX;

struct LOADCASE {
    const char *name;
    F::TYPE type;
    unsigned long size;
    const char *text;
    F::RESULT result;
    const char *written; // the variable saved again; null when the load failed
    const STR::INDEX *names = nullptr;
    long long min = kNoMin, max = kNoMax;
};

const LOADCASE kLoadCases[] = {
    {"bool_names", F::Bool, 1, "yes", F::Converted, "Yes", kYesNo},
    {"bool_names_unknown", F::Bool, 1, "On", F::NotUnderstood, nullptr, kYesNo},
    {"bool_plain_on", F::Bool, 1, "ON", F::Converted, "On"},
    {"bool_plain_yes_refused", F::Bool, 1, "Yes", F::NotUnderstood, nullptr},
    {"int16_negative", F::Int16, 2, "-32768", F::Converted, "-32768"},
    {"int16_past_type", F::Int16, 2, "40000", F::AboveMax, nullptr, nullptr, kInt32Min, kInt32Max},
    {"int32_plus_sign", F::Int32, 4, "+17", F::Converted, "17"},
    {"int64_min", F::Int64, 8, "-9223372036854775808", F::Converted, "-9223372036854775808"},
    {"int64_overflow", F::Int64, 8, "9223372036854775808", F::AboveMax, nullptr},
    {"int32_garbage", F::Int32, 4, "12abc", F::NotUnderstood, nullptr},
    {"uint16_below_min", F::Uint16, 2, "40", F::BelowMin, nullptr, nullptr, 50, 80},
    {"uint16_above_max", F::Uint16, 2, "81", F::AboveMax, nullptr, nullptr, 50, 80},
    {"uint16_at_max", F::Uint16, 2, "80", F::Converted, "80", nullptr, 50, 80},
    {"uint8_negative", F::Uint8, 1, "-1", F::BelowMin, nullptr},
    {"uint8_past_type", F::Uint8, 1, "256", F::AboveMax, nullptr},
    {"uint32_by_name", F::Uint32, 4, "none", F::Converted, "Off", kLog, 0, 2},
    {"uint32_by_number", F::Uint32, 4, "1", F::Converted, "Actions", kLog, 0, 2},
    {"uint32_unknown_name", F::Uint32, 4, "Loud", F::NotUnderstood, nullptr, kLog, 0, 2},
    {"uint64_top", F::Uint64, 8, "18446744073709551615", F::Converted, "18446744073709551615"},
    {"uint64_limited", F::Uint64, 8, "18446744073709551615", F::AboveMax, nullptr, nullptr, kNoMin,
     100},
    {"float", F::Float, 4, "12.5", F::Converted, "12.500000", nullptr, kInt32Min, kInt32Max},
    {"float_above_limit", F::Float, 4, "3e9", F::AboveMax, nullptr, nullptr, kInt32Min, kInt32Max},
    {"float_nan", F::Float, 4, "nan", F::NotUnderstood, nullptr},
    {"double_hex_refused", F::Double, 8, "0x10", F::NotUnderstood, nullptr},
    {"double", F::Double, 8, "-0.25", F::Converted, "-0.250000"},
    {"rgb_three", F::RGB, 4, "186 201 209", F::Converted, "186 201 209"},
    {"rgb_short_digits", F::RGB, 4, "0 0  229", F::Converted, "000 000 229"},
    {"rgb_alpha", F::RGB, 4, "1 2 3 128", F::Converted, "001 002 003 128"},
    {"rgb_opaque_alpha_dropped", F::RGB, 4, "1 2 3 255", F::Converted, "001 002 003"},
    {"rgb_above_255", F::RGB, 4, "1 2 256", F::AboveMax, nullptr},
    {"rgb_four_digits", F::RGB, 4, "1 2 0003", F::NotUnderstood, nullptr},
    {"rgb_two_numbers", F::RGB, 4, "1 2", F::NotUnderstood, nullptr},
    {"rgb_five_numbers", F::RGB, 4, "1 2 3 4 5", F::NotUnderstood, nullptr},
    {"string", F::String, 81, "/home/user/data", F::Converted, "/home/user/data", nullptr, 4, 80},
    {"string_short", F::String, 81, "/h", F::BelowMin, nullptr, nullptr, 4, 80},
    {"string_past_buffer", F::String, 8, "12345678", F::AboveMax, nullptr, nullptr, 0},
    {"usecs_days", F::Microseconds, 8, "180 days", F::Converted, "180 days", nullptr, 0,
     315360000000000LL},
    {"usecs_plain_seconds", F::Microseconds, 8, "5", F::Converted, "5 seconds"},
    {"usecs_above", F::Microseconds, 8, "31 seconds", F::AboveMax, nullptr, nullptr, 0, 30000000},
    {"usecs_unknown_unit", F::Microseconds, 8, "3 fortnights", F::NotUnderstood, nullptr},
    {"datetime", F::DateTime, 8, "2000/10/03 14:05:09", F::Converted, "2000/10/03 14:05:09"},
    {"datetime_micro", F::DateTime, 8, "2000/10/03 14:05:09:5", F::Converted,
     "2000/10/03 14:05:09:500000"},
    {"datetime_bad_year", F::DateTime, 8, "00/10/03", F::NotUnderstood, nullptr},
    {"phnum", F::Phnum, 101, "+1 (555) 010-9999", F::Converted, "+1 (555) 010-9999", nullptr, 0,
     100},
    {"phnum_letters", F::Phnum, 101, "call me", F::NotUnderstood, nullptr, nullptr, 0, 100},
};

class FieldLoad : public testing::TestWithParam<LOADCASE> {};

TEST_P(FieldLoad, ReadsAndWritesBack) {
    const LOADCASE &c = GetParam();
    unsigned char value[128];
    std::memset(value, 0xA5, sizeof value);
    F::RESULT result = F::convert(c.type, value, F::String, c.text, c.size, std::strlen(c.text) + 1,
                                  c.names, c.min, c.max, nullptr);
    EXPECT_EQ(result, c.result);
    if (c.written == nullptr) {
        // A refused value leaves the variable exactly as it was.
        for (unsigned long i = 0; i < c.size; ++i)
            ASSERT_EQ(value[i], 0xA5) << "byte " << i;
        return;
    }
    char text[F::kTextSize];
    EXPECT_EQ(F::convert(F::String, text, c.type, value, sizeof text, c.size, c.names, c.min, c.max,
                         nullptr),
              F::Converted);
    EXPECT_STREQ(text, c.written);
}

INSTANTIATE_TEST_SUITE_P(Field, FieldLoad, testing::ValuesIn(kLoadCases),
                         [](const testing::TestParamInfo<LOADCASE> &info) {
                             return std::string(info.param.name);
                         });

// A text read into a uint32_t variable.
F::RESULT load(uint32_t *value, const char *text, long long min, long long max,
               F::VALIDATOR check = nullptr) {
    return F::convert(F::Uint32, value, F::String, text, sizeof *value, std::strlen(text) + 1,
                      nullptr, min, max, check);
}

TEST(Field, EmptyTextValidatorsAndWrongTypes) {
    uint32_t value = 77;
    EXPECT_EQ(load(&value, "", 1, 3), F::Empty) << "empty zeroes the value and counts as success";
    EXPECT_EQ(value, 0u);
    value = 7;
    auto odd = [](const void *v) { return *static_cast<const uint32_t *>(v) % 2 == 1; };
    EXPECT_EQ(load(&value, "10", 0, 100, odd), F::Refused);
    EXPECT_EQ(value, 7u);
    EXPECT_EQ(load(&value, "11", 0, 100, odd), F::Converted);
    EXPECT_EQ(value, 11u);
    value = 9;
    char text[F::kTextSize];
    EXPECT_EQ(F::convert(F::String, text, F::Uint32, &value, sizeof text, sizeof value, kLog, 0, 2,
                         nullptr),
              F::NotUnderstood);
    EXPECT_STREQ(text, "[Unknown]") << "a value without a name";
    EXPECT_EQ(F::convert(F::Uint16, &value, F::String, "1", sizeof value, 2, nullptr, kNoMin,
                         kNoMax, nullptr),
              F::NotUnderstood);
    EXPECT_EQ(F::convert(F::Uint32, &value, F::Int32, &value, sizeof value, sizeof value, nullptr,
                         kNoMin, kNoMax, nullptr),
              F::NotUnderstood);
    EXPECT_EQ(value, 9u);
}
} // namespace
