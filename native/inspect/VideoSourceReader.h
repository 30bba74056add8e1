/* VideoSourceReader: one video file read without playing it. It runs the platform's source reader
 * in asynchronous mode and turns the one read the toolkit needs into a blocking call with a
 * 5-second limit. A native makes one per call on the Lua thread (construct, open, read, closeReader,
 * Release) and keeps none between calls. OnReadSample runs on a platform work-queue thread; the
 * one lock guards pendingRead. Every operation returns an HRESULT and none throws. */
#ifndef VIDEO_TOOLKIT_VIDEO_SOURCE_READER_H
#define VIDEO_TOOLKIT_VIDEO_SOURCE_READER_H

#include <atomic>
#include <condition_variable>
#include <mutex>

#include "KyImage.h"
#include "MediaFoundation.h"
#include "VideoStreamInfo.h"

class VideoSourceReader : public IMFSourceReaderCallback {
public:
    /* Reference count 1; only Release frees the object. */
    VideoSourceReader() = default;

    HRESULT open(LPCWSTR path);
    HRESULT selectVideoOutput();
    HRESULT readStreamInfo(VideoStreamInfo& info);
    /* The one read; sample receives a reference the caller releases. */
    HRESULT readFirstSample(VideoStreamInfo& info, IMFSample** sample);
    /* The first sample as an upright image at display size; image is set only on success. */
    HRESULT readPosterImage(RCPtr<KyImage>& image, VideoStreamInfo& info);
    HRESULT closeReader();

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;
    HRESULT OnReadSample(HRESULT hrStatus, DWORD streamIndex, DWORD streamFlags, LONGLONG timestamp,
                         IMFSample* sample) override;
    HRESULT OnFlush(DWORD streamIndex) override;
    HRESULT OnEvent(DWORD streamIndex, IMFMediaEvent* event) override;

private:
    struct ReadResult {
        DWORD streamFlags;
        IMFSample* sample;  // one reference, may be null
    };

    ~VideoSourceReader() override;

    std::atomic<ULONG> refCount{1};
    IMFSourceReader* sourceReader = nullptr;
    ReadResult* pendingRead = nullptr;
    std::condition_variable readDone;
    std::mutex lock;
};

#endif
