// The XMP packet's text functions on any texts, one per line of the input: date, latitude and its
// reference, longitude and its reference, altitude, altitude reference, camera model, duration in
// 100 ns and rotation (numbers as text). They run as getMetadata runs them: the formatters' results
// and the two texts a file gives as they are (model, altitude reference) fill the packet. Texts
// for every value are not tried: the packet puts each later value into the earlier ones by design
// (tests/unit/XmpPacketTest.cpp), so placeholders chained through all eight multiply in size, and
// the toolkit never fills them so: every value after the model is a short number.
#include <string>
#include <vector>

#include "FuzzCheck.h"
#include "FuzzFields.h"
#include "Win32.h"
#include "XmpPacket.h"

namespace {

std::wstring wide(const std::string& text) { return MultiByteToWide(CP_UTF8, text); }

bool digitsThen(const std::wstring& text, size_t from, const std::wstring& tail) {
    size_t at = from;
    while (at < text.size() && text[at] >= L'0' && text[at] <= L'9') ++at;
    return at > from && text.compare(at, std::wstring::npos, tail) == 0;
}

bool endsWith(const std::wstring& text, const std::wstring& tail) {
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// With texts from the file that hold no placeholder and no element's text, each is in its element
// whole, and an empty one leaves its element out.
void checkElement(const std::wstring& packet, const std::wstring& value, const std::wstring& element) {
    const std::wstring open = L"<" + element + L">";
    const std::wstring close = L"</" + element + L">";
    if (value.empty()) {
        fuzzCheck(packet.find(open + close) == std::wstring::npos, "fillXmpPacket: no empty element");
    } else {
        fuzzCheck(packet.find(open + value + close) != std::wstring::npos,
                  "fillXmpPacket: the value whole in its element");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::vector<std::string> lines = splitLines(data, size);
    std::vector<std::wstring> texts;
    for (size_t i = 0; i < 8; ++i) texts.push_back(wide(fieldAt(lines, i)));
    const int64_t duration = integerIn(fieldAt(lines, 8), 0);
    const int32_t rotation = static_cast<int32_t>(integerIn(fieldAt(lines, 9), 0));

    XmpValues values;
    values.creationDate = formatCreationDate(texts[0]);
    values.gpsLatitude = formatCoordinate(removeZeroTriples(texts[1]), texts[2]);
    values.gpsLongitude = formatCoordinate(removeZeroTriples(texts[3]), texts[4]);
    values.gpsAltitude1000ths = formatAltitude(texts[5]);
    values.gpsAltitudeRef = texts[6];
    values.model = texts[7];
    values.durationInTicks = durationTicksText(duration);
    values.orientation = orientationText(rotation);

    fuzzCheck(values.creationDate.size() <= 64, "formatCreationDate: one date");
    fuzzCheck(values.gpsLatitude.size() <= 48 && values.gpsLongitude.size() <= 48, "formatCoordinate: one angle");
    const std::wstring& altitude = values.gpsAltitude1000ths;
    fuzzCheck(altitude.empty() || digitsThen(altitude, altitude[0] == L'-' ? 1 : 0, L" / 1000"),
              "formatAltitude: whole thousandths");
    const std::wstring& ticks = values.durationInTicks;
    fuzzCheck(!ticks.empty() && digitsThen(ticks, ticks[0] == L'-' ? 1 : 0, L""), "durationTicksText: a whole count");

    const std::wstring packet = fillXmpPacket(values);
    fuzzCheck(packet.rfind(L"<?xpacket begin=", 0) == 0 && endsWith(packet, L"<?xpacket end=\"w\"?>"),
              "fillXmpPacket: a whole packet");
    if ((values.model + values.gpsAltitudeRef).find_first_of(L"%<") == std::wstring::npos) {
        checkElement(packet, values.model, L"xmpDM:cameraModel");
        checkElement(packet, values.gpsAltitudeRef, L"exif:GPSAltitudeRef");
    }
    fuzzCheck(WideToMultiByte(CP_ACP, packet).size() == packet.size(), "the packet as ANSI text, a byte a character");
    return 0;
}
