/* The Win32 functions the toolkit calls, on Linux: the thread's last error, message texts for
 * HRESULTs, MulDiv, time zone conversion of a SYSTEMTIME (honouring the machine's zone and its
 * daylight rule), and text conversion between wide strings, UTF-8 and the ANSI code page
 * (Windows-1252 here). Plain functions; any thread. Windows and messages: Win32Window.h; event
 * handles: Win32Event.h. */
#ifndef KY_WIN32_H
#define KY_WIN32_H

#include <cstdarg>
#include <string>

#include "PlatformTypes.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

/* Handles of kernel objects (events, Win32Event.h); null is never a valid one. */
typedef void* HANDLE;

/* The calling thread's last error: the functions of this layer that fail with FALSE, null or
 * WAIT_FAILED set it; successful calls leave it alone. */
DWORD GetLastError();
void SetLastError(DWORD error);

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_INVALID_WINDOW_HANDLE = 1400;
constexpr DWORD ERROR_CANNOT_FIND_WND_CLASS = 1407;
constexpr DWORD ERROR_CLASS_ALREADY_EXISTS = 1410;
constexpr DWORD ERROR_CLASS_HAS_WINDOWS = 1412;
constexpr DWORD ERROR_INVALID_INDEX = 1413;
constexpr DWORD ERROR_INVALID_THREAD_ID = 1444;
constexpr DWORD ERROR_NOT_ENOUGH_QUOTA = 1816;

constexpr DWORD FORMAT_MESSAGE_ALLOCATE_BUFFER = 0x100;
constexpr DWORD FORMAT_MESSAGE_IGNORE_INSERTS = 0x200;
constexpr DWORD FORMAT_MESSAGE_FROM_SYSTEM = 0x1000;

/* With FORMAT_MESSAGE_FROM_SYSTEM, the system text of messageId (an HRESULT of this layer's
 * table), one English line ending in CR LF. With FORMAT_MESSAGE_ALLOCATE_BUFFER, buffer is really
 * an LPWSTR* that receives a LocalAlloc'd text, to be freed with LocalFree. Returns the text's
 * length, or 0 when there is no text for the id in that language or it does not fit in size
 * characters. */
DWORD FormatMessageW(DWORD flags, const void* source, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD size,
                     va_list* arguments);
void* LocalFree(void* memory);

/* number * numerator / denominator through 64 bits, rounded half away from zero; -1 when
 * denominator is 0 or the result lies outside -2147483647..2147483647. */
INT MulDiv(INT number, INT numerator, INT denominator);

struct SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
};

/* universal (UTC) to local wall-clock time in the machine's zone (timeZone must be null). FALSE
 * with ERROR_INVALID_PARAMETER for an invalid date or time (month 13, day 32, a year outside
 * 1601..30827) or a null argument. */
BOOL SystemTimeToTzSpecificLocalTime(const void* timeZone, const SYSTEMTIME* universal, SYSTEMTIME* local);

constexpr UINT CP_ACP = 0;
constexpr UINT CP_UTF8 = 65001;

/* Whole-string conversions (the usual two-call Win32 forms are not needed here); any code page
 * but CP_UTF8 is the ANSI one. Characters the ANSI code page lacks become '?'. A byte that is no
 * part of valid UTF-8 becomes U+DC80..U+DCFF and turns back into that byte, so that a file name
 * survives the round trip; other lone surrogates become U+FFFD in UTF-8. */
std::string WideToMultiByte(UINT codePage, const std::wstring& text);
std::wstring MultiByteToWide(UINT codePage, const std::string& text);

KY_PLATFORM_EXPORTS_END

#endif
