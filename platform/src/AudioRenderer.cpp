#include "AudioRenderer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "Win32Window.h"

namespace kyplatform {

namespace {

const IID kIidAudioRenderer = {0x7a2f5c61, 0x0e8d, 0x4b93, {0xb4, 0x70, 0x1c, 0x6d, 0x2e, 0x9a, 0x83, 0x05}};

bool startAudio() {
    KySdl_quitAtExit();
    if (SDL_InitSubSystem(SDL_INIT_AUDIO) == 0) return true;
    // A machine without sound still plays, with the clock driven by the dummy device.
    SDL_SetHint(SDL_HINT_AUDIODRIVER, "dummy");
    return SDL_InitSubSystem(SDL_INIT_AUDIO) == 0;
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
    SDL_AudioSpec want{};
    want.freq = kOutputRate;
    want.format = AUDIO_S16SYS;
    want.channels = kOutputChannels;
    want.samples = 1024;
    want.callback = &AudioRenderer::feed;
    want.userdata = this;
    SDL_AudioSpec have{};
    for (int attempt = 0; attempt < 2; ++attempt) {
        if (!startAudio()) return false;
        // SDL converts from this format to whatever the device wants.
        device_ = SDL_OpenAudioDevice(nullptr, 0, &want, &have, 0);
        if (device_ != 0) {
            latency_ = static_cast<LONGLONG>(have.samples) * kHundredNanosecondsPerSecond / std::max(have.freq, 1);
            return true;
        }
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
        SDL_SetHint(SDL_HINT_AUDIODRIVER, "dummy");
    }
    return false;
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
}

void AudioRenderer::feed(void* self, Uint8* stream, int length) {
    static_cast<AudioRenderer*>(self)->fill(stream, static_cast<size_t>(std::max(length, 0)));
}

void AudioRenderer::fill(Uint8* stream, size_t length) {
    size_t filled = 0;
    std::lock_guard<std::mutex> lock(mutex_);
    // Samples play only while the clock runs at the normal rate; otherwise they wait or are dropped
    // by the scheduler once the clock has passed them.
    if (playing_ && chunks_ != nullptr && clock_->running()) {
        const unsigned generation = seek_->generation();
        bool followed = false;
        while (filled < length) {
            if (chunks_->popIf([&](const AudioChunk& c) { return c.generation != generation || c.offset >= c.bytes.size(); })) {
                continue;
            }
            size_t taken = 0;
            chunks_->changeFront([&](AudioChunk& chunk) {
                if (!followed) {
                    clock_->follow(chunk.time - latency_);
                    followed = true;
                }
                taken = std::min(length - filled, chunk.bytes.size() - chunk.offset);
                std::memcpy(stream + filled, chunk.bytes.data() + chunk.offset, taken);
                chunk.offset += taken;
                chunk.time += static_cast<LONGLONG>(taken) * kHundredNanosecondsPerSecond / kOutputBytesPerSecond;
                return taken;
            });
            if (taken == 0) break;
            filled += taken;
        }
    }
    std::memset(stream + filled, 0, length - filled);
}

}  // namespace kyplatform
