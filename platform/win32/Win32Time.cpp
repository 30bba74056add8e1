// UTC to local wall-clock time through the C library's zone rules (TZ or /etc/localtime).
#include <ctime>

#include "Win32.h"

namespace {

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int year, int month) {
    static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// The ranges Windows accepts; wDayOfWeek is not checked because Windows ignores it here.
bool isValid(const SYSTEMTIME& time) {
    if (time.wYear < 1601 || time.wYear > 30827) return false;
    if (time.wMonth < 1 || time.wMonth > 12) return false;
    if (time.wDay < 1 || time.wDay > daysInMonth(time.wYear, time.wMonth)) return false;
    return time.wHour <= 23 && time.wMinute <= 59 && time.wSecond <= 59 && time.wMilliseconds <= 999;
}

}  // namespace

BOOL SystemTimeToTzSpecificLocalTime(const void* timeZone, const SYSTEMTIME* universal, SYSTEMTIME* local) {
    if (timeZone != nullptr || universal == nullptr || local == nullptr) return FALSE;
    if (!isValid(*universal)) return FALSE;

    std::tm fields{};
    fields.tm_year = universal->wYear - 1900;
    fields.tm_mon = universal->wMonth - 1;
    fields.tm_mday = universal->wDay;
    fields.tm_hour = universal->wHour;
    fields.tm_min = universal->wMinute;
    fields.tm_sec = universal->wSecond;
    const time_t instant = timegm(&fields);

    // localtime_r need not reread TZ; tzset makes a zone set since the last call take effect.
    tzset();
    std::tm wall{};
    if (localtime_r(&instant, &wall) == nullptr) return FALSE;

    const WORD milliseconds = universal->wMilliseconds;
    local->wYear = static_cast<WORD>(wall.tm_year + 1900);
    local->wMonth = static_cast<WORD>(wall.tm_mon + 1);
    local->wDayOfWeek = static_cast<WORD>(wall.tm_wday);
    local->wDay = static_cast<WORD>(wall.tm_mday);
    local->wHour = static_cast<WORD>(wall.tm_hour);
    local->wMinute = static_cast<WORD>(wall.tm_min);
    local->wSecond = static_cast<WORD>(wall.tm_sec);
    local->wMilliseconds = milliseconds;
    return TRUE;
}
