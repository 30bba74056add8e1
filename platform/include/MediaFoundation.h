/* The part of Media Foundation the toolkit calls, under its published names: attribute stores and
 * media types, samples and buffers, the source reader (asynchronous mode only), the source resolver
 * and media sources with their services. Backed by FFmpeg.
 *
 * Ownership follows COM: a function that hands out an interface pointer hands out one reference,
 * which the receiver releases. Threads: every object may be used from any one thread at a time;
 * the source reader delivers OnReadSample on a worker thread of this layer's work queue, never on
 * the thread that called ReadSample. Failures are HRESULTs; nothing here throws. */
#ifndef KY_MEDIA_FOUNDATION_H
#define KY_MEDIA_FOUNDATION_H

#include "ComBase.h"
#include "PropertySystem.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

// Attribute and type GUIDs.
extern const GUID MF_MT_MAJOR_TYPE;
extern const GUID MF_MT_SUBTYPE;
extern const GUID MF_MT_FRAME_SIZE;                 // UINT64: width << 32 | height (coded size)
extern const GUID MF_MT_FRAME_RATE;                 // UINT64: numerator << 32 | denominator
extern const GUID MF_MT_PIXEL_ASPECT_RATIO;         // UINT64: numerator << 32 | denominator
extern const GUID MF_MT_DEFAULT_STRIDE;             // UINT32 holding a signed stride in bytes
extern const GUID MF_MT_VIDEO_ROTATION;             // UINT32: 0, 90, 180 or 270, counter-clockwise
extern const GUID MF_MT_PAN_SCAN_ENABLED;           // UINT32
extern const GUID MF_MT_PAN_SCAN_APERTURE;          // blob: MFVideoArea
extern const GUID MF_MT_MINIMUM_DISPLAY_APERTURE;   // blob: MFVideoArea
extern const GUID MF_MT_GEOMETRIC_APERTURE;         // blob: MFVideoArea
extern const GUID MFMediaType_Video;
extern const GUID MFMediaType_Audio;
extern const GUID MFVideoFormat_RGB32;              // {00000016-0000-0010-8000-00AA00389B71}
extern const GUID MF_PD_DURATION;                   // presentation attribute: UINT64 in 100 ns
extern const GUID MF_SOURCE_READER_ENABLE_VIDEO_PROCESSING;  // UINT32
extern const GUID MF_SOURCE_READER_ASYNC_CALLBACK;  // IUnknown: an IMFSourceReaderCallback
extern const GUID MF_PROPERTY_HANDLER_SERVICE;

extern const IID IID_IMFSourceReaderCallback;       // {DEEC8D99-FA1D-4D82-84C2-2C8969944867}
extern const IID IID_IMFMediaSource;
extern const IID IID_IMFGetService;

constexpr DWORD MF_SOURCE_READER_FIRST_VIDEO_STREAM = 0xFFFFFFFC;
constexpr DWORD MF_SOURCE_READER_MEDIASOURCE = 0xFFFFFFFF;
constexpr DWORD MF_SOURCE_READERF_ERROR = 0x1;
constexpr DWORD MF_SOURCE_READERF_ENDOFSTREAM = 0x2;
constexpr DWORD MF_SOURCE_READERF_CURRENTMEDIATYPECHANGED = 0x20;

constexpr DWORD MF_RESOLUTION_MEDIASOURCE = 0x1;
constexpr DWORD MF_RESOLUTION_CONTENT_DOES_NOT_HAVE_TO_MATCH_EXTENSION_OR_MIME_TYPE = 0x10;
constexpr DWORD MF_RESOLUTION_READ = 0x10000;
// What the player, the probe and the metadata reader (adding MF_RESOLUTION_READ) resolve a file
// with: a media source, whatever its name says.
constexpr DWORD kResolveAnyMediaSource =
    MF_RESOLUTION_MEDIASOURCE | MF_RESOLUTION_CONTENT_DOES_NOT_HAVE_TO_MATCH_EXTENSION_OR_MIME_TYPE;

enum MF_OBJECT_TYPE { MF_OBJECT_MEDIASOURCE = 0, MF_OBJECT_BYTESTREAM = 1, MF_OBJECT_INVALID = 2 };

struct MFOffset {
    WORD fract;
    int16_t value;
};

struct SIZE {
    LONG cx;
    LONG cy;
};

/* An area of a frame: 16 bytes, offsets then size. */
struct MFVideoArea {
    MFOffset OffsetX;
    MFOffset OffsetY;
    SIZE Area;
};

/* A typed key-value store. Get* fail with MF_E_ATTRIBUTENOTFOUND for a missing key and
 * MF_E_INVALIDTYPE for a key of another type. */
struct IMFAttributes : IUnknown {
    virtual HRESULT GetUINT32(REFGUID key, UINT32* value) = 0;
    virtual HRESULT GetUINT64(REFGUID key, UINT64* value) = 0;
    virtual HRESULT GetGUID(REFGUID key, GUID* value) = 0;
    virtual HRESULT GetBlobSize(REFGUID key, UINT32* size) = 0;
    /* Copies the blob; E_NOT_SUFFICIENT_BUFFER when bufferSize is short of it. */
    virtual HRESULT GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* blobSize) = 0;
    virtual HRESULT GetUnknown(REFGUID key, REFIID riid, void** ppv) = 0;
    virtual HRESULT SetUINT32(REFGUID key, UINT32 value) = 0;
    virtual HRESULT SetUINT64(REFGUID key, UINT64 value) = 0;
    virtual HRESULT SetGUID(REFGUID key, REFGUID value) = 0;
    virtual HRESULT SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) = 0;
    virtual HRESULT SetUnknown(REFGUID key, IUnknown* value) = 0;
    virtual HRESULT DeleteItem(REFGUID key) = 0;
    virtual HRESULT GetCount(UINT32* count) = 0;
};

