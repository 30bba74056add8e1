/* KyGrabFrame: the picture a video shows at a moment, upright and at its display shape, fitted in
 * a box: what thumbnailers and contact sheets need (vtk poster --time, vtk sheet). A Linux
 * addition with no Windows counterpart: the toolkit itself never calls it.
 *
 * Time is media time, as everywhere in the layer: 0 is the first picture whatever the container's
 * clock says. The picture is the one shown at that time (the last that starts at or before it);
 * open-GOP streams are read from an earlier key frame until that picture comes out whole. A time
 * before 0 gives the first picture, one past the end the last.
 *
 * Any thread; nothing is kept between calls. Memory: one decoder's frames and two pictures of the
 * result's size, all within the layer's picture limit. Failures: the HRESULT of a failed open
 * (0x80070002 missing, MF_E_UNSUPPORTED_BYTESTREAM_TYPE, ...), MF_E_INVALIDSTREAMNUMBER for a file
 * without video, MF_E_TOPO_CODEC_NOT_FOUND for a codec FFmpeg cannot decode, E_OUTOFMEMORY for a
 * picture past the limit, MF_E_END_OF_STREAM when no picture decodes. */
#ifndef KY_FRAME_GRAB_H
#define KY_FRAME_GRAB_H

#include <cstdint>
#include <vector>

#include "PlatformTypes.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

struct KyGrabbedFrame {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> pixels;  // B, G, R, X; rows top-down, 4 x width bytes each
    LONGLONG time = 0;            // the picture's media time, in 100 ns
    LONGLONG duration = -1;       // the file's media duration in 100 ns; -1 when unknown
};

/* Fits the display size in boundWidth x boundHeight (0: no bound on that side), shape kept, and
 * always within kLargestPictureSide a side; never scales up. */
HRESULT KyGrabFrame(LPCWSTR path, LONGLONG time, int boundWidth, int boundHeight, KyGrabbedFrame* frame);

KY_PLATFORM_EXPORTS_END

#endif
