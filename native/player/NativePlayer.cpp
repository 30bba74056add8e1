// NativePlayer's life, state machine and event handling.
#include "NativePlayer.h"

#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "ErrorText.h"

namespace {

constexpr DWORD kCloseWaitMilliseconds = 1000;
// The attribute under which Invoke stamps an event with the serial of the session it came from.
const GUID kSessionSerialKey = {0x6f1e2b7a, 0x3c4d, 0x4e5f, {0x9a, 0x0b, 0x1c, 0x2d, 0x3e, 0x4f, 0x50, 0x61}};

// The events posted to a window and not yet taken back, each with the player that posted it. A
// window message only names an event: whoever handles it first takes it out of here, so a message
// handled twice, one outliving its player, or a pointer from anywhere else, finds nothing. Invoke
// adds on a work-queue thread; the main thread takes.
struct PostedEvents {
    std::mutex lock;
    std::unordered_map<IMFMediaEvent*, const NativePlayer*> owners;

    void add(IMFMediaEvent* event, const NativePlayer* owner) {
        std::lock_guard<std::mutex> hold(lock);
        owners[event] = owner;
    }

    bool contains(IMFMediaEvent* event) {
        std::lock_guard<std::mutex> hold(lock);
        return owners.count(event) != 0;
    }

    // True, with its owner, when the event was posted and is now the caller's to release.
    bool take(IMFMediaEvent* event, const NativePlayer** owner) {
        std::lock_guard<std::mutex> hold(lock);
        const auto found = owners.find(event);
        if (found == owners.end()) return false;
        *owner = found->second;
        owners.erase(found);
        return true;
    }

    std::vector<IMFMediaEvent*> takeAllOf(const NativePlayer* owner) {
        std::lock_guard<std::mutex> hold(lock);
        std::vector<IMFMediaEvent*> taken;
        for (auto entry = owners.begin(); entry != owners.end();) {
            if (entry->second == owner) {
                taken.push_back(entry->first);
                entry = owners.erase(entry);
            } else {
                ++entry;
            }
        }
        return taken;
    }
};

// Never destroyed: a work-queue thread may still post while the process exits.
PostedEvents& postedEvents() {
    static PostedEvents* const events = new PostedEvents();
    return *events;
}

}  // namespace

NativePlayer::NativePlayer(HWND videoWindow, HWND eventWindow, PlayerMessageSink sink)
    : messageSink(std::move(sink)), videoWindow(videoWindow), eventWindow(eventWindow) {}

HRESULT NativePlayer::createInstance(HWND videoWindow, HWND eventWindow, std::shared_ptr<NativePlayer>* out,
                                     PlayerMessageSink sink) {
    if (out == nullptr) return E_POINTER;
    auto* player = new (std::nothrow) NativePlayer(videoWindow, eventWindow, std::move(sink));
    if (player == nullptr) return E_OUTOFMEMORY;
    // The last handle shuts the player down and gives up the first COM reference; the memory goes
    // with the last reference, which a session's event job on the work queue may still hold.
    std::shared_ptr<NativePlayer> handle(player, [](NativePlayer* owned) {
        owned->shutdown();
        owned->Release();
    });
    const HRESULT hr = player->initialize();
    if (FAILED(hr)) return hr;
    *out = std::move(handle);
    return S_OK;
}

NativePlayer::~NativePlayer() = default;

HRESULT NativePlayer::initialize() {
    if (closeEvent != nullptr) return MF_E_ALREADY_INITIALIZED;
    HRESULT hr = MFStartup(MF_VERSION, MFSTARTUP_FULL);
    if (FAILED(hr)) return hr;
    platformStarted = true;
    closeEvent = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (closeEvent == nullptr) {
        const DWORD error = GetLastError();
        return error > 0 ? MakeHResult(0x80070000u | (error & 0xFFFF)) : static_cast<HRESULT>(error);
    }
    return S_OK;
}

std::wstring NativePlayer::stateName(int32_t state) {
    switch (state) {
        case closed: return L"closed";
        case session_ready: return L"session_ready";
        case open_pending: return L"open_pending";
        case ready: return L"ready";
        case playing: return L"playing";
        case paused: return L"paused";
        case stopped: return L"stopped";
        case ended: return L"ended";
        case seek_pending: return L"seek_pending";
        case closing: return L"closing";
        default: return L"unknown";
    }
}

std::wstring NativePlayer::getPlayerState() const { return stateName(state); }

