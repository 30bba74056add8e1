// What the playback engine's threads pass to each other: demuxed packets, decoded pictures and
// audio ready for the device, each tagged with the seek generation it belongs to, so that work
// begun before a seek is recognised and dropped after it.
#ifndef KY_PLATFORM_PLAYBACK_TYPES_H
#define KY_PLATFORM_PLAYBACK_TYPES_H

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "BoundedQueue.h"
#include "ffmpeg/FfmpegDecoding.h"
#include "PlatformTypes.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kyplatform {

/* A packet of one stream; null marks the end of the stream. */
struct Packet {
    PacketPointer packet;
    unsigned generation;
};

/* A decoded picture as its decoder gave it, in its own pixel format and coded size: a reference to
 * the decoder's buffers, which nothing writes again, so the picture queue, the renderer and the
 * scrubbing cache share it from any thread. It is converted only when drawn, straight to the size
 * it is drawn at. */
class DecodedPicture {
public:
    /* A new reference to frame's buffers; null when memory is short. */
    static std::shared_ptr<const DecodedPicture> of(const AVFrame& frame) {
        AVFramePointer reference(av_frame_clone(&frame));
        if (!reference) return nullptr;
        try {
            return std::shared_ptr<const DecodedPicture>(new DecodedPicture(std::move(reference)));
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    const AVFrame& frame() const { return *frame_; }
    /* What its buffers weigh, for the byte budgets of queues and caches. */
    size_t bytes() const { return bytes_; }

private:
    explicit DecodedPicture(AVFramePointer frame) : frame_(std::move(frame)) {
        for (const AVBufferRef* buffer : frame_->buf) bytes_ += buffer != nullptr ? buffer->size : 0;
    }
    AVFramePointer frame_;
    size_t bytes_ = 0;
};
using PicturePointer = std::shared_ptr<const DecodedPicture>;

/* A picture and how it is shown: turned counter-clockwise by quarters quarter turns to be upright,
 * then width : height as aspectWidth : aspectHeight. */
struct VideoFrame {
    LONGLONG time = 0;
    LONGLONG end = 0;
    PicturePointer picture;
    int quarters = 0;
    double aspectWidth = 1.0;
    double aspectHeight = 1.0;
    unsigned generation = 0;

    /* The picture's size in pixels once upright. */
    int uprightWidth() const { return quarters % 2 == 1 ? picture->frame().height : picture->frame().width; }
    int uprightHeight() const { return quarters % 2 == 1 ? picture->frame().width : picture->frame().height; }
};
using FramePointer = std::shared_ptr<const VideoFrame>;

/* Samples in the output format below; offset bytes of them have been played. */
struct AudioChunk {
    LONGLONG time = 0;
    std::vector<uint8_t> bytes;
    size_t offset = 0;
    unsigned generation = 0;
};

// The format audio is resampled to; SDL converts it further if the device wants another.
constexpr int kOutputRate = 48000;
constexpr int kOutputChannels = 2;
constexpr int kOutputBytesPerSecond = kOutputRate * kOutputChannels * 2;

/* The seek every decoder follows: a new generation starts with each seek, and frames before its
 * target are dropped. A scrubbing seek shows one picture at rate 0; from the second scrubbing seek
 * in a row on, the pictures decoded are worth keeping for the next steps. When the pictures around
 * the target cannot be decoded from the key frame the demuxer found (the leading pictures of an
 * open GOP), the seek is retried from further back in a new generation with the same target. */
class SeekState {
public:
    unsigned begin(LONGLONG target, bool scrubbing) {
        std::lock_guard<std::mutex> lock(mutex_);
        target_ = target;
        keepPictures_ = scrubbing && scrubbing_;
        scrubbing_ = scrubbing;
        backoff_ = 0;
        return ++generation_;
    }
    /* For a generation still current whose reading can start earlier: a new generation, and in
     * *from where its reading starts. 0 when there is nothing earlier to try. */
    unsigned retreat(unsigned generation, LONGLONG* from) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (generation != generation_ || target_ - backoff_ <= 0) return 0;
        backoff_ = backoff_ == 0 ? kFirstBackoff : 2 * backoff_;
        *from = std::max<LONGLONG>(target_ - backoff_, 0);
        return ++generation_;
    }
    unsigned generation() {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation_;
    }
    /* The target of generation, or 0 for one already replaced (its output is dropped anyway). */
    LONGLONG targetOf(unsigned generation) {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation == generation_ ? target_ : 0;
    }
    /* Whether generation reads from the start of the file, where nothing earlier can be tried. */
    bool fromStart(unsigned generation) {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation != generation_ || target_ - backoff_ <= 0;
    }
    bool scrubbing(unsigned generation) {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation == generation_ && scrubbing_;
    }
    bool keepsPictures(unsigned generation) {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation == generation_ && keepPictures_;
    }

private:
    // Open GOPs are rarely longer than a few seconds; each retry doubles the distance.
    static constexpr LONGLONG kFirstBackoff = kHundredNanosecondsPerSecond;
    std::mutex mutex_;
    unsigned generation_ = 0;
    LONGLONG target_ = 0;
    LONGLONG backoff_ = 0;
    bool scrubbing_ = false;
    bool keepPictures_ = false;
};

/* Where a decoder's stream has ended: the generation whose end it reached. */
struct EndMark {
    std::atomic<long long> generation{-1};
    bool reached(unsigned current) const { return generation.load() == static_cast<long long>(current); }
};

/* What a decoder shares with the engine: the seek, its packets in, its output, where its stream
 * ended, where media time 0 lies (AV_TIME_BASE units), and whom to tell when it cannot go on. */
template <class Output>
struct DecoderLinks {
    SeekState& seek;
    BoundedQueue<Packet>& packets;
    BoundedQueue<Output>& output;
    EndMark& end;
    int64_t origin;
    std::function<void(HRESULT)> failed;
};

}  // namespace kyplatform

#endif
