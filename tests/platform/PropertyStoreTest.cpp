// The source resolver and the property store of real files made with the ffmpeg tool, read the way
// the toolkit reads them: resolver, media source, IMFGetService, IPropertyStore, PropVariantToString.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "MediaFiles.h"
#include "MediaFoundation.h"
#include "Win32.h"

namespace {

const std::string kVideo = "-f lavfi -i testsrc2=size=160x120:rate=10:duration=1 -c:v libx264 -pix_fmt yuv420p ";

std::wstring wide(const std::string& text) { return MultiByteToWide(CP_UTF8, text); }

HRESULT openSource(const std::string& path, ComPtr<IMFMediaSource>& source, DWORD flags = MF_RESOLUTION_MEDIASOURCE) {
    ComPtr<IMFSourceResolver> resolver;
    HRESULT hr = MFCreateSourceResolver(resolver.put());
    if (FAILED(hr)) return hr;
    MF_OBJECT_TYPE type = MF_OBJECT_INVALID;
    ComPtr<IUnknown> object;
    hr = resolver->CreateObjectFromURL(wide(path).c_str(), flags, nullptr, &type, object.put());
    if (FAILED(hr)) {
        EXPECT_FALSE(object);
        return hr;
    }
    EXPECT_EQ(type, MF_OBJECT_MEDIASOURCE);
    return object->QueryInterface(IID_IMFMediaSource, reinterpret_cast<void**>(source.put()));
}

// The media source of a file that must open; null when it did not.
ComPtr<IMFMediaSource> opened(const std::string& path) {
    ComPtr<IMFMediaSource> source;
    EXPECT_FALSE(path.empty());
    EXPECT_EQ(openSource(path, source), S_OK) << path;
    return source;
}

ComPtr<IPropertyStore> storeOf(IMFMediaSource* source) {
    ComPtr<IMFGetService> service;
    ComPtr<IPropertyStore> store;
    EXPECT_EQ(source->QueryInterface(IID_IMFGetService, reinterpret_cast<void**>(service.put())), S_OK);
    if (service) {
        EXPECT_EQ(service->GetService(MF_PROPERTY_HANDLER_SERVICE, IID_IPropertyStore,
                                      reinterpret_cast<void**>(store.put())),
                  S_OK);
    }
    return store;
}

// The texts of a file's properties, in the toolkit's order; empty text for an absent property.
std::vector<std::wstring> propertyTexts(const std::string& path) {
    const ComPtr<IMFMediaSource> source = opened(path);
    if (!source) return {};
    ComPtr<IPropertyStore> store = storeOf(source.get());
    std::vector<std::wstring> texts;
    for (const PROPERTYKEY* key : {&PKEY_Media_DateEncoded, &PKEY_GPS_Latitude, &PKEY_GPS_LatitudeRef,
                                   &PKEY_GPS_Longitude, &PKEY_GPS_LongitudeRef, &PKEY_GPS_Altitude,
                                   &PKEY_GPS_AltitudeRef, &PKEY_Photo_CameraModel, &PKEY_Photo_CameraManufacturer}) {
        PROPVARIANT value;
        PropVariantInit(&value);
        wchar_t buffer[128] = L"?";
        if (store) {
            EXPECT_EQ(store->GetValue(*key, &value), S_OK);
            EXPECT_EQ(PropVariantToString(value, buffer, 128), S_OK);
        }
        texts.emplace_back(buffer);
        PropVariantClear(&value);
    }
    EXPECT_EQ(source->Shutdown(), S_OK);
    return texts;
}

using Texts = std::vector<std::wstring>;

std::string taggedMp4() {
    return testmedia::make("store-tagged.mp4", kVideo + "-metadata creation_time=2021-06-15T14:30:00Z "
                                                        "-metadata location=+48.8577+002.2950+035.200/");
}

std::string cameraMov() {
    return testmedia::make("store-camera.mov", kVideo + "-metadata make=TestMake -metadata model=TestModel "
                                                        "-metadata location=-33.8568+151.2153/");
}

std::string untaggedMp4() { return testmedia::make("store-untagged.mp4", kVideo + "-map_metadata -1"); }

// Each file's texts in the toolkit's order: date, latitude and its reference, longitude and its
// reference, altitude and its reference, camera model and make.
TEST(PropertyStore, ReadsTheTagsOfEachKindOfFile) {
    const std::pair<std::string, Texts> files[] = {
        // MP4 keeps the altitude as a float in its loci box, so it reads back as 35.199997.
        {taggedMp4(), {L"2021/06/15:14:30:00.000", L"48; 51; 27.72", L"N", L"2; 17; 42", L"E", L"35.199997", L"0", L"",
                       L""}},
        {cameraMov(), {L"", L"33; 51; 24.48", L"S", L"151; 12; 55.08", L"E", L"", L"", L"TestModel", L"TestMake"}},
        // A phone's QuickTime keys; creation_time names another day, so the date shows which key won.
        {testmedia::make("store-phone.mov",
                         kVideo + "-movflags use_metadata_tags -metadata creation_time=2022-01-01T00:00:00Z "
                                  "-metadata com.apple.quicktime.creationdate=2021-06-15T16:30:00+0200 "
                                  "-metadata com.apple.quicktime.location.ISO6709=+40.6892-074.0445-012.500/ "
                                  "-metadata com.apple.quicktime.make=TestMake "
                                  "-metadata 'com.apple.quicktime.model=TestCam X1'"),
         {L"2021/06/15:14:30:00.000", L"40; 41; 21.12", L"N", L"74; 2; 40.2", L"W", L"12.5", L"1", L"TestCam X1",
          L"TestMake"}},
        // WebM keeps the milliseconds of its date.
        {testmedia::make("store-recording.webm",
                         "-f lavfi -i testsrc2=size=160x120:rate=10:duration=1 -c:v libvpx-vp9 -deadline realtime "
                         "-cpu-used 8 -metadata creation_time=2021-06-15T14:30:00.250Z"),
         {L"2021/06/15:14:30:00.250", L"", L"", L"", L"", L"", L"", L"", L""}},
        {untaggedMp4(), Texts(9)},
    };
    for (const auto& [path, expected] : files) EXPECT_EQ(propertyTexts(path), expected) << path;
}

TEST(PropertyStore, ListsItsKeys) {
    for (const auto& [path, expected] : {std::pair{cameraMov(), 6u}, std::pair{untaggedMp4(), 0u}}) {
        const ComPtr<IMFMediaSource> source = opened(path);
        ASSERT_TRUE(source);
        ComPtr<IPropertyStore> store = storeOf(source.get());
        ASSERT_TRUE(store);
        DWORD count = 99;
        ASSERT_EQ(store->GetCount(&count), S_OK);
        // The camera clip: latitude, longitude, their references, model and make.
        EXPECT_EQ(count, expected) << path;
        PROPERTYKEY key{};
        EXPECT_EQ(store->GetAt(count, &key), E_INVALIDARG);
        if (count == 6) {
            EXPECT_EQ(store->GetAt(5, &key), S_OK);
            EXPECT_TRUE(key == PKEY_Photo_CameraManufacturer);
        }
    }
}

TEST(PropertyStore, SourceAnswersItsInterfacesAndOneStore) {
    const ComPtr<IMFMediaSource> source = opened(untaggedMp4());
    ASSERT_TRUE(source);
    ComPtr<IUnknown> identity;
    ASSERT_EQ(source->QueryInterface(IID_IUnknown, reinterpret_cast<void**>(identity.put())), S_OK);
    EXPECT_EQ(identity.get(), static_cast<IUnknown*>(source.get()));
    ComPtr<IMFGetService> service;
    ASSERT_EQ(source->QueryInterface(IID_IMFGetService, reinterpret_cast<void**>(service.put())), S_OK);
    ComPtr<IMFMediaSource> again;
    ASSERT_EQ(service->QueryInterface(IID_IMFMediaSource, reinterpret_cast<void**>(again.put())), S_OK);
    EXPECT_EQ(again.get(), source.get());
    void* other = &other;
    EXPECT_EQ(source->QueryInterface(IID_IPropertyStore, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);

    ComPtr<IPropertyStore> first = storeOf(source.get());
    ComPtr<IPropertyStore> second = storeOf(source.get());
    EXPECT_EQ(first.get(), second.get());
    EXPECT_EQ(service->GetService(MF_MT_SUBTYPE, IID_IPropertyStore, &other), E_NOINTERFACE);
    EXPECT_EQ(service->GetService(MF_PROPERTY_HANDLER_SERVICE, IID_IMFMediaSource, &other), E_NOINTERFACE);
    EXPECT_EQ(other, nullptr);
}

TEST(PropertyStore, ShutdownEndsTheSourceButNotAStoreAlreadyGiven) {
    const ComPtr<IMFMediaSource> source = opened(taggedMp4());
    ASSERT_TRUE(source);
    ComPtr<IPropertyStore> store = storeOf(source.get());
    ASSERT_TRUE(store);
    EXPECT_EQ(source->Shutdown(), S_OK);
    EXPECT_EQ(source->Shutdown(), MF_E_SHUTDOWN);
    ComPtr<IMFGetService> service;
    ASSERT_EQ(source->QueryInterface(IID_IMFGetService, reinterpret_cast<void**>(service.put())), S_OK);
    ComPtr<IPropertyStore> late;
    EXPECT_EQ(
        service->GetService(MF_PROPERTY_HANDLER_SERVICE, IID_IPropertyStore, reinterpret_cast<void**>(late.put())),
        MF_E_SHUTDOWN);
    EXPECT_FALSE(late);

    PROPVARIANT value;
    ASSERT_EQ(store->GetValue(PKEY_Media_DateEncoded, &value), S_OK);
    EXPECT_EQ(value.vt, VT_FILETIME);
    PropVariantClear(&value);
}

TEST(PropertyStore, ResolverFailuresCarryThePlatformsCodes) {
    ComPtr<IMFMediaSource> source;
    EXPECT_EQ(openSource(std::filesystem::absolute("no-such-file.mp4").string(), source),
              HRESULT_FROM_WIN32_FILE_NOT_FOUND);

    const std::string random = std::filesystem::absolute("store-random.mp4").string();
    {
        std::mt19937 generator(1);
        std::ofstream file(random, std::ios::binary | std::ios::trunc);
        for (int i = 0; i < 65536; ++i) file.put(static_cast<char>(generator()));
    }
    EXPECT_EQ(openSource(random, source), MF_E_UNSUPPORTED_BYTESTREAM_TYPE);

    const std::string path = untaggedMp4();
    ASSERT_FALSE(path.empty());
    EXPECT_EQ(openSource(path, source, MF_RESOLUTION_READ), E_INVALIDARG);

    ComPtr<IMFSourceResolver> resolver;
    ASSERT_EQ(MFCreateSourceResolver(resolver.put()), S_OK);
    ComPtr<IUnknown> object;
    EXPECT_EQ(resolver->CreateObjectFromURL(wide(path).c_str(), MF_RESOLUTION_MEDIASOURCE, nullptr, nullptr,
                                            object.put()),
              E_POINTER);
    EXPECT_EQ(MFCreateSourceResolver(nullptr), E_POINTER);
}

}  // namespace
