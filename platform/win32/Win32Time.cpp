// UTC to local wall-clock time through the C library's zone rules (TZ or /etc/localtime).
#include <chrono>
#include <ctime>

#include "Win32.h"

namespace {

// The ranges Windows accepts; wDayOfWeek is not checked because Windows ignores it here.
bool isValid(const SYSTEMTIME& time) {
    // chrono's month and day hold one byte: larger values must not reach them.
    if (time.wYear < 1601 || time.wYear > 30827 || time.wMonth > 12 || time.wDay > 31) return false;
    const std::chrono::year_month_day date{std::chrono::year{time.wYear}, std::chrono::month{time.wMonth},
                                           std::chrono::day{time.wDay}};
    if (!date.ok()) return false;
    return time.wHour <= 23 && time.wMinute <= 59 && time.wSecond <= 59 && time.wMilliseconds <= 999;
}

}  // namespace

BOOL SystemTimeToTzSpecificLocalTime(const void* timeZone, const SYSTEMTIME* universal, SYSTEMTIME* local) {
    if (timeZone != nullptr || universal == nullptr || local == nullptr || !isValid(*universal)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }

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
    if (localtime_r(&instant, &wall) == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
    }

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
