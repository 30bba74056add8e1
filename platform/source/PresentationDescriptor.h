// Presentation and stream descriptors of a file media source: which streams the file has, which
// of them play (the first video and the first audio stream), and where the session reopens the
// file to play them, so that playback never shares the source's own demuxer.
#ifndef KY_PLATFORM_PRESENTATION_DESCRIPTOR_H
#define KY_PLATFORM_PRESENTATION_DESCRIPTOR_H

#include <string>

#include "MediaSession.h"

struct AVFormatContext;

namespace kyplatform {

/* A new descriptor (one reference) of context, whose streams have been probed; path is the file's
 * local path. */
HRESULT createPresentationDescriptor(const AVFormatContext& context, const std::string& path,
                                     IMFPresentationDescriptor** descriptor);

/* The file path of a descriptor made here; empty for any other object. */
std::string pathOf(IMFPresentationDescriptor* descriptor);

/* The container's stream index of a stream descriptor made here; -1 for any other object. */
int streamIndexOf(IMFStreamDescriptor* descriptor);

}  // namespace kyplatform

#endif
