// MFCreateMediaSession and the session: it resolves a topology of file source streams and
// renderers into a playback engine, a scheduler and the renderers, and turns Start, Pause, Stop,
// SetRate and Close into their events; its rate and volume outlive its topologies. Its methods run on the application's thread; the
// scheduler's thread only queues events and marks the end.
#include <atomic>
#include <memory>
#include <new>

#include "FreedMemory.h"
#include "MediaEvent.h"
#include "PlaybackScheduler.h"
#include "source/PresentationDescriptor.h"
#include "Topology.h"

namespace kyplatform {

namespace {

enum class State { Empty, Stopped, Started, Paused, Ended, Closed, ShutDown };

// What SetTopology finds in the topology.
struct Resolved {
    std::string path;
    int videoIndex = -1;
    int audioIndex = -1;
    LONGLONG duration = 0;
    ComPtr<VideoRenderer> video;
    ComPtr<AudioRenderer> audio;
};

ComPtr<IUnknown> rendererOf(IMFTopologyNode* output) {
    ComPtr<IUnknown> object;
    IUnknown* raw = nullptr;
    if (output == nullptr || FAILED(output->GetObject(&raw))) return object;
    object = ComPtr<IUnknown>::adopt(raw);
    if (auto* activate = dynamic_cast<IMFActivate*>(object.get())) {
        IUnknown* renderer = nullptr;
        if (FAILED(activate->ActivateObject(IID_IUnknown, reinterpret_cast<void**>(&renderer)))) return {};
        return ComPtr<IUnknown>::adopt(renderer);
    }
    return object;
}

HRESULT resolve(IMFTopology* topology, Resolved* resolved) {
    for (const ComPtr<IMFTopologyNode>& node : topologyNodes(topology)) {
        MF_TOPOLOGY_TYPE type{};
        if (FAILED(node->GetNodeType(&type)) || type != MF_TOPOLOGY_SOURCESTREAM_NODE) continue;
        IMFPresentationDescriptor* presentation = nullptr;
        IMFStreamDescriptor* stream = nullptr;
        if (FAILED(node->GetUnknown(MF_TOPONODE_PRESENTATION_DESCRIPTOR, IID_IUnknown,
                                    reinterpret_cast<void**>(&presentation)))) {
            return MF_E_INVALIDREQUEST;
        }
        const auto heldPresentation = ComPtr<IMFPresentationDescriptor>::adopt(presentation);
        if (FAILED(node->GetUnknown(MF_TOPONODE_STREAM_DESCRIPTOR, IID_IUnknown, reinterpret_cast<void**>(&stream)))) {
            return MF_E_INVALIDREQUEST;
        }
        const auto heldStream = ComPtr<IMFStreamDescriptor>::adopt(stream);
        const std::string path = pathOf(presentation);
        const int index = streamIndexOf(stream);
        if (path.empty() || index < 0 || (!resolved->path.empty() && path != resolved->path)) return MF_E_INVALIDREQUEST;
        resolved->path = path;
        UINT64 duration = 0;
        if (SUCCEEDED(presentation->GetUINT64(MF_PD_DURATION, &duration))) resolved->duration = static_cast<LONGLONG>(duration);
        const ComPtr<IUnknown> renderer = rendererOf(downstreamOf(node.get()).get());
        if (auto* video = dynamic_cast<VideoRenderer*>(renderer.get()); video != nullptr && !resolved->video) {
            resolved->video = video;
            resolved->videoIndex = index;
        } else if (auto* audio = dynamic_cast<AudioRenderer*>(renderer.get()); audio != nullptr && !resolved->audio) {
            resolved->audio = audio;
            resolved->audioIndex = index;
        } else {
            return MF_E_INVALIDREQUEST;
        }
    }
    // No stream to play: a file of only data or subtitle tracks. Said as an error of its own, since
    // the player keeps quiet about a plain invalid request.
    return resolved->path.empty() ? MF_E_TOPO_CODEC_NOT_FOUND : S_OK;
}

class MediaSession final : public IMFMediaSession,
                           public IMFGetService,
                           public IMFRateControl,
                           public IMFSimpleAudioVolume {
public:
    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (riid == IID_IUnknown || riid == IID_IMFMediaSession || riid == IID_IMFMediaEventGenerator) {
            *ppv = static_cast<IMFMediaSession*>(this);
        } else if (riid == IID_IMFGetService) {
            *ppv = static_cast<IMFGetService*>(this);
        } else if (riid == IID_IMFRateControl) {
            *ppv = static_cast<IMFRateControl*>(this);
        } else if (riid == IID_IMFSimpleAudioVolume) {
            *ppv = static_cast<IMFSimpleAudioVolume*>(this);
        } else {
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override { return refs_.releaseOwner(this); }

    HRESULT BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override {
        return events_.beginGetEvent(callback, state);
    }
    HRESULT EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override {
        return events_.endGetEvent(result, event);
    }

    HRESULT SetTopology(DWORD, IMFTopology* topology) override {
        if (topology == nullptr) return E_POINTER;
        if (HRESULT hr = usable(); FAILED(hr)) return hr;
        teardown();
        Resolved resolved;
        HRESULT hr = resolve(topology, &resolved);
        if (SUCCEEDED(hr)) {
            // On a decoding thread: only the event queue, which outlives the engine, is touched.
            hr = PlaybackEngine::open(resolved.path, resolved.videoIndex, resolved.audioIndex,
                                      [this](HRESULT failure) { events_.queue(MEError, failure); }, &engine_);
        }
        if (SUCCEEDED(hr)) {
            video_ = resolved.video;
            audio_ = resolved.audio;
            if (audio_) audio_->setGain(gain());
            duration_ = resolved.duration;
            clock_->setPosition(0);
            PlaybackScheduler::Listener listener;
            listener.ended = [this] { reachEnd(); };
            listener.scrubbed = [this] { events_.queue(MESessionScrubSampleComplete, S_OK); };
            scheduler_ = std::make_unique<PlaybackScheduler>(*engine_, *clock_.get(), video_.get(), duration_, listener);
            hr = scheduler_->start();
        }
        if (FAILED(hr)) {
            teardown();
            return queueTopologyStatus(hr, MF_TOPOSTATUS_INVALID);
        }
        if (video_) video_->setShownListener([this] { events_.queue(MESessionScrubSampleComplete, S_OK); });
        state_ = State::Stopped;
        return queueTopologyStatus(S_OK, MF_TOPOSTATUS_READY);
    }

    HRESULT Start(const GUID*, const PROPVARIANT* position) override {
        if (HRESULT hr = usable(); FAILED(hr)) return hr;
        if (!engine_) return MF_E_INVALIDREQUEST;
        const bool seeking = position != nullptr && position->vt == VT_I8;
        if (position != nullptr && position->vt != VT_I8 && position->vt != VT_EMPTY) return MF_E_INVALIDREQUEST;
        if (seeking && (position->hVal < 0 || (duration_ > 0 && position->hVal > duration_))) {
            // Out of range: the nearest picture is shown and the session really pauses there, as
            // the player reports it.
            const LONGLONG nearest = position->hVal < 0 ? 0 : duration_ - 1;
            state_ = State::Paused;
            scheduler_->preroll(false, false, [&] {
                engine_->seek(nearest);
                clock_->setPosition(nearest);
            });
            updateAudio();
            return events_.queue(MESessionStarted, MF_E_INVALID_POSITION);
        }
        const State state = state_.load();
        state_ = State::Started;
        if (seeking || state == State::Stopped || state == State::Ended) {
            const LONGLONG target = seeking ? position->hVal : 0;
            const bool scrubbing = rate_ == 0.0f;
            scheduler_->preroll(true, scrubbing, [&] {
                engine_->seek(target, scrubbing);
                clock_->setPosition(target);
            });
        } else if (!resumeFlow()) {
            scheduler_->setPlaying(true);
        }
        updateAudio();
        PROPVARIANT value;
        PropVariantInit(&value);
        value.vt = VT_I8;
        value.hVal = clock_->now();
        return events_.queue(MESessionStarted, S_OK, &value);
    }

    HRESULT Pause() override {
        if (HRESULT hr = usable(); FAILED(hr)) return hr;
        const State state = state_.load();
        if (!engine_ || state == State::Stopped) return events_.queue(MESessionPaused, MF_E_SESSION_PAUSEWHILESTOPPED);
        state_ = State::Paused;
        scheduler_->setPlaying(false);
        updateAudio();
        return events_.queue(MESessionPaused, S_OK);
    }

    HRESULT Stop() override {
        if (HRESULT hr = usable(); FAILED(hr)) return hr;
        if (engine_) {
            state_ = State::Stopped;
            scheduler_->setPlaying(false);
            engine_->seek(0);
            clock_->setPosition(0);
            updateAudio();
        }
        return events_.queue(MESessionStopped, S_OK);
    }

    HRESULT Close() override {
        if (HRESULT hr = usable(); FAILED(hr)) return hr;
        teardown();
        state_ = State::Closed;
        return events_.queue(MESessionClosed, S_OK);
    }

    HRESULT Shutdown() override {
        if (state_ == State::ShutDown) return MF_E_SHUTDOWN;
        teardown();
        state_ = State::ShutDown;
        events_.shutdown();
        return S_OK;
    }

    HRESULT GetClock(IMFClock** clock) override {
        if (clock == nullptr) return E_POINTER;
        *clock = clock_.get();
        (*clock)->AddRef();
        return S_OK;
    }

    HRESULT GetService(REFGUID service, REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (state_ == State::ShutDown) return MF_E_SHUTDOWN;
        if (service == MR_VIDEO_RENDER_SERVICE && video_) return video_->QueryInterface(riid, ppv);
        if (service == MF_RATE_CONTROL_SERVICE && riid == IID_IMFRateControl) return QueryInterface(riid, ppv);
        if (service == MR_POLICY_VOLUME_SERVICE && riid == IID_IMFSimpleAudioVolume) return QueryInterface(riid, ppv);
        return E_NOINTERFACE;
    }

    // Thinning is not offered; any rate from 0 (scrubbing) up plays, with sound at every rate above 0.
    HRESULT SetRate(BOOL thin, float rate) override {
        if (HRESULT hr = usable(); FAILED(hr)) return hr;
        if (thin || !(rate >= 0.0f) || rate > 64.0f) return MF_E_INVALIDREQUEST;
        rate_ = rate;
        clock_->setRate(rate);
        if (state_ == State::Started) resumeFlow();
        updateAudio();
        PROPVARIANT value;
        PropVariantInit(&value);
        value.vt = VT_R8;
        value.dblVal = rate;
        return events_.queue(MESessionRateChanged, S_OK, &value);
    }
    HRESULT GetRate(BOOL* thin, float* rate) override {
        if (rate == nullptr) return E_POINTER;
        if (thin != nullptr) *thin = FALSE;
        *rate = rate_;
        return S_OK;
    }

    HRESULT SetMasterVolume(float level) override {
        if (state_ == State::ShutDown) return MF_E_SHUTDOWN;
        if (!(level >= 0.0f && level <= 1.0f)) return E_INVALIDARG;
        volume_ = level;
        if (audio_) audio_->setGain(gain());
        return S_OK;
    }
    HRESULT GetMasterVolume(float* level) override {
        if (level == nullptr) return E_POINTER;
        *level = volume_;
        return S_OK;
    }
    HRESULT SetMute(BOOL mute) override {
        if (state_ == State::ShutDown) return MF_E_SHUTDOWN;
        muted_ = mute != FALSE;
        if (audio_) audio_->setGain(gain());
        return S_OK;
    }
    HRESULT GetMute(BOOL* mute) override {
        if (mute == nullptr) return E_POINTER;
        *mute = muted_ ? TRUE : FALSE;
        return S_OK;
    }

    bool valid() const { return static_cast<bool>(clock_); }

private:
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~MediaSession() { teardown(); }

    HRESULT usable() const {
        const State state = state_.load();
        if (state == State::ShutDown) return MF_E_SHUTDOWN;
        if (state == State::Closed) return MF_E_INVALIDREQUEST;
        return S_OK;
    }

    HRESULT queueTopologyStatus(HRESULT status, UINT32 topologyStatus) {
        const auto event = ComPtr<IMFMediaEvent>::adopt(createMediaEvent(MESessionTopologyStatus, status, nullptr));
        if (!event) return E_OUTOFMEMORY;
        if (HRESULT hr = event->SetUINT32(MF_EVENT_TOPOLOGY_STATUS, topologyStatus); FAILED(hr)) return hr;
        return events_.queue(event.get());
    }

    // A scrub answered from recent pictures left nothing queued behind its picture; playing on
    // from there needs the file read again from the clock's position.
    bool resumeFlow() {
        if (rate_ == 0.0f || !engine_->parked()) return false;
        const LONGLONG position = clock_->now();
        scheduler_->preroll(true, false, [&] {
            engine_->seek(position);
            clock_->setPosition(position);
        });
        return true;
    }

    float gain() const { return muted_ ? 0.0f : volume_; }

    // Sound only while started and not scrubbing; the device opens on the first such start.
    void updateAudio() {
        if (!audio_ || !engine_) return;
        if (state_ == State::Started && rate_ > 0.0f) {
            audio_->setRate(rate_);
            audio_->start(&engine_->chunks(), clock_.get(), &engine_->seekState());
        } else {
            audio_->silence();
        }
    }

    // On the scheduler's thread.
    void reachEnd() {
        State started = State::Started;
        if (!state_.compare_exchange_strong(started, State::Ended)) return;
        events_.queue(MEEndOfPresentation, S_OK);
        events_.queue(MESessionEnded, S_OK);
    }

    // Ends the threads before anything they use goes.
    void teardown() {
        const bool hadEngine = engine_ != nullptr;
        scheduler_.reset();
        if (audio_) audio_->close();
        engine_.reset();
        if (video_) video_->setShownListener(nullptr);
        video_ = nullptr;
        audio_ = nullptr;
        clock_->setRunning(false);
        // Close, Shutdown and the destructor all tear down; the heap walk is for the first only.
        if (hadEngine) returnFreedMemory();
    }

    ComRefCount refs_;
    EventQueue events_;
    const ComPtr<PresentationClock> clock_ = ComPtr<PresentationClock>::adopt(PresentationClock::create());
    std::atomic<State> state_{State::Empty};
    float rate_ = 1.0f;
    float volume_ = 1.0f;
    bool muted_ = false;
    LONGLONG duration_ = 0;
    ComPtr<VideoRenderer> video_;
    ComPtr<AudioRenderer> audio_;
    std::unique_ptr<PlaybackEngine> engine_;
    std::unique_ptr<PlaybackScheduler> scheduler_;
};

}  // namespace

}  // namespace kyplatform

HRESULT MFCreateMediaSession(IMFAttributes*, IMFMediaSession** session) {
    if (session == nullptr) return E_POINTER;
    auto* made = new (std::nothrow) kyplatform::MediaSession();
    if (made != nullptr && !made->valid()) {
        made->Release();
        made = nullptr;
    }
    *session = made;
    return made != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT MFGetService(IUnknown* object, REFGUID service, REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (object == nullptr) return E_POINTER;
    IMFGetService* provider = nullptr;
    if (FAILED(object->QueryInterface(IID_IMFGetService, reinterpret_cast<void**>(&provider)))) return E_NOINTERFACE;
    const HRESULT hr = provider->GetService(service, riid, ppv);
    provider->Release();
    return hr;
}

HRESULT MFStartup(ULONG version, DWORD) { return version == MF_VERSION ? S_OK : MF_E_BAD_STARTUP_VERSION; }

HRESULT MFShutdown() { return S_OK; }
