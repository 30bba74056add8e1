/* The GDI+ flat interface as the toolkit draws with it: bitmaps in memory, locking their bits,
 * rotate-flip, graphics contexts that draw one bitmap into another through a scale transform
 * (bilinear), clear and fill rectangles with a solid brush and hand out their device context, and
 * PNG files. Pixels are B, G, R, X (or A) bytes (24bppRGB: B, G, R), rows top-down with a
 * positive stride. Plain functions; a bitmap or graphics object belongs to one thread at a time.
 * Failures are GpStatus values; a null handle argument gives InvalidParameter. */
#ifndef KY_GDI_PLUS_FLAT_H
#define KY_GDI_PLUS_FLAT_H

#include <cstddef>

#include "PlatformTypes.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

enum GpStatus {
    Ok = 0,
    GenericError = 1,
    InvalidParameter = 2,
    OutOfMemory = 3,
    ObjectBusy = 4,
    InsufficientBuffer = 5,
    NotImplemented = 6,
    Win32Error = 7,
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
    ::PixelFormat PixelFormat;  // qualified, as the member takes the type's name
    void* Scan0;
    uintptr_t Reserved;
};

struct GpImage;
struct GpBitmap;   // a GpImage
struct GpGraphics;

/* Brushes (solid fills only); what they hold is this layer's own. */
struct GpBrush {};
struct GpSolidFill : GpBrush {};

/* A colour as 0xAARRGGBB, straight alpha. */
typedef DWORD ARGB;

/* A device context: names the bitmap a graphics context draws into, from GdipGetDC until
 * GdipReleaseDC, and no longer. */
struct HDC__;
typedef HDC__* HDC;

void* GdipAlloc(size_t size);
void GdipFree(void* pointer);

/* scan0 null: the bitmap owns zeroed memory of width x height (stride ignored, rows 4-byte
 * aligned); more than 1 GiB gives OutOfMemory. Otherwise it wraps the caller's memory, which must
 * outlive it (stride a positive multiple of 4 holding a row). Formats: 24bppRGB, 32bppRGB,
 * 32bppARGB, 32bppPARGB; others, and sizes below 1, give InvalidParameter. */
GpStatus GdipCreateBitmapFromScan0(INT width, INT height, INT stride, PixelFormat format, BYTE* scan0,
                                   GpBitmap** bitmap);
/* ObjectBusy while a graphics context draws into the image: delete the graphics first. */
GpStatus GdipDisposeImage(GpImage* image);
/* Locks rect (inside the bitmap, else InvalidParameter; null for all of it) for the mode; data
 * receives the rows as they lie in the bitmap when format is the bitmap's own. Another format, or
 * ImageLockModeUserInputBuf (data->Scan0 and Stride name the caller's rows), gets a converted copy
 * written back at unlock for ImageLockModeWrite. One lock at a time: a second gives WrongState, as
 * do drawing, rotating, saving and reading pixels while locked, and an unlock without a lock. */
GpStatus GdipBitmapLockBits(GpBitmap* bitmap, const GpRect* rect, UINT flags, PixelFormat format, BitmapData* data);
GpStatus GdipBitmapUnlockBits(GpBitmap* bitmap, BitmapData* data);
/* In place: a clockwise rotation, then for the FlipX types a horizontal mirror; 90 and 270 swap
 * width and height. A bitmap over the caller's memory moves to memory of its own when its width
 * changes. */
GpStatus GdipImageRotateFlip(GpImage* image, RotateFlipType type);
GpStatus GdipGetImageWidth(GpImage* image, UINT* width);
GpStatus GdipGetImageHeight(GpImage* image, UINT* height);
GpStatus GdipGetImagePixelFormat(GpImage* image, PixelFormat* format);
GpStatus GdipGetImageGraphicsContext(GpImage* image, GpGraphics** graphics);
GpStatus GdipDeleteGraphics(GpGraphics* graphics);
/* The device context of the graphics' bitmap, for any format a graphics can draw on. While it is
 * held the graphics is busy: drawing and a second GdipGetDC give ObjectBusy until GdipReleaseDC
 * with that dc (another dc gives InvalidParameter). */
GpStatus GdipGetDC(GpGraphics* graphics, HDC* dc);
GpStatus GdipReleaseDC(GpGraphics* graphics, HDC dc);
/* A new graphics context drawing into the bitmap that dc names, with the identity transform;
 * InvalidParameter for a dc already released. */
GpStatus GdipCreateFromHDC(HDC dc, GpGraphics** graphics);
/* Sets every pixel of the graphics' bitmap to color, whatever the transform. */
GpStatus GdipGraphicsClear(GpGraphics* graphics, ARGB color);
GpStatus GdipCreateSolidFill(ARGB color, GpSolidFill** brush);
GpStatus GdipDeleteBrush(GpBrush* brush);
/* Fills the rectangle through the world transform, blending the brush's colour source-over into
 * every pixel whose centre lies inside; a width or height below 0 gives InvalidParameter. */
GpStatus GdipFillRectangleI(GpGraphics* graphics, GpBrush* brush, INT x, INT y, INT width, INT height);
GpStatus GdipScaleWorldTransform(GpGraphics* graphics, float sx, float sy, MatrixOrder order);
/* Draws image at (x, y) through the world transform, sampling bilinearly (edge pixels repeat
 * outward) and blending source-over: every target pixel whose centre lies in the transformed
 * rectangle is covered. */
