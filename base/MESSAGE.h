// The message windows and workers exchange: a four-character code with named, typed fields.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// The four characters of a command code, first one most significant ("hmtr" and the like).
constexpr uint32_t fourcc(const char (&code)[5]) {
    return (uint32_t(uint8_t(code[0])) << 24) | (uint32_t(uint8_t(code[1])) << 16) |
           (uint32_t(uint8_t(code[2])) << 8) | uint32_t(uint8_t(code[3]));
}

// The same for a code known only at run time (from a table or a menu); shorter texts are
// padded with NULs.
constexpr uint32_t fourccOf(std::string_view code) {
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = (value << 8) | (i < code.size() ? uint32_t(uint8_t(code[i])) : 0);
    return value;
}

class MESSAGE {
public:
    using VALUE = std::variant<bool, int32_t, int64_t, double, std::string, void *>;

    MESSAGE() = default;
    explicit MESSAGE(uint32_t what) : what(what) {}

    uint32_t what = 0;
    // The code as its four characters, for logs and routing by the first one.
    std::string whatText() const;

    // Adding under a name that exists appends another value (the file list of a drop has one
    // value per file).
    void addBool(std::string_view name, bool value) { _add(name, value); }
    void addInt32(std::string_view name, int32_t value) { _add(name, value); }
    void addInt64(std::string_view name, int64_t value) { _add(name, value); }
    void addDouble(std::string_view name, double value) { _add(name, value); }
    void addString(std::string_view name, std::string value) { _add(name, std::move(value)); }
    void addPointer(std::string_view name, void *value) { _add(name, value); }

    // Each find leaves *value alone and returns false when the field or index is missing or
    // holds another type.
    bool findBool(std::string_view name, bool *value, size_t index = 0) const;
    bool findInt32(std::string_view name, int32_t *value, size_t index = 0) const;
    bool findInt64(std::string_view name, int64_t *value, size_t index = 0) const;
    bool findDouble(std::string_view name, double *value, size_t index = 0) const;
    bool findString(std::string_view name, std::string *value, size_t index = 0) const;
    bool findPointer(std::string_view name, void **value, size_t index = 0) const;
    size_t countOf(std::string_view name) const;

private:
    struct FIELD {
        std::string name;
        VALUE value;
    };
    std::vector<FIELD> fFields;

    void _add(std::string_view name, VALUE value);
    const VALUE *_find(std::string_view name, size_t index) const;
    template <typename T>
    bool _get(std::string_view name, T *value, size_t index) const {
        const VALUE *found = _find(name, index);
        if (found == nullptr || !std::holds_alternative<T>(*found))
            return false;
        *value = std::get<T>(*found);
        return true;
    }
};

// Anything a message can be posted to: a window, a view, a recorder in a test. Posting is
// safe from any thread and never waits for the receiver.
class MESSAGETARGET {
public:
    virtual ~MESSAGETARGET() = default;
    // False when the target cannot take messages any more (closing).
    virtual bool post(const MESSAGE &message) = 0;
};
