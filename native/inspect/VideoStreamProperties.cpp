// readStreamInfo: the stream's sizes, stride, duration, frame rate, pixel aspect and rotation from
// the reader's current media type.
#include "VideoSourceReader.h"
#include "Win32.h"

namespace {

constexpr UINT32 kUnknownStride = 1;
constexpr int32_t kNoRotation = 1;

// Only the area of an aperture counts; its offsets are ignored.
HRESULT readAperture(IMFMediaType* type, REFGUID key, SIZE* area) {
    MFVideoArea aperture{};
    UINT32 size = 0;
    HRESULT hr = type->GetBlob(key, reinterpret_cast<UINT8*>(&aperture), sizeof aperture, &size);
    if (SUCCEEDED(hr)) *area = aperture.Area;
    return hr;
}

// The first of pan-and-scan (when enabled), minimum display and geometric aperture that the type
// has, else the frame size.
HRESULT findArea(IMFMediaType* type, SIZE* area) {
    HRESULT hr = MF_E_ATTRIBUTENOTFOUND;
    UINT32 panScanEnabled = 0;
    if (FAILED(type->GetUINT32(MF_MT_PAN_SCAN_ENABLED, &panScanEnabled))) panScanEnabled = 0;
    if (panScanEnabled != 0) hr = readAperture(type, MF_MT_PAN_SCAN_APERTURE, area);
    if (hr == MF_E_ATTRIBUTENOTFOUND) hr = readAperture(type, MF_MT_MINIMUM_DISPLAY_APERTURE, area);
    if (hr == MF_E_ATTRIBUTENOTFOUND) hr = readAperture(type, MF_MT_GEOMETRIC_APERTURE, area);
    if (hr == MF_E_ATTRIBUTENOTFOUND) {
        UINT64 frameSize = 0;
        hr = type->GetUINT64(MF_MT_FRAME_SIZE, &frameSize);
        if (SUCCEEDED(hr)) *area = SIZE{static_cast<LONG>(frameSize >> 32), static_cast<LONG>(frameSize & 0xFFFFFFFF)};
    }
    return hr;
}

}  // namespace

HRESULT VideoSourceReader::readStreamInfo(VideoStreamInfo& info) {
    IMFMediaType* type = nullptr;
    HRESULT hr = sourceReader ? sourceReader->GetCurrentMediaType(MF_SOURCE_READER_FIRST_VIDEO_STREAM, &type)
                              : MF_E_NOT_INITIALIZED;
    if (FAILED(hr)) return hr;
    info.hasVideo = true;

    GUID subtype = GUID_NULL;
    type->GetGUID(MF_MT_SUBTYPE, &subtype);
    if (subtype != MFVideoFormat_RGB32) hr = E_UNEXPECTED;

    UINT64 frameRate = 0;
    if (SUCCEEDED(hr) && SUCCEEDED(type->GetUINT64(MF_MT_FRAME_RATE, &frameRate))) {
        info.frameRateNumerator = static_cast<uint32_t>(frameRate >> 32);
        info.frameRateDenominator = static_cast<uint32_t>(frameRate & 0xFFFFFFFF);
    }

    PROPVARIANT duration;
    PropVariantInit(&duration);
    if (SUCCEEDED(hr)) hr = sourceReader->GetPresentationAttribute(MF_SOURCE_READER_MEDIASOURCE, MF_PD_DURATION, &duration);
    if (SUCCEEDED(hr)) hr = PropVariantToInt64(duration, &info.duration);
    PropVariantClear(&duration);

    if (SUCCEEDED(hr)) {
        UINT32 stride = 0;
        info.stride = static_cast<int32_t>(SUCCEEDED(type->GetUINT32(MF_MT_DEFAULT_STRIDE, &stride)) ? stride : kUnknownStride);
        UINT32 rotation = 0;
        info.rotation = SUCCEEDED(type->GetUINT32(MF_MT_VIDEO_ROTATION, &rotation)) ? static_cast<int32_t>(rotation)
                                                                                      : kNoRotation;
    }

    SIZE area{};
    if (SUCCEEDED(hr)) hr = findArea(type, &area);
    if (SUCCEEDED(hr)) {
        info.width = static_cast<uint32_t>(area.cx);
        info.height = static_cast<uint32_t>(area.cy);

        UINT64 pixelAspect = 0;
        if (FAILED(type->GetUINT64(MF_MT_PIXEL_ASPECT_RATIO, &pixelAspect))) pixelAspect = (1ull << 32) | 1;
        info.pixelAspectNumerator = static_cast<uint32_t>(pixelAspect >> 32);
        info.pixelAspectDenominator = static_cast<uint32_t>(pixelAspect & 0xFFFFFFFF);

        // Only one side is ever enlarged: the width for wide pixels, the height for tall ones.
        uint32_t displayWidth = info.width;
        uint32_t displayHeight = info.height;
        if (info.pixelAspectNumerator > info.pixelAspectDenominator) {
            displayWidth = static_cast<uint32_t>(MulDiv(static_cast<INT>(info.width),
                                                        static_cast<INT>(info.pixelAspectNumerator),
                                                        static_cast<INT>(info.pixelAspectDenominator)));
        } else if (info.pixelAspectNumerator < info.pixelAspectDenominator) {
            displayHeight = static_cast<uint32_t>(MulDiv(static_cast<INT>(info.height),
                                                         static_cast<INT>(info.pixelAspectDenominator),
                                                         static_cast<INT>(info.pixelAspectNumerator)));
        }
        const bool turned = info.rotation == 90 || info.rotation == 270;
        info.displayWidth = turned ? displayHeight : displayWidth;
        info.displayHeight = turned ? displayWidth : displayHeight;
    }

    type->Release();
    return hr;
}
