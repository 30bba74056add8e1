// The video decoding of the playback engine: packets of the video stream in, upright BGRX
// pictures out, from the frame that contains the seek target on.
#ifndef KY_PLATFORM_VIDEO_DECODER_H
#define KY_PLATFORM_VIDEO_DECODER_H

#include <memory>

#include "PlaybackTypes.h"
#include "RecentPictures.h"

struct AVFormatContext;
struct AVStream;
struct SwsContext;

namespace kyplatform {

class VideoDecoder {
public:
    /* MF_E_TOPO_CODEC_NOT_FOUND when no decoder for the stream opens. */
    static HRESULT create(AVFormatContext& format, AVStream& stream, SeekState& seek, BoundedQueue<Packet>& packets,
                          BoundedQueue<FramePointer>& frames, EndMark& end, std::unique_ptr<VideoDecoder>* decoder);
    ~VideoDecoder();

    /* The decoding thread's body: returns when the packet queue is closed. */
    void run();
    /* The picture containing target from recent scrubbing, as a picture of generation, or null.
     * Any thread. */
    FramePointer recentPicture(LONGLONG target, unsigned generation);

private:
    VideoDecoder(SeekState& seek, BoundedQueue<Packet>& packets, BoundedQueue<FramePointer>& frames, EndMark& end)
        : seek_(seek), packets_(packets), frames_(frames), end_(end), recent_(kRecentPictureBytes) {}

    // About 40 pictures of 1080p: more than a second of frames to step back through.
    static constexpr size_t kRecentPictureBytes = 128u << 20;
    void receiveFrames();
    /* Keeps the frame at the target back until the next one shows it is the one containing it. */
    void handle(AVFrame& frame);
    void emit(AVFrame& frame);
    /* The picture's interval in 100 ns; end is time when the duration is unknown. */
    void intervalOf(const AVFrame& frame, LONGLONG* time, LONGLONG* end) const;
    FramePointer convert(const AVFrame& frame, SwsContext** scaler, unsigned generation);

    SeekState& seek_;
    BoundedQueue<Packet>& packets_;
    BoundedQueue<FramePointer>& frames_;
    EndMark& end_;
    AVCodecContext* decoder_ = nullptr;
    SwsContext* scaler_ = nullptr;
    RecentPictures recent_;
    std::mutex recentMutex_;  // guards recentScaler_
    SwsContext* recentScaler_ = nullptr;
    bool keeping_ = false;
    AVFrame* frame_ = nullptr;
    AVFrame* held_ = nullptr;
    bool holding_ = false;
    bool dropping_ = false;
    unsigned generation_ = 0;
    AVRational timeBase_{0, 1};
    AVRational frameRate_{0, 1};
    AVRational pixelAspect_{0, 1};
    int rotation_ = 0;  // counter-clockwise quarter turns that make the picture upright
};

}  // namespace kyplatform

#endif
