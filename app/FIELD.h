// The typed value converter behind settings: each value type to and from its text form.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>

#include "base/STR.h"

// A colour as settings keep it; alpha 255 is opaque and is then not written.
struct RGBCOLOR {
    uint8_t red;
    uint8_t green;
    uint8_t blue;
    uint8_t alpha;
};

class FIELD {
public:
    enum TYPE : uint32_t {
        Unknown = 0,
        Bool = 1,
        DateTime = 2,
        Double = 3,
        Float = 4,
        Int16 = 5,
        Int32 = 6,
        Int64 = 7,
        Phnum = 8,
        RGB = 9,
        String = 10,
        Uint8 = 11,
        Uint16 = 12,
        Uint32 = 13,
        Uint64 = 14,
        Microseconds = 15,
    };

    // What convert reports. Empty counts as success; 2 and above are failures that leave the
    // destination unchanged.
    enum RESULT : int32_t {
        Converted = 0,
        Empty = 1,
        BelowMin = 2,
        AboveMax = 3,
        Refused = 4,
        NotUnderstood = 5,
    };

    // A limit at either end of the 64-bit range means no limit at that end.
    static constexpr long long kNoMin = LLONG_MIN;
    static constexpr long long kNoMax = LLONG_MAX;
    // Size of a text buffer that holds any value's text form.
    static constexpr size_t kTextSize = 151;
    // The bool texts used when an item has no name table.
    static constexpr const char *kOff = "Off";
    static constexpr const char *kOn = "On";

    using VALIDATOR = bool (*)(const void *value);
    using SAVEFUNC = RESULT (*)(char *text, unsigned long textSize, const void *value,
                                unsigned long valueSize, const STR::INDEX *names);
    // Parses text into value (valueSize bytes) and checks the limits; value may be written
    // even on failure, so callers parse into scratch space.
    using LOADFUNC = RESULT (*)(void *value, unsigned long valueSize, const char *text,
                                const STR::INDEX *names, long long min, long long max);

    struct INFO {
        const char *name;
        TYPE type;
        unsigned long size; // 0 when the variable's own size counts (strings)
        SAVEFUNC save;
        LOADFUNC load;
    };
    // One row per type, in type number order, Unknown first.
    static const INFO info[];

    // Converts between a typed value and its text form (type String on one side): String to
    // typed parses, applies names, limits and the validator, and writes dst only when the
    // value is accepted; typed to String writes the text (a value without a name writes
    // "[Unknown]" and answers NotUnderstood). String to String copies with the length limits.
    // An empty text answers Empty and sets the value to zero.
    static RESULT convert(TYPE to, void *dst, TYPE from, const void *src, unsigned long dstSize,
                          unsigned long srcSize, const STR::INDEX *names, long long min,
                          long long max, VALIDATOR validator);
    // The row of a type; the Unknown row for numbers out of range.
    static const INFO &infoGet(TYPE type);

    // The text forms, one function per type.
    struct SAVE {
        static RESULT Bool(char *, unsigned long, const void *, unsigned long, const STR::INDEX *);
        static RESULT DateTime(char *, unsigned long, const void *, unsigned long,
                               const STR::INDEX *);
        static RESULT Double(char *, unsigned long, const void *, unsigned long,
                             const STR::INDEX *);
        static RESULT Float(char *, unsigned long, const void *, unsigned long, const STR::INDEX *);
        static RESULT Integer(char *, unsigned long, const void *, unsigned long,
                              const STR::INDEX *);
        static RESULT Unsigned(char *, unsigned long, const void *, unsigned long,
                               const STR::INDEX *);
        static RESULT Phnum(char *, unsigned long, const void *, unsigned long, const STR::INDEX *);
        static RESULT RGB(char *, unsigned long, const void *, unsigned long, const STR::INDEX *);
        static RESULT String(char *, unsigned long, const void *, unsigned long,
                             const STR::INDEX *);
        static RESULT Microseconds(char *, unsigned long, const void *, unsigned long,
                                   const STR::INDEX *);
    };
    struct LOAD {
        static RESULT Bool(void *, unsigned long, const char *, const STR::INDEX *, long long,
                           long long);
        static RESULT DateTime(void *, unsigned long, const char *, const STR::INDEX *, long long,
                               long long);
        static RESULT Double(void *, unsigned long, const char *, const STR::INDEX *, long long,
                             long long);
        static RESULT Float(void *, unsigned long, const char *, const STR::INDEX *, long long,
                            long long);
        static RESULT Int16(void *, unsigned long, const char *, const STR::INDEX *, long long,
                            long long);
        static RESULT Int32(void *, unsigned long, const char *, const STR::INDEX *, long long,
                            long long);
        static RESULT Int64(void *, unsigned long, const char *, const STR::INDEX *, long long,
                            long long);
        static RESULT Phnum(void *, unsigned long, const char *, const STR::INDEX *, long long,
                            long long);
        static RESULT RGB(void *, unsigned long, const char *, const STR::INDEX *, long long,
                          long long);
        static RESULT String(void *, unsigned long, const char *, const STR::INDEX *, long long,
                             long long);
        static RESULT Uint8(void *, unsigned long, const char *, const STR::INDEX *, long long,
                            long long);
        static RESULT Uint16(void *, unsigned long, const char *, const STR::INDEX *, long long,
                             long long);
        static RESULT Uint32(void *, unsigned long, const char *, const STR::INDEX *, long long,
                             long long);
        static RESULT Uint64(void *, unsigned long, const char *, const STR::INDEX *, long long,
                             long long);
        static RESULT Microseconds(void *, unsigned long, const char *, const STR::INDEX *,
                                   long long, long long);
    };
};
