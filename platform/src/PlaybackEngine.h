// The playback engine of a media session: its own demuxer of the file on a demux thread, a
// decoding thread per played stream, and bounded queues between them (a few pictures, about half
// a second of audio), so that memory stays flat whatever the media's length. The session's
// scheduler takes pictures and audio from its queues; seek() starts a new generation of both.
#ifndef KY_PLATFORM_PLAYBACK_ENGINE_H
#define KY_PLATFORM_PLAYBACK_ENGINE_H

#include <condition_variable>
#include <memory>
#include <string>
#include <thread>

#include "AudioDecoder.h"
#include "VideoDecoder.h"

namespace kyplatform {

class PlaybackEngine {
public:
    /* Opens path and the decoders of the streams at videoIndex and audioIndex (-1: none) and
     * starts the threads, positioned at 0. MF_E_TOPO_CODEC_NOT_FOUND when a decoder is missing. */
    static HRESULT open(const std::string& path, int videoIndex, int audioIndex, std::unique_ptr<PlaybackEngine>* engine);
    /* Ends and joins the threads. */
    ~PlaybackEngine();

    /* Drops everything queued and decodes from the frame containing position on. A scrubbing
     * seek that recent scrubbing has the picture for queues that picture alone and parks the
     * demuxer until the next seek. Any thread. */
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
    PlaybackEngine();
    void demux();
    /* With the demuxer: moves the input to target, or to its start when that fails. */
    void reposition(LONGLONG target);

    AVFormatContext* format_ = nullptr;
    int videoIndex_ = -1;
    int audioIndex_ = -1;
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
