/* The GDI+ flat interface as the toolkit draws with it: bitmaps in memory, locking their bits,
 * rotate-flip, and a graphics context that draws one bitmap into another through a scale
 * transform (bilinear). Pixel formats are 32-bit B, G, R, X (or A) bytes per pixel, rows top-down
 * with a positive stride. Plain functions; a bitmap or graphics object belongs to one thread at a
 * time. Failures are GpStatus values; a null handle argument gives InvalidParameter. */
#ifndef KY_GDI_PLUS_FLAT_H
#define KY_GDI_PLUS_FLAT_H

#include <cstddef>

#include "PlatformTypes.h"

enum GpStatus {
    Ok = 0,
    GenericError = 1,
    InvalidParameter = 2,
    OutOfMemory = 3,
    ObjectBusy = 4,
    InsufficientBuffer = 5,
    NotImplemented = 6,
    WrongState = 8,
};

typedef INT PixelFormat;
constexpr PixelFormat PixelFormat24bppRGB = 0x21808;
constexpr PixelFormat PixelFormat32bppRGB = 0x22009;
constexpr PixelFormat PixelFormat32bppARGB = 0x26200A;
constexpr PixelFormat PixelFormat32bppPARGB = 0xE200B;

enum ImageLockMode { ImageLockModeRead = 1, ImageLockModeWrite = 2, ImageLockModeUserInputBuf = 4 };

enum RotateFlipType {
    RotateNoneFlipNone = 0,
    Rotate90FlipNone = 1,
    Rotate180FlipNone = 2,
    Rotate270FlipNone = 3,
    RotateNoneFlipX = 4,
    Rotate90FlipX = 5,
    Rotate180FlipX = 6,
    Rotate270FlipX = 7,
};

enum MatrixOrder { MatrixOrderPrepend = 0, MatrixOrderAppend = 1 };

struct GpRect {
    INT X;
    INT Y;
    INT Width;
    INT Height;
};

struct BitmapData {
    UINT Width;
    UINT Height;
    INT Stride;
    PixelFormat PixelFormat;
    void* Scan0;
    uintptr_t Reserved;
};

struct GpImage;
struct GpBitmap;   // a GpImage
struct GpGraphics;

void* GdipAlloc(size_t size);
void GdipFree(void* pointer);

/* scan0 null: the bitmap owns zeroed memory of width x height (stride ignored). Otherwise it
 * wraps the caller's memory, which must outlive it. Formats: the two 32-bit ones and 32bppPARGB;
 * others give InvalidParameter. */
GpStatus GdipCreateBitmapFromScan0(INT width, INT height, INT stride, PixelFormat format, BYTE* scan0,
                                   GpBitmap** bitmap);
GpStatus GdipDisposeImage(GpImage* image);
/* Locks rect (inside the bitmap) for the mode; data receives the rows as they lie in the bitmap. */
GpStatus GdipBitmapLockBits(GpBitmap* bitmap, const GpRect* rect, UINT flags, PixelFormat format, BitmapData* data);
GpStatus GdipBitmapUnlockBits(GpBitmap* bitmap, BitmapData* data);
/* In place; 90 and 270 swap width and height. */
GpStatus GdipImageRotateFlip(GpImage* image, RotateFlipType type);
GpStatus GdipGetImageWidth(GpImage* image, UINT* width);
GpStatus GdipGetImageHeight(GpImage* image, UINT* height);
GpStatus GdipGetImageGraphicsContext(GpImage* image, GpGraphics** graphics);
GpStatus GdipDeleteGraphics(GpGraphics* graphics);
GpStatus GdipScaleWorldTransform(GpGraphics* graphics, float sx, float sy, MatrixOrder order);
/* Draws image at (x, y) through the world transform, sampling bilinearly. */
GpStatus GdipDrawImageI(GpGraphics* graphics, GpImage* image, INT x, INT y);

namespace Gdiplus {

/* The thin C++ wrapper of a GDI+ bitmap: the handle and the status of the last call. Allocated
 * with GdipAlloc (operator new), so a null result means no memory. */
class Bitmap {
public:
    Bitmap(INT width, INT height, PixelFormat format);
    virtual ~Bitmap();
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;

    static void* operator new(size_t size) noexcept { return GdipAlloc(size); }
    static void operator delete(void* pointer) { GdipFree(pointer); }

    GpBitmap* nativeImage() const { return nativeImage_; }
    GpImage* image() const { return reinterpret_cast<GpImage*>(nativeImage_); }
    GpStatus GetLastStatus() const { return lastResult_; }
    /* Records a call's status as the wrapper does: a failing one sticks. */
    GpStatus setStatus(GpStatus status) {
        if (status != Ok) lastResult_ = status;
        return status;
    }

private:
    GpBitmap* nativeImage_ = nullptr;
    GpStatus lastResult_ = Ok;
};

}  // namespace Gdiplus

#endif
