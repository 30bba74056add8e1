// Tags as cameras and phones write them (and as FFmpeg reads them back), read into properties and
// checked in their PropVariantToString texts.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "properties/MediaTags.h"

namespace {

using kyplatform::TagList;
using Texts = std::map<std::string, std::wstring>;

const std::pair<const char*, const PROPERTYKEY*> kNames[] = {
    {"date", &PKEY_Media_DateEncoded},  {"lat", &PKEY_GPS_Latitude},   {"latRef", &PKEY_GPS_LatitudeRef},
    {"lon", &PKEY_GPS_Longitude},       {"lonRef", &PKEY_GPS_LongitudeRef}, {"alt", &PKEY_GPS_Altitude},
    {"altRef", &PKEY_GPS_AltitudeRef},  {"model", &PKEY_Photo_CameraModel},
    {"make", &PKEY_Photo_CameraManufacturer},
};

// Every property the tags give, by short name, as text; a key given twice fails the test.
Texts read(const TagList& tags) {
    Texts texts;
    for (const kyplatform::Property& property : kyplatform::propertiesFromTags(tags)) {
        std::string name = "?";
        for (const auto& [shortName, key] : kNames) {
            if (*key == property.key) name = shortName;
        }
        PROPVARIANT value;
        EXPECT_EQ(kyplatform::copyToPropVariant(property.value, &value), S_OK);
        wchar_t buffer[128];
        EXPECT_EQ(PropVariantToString(value, buffer, 128), S_OK);
        PropVariantClear(&value);
        EXPECT_TRUE(texts.emplace(name, buffer).second) << name << " given twice";
    }
    return texts;
}

// Two places as their properties read, and the same with more properties.
const Texts kParis = {{"lat", L"48; 51; 27.72"}, {"latRef", L"N"}, {"lon", L"2; 17; 42"}, {"lonRef", L"E"}};
const Texts kSydney = {{"lat", L"33; 51; 24.48"}, {"latRef", L"S"}, {"lon", L"151; 12; 55.08"}, {"lonRef", L"E"}};

Texts with(Texts texts, const Texts& more) {
    texts.insert(more.begin(), more.end());
    return texts;
}

TEST(MediaTags, ReadsIso6709Locations) {
    struct Case {
        const char* text;
        Texts expected;
    };
    const Texts paris = with(kParis, {{"alt", L"35.2"}, {"altRef", L"0"}}), parisFlat = kParis;
    const Texts parisLoci = with(kParis, {{"alt", L"35.199997"}, {"altRef", L"0"}});
    const Case cases[] = {
        {"+48.8577+002.2950+035.200/", paris},
        {"+48.8577+002.2950+35.199997/", parisLoci},  // MP4 loci read back: a float altitude
        {"+48.8577+002.2950+035.200CRSWGS_84/", paris}, {" +48.8577+002.2950+035.200/\n", paris},
        {"+48.8577+002.2950/", parisFlat}, {"+48.8577+002.2950", parisFlat},
        {"+4851.462+00217.700/", parisFlat},     // degrees and minutes
        {"+485127.72+0021742/", parisFlat},      // degrees, minutes and seconds
        {"-33.8568+151.2153/", kSydney},
        {"+40.6892-074.0445-012.500/",
         {{"lat", L"40; 41; 21.12"}, {"latRef", L"N"}, {"lon", L"74; 2; 40.2"}, {"lonRef", L"W"},
          {"alt", L"12.5"}, {"altRef", L"1"}}},
        {"+00.0000+000.0000/", {{"lat", L"0; 0; 0"}, {"latRef", L"N"}, {"lon", L"0; 0; 0"}, {"lonRef", L"E"}}},
        {"-90+180/", {{"lat", L"90; 0; 0"}, {"latRef", L"S"}, {"lon", L"180; 0; 0"}, {"lonRef", L"E"}}},
        // Garbage and points off the globe give nothing.
        {"", {}}, {"garbage", {}}, {"+48.8577/", {}}, {"48.8577+002.2950/", {}}, {"+48.8577+002.2950+/", {}},
        {"+48.8577+002.2950/junk", {}}, {"+48.+002.2950/", {}}, {"+90.0001+002.2950/", {}}, {"+48.8577-180.5/", {}},
        {"+123.5+002.2950/", {}}, {"+4860.000+00217.700/", {}}, {"+48.8577+002.2950+035.200CR/", {}},
        {"+1e2+002.2950/", {}},
    };
    for (const Case& c : cases) EXPECT_EQ(read({{"location", c.text}}), c.expected) << '"' << c.text << '"';
}

TEST(MediaTags, SplitsDegreesExactlyAtDecimalSeconds) {
    EXPECT_EQ(kyplatform::degreesMinutesSeconds(48.8577), (std::vector<double>{48, 51, 27.72}));
    EXPECT_EQ(kyplatform::degreesMinutesSeconds(-74.0445), (std::vector<double>{74, 2, 40.2}));
    // Just short of a whole degree rounds up to it instead of leaving 59.999999... seconds.
    EXPECT_EQ(kyplatform::degreesMinutesSeconds(10.99999999999999), (std::vector<double>{11, 0, 0}));
}

TEST(MediaTags, ReadsDatesAsUtcWithMilliseconds) {
    struct Case {
        const char* text;
        const wchar_t* expected;  // null: no date
    };
    const Case cases[] = {
        {"2021-06-15T14:30:00.000000Z", L"2021/06/15:14:30:00.000"},
        {"2021-06-15T16:30:00+0200", L"2021/06/15:14:30:00.000"},
        {"2021-06-15T16:30:00+02:00", L"2021/06/15:14:30:00.000"},
        {"2021-06-15T16:30:00+02", L"2021/06/15:14:30:00.000"},
        {"2021-06-15T09:00:00-0530", L"2021/06/15:14:30:00.000"}, {"2021-06-15 14:30:00", L"2021/06/15:14:30:00.000"},
        {"2021-06-15T14:30Z", L"2021/06/15:14:30:00.000"}, {"2021-03-05T14:07:09.5Z", L"2021/03/05:14:07:09.500"},
        {"2021-06-15T14:30:00.123987Z", L"2021/06/15:14:30:00.123"}, {"2021-06-15", L"2021/06/15:00:00:00.000"},
        {"2021-01-01T00:30:00+0100", L"2020/12/31:23:30:00.000"},
        {"2024-02-29T12:00:00Z", L"2024/02/29:12:00:00.000"}, {"1601-01-01T00:00:00Z", L"1601/01/01:00:00:00.000"},
        {"9999-12-31T23:59:59.999Z", L"9999/12/31:23:59:59.999"}, {"", nullptr}, {"yesterday", nullptr},
        {"2021-6-15", nullptr}, {"2023-02-29T12:00:00Z", nullptr}, {"2021-13-01T00:00:00Z", nullptr},
        {"2021-06-15T24:00:00Z", nullptr}, {"2021-06-15T14:60:00Z", nullptr}, {"2021-06-15T14:30:00.Z", nullptr},
        {"2021-06-15T14:30:00Zjunk", nullptr}, {"2021-06-15T14:30:00+2400", nullptr},
        {"1601-01-01T00:30:00+0100", nullptr}, {"1600-12-31T23:59:59Z", nullptr},
    };
    for (const Case& c : cases) {
        const Texts texts = read({{"creation_time", c.text}});
        if (c.expected == nullptr) {
            EXPECT_TRUE(texts.empty()) << '"' << c.text << '"';
        } else {
            EXPECT_EQ(texts, (Texts{{"date", c.expected}})) << '"' << c.text << '"';
        }
    }
}

TEST(MediaTags, PrefersThePhonesOwnKeysAndSkipsUnusableValues) {
    struct Case {
        const char* what;
        TagList tags;
        Texts expected;
    };
    const Case cases[] = {
        {"no tags", {}, {}},
        {"unrelated tags", {{"encoder", "Lavf59.27.100"}, {"major_brand", "qt  "}}, {}},
        {"creationdate over creation_time",
         {{"creation_time", "2022-01-01T00:00:00.000000Z"},
          {"com.apple.quicktime.creationdate", "2021-06-15T16:30:00+0200"}},
         {{"date", L"2021/06/15:14:30:00.000"}}},
        {"a bad creationdate falls back",
         {{"com.apple.quicktime.creationdate", "soon"}, {"creation_time", "2022-01-01T00:00:00Z"}},
         {{"date", L"2022/01/01:00:00:00.000"}}},
        {"creation_time over Matroska's DATE_RECORDED",
         {{"DATE_RECORDED", "2020-01-02 03:04:05"}, {"creation_time", "2022-01-01T00:00:00Z"}},
         {{"date", L"2022/01/01:00:00:00.000"}}},
        {"DATE_RECORDED alone", {{"DATE_RECORDED", "2020-01-02 03:04:05.678"}}, {{"date", L"2020/01/02:03:04:05.678"}}},
        {"an old phone's date atom", {{"date", "2012-06-15T16:30:00+0200"}}, {{"date", L"2012/06/15:14:30:00.000"}}},
        {"the container's tag before a stream's",
         {{"creation_time", "2022-01-01T00:00:00Z"}, {"creation_time", "2023-01-01T00:00:00Z"}},
         {{"date", L"2022/01/01:00:00:00.000"}}},
        {"names compare without case", {{"LOCATION", "-33.8568+151.2153/"}, {"Model", "X"}},
         with(kSydney, {{"model", L"X"}})},
        {"ISO6709 key over location",
         {{"location", "-33.8568+151.2153/"}, {"com.apple.quicktime.location.ISO6709", "+48.8577+002.2950/"}}, kParis},
        {"a bad location falls back to location-eng",
         {{"location", "+999+999/"}, {"location-eng", "+48.8577+002.2950/"}}, kParis},
        {"QuickTime make and model over the plain ones",
         {{"make", "Plain"}, {"model", "PlainModel"}, {"com.apple.quicktime.make", "TestMake"},
          {"com.apple.quicktime.model", "TestCam X1"}},
         {{"make", L"TestMake"}, {"model", L"TestCam X1"}}},
        {"blank values fall back, text is UTF-8",
         {{"com.apple.quicktime.model", "  "}, {"model", "Caméra 1 "}, {"com.android.manufacturer", "Google"}},
         {{"model", L"Caméra 1"}, {"make", L"Google"}}},
    };
    for (const Case& c : cases) EXPECT_EQ(read(c.tags), c.expected) << c.what;
}

}  // namespace
