// SystemTimeToTzSpecificLocalTime against the tz database: offsets and daylight rules of real
// zones, the day of week, and the dates Windows refuses.
#include <gtest/gtest.h>

#include <cstring>
#include <ostream>

#include "ScopedTimeZone.h"
#include "Win32.h"

namespace {

SYSTEMTIME makeTime(int year, int month, int day, int hour, int minute, int second, int milliseconds = 0,
                    int dayOfWeek = 0) {
    const auto w = [](int value) { return static_cast<WORD>(value); };
    return SYSTEMTIME{w(year), w(month), w(dayOfWeek), w(day), w(hour), w(minute), w(second), w(milliseconds)};
}

// A value no conversion produces, to see that a refused call leaves its output alone.
SYSTEMTIME untouched() { return makeTime(7777, 7, 7, 7, 7, 7, 7, 7); }

}  // namespace

// Eight WORDs, no padding.
bool operator==(const SYSTEMTIME& a, const SYSTEMTIME& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

void PrintTo(const SYSTEMTIME& t, std::ostream* out) {
    *out << t.wYear << '-' << t.wMonth << '-' << t.wDay << ' ' << t.wHour << ':' << t.wMinute << ':' << t.wSecond
         << '.' << t.wMilliseconds << " dow " << t.wDayOfWeek;
}

namespace {

struct ConversionCase {
    const char* zone;
    SYSTEMTIME universal;
    SYSTEMTIME expected;
};

void PrintTo(const ConversionCase& c, std::ostream* out) {
    *out << c.zone << ' ';
    ::PrintTo(c.universal, out);
}

class Converts : public ::testing::TestWithParam<ConversionCase> {};

TEST_P(Converts, ToTheZonesWallClock) {
    ScopedTimeZone zone(GetParam().zone);
    SYSTEMTIME local = untouched();
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &GetParam().universal, &local));
    EXPECT_EQ(local, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, Converts, ::testing::Values(
    // Paris: +1 in winter, +2 in summer, switching at 01:00 UTC on the last Sundays of March and October.
    ConversionCase{"Europe/Paris", makeTime(2021, 1, 15, 12, 0, 0, 250), makeTime(2021, 1, 15, 13, 0, 0, 250, 5)},
    ConversionCase{"Europe/Paris", makeTime(2021, 7, 1, 12, 0, 0), makeTime(2021, 7, 1, 14, 0, 0, 0, 4)},
    ConversionCase{"Europe/Paris", makeTime(2021, 3, 28, 0, 59, 59, 999), makeTime(2021, 3, 28, 1, 59, 59, 999, 0)},
    ConversionCase{"Europe/Paris", makeTime(2021, 3, 28, 1, 0, 0), makeTime(2021, 3, 28, 3, 0, 0, 0, 0)},
    ConversionCase{"Europe/Paris", makeTime(2021, 10, 31, 0, 59, 59), makeTime(2021, 10, 31, 2, 59, 59, 0, 0)},
    ConversionCase{"Europe/Paris", makeTime(2021, 10, 31, 1, 0, 0), makeTime(2021, 10, 31, 2, 0, 0, 0, 0)},
    ConversionCase{"Europe/Paris", makeTime(2021, 12, 31, 23, 30, 0), makeTime(2022, 1, 1, 0, 30, 0, 0, 6)},
    // New York: -5 / -4, and the daylight rule of each year (DST began on 2 April in 2006, 11 March in 2007).
    ConversionCase{"America/New_York", makeTime(2021, 1, 15, 12, 0, 0), makeTime(2021, 1, 15, 7, 0, 0, 0, 5)},
    ConversionCase{"America/New_York", makeTime(2021, 7, 1, 12, 0, 0), makeTime(2021, 7, 1, 8, 0, 0, 0, 4)},
    ConversionCase{"America/New_York", makeTime(2021, 3, 1, 3, 0, 0), makeTime(2021, 2, 28, 22, 0, 0, 0, 0)},
    ConversionCase{"America/New_York", makeTime(2006, 3, 15, 12, 0, 0), makeTime(2006, 3, 15, 7, 0, 0, 0, 3)},
    ConversionCase{"America/New_York", makeTime(2007, 3, 15, 12, 0, 0), makeTime(2007, 3, 15, 8, 0, 0, 0, 4)},
    ConversionCase{"America/New_York", makeTime(30827, 12, 31, 23, 59, 59), makeTime(30827, 12, 31, 18, 59, 59, 0, 5)},
    // A POSIX rule 30 seconds ahead of UTC, to see the seconds converted too.
    ConversionCase{"XST-0:00:30", makeTime(2021, 3, 5, 23, 59, 45, 5), makeTime(2021, 3, 6, 0, 0, 15, 5, 6)},
    // UTC: the identity, with the day of week computed and the input's ignored.
    ConversionCase{"UTC", makeTime(2024, 2, 29, 12, 34, 56, 789, 6), makeTime(2024, 2, 29, 12, 34, 56, 789, 4)},
    ConversionCase{"UTC", makeTime(2000, 2, 29, 0, 0, 0, 0, 9), makeTime(2000, 2, 29, 0, 0, 0, 0, 2)},
    ConversionCase{"UTC", makeTime(1601, 1, 1, 0, 0, 0), makeTime(1601, 1, 1, 0, 0, 0, 0, 1)},
    ConversionCase{"UTC", makeTime(30827, 12, 31, 23, 59, 59, 999), makeTime(30827, 12, 31, 23, 59, 59, 999, 5)}));

class Refuses : public ::testing::TestWithParam<SYSTEMTIME> {};

TEST_P(Refuses, AnInvalidDateOrTimeAndLeavesTheOutput) {
    ScopedTimeZone zone("Europe/Paris");
    SYSTEMTIME local = untouched();
    SetLastError(0);
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &GetParam(), &local));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(local, untouched());
}

