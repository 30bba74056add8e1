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
double RatioTime_toNumber(RatioTime value);
/* A whole x gives x/1; any other x gives trunc(x*8*25*3)/600. Not normalised. */
RatioTime RatioTime_fromNumber(double x);
/* trunc(x * denominator) / denominator. Not normalised. */
RatioTime RatioTime_fromNumberOver(double x, int64_t denominator);
/* Truncates toward zero; NaN or a value outside int64_t gives INT64_MIN. */
int64_t RatioTime_truncate(double x);

/* Comparisons go through RatioTime_toNumber on both sides. */
int RatioTime_equal(RatioTime a, RatioTime b);
int RatioTime_less(RatioTime a, RatioTime b);
int RatioTime_lessEqual(RatioTime a, RatioTime b);
int RatioTime_greater(RatioTime a, RatioTime b);
int RatioTime_greaterEqual(RatioTime a, RatioTime b);

#ifdef __cplusplus
}
#endif

#endif
