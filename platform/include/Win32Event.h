/* Win32 event objects for signalling between threads: CreateEventW, SetEvent, ResetEvent,
 * WaitForSingleObject, CloseHandle. Any thread. A handle stays valid until CloseHandle; using it
 * afterwards, or using null, fails with ERROR_INVALID_HANDLE (WAIT_FAILED for a wait). Named and
 * secured events are not supported. */
#ifndef KY_WIN32_EVENT_H
#define KY_WIN32_EVENT_H

#include "Win32.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
constexpr DWORD INFINITE = 0xFFFFFFFF;

/* security and name must be null (else null with ERROR_NOT_SUPPORTED). A manual-reset event stays
 * signalled until ResetEvent; an auto-reset one is reset by the wait it releases, so one waiter
 * passes per SetEvent. */
HANDLE CreateEventW(const void* security, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
/* WAIT_OBJECT_0 once the event is signalled, WAIT_TIMEOUT after milliseconds (INFINITE: never). A
 * handle closed while a thread waits on it leaves that wait to end by its own timeout. */
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);
BOOL CloseHandle(HANDLE handle);

KY_PLATFORM_EXPORTS_END

#endif
