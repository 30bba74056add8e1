#include "AudioStretcher.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

#include "PlaybackTypes.h"

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/opt.h>
}

namespace kyplatform {

namespace {

constexpr size_t kBytesPerSample = kOutputChannels * 2;

// The tempo one atempo accepts, as the installed libavfilter declares it (0.5 to 100 in FFmpeg 5).
bool tempoLimits(double* lowest, double* highest) {
    const AVFilter* atempo = avfilter_get_by_name("atempo");
    if (atempo == nullptr || atempo->priv_class == nullptr) return false;
    const AVOption* tempo = av_opt_find(const_cast<AVClass**>(&atempo->priv_class), "tempo", nullptr, 0,
                                        AV_OPT_SEARCH_FAKE_OBJ);
    if (tempo == nullptr || !(tempo->min > 0.0) || !(tempo->max >= 1.0 / tempo->min)) return false;
    *lowest = tempo->min;
    *highest = tempo->max;
    return true;
}

// The tempos of a chain of atempo whose product is rate, each within one's limits.
std::vector<double> tempoChain(double rate, double lowest, double highest) {
    std::vector<double> chain;
    while (rate < lowest) {
        chain.push_back(lowest);
        rate /= lowest;
    }
    while (rate > highest) {
        chain.push_back(highest);
        rate /= highest;
    }
    chain.push_back(rate);
    return chain;
}

}  // namespace

AudioStretcher::~AudioStretcher() { release(); }

void AudioStretcher::release() {
    avfilter_graph_free(&graph_);
    source_ = nullptr;
    sink_ = nullptr;
    av_frame_free(&frame_);
    usable_ = false;
}

HRESULT AudioStretcher::reset(double rate) {
    release();
    rate_ = rate;
    putSamples_ = 0;
    takenSamples_ = 0;
    marks_.clear();
    pending_.clear();
    pendingOffset_ = 0;
    if (!(rate > 0.0)) return E_INVALIDARG;
    frame_ = av_frame_alloc();
    if (frame_ == nullptr) return E_OUTOFMEMORY;
    const HRESULT hr = rate == 1.0 ? S_OK : build(rate);
    if (FAILED(hr)) {
        release();
        return hr;
    }
    usable_ = true;
    return S_OK;
}

HRESULT AudioStretcher::build(double rate) {
    double lowest = 0.0;
    double highest = 0.0;
    if (!tempoLimits(&lowest, &highest)) return E_FAIL;
    graph_ = avfilter_graph_alloc();
    if (graph_ == nullptr) return E_OUTOFMEMORY;
    char arguments[128];
    std::snprintf(arguments, sizeof arguments, "sample_rate=%d:sample_fmt=s16:channel_layout=stereo:time_base=1/%d",
                  kOutputRate, kOutputRate);
    if (avfilter_graph_create_filter(&source_, avfilter_get_by_name("abuffer"), "in", arguments, nullptr, graph_) < 0 ||
        avfilter_graph_create_filter(&sink_, avfilter_get_by_name("abuffersink"), "out", nullptr, nullptr, graph_) < 0) {
        return E_FAIL;
    }
    const AVSampleFormat formats[] = {AV_SAMPLE_FMT_S16, AV_SAMPLE_FMT_NONE};
    const int rates[] = {kOutputRate, -1};
    if (av_opt_set_int_list(sink_, "sample_fmts", formats, AV_SAMPLE_FMT_NONE, AV_OPT_SEARCH_CHILDREN) < 0 ||
        av_opt_set_int_list(sink_, "sample_rates", rates, -1, AV_OPT_SEARCH_CHILDREN) < 0 ||
        av_opt_set(sink_, "ch_layouts", "stereo", AV_OPT_SEARCH_CHILDREN) < 0) {
        return E_FAIL;
    }
    AVFilterContext* upstream = source_;
    for (const double tempo : tempoChain(rate, lowest, highest)) {
        AVFilterContext* stage = nullptr;
        std::snprintf(arguments, sizeof arguments, "tempo=%.9g", tempo);
        if (avfilter_graph_create_filter(&stage, avfilter_get_by_name("atempo"), nullptr, arguments, nullptr, graph_) <
                0 ||
            avfilter_link(upstream, 0, stage, 0) < 0) {
            return E_FAIL;
        }
        upstream = stage;
    }
    if (avfilter_link(upstream, 0, sink_, 0) < 0 || avfilter_graph_config(graph_, nullptr) < 0) return E_FAIL;
    return S_OK;
}

HRESULT AudioStretcher::put(const uint8_t* bytes, size_t size, LONGLONG time) {
    if (!usable_) return E_FAIL;
    const size_t samples = size / kBytesPerSample;
    if (samples == 0) return S_OK;
    try {
        marks_.push_back(Mark{putSamples_, time});
        putSamples_ += static_cast<int64_t>(samples);
        if (graph_ == nullptr) {
            pending_.insert(pending_.end(), bytes, bytes + samples * kBytesPerSample);
            return S_OK;
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    AVFrame* frame = av_frame_alloc();
    if (frame == nullptr) return E_OUTOFMEMORY;
    frame->format = AV_SAMPLE_FMT_S16;
    frame->sample_rate = kOutputRate;
    frame->nb_samples = static_cast<int>(samples);
    frame->pts = putSamples_ - static_cast<int64_t>(samples);
    const AVChannelLayout stereo = AV_CHANNEL_LAYOUT_STEREO;
    HRESULT hr = av_channel_layout_copy(&frame->ch_layout, &stereo) == 0 && av_frame_get_buffer(frame, 0) == 0
                     ? S_OK
                     : E_OUTOFMEMORY;
    if (SUCCEEDED(hr)) {
        std::memcpy(frame->data[0], bytes, samples * kBytesPerSample);
        hr = av_buffersrc_add_frame(source_, frame) == 0 ? drain() : E_FAIL;
    }
    av_frame_free(&frame);
    return hr;
}

// Moves what the filter has made into pending_.
HRESULT AudioStretcher::drain() {
    for (;;) {
        const int status = av_buffersink_get_frame(sink_, frame_);
        if (status == AVERROR(EAGAIN) || status == AVERROR_EOF) return S_OK;
        if (status < 0) return E_FAIL;
        const size_t bytes = static_cast<size_t>(frame_->nb_samples) * kBytesPerSample;
        try {
            pending_.insert(pending_.end(), frame_->data[0], frame_->data[0] + bytes);
        } catch (const std::bad_alloc&) {
            av_frame_unref(frame_);
            return E_OUTOFMEMORY;
        }
        av_frame_unref(frame_);
    }
}

size_t AudioStretcher::take(uint8_t* out, size_t capacity, LONGLONG* time) {
    const size_t available = pending_.size() - pendingOffset_;
    const size_t taken = std::min(available, capacity) / kBytesPerSample * kBytesPerSample;
    if (taken == 0) return 0;
    *time = timeOfOutput(takenSamples_);
    std::memcpy(out, pending_.data() + pendingOffset_, taken);
    pendingOffset_ += taken;
    takenSamples_ += static_cast<int64_t>(taken / kBytesPerSample);
    if (pendingOffset_ == pending_.size()) {
        pending_.clear();
        pendingOffset_ = 0;
    }
    return taken;
}

LONGLONG AudioStretcher::timeOfOutput(int64_t sample) {
    const double input = static_cast<double>(sample) * rate_;
    while (marks_.size() > 1 && static_cast<double>(marks_[1].sample) <= input) marks_.pop_front();
    if (marks_.empty()) return 0;
    const Mark& mark = marks_.front();
    return mark.time +
           static_cast<LONGLONG>((input - static_cast<double>(mark.sample)) * kHundredNanosecondsPerSecond / kOutputRate);
}

}  // namespace kyplatform
