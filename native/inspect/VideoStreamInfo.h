/* VideoStreamInfo: what the toolkit knows of a video stream once a reader has asked for RGB32:
 * sizes, stride, duration, frame rate, pixel aspect and rotation. A plain record on the caller's
 * stack, all zero before its first fill. */
#ifndef VIDEO_TOOLKIT_VIDEO_STREAM_INFO_H
#define VIDEO_TOOLKIT_VIDEO_STREAM_INFO_H

#include <cstdint>

struct VideoStreamInfo {
    uint32_t width = 0;              // of the area the aperture chain chose, as stored
    uint32_t height = 0;
    uint32_t displayWidth = 0;       // pixel aspect applied, then rotation
    uint32_t displayHeight = 0;
    int32_t stride = 0;              // bytes per row as the type states it; negative bottom-up; 1 unknown
    bool hasVideo = false;
    int64_t duration = 0;            // 100-nanosecond units
    uint32_t frameRateNumerator = 0;
    uint32_t frameRateDenominator = 0;
    uint32_t pixelAspectNumerator = 0;
    uint32_t pixelAspectDenominator = 0;
    int32_t rotation = 0;            // 0, 90, 180, 270; 1 when the type has no rotation attribute
};

#endif
