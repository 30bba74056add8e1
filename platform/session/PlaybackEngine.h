// The playback engine of a media session: its own demuxer of the file on a demux thread, a
// decoding thread per played stream, and bounded queues between them, so that memory stays flat
// whatever the media's length and whatever its headers claim. The session's scheduler takes
// pictures and audio from its queues; seek() starts a new generation of all of them.
//
// The queues and who waits on them:
//   demux thread -> video packets (16 MB) -> video thread -> pictures (64 MB) -> scheduler thread
//                -> audio packets (4 MB)  -> audio thread -> samples (0.5 s)  -> audio device
// Every budget is in bytes; a queue that is empty takes one item whatever its weight. The demuxer
// waits while the queue of the packet it holds is full; the decoders wait for packets and for room
// for their output; the scheduler and the device never wait on a queue.
//
// After a seek the demuxer skips to a key frame at or before the target: containers without an
// index (MPEG-TS) land on any packet.
//
// Why this cannot deadlock when one stream lies far ahead of the other in the file: the pictures
// are consumed as the clock passes them, and the clock runs once the first picture after a seek is
// shown (preroll). Audio is consumed only while the clock runs. So during preroll the audio side
// fills and stops, and if the file holds audio far ahead of video, the demuxer would wait on a
// full audio packet queue while the video decoder waits for a packet that lies behind it: a cycle.
// The demuxer breaks it: while the other played stream's decoder is starving (waiting on an empty
// queue), it queues past the budget, up to 64 MB; beyond that it drops the packet rather than
// wait, which only a hostile file reaches. Waiting on a full queue is done in slices of 20 ms, so
// that a decoder starting to starve is noticed without a wake-up of its own.
#ifndef KY_PLATFORM_PLAYBACK_ENGINE_H
#define KY_PLATFORM_PLAYBACK_ENGINE_H

#include <condition_variable>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AudioDecoder.h"
#include "VideoDecoder.h"

namespace kyplatform {

class PlaybackEngine {
public:
    /* Called on a decoding thread when decoding cannot go on (E_OUTOFMEMORY), once per stream. */
    using Failed = std::function<void(HRESULT)>;

    /* Opens path and the decoders of the streams at videoIndex and audioIndex (-1: none) and
     * starts the threads, positioned at 0. MF_E_TOPO_CODEC_NOT_FOUND when a decoder is missing. */
    static HRESULT open(const std::string& path, int videoIndex, int audioIndex, Failed failed,
                        std::unique_ptr<PlaybackEngine>* engine);
    /* Ends and joins the threads. */
    ~PlaybackEngine();

    /* Drops everything queued and decodes from the frame containing position (media time) on. A
     * scrubbing seek that recent scrubbing has the picture for queues that picture alone and parks
     * the demuxer until the next seek. Any thread. */
    void seek(LONGLONG position, bool scrubbing = false);
    /* The last seek was answered from recent pictures: nothing follows its picture. */
    bool parked();
    unsigned generation() { return seek_.generation(); }
    SeekState& seekState() { return seek_; }

    bool hasVideo() const { return static_cast<bool>(video_); }
    bool hasAudio() const { return static_cast<bool>(audio_); }
    BoundedQueue<FramePointer>& frames() { return frames_; }
    BoundedQueue<AudioChunk>& chunks() { return chunks_; }
    /* The stream has decoded its last frame of the current generation into the queue. */
    bool videoEnded() { return !video_ || videoEnd_.reached(generation()); }
    bool audioEnded() { return !audio_ || audioEnd_.reached(generation()); }

    PlaybackEngine(const PlaybackEngine&) = delete;
    PlaybackEngine& operator=(const PlaybackEngine&) = delete;

private:
    explicit PlaybackEngine(Failed failed);
    void demux();
    /* Queues a packet of the stream that queue serves, as the header says. */
    void enqueue(BoundedQueue<Packet>& queue, BoundedQueue<Packet>* other, Packet packet, size_t weight);
    /* Queues the audio packets read while looking for the key frame after a seek. */
    void release(std::vector<Packet>& waiting, BoundedQueue<Packet>* other);
    /* With the demuxer: moves the input to target (media time), or to its start when that fails. */
    void reposition(LONGLONG target);
    /* After a seek to target, what a video packet says of where reading landed: decoding can start
     * with a key frame at or before target (Landed); packets before one are skipped (Skip); past
     * target without one, reading has to start earlier (Missed). */
    enum class Landing { Skip, Landed, Missed };
    Landing landing(const AVPacket& packet, LONGLONG target) const;
    /* The video decoder missed the target of generation: reads again from further back. */
    void retreat(unsigned generation);
    void restart(LONGLONG from);

    const Failed failed_;
    AVFormatContext* format_ = nullptr;
    int videoIndex_ = -1;
    int audioIndex_ = -1;
    int64_t origin_ = 0;
    SeekState seek_;
    BoundedQueue<Packet> videoPackets_;
    BoundedQueue<Packet> audioPackets_;
    BoundedQueue<FramePointer> frames_;
    BoundedQueue<AudioChunk> chunks_;
    EndMark videoEnd_;
    EndMark audioEnd_;
    std::unique_ptr<VideoDecoder> video_;
    std::unique_ptr<AudioDecoder> audio_;

    std::mutex mutex_;
    std::condition_variable wake_;
    bool seekPending_ = false;
    bool parked_ = false;
    LONGLONG seekTarget_ = 0;
    bool closing_ = false;
    std::thread demuxThread_;
    std::thread videoThread_;
    std::thread audioThread_;
};

}  // namespace kyplatform

#endif
