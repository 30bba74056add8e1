// Text for the XMP packet. Numbers go through sscanf and snprintf, so they follow the process's
// numeric locale: the C locale unless the host changes it.
#include "XmpPacket.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "Win32.h"

namespace {

// Characters past ASCII become '?' so that none of them can read as a digit or a separator.
std::string narrow(const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) out += c >= 0 && c < 0x80 ? static_cast<char>(c) : '?';
    return out;
}

__attribute__((format(printf, 1, 2))) std::wstring formatText(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list copy;
    va_copy(copy, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string out(length > 0 ? length : 0, '\0');
    if (length > 0) std::vsnprintf(out.data(), out.size() + 1, format, arguments);
    va_end(arguments);
    return std::wstring(out.begin(), out.end());
}

// Each search resumes behind the text just put in, so a value holding its own pattern stays as is.
void replaceAll(std::wstring& text, const std::wstring& pattern, const std::wstring& replacement) {
    for (size_t at = text.find(pattern); at != std::wstring::npos; at = text.find(pattern, at)) {
        text.replace(at, pattern.size(), replacement);
        at += replacement.size();
    }
}

// static_cast<int> is defined only where the truncated value fits.
bool fitsInt(double value) { return value > -2147483649.0 && value < 2147483648.0; }

constexpr const char kDateFormat[] = "%d-%02d-%02dT%02d:%02d:%02d.000-00:00";

// One literal per row, then the separator that follows the row in the packet.
constexpr const char kTemplate[] =
    "<?xpacket begin=\"\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>"                  "  \t\t\t\t"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\" x:xmptk=\"Halden XMP MIMIC 1.1\">"     "  \t\t\t\t"
    "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\">"          "  \t\t\t\t"
    "<rdf:Description rdf:about=\"\""                                           "  \t\t\t\t"
    "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\""                                "  \t\t\t\t"
    "xmlns:xmpDM=\"http://ns.adobe.com/xmp/1.0/DynamicMedia/\""                 "  \t\t\t\t"
    "xmlns:exif=\"http://ns.adobe.com/exif/1.0/\""                              "  \t\t\t\t"
    "xmlns:tiff=\"http://ns.adobe.com/tiff/1.0/\""                              "  \t\t\t\t"
    "xmlns:xmpMM=\"http://ns.adobe.com/xap/1.0/mm/\""                           "  \t\t\t\t"
    "xmlns:stEvt=\"http://ns.adobe.com/xap/1.0/sType/ResourceEvent#\">"         "  \t\t\t\t"
    "<xmp:CreateDate>%creationDate%</xmp:CreateDate>"                           "     \t\t\t\t"
    "<xmpDM:cameraModel>%model%</xmpDM:cameraModel>"                            "  \t\t\t\t"
    "<xmpDM:duration rdf:parseType=\"Resource\">"                               "  \t\t\t\t"
    "<xmpDM:value>%durationInTicks%</xmpDM:value>"                              "  \t\t\t\t"
    "<xmpDM:scale>1/600</xmpDM:scale>"                                          "  \t\t\t\t"
    "</xmpDM:duration>"                                                         "  \t\t\t\t"
    "<tiff:Orientation>%orientation%</tiff:Orientation>"                        "   \t\t\t\t"
    "<exif:GPSLatitude>%gpsLatitude%</exif:GPSLatitude>"                        "  \t\t\t\t"
    "<exif:GPSLongitude>%gpsLongitude%</exif:GPSLongitude>"                     "  \t\t\t\t"
    "<exif:GPSAltitudeRef>%gpsAltitudeRef%</exif:GPSAltitudeRef>"               "  \t\t\t\t"
    "<exif:GPSAltitude>%gpsAltitude1000ths%</exif:GPSAltitude>"                 "  \t\t\t\t"
    "</rdf:Description>"                                                        "  \t\t\t\t"
    "</rdf:RDF>"                                                                "  \t\t\t\t"
    "</x:xmpmeta>"                                                              "  \t\t\t\t"
    "<?xpacket end=\"w\"?>";

}  // namespace

