#include "MediaEvent.h"

#include "source/AttributeStore.h"
#include "source/WorkQueue.h"

namespace kyplatform {

namespace {

const IID kIidMediaEvent = {0x6f1c2b3a, 0x57e4, 0x4f0d, {0x9a, 0x11, 0x3c, 0x52, 0x7e, 0x90, 0x1d, 0x44}};
const IID kIidAsyncResult = {0x6f1c2b3b, 0x57e4, 0x4f0d, {0x9a, 0x11, 0x3c, 0x52, 0x7e, 0x90, 0x1d, 0x44}};

HRESULT copyValue(const PROPVARIANT& from, PROPVARIANT* to) {
    PropVariantInit(to);
    switch (from.vt) {
        case VT_EMPTY:
        case VT_I4:
        case VT_R8:
        case VT_UI4:
        case VT_I8:
        case VT_UI8:
            *to = from;
            return S_OK;
        case VT_UNKNOWN:
            *to = from;
            if (to->punkVal != nullptr) to->punkVal->AddRef();
            return S_OK;
        default:
            return E_INVALIDARG;
    }
}

class MediaEvent final : public AttributeStore<IMFMediaEvent> {
public:
    MediaEvent(MediaEventType type, HRESULT status) : type_(type), status_(status) { PropVariantInit(&value_); }

    HRESULT QueryInterface(REFIID riid, void** ppv) override { return queryOwn(riid, kIidMediaEvent, ppv); }
    HRESULT GetType(MediaEventType* type) override {
        if (type == nullptr) return E_POINTER;
        *type = type_;
        return S_OK;
    }
    HRESULT GetStatus(HRESULT* status) override {
        if (status == nullptr) return E_POINTER;
        *status = status_;
        return S_OK;
    }
    HRESULT GetValue(PROPVARIANT* value) override {
        if (value == nullptr) return E_POINTER;
        return copyValue(value_, value);
    }

    HRESULT setValue(const PROPVARIANT& value) { return copyValue(value, &value_); }

private:
    ~MediaEvent() override { PropVariantClear(&value_); }

    const MediaEventType type_;
    const HRESULT status_;
    PROPVARIANT value_;
};

// The result handed to Invoke: it carries the caller's state and the event EndGetEvent gives.
class AsyncResult final : public IMFAsyncResult {
public:
    AsyncResult(IUnknown* state, IMFMediaEvent* event) : state_(state), event_(event) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != kIidAsyncResult) return E_NOINTERFACE;
        *ppv = static_cast<IMFAsyncResult*>(this);
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override { return refs_.releaseOwner(this); }
    HRESULT GetState(IUnknown** state) override {
        if (state == nullptr) return E_POINTER;
        *state = state_.get();
        if (*state == nullptr) return E_POINTER;
        (*state)->AddRef();
        return S_OK;
    }
    HRESULT GetStatus() override { return S_OK; }

    /* The event, once: a second EndGetEvent on the same result gets none. */
    ComPtr<IMFMediaEvent> takeEvent() { return std::exchange(event_, ComPtr<IMFMediaEvent>()); }

private:
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~AsyncResult() = default;

    ComRefCount refs_;
    ComPtr<IUnknown> state_;
    ComPtr<IMFMediaEvent> event_;
};

}  // namespace

IMFMediaEvent* createMediaEvent(MediaEventType type, HRESULT status, const PROPVARIANT* value) {
    MediaEvent* event = createWithStore<MediaEvent>(type, status);
    if (event != nullptr && value != nullptr && FAILED(event->setValue(*value))) {
        event->Release();
        return nullptr;
    }
    return event;
}

HRESULT EventQueue::queue(MediaEventType type, HRESULT status, const PROPVARIANT* value) {
    const auto event = ComPtr<IMFMediaEvent>::adopt(createMediaEvent(type, status, value));
    if (!event) return E_OUTOFMEMORY;
    return queue(event.get());
}

HRESULT EventQueue::queue(IMFMediaEvent* event) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (shutDown_) return MF_E_SHUTDOWN;
    events_.emplace_back(event);
    deliver();
    return S_OK;
}

HRESULT EventQueue::beginGetEvent(IMFAsyncCallback* callback, IUnknown* state) {
    if (callback == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> lock(mutex_);
    if (shutDown_) return MF_E_SHUTDOWN;
    if (callback_) return MF_E_INVALIDREQUEST;
    callback_ = callback;
    state_ = state;
    deliver();
    return S_OK;
}

HRESULT EventQueue::endGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) {
    if (event == nullptr) return E_POINTER;
    *event = nullptr;
    AsyncResult* own = nullptr;
    if (result == nullptr || FAILED(result->QueryInterface(kIidAsyncResult, reinterpret_cast<void**>(&own)))) {
        return E_INVALIDARG;
    }
    ComPtr<IMFMediaEvent> taken = own->takeEvent();
    own->Release();
    if (!taken) return E_INVALIDARG;
    *event = taken.get();
    (*event)->AddRef();
    return S_OK;
}

void EventQueue::shutdown() {
    std::lock_guard<std::mutex> lock(mutex_);
    shutDown_ = true;
    events_.clear();
    callback_ = nullptr;
    state_ = nullptr;
}

void EventQueue::deliver() {
    if (!callback_ || events_.empty()) return;
    auto* result = new (std::nothrow) AsyncResult(state_.get(), events_.front().get());
    if (result == nullptr) return;
    const auto owned = ComPtr<IMFAsyncResult>::adopt(result);
    const ComPtr<IMFAsyncCallback> callback = callback_;
    if (FAILED(WorkQueue::shared().post([callback, owned] { callback->Invoke(owned.get()); }))) return;
    events_.pop_front();
    callback_ = nullptr;
    state_ = nullptr;
}

}  // namespace kyplatform
