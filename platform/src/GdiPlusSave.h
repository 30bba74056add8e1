// The encoders behind GdipSaveImageToFile, one file each.
#ifndef KY_PLATFORM_GDI_PLUS_SAVE_H
#define KY_PLATFORM_GDI_PLUS_SAVE_H

#include <string>

#include "GdiPlusImage.h"

namespace kyplatform {

/* Writes image to path as a JPEG at the quality in parameters (EncoderParameters, or null).
 * InvalidParameter for an unusable quality; Win32Error with errno set when the file cannot be
 * written. */
GpStatus saveJpeg(const GpImage& image, const std::string& path, const void* parameters);

}  // namespace kyplatform

#endif
