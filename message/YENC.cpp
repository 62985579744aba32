// yEnc keyword lines and data lines.
#include "message/YENC.h"

#include <cstdlib>
#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

constexpr unsigned char kOffset = 42;
constexpr unsigned char kEscapeOffset = 64;

// The value of a key on a keyword line ("size=123"), or npos.
size_t valueAt(std::string_view line, std::string_view key) {
    for (size_t at = line.find(key); at != std::string_view::npos; at = line.find(key, at + 1)) {
        if (at > 0 && line[at - 1] == ' ')
            return at + key.size();
    }
    return std::string_view::npos;
}

bool number(std::string_view line, std::string_view key, int base, uint64_t *value) {
    size_t at = valueAt(line, key);
    if (at == std::string_view::npos)
        return false;
    std::string digits;
    while (at < line.size() && line[at] != ' ' && digits.size() < 20)
        digits += line[at++];
    char *end = nullptr;
    unsigned long long parsed = strtoull(digits.c_str(), &end, base);
    if (digits.empty() || *end != '\0')
        return false;
    *value = parsed;
    return true;
}

} // namespace

YENC::LINE YENC::kind(std::string_view line) {
    // Data lines outnumber the others by far: one look tells most of them.
    if (line.size() < 5 || line[0] != '=' || line[1] != 'y')
        return kData;
    if (line.substr(0, 8) == "=ybegin ")
        return kBegin;
    if (line.substr(0, 7) == "=ypart ")
        return kPart;
    if (line.substr(0, 5) == "=yend" && (line.size() == 5 || line[5] == ' '))
        return kEnd;
    return kData;
}

void YENC::parse(std::string_view line, HEADER *header) {
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n'))
        line.remove_suffix(1);
    const LINE which = kind(line);
    if (which == kData)
        return;
    uint64_t value = 0;
    if (which == kBegin) {
        if (number(line, "part=", 10, &value)) {
            header->part = uint32_t(value);
            header->hasPart = true;
        }
        if (number(line, "total=", 10, &value))
            header->total = uint32_t(value);
        number(line, "size=", 10, &header->size);
        // The name is last and may hold blanks: it runs to the end of the line.
        if (size_t at = valueAt(line, "name="); at != std::string_view::npos)
            header->name.assign(line.substr(at));
    } else if (which == kPart) {
        number(line, "begin=", 10, &header->begin);
        number(line, "end=", 10, &header->end);
    } else {
        number(line, "size=", 10, &header->partSize);
        if (number(line, "pcrc32=", 16, &value)) {
            header->pcrc32 = uint32_t(value);
            header->hasPcrc32 = true;
        }
        if (number(line, "crc32=", 16, &value)) {
            header->crc32 = uint32_t(value);
            header->hasCrc32 = true;
        }
    }
}

size_t YENC::decode(std::string_view line, char *out) {
    const auto *in = reinterpret_cast<const unsigned char *>(line.data());
    const size_t length = line.size();
    auto *to = reinterpret_cast<unsigned char *>(out);
    size_t count = 0;
    size_t i = 0;
#ifdef __SSE2__
    // Sixteen bytes at a time while none of them needs a second look: nearly all of them.
    const __m128i offset = _mm_set1_epi8(char(kOffset));
    const __m128i escape = _mm_set1_epi8('=');
    const __m128i cr = _mm_set1_epi8('\r');
    const __m128i lf = _mm_set1_epi8('\n');
    while (i + 16 <= length) {
        __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(in + i));
        __m128i special =
            _mm_or_si128(_mm_cmpeq_epi8(bytes, escape),
                         _mm_or_si128(_mm_cmpeq_epi8(bytes, cr), _mm_cmpeq_epi8(bytes, lf)));
        int mask = _mm_movemask_epi8(special);
        if (mask != 0) {
            // The plain bytes before the first special one, then that one the slow way.
            int plain = __builtin_ctz(unsigned(mask));
            for (int k = 0; k < plain; ++k)
                to[count++] = static_cast<unsigned char>(in[i + size_t(k)] - kOffset);
            i += size_t(plain);
            unsigned char c = in[i];
            if (c == '=') {
                if (++i == length)
                    return count;
                to[count++] = static_cast<unsigned char>(in[i] - kEscapeOffset - kOffset);
            }
            ++i;
            continue;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i *>(to + count), _mm_sub_epi8(bytes, offset));
        count += 16;
        i += 16;
    }
#endif
    for (; i < length; ++i) {
        unsigned char c = in[i];
        if (c == '\r' || c == '\n')
            continue;
        if (c == '=') {
            if (++i == length)
                break;
            c = static_cast<unsigned char>(in[i] - kEscapeOffset);
        }
        to[count++] = static_cast<unsigned char>(c - kOffset);
    }
    return count;
}