struct IMFMediaType : IMFAttributes {
    virtual HRESULT GetMajorType(GUID* majorType) = 0;
};

struct IMFMediaBuffer : IUnknown {
    /* Gives the buffer's memory until Unlock; maxLength and currentLength may be null. */
    virtual HRESULT Lock(BYTE** buffer, DWORD* maxLength, DWORD* currentLength) = 0;
    virtual HRESULT Unlock() = 0;
    virtual HRESULT GetCurrentLength(DWORD* length) = 0;
};

struct IMFSample : IUnknown {
    virtual HRESULT GetSampleTime(LONGLONG* time) = 0;
    virtual HRESULT GetSampleDuration(LONGLONG* duration) = 0;
    virtual HRESULT ConvertToContiguousBuffer(IMFMediaBuffer** buffer) = 0;
};

struct IMFMediaEvent;

struct IMFSourceReaderCallback : IUnknown {
    virtual HRESULT OnReadSample(HRESULT hrStatus, DWORD streamIndex, DWORD streamFlags, LONGLONG timestamp,
                                 IMFSample* sample) = 0;
    virtual HRESULT OnFlush(DWORD streamIndex) = 0;
    virtual HRESULT OnEvent(DWORD streamIndex, IMFMediaEvent* event) = 0;
};

/* Reads samples of a file's first video stream: its compressed packets, or decoded RGB32 pictures
 * once that type is set. In asynchronous mode (the only mode here) ReadSample takes all
 * out-parameters null (else E_INVALIDARG) and returns at once, MF_E_INVALIDREQUEST while the
 * stream is deselected; the callback's OnReadSample follows exactly once per request on a
 * work-queue thread, with a null sample when there is none: S_OK and
 * MF_SOURCE_READERF_ENDOFSTREAM at the end, a failed status and MF_SOURCE_READERF_ERROR when
 * reading fails. The reader holds a reference on its callback for as long as it lives, and each
 * request holds one on the reader until its OnReadSample returns. */
struct IMFSourceReader : IUnknown {
    virtual HRESULT GetCurrentMediaType(DWORD streamIndex, IMFMediaType** mediaType) = 0;
    /* Asks for an output type; the first video stream accepts RGB32 when video processing is on,
     * or its native subtype. MF_E_INVALIDSTREAMNUMBER when the file has no such stream,
     * MF_E_INVALIDMEDIATYPE for any other type. */
    virtual HRESULT SetCurrentMediaType(DWORD streamIndex, DWORD* reserved, IMFMediaType* mediaType) = 0;
    virtual HRESULT SetStreamSelection(DWORD streamIndex, BOOL selected) = 0;
    virtual HRESULT GetPresentationAttribute(DWORD streamIndex, REFGUID key, PROPVARIANT* value) = 0;
    virtual HRESULT ReadSample(DWORD streamIndex, DWORD controlFlags, DWORD* actualStreamIndex, DWORD* streamFlags,
                               LONGLONG* timestamp, IMFSample** sample) = 0;
};

struct IMFGetService : IUnknown {
    virtual HRESULT GetService(REFGUID service, REFIID riid, void** ppv) = 0;
};

struct IMFPresentationDescriptor;

/* A media source; it answers IMFGetService, whose MF_PROPERTY_HANDLER_SERVICE gives the file's
 * IPropertyStore (other services: E_NOINTERFACE), and describes its streams for playback
 * (MediaSession.h). After Shutdown, CreatePresentationDescriptor, GetService and Shutdown fail
 * with MF_E_SHUTDOWN. */
struct IMFMediaSource : IUnknown {
    virtual HRESULT CreatePresentationDescriptor(IMFPresentationDescriptor** descriptor) = 0;
    virtual HRESULT Shutdown() = 0;
};

struct IMFSourceResolver : IUnknown {
    /* Opens url synchronously as a media source: E_INVALIDARG unless flags include
     * MF_RESOLUTION_MEDIASOURCE, else the file's open failures as MFCreateSourceReaderFromURL
     * gives them. */
    virtual HRESULT CreateObjectFromURL(LPCWSTR url, DWORD flags, IPropertyStore* properties,
                                        MF_OBJECT_TYPE* objectType, IUnknown** object) = 0;
};

HRESULT MFCreateAttributes(IMFAttributes** attributes, UINT32 initialSize);
HRESULT MFCreateMediaType(IMFMediaType** mediaType);
/* Opens the file at url (a path or a file:// URL). E_INVALIDARG without an
 * MF_SOURCE_READER_ASYNC_CALLBACK in attributes. Else fails with the HRESULT of the cause: another
 * scheme MF_E_UNSUPPORTED_SCHEME, a missing file 0x80070002 (0x80070003 in a missing folder), no
 * permission or no regular file E_ACCESSDENIED, an unknown format MF_E_UNSUPPORTED_BYTESTREAM_TYPE,
 * a damaged one MF_E_INVALID_FORMAT. */
HRESULT MFCreateSourceReaderFromURL(LPCWSTR url, IMFAttributes* attributes, IMFSourceReader** reader);
HRESULT MFCreateSourceResolver(IMFSourceResolver** resolver);

KY_PLATFORM_EXPORTS_END

#endif
