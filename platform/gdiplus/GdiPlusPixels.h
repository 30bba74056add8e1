// One pixel of a bitmap format read and written as straight 0xAARRGGBB or as premultiplied
// channels. Memory order is B, G, R (then X or A), as GDI+ lays pixels out.
#ifndef KY_PLATFORM_GDI_PLUS_PIXELS_H
#define KY_PLATFORM_GDI_PLUS_PIXELS_H

#include <cstdint>

#include "GdiPlusFlat.h"

namespace kyplatform {

/* Channels from 0 to 255, colour multiplied by alpha. */
struct Premultiplied {
    float b;
    float g;
    float r;
    float a;
};

/* The formats without alpha read as opaque; 32bppPARGB is divided by its alpha. */
uint32_t readArgb(PixelFormat format, const BYTE* pixel);
/* The formats without alpha drop it (the X byte becomes 0xFF). */
void writeArgb(PixelFormat format, BYTE* pixel, uint32_t argb);

Premultiplied readPremultiplied(PixelFormat format, const BYTE* pixel);
/* Rounds and clamps; a format without alpha takes the colour as it is. */
void writePremultiplied(PixelFormat format, BYTE* pixel, const Premultiplied& value);

}  // namespace kyplatform

#endif
