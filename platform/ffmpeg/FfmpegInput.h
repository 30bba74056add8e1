// Opening a file for demuxing, shared by the source reader and the source resolver, with the
// failure mapped to the HRESULT the platform would give.
#ifndef KY_PLATFORM_FFMPEG_INPUT_H
#define KY_PLATFORM_FFMPEG_INPUT_H

#include <string>

#include "PlatformTypes.h"

struct AVFormatContext;

namespace kyplatform {

/* The local path of url: a plain path, or a file:// URL (percent escapes decoded); empty when
 * url is null, empty or of another scheme. */
std::string localPathFromUrl(LPCWSTR url);

/* Opens url as a regular file and reads its header (and, with probeStreams, its stream
 * parameters). On success *context is open and the caller closes it with avformat_close_input.
 * Failures: empty or non-file URL MF_E_UNSUPPORTED_SCHEME, missing 0x80070002 (or 0x80070003 for
 * a missing folder), a name too long 0x8007007B, not a regular file (folder, FIFO, device), no
 * permission or another system error E_ACCESSDENIED, a format FFmpeg does not know
 * MF_E_UNSUPPORTED_BYTESTREAM_TYPE, a damaged file MF_E_INVALID_FORMAT, E_OUTOFMEMORY. Never
 * blocks on a FIFO. Any thread. */
HRESULT openInput(LPCWSTR url, bool probeStreams, AVFormatContext** context);
/* openInput for a local path. */
HRESULT openPath(const std::string& path, bool probeStreams, AVFormatContext** context);

/* Reads the stream parameters, decoding a little where the header does not say them, within the
 * layer's picture limit: a header claiming a huge picture costs no huge probe. FFmpeg's status. */
int findStreamInfo(AVFormatContext* context);

}  // namespace kyplatform

#endif
