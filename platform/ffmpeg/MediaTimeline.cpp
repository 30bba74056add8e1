#include "MediaTimeline.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace kyplatform {

namespace {

// Hostile timestamps may sit at the ends of the range: the difference saturates instead of wrapping.
int64_t difference(int64_t a, int64_t b) {
    int64_t result = 0;
    if (!__builtin_sub_overflow(a, b, &result)) return result;
    return b < 0 ? INT64_MAX : INT64_MIN;
}

// How far guessedTimesDelay looks for the video's first packet: audio interleaved before it.
constexpr int kLookaheadPackets = 1024;

}  // namespace

int64_t guessedTimesDelay(AVFormatContext& format, int videoIndex, bool* read) {
    const AVStream& stream = *format.streams[videoIndex];
    const AVRational rate = known(stream.avg_frame_rate) ? stream.avg_frame_rate : stream.r_frame_rate;
    if (read != nullptr) *read = false;
    if (stream.codecpar->video_delay <= 0 || !known(rate)) return 0;
    if (read != nullptr) *read = true;
    AVPacket* packet = av_packet_alloc();
    int64_t delay = 0;
    for (int read = 0; packet != nullptr && read < kLookaheadPackets && av_read_frame(&format, packet) >= 0; ++read) {
        const bool video = packet->stream_index == videoIndex;
        const bool guessed = video && packet->pts == AV_NOPTS_VALUE;
        av_packet_unref(packet);
        if (video) {
            delay = guessed ? av_rescale_q(stream.codecpar->video_delay, av_inv_q(rate), AV_TIME_BASE_Q) : 0;
            break;
        }
    }
    av_packet_free(&packet);
    return delay;
}

int firstVideoStream(const AVFormatContext& format) {
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        const AVStream& stream = *format.streams[i];
        if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO && (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) == 0) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

int timelineStream(const AVFormatContext& format) {
    const int video = firstVideoStream(format);
    if (video >= 0) return video;
    for (unsigned i = 0; i < format.nb_streams; ++i) {
        if (format.streams[i]->codecpar->codec_type == AVMEDIA_TYPE_AUDIO) return static_cast<int>(i);
    }
    return -1;
}

int64_t mediaOrigin(const AVFormatContext& format, int index) {
    if (index >= 0 && static_cast<unsigned>(index) < format.nb_streams) {
        const AVStream& stream = *format.streams[index];
        if (stream.start_time != AV_NOPTS_VALUE && known(stream.time_base)) {
            return av_rescale_q(stream.start_time, stream.time_base, AV_TIME_BASE_Q);
        }
    }
    return format.start_time != AV_NOPTS_VALUE ? format.start_time : 0;
}

LONGLONG mediaDuration(const AVFormatContext& format, int index) {
    const int64_t origin = mediaOrigin(format, index);
    if (format.duration != AV_NOPTS_VALUE && format.duration >= 0) {
        // The file's duration runs from its earliest stream's start; a later origin shortens it.
        const int64_t start = format.start_time != AV_NOPTS_VALUE ? format.start_time : origin;
        const int64_t length = difference(format.duration, origin > start ? difference(origin, start) : 0);
        return av_rescale_q(length > 0 ? length : 0, AV_TIME_BASE_Q, kHundredNanoseconds);
    }
    if (index < 0 || static_cast<unsigned>(index) >= format.nb_streams) return -1;
    const AVStream& stream = *format.streams[index];
    if (stream.duration == AV_NOPTS_VALUE || stream.duration < 0 || !known(stream.time_base)) return -1;
    return av_rescale_q(stream.duration, stream.time_base, kHundredNanoseconds);
}

LONGLONG toMediaTime(int64_t timestamp, AVRational timeBase, int64_t origin) {
    if (timestamp == AV_NOPTS_VALUE || !known(timeBase)) return 0;
    return difference(av_rescale_q(timestamp, timeBase, kHundredNanoseconds),
                      av_rescale_q(origin, AV_TIME_BASE_Q, kHundredNanoseconds));
}

int64_t fromMediaTime(LONGLONG time, AVRational timeBase, int64_t origin) {
    return difference(av_rescale_q(time, kHundredNanoseconds, timeBase), -av_rescale_q(origin, AV_TIME_BASE_Q, timeBase));
}

}  // namespace kyplatform
