// Event objects behind numbered handles: a handle is looked up, never dereferenced, so a closed or
// made-up handle fails cleanly, and a waiter holds its own reference while it waits.
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "Win32Event.h"

namespace {

struct Event {
    std::mutex mutex;
    std::condition_variable signalled;
    bool manualReset = false;
    bool state = false;
};

struct EventTable {
    std::mutex mutex;
    std::unordered_map<uintptr_t, std::shared_ptr<Event>> events;
    uintptr_t lastNumber = 0;
};

EventTable& table() {
    static EventTable instance;
    return instance;
}

std::shared_ptr<Event> find(HANDLE handle) {
    EventTable& events = table();
    std::lock_guard lock(events.mutex);
    const auto found = events.events.find(reinterpret_cast<uintptr_t>(handle));
    if (found == events.events.end()) {
        SetLastError(ERROR_INVALID_HANDLE);
        return nullptr;
    }
    return found->second;
}

}  // namespace

HANDLE CreateEventW(const void* security, BOOL manualReset, BOOL initialState, LPCWSTR name) {
    if (security != nullptr || name != nullptr) {
        SetLastError(ERROR_NOT_SUPPORTED);
        return nullptr;
    }
    auto event = std::make_shared<Event>();
    event->manualReset = manualReset != FALSE;
    event->state = initialState != FALSE;
    EventTable& events = table();
    std::lock_guard lock(events.mutex);
    // Multiples of 4 as on Windows; numbers are not reused, so a stale handle never finds a newer event.
    events.lastNumber += 4;
    events.events.emplace(events.lastNumber, std::move(event));
    return reinterpret_cast<HANDLE>(events.lastNumber);
}

BOOL SetEvent(HANDLE handle) {
    const std::shared_ptr<Event> event = find(handle);
    if (!event) {
        return FALSE;
    }
    {
        std::lock_guard lock(event->mutex);
        event->state = true;
    }
    // All waiters wake; for an auto-reset event the first to take the lock consumes the signal.
    event->signalled.notify_all();
    return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
    const std::shared_ptr<Event> event = find(handle);
    if (!event) {
        return FALSE;
    }
    std::lock_guard lock(event->mutex);
    event->state = false;
    return TRUE;
}

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
    const std::shared_ptr<Event> event = find(handle);
    if (!event) {
        return WAIT_FAILED;
    }
    std::unique_lock lock(event->mutex);
    const auto isSet = [&] { return event->state; };
    if (milliseconds == INFINITE) {
        event->signalled.wait(lock, isSet);
    } else if (!event->signalled.wait_for(lock, std::chrono::milliseconds(milliseconds), isSet)) {
        return WAIT_TIMEOUT;
    }
    if (!event->manualReset) {
        event->state = false;
    }
    return WAIT_OBJECT_0;
}

BOOL CloseHandle(HANDLE handle) {
    EventTable& events = table();
    std::lock_guard lock(events.mutex);
    if (events.events.erase(reinterpret_cast<uintptr_t>(handle)) == 0) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    return TRUE;
}
