#include "VideoDecoder.h"

#include <cmath>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libswscale/swscale.h>
}

namespace kyplatform {

namespace {

constexpr AVRational kHundredNanoseconds{1, 10000000};
constexpr int kMaxDimension = 16384;

bool known(AVRational value) { return value.num > 0 && value.den > 0; }

// The display matrix's counter-clockwise turn in quarters; turning the picture by it makes it upright.
int quarterTurnsOf(const AVStream& stream) {
    size_t size = 0;
    const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (matrix == nullptr || size < 9 * sizeof(int32_t)) return 0;
    const double degrees = av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
    if (!std::isfinite(degrees)) return 0;
    return static_cast<int>((std::lround(degrees / 90.0) % 4 + 4) % 4);
}

// Turns a top-down BGRX picture counter-clockwise by quarter turns.
std::vector<uint8_t> turned(const std::vector<uint8_t>& pixels, int width, int height, int quarters) {
    std::vector<uint8_t> out(pixels.size());
    const auto* from = reinterpret_cast<const uint32_t*>(pixels.data());
    auto* to = reinterpret_cast<uint32_t*>(out.data());
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const uint32_t pixel = from[y * width + x];
            if (quarters == 1) to[(width - 1 - x) * height + y] = pixel;
            else if (quarters == 2) to[(height - 1 - y) * width + (width - 1 - x)] = pixel;
            else to[x * height + (height - 1 - y)] = pixel;
        }
    }
    return out;
}

}  // namespace

HRESULT VideoDecoder::create(AVFormatContext& format, AVStream& stream, SeekState& seek, BoundedQueue<Packet>& packets,
                             BoundedQueue<FramePointer>& frames, EndMark& end, std::unique_ptr<VideoDecoder>* decoder) {
    std::unique_ptr<VideoDecoder> made(new (std::nothrow) VideoDecoder(seek, packets, frames, end));
    if (!made) return E_OUTOFMEMORY;
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr) return MF_E_TOPO_CODEC_NOT_FOUND;
    made->decoder_ = avcodec_alloc_context3(codec);
    made->frame_ = av_frame_alloc();
    made->held_ = av_frame_alloc();
    if (made->decoder_ == nullptr || made->frame_ == nullptr || made->held_ == nullptr) return E_OUTOFMEMORY;
    if (avcodec_parameters_to_context(made->decoder_, stream.codecpar) < 0 ||
        avcodec_open2(made->decoder_, codec, nullptr) < 0) {
        return MF_E_TOPO_CODEC_NOT_FOUND;
    }
    made->timeBase_ = stream.time_base;
    made->frameRate_ = known(stream.avg_frame_rate) ? stream.avg_frame_rate : stream.r_frame_rate;
    made->pixelAspect_ = av_guess_sample_aspect_ratio(&format, &stream, nullptr);
    made->rotation_ = quarterTurnsOf(stream);
    *decoder = std::move(made);
    return S_OK;
}

VideoDecoder::~VideoDecoder() {
    sws_freeContext(recentScaler_);
    sws_freeContext(scaler_);
    av_frame_free(&held_);
    av_frame_free(&frame_);
    avcodec_free_context(&decoder_);
}

void VideoDecoder::run() {
    while (std::optional<Packet> next = packets_.pop()) {
        if (next->generation != generation_) {
            avcodec_flush_buffers(decoder_);
            av_frame_unref(held_);
            holding_ = false;
            dropping_ = true;
            generation_ = next->generation;
            // Pictures are kept only while scrubbing; playing lets them go. Keeping costs fresh
            // memory at first, which a single seek would pay for nothing.
            keeping_ = seek_.keepsPictures(generation_);
            if (!seek_.scrubbing(generation_)) recent_.clear();
        }
        if (!next->packet) {
            avcodec_send_packet(decoder_, nullptr);
            receiveFrames();
            if (holding_) emit(*held_);
            av_frame_unref(held_);
            holding_ = false;
            // Drained: the decoder takes packets again only after a flush, which the next seek makes.
            end_.generation.store(generation_);
            continue;
        }
        // A packet the decoder refuses is damaged data, skipped as the platform's decoders skip it.
        avcodec_send_packet(decoder_, next->packet.get());
        receiveFrames();
    }
}