std::wstring formatCreationDate(const std::wstring& text) {
    if (text.empty()) return {};
    int year = 0, month = 0, day = 0, hour = 0, minute = 0;
    double seconds = 0;
    if (std::sscanf(narrow(text).c_str(), "%d/%d/%d:%d:%d:%lf", &year, &month, &day, &hour, &minute, &seconds) != 6)
        return {};
    if (!fitsInt(seconds)) return {};
    const int wholeSeconds = static_cast<int>(seconds);

    SYSTEMTIME utc{};
    utc.wYear = static_cast<WORD>(year);
    utc.wMonth = static_cast<WORD>(month);
    utc.wDay = static_cast<WORD>(day);
    utc.wHour = static_cast<WORD>(hour);
    utc.wMinute = static_cast<WORD>(minute);
    utc.wSecond = static_cast<WORD>(wholeSeconds);
    SYSTEMTIME local{};
    if (SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local))
        return formatText(kDateFormat, local.wYear, local.wMonth, local.wDay, local.wHour, local.wMinute,
                          local.wSecond);
    return formatText(kDateFormat, year, month, day, hour, minute, wholeSeconds);
}

std::wstring formatAltitude(const std::wstring& text) {
    if (text.empty()) return {};
    double metres = 0;
    if (std::sscanf(narrow(text).c_str(), "%lf", &metres) != 1) return {};
    double thousandths = std::trunc(metres * 1000.0);
    if (!std::isfinite(thousandths)) return {};
    // Truncating -0.0004 leaves -0.0, which "%.0f" would write as "-0".
    if (thousandths == 0.0) thousandths = 0.0;
    return formatText("%.0f / 1000", thousandths);
}

std::wstring formatCoordinate(const std::wstring& text, const std::wstring& reference) {
    if (text.empty()) return {};
    int degrees = 0, minutes = 0;
    double seconds = 0;
    if (std::sscanf(narrow(text).c_str(), "%d; %d; %lf", &degrees, &minutes, &seconds) != 3) return {};
    const double value = seconds / 60.0 + minutes;
    if (!std::isfinite(value)) return {};
    std::wstring out = formatText("%d,%g", degrees, value);
    if (!reference.empty()) out += reference.front();
    return out;
}

std::wstring removeZeroTriples(const std::wstring& text) {
    std::wstring out = text;
    replaceAll(out, L"0; 0; 0", L"");
    return out;
}

std::wstring durationTicksText(int64_t duration100ns) {
    // A negative duration reads as a huge unsigned count. A count past 32 bits truncates to the
    // minimum, as the processor's conversion gives it and as the rational core does.
    const uint64_t milliseconds = static_cast<uint64_t>(duration100ns) / 10000;
    const double ticks = static_cast<double>(milliseconds) / 0.0016666666666666668 / 1000.0;
    return formatText("%d", fitsInt(ticks) ? static_cast<int>(ticks) : INT32_MIN);
}

std::wstring orientationText(int32_t rotation) {
    switch (rotation) {
        case 90: return L"6";
        case 180: return L"3";
        case 270: return L"8";
        default: return L"1";
    }
}

std::wstring fillXmpPacket(const XmpValues& values) {
    const std::string narrowTemplate = kTemplate;
    std::wstring packet(narrowTemplate.begin(), narrowTemplate.end());

    const std::pair<const wchar_t*, const std::wstring*> placeholders[] = {
        {L"%creationDate%", &values.creationDate},
        {L"%model%", &values.model},
        {L"%durationInTicks%", &values.durationInTicks},
        {L"%orientation%", &values.orientation},
        {L"%gpsLatitude%", &values.gpsLatitude},
        {L"%gpsLongitude%", &values.gpsLongitude},
        {L"%gpsAltitude1000ths%", &values.gpsAltitude1000ths},
        {L"%gpsAltitudeRef%", &values.gpsAltitudeRef},
    };
    for (const auto& [placeholder, value] : placeholders) replaceAll(packet, placeholder, *value);

    // Readers take an empty element for a value; leaving the element out says there is none.
    static const wchar_t* const kEmptyElements[] = {
        L"<xmp:CreateDate></xmp:CreateDate>",
        L"<xmpDM:cameraModel></xmpDM:cameraModel>",
        L"<exif:GPSLongitude></exif:GPSLongitude>",
        L"<exif:GPSLatitude></exif:GPSLatitude>",
        L"<exif:GPSAltitude></exif:GPSAltitude>",
        L"<exif:GPSAltitudeRef></exif:GPSAltitudeRef>",
    };
    for (const wchar_t* element : kEmptyElements) replaceAll(packet, element, L"");
    return packet;
}
