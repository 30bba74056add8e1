// The camera and phone tags of a media file, as FFmpeg gives them, read into the property
// system's values: date of recording, ISO 6709 location, camera make and model. Pure functions over
// (name, value) pairs, so that every tag form can be checked without a file. Any thread.
#ifndef KY_PLATFORM_MEDIA_TAGS_H
#define KY_PLATFORM_MEDIA_TAGS_H

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "PropertyValue.h"

namespace kyplatform {

/* Tags in reading order: the container's first, then the first video stream's, then the other
 * streams'. Values are UTF-8. Names compare without case, as FFmpeg's dictionaries do. */
using TagList = std::vector<std::pair<std::string, std::string>>;

/* An ISO 8601 date "yyyy-mm-dd", optionally with a time "Thh:mm[:ss[.fff]]" (or a space for the
 * T) and a zone "Z", "+hh", "+hhmm" or "+hh:mm", as UTC with milliseconds (finer digits dropped);
 * no zone reads as UTC. Nothing for other text or dates before 1601. */
std::optional<FILETIME> parseTagDate(std::string_view text);

struct GeoLocation {
    double latitude;   // degrees, north positive
    double longitude;  // degrees, east positive
    std::optional<double> altitude;  // metres, above sea level positive
};

/* An ISO 6709 point "+48.8577+002.2950+035.200/": latitude and longitude in degrees
 * (±DD.D, ±DDMM.M or ±DDMMSS.S; ±DDD... for longitude), an optional altitude, an optional CRS
 * name and the closing '/', which may be left out. Nothing for other text or a point off the
 * globe. */
std::optional<GeoLocation> parseIso6709(std::string_view text);

/* Whole degrees, whole minutes and seconds of |degrees|, counted in micro-arcseconds so that a
 * decimal input keeps its decimal seconds (48.8577 gives 48, 51, 27.72); 0, 0, 0 past 360 degrees
 * and for NaN. */
std::vector<double> degreesMinutesSeconds(double degrees);

/* The properties the tags give, each at most once: PKEY_Media_DateEncoded, the PKEY_GPS_* set and
 * PKEY_Photo_CameraModel / CameraManufacturer. For each property the preferred tag name that holds
 * a usable value wins; among tags of one name, the first. */
std::vector<Property> propertiesFromTags(const TagList& tags);

}  // namespace kyplatform

#endif
