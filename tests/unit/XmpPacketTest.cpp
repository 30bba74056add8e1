// The XMP packet's text: each field's formatting against its table, and whole packets against
// golden files compared byte for byte.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>

#include "ScopedTimeZone.h"
#include "XmpPacket.h"

namespace {

struct TextCase {
    std::wstring input;
    std::wstring expected;
};

struct CoordinateCase {
    std::wstring text;
    std::wstring reference;
    std::wstring expected;
};

struct DurationCase {
    int64_t duration100ns;
    std::wstring expected;
};

struct OrientationCase {
    int32_t rotation;
    std::wstring expected;
};

// The packet is ASCII; anything else would already be a fault.
std::string toBytes(const std::wstring& text) {
    std::string bytes;
    for (wchar_t c : text) {
        EXPECT_TRUE(c >= 0 && c < 0x80) << "character " << static_cast<long>(c);
        bytes += static_cast<char>(c);
    }
    return bytes;
}

std::string readGolden(const char* name) {
    std::ifstream file(std::string(XMP_GOLDEN_DIR) + "/" + name, std::ios::binary);
    EXPECT_TRUE(file.good()) << name;
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void expectGolden(const std::wstring& packet, const char* name) {
    const std::string actual = toBytes(packet);
    const std::string expected = readGolden(name);
    size_t at = 0;
    while (at < actual.size() && at < expected.size() && actual[at] == expected[at]) ++at;
    EXPECT_EQ(actual, expected) << name << " differs first at byte " << at;
}

class CreationDate : public ::testing::TestWithParam<TextCase> {};

TEST_P(CreationDate, InAZoneOneHourAheadInWinterTwoInSummer) {
    ScopedTimeZone zone("Europe/Paris");
    EXPECT_EQ(formatCreationDate(GetParam().input), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, CreationDate, ::testing::Values(
    TextCase{L"2021/03/05:14:07:09.999", L"2021-03-05T15:07:09.000-00:00"},
    TextCase{L"2021/03/05:14:07:09.500", L"2021-03-05T15:07:09.000-00:00"},
    TextCase{L"2021/3/5:4:7:9", L"2021-03-05T05:07:09.000-00:00"},
    TextCase{L"2021/07/01:23:30:00", L"2021-07-02T01:30:00.000-00:00"},
    TextCase{L"2021/12/31:23:59:59.9", L"2022-01-01T00:59:59.000-00:00"},
    // Refused by the conversion: the numbers as read, seconds truncated.
    TextCase{L"2021/13/05:14:07:09", L"2021-13-05T14:07:09.000-00:00"},
    TextCase{L"2021/02/29:10:00:00", L"2021-02-29T10:00:00.000-00:00"},
    TextCase{L"2021/03/05:14:07:60.5", L"2021-03-05T14:07:60.000-00:00"},
    TextCase{L"2021/03/05:14:07:-1.5", L"2021-03-05T14:07:-1.000-00:00"},
    TextCase{L"1600/12/31:23:00:00", L"1600-12-31T23:00:00.000-00:00"},
    // Unreadable.
    TextCase{L"", L""},
    TextCase{L"not found", L""},
    TextCase{L"2021/03/05:14:07", L""},
    TextCase{L"2021-03-05 14:07:09", L""},
    TextCase{L"2021/03/05:14:07:nan", L""},
    TextCase{L"2021/03/05:14:07:1e10", L""},
    TextCase{L"2021/03/0\u0131:14:07:09", L""}));  // U+0131's low byte is '1'

TEST(CreationDate, FollowsTheProcesssZone) {
    {
        ScopedTimeZone zone("UTC");
        EXPECT_EQ(formatCreationDate(L"2021/07/01:12:00:00"), L"2021-07-01T12:00:00.000-00:00");
    }
    ScopedTimeZone zone("America/New_York");
    EXPECT_EQ(formatCreationDate(L"2021/07/01:12:00:00"), L"2021-07-01T08:00:00.000-00:00");
    EXPECT_EQ(formatCreationDate(L"2021/01/01:02:00:00"), L"2020-12-31T21:00:00.000-00:00");
}

TEST(CreationDate, WritesTheConvertedSeconds) {
    ScopedTimeZone zone("XST-0:00:30");  // 30 seconds ahead of UTC
    EXPECT_EQ(formatCreationDate(L"2021/03/05:14:07:40.25"), L"2021-03-05T14:08:10.000-00:00");
}

class Altitude : public ::testing::TestWithParam<TextCase> {};

TEST_P(Altitude, InThousandthsTruncated) { EXPECT_EQ(formatAltitude(GetParam().input), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(Table, Altitude, ::testing::Values(
    TextCase{L"35.2", L"35200 / 1000"}, TextCase{L"1.001", L"1000 / 1000"}, TextCase{L"-12.7", L"-12700 / 1000"},
    TextCase{L"0", L"0 / 1000"}, TextCase{L"-0.0004", L"0 / 1000"}, TextCase{L"8848.86 m", L"8848860 / 1000"},
    TextCase{L"3000000000", L"3000000000000 / 1000"}, TextCase{L"", L""}, TextCase{L"sea level", L""},
    TextCase{L"nan", L""}, TextCase{L"1e308", L""}));

class Coordinate : public ::testing::TestWithParam<CoordinateCase> {};

TEST_P(Coordinate, InDegreesAndDecimalMinutes) {
    EXPECT_EQ(formatCoordinate(GetParam().text, GetParam().reference), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, Coordinate, ::testing::Values(
    CoordinateCase{L"37; 46; 29.64", L"N", L"37,46.494N"}, CoordinateCase{L"2; 17; 40.2", L"E", L"2,17.67E"},
    CoordinateCase{L"48; 51; 29.6", L"N", L"48,51.4933N"}, CoordinateCase{L"10; 59; 59.9999", L"N", L"10,60N"},
    CoordinateCase{L"0; 0; 0.0001", L"S", L"0,1.66667e-06S"}, CoordinateCase{L"-33; 52; 4.2", L"S", L"-33,52.07S"},
    CoordinateCase{L"37; 46; 29.64", L"", L"37,46.494"}, CoordinateCase{L"37; 46; 29.64", L"North", L"37,46.494N"},
    CoordinateCase{L"37;46;29.64", L"N", L"37,46.494N"}, CoordinateCase{L"37;\t46;\n 29.64", L"W", L"37,46.494W"},
    CoordinateCase{L"37.5; 0; 0", L"N", L""}, CoordinateCase{L"37; 46", L"N", L""},
    CoordinateCase{L"37, 46, 29.64", L"N", L""}, CoordinateCase{L"37; 46; inf", L"N", L""},
    CoordinateCase{L"", L"N", L""}));

class ZeroTriples : public ::testing::TestWithParam<TextCase> {};

TEST_P(ZeroTriples, AreDeleted) { EXPECT_EQ(removeZeroTriples(GetParam().input), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(Table, ZeroTriples, ::testing::Values(
    TextCase{L"0; 0; 0", L""}, TextCase{L"20; 0; 0", L"2"}, TextCase{L"0; 0; 0.5", L".5"},
    TextCase{L"0; 0; 1", L"0; 0; 1"}, TextCase{L"0; 0; 0; 0; 0", L"; 0; 0"}, TextCase{L"0; 0; 0 0; 0; 0", L" "},
    // A triple that only a deletion brings together is not one of the text's.
    TextCase{L"0; 00; 0; 0; 0", L"0; 0; 0"}, TextCase{L"", L""}));

class DurationTicks : public ::testing::TestWithParam<DurationCase> {};

TEST_P(DurationTicks, CountSixHundredthsOfWholeMilliseconds) {
    EXPECT_EQ(durationTicksText(GetParam().duration100ns), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Table, DurationTicks, ::testing::Values(
    DurationCase{100'000'000, L"6000"}, DurationCase{125'000'000, L"7499"}, DurationCase{330'000, L"19"},
    DurationCase{0, L"0"}, DurationCase{9'999, L"0"}, DurationCase{16'670, L"0"}, DurationCase{20'000, L"1"},
    DurationCase{35'791'394'130'000, L"2147483647"}, DurationCase{35'791'394'140'000, L"-2147483648"},
    DurationCase{-1, L"-2147483648"}, DurationCase{-100'000'000, L"-2147483648"},
    DurationCase{std::numeric_limits<int64_t>::max(), L"-2147483648"},
    DurationCase{std::numeric_limits<int64_t>::min(), L"-2147483648"}));

class Orientation : public ::testing::TestWithParam<OrientationCase> {};

TEST_P(Orientation, FromRotation) { EXPECT_EQ(orientationText(GetParam().rotation), GetParam().expected); }

INSTANTIATE_TEST_SUITE_P(Table, Orientation, ::testing::Values(
    OrientationCase{0, L"1"}, OrientationCase{90, L"6"}, OrientationCase{180, L"3"}, OrientationCase{270, L"8"},
    OrientationCase{1, L"1"}, OrientationCase{-90, L"1"}, OrientationCase{360, L"1"}, OrientationCase{45, L"1"}));

XmpValues withoutGps() {
    XmpValues values;
    values.creationDate = formatCreationDate(L"");
    values.durationInTicks = durationTicksText(100'000'000);
    values.orientation = orientationText(1);
    values.gpsLatitude = formatCoordinate(removeZeroTriples(L"0; 0; 0"), L"N");
    values.gpsLongitude = formatCoordinate(removeZeroTriples(L"0; 0; 0"), L"E");
    values.gpsAltitude1000ths = formatAltitude(L"");
    return values;
}

TEST(XmpPacket, WithGpsMatchesGolden) {
    ScopedTimeZone zone("Europe/Paris");
    XmpValues values;
    values.creationDate = formatCreationDate(L"2021/03/05:14:07:09.500");
    values.model = L"MX-200";
    values.durationInTicks = durationTicksText(125'000'000);
    values.orientation = orientationText(90);
    values.gpsLatitude = formatCoordinate(removeZeroTriples(L"48; 51; 29.6"), L"N");
    values.gpsLongitude = formatCoordinate(removeZeroTriples(L"2; 17; 40.2"), L"E");
    values.gpsAltitude1000ths = formatAltitude(L"35.2");
    values.gpsAltitudeRef = L"0";
    expectGolden(fillXmpPacket(values), "XmpWithGps.xmp");
}

TEST(XmpPacket, WithoutGpsMatchesGolden) { expectGolden(fillXmpPacket(withoutGps()), "XmpWithoutGps.xmp"); }

TEST(XmpPacket, KeepsAnEmptyDurationAndOrientation) {
    const std::wstring packet = fillXmpPacket(XmpValues{});
    EXPECT_NE(packet.find(L"<xmpDM:value></xmpDM:value>"), std::wstring::npos);
    EXPECT_NE(packet.find(L"<tiff:Orientation></tiff:Orientation>"), std::wstring::npos);
    EXPECT_EQ(packet.find(L"GPS"), std::wstring::npos);
    EXPECT_EQ(packet.find(L"CreateDate"), std::wstring::npos);
    EXPECT_EQ(packet.find(L"cameraModel"), std::wstring::npos);
}

TEST(XmpPacket, ReplacesEveryPlaceholderLeftByEarlierValuesOnly) {
    XmpValues values = withoutGps();
    values.creationDate = L"%gpsAltitudeRef%";
    values.model = L"%model% %orientation% %creationDate% %durationInTicks%/%durationInTicks%";
    values.orientation = L"%model%";
    values.gpsAltitudeRef = L"1";
    const std::wstring packet = fillXmpPacket(values);
    EXPECT_NE(packet.find(L"<xmp:CreateDate>1</xmp:CreateDate>"), std::wstring::npos);
    EXPECT_NE(packet.find(L"<xmpDM:cameraModel>%model% %model% %creationDate% 6000/6000</xmpDM:cameraModel>"),
              std::wstring::npos);
    EXPECT_NE(packet.find(L"<tiff:Orientation>%model%</tiff:Orientation>"), std::wstring::npos);
    EXPECT_NE(packet.find(L"<exif:GPSAltitudeRef>1</exif:GPSAltitudeRef>"), std::wstring::npos);
}

TEST(XmpPacket, PassesAModelThroughUnescaped) {
    XmpValues values = withoutGps();
    values.model = L"A&B <\"Cam\">";
    const std::wstring packet = fillXmpPacket(values);
    EXPECT_NE(packet.find(L"<xmpDM:cameraModel>A&B <\"Cam\"></xmpDM:cameraModel>"), std::wstring::npos);
    EXPECT_EQ(packet.find(L"&amp;"), std::wstring::npos);
}

}  // namespace
