#include "RatioTime.h"

namespace {

// Two's-complement wrap-around without undefined signed overflow.
int64_t wrapMul(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

int64_t wrapAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

constexpr int64_t kPrimes[] = {2, 3, 5, 7, 11, 13};

// 2^63 as a double: the first value past the signed 64-bit range.
constexpr double kTwoTo63 = 9223372036854775808.0;

}  // namespace

extern "C" {

void RatioTime_normalize(RatioTime* value) {
    if (value->denominator == 0) {
        value->numerator = 0;
        value->denominator = 1;
        return;
    }
    if (value->numerator == 0) {
        value->denominator = 1;
        return;
    }
    for (int64_t p : kPrimes) {
        while (value->numerator % p == 0 && value->denominator % p == 0) {
            value->numerator /= p;
            value->denominator /= p;
        }
    }
}

void RatioTime_addSigned(RatioTime* value, const RatioTime* other, int32_t sign) {
    const int64_t a = value->numerator;
    const int64_t b = value->denominator;
    value->numerator = wrapAdd(wrapMul(wrapMul(sign, b), other->numerator), wrapMul(a, other->denominator));
    value->denominator = wrapMul(b, other->denominator);
    RatioTime_normalize(value);
}

RatioTime RatioTime_multiply(RatioTime a, RatioTime b) {
    RatioTime r{wrapMul(a.numerator, b.numerator), wrapMul(a.denominator, b.denominator)};
    RatioTime_normalize(&r);
    return r;
}

RatioTime RatioTime_divide(RatioTime dividend, RatioTime divisor) {
    RatioTime r{wrapMul(dividend.numerator, divisor.denominator),
                wrapMul(dividend.denominator, divisor.numerator)};
    RatioTime_normalize(&r);
    return r;
}

RatioTime RatioTime_inverse(RatioTime value) {
    RatioTime r{value.denominator, value.numerator};
    RatioTime_normalize(&r);
    return r;
}

double RatioTime_toNumber(RatioTime value) {
    const double n = static_cast<double>(value.numerator);
    const double d = static_cast<double>(value.denominator);
    return n / d;
}

int64_t RatioTime_truncate(double x) {
    if (!(x >= -kTwoTo63 && x < kTwoTo63)) return INT64_MIN;
    return static_cast<int64_t>(x);
}

RatioTime RatioTime_fromNumber(double x) {
    const int64_t whole = RatioTime_truncate(x);
    if (static_cast<double>(whole) == x) return RatioTime{whole, 1};
    // Three steps, not one multiplication by 600: the rounding of each step is part of the result.
    double scaled = x * 8.0;
    scaled = scaled * 25.0;
    scaled = scaled * 3.0;
    return RatioTime{RatioTime_truncate(scaled), 600};
}

RatioTime RatioTime_fromNumberOver(double x, int64_t denominator) {
    return RatioTime{RatioTime_truncate(x * static_cast<double>(denominator)), denominator};
}

int RatioTime_equal(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) == RatioTime_toNumber(b); }
int RatioTime_less(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) < RatioTime_toNumber(b); }
int RatioTime_lessEqual(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) <= RatioTime_toNumber(b); }
int RatioTime_greater(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) > RatioTime_toNumber(b); }
int RatioTime_greaterEqual(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) >= RatioTime_toNumber(b); }

}  // extern "C"
