// Media time: 0 at the first presented picture of the file, whatever the container's own clock
// says (MPEG-TS usually starts near 1.4 s, a broadcast recording at hours, an MP4 with an edit list
// may start below 0). The source reader, the presentation descriptor and the playback engine all
// measure time and duration from this origin, so that a position means the same frame everywhere.
#ifndef KY_PLATFORM_MEDIA_TIMELINE_H
#define KY_PLATFORM_MEDIA_TIMELINE_H

#include <cstdint>

#include "PlatformTypes.h"

extern "C" {
#include <libavutil/rational.h>
}

struct AVFormatContext;

namespace kyplatform {

constexpr AVRational kHundredNanoseconds{1, kHundredNanosecondsPerSecond};

/* A rate or ratio that says something: both terms above 0. */
inline bool known(AVRational value) { return value.num > 0 && value.den > 0; }

/* The index of the file's video stream (cover art is not one), or -1. */
int firstVideoStream(const AVFormatContext& format);

/* The stream whose start is media time 0: the video stream, else the first audio stream; -1 if none. */
int timelineStream(const AVFormatContext& format);

/* Where media time 0 lies, in the container's microseconds (AV_TIME_BASE): the start of the stream
 * at index (the video stream for a file that has one), else the file's start, else 0. */
int64_t mediaOrigin(const AVFormatContext& format, int index);

/* Where a container gives no presentation times (AVI with B-frames), the decoder's guessed times
 * put the first picture its reordering delay after the stream's start: that delay in AV_TIME_BASE
 * units, to add to the origin; else 0. Reads the first packets when the stream reorders at all
 * (*read then says so): the caller goes back before reading. */
int64_t guessedTimesDelay(AVFormatContext& format, int videoIndex, bool* read = nullptr);

/* The length in 100 ns from the origin to the end of the file's last stream; -1 when unknown. */
LONGLONG mediaDuration(const AVFormatContext& format, int index);

/* A stream timestamp as media time in 100 ns; 0 for AV_NOPTS_VALUE or an unusable time base. */
LONGLONG toMediaTime(int64_t timestamp, AVRational timeBase, int64_t origin);

/* Media time in 100 ns as a timestamp of a stream with timeBase. */
int64_t fromMediaTime(LONGLONG time, AVRational timeBase, int64_t origin);

}  // namespace kyplatform

#endif
