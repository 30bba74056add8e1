// The audio decoding of the playback engine: packets of the audio stream in, samples resampled by
// libswresample to the output format out, from the seek target on.
#ifndef KY_PLATFORM_AUDIO_DECODER_H
#define KY_PLATFORM_AUDIO_DECODER_H

#include <memory>

#include "PlaybackTypes.h"

struct AVStream;
struct SwrContext;

namespace kyplatform {

class AudioDecoder {
public:
    /* MF_E_TOPO_CODEC_NOT_FOUND when no decoder for the stream opens. */
    static HRESULT create(AVStream& stream, DecoderLinks<AudioChunk> links, std::unique_ptr<AudioDecoder>* decoder);
    ~AudioDecoder();

    /* The decoding thread's body: returns when the packet queue is closed. */
    void run();

private:
    explicit AudioDecoder(DecoderLinks<AudioChunk> links) : links_(std::move(links)) {}
    void decode(const Packet& packet);
    void receiveFrames();
    void emit(const AVFrame& frame);

    DecoderLinks<AudioChunk> links_;
    AVCodecContext* decoder_ = nullptr;
    SwrContext* resampler_ = nullptr;
    // What the resampler was made for.
    AVChannelLayout inputLayout_{};
    int inputFormat_ = -1;
    int inputRate_ = 0;
    AVFrame* frame_ = nullptr;
    bool failed_ = false;
    unsigned generation_ = 0;
    AVRational timeBase_{0, 1};
    LONGLONG nextTime_ = 0;  // for frames without a timestamp
};

}  // namespace kyplatform

#endif
