// The video decoding of the playback engine: packets of the video stream in, decoded pictures out
// (as the decoder gave them, with the turn that makes them upright), from the frame that contains
// the seek target on. The renderer converts the ones it shows. Pictures weigh the bytes of their
// buffers in the engine's picture queue.
#ifndef KY_PLATFORM_VIDEO_DECODER_H
#define KY_PLATFORM_VIDEO_DECODER_H

#include <memory>

#include "PlaybackTypes.h"
#include "RecentPictures.h"

struct AVFormatContext;
struct AVStream;

namespace kyplatform {

class VideoDecoder {
public:
    /* Called on the decoding thread when the picture containing the target of generation cannot be
     * decoded from where the demuxer started (leading pictures of an open GOP): the engine starts
     * reading earlier. */
    using Missed = std::function<void(unsigned generation)>;

    /* MF_E_TOPO_CODEC_NOT_FOUND when no decoder for the stream opens, E_OUTOFMEMORY for a stream
     * whose pictures pass the layer's limit. */
    static HRESULT create(AVFormatContext& format, AVStream& stream, DecoderLinks<FramePointer> links, Missed missed,
                          std::unique_ptr<VideoDecoder>* decoder);
    ~VideoDecoder();

    /* The decoding thread's body: returns when the packet queue is closed. */
    void run();
    /* The picture containing target from recent scrubbing, as a picture of generation, or null.
     * Any thread. */
    FramePointer recentPicture(LONGLONG target, unsigned generation);

    VideoDecoder(const VideoDecoder&) = delete;
    VideoDecoder& operator=(const VideoDecoder&) = delete;

private:
    VideoDecoder(DecoderLinks<FramePointer> links, Missed missed)
        : links_(std::move(links)), missed_(std::move(missed)), recent_(kRecentPictureBytes) {}

    // About 40 pictures of 1080p: more than a second of frames to step back through.
    static constexpr size_t kRecentPictureBytes = 128u << 20;
    void decode(const Packet& packet);
    void receiveFrames();
    /* Keeps the frame at the target back until the next one shows it is the one containing it. */
    void handle(AVFrame& frame);
    void emit(AVFrame& frame);
    /* The picture's interval in 100 ns of media time; end is time when the duration is unknown. */
    void intervalOf(const AVFrame& frame, LONGLONG* time, LONGLONG* end) const;
    /* The frame that shows picture as generation's; null without a picture. */
    FramePointer frameOf(PicturePointer picture, unsigned generation) const;
    void fail(HRESULT hr);

    DecoderLinks<FramePointer> links_;
    const Missed missed_;
    AVCodecContext* decoder_ = nullptr;
    RecentPictures recent_;
    bool keeping_ = false;
    AVFrame* frame_ = nullptr;
    AVFrame* held_ = nullptr;
    bool holding_ = false;
    bool dropping_ = false;
    std::atomic<bool> failed_{false};  // set from the decoding thread or a seeking one
    unsigned generation_ = 0;
    AVRational timeBase_{0, 1};
    AVRational frameRate_{0, 1};
    AVRational pixelAspect_{0, 1};
    int rotation_ = 0;  // counter-clockwise quarter turns that make the picture upright
};

}  // namespace kyplatform

#endif
