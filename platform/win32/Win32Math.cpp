// MulDiv: the product through 64 bits, divided with rounding half away from zero.
#include "Win32.h"

INT MulDiv(INT number, INT numerator, INT denominator) {
    if (denominator == 0) return -1;
    const int64_t product = static_cast<int64_t>(number) * numerator;
    const bool negative = (product < 0) != (denominator < 0);
    const uint64_t magnitude = product < 0 ? 0 - static_cast<uint64_t>(product) : static_cast<uint64_t>(product);
    const uint64_t divisor = denominator < 0 ? 0 - static_cast<uint64_t>(static_cast<int64_t>(denominator))
                                             : static_cast<uint64_t>(denominator);
    const uint64_t quotient = (magnitude + divisor / 2) / divisor;
    // Windows answers -1 for a result outside -2147483647..2147483647.
    if (quotient > static_cast<uint64_t>(INT32_MAX)) return -1;
    return negative ? -static_cast<INT>(quotient) : static_cast<INT>(quotient);
}
