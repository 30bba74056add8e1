/* A fuzz target's property check: when it does not hold, says which one on standard error and
 * stops the process as a crash, which libFuzzer keeps as a finding. */
#ifndef VIDEO_TOOLKIT_FUZZ_CHECK_H
#define VIDEO_TOOLKIT_FUZZ_CHECK_H

#include <cstdio>

inline void fuzzCheck(bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    __builtin_trap();
}

#endif
