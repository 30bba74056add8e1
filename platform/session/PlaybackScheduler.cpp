#include "PlaybackScheduler.h"

#include <chrono>
#include <system_error>

namespace kyplatform {

namespace {

// Well under a frame's time at any common frame rate.
constexpr std::chrono::milliseconds kTick{4};
// Audio this far behind the clock will never be heard.
constexpr LONGLONG kStaleAudio = 2000000;

}  // namespace

PlaybackScheduler::PlaybackScheduler(PlaybackEngine& engine, PresentationClock& clock, VideoRenderer* video,
                                     LONGLONG duration, Listener listener)
    : engine_(engine), clock_(clock), video_(video), duration_(duration), listener_(std::move(listener)) {}

PlaybackScheduler::~PlaybackScheduler() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closing_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
}

HRESULT PlaybackScheduler::start() {
    try {
        thread_ = std::thread(&PlaybackScheduler::run, this);
    } catch (const std::system_error&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void PlaybackScheduler::preroll(bool playing, bool scrub, const std::function<void()>& seek) {
    std::lock_guard<std::mutex> lock(mutex_);
    // Held before it moves, so that it stands exactly where the seek puts it.
    clock_.setRunning(false);
    seek();
    playing_ = playing;
    prerolling_ = true;
    scrub_ = scrub;
    endReported_ = false;
    lastEnd_ = 0;
    wake_.notify_all();
}

void PlaybackScheduler::setPlaying(bool playing) {
    std::lock_guard<std::mutex> lock(mutex_);
    playing_ = playing;
    if (!prerolling_) clock_.setRunning(playing && !endReported_);
    wake_.notify_all();
}

void PlaybackScheduler::run() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!closing_) {
        tick();
        wake_.wait_for(lock, kTick, [this] { return closing_; });
    }
}

void PlaybackScheduler::tick() {
    const unsigned generation = engine_.generation();
    const LONGLONG now = clock_.now();
    bool firstShown = false;
    if (video_) {
        BoundedQueue<FramePointer>& frames = engine_.frames();
        while (frames.popIf([&](const FramePointer& f) { return f->generation != generation; })) {
        }
        FramePointer due;
        if (prerolling_) {
            if (std::optional<FramePointer> first = frames.tryPop()) due = *first;
        }
        while (std::optional<FramePointer> next = frames.popIf([&](const FramePointer& f) { return f->time <= now; })) {
            due = *next;
        }
        if (due && due->generation == generation) {
            firstShown = prerolling_;
            lastEnd_ = std::max(lastEnd_, due->end);
            video_->show(due, prerolling_ && scrub_);
        }
    }
    BoundedQueue<AudioChunk>& chunks = engine_.chunks();
    while (chunks.popIf([&](const AudioChunk& c) {
        const LONGLONG left = static_cast<LONGLONG>(c.bytes.size() - c.offset) * kHundredNanosecondsPerSecond /
                              kOutputBytesPerSecond;
        return c.generation != generation || c.time + left < now - kStaleAudio;
    })) {
    }

    if (prerolling_ && (firstShown || !video_ || engine_.videoEnded())) {
        prerolling_ = false;
        if (scrub_ && !firstShown && listener_.scrubbed) listener_.scrubbed();
        clock_.setRunning(playing_);
    }
    if (!prerolling_ && playing_ && !endReported_ && engine_.videoEnded() && engine_.audioEnded() &&
        engine_.frames().empty() && chunks.empty() && now >= lastEnd_) {
        endReported_ = true;
        clock_.setRunning(false);
        clock_.setPosition(std::max(duration_, lastEnd_));
        if (listener_.ended) listener_.ended();
    }
}

}  // namespace kyplatform
