// RatioTime_fromNumber, RatioTime_fromNumberOver and RatioTime_truncate on any double (the first
// 8 bytes, bit for bit, so NaN, infinities, huge and denormal values all come) and any
// denominator (the next 8): the results keep the header's promises.
#include <cmath>

#include "FuzzCheck.h"
#include "FuzzFields.h"
#include "RatioTime.h"

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

bool inRange(double x) { return x >= -kTwoTo63 && x < kTwoTo63; }

void checkTruncate(double x) {
    const int64_t whole = RatioTime_truncate(x);
    if (inRange(x)) fuzzCheck(static_cast<double>(whole) == std::trunc(x), "truncate: toward zero");
    else fuzzCheck(whole == INT64_MIN, "truncate: NaN or out of range gives INT64_MIN");
}

void checkFromNumber(double x) {
    const RatioTime value = RatioTime_fromNumber(x);
    if (inRange(x) && std::trunc(x) == x) {
        fuzzCheck(value.denominator == 1 && static_cast<double>(value.numerator) == x, "fromNumber: whole x is x/1");
        return;
    }
    fuzzCheck(value.denominator == 600, "fromNumber: other x is over 600");
    // Where x * 600 fits with room to spare, the value lies within one step of 1/600 toward zero
    // from x; far past, nothing is representable. The rounding of the three steps decides between.
    const double scaled = std::fabs(x * 600.0);
    if (scaled < kTwoTo63 / 2) {
        const long double error = static_cast<long double>(x) - static_cast<long double>(value.numerator) / 600.0L;
        const long double slack = std::fabs(static_cast<long double>(x)) * 0x1p-50L;
        fuzzCheck(std::fabs(error) <= 1.0L / 600.0L + slack, "fromNumber: within 1/600 of x");
        fuzzCheck(value.numerator == 0 || (value.numerator < 0) == (x < 0), "fromNumber: the sign of x");
    } else if (!(scaled < kTwoTo63 * 2)) {
        fuzzCheck(value.numerator == INT64_MIN, "fromNumber: unrepresentable gives INT64_MIN");
    }
}

void checkFromNumberOver(double x, int64_t denominator) {
    const RatioTime value = RatioTime_fromNumberOver(x, denominator);
    fuzzCheck(value.denominator == denominator, "fromNumberOver: keeps the denominator");
    if (!inRange(x * static_cast<double>(denominator))) {
        fuzzCheck(value.numerator == INT64_MIN, "fromNumberOver: unrepresentable gives INT64_MIN");
        return;
    }
    // The numerator is x * denominator to within one, as far as the double product can tell.
    const long double exact = static_cast<long double>(x) * static_cast<long double>(denominator);
    const long double slack = std::fabs(exact) * 0x1p-50L;
    fuzzCheck(std::fabs(exact - static_cast<long double>(value.numerator)) <= 1.0L + slack,
              "fromNumberOver: within one of x * denominator");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const double x = rawAt<double>(data, size, 0);
    const int64_t denominator = rawAt<int64_t>(data, size, 8);
    checkTruncate(x);
    checkFromNumber(x);
    checkFromNumberOver(x, denominator);
    return 0;
}
