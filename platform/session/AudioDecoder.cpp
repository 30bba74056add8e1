#include "AudioDecoder.h"

#include <algorithm>
#include <new>

#include "ffmpeg/MediaTimeline.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libswresample/swresample.h>
}

namespace kyplatform {

namespace {

constexpr int kBytesPerOutputSample = kOutputChannels * 2;

}  // namespace

HRESULT AudioDecoder::create(AVStream& stream, DecoderLinks<AudioChunk> links, std::unique_ptr<AudioDecoder>* decoder) {
    std::unique_ptr<AudioDecoder> made(new (std::nothrow) AudioDecoder(std::move(links)));
    if (!made) return E_OUTOFMEMORY;
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr) return MF_E_TOPO_CODEC_NOT_FOUND;
    made->decoder_ = avcodec_alloc_context3(codec);
    made->frame_ = av_frame_alloc();
    if (made->decoder_ == nullptr || made->frame_ == nullptr) return E_OUTOFMEMORY;
    if (avcodec_parameters_to_context(made->decoder_, stream.codecpar) < 0 ||
        avcodec_open2(made->decoder_, codec, nullptr) < 0) {
        return MF_E_TOPO_CODEC_NOT_FOUND;
    }
    made->timeBase_ = stream.time_base;
    *decoder = std::move(made);
    return S_OK;
}

AudioDecoder::~AudioDecoder() {
    swr_free(&resampler_);
    av_channel_layout_uninit(&inputLayout_);
    av_frame_free(&frame_);
    avcodec_free_context(&decoder_);
}

void AudioDecoder::run() {
    while (std::optional<Packet> next = links_.packets.pop()) {
        try {
            decode(*next);
        } catch (const std::bad_alloc&) {
            if (!failed_ && links_.failed) links_.failed(E_OUTOFMEMORY);
            failed_ = true;
        }
    }
}

void AudioDecoder::decode(const Packet& next) {
    if (next.generation != generation_) {
        avcodec_flush_buffers(decoder_);
        // Samples the resampler still holds belong before the seek.
        swr_free(&resampler_);
        generation_ = next.generation;
        nextTime_ = links_.seek.targetOf(generation_);
    }
    if (!next.packet) {
        avcodec_send_packet(decoder_, nullptr);
        receiveFrames();
        links_.end.generation.store(generation_);
        return;
    }
    avcodec_send_packet(decoder_, next.packet.get());
    receiveFrames();
}

void AudioDecoder::receiveFrames() {
    while (avcodec_receive_frame(decoder_, frame_) == 0) {
        emit(*frame_);
        av_frame_unref(frame_);
    }
}

void AudioDecoder::emit(const AVFrame& frame) {
    if (frame.sample_rate <= 0 || frame.nb_samples <= 0 || frame.ch_layout.nb_channels <= 0) return;
    // The resampler follows the stream's format, which may change midway (a broadcast switching
    // between 5.1 and stereo): one made for another layout would read channels the frame lacks.
    if (resampler_ != nullptr && (frame.format != inputFormat_ || frame.sample_rate != inputRate_ ||
                                  av_channel_layout_compare(&frame.ch_layout, &inputLayout_) != 0)) {
        swr_free(&resampler_);
    }
    if (resampler_ == nullptr) {
        AVChannelLayout output = AV_CHANNEL_LAYOUT_STEREO;
        av_channel_layout_uninit(&inputLayout_);
        const bool made = av_channel_layout_copy(&inputLayout_, &frame.ch_layout) == 0 &&
                          swr_alloc_set_opts2(&resampler_, &output, AV_SAMPLE_FMT_S16, kOutputRate, &inputLayout_,
                                              static_cast<AVSampleFormat>(frame.format), frame.sample_rate, 0,
                                              nullptr) >= 0 &&
                          swr_init(resampler_) >= 0;
        if (!made) {
            swr_free(&resampler_);
            return;
        }
        inputFormat_ = frame.format;
        inputRate_ = frame.sample_rate;
    }
    const LONGLONG time = frame.pts == AV_NOPTS_VALUE ? nextTime_ : toMediaTime(frame.pts, timeBase_, links_.origin);
    const int capacity = swr_get_out_samples(resampler_, frame.nb_samples);
    if (capacity <= 0) return;
    AudioChunk chunk;
    chunk.bytes.resize(static_cast<size_t>(capacity) * kBytesPerOutputSample);
    uint8_t* planes[1] = {chunk.bytes.data()};
    const int converted = swr_convert(resampler_, planes, capacity, const_cast<const uint8_t**>(frame.extended_data),
                                      frame.nb_samples);
    if (converted < 0) {
        swr_free(&resampler_);
        return;
    }
    chunk.bytes.resize(static_cast<size_t>(converted) * kBytesPerOutputSample);
    chunk.time = time;
    chunk.generation = generation_;
    nextTime_ = time + av_rescale(frame.nb_samples, kHundredNanosecondsPerSecond, frame.sample_rate);
    // Samples before the seek target are not heard.
    const LONGLONG target = links_.seek.targetOf(generation_);
    if (time < target) {
        const LONGLONG skip = av_rescale(target - time, kOutputRate, kHundredNanosecondsPerSecond);
        const size_t skipBytes = std::min(chunk.bytes.size(), static_cast<size_t>(skip) * kBytesPerOutputSample);
        chunk.offset = skipBytes;
        chunk.time = target;
    }
    if (chunk.offset >= chunk.bytes.size()) return;
    const size_t weight = chunk.bytes.size() - chunk.offset;
    links_.output.push(std::move(chunk), weight);
}

}  // namespace kyplatform