void NativePlayer::setState(State newState) {
    state = newState;
    messageSink(stateName(newState), false);
}

void NativePlayer::reportFailure(HRESULT code) {
    if (code == MF_E_INVALID_POSITION) {
        setState(paused);
    } else if (code != MF_E_SESSION_PAUSEWHILESTOPPED && code != MF_E_INVALIDREQUEST) {
        messageSink(errorText(code), true);
    }
}

HRESULT NativePlayer::closeURL() {
    if (session == nullptr || source == nullptr) return S_OK;
    switch (state) {
        case closed:
        case closing: return S_OK;
        case playing: stop(); return closeSession();
        default: return closeSession();
    }
}

// The order is kept: the session shut down first, so that nothing posts after the events are taken
// back; those events released while the platform still runs, since resident memory over many
// players grew now and then when they went after MFShutdown; the close event and the platform last.
HRESULT NativePlayer::shutdown() {
    const HRESULT hr = closeSession();
    // Messages still queued name these; they find nothing once the events are gone from the set.
    for (IMFMediaEvent* event : postedEvents().takeAllOf(this)) event->Release();
    if (closeEvent != nullptr) {
        CloseHandle(closeEvent);
        closeEvent = nullptr;
    }
    if (platformStarted) {
        MFShutdown();
        platformStarted = false;
    }
    return hr;
}

HRESULT NativePlayer::play() {
    if (session == nullptr || source == nullptr) return E_UNEXPECTED;
    switch (state) {
        case ready:
        case paused:
        case stopped:
        case ended: return startPlayback();
        case closed:
        case closing: return E_UNEXPECTED;
        default: return MF_E_INVALIDREQUEST;
    }
}

HRESULT NativePlayer::pause() {
    if (session == nullptr || source == nullptr) return E_UNEXPECTED;
    switch (state) {
        case playing:
        case seek_pending: return session->Pause();
        case closed:
        case closing: return E_UNEXPECTED;
        default: return MF_E_INVALIDREQUEST;
    }
}

HRESULT NativePlayer::stop() {
    if (session == nullptr || source == nullptr) return E_UNEXPECTED;
    switch (state) {
        case playing:
        case paused: return session->Stop();
        case closed:
        case closing: return E_UNEXPECTED;
        default: return MF_E_INVALIDREQUEST;
    }
}

HRESULT NativePlayer::startPlayback() {
    PROPVARIANT start;
    PropVariantInit(&start);
    if (state == ended) {
        start.vt = VT_I8;
        start.hVal = 0;
    }
    const HRESULT hr = session->Start(&GUID_NULL, &start);
    PropVariantClear(&start);
    setState(playing);
    return hr;
}

HRESULT NativePlayer::closeSession() {
    pausingForEnd = false;
    scrubbing = false;
    SafeRelease(videoDisplay);
    SafeRelease(rateControl);
    SafeRelease(audioVolume);
    SafeRelease(clock);
    HRESULT hr = S_OK;
    if (session != nullptr) {
        setState(closing);
        hr = session->Close();
        // A close that fails or times out goes on as if the session had closed. The shutdown also
        // ends the session's armed event request, which holds the session (see Invoke).
        if (SUCCEEDED(hr) && closeEvent != nullptr) WaitForSingleObject(closeEvent, kCloseWaitMilliseconds);
        if (source != nullptr) source->Shutdown();
        session->Shutdown();
    }
    SafeRelease(source);
    SafeRelease(session);
    setState(closed);
    return hr;
}

bool NativePlayer::isPostedEvent(IMFMediaEvent* event) { return postedEvents().contains(event); }

void NativePlayer::dropPostedEvent(IMFMediaEvent* event) {
    const NativePlayer* owner = nullptr;
    if (postedEvents().take(event, &owner)) event->Release();
}

