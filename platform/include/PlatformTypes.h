/* The platform's basic types and failure codes under their published names: HRESULT, GUID, the
 * integer and string typedefs, and the HRESULT values the toolkit and this layer use. Plain data;
 * usable from any thread. Wide strings are wchar_t (32-bit here; the toolkit never depends on the
 * width). */
#ifndef KY_PLATFORM_TYPES_H
#define KY_PLATFORM_TYPES_H

#include <cstdint>
#include <cstring>

#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

typedef int32_t HRESULT;
typedef int32_t BOOL;
typedef int32_t LONG;
typedef int32_t INT;
typedef uint32_t UINT;
typedef uint32_t ULONG;
typedef uint32_t DWORD;
typedef uint32_t UINT32;
typedef uint64_t UINT64;
typedef uint64_t ULONGLONG;
typedef int64_t LONGLONG;
typedef int64_t MFTIME;
typedef uint16_t WORD;
typedef uint8_t BYTE;
typedef uint8_t UINT8;
typedef wchar_t WCHAR;

// Media times and durations (MFTIME, LONGLONG positions) count 100-ns units.
constexpr LONGLONG kHundredNanosecondsPerSecond = 10000000;
typedef wchar_t* LPWSTR;
typedef wchar_t* PWSTR;
typedef const wchar_t* LPCWSTR;
typedef const wchar_t* PCWSTR;

/* The largest side of a decoded frame, a grabbed picture, a window and what is drawn in it. GDI+
 * bitmaps are bounded by their bytes instead (GdiPlusFlat.h). */
constexpr INT kLargestPictureSide = 16384;

#ifndef TRUE
#define TRUE 1
#define FALSE 0
#endif

#define SUCCEEDED(hr) (((HRESULT)(hr)) >= 0)
#define FAILED(hr) (((HRESULT)(hr)) < 0)

struct GUID {
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];
};
typedef GUID IID;
typedef GUID CLSID;
typedef const GUID& REFGUID;
typedef const IID& REFIID;

inline bool operator==(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof(GUID)) == 0; }
inline bool operator!=(const GUID& a, const GUID& b) { return !(a == b); }

extern const GUID GUID_NULL;

constexpr HRESULT MakeHResult(uint32_t value) { return static_cast<HRESULT>(value); }

// Generic codes.
constexpr HRESULT S_OK = 0;
constexpr HRESULT S_FALSE = 1;
constexpr HRESULT E_NOTIMPL = MakeHResult(0x80004001);
constexpr HRESULT E_NOINTERFACE = MakeHResult(0x80004002);
constexpr HRESULT E_POINTER = MakeHResult(0x80004003);
constexpr HRESULT E_ABORT = MakeHResult(0x80004004);
constexpr HRESULT E_FAIL = MakeHResult(0x80004005);
constexpr HRESULT E_UNEXPECTED = MakeHResult(0x8000FFFF);
constexpr HRESULT E_ACCESSDENIED = MakeHResult(0x80070005);
constexpr HRESULT E_HANDLE = MakeHResult(0x80070006);
constexpr HRESULT E_OUTOFMEMORY = MakeHResult(0x8007000E);
constexpr HRESULT E_INVALIDARG = MakeHResult(0x80070057);

// Win32 errors as HRESULTs (HRESULT_FROM_WIN32).
constexpr HRESULT HRESULT_FROM_WIN32_FILE_NOT_FOUND = MakeHResult(0x80070002);
constexpr HRESULT HRESULT_FROM_WIN32_PATH_NOT_FOUND = MakeHResult(0x80070003);
constexpr HRESULT HRESULT_FROM_WIN32_HANDLE_EOF = MakeHResult(0x80070026);
constexpr HRESULT E_NOT_SUFFICIENT_BUFFER = MakeHResult(0x8007007A);
constexpr HRESULT HRESULT_FROM_WIN32_INVALID_NAME = MakeHResult(0x8007007B);

// Media Foundation codes.
constexpr HRESULT MF_E_INVALIDREQUEST = MakeHResult(0xC00D36B2);
constexpr HRESULT MF_E_INVALIDSTREAMNUMBER = MakeHResult(0xC00D36B3);
constexpr HRESULT MF_E_INVALIDMEDIATYPE = MakeHResult(0xC00D36B4);
constexpr HRESULT MF_E_NOT_INITIALIZED = MakeHResult(0xC00D36B6);
constexpr HRESULT MF_E_NO_MORE_TYPES = MakeHResult(0xC00D36B9);
constexpr HRESULT MF_E_INVALIDTYPE = MakeHResult(0xC00D36BD);
constexpr HRESULT MF_E_UNSUPPORTED_SCHEME = MakeHResult(0xC00D36C3);
constexpr HRESULT MF_E_UNSUPPORTED_BYTESTREAM_TYPE = MakeHResult(0xC00D36C4);
constexpr HRESULT MF_E_INVALID_POSITION = MakeHResult(0xC00D36E5);
constexpr HRESULT MF_E_ATTRIBUTENOTFOUND = MakeHResult(0xC00D36E6);
constexpr HRESULT MF_E_SESSION_PAUSEWHILESTOPPED = MakeHResult(0xC00D36FC);
constexpr HRESULT MF_E_END_OF_STREAM = MakeHResult(0xC00D3E84);
constexpr HRESULT MF_E_SHUTDOWN = MakeHResult(0xC00D3E85);
constexpr HRESULT MF_E_BAD_STARTUP_VERSION = MakeHResult(0xC00D36E3);
constexpr HRESULT MF_E_INVALID_FORMAT = MakeHResult(0xC00D3E8C);
constexpr HRESULT MF_E_TOPO_CODEC_NOT_FOUND = MakeHResult(0xC00D5212);

KY_PLATFORM_EXPORTS_END

#endif
