// printf-style formatting into a std::string, for alert and console texts.
#pragma once

#include <cstdarg>
#include <string>

std::string textVFormat(const char *format, va_list args);
std::string textFormat(const char *format, ...) __attribute__((format(printf, 1, 2)));