HRESULT NativePlayer::handleEvent(IMFMediaEvent* event) {
    const NativePlayer* owner = nullptr;
    if (!postedEvents().take(event, &owner)) return E_INVALIDARG;
    if (owner != this) {
        event->Release();
        return S_OK;
    }
    MediaEventType type = 0;
    HRESULT hr = event->GetType(&type);
    if (FAILED(hr)) {
        event->Release();
        return hr;
    }
    // A session event posted before a close and handled after it belongs to no session, or to an
    // earlier one: acting on it would move a closed player to "paused", or a new one to "ended".
    UINT64 serial = 0;
    if (session == nullptr || (SUCCEEDED(event->GetUINT64(kSessionSerialKey, &serial)) && serial != sessionSerial)) {
        event->Release();
        return S_OK;
    }
    HRESULT status = S_OK;
    hr = event->GetStatus(&status);
    if (SUCCEEDED(hr) && FAILED(status)) hr = status;
    if (SUCCEEDED(hr)) {
        switch (type) {
            case MESessionStarted:
            case MESessionScrubSampleComplete: setState(playing); break;
            case MESessionPaused:
                if (!pausingForEnd) setState(paused);
                pausingForEnd = false;
                break;
            case MESessionStopped: setState(stopped); break;
            case MESessionEnded: break;
            case MESessionTopologyStatus: hr = onTopologyStatus(event); break;
            case MENewPresentation: hr = onNewPresentation(event); break;
            case MEEndOfPresentation: hr = onPresentationEnded(event); break;
            default: hr = onSessionEvent(event, type); break;
        }
    }
    if (FAILED(hr)) reportFailure(hr);
    event->Release();
    return hr;
}

HRESULT NativePlayer::onTopologyStatus(IMFMediaEvent* event) {
    UINT32 status = MF_TOPOSTATUS_INVALID;
    const HRESULT read = event->GetUINT32(MF_EVENT_TOPOLOGY_STATUS, &status);
    if (FAILED(read)) return read;
    if (status != MF_TOPOSTATUS_READY) return S_OK;

    SafeRelease(videoDisplay);
    MFGetService(session, MR_VIDEO_RENDER_SERVICE, IID_IMFVideoDisplayControl, reinterpret_cast<void**>(&videoDisplay));
    SafeRelease(rateControl);
    MFGetService(session, MF_RATE_CONTROL_SERVICE, IID_IMFRateControl, reinterpret_cast<void**>(&rateControl));
    SafeRelease(audioVolume);
    MFGetService(session, MR_POLICY_VOLUME_SERVICE, IID_IMFSimpleAudioVolume, reinterpret_cast<void**>(&audioVolume));
    applyUserSettings();
    setState(ready);
    SafeRelease(clock);
    return session->GetClock(&clock);
}

HRESULT NativePlayer::onPresentationEnded(IMFMediaEvent*) {
    pausingForEnd = true;
    const HRESULT hr = session->Pause();
    setState(ended);
    return hr;
}

HRESULT NativePlayer::onSessionEvent(IMFMediaEvent*, MediaEventType) { return S_OK; }

HRESULT NativePlayer::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    if (riid != IID_IUnknown && riid != IID_IMFAsyncCallback) {
        *ppv = nullptr;
        return E_NOINTERFACE;
    }
    *ppv = static_cast<IMFAsyncCallback*>(this);
    AddRef();
    return S_OK;
}

ULONG NativePlayer::AddRef() { return ++refCount; }

// The first reference is given back only by the last shared handle, after shutdown.
ULONG NativePlayer::Release() {
    const ULONG count = --refCount;
    if (count == 0) delete this;
    return count;
}

HRESULT NativePlayer::GetParameters(DWORD*, DWORD*) { return E_NOTIMPL; }

// The session is the request's state, held by the result: the player may close and release its
// session on the main thread while this runs.
HRESULT NativePlayer::Invoke(IMFAsyncResult* result) {
    IUnknown* requestState = nullptr;
    if (result == nullptr || FAILED(result->GetState(&requestState))) return S_OK;
    auto* current = static_cast<IMFMediaSession*>(requestState);
    IMFMediaEvent* event = nullptr;
    if (FAILED(current->EndGetEvent(result, &event))) {
        current->Release();
        return S_OK;
    }
    MediaEventType type = 0;
    if (SUCCEEDED(event->GetType(&type))) {
        if (type == MESessionClosed) {
            SetEvent(closeEvent);
        } else {
            if (state != closing && SUCCEEDED(event->SetUINT64(kSessionSerialKey, sessionSerial))) {
                event->AddRef();
                postedEvents().add(event, this);
                // A message that cannot be posted would never give its reference back.
                if (!PostMessageW(eventWindow, kPlayerEventMessage, reinterpret_cast<WPARAM>(event),
                                  static_cast<LPARAM>(type))) {
                    dropPostedEvent(event);
                }
            }
            current->BeginGetEvent(this, current);
        }
    }
    event->Release();
    current->Release();
    return S_OK;
}
