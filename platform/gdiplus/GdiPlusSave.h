// The encoders behind GdipSaveImageToFile, one file each, and the safe writing they share.
#ifndef KY_PLATFORM_GDI_PLUS_SAVE_H
#define KY_PLATFORM_GDI_PLUS_SAVE_H

#include <cstdio>
#include <functional>
#include <string>

#include "GdiPlusImage.h"

namespace kyplatform {

/* Writes a file through write(stream) beside the old one, synced and renamed into place
 * (KySafeFile), so that a failure leaves the old file whole. write returns false on failure, with
 * errno saying why where it knows. Win32Error with errno set when anything fails. */
GpStatus saveSafely(const std::string& path, const std::function<bool(FILE*)>& write);

/* Writes image to path as a JPEG at the quality in parameters (EncoderParameters, or null).
 * InvalidParameter for an unusable quality; Win32Error with errno set when the file cannot be
 * written. */
GpStatus saveJpeg(const GpImage& image, const std::string& path, const void* parameters);

}  // namespace kyplatform

#endif