void VideoDecoder::receiveFrames() {
    while (avcodec_receive_frame(decoder_, frame_) == 0) {
        handle(*frame_);
        av_frame_unref(frame_);
    }
}

void VideoDecoder::handle(AVFrame& frame) {
    LONGLONG time = 0;
    LONGLONG end = 0;
    intervalOf(frame, &time, &end);
    if (keeping_ && frame.best_effort_timestamp != AV_NOPTS_VALUE) recent_.keep(frame, time, end);
    if (dropping_) {
        const LONGLONG target = seek_.targetOf(generation_);
        if (frame.best_effort_timestamp == AV_NOPTS_VALUE || time <= target) {
            av_frame_unref(held_);
            holding_ = av_frame_ref(held_, &frame) == 0;
            return;
        }
        dropping_ = false;
        if (holding_) emit(*held_);
        av_frame_unref(held_);
        holding_ = false;
    }
    emit(frame);
}

void VideoDecoder::emit(AVFrame& frame) {
    FramePointer converted = convert(frame, &scaler_, generation_);
    if (converted) frames_.push(std::move(converted));
}

FramePointer VideoDecoder::recentPicture(LONGLONG target, unsigned generation) {
    AVFrame* found = recent_.find(target);
    if (found == nullptr) return {};
    FramePointer converted;
    {
        std::lock_guard<std::mutex> lock(recentMutex_);
        converted = convert(*found, &recentScaler_, generation);
    }
    av_frame_free(&found);
    return converted;
}

void VideoDecoder::intervalOf(const AVFrame& frame, LONGLONG* time, LONGLONG* end) const {
    *time = frame.best_effort_timestamp == AV_NOPTS_VALUE
                ? 0
                : av_rescale_q(frame.best_effort_timestamp, timeBase_, kHundredNanoseconds);
    LONGLONG duration = frame.pkt_duration > 0 ? av_rescale_q(frame.pkt_duration, timeBase_, kHundredNanoseconds) : 0;
    if (duration <= 0 && known(frameRate_)) duration = av_rescale_q(1, av_inv_q(frameRate_), kHundredNanoseconds);
    *end = *time + duration;
}

FramePointer VideoDecoder::convert(const AVFrame& frame, SwsContext** scaler, unsigned generation) {
    const int width = frame.width;
    const int height = frame.height;
    if (width <= 0 || height <= 0 || width > kMaxDimension || height > kMaxDimension || frame.format < 0) return {};
    *scaler = sws_getCachedContext(*scaler, width, height, static_cast<AVPixelFormat>(frame.format), width, height,
                                   AV_PIX_FMT_BGRA, SWS_BILINEAR, nullptr, nullptr, nullptr);
    if (*scaler == nullptr) return {};
    auto made = std::make_shared<VideoFrame>();
    made->bgrx.resize(static_cast<size_t>(width) * height * 4);
    uint8_t* const planes[4] = {made->bgrx.data(), nullptr, nullptr, nullptr};
    const int strides[4] = {width * 4, 0, 0, 0};
    if (sws_scale(*scaler, frame.data, frame.linesize, 0, height, planes, strides) <= 0) return {};
    const bool sideways = rotation_ % 2 == 1;
    if (rotation_ != 0) made->bgrx = turned(made->bgrx, width, height, rotation_);
    made->width = sideways ? height : width;
    made->height = sideways ? width : height;
    const double pixelAspect = known(pixelAspect_) ? av_q2d(pixelAspect_) : 1.0;
    made->aspectWidth = sideways ? height : width * pixelAspect;
    made->aspectHeight = sideways ? width * pixelAspect : height;
    intervalOf(frame, &made->time, &made->end);
    made->generation = generation;
    return made;
}

}  // namespace kyplatform
