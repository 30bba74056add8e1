/* KyTiledImage: the interface of an image kept in tiles, too large to be one bitmap. An
 * implementation belongs to one thread at a time and reports failures through its results (a
 * GDI+ status, a null clone). A native image made over one borrows it. */
#ifndef KY_TILED_IMAGE_H
#define KY_TILED_IMAGE_H

#include "KyKernel.h"
#include "KyViewTypes.h"

class KY_EXPORT KyTiledImage {
public:
    virtual ~KyTiledImage() = default;

    virtual unsigned int GetWidth() const = 0;
    virtual unsigned int GetHeight() const = 0;
    virtual unsigned int GetTileWidth() const = 0;
    virtual unsigned int GetTileHeight() const = 0;
    virtual PixelFormat GetPixelFormat() const = 0;
    /* The tile at (column, row), locked for flags (ImageLockMode) into data until UnlockTile. */
    virtual KyGraphicsFlags::Status LockTile(unsigned int column, unsigned int row, unsigned int flags,
                                             Gdiplus::BitmapData* data) = 0;
    virtual KyGraphicsFlags::Status UnlockTile(Gdiplus::BitmapData* data) = 0;
    /* A new tiled image (the caller's to delete) with the pixels converted to the profile in the
     * file profilePath, or to the named colour space; null on failure. */
    virtual KyTiledImage* CloneImageWithColorProfile(const CStringW& profilePath) = 0;
    virtual KyTiledImage* CloneImageWithColorSpace(const CStringW& colorSpace) = 0;
};

#endif
