// The last error is per thread, as on Windows, so a worker's failure never masks the main thread's.
#include "Win32.h"

namespace {
thread_local DWORD lastError = ERROR_SUCCESS;
}

DWORD GetLastError() { return lastError; }

void SetLastError(DWORD error) { lastError = error; }
