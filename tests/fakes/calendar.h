// The calendar of UTC for fake clocks, the same on every host.
#pragma once

#include <climits>
#include <cstdint>
#include <ctime>

// False where the year does not fit.
inline bool utc_calendar(int64_t time, tm *out) {
    int64_t days = time / 86400 - (time % 86400 < 0 ? 1 : 0);
    int64_t seconds = time - days * 86400;
    // Years are counted from March, in cycles of 400, so that a leap day is the last one of its year.
    int64_t from_march = days + 719468;
    int64_t cycle = (from_march >= 0 ? from_march : from_march - 146096) / 146097;
    int64_t day_of_cycle = from_march - cycle * 146097;
    int64_t year_of_cycle =
        (day_of_cycle - day_of_cycle / 1460 + day_of_cycle / 36524 - day_of_cycle / 146096) / 365;
    int64_t day_of_year = day_of_cycle - (365 * year_of_cycle + year_of_cycle / 4 - year_of_cycle / 100);
    int64_t month = (5 * day_of_year + 2) / 153;
    int64_t year = cycle * 400 + year_of_cycle + (month >= 10 ? 1 : 0) - 1900;
    if (year > INT_MAX || year < INT_MIN) return false;
    *out = {};
    out->tm_year = static_cast<int>(year);
    out->tm_mon = static_cast<int>(month < 10 ? month + 2 : month - 10);
    out->tm_mday = static_cast<int>(day_of_year - (153 * month + 2) / 5 + 1);
    out->tm_hour = static_cast<int>(seconds / 3600);
    out->tm_min = static_cast<int>(seconds / 60 % 60);
    out->tm_sec = static_cast<int>(seconds % 60);
    out->tm_wday = static_cast<int>(((days + 4) % 7 + 7) % 7);
    return true;
}
