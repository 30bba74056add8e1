#include "MediaTags.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdlib>

#include "Win32.h"

namespace kyplatform {

namespace {

constexpr int64_t kDaysFrom1601To1970 = 134774;
constexpr int64_t kTicksPerMillisecond = 10000;
constexpr double kMicroArcsecondsPerDegree = 3600.0 * 1e6;

// Tag names from the most to the least trusted. The QuickTime keys are what phones write and hold
// the local zone; creation_time is MP4/MOV's mvhd time and Matroska's DateUTC; DATE_RECORDED is
// Matroska's tag; "date" is the ©day atom older phones wrote the recording date into.
constexpr std::string_view kDateTags[] = {"com.apple.quicktime.creationdate", "creation_time", "DATE_RECORDED",
                                          "DATE_ENCODED", "date"};
// MP4's 3GPP loci box and MOV's ©xyz atom both read back as "location"; loci also as "location-eng".
constexpr std::string_view kLocationTags[] = {"com.apple.quicktime.location.ISO6709", "location", "location-eng"};
constexpr std::string_view kMakeTags[] = {"com.apple.quicktime.make", "make", "com.android.manufacturer"};
constexpr std::string_view kModelTags[] = {"com.apple.quicktime.model", "model", "com.android.model"};

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\0'; };
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

bool sameName(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
        if (lower(a[i]) != lower(b[i])) return false;
    }
    return true;
}

// Reads from the front of a text, one token at a time; every read fails without consuming.
class Cursor {
public:
    explicit Cursor(std::string_view text) : text_(text) {}

    bool atEnd() const { return text_.empty(); }
    char peek() const { return text_.empty() ? '\0' : text_.front(); }

    bool take(char c) {
        if (peek() != c) return false;
        text_.remove_prefix(1);
        return true;
    }

    bool takeAny(std::string_view choices) {
        if (text_.empty() || choices.find(text_.front()) == std::string_view::npos) return false;
        text_.remove_prefix(1);
        return true;
    }

    // Exactly count digits, as a number.
    bool number(size_t count, int& value) {
        if (text_.size() < count) return false;
        int result = 0;
        for (size_t i = 0; i < count; ++i) {
            if (!isDigit(text_[i])) return false;
            result = result * 10 + (text_[i] - '0');
        }
        text_.remove_prefix(count);
        value = result;
        return true;
    }

    // One or more digits, as text.
    std::string_view digits() {
        size_t count = 0;
        while (count < text_.size() && isDigit(text_[count])) ++count;
        const std::string_view result = text_.substr(0, count);
        text_.remove_prefix(count);
        return result;
    }

