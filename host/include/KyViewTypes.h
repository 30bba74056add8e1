/* The small types that the signatures of the host's images and drawing contexts name: the wide
 * string, the rectangles, the Direct2D bitmap handle, and the status of pixel operations. Plain
 * data; any thread. */
#ifndef KY_VIEW_TYPES_H
#define KY_VIEW_TYPES_H

#include <string>

#include "GdiPlusFlat.h"
#include "Win32Window.h"

typedef std::wstring CStringW;

/* A rectangle in pixels: its top-left corner and its size. */
struct HgRect {
    int x;
    int y;
    int width;
    int height;
};

/* The rectangle in window coordinates that MFC code passes around. */
struct CRect : RECT {};

/* A Direct2D bitmap; images only keep a pointer to one and never look inside. */
struct ID2D1Bitmap;

/* The status of an image's pixel operations: the platform's GDI+ status. */
struct KyGraphicsFlags {
    typedef GpStatus Status;
};

#endif
