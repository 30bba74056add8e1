#include "FfmpegDecoding.h"

#include <cmath>

#include "FrameConverter.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
}

namespace kyplatform {

HRESULT openVideoDecoder(const AVStream& stream, int threads, AVCodecContext** decoder) {
    const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
    if (codec == nullptr) return MF_E_TOPO_CODEC_NOT_FOUND;
    AVCodecContext* opened = avcodec_alloc_context3(codec);
    if (opened == nullptr) return E_OUTOFMEMORY;
    opened->thread_count = threads;
    opened->pkt_timebase = stream.time_base;
    opened->max_pixels = kLargestPicturePixels;
    if (avcodec_parameters_to_context(opened, stream.codecpar) < 0 || avcodec_open2(opened, codec, nullptr) < 0) {
        avcodec_free_context(&opened);
        return MF_E_INVALIDMEDIATYPE;
    }
    *decoder = opened;
    return S_OK;
}

bool displayQuarterTurns(const AVStream& stream, int* quarters) {
    size_t size = 0;
    const uint8_t* matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
    if (matrix == nullptr || size < 9 * sizeof(int32_t)) return false;
    const double degrees = av_display_rotation_get(reinterpret_cast<const int32_t*>(matrix));
    if (!std::isfinite(degrees)) return false;
    *quarters = static_cast<int>((std::lround(degrees / 90.0) % 4 + 4) % 4);
    return true;
}

bool damagedPicture(const AVFrame& frame) {
    return (frame.flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame.decode_error_flags != 0;
}

}  // namespace kyplatform
