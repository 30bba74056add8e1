#include "PlaybackEngine.h"

#include <system_error>
#include <vector>

#include "ffmpeg/FfmpegInput.h"
#include "ffmpeg/MediaTimeline.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kyplatform {

namespace {

// The budgets the header explains.
constexpr size_t kVideoPacketBytes = size_t{16} << 20;
constexpr size_t kAudioPacketBytes = size_t{4} << 20;
constexpr size_t kStarvingPacketBytes = size_t{64} << 20;
constexpr size_t kPictureBytes = size_t{64} << 20;
constexpr size_t kAudioBytes = kOutputBytesPerSecond / 2;
constexpr std::chrono::milliseconds kFullQueueSlice{20};
// Audio read while looking for the key frame after a seek: a few seconds of any common codec.
constexpr size_t kWaitingPackets = 1024;

// What a packet weighs in its queue: its bytes, and a little for the record, so that a flood of
// empty packets is bounded too.
size_t weightOf(const AVPacket& packet) { return static_cast<size_t>(packet.size > 0 ? packet.size : 0) + 64; }

}  // namespace

PlaybackEngine::PlaybackEngine(Failed failed)
    : failed_(std::move(failed)),
      videoPackets_(kVideoPacketBytes),
      audioPackets_(kAudioPacketBytes),
      frames_(kPictureBytes),
      chunks_(kAudioBytes) {}

HRESULT PlaybackEngine::open(const std::string& path, int videoIndex, int audioIndex, Failed failed,
                             std::unique_ptr<PlaybackEngine>* engine) {
    std::unique_ptr<PlaybackEngine> made(new (std::nothrow) PlaybackEngine(std::move(failed)));
    if (!made) return E_OUTOFMEMORY;
    if (path.empty()) return E_INVALIDARG;
    if (HRESULT hr = openPath(path, /*probeStreams*/ true, &made->format_); FAILED(hr)) return hr;
    const int count = static_cast<int>(made->format_->nb_streams);
    if (videoIndex >= count || audioIndex >= count) return MF_E_INVALIDSTREAMNUMBER;
    made->origin_ = mediaOrigin(*made->format_, videoIndex >= 0 ? videoIndex : audioIndex);
    // The first seek goes back over the packets this reads.
    if (videoIndex >= 0) made->origin_ += guessedTimesDelay(*made->format_, videoIndex);
    PlaybackEngine* self = made.get();
    if (videoIndex >= 0) {
        DecoderLinks<FramePointer> links{made->seek_,  made->videoPackets_, made->frames_,
                                         made->videoEnd_, made->origin_,      made->failed_};
        if (HRESULT hr = VideoDecoder::create(*made->format_, *made->format_->streams[videoIndex], std::move(links),
                                              [self](unsigned generation) { self->retreat(generation); }, &made->video_);
            FAILED(hr)) {
            return hr;
        }
    }
    if (audioIndex >= 0) {
        DecoderLinks<AudioChunk> links{made->seek_,  made->audioPackets_, made->chunks_,
                                       made->audioEnd_, made->origin_,      made->failed_};
        if (HRESULT hr = AudioDecoder::create(*made->format_->streams[audioIndex], std::move(links), &made->audio_);
            FAILED(hr)) {
            return hr;
        }
    }
    made->videoIndex_ = videoIndex;
    made->audioIndex_ = audioIndex;
    for (unsigned i = 0; i < made->format_->nb_streams; ++i) {
        const int index = static_cast<int>(i);
        if (index != videoIndex && index != audioIndex) made->format_->streams[i]->discard = AVDISCARD_ALL;
    }
    made->seek(0);
    try {
        made->demuxThread_ = std::thread(&PlaybackEngine::demux, self);
        if (made->video_) made->videoThread_ = std::thread(&VideoDecoder::run, made->video_.get());
        if (made->audio_) made->audioThread_ = std::thread(&AudioDecoder::run, made->audio_.get());
    } catch (const std::system_error&) {
        return E_OUTOFMEMORY;
    }
    *engine = std::move(made);
    return S_OK;
}

PlaybackEngine::~PlaybackEngine() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        closing_ = true;
    }
    wake_.notify_all();
    videoPackets_.close();
    audioPackets_.close();
    frames_.close();
    chunks_.close();
    for (std::thread* thread : {&demuxThread_, &videoThread_, &audioThread_}) {
        if (thread->joinable()) thread->join();
    }
    video_.reset();
    audio_.reset();
    avformat_close_input(&format_);
}

void PlaybackEngine::seek(LONGLONG position, bool scrubbing) {
    std::lock_guard<std::mutex> lock(mutex_);
    const unsigned generation = seek_.begin(position, scrubbing);
    FramePointer recent = scrubbing && video_ ? video_->recentPicture(position, generation) : FramePointer();
    restart(position);
    parked_ = static_cast<bool>(recent);
    seekPending_ = !parked_;
    if (recent) {
        const size_t bytes = recent->picture->bytes();
        frames_.push(std::move(recent), bytes);
    }
}

void PlaybackEngine::retreat(unsigned generation) {
    std::lock_guard<std::mutex> lock(mutex_);
    LONGLONG from = 0;
    if (seek_.retreat(generation, &from) == 0) return;
    restart(from);
}

// With mutex_: waiting pushes are cancelled, so the threads see the new generation at once.
void PlaybackEngine::restart(LONGLONG from) {
    videoPackets_.clear();
    audioPackets_.clear();
    frames_.clear();
    chunks_.clear();
    parked_ = false;
    seekPending_ = true;
    seekTarget_ = from;
    wake_.notify_all();
}

