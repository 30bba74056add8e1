// The media source the source resolver makes of a file: it holds the opened file until Shutdown and
// serves the file's property store.
#ifndef KY_PLATFORM_FILE_MEDIA_SOURCE_H
#define KY_PLATFORM_FILE_MEDIA_SOURCE_H

#include "MediaFoundation.h"

struct AVFormatContext;

namespace kyplatform {

/* A new source (one reference, as its IMFMediaSource) that owns context, an input opened by
 * openInput. On E_OUTOFMEMORY the context is closed. */
HRESULT createFileMediaSource(AVFormatContext* context, IMFMediaSource** source);

}  // namespace kyplatform

#endif
