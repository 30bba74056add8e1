/* The Media Foundation playback pipeline the toolkit drives, under its published names: the media
 * session with its event generator, topologies of source and output nodes, presentation
 * descriptors, renderer activation objects, the presentation clock, rate control (rate 0 is
 * scrubbing), the audio volume and the video display control. Backed by FFmpeg (demux, decode on
 * threads of the engine; audio at other rates stretched by libavfilter's atempo, pitch kept), SDL2
 * audio (the master clock; the dummy driver where no device exists) and the windows of
 * Win32Window.h (video drawn into the destination rectangle, aspect ratio kept).
 *
 * Ownership follows COM. Threads: the session's methods may be called from one thread at a time
 * (the application's main thread); IMFAsyncCallback::Invoke runs on a work-queue thread of this
 * layer; video is presented on the main thread through the window's message dispatch. Memory
 * stays bounded whatever the media's length. Failures are HRESULTs; nothing here throws. */
#ifndef KY_MEDIA_SESSION_H
#define KY_MEDIA_SESSION_H

#include "MediaFoundation.h"
#include "Win32Window.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

typedef DWORD MediaEventType;
enum : MediaEventType {
    MEError = 1,
    MESessionStarted = 103,
    MESessionPaused = 104,
    MESessionStopped = 105,
    MESessionClosed = 106,
    MESessionEnded = 107,
    MESessionRateChanged = 108,
    MESessionScrubSampleComplete = 109,
    MESessionTopologyStatus = 111,
    MENewPresentation = 113,
    MEEndOfPresentation = 211,
};

enum MF_TOPOSTATUS { MF_TOPOSTATUS_INVALID = 0, MF_TOPOSTATUS_READY = 100, MF_TOPOSTATUS_STARTED_SOURCE = 200,
                     MF_TOPOSTATUS_ENDED = 400 };
enum MF_TOPOLOGY_TYPE { MF_TOPOLOGY_OUTPUT_NODE = 0, MF_TOPOLOGY_SOURCESTREAM_NODE = 1 };

constexpr ULONG MF_VERSION = 0x00020070;
constexpr DWORD MFSTARTUP_FULL = 0;
constexpr HRESULT MF_E_ALREADY_INITIALIZED = MakeHResult(0xC00D4650);
constexpr HRESULT MF_E_UNEXPECTED = MakeHResult(0xC00D36BB);

extern const GUID MF_EVENT_TOPOLOGY_STATUS;         // UINT32 on MESessionTopologyStatus
extern const GUID MF_TOPONODE_SOURCE;               // IUnknown: the IMFMediaSource
extern const GUID MF_TOPONODE_PRESENTATION_DESCRIPTOR;
extern const GUID MF_TOPONODE_STREAM_DESCRIPTOR;
extern const GUID MF_TOPONODE_STREAMID;             // UINT32
extern const GUID MF_TOPONODE_NOSHUTDOWN_ON_REMOVE; // UINT32
extern const GUID MR_VIDEO_RENDER_SERVICE;
extern const GUID MF_RATE_CONTROL_SERVICE;
extern const GUID MR_POLICY_VOLUME_SERVICE;
extern const IID IID_IMFAsyncCallback;
extern const IID IID_IMFMediaEventGenerator;
extern const IID IID_IMFMediaSession;
extern const IID IID_IMFPresentationDescriptor;
extern const IID IID_IMFVideoDisplayControl;
extern const IID IID_IMFRateControl;
extern const IID IID_IMFSimpleAudioVolume;

struct IMFAsyncResult : IUnknown {
    virtual HRESULT GetState(IUnknown** state) = 0;
    virtual HRESULT GetStatus() = 0;
};

struct IMFAsyncCallback : IUnknown {
    virtual HRESULT GetParameters(DWORD* flags, DWORD* queue) = 0;
    virtual HRESULT Invoke(IMFAsyncResult* result) = 0;
};

/* An event: its type, its status (a failure for a failed operation), its value and attributes. */
struct IMFMediaEvent : IMFAttributes {
    virtual HRESULT GetType(MediaEventType* type) = 0;
    virtual HRESULT GetStatus(HRESULT* status) = 0;
    /* A copy the caller clears with PropVariantClear. */
    virtual HRESULT GetValue(PROPVARIANT* value) = 0;
};

