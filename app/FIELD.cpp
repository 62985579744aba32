// The typed value converter behind settings: each value type to and from its text form.
#include "app/FIELD.h"

#include <cctype>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/BETIME.h"
#include "base/TIMEBASE.h"

namespace {
using RESULT = FIELD::RESULT;

// Characters a phone number text may hold besides digits.
constexpr const char *kPhnumChars = " +-().#*/,";

RESULT textPut(char *text, unsigned long size, const char *value) {
    if (size > 0)
        STR::copy(text, value, size);
    return FIELD::Converted;
}

RESULT namePut(char *text, unsigned long size, const STR::INDEX *names, int64_t value) {
    const STR::INDEX *row = STR::indexRow(names, value);
    textPut(text, size, row != nullptr ? row->text : STR::kUnknown);
    return row != nullptr ? FIELD::Converted : FIELD::NotUnderstood;
}

// A signed decimal: optional sign, digits only. Values past the 64-bit range say which end.
RESULT parseSigned(const char *text, int64_t *value) {
    *value = 0;
    if (!STR::digits(text))
        return FIELD::NotUnderstood;
    bool negative = *text == '-';
    if (*text == '+' || *text == '-')
        ++text;
    unsigned __int128 magnitude = 0;
    for (; *text != '\0'; ++text) {
        magnitude = magnitude * 10 + unsigned(*text - '0');
        if (magnitude > (unsigned __int128)INT64_MAX + 1)
            return negative ? FIELD::BelowMin : FIELD::AboveMax;
    }
    if (!negative && magnitude > (unsigned __int128)INT64_MAX)
        return FIELD::AboveMax;
    *value = negative ? int64_t(-(__int128)magnitude) : int64_t(magnitude);
    return FIELD::Converted;
}

RESULT parseUnsigned(const char *text, uint64_t *value) {
    *value = 0;
    if (!STR::digits(text))
        return FIELD::NotUnderstood;
    if (*text == '-') {
        for (const char *p = text + 1; *p != '\0'; ++p)
            if (*p != '0')
                return FIELD::BelowMin;
        return FIELD::Converted;
    }
    if (*text == '+')
        ++text;
    unsigned __int128 magnitude = 0;
    for (; *text != '\0'; ++text) {
        magnitude = magnitude * 10 + unsigned(*text - '0');
        if (magnitude > UINT64_MAX)
            return FIELD::AboveMax;
    }
    *value = uint64_t(magnitude);
    return FIELD::Converted;
}

RESULT limitSigned(int64_t value, long long min, long long max) {
    if (min != FIELD::kNoMin && value < min)
        return FIELD::BelowMin;
    if (max != FIELD::kNoMax && value > max)
        return FIELD::AboveMax;
    return FIELD::Converted;
}

RESULT limitUnsigned(uint64_t value, long long min, long long max) {
    if (min != FIELD::kNoMin && min > 0 && value < uint64_t(min))
        return FIELD::BelowMin;
    if (max != FIELD::kNoMax && (max < 0 || value > uint64_t(max)))
        return FIELD::AboveMax;
    return FIELD::Converted;
}

RESULT limitDouble(double value, long long min, long long max) {
    if (min != FIELD::kNoMin && value < double(min))
        return FIELD::BelowMin;
    if (max != FIELD::kNoMax && value > double(max))
        return FIELD::AboveMax;
    return FIELD::Converted;
}

// Stores the low bytes of a checked number in a variable of 1, 2, 4 or 8 bytes; signed
// variables get the same two's-complement bits.
RESULT integerStore(void *value, unsigned long size, uint64_t number) {
    switch (size) {
    case 1:
        *static_cast<uint8_t *>(value) = uint8_t(number);
        break;
    case 2:
        *static_cast<uint16_t *>(value) = uint16_t(number);
        break;
    case 4:
        *static_cast<uint32_t *>(value) = uint32_t(number);
        break;
    case 8:
        *static_cast<uint64_t *>(value) = number;
        break;
    default:
        return FIELD::NotUnderstood;
    }
    return FIELD::Converted;
}

RESULT loadSigned(void *value, unsigned long size, const char *text, long long min, long long max,
                  int64_t typeMin, int64_t typeMax) {
    int64_t number = 0;
    RESULT result = parseSigned(text, &number);
    if (result != FIELD::Converted)
        return result;
    if (number < typeMin)
        return FIELD::BelowMin;
    if (number > typeMax)
        return FIELD::AboveMax;
    result = limitSigned(number, min, max);
    if (result != FIELD::Converted)
        return result;
    return integerStore(value, size, uint64_t(number));
}

// Unsigned values may also be given by a name of the item's table.
RESULT loadUnsigned(void *value, unsigned long size, const char *text, const STR::INDEX *names,
                    long long min, long long max, uint64_t typeMax) {
    uint64_t number = 0;
    int64_t named = 0;
    if (names != nullptr && STR::indexValue(names, text, &named)) {
        if (named < 0)
            return FIELD::BelowMin;
        number = uint64_t(named);
    } else {
        RESULT result = parseUnsigned(text, &number);
        if (result != FIELD::Converted)
            return result;
    }
    if (number > typeMax)
        return FIELD::AboveMax;
    RESULT result = limitUnsigned(number, min, max);
    if (result != FIELD::Converted)
        return result;
    return integerStore(value, size, number);
}

uint64_t unsignedGet(const void *value, unsigned long size) {
    switch (size) {
    case 1:
        return *static_cast<const uint8_t *>(value);
    case 2:
        return *static_cast<const uint16_t *>(value);
    case 4:
        return *static_cast<const uint32_t *>(value);
    default:
        return *static_cast<const uint64_t *>(value);
    }
}

// strtod without its leniencies: no leading blanks, no hexadecimal, no infinities.
RESULT parseDouble(const char *text, double *value) {
    *value = 0;
    if (std::strpbrk(text, "xXpP") != nullptr)
        return FIELD::NotUnderstood;
    if (!(std::isdigit((unsigned char)text[0]) || text[0] == '-' || text[0] == '+' ||
          text[0] == '.'))
        return FIELD::NotUnderstood;
    char *end = nullptr;
    double number = std::strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(number))
        return FIELD::NotUnderstood;
    *value = number;
    return FIELD::Converted;
}

