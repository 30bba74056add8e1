// The objects behind the GDI+ handles: a bitmap's pixels and its lock, a graphics context's
// target, world transform and device context, and a solid brush, shared by the GdiPlus*.cpp files.
#ifndef KY_PLATFORM_GDI_PLUS_IMAGE_H
#define KY_PLATFORM_GDI_PLUS_IMAGE_H

#include <cstdint>
#include <cstdlib>
#include <memory>

#include "GdiPlusFlat.h"

namespace kyplatform {

struct FreePixels {
    void operator()(BYTE* pixels) const { std::free(pixels); }
};
using PixelMemory = std::unique_ptr<BYTE[], FreePixels>;

// Pixel memory a bitmap may own; more is OutOfMemory, so a wild size never reaches the allocator.
constexpr int64_t kMaxPixelBytes = int64_t{1} << 30;

/* Bytes per pixel of a format bitmaps can have (24bppRGB, 32bppRGB, 32bppARGB, 32bppPARGB); 0 for
 * any other. */
int bytesPerPixel(PixelFormat format);
/* The row size of width pixels rounded up to 4 bytes, as GDI+ lays out rows. */
int64_t minimumStride(PixelFormat format, INT width);
/* Zeroed memory for rows of stride bytes; null when that passes kMaxPixelBytes or memory is short. */
PixelMemory allocatePixels(int64_t stride, int64_t rows);

// The one lock a bitmap may hold. buffer is null when the caller works on the bitmap's own rows;
// otherwise (another format, or the caller's buffer) the rows live there and go back at unlock.
struct LockState {
    bool active = false;
    GpRect rect{};
    UINT flags = 0;
    PixelFormat format = 0;
    BYTE* buffer = nullptr;
    INT bufferStride = 0;
    PixelMemory ownedBuffer;
};

}  // namespace kyplatform

struct GpImage {
    INT width = 0;
    INT height = 0;
    PixelFormat format = 0;
    INT stride = 0;
    BYTE* scan0 = nullptr;
    kyplatform::PixelMemory owned;  // null when scan0 is the caller's memory
    kyplatform::LockState lock;
    int graphicsCount = 0;  // live graphics contexts drawing into this image

    BYTE* row(INT y) const { return scan0 + static_cast<int64_t>(y) * stride; }
};

struct GpBitmap : GpImage {};

// A device context names the image its graphics context draws into.
struct HDC__ {
    GpImage* target = nullptr;
};

// The world transform maps (x, y) to (m11 x + m21 y + dx, m12 x + m22 y + dy), GDI+'s row-vector form.
// dcHeld: the device context is out (GdipGetDC), so the graphics is busy until it comes back.
struct GpGraphics {
    GpImage* target = nullptr;
    double m11 = 1, m12 = 0, m21 = 0, m22 = 1, dx = 0, dy = 0;
    HDC__ dc;
    bool dcHeld = false;
};

namespace kyplatform {

// What a solid fill's handle stands for.
struct SolidFill : GpSolidFill {
    ARGB color = 0;
};

// Every image of this layer is a bitmap.
inline GpBitmap* asBitmap(GpImage* image) { return static_cast<GpBitmap*>(image); }

/* Ok when the graphics may draw now: WrongState while its target is locked, ObjectBusy while its
 * device context is out. */
GpStatus drawingState(const GpGraphics& graphics);

/* A new bitmap owning zeroed memory, rows 4-byte aligned. InvalidParameter for sizes below 1 or an
 * unknown format, OutOfMemory past kMaxPixelBytes. */
GpStatus createOwnedBitmap(INT width, INT height, PixelFormat format, GpBitmap** bitmap);

}  // namespace kyplatform

#endif