    void skipUntil(char c) {
        const size_t at = text_.find(c);
        text_.remove_prefix(at == std::string_view::npos ? text_.size() : at);
    }

private:
    std::string_view text_;
};

// The zone's offset east of UTC in seconds; true also when there is none.
bool parseZone(Cursor& cursor, int& offsetSeconds) {
    offsetSeconds = 0;
    if (cursor.atEnd() || cursor.takeAny("Zz")) return true;
    const bool west = cursor.peek() == '-';
    if (!cursor.takeAny("+-")) return false;
    int hours = 0, minutes = 0;
    if (!cursor.number(2, hours)) return false;
    if (!cursor.atEnd()) {
        cursor.take(':');
        if (!cursor.number(2, minutes)) return false;
    }
    if (hours > 23 || minutes > 59) return false;
    offsetSeconds = (west ? -1 : 1) * (hours * 3600 + minutes * 60);
    return true;
}

// A number "DD.ddd" or "DD" after its sign; the digits before the point are kept apart because in
// ISO 6709 their count says whether minutes and seconds follow the degrees.
struct SignedNumber {
    bool negative = false;
    std::string_view whole;
    double value = 0;
};

bool parseSignedNumber(Cursor& cursor, SignedNumber& number) {
    number.negative = cursor.peek() == '-';
    if (!cursor.takeAny("+-")) return false;
    number.whole = cursor.digits();
    if (number.whole.empty()) return false;
    std::string text(number.whole);
    if (cursor.take('.')) {
        const std::string_view fraction = cursor.digits();
        if (fraction.empty()) return false;
        text += '.';
        text += fraction;
    }
    const auto result = std::from_chars(text.data(), text.data() + text.size(), number.value);
    return result.ec == std::errc() && std::isfinite(number.value);
}

// The angle in degrees of a latitude (2 degree digits) or longitude (3): ±D.D, ±DDMM.M or ±DDMMSS.S.
std::optional<double> angleFrom(const SignedNumber& number, size_t degreeDigits, double limit) {
    const size_t digits = number.whole.size();
    double degrees = number.value;
    if (digits == degreeDigits + 2 || digits == degreeDigits + 4) {
        // Split the whole part by position; the fraction belongs to the last field.
        const int whole = std::atoi(std::string(number.whole.substr(0, degreeDigits)).c_str());
        const double rest = number.value - whole * std::pow(10.0, static_cast<double>(digits - degreeDigits));
        double minutes = rest, seconds = 0;
        if (digits == degreeDigits + 4) {
            minutes = std::floor(rest / 100);
            seconds = rest - minutes * 100;
        }
        if (minutes >= 60 || seconds >= 60) return std::nullopt;
        degrees = whole + minutes / 60 + seconds / 3600;
    } else if (digits > degreeDigits) {
        return std::nullopt;
    }
    if (degrees > limit) return std::nullopt;
    return number.negative ? -degrees : degrees;
}

// A tag's text is shown, not used as a name: a byte that is not UTF-8 is a replacement character
// rather than the escape that keeps file names whole.
std::wstring wideText(std::string_view text) {
    std::wstring wide = MultiByteToWide(CP_UTF8, std::string(text));
    for (wchar_t& c : wide) {
        if (c >= 0xDC80 && c <= 0xDCFF) c = 0xFFFD;
    }
    return wide;
}

// Values of tags named name, in order.
template <class Visit>
bool visitTags(const TagList& tags, std::string_view name, Visit visit) {
    for (const auto& [tagName, value] : tags) {
        if (sameName(tagName, name) && visit(trimmed(value))) return true;
    }
    return false;
}

template <size_t N, class Visit>
void visitPreferred(const TagList& tags, const std::string_view (&names)[N], Visit visit) {
    for (std::string_view name : names) {
        if (visitTags(tags, name, visit)) return;
    }
}

void addText(std::vector<Property>& properties, const TagList& tags, const PROPERTYKEY& key,
             const std::string_view (&names)[3]) {
    visitPreferred(tags, names, [&](std::string_view value) {
        if (value.empty()) return false;
        properties.push_back({key, wideText(value)});
        return true;
    });
}

void addLocation(std::vector<Property>& properties, const GeoLocation& location) {
    properties.push_back({PKEY_GPS_Latitude, degreesMinutesSeconds(location.latitude)});
    properties.push_back({PKEY_GPS_LatitudeRef, std::wstring(location.latitude < 0 ? L"S" : L"N")});
    properties.push_back({PKEY_GPS_Longitude, degreesMinutesSeconds(location.longitude)});
    properties.push_back({PKEY_GPS_LongitudeRef, std::wstring(location.longitude < 0 ? L"W" : L"E")});
    if (location.altitude) {
        properties.push_back({PKEY_GPS_Altitude, std::fabs(*location.altitude)});
        properties.push_back({PKEY_GPS_AltitudeRef, static_cast<UINT32>(*location.altitude < 0 ? 1 : 0)});
    }
}

}  // namespace

