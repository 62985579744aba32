// Reads the Date header forms found in real Usenet articles.
#pragma once

#include <cstdint>
#include <string_view>

// Seconds since 1970 UTC of an RFC 5322 date (with or without weekday, 2- or 4-digit year,
// numeric or named zone, military letters), an RFC 850 date, an asctime date, or one of the
// common broken forms (no seconds, a trailing comment such as "(PDT)", lower-case names,
// extra blanks, no zone meaning GMT). A value of 0 or less when nothing sensible is there.
int64_t parsedate(const char *text);
int64_t parsedate(std::string_view text);
