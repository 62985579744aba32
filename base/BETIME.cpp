// A time broken down into calendar fields, with the validity window the date texts use.
#include "base/BETIME.h"

void BETIME::clear() {
    *this = BETIME();
}

bool BETIME::cleared() const {
    return hour == 0 && minute == 0 && second == 0 && microsecond == 0 && day == 0 && month == 0 &&
           year == 0 && weekday == 0 && yearday == 0 && !daylight && gmtOffset == 0 && zone[0] == 0;
}

bool BETIME::validate() const {
    return year >= kYearFirst && year <= kYearLast && month >= 1 && month <= 12 && day >= 1 &&
           day <= 31 && weekday <= 6 && hour <= 23 && minute <= 59 && second <= 59 &&
           microsecond <= 999'999;
}
