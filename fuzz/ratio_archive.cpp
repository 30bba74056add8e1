// RatioTime_unarchive on any text: it must read exactly what sscanf's "%16llx/%16llx" reads (its
// fast path for the archive's own form included), and a value it reads must come back unchanged
// from its own archive text.
#include <cstdio>
#include <string>

#include "FuzzCheck.h"
#include "RatioTime.h"

namespace {

bool same(const RatioTime& a, const RatioTime& b) {
    return a.numerator == b.numerator && a.denominator == b.denominator;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const RatioTime untouched{0x5555, 0x7777};
    RatioTime value = untouched;
    const int fields = RatioTime_unarchive(text.c_str(), &value);

    unsigned long long numerator = 0;
    unsigned long long denominator = 0;
    const int scanned = std::sscanf(text.c_str(), "%16llx/%16llx", &numerator, &denominator);
    const RatioTime expected{scanned >= 1 ? static_cast<int64_t>(numerator) : untouched.numerator,
                             scanned >= 2 ? static_cast<int64_t>(denominator) : untouched.denominator};
    fuzzCheck(fields == (scanned < 0 ? 0 : scanned), "unarchive: as many fields as sscanf");
    fuzzCheck(same(value, expected), "unarchive: the values sscanf reads, the others untouched");

    char archived[RatioTime_archiveLength + 1];
    RatioTime_archive(value, archived);
    RatioTime again{0, 1};
    fuzzCheck(RatioTime_unarchive(archived, &again) == 2 && same(again, value), "archive then unarchive");
    return 0;
}
