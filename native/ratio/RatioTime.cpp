#include "RatioTime.h"

#include <algorithm>
#include <bit>
#include <cstdio>

namespace {

// Two's-complement wrap-around without undefined signed overflow.
int64_t wrapMul(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

int64_t wrapAdd(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

// Exact division by an odd constant without a divide instruction: multiplying by the inverse of P
// modulo 2^64 gives the quotient of every multiple of P, and |n| is a multiple exactly when that
// product for |n| is at most (2^64 - 1) / P. The loop over the primes stays the prescribed one.
constexpr uint64_t inverseModulo64(uint64_t p) {
    uint64_t x = p;  // right to 3 bits for odd p; each Newton step doubles that
    for (int i = 0; i < 5; ++i) x *= 2 - p * x;
    return x;
}

// One multiplication gives both the answer and the quotient: (-n) * inverse is -(n * inverse).
template <uint64_t P>
inline bool exactQuotient(int64_t n, int64_t* quotient) {
    const uint64_t product = static_cast<uint64_t>(n) * inverseModulo64(P);
    const uint64_t magnitude = n < 0 ? 0 - product : product;
    *quotient = static_cast<int64_t>(product);
    return magnitude <= UINT64_MAX / P;
}

template <uint64_t P>
inline void divideOut(RatioTime* value) {
    int64_t numerator = 0;
    int64_t denominator = 0;
    while (exactQuotient<P>(value->numerator, &numerator) && exactQuotient<P>(value->denominator, &denominator)) {
        value->numerator = numerator;
        value->denominator = denominator;
    }
}

// 2 first: the shared trailing zero bits. An arithmetic shift is the exact division here, since
// both fields are non-zero multiples of the power of two.
inline void divideOutTwos(RatioTime* value) {
    const int shift = std::min(std::countr_zero(static_cast<uint64_t>(value->numerator)),
                               std::countr_zero(static_cast<uint64_t>(value->denominator)));
    value->numerator >>= shift;
    value->denominator >>= shift;
}

constexpr char kHexDigits[] = "0123456789abcdef";

void writeHex(uint64_t field, char* out) {
    for (int i = 15; i >= 0; --i) {
        out[i] = kHexDigits[field & 0xF];
        field >>= 4;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Sixteen hex digits exactly, or nothing.
bool readHex16(const char* text, uint64_t* field) {
    uint64_t value = 0;
    for (int i = 0; i < 16; ++i) {
        const int digit = hexValue(text[i]);
        if (digit < 0) return false;
        value = value << 4 | static_cast<uint64_t>(digit);
    }
    *field = value;
    return true;
}

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
    divideOutTwos(value);
    divideOut<3>(value);
    divideOut<5>(value);
    divideOut<7>(value);
    divideOut<11>(value);
    divideOut<13>(value);
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

void RatioTime_archive(RatioTime value, char text[RatioTime_archiveLength + 1]) {
    writeHex(static_cast<uint64_t>(value.numerator), text);
    text[16] = '/';
    writeHex(static_cast<uint64_t>(value.denominator), text + 17);
    text[RatioTime_archiveLength] = '\0';
}

int RatioTime_unarchive(const char* text, RatioTime* value) {
    uint64_t numerator = 0;
    uint64_t denominator = 0;
    // The text archive writes; anything else (blanks, signs, 0x, short fields) takes sscanf's rules.
    if (readHex16(text, &numerator) && text[16] == '/' && readHex16(text + 17, &denominator)) {
        value->numerator = static_cast<int64_t>(numerator);
        value->denominator = static_cast<int64_t>(denominator);
        return 2;
    }
    unsigned long long scannedNumerator = 0;
    unsigned long long scannedDenominator = 0;
    const int fields = std::sscanf(text, "%16llx/%16llx", &scannedNumerator, &scannedDenominator);
    if (fields >= 1) value->numerator = static_cast<int64_t>(scannedNumerator);
    if (fields >= 2) value->denominator = static_cast<int64_t>(scannedDenominator);
    return fields < 0 ? 0 : fields;
}

}  // extern "C"
