/* The toolkit's XMP packet as text: the fields of a video's metadata formatted the way the packet
 * writes them, and the packet filled from those fields. Pure text functions with no file access;
 * any thread (formatCreationDate reads the process's time zone). Input that cannot be read gives
 * an empty result. */
#ifndef VIDEO_TOOLKIT_XMP_PACKET_H
#define VIDEO_TOOLKIT_XMP_PACKET_H

#include <cstdint>
#include <string>

/* "YYYY/MM/DD:hh:mm:ss[.fff]" in UTC to local "YYYY-MM-DDThh:mm:ss.000-00:00"; a date the zone
 * conversion refuses keeps its numbers as read. */
std::wstring formatCreationDate(const std::wstring& text);

/* Metres as text to thousandths: "35.2" gives "35200 / 1000" (truncated toward zero). */
std::wstring formatAltitude(const std::wstring& text);

/* "deg; min; sec" to "deg,minutes" with fractional minutes and the first character of reference
 * behind: "37; 46; 29.64", "N" gives "37,46.494N". */
std::wstring formatCoordinate(const std::wstring& text, const std::wstring& reference);

/* Deletes every "0; 0; 0" (a coordinate that was never set). */
std::wstring removeZeroTriples(const std::wstring& text);

/* A duration in 100-ns units as a count of 1/600 s, truncated; "-2147483648" when negative or too
 * long for a 32-bit count. */
std::wstring durationTicksText(int64_t duration100ns);

/* Clockwise rotation in degrees to the EXIF orientation: 90 gives "6"; an unknown angle gives "1". */
std::wstring orientationText(int32_t rotation);

struct XmpValues {
    std::wstring creationDate;
    std::wstring model;
    std::wstring durationInTicks;
    std::wstring orientation;
    std::wstring gpsLatitude;
    std::wstring gpsLongitude;
    std::wstring gpsAltitude1000ths;
    std::wstring gpsAltitudeRef;
};

/* The packet with each value put in its place, unescaped; the date, model and GPS elements are
 * left out when their value is empty. */
std::wstring fillXmpPacket(const XmpValues& values);

#endif
