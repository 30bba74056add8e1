/* RatioTime: an exact time or rate held as a fraction of two signed 64-bit integers.
 *
 * Pure arithmetic with no dependency on Lua or the host. Every operation works on values owned
 * by the caller, allocates nothing, cannot fail and may be called from any thread. Products and
 * sums wrap modulo 2^64 without notice; fractions are reduced by the primes 2, 3, 5, 7, 11 and 13
 * only. Preconditions (a positive denominator, a non-zero divisor) are the caller's to test. */
#ifndef VIDEO_TOOLKIT_RATIO_TIME_H
#define VIDEO_TOOLKIT_RATIO_TIME_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* numerator / denominator; the sign lives in numerator, denominator > 0 in every valid value. */
typedef struct RatioTime {
    int64_t numerator;
    int64_t denominator;
} RatioTime;

/* Reduces by the six fixed primes; a zero denominator or numerator gives 0/1. */
void RatioTime_normalize(RatioTime* value);
/* value = value + sign * other, normalised; sign is +1 or -1. */
void RatioTime_addSigned(RatioTime* value, const RatioTime* other, int32_t sign);
RatioTime RatioTime_multiply(RatioTime a, RatioTime b);
/* Requires divisor.numerator != 0 and divisor.denominator != 0. */
RatioTime RatioTime_divide(RatioTime dividend, RatioTime divisor);
/* Requires value.numerator != 0. */
RatioTime RatioTime_inverse(RatioTime value);
/* numerator and denominator each rounded to double, then divided. */
static inline double RatioTime_toNumber(RatioTime value) {
    return (double)value.numerator / (double)value.denominator;
}
/* A whole x gives x/1; any other x gives trunc(x*8*25*3)/600. Not normalised. */
RatioTime RatioTime_fromNumber(double x);
/* trunc(x * denominator) / denominator. Not normalised. */
RatioTime RatioTime_fromNumberOver(double x, int64_t denominator);
/* Truncates toward zero; NaN or a value outside int64_t gives INT64_MIN. */
int64_t RatioTime_truncate(double x);

/* The archive text: "%016llx/%016llx" of the two fields as unsigned 64-bit patterns, exactly
 * RatioTime_archiveLength bytes, written with a terminating NUL after them. */
enum { RatioTime_archiveLength = 33 };
void RatioTime_archive(RatioTime value, char text[RatioTime_archiveLength + 1]);
/* Reads text as sscanf's "%16llx/%16llx" does, into the fields it reaches (the others keep their
 * value); returns how many it read. text must be NUL-terminated. */
int RatioTime_unarchive(const char* text, RatioTime* value);

/* Comparisons go through RatioTime_toNumber on both sides. Inline: they are on every hot path. */
static inline int RatioTime_equal(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) == RatioTime_toNumber(b); }
static inline int RatioTime_less(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) < RatioTime_toNumber(b); }
static inline int RatioTime_lessEqual(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) <= RatioTime_toNumber(b); }
static inline int RatioTime_greater(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) > RatioTime_toNumber(b); }
static inline int RatioTime_greaterEqual(RatioTime a, RatioTime b) { return RatioTime_toNumber(a) >= RatioTime_toNumber(b); }

#ifdef __cplusplus
}
#endif

#endif