std::optional<FILETIME> parseTagDate(std::string_view text) {
    Cursor cursor(trimmed(text));
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, millisecond = 0;
    if (!cursor.number(4, year) || !cursor.take('-') || !cursor.number(2, month) || !cursor.take('-') ||
        !cursor.number(2, day))
        return std::nullopt;
    if (cursor.takeAny("Tt ")) {
        if (!cursor.number(2, hour) || !cursor.take(':') || !cursor.number(2, minute)) return std::nullopt;
        if (cursor.take(':')) {
            if (!cursor.number(2, second)) return std::nullopt;
            if (cursor.takeAny(".,")) {
                const std::string_view fraction = cursor.digits();
                if (fraction.empty()) return std::nullopt;
                for (size_t i = 0; i < 3; ++i) {
                    millisecond = millisecond * 10 + (i < fraction.size() ? fraction[i] - '0' : 0);
                }
            }
        }
    }
    int offsetSeconds = 0;
    if (!parseZone(cursor, offsetSeconds) || !cursor.atEnd()) return std::nullopt;
    const std::chrono::year_month_day date{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                                           std::chrono::day{static_cast<unsigned>(day)}};
    if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;

    const int64_t days = std::chrono::sys_days{date}.time_since_epoch().count() + kDaysFrom1601To1970;
    const int64_t seconds = days * 86400 + hour * 3600 + minute * 60 + second - offsetSeconds;
    if (seconds < 0) return std::nullopt;
    const uint64_t ticks = static_cast<uint64_t>((seconds * 1000 + millisecond) * kTicksPerMillisecond);
    return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

std::optional<GeoLocation> parseIso6709(std::string_view text) {
    Cursor cursor(trimmed(text));
    SignedNumber latitudeText, longitudeText;
    if (!parseSignedNumber(cursor, latitudeText) || !parseSignedNumber(cursor, longitudeText)) return std::nullopt;
    const std::optional<double> latitude = angleFrom(latitudeText, 2, 90);
    const std::optional<double> longitude = angleFrom(longitudeText, 3, 180);
    if (!latitude || !longitude) return std::nullopt;

    GeoLocation location{*latitude, *longitude, std::nullopt};
    if (cursor.peek() == '+' || cursor.peek() == '-') {
        SignedNumber altitude;
        if (!parseSignedNumber(cursor, altitude)) return std::nullopt;
        location.altitude = altitude.negative ? -altitude.value : altitude.value;
    }
    if (cursor.take('C')) {
        if (!cursor.take('R') || !cursor.take('S')) return std::nullopt;
        cursor.skipUntil('/');
    }
    cursor.take('/');
    if (!cursor.atEnd()) return std::nullopt;
    return location;
}

std::vector<double> degreesMinutesSeconds(double degrees) {
    constexpr int64_t kPerMinute = 60'000'000;
    constexpr int64_t kPerDegree = 60 * kPerMinute;
    const double scaled = std::fabs(degrees) * kMicroArcsecondsPerDegree;
    // Past any angle on the globe (and for NaN) there is nothing sensible to split.
    if (!(scaled <= 360 * kMicroArcsecondsPerDegree)) return {0, 0, 0};
    const int64_t total = std::llround(scaled);
    return {static_cast<double>(total / kPerDegree), static_cast<double>(total % kPerDegree / kPerMinute),
            static_cast<double>(total % kPerMinute) / 1e6};
}

std::vector<Property> propertiesFromTags(const TagList& tags) {
    std::vector<Property> properties;
    visitPreferred(tags, kDateTags, [&](std::string_view value) {
        const std::optional<FILETIME> date = parseTagDate(value);
        if (date) properties.push_back({PKEY_Media_DateEncoded, *date});
        return date.has_value();
    });
    visitPreferred(tags, kLocationTags, [&](std::string_view value) {
        const std::optional<GeoLocation> location = parseIso6709(value);
        if (location) addLocation(properties, *location);
        return location.has_value();
    });
    addText(properties, tags, PKEY_Photo_CameraModel, kModelTags);
    addText(properties, tags, PKEY_Photo_CameraManufacturer, kMakeTags);
    return properties;
}

}  // namespace kyplatform
