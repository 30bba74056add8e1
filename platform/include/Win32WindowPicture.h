// How the media session's video renderer draws into a window: it converts each picture straight
// into the window's own picture memory, at the size the picture is shown at, so that showing it is
// a plain copy and nothing is scaled or allocated per picture.
#ifndef KY_WIN32_WINDOW_PICTURE_H
#define KY_WIN32_WINDOW_PICTURE_H

#include <cstdint>
#include <functional>

#include "Win32Window.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

/* Writes the picture into pixels, rows top-down and pitch bytes apart; false when it cannot. */
using KyPaintPicture = std::function<bool(uint8_t* pixels, int pitch)>;

/* Main thread. Has paint write a picture of destination's size, B, G, R, X bytes, into the window's
 * picture memory, then shows it unscaled at destination (client coordinates; parts outside the
 * client area are cut off) with the rest of the client area black and the overlay over it. The
 * memory holds rows rows of at least stride bytes, a multiple of 4 (room for writers that write
 * past a row's end or the last row); it is kept for the next picture of that layout and for
 * KyWindow_repaint. An empty destination shows no picture and calls no paint. FALSE with
 * ERROR_INVALID_PARAMETER for a destination upside down or past kLargestPictureSide, a stride not a
 * multiple of 4, a stride or rows too small for the destination or past twice kLargestPictureSide
 * (in pixels), ERROR_GEN_FAILURE when SDL fails or paint returns false (the window then shows no
 * picture), ERROR_INVALID_THREAD_ID off the main thread and ERROR_INVALID_WINDOW_HANDLE for a
 * window that is not one. */
BOOL KyWindow_paintPicture(HWND window, const RECT& destination, int stride, int rows, const KyPaintPicture& paint);

KY_PLATFORM_EXPORTS_END

#endif