size_t boundedLength(const char *text, unsigned long size) {
    return size == 0 ? 0 : strnlen(text, size);
}

RESULT loadText(void *value, unsigned long size, const char *text, long long min, long long max) {
    size_t length = std::strlen(text);
    if (min != FIELD::kNoMin && (long long)length < min)
        return FIELD::BelowMin;
    if ((max != FIELD::kNoMax && (long long)length > max) || length + 1 > size)
        return FIELD::AboveMax;
    std::memset(value, 0, size);
    std::memcpy(value, text, length);
    return FIELD::Converted;
}
} // namespace

const FIELD::INFO FIELD::info[] = {
    {"[Unknown]", Unknown, 0, nullptr, nullptr},
    {"Bool", Bool, 1, SAVE::Bool, LOAD::Bool},
    {"Date/Time", DateTime, 8, SAVE::DateTime, LOAD::DateTime},
    {"Double", Double, 8, SAVE::Double, LOAD::Double},
    {"Float", Float, 4, SAVE::Float, LOAD::Float},
    {"Int16", Int16, 2, SAVE::Integer, LOAD::Int16},
    {"Int32", Int32, 4, SAVE::Integer, LOAD::Int32},
    {"Int64", Int64, 8, SAVE::Integer, LOAD::Int64},
    {"Phnum", Phnum, 101, SAVE::Phnum, LOAD::Phnum},
    {"RGB", RGB, 4, SAVE::RGB, LOAD::RGB},
    {"String", String, 101, SAVE::String, LOAD::String},
    {"Uint8", Uint8, 1, SAVE::Unsigned, LOAD::Uint8},
    {"Uint16", Uint16, 2, SAVE::Unsigned, LOAD::Uint16},
    {"Uint32", Uint32, 4, SAVE::Unsigned, LOAD::Uint32},
    {"Uint64", Uint64, 8, SAVE::Unsigned, LOAD::Uint64},
    {"Microseconds", Microseconds, 8, SAVE::Microseconds, LOAD::Microseconds},
};