INSTANTIATE_TEST_SUITE_P(Table, Refuses, ::testing::Values(
    makeTime(1600, 12, 31, 23, 59, 59), makeTime(30828, 1, 1, 0, 0, 0), makeTime(0, 1, 1, 0, 0, 0),
    makeTime(2021, 0, 1, 0, 0, 0), makeTime(2021, 13, 1, 0, 0, 0), makeTime(2021, 1, 0, 0, 0, 0),
    makeTime(2021, 1, 32, 0, 0, 0), makeTime(2021, 4, 31, 0, 0, 0), makeTime(2021, 2, 29, 0, 0, 0),
    makeTime(1900, 2, 29, 0, 0, 0), makeTime(2000, 2, 30, 0, 0, 0), makeTime(2021, 1, 1, 24, 0, 0),
    makeTime(2021, 1, 1, 0, 60, 0), makeTime(2021, 1, 1, 0, 0, 60), makeTime(2021, 1, 1, 0, 0, 0, 1000),
    makeTime(2021, 257, 1, 0, 0, 0), makeTime(2021, 1, 257, 0, 0, 0),
    makeTime(65535, 65535, 65535, 65535, 65535, 65535, 65535, 65535)));

TEST(SystemTimeToTzSpecificLocalTime, RefusesAZoneArgumentAndMissingTimes) {
    ScopedTimeZone zone("UTC");
    const SYSTEMTIME universal = makeTime(2021, 1, 1, 0, 0, 0);
    const int zoneInformation = 0;
    SYSTEMTIME local = untouched();
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(&zoneInformation, &universal, &local));
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, nullptr, &local));
    EXPECT_FALSE(SystemTimeToTzSpecificLocalTime(nullptr, &universal, nullptr));
    EXPECT_EQ(local, untouched());
}

TEST(SystemTimeToTzSpecificLocalTime, FollowsTzChangedWithoutTzset) {
    ScopedTimeZone zone("Europe/Paris");
    const SYSTEMTIME universal = makeTime(2021, 1, 15, 12, 0, 0);
    SYSTEMTIME local{};
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local));
    EXPECT_EQ(local.wHour, 13);
    setenv("TZ", "America/New_York", 1);
    ASSERT_TRUE(SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local));
    EXPECT_EQ(local.wHour, 7);
}

}  // namespace
