// The video decoding of the playback engine: packets of the video stream in, upright BGRX
// pictures out, from the frame that contains the seek target on.
#ifndef KY_PLATFORM_VIDEO_DECODER_H
#define KY_PLATFORM_VIDEO_DECODER_H

#include <memory>

#include "PlaybackTypes.h"

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

private:
    VideoDecoder(SeekState& seek, BoundedQueue<Packet>& packets, BoundedQueue<FramePointer>& frames, EndMark& end)
        : seek_(seek), packets_(packets), frames_(frames), end_(end) {}
    void receiveFrames();
    /* Keeps the frame at the target back until the next one shows it is the one containing it. */
    void handle(AVFrame& frame);
    void emit(AVFrame& frame);
    FramePointer convert(const AVFrame& frame);

    SeekState& seek_;
    BoundedQueue<Packet>& packets_;
    BoundedQueue<FramePointer>& frames_;
    EndMark& end_;
    AVCodecContext* decoder_ = nullptr;
    SwsContext* scaler_ = nullptr;
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
