#include "PlaybackEngine.h"

#include <system_error>

extern "C" {
#include <libavformat/avformat.h>
}

namespace kyplatform {

namespace {

// Packets are queued ahead of the decoders by count: enough to cover the interleaving of the two
// streams, never the whole file.
constexpr size_t kVideoPackets = 64;
constexpr size_t kAudioPackets = 128;
constexpr size_t kFrames = 4;
constexpr size_t kAudioBytes = kOutputBytesPerSecond / 2;

}  // namespace

PlaybackEngine::PlaybackEngine()
    : videoPackets_(kVideoPackets), audioPackets_(kAudioPackets), frames_(kFrames), chunks_(kAudioBytes) {}

HRESULT PlaybackEngine::open(const std::string& path, int videoIndex, int audioIndex,
                             std::unique_ptr<PlaybackEngine>* engine) {
    std::unique_ptr<PlaybackEngine> made(new (std::nothrow) PlaybackEngine());
    if (!made) return E_OUTOFMEMORY;
    if (path.empty()) return E_INVALIDARG;
    if (avformat_open_input(&made->format_, ("file:" + path).c_str(), nullptr, nullptr) < 0) {
        return MF_E_INVALID_FORMAT;
    }
    if (avformat_find_stream_info(made->format_, nullptr) < 0) return MF_E_INVALID_FORMAT;
    const int count = static_cast<int>(made->format_->nb_streams);
    if (videoIndex >= count || audioIndex >= count) return MF_E_INVALIDSTREAMNUMBER;
    if (videoIndex >= 0) {
        AVStream& stream = *made->format_->streams[videoIndex];
        if (HRESULT hr = VideoDecoder::create(*made->format_, stream, made->seek_, made->videoPackets_, made->frames_,
                                              made->videoEnd_, &made->video_);
            FAILED(hr)) {
            return hr;
        }
    }
    if (audioIndex >= 0) {
        AVStream& stream = *made->format_->streams[audioIndex];
        if (HRESULT hr = AudioDecoder::create(stream, made->seek_, made->audioPackets_, made->chunks_,
                                              made->audioEnd_, &made->audio_);
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
        made->demuxThread_ = std::thread(&PlaybackEngine::demux, made.get());
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
    // Waiting pushes are cancelled, so the threads see the new generation at once.
    videoPackets_.clear();
    audioPackets_.clear();
    frames_.clear();
    chunks_.clear();
    FramePointer recent = scrubbing && video_ ? video_->recentPicture(position, generation) : FramePointer();
    parked_ = static_cast<bool>(recent);
    seekPending_ = !parked_;
    seekTarget_ = position;
    if (recent) frames_.push(std::move(recent));
    wake_.notify_all();
}

bool PlaybackEngine::parked() {
    std::lock_guard<std::mutex> lock(mutex_);
    return parked_;
}

void PlaybackEngine::reposition(LONGLONG target) {
    const int64_t timestamp = av_rescale(target, AV_TIME_BASE, kHundredNanosecondsPerSecond);
    const int64_t start = format_->start_time != AV_NOPTS_VALUE ? format_->start_time : 0;
    if (avformat_seek_file(format_, -1, INT64_MIN, start + timestamp, start + timestamp, 0) >= 0) return;
    if (av_seek_frame(format_, -1, start + timestamp, AVSEEK_FLAG_BACKWARD) >= 0) return;
    av_seek_frame(format_, -1, start, AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_BYTE);
}

void PlaybackEngine::demux() {
    PacketPointer packet(av_packet_alloc());
    if (!packet) return;
    unsigned generation = 0;
    bool ended = false;
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
                const LONGLONG target = seekTarget_;
                lock.unlock();
                reposition(target);
                continue;
            }
        }
        const int status = av_read_frame(format_, packet.get());
        if (status == AVERROR(EAGAIN)) continue;
        if (status < 0) {
            ended = true;
            if (video_) videoPackets_.push(Packet{nullptr, generation});
            if (audio_) audioPackets_.push(Packet{nullptr, generation});
            continue;
        }
        BoundedQueue<Packet>* queue = packet->stream_index == videoIndex_   ? &videoPackets_
                                      : packet->stream_index == audioIndex_ ? &audioPackets_
                                                                            : nullptr;
        if (queue == nullptr) {
            av_packet_unref(packet.get());
            continue;
        }
        PacketPointer moved(av_packet_alloc());
        if (!moved) return;
        av_packet_move_ref(moved.get(), packet.get());
        queue->push(Packet{std::move(moved), generation});
    }
}

}  // namespace kyplatform