const FIELD::INFO &FIELD::infoGet(TYPE type) {
    if (type > Microseconds)
        return info[Unknown];
    return info[type];
}

FIELD::RESULT FIELD::convert(TYPE to, void *dst, TYPE from, const void *src, unsigned long dstSize,
                             unsigned long srcSize, const STR::INDEX *names, long long min,
                             long long max, VALIDATOR validator) {
    if (dst == nullptr || src == nullptr || dstSize == 0)
        return NotUnderstood;
    if (from == String) {
        const INFO &row = infoGet(to);
        // Strings and phone numbers take the variable's size; every other type has one.
        bool sized = to == String || to == Phnum;
        if (row.load == nullptr || (!sized && dstSize != row.size))
            return NotUnderstood;
        std::string text(static_cast<const char *>(src),
                         boundedLength(static_cast<const char *>(src), srcSize));
        if (text.empty()) {
            std::memset(dst, 0, dstSize);
            return Empty;
        }
        // Parsed into scratch space so that a refused value leaves the variable as it was.
        std::vector<unsigned char> scratch(dstSize, 0);
        RESULT result = row.load(scratch.data(), dstSize, text.c_str(), names, min, max);
        if (result != Converted)
            return result;
        if (validator != nullptr && !validator(scratch.data()))
            return Refused;
        std::memcpy(dst, scratch.data(), dstSize);
        return Converted;
    }
    if (to == String) {
        const INFO &row = infoGet(from);
        bool sized = from == String || from == Phnum;
        if (row.save == nullptr || (!sized && srcSize != row.size))
            return NotUnderstood;
        static_cast<char *>(dst)[0] = '\0';
        return row.save(static_cast<char *>(dst), dstSize, src, srcSize, names);
    }
    return NotUnderstood;
}

// --- Text forms ---

FIELD::RESULT FIELD::SAVE::Bool(char *text, unsigned long size, const void *value, unsigned long,
                                const STR::INDEX *names) {
    bool on = *static_cast<const bool *>(value);
    if (names != nullptr)
        return namePut(text, size, names, on ? 1 : 0);
    return textPut(text, size, on ? kOn : kOff);
}

FIELD::RESULT FIELD::LOAD::Bool(void *value, unsigned long, const char *text,
                                const STR::INDEX *names, long long, long long) {
    int64_t number = 0;
    if (names != nullptr) {
        if (!STR::indexValue(names, text, &number))
            return NotUnderstood;
    } else if (STR::iequal(text, kOn)) {
        number = 1;
    } else if (!STR::iequal(text, kOff)) {
        return NotUnderstood;
    }
    *static_cast<bool *>(value) = number != 0;
    return Converted;
}

// Date and time in GMT, the plain text form of the time values, microseconds only when set.
FIELD::RESULT FIELD::SAVE::DateTime(char *text, unsigned long size, const void *value,
                                    unsigned long, const STR::INDEX *) {
    BETIME time;
    if (!TIMEBASE::convert(&time, *static_cast<const int64_t *>(value), true)) {
        textPut(text, size, STR::kUnknown);
        return NotUnderstood;
    }
    TIMEBASE::convert(text, size, &time, time.microsecond != 0);
    return Converted;
}

FIELD::RESULT FIELD::LOAD::DateTime(void *value, unsigned long, const char *text,
                                    const STR::INDEX *, long long min, long long max) {
    BETIME time;
    int64_t usecs = 0;
    if (!TIMEBASE::convert(&time, text) || !TIMEBASE::convert(&usecs, &time, true))
        return NotUnderstood;
    RESULT result = limitSigned(usecs, min, max);
    if (result == Converted)
        *static_cast<int64_t *>(value) = usecs;
    return result;
}

