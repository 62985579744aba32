// The message windows and workers exchange: a four-character code with named, typed fields.
#include "base/MESSAGE.h"

std::string MESSAGE::whatText() const {
    std::string text(4, ' ');
    for (int i = 0; i < 4; ++i)
        text[static_cast<size_t>(i)] = static_cast<char>((what >> (24 - 8 * i)) & 0xff);
    return text;
}

void MESSAGE::_add(std::string_view name, VALUE value) {
    fFields.push_back(FIELD{std::string(name), std::move(value)});
}

const MESSAGE::VALUE *MESSAGE::_find(std::string_view name, size_t index) const {
    for (const FIELD &field : fFields) {
        if (field.name != name)
            continue;
        if (index == 0)
            return &field.value;
        --index;
    }
    return nullptr;
}

size_t MESSAGE::countOf(std::string_view name) const {
    size_t count = 0;
    for (const FIELD &field : fFields)
        if (field.name == name)
            ++count;
    return count;
}

bool MESSAGE::findBool(std::string_view name, bool *value, size_t index) const {
    return _get(name, value, index);
}
bool MESSAGE::findInt32(std::string_view name, int32_t *value, size_t index) const {
    return _get(name, value, index);
}
bool MESSAGE::findInt64(std::string_view name, int64_t *value, size_t index) const {
    return _get(name, value, index);
}
bool MESSAGE::findDouble(std::string_view name, double *value, size_t index) const {
    return _get(name, value, index);
}
bool MESSAGE::findString(std::string_view name, std::string *value, size_t index) const {
    return _get(name, value, index);
}
bool MESSAGE::findPointer(std::string_view name, void **value, size_t index) const {
    return _get(name, value, index);
}