/* One event request at a time: BeginGetEvent arms it, Invoke of the callback follows on a
 * work-queue thread when an event is queued, and EndGetEvent in that Invoke gives the event.
 * BeginGetEvent while a request is armed gives MF_E_INVALIDREQUEST, after Shutdown MF_E_SHUTDOWN;
 * EndGetEvent of another result, or a second time, E_INVALIDARG. */
struct IMFMediaEventGenerator : IUnknown {
    virtual HRESULT BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) = 0;
    virtual HRESULT EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) = 0;
};

struct IMFMediaTypeHandler : IUnknown {
    virtual HRESULT GetMajorType(GUID* majorType) = 0;
    virtual HRESULT GetCurrentMediaType(IMFMediaType** mediaType) = 0;
};

struct IMFStreamDescriptor : IMFAttributes {
    virtual HRESULT GetStreamIdentifier(DWORD* identifier) = 0;
    virtual HRESULT GetMediaTypeHandler(IMFMediaTypeHandler** handler) = 0;
};

/* The streams of a source and which are selected (the first video and first audio stream).
 * MF_PD_DURATION holds the duration in 100 ns units. */
struct IMFPresentationDescriptor : IMFAttributes {
    virtual HRESULT GetStreamDescriptorCount(DWORD* count) = 0;
    virtual HRESULT GetStreamDescriptorByIndex(DWORD index, BOOL* selected, IMFStreamDescriptor** descriptor) = 0;
};

struct IMFActivate : IMFAttributes {
    virtual HRESULT ActivateObject(REFIID riid, void** ppv) = 0;
};

struct IMFTopologyNode : IMFAttributes {
    virtual HRESULT SetObject(IUnknown* object) = 0;
    virtual HRESULT GetObject(IUnknown** object) = 0;
    virtual HRESULT GetNodeType(MF_TOPOLOGY_TYPE* type) = 0;
    virtual HRESULT ConnectOutput(DWORD outputIndex, IMFTopologyNode* downstream, DWORD inputIndex) = 0;
};

struct IMFTopology : IMFAttributes {
    virtual HRESULT AddNode(IMFTopologyNode* node) = 0;
    virtual HRESULT GetNodeCount(WORD* count) = 0;
};

struct IMFClock : IUnknown {
    /* The presentation time in 100 ns units, and the system time it was read at. */
    virtual HRESULT GetCorrelatedTime(DWORD reserved, LONGLONG* clockTime, MFTIME* systemTime) = 0;
};

struct IMFRateControl : IUnknown {
    /* 0.0 is scrubbing: the clock stands and each Start shows the frame at its position, followed
     * by MESessionScrubSampleComplete. Above 0 (up to 64) the clock runs at the rate and the sound
     * is stretched to it with its pitch kept; a change while playing is heard within a device
     * buffer or two. MESessionRateChanged reports the change; MF_E_INVALIDREQUEST for a negative
     * rate, past 64, or thinning. The rate holds across Start, Pause, Stop and seeks. */
    virtual HRESULT SetRate(BOOL thin, float rate) = 0;
    virtual HRESULT GetRate(BOOL* thin, float* rate) = 0;
};

/* The session's volume (MR_POLICY_VOLUME_SERVICE): a linear gain from 0 (silent) to 1 (as decoded)
 * and a mute that silences without stopping playback or the clock. Both belong to the session and
 * hold across its topologies; they apply to what the device plays next. The session's thread.
 * SetMasterVolume: E_INVALIDARG outside [0, 1]; MF_E_SHUTDOWN after Shutdown. */
struct IMFSimpleAudioVolume : IUnknown {
    virtual HRESULT SetMasterVolume(float level) = 0;
    virtual HRESULT GetMasterVolume(float* level) = 0;
    virtual HRESULT SetMute(BOOL mute) = 0;
    virtual HRESULT GetMute(BOOL* mute) = 0;
};

struct MFVideoNormalizedRect {
    float left;
    float top;
    float right;
    float bottom;
};

