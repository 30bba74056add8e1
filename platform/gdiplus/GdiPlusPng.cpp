// PNG files through libpng's simplified API: saving a bitmap (the PNG encoder, and the choice of
// encoder) and loading one into a 32bppARGB bitmap.
#include <png.h>

#include <cerrno>
#include <climits>
#include <string>

#include "GdiPlusImage.h"
#include "GdiPlusPixels.h"
#include "GdiPlusSave.h"
#include "Win32.h"

using namespace kyplatform;

const CLSID ImageEncoderPNG = {0x557CF406, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};

namespace {

std::string pathOf(const WCHAR* filename) { return WideToMultiByte(CP_UTF8, filename); }

// Rows as libpng takes them: the bitmap's own when their layout is one libpng writes, else a copy
// (32bppRGB without its X byte, 32bppPARGB divided by alpha).
struct PngRows {
    const BYTE* pixels = nullptr;
    int64_t stride = 0;
    png_uint_32 format = 0;
    PixelMemory copy;
};

GpStatus rowsFor(const GpImage& image, PngRows& rows) {
    if (image.format == PixelFormat24bppRGB || image.format == PixelFormat32bppARGB) {
        rows.pixels = image.scan0;
        rows.stride = image.stride;
        rows.format = image.format == PixelFormat24bppRGB ? PNG_FORMAT_BGR : PNG_FORMAT_BGRA;
        return Ok;
    }
    const PixelFormat layout = image.format == PixelFormat32bppRGB ? PixelFormat24bppRGB : PixelFormat32bppARGB;
    const int bpp = bytesPerPixel(layout);
    rows.stride = static_cast<int64_t>(image.width) * bpp;
    rows.copy = allocatePixels(rows.stride, image.height);
    if (!rows.copy) return OutOfMemory;
    for (INT y = 0; y < image.height; ++y) {
        const BYTE* in = image.row(y);
        BYTE* out = rows.copy.get() + rows.stride * y;
        for (INT x = 0; x < image.width; ++x, in += 4, out += bpp) writeArgb(layout, out, readArgb(image.format, in));
    }
    rows.pixels = rows.copy.get();
    rows.format = layout == PixelFormat24bppRGB ? PNG_FORMAT_BGR : PNG_FORMAT_BGRA;
    return Ok;
}

}  // namespace

GpStatus GdipSaveImageToFile(GpImage* image, const WCHAR* filename, const CLSID* encoder, const void* parameters) {
    if (image == nullptr || filename == nullptr || encoder == nullptr || filename[0] == 0) return InvalidParameter;
    if (*encoder != ImageEncoderPNG && *encoder != ImageEncoderJPEG) return InvalidParameter;
    if (image->lock.active) return WrongState;
    if (*encoder == ImageEncoderJPEG) return saveJpeg(*image, pathOf(filename), parameters);
    PngRows rows;
    const GpStatus status = rowsFor(*image, rows);
    if (status != Ok) return status;

    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = static_cast<png_uint_32>(image->width);
    png.height = static_cast<png_uint_32>(image->height);
    png.format = rows.format;
    // Speed over size: posters are written once and read once, and the default compression
    // costs several times the decoding of the frame.
    png.flags |= PNG_IMAGE_FLAG_FAST;
    return saveSafely(pathOf(filename), [&](FILE* stream) {
        // The row stride counts components, which are bytes at 8 bits.
        const int written =
            png_image_write_to_stdio(&png, stream, 0, rows.pixels, static_cast<png_int_32>(rows.stride), nullptr);
        const int writeError = errno;
        png_image_free(&png);
        errno = writeError;
        return written != 0;
    });
}

GpStatus GdipCreateBitmapFromFile(const WCHAR* filename, GpBitmap** bitmap) {
    if (filename == nullptr || bitmap == nullptr) return InvalidParameter;
    *bitmap = nullptr;
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    if (png_image_begin_read_from_file(&png, pathOf(filename).c_str()) == 0) return GenericError;
    // BGRA in memory is GDI+'s 32bppARGB; libpng expands palettes, grey, low and high bit depths.
    png.format = PNG_FORMAT_BGRA;
    // A 16-bit file without gamma information holds sRGB values like an 8-bit one (libpng would
    // take them as linear and brighten them).
    png.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
    GpBitmap* created = nullptr;
    GpStatus status = OutOfMemory;
    if (png.width <= INT_MAX && png.height <= INT_MAX) {
        status = createOwnedBitmap(static_cast<INT>(png.width), static_cast<INT>(png.height), PixelFormat32bppARGB,
                                   &created);
    }
    if (status != Ok) {
        png_image_free(&png);
        return status;
    }
    if (png_image_finish_read(&png, nullptr, created->scan0, created->stride, nullptr) == 0) {
        png_image_free(&png);
        GdipDisposeImage(created);
        return GenericError;
    }
    *bitmap = created;
    return Ok;
}
