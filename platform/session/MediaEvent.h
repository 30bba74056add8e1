// Session events and their delivery: the event object, and the queue behind
// IMFMediaEventGenerator that hands one event per BeginGetEvent to the callback's Invoke on the
// layer's work queue.
#ifndef KY_PLATFORM_MEDIA_EVENT_H
#define KY_PLATFORM_MEDIA_EVENT_H

#include <deque>
#include <mutex>

#include "MediaSession.h"

namespace kyplatform {

/* A new event (one reference) with a copy of value (null: VT_EMPTY); null when memory is short or
 * value is of a type events do not carry (texts, vectors, FILETIME). */
IMFMediaEvent* createMediaEvent(MediaEventType type, HRESULT status, const PROPVARIANT* value);

class EventQueue {
public:
    /* Queues an event; it is delivered in order. E_OUTOFMEMORY when it cannot be made,
     * MF_E_SHUTDOWN after shutdown. */
    HRESULT queue(MediaEventType type, HRESULT status, const PROPVARIANT* value = nullptr);
    /* Queues a made event, taking a reference. */
    HRESULT queue(IMFMediaEvent* event);
    /* MF_E_MULTIPLE_BEGIN-like MF_E_INVALIDREQUEST while a request is armed, MF_E_SHUTDOWN after
     * shutdown. */
    HRESULT beginGetEvent(IMFAsyncCallback* callback, IUnknown* state);
    HRESULT endGetEvent(IMFAsyncResult* result, IMFMediaEvent** event);
    /* Drops the queued events and the armed request; later calls fail with MF_E_SHUTDOWN. */
    void shutdown();

private:
    /* With mutex_ held: hands the oldest event to the armed callback on the work queue. */
    void deliver();

    std::mutex mutex_;
    std::deque<ComPtr<IMFMediaEvent>> events_;
    ComPtr<IMFAsyncCallback> callback_;
    ComPtr<IUnknown> state_;
    bool shutDown_ = false;
};

}  // namespace kyplatform

#endif