enum MFVideoAspectRatioMode { MFVideoARMode_None = 0, MFVideoARMode_PreservePicture = 1 };

/* The video renderer's display: the picture goes into the destination rectangle of the window,
 * letterboxed to keep its display aspect ratio (pixel aspect and rotation applied) unless the mode
 * is MFVideoARMode_None, which stretches it. Either rectangle of Set/GetVideoPosition may be null
 * (E_POINTER when both are); a destination never set is the window's client area. The source
 * rectangle is kept but not applied: the whole picture is shown. E_INVALIDARG for a source outside
 * 0..1 or empty, a destination upside down or too large to draw (a side past kLargestPictureSide,
 * or more than 8192 x 8192 pixels), another mode, or a SetVideoWindow that names no window. Main
 * thread. */
struct IMFVideoDisplayControl : IUnknown {
    virtual HRESULT GetNativeVideoSize(SIZE* video, SIZE* aspectRatio) = 0;
    virtual HRESULT SetVideoWindow(HWND window) = 0;
    virtual HRESULT SetVideoPosition(const MFVideoNormalizedRect* source, const RECT* destination) = 0;
    virtual HRESULT GetVideoPosition(MFVideoNormalizedRect* source, RECT* destination) = 0;
    virtual HRESULT RepaintVideo() = 0;
    virtual HRESULT SetAspectRatioMode(DWORD mode) = 0;
    virtual HRESULT GetAspectRatioMode(DWORD* mode) = 0;
};

/* Plays one topology at a time. SetTopology resolves it (decoders are added) and queues
 * MESessionTopologyStatus with MF_TOPOSTATUS_READY, or the failure as the event's status. Start
 * with an empty position resumes, with VT_I8 seeks (another type, or no topology:
 * MF_E_INVALIDREQUEST); a position before 0 or past the end shows the first or last picture,
 * pauses there and queues MESessionStarted with MF_E_INVALID_POSITION. Pause while stopped or
 * before a topology queues MESessionPaused with MF_E_SESSION_PAUSEWHILESTOPPED. MEEndOfPresentation
 * and MESessionEnded come at the end; MEError with E_OUTOFMEMORY when decoding cannot go on; Close
 * queues MESessionClosed, after which SetTopology, Start, Pause, Stop, SetRate and Close fail with
 * MF_E_INVALIDREQUEST. After Shutdown they, BeginGetEvent, GetService and the volume setters give
 * MF_E_SHUTDOWN. */
struct IMFMediaSession : IMFMediaEventGenerator {
    virtual HRESULT SetTopology(DWORD flags, IMFTopology* topology) = 0;
    virtual HRESULT Start(const GUID* timeFormat, const PROPVARIANT* position) = 0;
    virtual HRESULT Pause() = 0;
    virtual HRESULT Stop() = 0;
    virtual HRESULT Close() = 0;
    virtual HRESULT Shutdown() = 0;
    virtual HRESULT GetClock(IMFClock** clock) = 0;
};

/* S_OK for MF_VERSION, MF_E_BAD_STARTUP_VERSION for any other; flags are not looked at. */
HRESULT MFStartup(ULONG version, DWORD flags);
HRESULT MFShutdown();
HRESULT MFCreateMediaSession(IMFAttributes* configuration, IMFMediaSession** session);
HRESULT MFCreateTopology(IMFTopology** topology);
HRESULT MFCreateTopologyNode(MF_TOPOLOGY_TYPE type, IMFTopologyNode** node);
HRESULT MFCreateVideoRendererActivate(HWND window, IMFActivate** activate);
HRESULT MFCreateAudioRendererActivate(IMFActivate** activate);
/* The service of an object that has one (the session: MR_VIDEO_RENDER_SERVICE once a topology
 * with video is ready, MF_RATE_CONTROL_SERVICE, MR_POLICY_VOLUME_SERVICE);
 * MF_E_UNSUPPORTED_SERVICE-like E_NOINTERFACE, MF_E_SHUTDOWN from a session shut down. */
HRESULT MFGetService(IUnknown* object, REFGUID service, REFIID riid, void** ppv);

KY_PLATFORM_EXPORTS_END

#endif
