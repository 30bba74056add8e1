#include "KyMediaDescription.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/pixdesc.h>
}

#include "FfmpegInput.h"

namespace {

KyStreamDescription describeStream(const AVCodecParameters& parameters) {
    KyStreamDescription stream;
    stream.codec = avcodec_get_name(parameters.codec_id);
    const char* profile = avcodec_profile_name(parameters.codec_id, parameters.profile);
    stream.profile = profile != nullptr ? profile : "";
    stream.bitRate = parameters.bit_rate > 0 ? parameters.bit_rate : 0;
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) {
        const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(parameters.format));
        if (format != nullptr) {
            stream.pixelFormat = format->name;
            stream.bitDepth = format->comp[0].depth;
        }
    } else {
        stream.channels = parameters.ch_layout.nb_channels;
        stream.sampleRate = parameters.sample_rate;
    }
    return stream;
}

}  // namespace

HRESULT KyDescribeMedia(LPCWSTR path, KyMediaDescription* description) {
    *description = KyMediaDescription{};
    AVFormatContext* context = nullptr;
    const HRESULT hr = kyplatform::openInput(path, true, &context);
    if (FAILED(hr)) return hr;
    description->container = context->iformat->name;
    description->bitRate = context->bit_rate > 0 ? context->bit_rate : 0;
    for (unsigned i = 0; i < context->nb_streams; ++i) {
        const AVStream& stream = *context->streams[i];
        const AVCodecParameters& parameters = *stream.codecpar;
        if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
            description->audio.push_back(describeStream(parameters));
        } else if (parameters.codec_type == AVMEDIA_TYPE_VIDEO && !description->hasVideo &&
                   (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
            description->hasVideo = true;
            description->video = describeStream(parameters);
        }
    }
    avformat_close_input(&context);
    return S_OK;
}
