// What every decoding part of the layer (the source reader, the playback engine and the frame
// grabber) does alike: owning FFmpeg's objects, opening a video decoder within the layer's picture
// limit, and reading which way up its pictures are meant to be shown.
#ifndef KY_PLATFORM_FFMPEG_DECODING_H
#define KY_PLATFORM_FFMPEG_DECODING_H

#include <memory>

#include "PlatformTypes.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace kyplatform {

/* Owners of FFmpeg's objects, each freed the way FFmpeg frees it. */
struct CloseInput {
    void operator()(AVFormatContext* format) const { avformat_close_input(&format); }
};
struct FreeDecoder {
    void operator()(AVCodecContext* decoder) const { avcodec_free_context(&decoder); }
};
struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using InputPointer = std::unique_ptr<AVFormatContext, CloseInput>;
using DecoderPointer = std::unique_ptr<AVCodecContext, FreeDecoder>;
using PacketPointer = std::unique_ptr<AVPacket, FreePacket>;
using AVFramePointer = std::unique_ptr<AVFrame, FreeFrame>;

/* Opens a decoder for stream with threads decoding threads (0: FFmpeg's choice). The decoder
 * refuses pictures past the layer's limit instead of allocating for them. On success the caller
 * frees *decoder with avcodec_free_context. MF_E_TOPO_CODEC_NOT_FOUND when FFmpeg has no decoder
 * for the codec, MF_E_INVALIDMEDIATYPE when it does not open, E_OUTOFMEMORY. Any thread. */
HRESULT openVideoDecoder(const AVStream& stream, int threads, AVCodecContext** decoder);

/* The counter-clockwise quarter turns (0 to 3) of the stream's display matrix, which make its
 * pictures upright; false when the stream has no usable matrix. */
bool displayQuarterTurns(const AVStream& stream, int* quarters);

/* A picture damaged by missing references: what a decoder gives for the leading pictures of an
 * open GOP when it does not drop them, or for pictures decoded from a point that is no key frame. */
bool damagedPicture(const AVFrame& frame);

}  // namespace kyplatform

#endif