FIELD::RESULT FIELD::SAVE::Double(char *text, unsigned long size, const void *value, unsigned long,
                                  const STR::INDEX *) {
    std::snprintf(text, size, "%0.6f", *static_cast<const double *>(value));
    return Converted;
}

FIELD::RESULT FIELD::LOAD::Double(void *value, unsigned long, const char *text, const STR::INDEX *,
                                  long long min, long long max) {
    double number = 0;
    RESULT result = parseDouble(text, &number);
    if (result == Converted)
        result = limitDouble(number, min, max);
    if (result == Converted)
        *static_cast<double *>(value) = number;
    return result;
}

FIELD::RESULT FIELD::SAVE::Float(char *text, unsigned long size, const void *value, unsigned long,
                                 const STR::INDEX *) {
    std::snprintf(text, size, "%0.6f", double(*static_cast<const float *>(value)));
    return Converted;
}

FIELD::RESULT FIELD::LOAD::Float(void *value, unsigned long, const char *text, const STR::INDEX *,
                                 long long min, long long max) {
    double number = 0;
    RESULT result = parseDouble(text, &number);
    if (result != Converted)
        return result;
    if (number < -FLT_MAX)
        return BelowMin;
    if (number > FLT_MAX)
        return AboveMax;
    result = limitDouble(number, min, max);
    if (result == Converted)
        *static_cast<float *>(value) = float(number);
    return result;
}

FIELD::RESULT FIELD::SAVE::Integer(char *text, unsigned long size, const void *value,
                                   unsigned long valueSize, const STR::INDEX *) {
    int64_t number = 0;
    switch (valueSize) {
    case 2:
        number = *static_cast<const int16_t *>(value);
        break;
    case 4:
        number = *static_cast<const int32_t *>(value);
        break;
    default:
        number = *static_cast<const int64_t *>(value);
        break;
    }
    std::snprintf(text, size, "%lld", (long long)number);
    return Converted;
}

FIELD::RESULT FIELD::LOAD::Int16(void *value, unsigned long size, const char *text,
                                 const STR::INDEX *, long long min, long long max) {
    return loadSigned(value, size, text, min, max, INT16_MIN, INT16_MAX);
}

FIELD::RESULT FIELD::LOAD::Int32(void *value, unsigned long size, const char *text,
                                 const STR::INDEX *, long long min, long long max) {
    return loadSigned(value, size, text, min, max, INT32_MIN, INT32_MAX);
}

FIELD::RESULT FIELD::LOAD::Int64(void *value, unsigned long size, const char *text,
                                 const STR::INDEX *, long long min, long long max) {
    return loadSigned(value, size, text, min, max, INT64_MIN, INT64_MAX);
}

FIELD::RESULT FIELD::SAVE::Unsigned(char *text, unsigned long size, const void *value,
                                    unsigned long valueSize, const STR::INDEX *names) {
    uint64_t number = unsignedGet(value, valueSize);
    if (names != nullptr)
        return namePut(text, size, names, number > uint64_t(INT64_MAX) ? -1 : int64_t(number));
    std::snprintf(text, size, "%llu", (unsigned long long)number);
    return Converted;
}

FIELD::RESULT FIELD::LOAD::Uint8(void *value, unsigned long size, const char *text,
                                 const STR::INDEX *names, long long min, long long max) {
    return loadUnsigned(value, size, text, names, min, max, UINT8_MAX);
}

FIELD::RESULT FIELD::LOAD::Uint16(void *value, unsigned long size, const char *text,
                                  const STR::INDEX *names, long long min, long long max) {
    return loadUnsigned(value, size, text, names, min, max, UINT16_MAX);
}

FIELD::RESULT FIELD::LOAD::Uint32(void *value, unsigned long size, const char *text,
                                  const STR::INDEX *names, long long min, long long max) {
    return loadUnsigned(value, size, text, names, min, max, UINT32_MAX);
}

// Uint64 is decimal only, like the signed types.
FIELD::RESULT FIELD::LOAD::Uint64(void *value, unsigned long size, const char *text,
                                  const STR::INDEX *, long long min, long long max) {
    return loadUnsigned(value, size, text, nullptr, min, max, UINT64_MAX);
}

