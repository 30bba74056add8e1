/* KyMediaDescription: what a media file's container says of its streams, in FFmpeg's names, for
 * tools that show it (vtk info) beside the platform's own media types. A Linux addition with no
 * Windows counterpart: the toolkit itself never calls it.
 *
 * Any thread; no state is kept between calls. Failures return the HRESULT of a failed open
 * (0x80070002 missing, MF_E_UNSUPPORTED_BYTESTREAM_TYPE unknown format, ...), as the source
 * resolver does, and leave the description empty. */
#ifndef KY_MEDIA_DESCRIPTION_H
#define KY_MEDIA_DESCRIPTION_H

#include <cstdint>
#include <string>
#include <vector>

#include "PlatformTypes.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

/* One stream; numbers the container does not state are 0 and texts empty. */
struct KyStreamDescription {
    std::string codec;        // "h264", "aac"
    std::string profile;      // "High", "LC"
    std::string pixelFormat;  // video: "yuv420p10le"
    int bitDepth = 0;         // video: bits per sample of the first plane
    int channels = 0;         // audio
    int sampleRate = 0;       // audio, in Hz
    int64_t bitRate = 0;      // bits per second
};

struct KyMediaDescription {
    std::string container;  // FFmpeg's format names: "mov,mp4,m4a,3gp,3g2,mj2"
    int64_t bitRate = 0;    // of the whole file, bits per second
    bool hasVideo = false;
    KyStreamDescription video;  // the first video stream (not cover art)
    std::vector<KyStreamDescription> audio;
};

/* Reads the container's header and as much of the streams as the header leaves unsaid, within
 * the platform's picture limit. */
HRESULT KyDescribeMedia(LPCWSTR path, KyMediaDescription* description);

KY_PLATFORM_EXPORTS_END

#endif