GpStatus GdipDrawImageI(GpGraphics* graphics, GpImage* image, INT x, INT y);
/* The pixel at (x, y) as 0xAARRGGBB with straight alpha; 0xFF alpha for the RGB formats. */
GpStatus GdipBitmapGetPixel(GpBitmap* bitmap, INT x, INT y, uint32_t* argb);

/* The PNG encoder, {557CF406-1A04-11D3-9A73-0000F81EF32E}, and the JPEG encoder,
 * {557CF401-1A04-11D3-9A73-0000F81EF32E}. */
extern const CLSID ImageEncoderPNG;
extern const CLSID ImageEncoderJPEG;

/* An encoder's setting, as GDI+ passes them: the JPEG encoder takes EncoderQuality, one value of
 * EncoderParameterValueTypeLong from 0 to 100 (75 when absent). */
struct EncoderParameter {
    GUID Guid;
    ULONG NumberOfValues;
    ULONG Type;
    void* Value;
};
struct EncoderParameters {
    UINT Count;
    EncoderParameter Parameter[1];
};
constexpr ULONG EncoderParameterValueTypeLong = 4;
/* {1D5BE4B5-FA4A-452D-9CDD-5DB35105E7EB} */
extern const GUID EncoderQuality;

/* Writes image as an 8-bit PNG (RGB for the RGB formats, RGBA with straight alpha for the ARGB
 * ones; encoderParams is ignored) or as a baseline JPEG (alpha dropped; encoderParams may point
 * to EncoderParameters with EncoderQuality). filename is a path. Another encoder, or a quality
 * out of range, gives InvalidParameter; a file that cannot be written Win32Error with errno saying
 * why. The file is written as KySafeFile writes: a failure leaves the one that was there whole. */
GpStatus GdipSaveImageToFile(GpImage* image, const WCHAR* filename, const CLSID* encoder, const void* encoderParams);
/* Reads a PNG of any colour type and bit depth into a new 32bppARGB bitmap (straight alpha, 8-bit
 * sRGB). GenericError when the file cannot be read or is no PNG; OutOfMemory when its pixels would
 * pass 1 GiB. */
GpStatus GdipCreateBitmapFromFile(const WCHAR* filename, GpBitmap** bitmap);

namespace Gdiplus {

using BitmapData = ::BitmapData;

/* Paths are not drawn in this layer; the type names where a drawing context keeps its path. */
class GraphicsPath;

/* A colour value, 0xAARRGGBB; black by default. */
class Color {
public:
    Color() = default;
    Color(ARGB argb) : argb_(argb) {}  // NOLINT: a value converts implicitly, as in GDI+
    Color(BYTE a, BYTE r, BYTE g, BYTE b)
        : argb_(static_cast<ARGB>(a) << 24 | static_cast<ARGB>(r) << 16 | static_cast<ARGB>(g) << 8 | b) {}
    ARGB GetValue() const { return argb_; }

private:
    ARGB argb_ = 0xFF000000;
};

/* The thin C++ wrapper of a GDI+ bitmap: the handle and the status of the last call. Allocated
 * with GdipAlloc (operator new), so a null result means no memory. */
class Bitmap {
public:
    Bitmap(INT width, INT height, PixelFormat format);
    /* Over the caller's rows, or rows of its own when scan0 is null (GdipCreateBitmapFromScan0). */
    Bitmap(INT width, INT height, INT stride, PixelFormat format, BYTE* scan0) {
        lastResult_ = GdipCreateBitmapFromScan0(width, height, stride, format, scan0, &nativeImage_);
    }
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

/* The thin C++ wrapper of a GDI+ graphics context: the handle (null when creation failed) and the
 * status of the last call. Allocated with GdipAlloc as Bitmap is. */
class Graphics {
public:
    /* Draws into bitmap (GdipGetImageGraphicsContext); a null or failed bitmap gives a null handle. */
    explicit Graphics(Bitmap* bitmap) {
        lastResult_ = GdipGetImageGraphicsContext(bitmap != nullptr ? bitmap->image() : nullptr, &nativeGraphics_);
    }
    explicit Graphics(HDC dc) { lastResult_ = GdipCreateFromHDC(dc, &nativeGraphics_); }
    ~Graphics() {
        if (nativeGraphics_ != nullptr) GdipDeleteGraphics(nativeGraphics_);
    }
    Graphics(const Graphics&) = delete;
    Graphics& operator=(const Graphics&) = delete;

    static void* operator new(size_t size) noexcept { return GdipAlloc(size); }
    static void operator delete(void* pointer) { GdipFree(pointer); }

    GpGraphics* nativeGraphics() const { return nativeGraphics_; }
    GpStatus GetLastStatus() const { return lastResult_; }
    GpStatus setStatus(GpStatus status) {
        if (status != Ok) lastResult_ = status;
        return status;
    }

private:
    GpGraphics* nativeGraphics_ = nullptr;
    GpStatus lastResult_ = Ok;
};

}  // namespace Gdiplus

KY_PLATFORM_EXPORTS_END

#endif
