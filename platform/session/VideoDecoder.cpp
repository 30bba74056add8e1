#include "VideoDecoder.h"

#include <new>

#include "ffmpeg/FfmpegDecoding.h"
#include "ffmpeg/FrameConverter.h"
#include "ffmpeg/MediaTimeline.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kyplatform {

HRESULT VideoDecoder::create(AVFormatContext& format, AVStream& stream, DecoderLinks<FramePointer> links, Missed missed,
                             std::unique_ptr<VideoDecoder>* decoder) {
    std::unique_ptr<VideoDecoder> made(new (std::nothrow) VideoDecoder(std::move(links), std::move(missed)));
    if (!made) return E_OUTOFMEMORY;
    made->frame_ = av_frame_alloc();
    made->held_ = av_frame_alloc();
    if (made->frame_ == nullptr || made->held_ == nullptr) return E_OUTOFMEMORY;
    const AVCodecParameters& parameters = *stream.codecpar;
    if (parameters.width > 0 && parameters.height > 0 && !pictureSizeAllowed(parameters.width, parameters.height)) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = openVideoDecoder(stream, 1, &made->decoder_);
    if (FAILED(hr)) return hr == E_OUTOFMEMORY ? hr : MF_E_TOPO_CODEC_NOT_FOUND;
    made->timeBase_ = stream.time_base;
    made->frameRate_ = known(stream.avg_frame_rate) ? stream.avg_frame_rate : stream.r_frame_rate;
    made->pixelAspect_ = av_guess_sample_aspect_ratio(&format, &stream, nullptr);
    displayQuarterTurns(stream, &made->rotation_);
    *decoder = std::move(made);
    return S_OK;
}

VideoDecoder::~VideoDecoder() {
    av_frame_free(&held_);
    av_frame_free(&frame_);
    avcodec_free_context(&decoder_);
}

void VideoDecoder::run() {
    while (std::optional<Packet> next = links_.packets.pop()) {
        try {
            decode(*next);
        } catch (const std::bad_alloc&) {
            fail(E_OUTOFMEMORY);
        }
    }
}

void VideoDecoder::decode(const Packet& next) {
    if (next.generation != generation_) {
        avcodec_flush_buffers(decoder_);
        av_frame_unref(held_);
        holding_ = false;
        dropping_ = true;
        generation_ = next.generation;
        // Pictures are kept only while scrubbing; playing lets them go. Keeping costs fresh memory
        // at first, which a single seek would pay for nothing.
        keeping_ = links_.seek.keepsPictures(generation_);
        if (!links_.seek.scrubbing(generation_)) recent_.clear();
    }
    if (!next.packet) {
        avcodec_send_packet(decoder_, nullptr);
        receiveFrames();
        if (holding_) emit(*held_);
        av_frame_unref(held_);
        holding_ = false;
        // Drained: the decoder takes packets again only after a flush, which the next seek makes.
        links_.end.generation.store(generation_);
        return;
    }
    // A packet the decoder refuses is damaged data, skipped as the platform's decoders skip it,
    // unless it announced a picture too large to decode.
    if (avcodec_send_packet(decoder_, next.packet.get()) < 0 && decoder_->width > 0 && decoder_->height > 0 &&
        !pictureSizeAllowed(decoder_->width, decoder_->height)) {
        fail(E_OUTOFMEMORY);
    }
    receiveFrames();
}

void VideoDecoder::fail(HRESULT hr) {
    if (failed_.exchange(true)) return;
    if (links_.failed) links_.failed(hr);
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
    if (keeping_ && frame.best_effort_timestamp != AV_NOPTS_VALUE && !damagedPicture(frame)) {
        recent_.keep(DecodedPicture::of(frame), time, end);
    }
    if (!dropping_) {
        emit(frame);
        return;
    }
    const LONGLONG target = links_.seek.targetOf(generation_);
    if (frame.best_effort_timestamp == AV_NOPTS_VALUE || time <= target) {
        av_frame_unref(held_);
        holding_ = av_frame_ref(held_, &frame) == 0;
        return;
    }
    // The first picture past the target: the one held contains the target, unless none came out
    // clean, as when the target lies among the leading pictures of an open GOP. Reading then starts
    // further back, until the picture is exact or the start of the file is reached.
    if ((!holding_ || damagedPicture(*held_)) && !links_.seek.fromStart(generation_) && missed_) {
        av_frame_unref(held_);
        holding_ = false;
        missed_(generation_);
        return;
    }
    dropping_ = false;
    if (holding_) emit(*held_);
    av_frame_unref(held_);
    holding_ = false;
    emit(frame);
}

void VideoDecoder::emit(AVFrame& frame) {
    if (!pictureSizeAllowed(frame.width, frame.height)) {
        fail(E_OUTOFMEMORY);
        return;
    }
    FramePointer shown = frameOf(DecodedPicture::of(frame), generation_);
    if (!shown) {
        fail(E_OUTOFMEMORY);
        return;
    }
    const size_t bytes = shown->picture->bytes();
    links_.output.push(std::move(shown), bytes);
}

FramePointer VideoDecoder::recentPicture(LONGLONG target, unsigned generation) {
    try {
        return frameOf(recent_.find(target), generation);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void VideoDecoder::intervalOf(const AVFrame& frame, LONGLONG* time, LONGLONG* end) const {
    *time = toMediaTime(frame.best_effort_timestamp, timeBase_, links_.origin);
    LONGLONG duration = frame.pkt_duration > 0 ? av_rescale_q(frame.pkt_duration, timeBase_, kHundredNanoseconds) : 0;
    if (duration <= 0 && known(frameRate_)) duration = av_rescale_q(1, av_inv_q(frameRate_), kHundredNanoseconds);
    *end = *time + duration;
}

FramePointer VideoDecoder::frameOf(PicturePointer picture, unsigned generation) const {
    if (!picture) return nullptr;
    auto made = std::make_shared<VideoFrame>();
    const AVFrame& frame = picture->frame();
    const bool sideways = rotation_ % 2 == 1;
    const double pixelAspect = known(pixelAspect_) ? av_q2d(pixelAspect_) : 1.0;
    made->aspectWidth = sideways ? frame.height : frame.width * pixelAspect;
    made->aspectHeight = sideways ? frame.width * pixelAspect : frame.height;
    intervalOf(frame, &made->time, &made->end);
    made->quarters = rotation_;
    made->generation = generation;
    made->picture = std::move(picture);
    return made;
}

}  // namespace kyplatform
