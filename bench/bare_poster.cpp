// bare_poster: the least FFmpeg work a poster and a file's properties take, as the yardstick for
// the toolkit's in-process calls: open (with the stream probe), first picture decoded, one
// conversion to 32-bit RGB. Prints "info MS" and "poster MS", CPU ms per file over ITERATIONS.
// usage: bare_poster VIDEO ITERATIONS
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace {

double cpuMs() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return now.tv_sec * 1e3 + now.tv_nsec / 1e6;
}

AVFormatContext* openFile(const char* path) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path, nullptr, nullptr) < 0) return nullptr;
    if (avformat_find_stream_info(format, nullptr) < 0) avformat_close_input(&format);
    return format;
}

bool poster(const char* path, std::vector<uint8_t>& pixels) {
    AVFormatContext* format = openFile(path);
    if (format == nullptr) return false;
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    bool done = false;
    if (index >= 0) {
        const AVCodecParameters* parameters = format->streams[index]->codecpar;
        const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
        AVCodecContext* decoder = avcodec_alloc_context3(codec);
        AVPacket* packet = av_packet_alloc();
        AVFrame* frame = av_frame_alloc();
        if (avcodec_parameters_to_context(decoder, parameters) >= 0 && avcodec_open2(decoder, codec, nullptr) >= 0) {
            while (!done && av_read_frame(format, packet) >= 0) {
                if (packet->stream_index == index && avcodec_send_packet(decoder, packet) >= 0 &&
                    avcodec_receive_frame(decoder, frame) == 0) {
                    SwsContext* scaler = sws_getContext(frame->width, frame->height, static_cast<AVPixelFormat>(frame->format),
                                                        frame->width, frame->height, AV_PIX_FMT_BGR0, SWS_BILINEAR,
                                                        nullptr, nullptr, nullptr);
                    const int stride = frame->width * 4;
                    pixels.resize(static_cast<size_t>(stride) * frame->height + 64);
                    uint8_t* planes[] = {pixels.data()};
                    sws_scale(scaler, frame->data, frame->linesize, 0, frame->height, planes, &stride);
                    sws_freeContext(scaler);
                    done = true;
                }
                av_packet_unref(packet);
            }
        }
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&decoder);
    }
    avformat_close_input(&format);
    return done;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: bare_poster VIDEO ITERATIONS\n");
        return 2;
    }
    const int iterations = std::atoi(argv[2]);
    av_log_set_level(AV_LOG_QUIET);
    std::vector<uint8_t> pixels;
    if (!poster(argv[1], pixels)) return 1;  // warm: libraries, page cache
    double start = cpuMs();
    for (int i = 0; i < iterations; ++i) {
        AVFormatContext* format = openFile(argv[1]);
        avformat_close_input(&format);
    }
    std::printf("info %.4f\n", (cpuMs() - start) / iterations);
    start = cpuMs();
    for (int i = 0; i < iterations; ++i) poster(argv[1], pixels);
    std::printf("poster %.4f\n", (cpuMs() - start) / iterations);
    return 0;
}