bool PlaybackEngine::parked() {
    std::lock_guard<std::mutex> lock(mutex_);
    return parked_;
}

void PlaybackEngine::reposition(LONGLONG target) {
    // In the video stream's own time base where there is one: exact for any container's clock.
    const int index = videoIndex_ >= 0 ? videoIndex_ : audioIndex_;
    const AVRational timeBase = index >= 0 ? format_->streams[index]->time_base : AV_TIME_BASE_Q;
    // The start is asked for well before the first timestamp: a container without an index (MPEG-TS)
    // is searched by decoding time, and the first picture's decoding time lies before its own.
    const int64_t timestamp = fromMediaTime(target > 0 ? target : -kHundredNanosecondsPerSecond * 10, timeBase, origin_);
    if (avformat_seek_file(format_, index, INT64_MIN, timestamp, timestamp, 0) >= 0) return;
    if (av_seek_frame(format_, index, fromMediaTime(std::max<LONGLONG>(target, 0), timeBase, origin_),
                      AVSEEK_FLAG_BACKWARD) >= 0) {
        return;
    }
    av_seek_frame(format_, -1, origin_, AVSEEK_FLAG_BACKWARD);
}

PlaybackEngine::Landing PlaybackEngine::landing(const AVPacket& packet, LONGLONG target) const {
    const int64_t timestamp = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    const bool past = timestamp != AV_NOPTS_VALUE &&
                      toMediaTime(timestamp, format_->streams[videoIndex_]->time_base, origin_) > target;
    if ((packet.flags & AV_PKT_FLAG_KEY) == 0) return past ? Landing::Missed : Landing::Skip;
    return past || timestamp == AV_NOPTS_VALUE ? Landing::Missed : Landing::Landed;
}

void PlaybackEngine::enqueue(BoundedQueue<Packet>& queue, BoundedQueue<Packet>* other, Packet packet, size_t weight) {
    for (;;) {
        switch (queue.pushFor(packet, weight, kFullQueueSlice)) {
            case BoundedQueue<Packet>::Push::Done:
            case BoundedQueue<Packet>::Push::Cancelled: return;
            case BoundedQueue<Packet>::Push::Full: break;
        }
        if (other != nullptr && other->starving()) {
            queue.pushOver(std::move(packet), weight, kStarvingPacketBytes);
            return;
        }
        std::lock_guard<std::mutex> lock(mutex_);
        if (closing_ || seekPending_) return;
    }
}

void PlaybackEngine::release(std::vector<Packet>& waiting, BoundedQueue<Packet>* other) {
    for (Packet& held : waiting) {
        const size_t weight = weightOf(*held.packet);
        enqueue(audioPackets_, other, std::move(held), weight);
    }
    waiting.clear();
}

void PlaybackEngine::demux() {
    PacketPointer packet(av_packet_alloc());
    if (!packet) return;
    unsigned generation = 0;
    bool ended = false;
    BoundedQueue<Packet>* video = video_ ? &videoPackets_ : nullptr;
    BoundedQueue<Packet>* audio = audio_ ? &audioPackets_ : nullptr;
    // After a seek, the first video packet must be a key frame at or before the target: containers
    // without an index land on any packet. Until it is found, audio read on the way waits here.
    LONGLONG target = 0;
    LONGLONG backoff = 0;
    bool landed = true;
    std::vector<Packet> waiting;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex_);
            // At the end of the file, or parked, there is nothing to do until the next seek.
            wake_.wait(lock, [&] { return closing_ || seekPending_ || (!ended && !parked_); });
            if (closing_) return;
            if (seekPending_) {
                seekPending_ = false;
                generation = seek_.generation();
                ended = false;
                target = seekTarget_;
                backoff = 0;
                landed = video == nullptr;
                waiting.clear();
                lock.unlock();
                reposition(target);
                continue;
            }
        }
        const int status = av_read_frame(format_, packet.get());
        if (status == AVERROR(EAGAIN)) continue;
        if (status < 0) {
            ended = true;
            release(waiting, nullptr);
            if (video != nullptr) enqueue(*video, nullptr, Packet{nullptr, generation}, 0);
            if (audio != nullptr) enqueue(*audio, nullptr, Packet{nullptr, generation}, 0);
            continue;
        }
        const bool isVideo = packet->stream_index == videoIndex_;
        BoundedQueue<Packet>* queue = isVideo ? video : packet->stream_index == audioIndex_ ? audio : nullptr;
        if (queue == nullptr) {
            av_packet_unref(packet.get());
            continue;
        }
        PacketPointer moved(av_packet_alloc());
        if (!moved) return;
        av_packet_move_ref(moved.get(), packet.get());
        if (!landed) {
            if (!isVideo) {
                if (waiting.size() < kWaitingPackets) waiting.push_back(Packet{std::move(moved), generation});
                continue;
            }
            // Pictures before the key frame cannot be decoded; past the target without one, reading
            // starts further back, until the start of the file.
            const Landing found = landing(*moved, target);
            if (found == Landing::Skip && target - backoff > 0) continue;
            if (found == Landing::Missed && target - backoff > 0) {
                backoff = backoff == 0 ? kHundredNanosecondsPerSecond : 2 * backoff;
                waiting.clear();
                reposition(target - backoff);
                continue;
            }
            landed = true;
            release(waiting, video);
        }
        const size_t weight = weightOf(*moved);
        enqueue(*queue, isVideo ? audio : video, Packet{std::move(moved), generation}, weight);
    }
}

}  // namespace kyplatform
