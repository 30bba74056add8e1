// JPEG files through libjpeg: the JPEG encoder of GdipSaveImageToFile. Rows go to the library one
// at a time as 24-bit RGB, so a picture of any size costs one row of memory beyond its own.
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <vector>

extern "C" {
#include <jpeglib.h>
}

#include "GdiPlusImage.h"
#include "GdiPlusPixels.h"
#include "GdiPlusSave.h"

const CLSID ImageEncoderJPEG = {0x557CF401, 0x1A04, 0x11D3, {0x9A, 0x73, 0x00, 0x00, 0xF8, 0x1E, 0xF3, 0x2E}};
const GUID EncoderQuality = {0x1D5BE4B5, 0xFA4A, 0x452D, {0x9C, 0xDD, 0x5D, 0xB3, 0x51, 0x05, 0xE7, 0xEB}};

namespace {

constexpr long kDefaultQuality = 75;

struct JpegFailure {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

// libjpeg reports a failure by calling this, which must not return: back to the setjmp below.
[[noreturn]] void onError(j_common_ptr info) { std::longjmp(reinterpret_cast<JpegFailure*>(info->err)->jump, 1); }

// The quality in the parameters, or the default; -1 when a quality is given but unusable.
long qualityOf(const void* parameters) {
    long quality = kDefaultQuality;
    const auto* list = static_cast<const EncoderParameters*>(parameters);
    for (UINT i = 0; list != nullptr && i < list->Count; ++i) {
        const EncoderParameter& parameter = list->Parameter[i];
        if (parameter.Guid != EncoderQuality) continue;
        if (parameter.Type != EncoderParameterValueTypeLong || parameter.NumberOfValues != 1 || parameter.Value == nullptr) {
            return -1;
        }
        quality = *static_cast<const ULONG*>(parameter.Value);
    }
    return quality >= 0 && quality <= 100 ? quality : -1;
}

// Compresses the image into file; false when a write failed (errno says why) or libjpeg gave up.
// Kept apart from anything with a destructor: longjmp leaves this frame.
bool compress(const GpImage& image, FILE* file, int quality, std::vector<JSAMPLE>& row) {
    jpeg_compress_struct info{};
    JpegFailure failure{};
    info.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = onError;
    if (setjmp(failure.jump) != 0) {
        jpeg_destroy_compress(&info);
        return false;
    }
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, file);
    info.image_width = static_cast<JDIMENSION>(image.width);
    info.image_height = static_cast<JDIMENSION>(image.height);
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, quality, TRUE);
    jpeg_start_compress(&info, TRUE);
    for (INT y = 0; y < image.height; ++y) {
        const BYTE* in = image.row(y);
        const int bpp = kyplatform::bytesPerPixel(image.format);
        for (INT x = 0; x < image.width; ++x, in += bpp) {
            const uint32_t argb = kyplatform::readArgb(image.format, in);
            row[3 * x] = static_cast<JSAMPLE>(argb >> 16);
            row[3 * x + 1] = static_cast<JSAMPLE>(argb >> 8);
            row[3 * x + 2] = static_cast<JSAMPLE>(argb);
        }
        JSAMPROW rows[] = {row.data()};
        jpeg_write_scanlines(&info, rows, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return std::ferror(file) == 0;
}

}  // namespace

GpStatus kyplatform::saveJpeg(const GpImage& image, const std::string& path, const void* parameters) {
    const long quality = qualityOf(parameters);
    if (quality < 0) return InvalidParameter;
    std::vector<JSAMPLE> row(static_cast<size_t>(image.width) * 3);
    return saveSafely(path, [&](FILE* stream) { return compress(image, stream, static_cast<int>(quality), row); });
}
