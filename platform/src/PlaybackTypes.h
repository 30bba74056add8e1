// What the playback engine's threads pass to each other: demuxed packets, decoded pictures and
// audio ready for the device, each tagged with the seek generation it belongs to, so that work
// begun before a seek is recognised and dropped after it.
#ifndef KY_PLATFORM_PLAYBACK_TYPES_H
#define KY_PLATFORM_PLAYBACK_TYPES_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "BoundedQueue.h"
#include "PlatformTypes.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

namespace kyplatform {

struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using PacketPointer = std::unique_ptr<AVPacket, FreePacket>;

/* A packet of one stream; null marks the end of the stream. */
struct Packet {
    PacketPointer packet;
    unsigned generation;
};

/* A picture upright, B, G, R, X rows top-down, shown width : height as aspectWidth : aspectHeight. */
struct VideoFrame {
    LONGLONG time = 0;
    LONGLONG end = 0;
    int width = 0;
    int height = 0;
    std::vector<uint8_t> bgrx;
    double aspectWidth = 1.0;
    double aspectHeight = 1.0;
    unsigned generation = 0;
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

constexpr LONGLONG kHundredNanosecondsPerSecond = 10000000;

/* The seek every decoder follows: a new generation starts with each seek, and frames before its
 * target are dropped. A scrubbing seek shows one picture at rate 0; from the second scrubbing seek
 * in a row on, the pictures decoded are worth keeping for the next steps. */
class SeekState {
public:
    unsigned begin(LONGLONG target, bool scrubbing) {
        std::lock_guard<std::mutex> lock(mutex_);
        target_ = target;
        keepPictures_ = scrubbing && scrubbing_;
        scrubbing_ = scrubbing;
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
    bool scrubbing(unsigned generation) {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation == generation_ && scrubbing_;
    }
    bool keepsPictures(unsigned generation) {
        std::lock_guard<std::mutex> lock(mutex_);
        return generation == generation_ && keepPictures_;
    }

private:
    std::mutex mutex_;
    unsigned generation_ = 0;
    LONGLONG target_ = 0;
    bool scrubbing_ = false;
    bool keepPictures_ = false;
};

/* Where a decoder's stream has ended: the generation whose end it reached. */
struct EndMark {
    std::atomic<long long> generation{-1};
    bool reached(unsigned current) const { return generation.load() == static_cast<long long>(current); }
};

}  // namespace kyplatform

#endif
