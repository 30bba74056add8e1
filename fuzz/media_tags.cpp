// The platform's readers of a file's tag texts, and the PROPVARIANT text conversions, on any lines.
// Each line (its value, for a line "name=value") is tried as a tag date and as an ISO 6709 point;
// the lines "name=value" also form the tag list, in order, for propertiesFromTags. Each line, as
// text and read as numbers, and every property the tags give go through PropVariantToString into
// a small and a large buffer, and through PropVariantToInt64.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <cwchar>
#include <set>
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "FuzzFields.h"
#include "properties/MediaTags.h"
#include "Win32.h"

using namespace kyplatform;

namespace {

// Buffers grow until the text fits, as a caller's would; 64 Ki characters hold any text here.
constexpr UINT kFirstBuffer = 256;
constexpr UINT kLastBuffer = 1 << 16;

// The text in a buffer large enough, or nothing for a type without one. A small buffer cuts the
// same text short; every buffer ends in a NUL.
std::wstring checkText(const PROPVARIANT& value, UINT smallSize) {
    std::vector<wchar_t> large;
    HRESULT whole = E_NOT_SUFFICIENT_BUFFER;
    for (UINT capacity = kFirstBuffer; whole == E_NOT_SUFFICIENT_BUFFER && capacity <= kLastBuffer; capacity *= 16) {
        large.assign(capacity, L'#');
        whole = PropVariantToString(value, large.data(), capacity);
    }
    std::vector<wchar_t> small(smallSize, L'#');
    const HRESULT part = PropVariantToString(value, small.data(), smallSize);
    if (whole == E_INVALIDARG) {
        fuzzCheck(part == E_INVALIDARG && large[0] == L'\0' && small[0] == L'\0', "PropVariantToString: no text");
        return {};
    }
    fuzzCheck(whole == S_OK, "PropVariantToString: a large buffer holds it");
    const size_t length = wcsnlen(large.data(), large.size());
    fuzzCheck(length < large.size(), "PropVariantToString: a NUL ends the text");
    fuzzCheck(part == (length < smallSize ? S_OK : E_NOT_SUFFICIENT_BUFFER), "PropVariantToString: fits or says not");
    const size_t kept = wcsnlen(small.data(), smallSize);
    fuzzCheck(kept < smallSize && kept == std::min<size_t>(length, smallSize - 1) &&
                  std::wmemcmp(small.data(), large.data(), kept) == 0,
              "PropVariantToString: a short buffer keeps the text's start");
    return std::wstring(large.data(), length);
}

void checkInt64(const PROPVARIANT& value) {
    LONGLONG result = 1;
    const HRESULT hr = PropVariantToInt64(value, &result);
    fuzzCheck(hr == S_OK || (hr == E_INVALIDARG && result == 0), "PropVariantToInt64: a value or E_INVALIDARG");
    if (value.vt == VT_R8 && hr == S_OK) {
        fuzzCheck(static_cast<double>(result) == value.dblVal, "PropVariantToInt64: exact");
    }
}

void checkData(const PropertyData& data, UINT smallSize) {
    PROPVARIANT value;
    fuzzCheck(SUCCEEDED(copyToPropVariant(data, &value)), "copyToPropVariant");
    checkText(value, smallSize);
    checkInt64(value);
    PropVariantClear(&value);
}

void checkPlain(VARTYPE type, const PROPVARIANT& filled, UINT smallSize) {
    PROPVARIANT value = filled;
    value.vt = type;
    checkText(value, smallSize);
    checkInt64(value);
}

// A date read back from its property text, as "yyyy-mm-ddThh:mm:ss.fffZ", is the same instant.
void checkDate(const std::string& line, UINT smallSize) {
    const std::optional<FILETIME> date = parseTagDate(line);
    if (!date) return;
    PROPVARIANT value{};
    value.vt = VT_FILETIME;
    value.filetime = *date;
    const std::wstring text = checkText(value, smallSize);
    // Only a zone west of UTC on 9999-12-31 reaches a fifth digit of the year.
    if (text.size() != 23) return;
    std::string iso = WideToMultiByte(CP_UTF8, text);
    iso[4] = iso[7] = '-';
    iso[10] = 'T';
    const std::optional<FILETIME> again = parseTagDate(iso + "Z");
    fuzzCheck(again && again->dwLowDateTime == date->dwLowDateTime && again->dwHighDateTime == date->dwHighDateTime,
              "parseTagDate: the property text reads back as the same instant");
}

void checkAngle(double degrees) {
    const std::vector<double> parts = degreesMinutesSeconds(degrees);
    fuzzCheck(parts.size() == 3, "degreesMinutesSeconds: three parts");
    fuzzCheck(parts[0] == std::trunc(parts[0]) && parts[1] == std::trunc(parts[1]) && parts[1] >= 0 &&
                  parts[1] < 60 && parts[2] >= 0 && parts[2] < 60,
              "degreesMinutesSeconds: whole degrees and minutes, seconds under 60");
    const double joined = parts[0] + parts[1] / 60 + parts[2] / 3600;
    fuzzCheck(std::fabs(joined - std::fabs(degrees)) < 1e-9, "degreesMinutesSeconds: the same angle");
}

void checkPoint(const std::string& line) {
    const std::optional<GeoLocation> point = parseIso6709(line);
    if (!point) return;
    fuzzCheck(std::fabs(point->latitude) <= 90 && std::fabs(point->longitude) <= 180, "parseIso6709: on the globe");
    fuzzCheck(!point->altitude || std::isfinite(*point->altitude), "parseIso6709: a finite altitude");
    checkAngle(point->latitude);
    checkAngle(point->longitude);
}

void checkLine(const std::string& line, UINT smallSize) {
    const std::string value = line.substr(line.find('=') + 1);
    checkDate(value, smallSize);
    checkPoint(value);

    checkData(MultiByteToWide(CP_UTF8, line), smallSize);
    const double number = numberIn(line, rawAt<double>(reinterpret_cast<const uint8_t*>(line.data()), line.size(), 0));
    checkData(number, smallSize);
    checkData(degreesMinutesSeconds(number), smallSize);
    checkData(std::vector<double>{number, -number, number * 1e300}, smallSize);

    PROPVARIANT raw{};
    raw.uhVal = static_cast<ULONGLONG>(integerIn(line, rawAt<int64_t>(reinterpret_cast<const uint8_t*>(line.data()),
                                                                       line.size(), 0)));
    for (VARTYPE type : {VT_I4, VT_UI4, VT_I8, VT_UI8, VT_FILETIME, VT_EMPTY, VT_UNKNOWN}) {
        checkPlain(type, raw, smallSize);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> lines = splitLines(data, size);
    TagList tags;
    for (const std::string& line : lines) {
        const UINT smallSize = static_cast<UINT>(line.size() % 17 + 1);
        checkLine(line, smallSize);
        const size_t equals = line.find('=');
        if (equals != std::string::npos) tags.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }

    std::set<std::pair<std::string, DWORD>> seen;
    for (const Property& property : propertiesFromTags(tags)) {
        const std::string id(reinterpret_cast<const char*>(&property.key.fmtid), sizeof property.key.fmtid);
        fuzzCheck(seen.emplace(id, property.key.pid).second, "propertiesFromTags: each property once");
        checkData(property.value, static_cast<UINT>(size % 17 + 1));
    }
    return 0;
}