FIELD::RESULT FIELD::SAVE::Phnum(char *text, unsigned long size, const void *value,
                                 unsigned long valueSize, const STR::INDEX *) {
    const char *number = static_cast<const char *>(value);
    STR::copy(text, std::string_view(number, boundedLength(number, valueSize)), size);
    return Converted;
}

// A phone number is digits with the usual separators; at least one digit.
FIELD::RESULT FIELD::LOAD::Phnum(void *value, unsigned long size, const char *text,
                                 const STR::INDEX *, long long min, long long max) {
    bool digit = false;
    for (const char *p = text; *p != '\0'; ++p) {
        if (std::isdigit((unsigned char)*p))
            digit = true;
        else if (std::strchr(kPhnumChars, *p) == nullptr)
            return NotUnderstood;
    }
    if (!digit)
        return NotUnderstood;
    return loadText(value, size, text, min, max);
}

FIELD::RESULT FIELD::SAVE::RGB(char *text, unsigned long size, const void *value, unsigned long,
                               const STR::INDEX *) {
    const RGBCOLOR *color = static_cast<const RGBCOLOR *>(value);
    if (color->alpha < 255)
        std::snprintf(text, size, "%03u %03u %03u %03u", color->red, color->green, color->blue,
                      color->alpha);
    else
        std::snprintf(text, size, "%03u %03u %03u", color->red, color->green, color->blue);
    return Converted;
}

// Three or four blank-separated numbers of at most three digits, each at most 255.
FIELD::RESULT FIELD::LOAD::RGB(void *value, unsigned long, const char *text, const STR::INDEX *,
                               long long, long long) {
    unsigned parts[4] = {0, 0, 0, 255};
    size_t count = 0;
    const char *p = text;
    while (*p != '\0') {
        while (*p == ' ' || *p == '\t')
            ++p;
        if (*p == '\0')
            break;
        if (count == 4)
            return NotUnderstood;
        unsigned number = 0;
        size_t digits = 0;
        for (; std::isdigit((unsigned char)*p); ++p, ++digits)
            number = number * 10 + unsigned(*p - '0');
        if (digits == 0 || digits > 3 || (*p != '\0' && *p != ' ' && *p != '\t'))
            return NotUnderstood;
        if (number > 255)
            return AboveMax;
        parts[count++] = number;
    }
    if (count < 3)
        return NotUnderstood;
    RGBCOLOR *color = static_cast<RGBCOLOR *>(value);
    color->red = uint8_t(parts[0]);
    color->green = uint8_t(parts[1]);
    color->blue = uint8_t(parts[2]);
    color->alpha = uint8_t(parts[3]);
    return Converted;
}

FIELD::RESULT FIELD::SAVE::String(char *text, unsigned long size, const void *value,
                                  unsigned long valueSize, const STR::INDEX *) {
    const char *string = static_cast<const char *>(value);
    STR::copy(text, std::string_view(string, boundedLength(string, valueSize)), size);
    return Converted;
}

// Limits of a string are its length.
FIELD::RESULT FIELD::LOAD::String(void *value, unsigned long size, const char *text,
                                  const STR::INDEX *, long long min, long long max) {
    return loadText(value, size, text, min, max);
}

FIELD::RESULT FIELD::SAVE::Microseconds(char *text, unsigned long size, const void *value,
                                        unsigned long, const STR::INDEX *) {
    TIMEBASE::usecs(text, size, *static_cast<const int64_t *>(value));
    return Converted;
}

FIELD::RESULT FIELD::LOAD::Microseconds(void *value, unsigned long, const char *text,
                                        const STR::INDEX *, long long min, long long max) {
    int64_t usecs = 0;
    if (!TIMEBASE::usecs(&usecs, text))
        return NotUnderstood;
    RESULT result = limitSigned(usecs, min, max);
    if (result == Converted)
        *static_cast<int64_t *>(value) = usecs;
    return result;
}
