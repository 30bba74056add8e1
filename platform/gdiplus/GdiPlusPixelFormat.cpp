// The pixel format of an image.
#include "GdiPlusImage.h"

GpStatus GdipGetImagePixelFormat(GpImage* image, PixelFormat* format) {
    if (image == nullptr || format == nullptr) return InvalidParameter;
    *format = image->format;
    return Ok;
}
