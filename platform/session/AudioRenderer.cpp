#include "AudioRenderer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "KyAlsaMessages.h"
#include "Win32Window.h"

namespace kyplatform {

namespace {

// Samples put into the stretcher at a time: little beyond what one callback needs is held there,
// since a seek or a new rate drops it.
constexpr size_t kStretchInputBytes = 1024 * kOutputChannels * 2;

const IID kIidAudioRenderer = {0x7a2f5c61, 0x0e8d, 0x4b93, {0xb4, 0x70, 0x1c, 0x6d, 0x2e, 0x9a, 0x83, 0x05}};

bool startAudio() {
    KySdl_quitAtExit();
    if (SDL_InitSubSystem(SDL_INIT_AUDIO) == 0) return true;
    // A machine without sound still plays, with the clock driven by the dummy device.
    SDL_SetHint(SDL_HINT_AUDIODRIVER, "dummy");
    return SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
}

void applyGain(Uint8* stream, size_t length, float gain) {
    if (gain >= 1.0f) return;
    if (gain <= 0.0f) {
        std::memset(stream, 0, length);
        return;
    }
    auto* samples = reinterpret_cast<int16_t*>(stream);
    for (size_t i = 0; i < length / sizeof(int16_t); ++i) samples[i] = static_cast<int16_t>(samples[i] * gain);
}

}  // namespace

AudioRenderer* AudioRenderer::create() { return new (std::nothrow) AudioRenderer(); }

HRESULT AudioRenderer::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown && riid != kIidAudioRenderer) return E_NOINTERFACE;
    *ppv = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
}

bool AudioRenderer::openDevice() {
    // A machine without sound plays silently; ALSA's complaints about it stay off standard error.
    const KyAlsaMessages alsa;
    SDL_AudioSpec want{};
    want.freq = kOutputRate;
    want.format = AUDIO_S16SYS;
    want.channels = kOutputChannels;
    want.samples = 1024;
    want.callback = &AudioRenderer::feed;
    want.userdata = this;
    SDL_AudioSpec have{};
    for (int attempt = 0; attempt < 2 && device_ == 0 && startAudio(); ++attempt) {
        // SDL converts from this format to whatever the device wants.
        device_ = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
        if (device_ != 0) {
            latency_ = static_cast<LONGLONG>(have.samples) * kHundredNanosecondsPerSecond / std::max(have.freq, 1);
        } else {
            SDL_QuitSubSystem(SDL_INIT_AUDIO);
            SDL_SetHint(SDL_HINT_AUDIODRIVER, "dummy");
        }
    }
    KyAlsaMessages::taken();
    return device_ != 0;
}

void AudioRenderer::start(BoundedQueue<AudioChunk>* chunks, PresentationClock* clock, SeekState* seek) {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        chunks_ = chunks;
        clock_ = clock;
        seek_ = seek;
        playing_ = true;
    }
    if (device_ == 0 && !openDevice()) return;
    SDL_PauseAudioDevice(device_, 0);
}

void AudioRenderer::silence() {
    std::lock_guard<std::mutex> lock(mutex_);
    playing_ = false;
}

void AudioRenderer::setRate(float rate) {
    std::lock_guard<std::mutex> lock(mutex_);
    rate_ = rate;
}

void AudioRenderer::setGain(float gain) {
    std::lock_guard<std::mutex> lock(mutex_);
    gain_ = std::clamp(gain, 0.0f, 1.0f);
}

void AudioRenderer::close() {
    if (device_ != 0) {
        // Returns once the device's thread has left the callback and ended.
        SDL_CloseAudioDevice(device_);
        device_ = 0;
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
    }
    std::lock_guard<std::mutex> lock(mutex_);
    chunks_ = nullptr;
    clock_ = nullptr;
    seek_ = nullptr;
    playing_ = false;
    fresh_ = false;
}

void AudioRenderer::feed(void* self, Uint8* stream, int length) {
    static_cast<AudioRenderer*>(self)->fill(stream, static_cast<size_t>(std::max(length, 0)));
}

void AudioRenderer::fill(Uint8* stream, size_t length) {
    size_t filled = 0;
    std::lock_guard<std::mutex> lock(mutex_);
    // Samples play only while the clock runs; otherwise they wait or are dropped by the scheduler
    // once the clock has passed them.
    if (playing_ && chunks_ != nullptr && clock_->running() && rate_ > 0.0f) {
        const unsigned generation = seek_->generation();
        if (!fresh_ || generation != stretchGeneration_ || rate_ != stretchRate_) {
            // What the stretcher holds belongs to the old position or rate.
            stretcher_.reset(rate_);
            fresh_ = true;
            stretchGeneration_ = generation;
            stretchRate_ = rate_;
        }
        // What this buffer starts with is heard once the device has played what it holds.
        const LONGLONG latency = static_cast<LONGLONG>(static_cast<double>(latency_) * rate_);
        bool followed = false;
        while (filled < length) {
            LONGLONG time = 0;
            const size_t taken = stretcher_.take(stream + filled, length - filled, &time);
            if (taken > 0) {
                if (!followed) clock_->follow(time - latency);
                followed = true;
                filled += taken;
            } else if (!feedStretcher(generation)) {
                break;
            }
        }
        applyGain(stream, filled, gain_);
    }
    std::memset(stream + filled, 0, length - filled);
}

bool AudioRenderer::feedStretcher(unsigned generation) {
    while (chunks_->popIf([&](const AudioChunk& c) { return c.generation != generation || c.offset >= c.bytes.size(); })) {
    }
    bool fed = false;
    chunks_->changeFront([&](AudioChunk& chunk) {
        const size_t taken = std::min(kStretchInputBytes, chunk.bytes.size() - chunk.offset);
        if (FAILED(stretcher_.put(chunk.bytes.data() + chunk.offset, taken, chunk.time))) return size_t{0};
        fed = true;
        chunk.offset += taken;
        chunk.time += static_cast<LONGLONG>(taken) * kHundredNanosecondsPerSecond / kOutputBytesPerSecond;
        return taken;
    });
    return fed;
}

}  // namespace kyplatform
