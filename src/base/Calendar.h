#pragma once

#include <cstdint>

namespace vn::calendar {

// Days counted from 1970-01-01 and proleptic Gregorian dates, one from the other, by arithmetic
// alone (exact for every day a 64-bit count of seconds can name). Dates are written and read
// on every row of a history, where the C calendar functions cost more than the rest of the row.

struct CivilDate {
    int64_t year;
    unsigned month;  // 1 to 12
    unsigned day;    // 1 to 31
};

inline CivilDate civilFromDays(int64_t days) {
    // In eras of 400 years counted from 0000-03-01, so that the leap day ends a year.
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const auto dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shifted = (5 * dayOfYear + 2) / 153;
    const unsigned day = dayOfYear - (153 * shifted + 2) / 5 + 1;
    const unsigned month = shifted < 10 ? shifted + 3 : shifted - 9;
    return {static_cast<int64_t>(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0), month, day};
}

inline int64_t daysFromCivil(int64_t year, unsigned month, unsigned day) {
    year -= month <= 2;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const auto yearOfEra = static_cast<unsigned>(year - era * 400);
    const unsigned dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const unsigned dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + static_cast<int64_t>(dayOfEra) - 719468;
}

// The day and the second within it of a count of seconds from 1970-01-01 00:00.
inline void splitSeconds(int64_t seconds, int64_t& days, int64_t& secondOfDay) {
    days = (seconds >= 0 ? seconds : seconds - 86399) / 86400;
    secondOfDay = seconds - days * 86400;
}

}  // namespace vn::calendar
