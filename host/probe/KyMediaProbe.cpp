// KyMediaProbe: what a media file holds, for tools and players that show it.
//   local streams = KyMediaProbe.streams(path)   -- { audio = n, video = n }, or nil and why
//   local d = KyMediaProbe.describe(path)  -- { container, bit_rate, video = { codec, profile,
//       pixel_format, bit_depth, bit_rate }, audio = { { codec, profile, channels, sample_rate,
//       bit_rate }, ... } }; fields the file does not state are nil; raises with why on failure
//   local image, at = KyMediaProbe.grab(path, seconds [, width, height])  -- the KyImage shown at
//       seconds of media time, upright at display shape, fitted in width x height (0 or absent:
//       no bound), and { time = its start, duration = the file's, or nil when unknown };
//       raises with why on failure
// A library of its own that the host loads at the first import, so that a host which never probes
// never loads the media framework. Main thread.
#include <cstring>
#include <string>

#include "KyFrameGrab.h"
#include "KyImage.h"
#include "KyMediaDescription.h"
#include "KyNativeString.h"
#include "MediaFoundation.h"
#include "MediaSession.h"
#include "Win32.h"

namespace {

HRESULT countStreams(const std::wstring& path, int* audio, int* video) {
    IMFSourceResolver* resolver = nullptr;
    IUnknown* object = nullptr;
    IMFMediaSource* source = nullptr;
    IMFPresentationDescriptor* descriptor = nullptr;
    MF_OBJECT_TYPE type = MF_OBJECT_INVALID;
    DWORD count = 0;
    HRESULT hr = MFCreateSourceResolver(&resolver);
    if (SUCCEEDED(hr)) hr = resolver->CreateObjectFromURL(path.c_str(), kResolveAnyMediaSource, nullptr, &type, &object);
    if (SUCCEEDED(hr)) hr = object->QueryInterface(IID_IMFMediaSource, reinterpret_cast<void**>(&source));
    if (SUCCEEDED(hr)) hr = source->CreatePresentationDescriptor(&descriptor);
    if (SUCCEEDED(hr)) hr = descriptor->GetStreamDescriptorCount(&count);
    for (DWORD i = 0; SUCCEEDED(hr) && i < count; ++i) {
        BOOL selected = FALSE;
        IMFStreamDescriptor* stream = nullptr;
        IMFMediaTypeHandler* handler = nullptr;
        GUID major = GUID_NULL;
        hr = descriptor->GetStreamDescriptorByIndex(i, &selected, &stream);
        if (SUCCEEDED(hr)) hr = stream->GetMediaTypeHandler(&handler);
        if (SUCCEEDED(hr)) hr = handler->GetMajorType(&major);
        if (SUCCEEDED(hr)) {
            *audio += major == MFMediaType_Audio ? 1 : 0;
            *video += major == MFMediaType_Video ? 1 : 0;
        }
        SafeRelease(handler);
        SafeRelease(stream);
    }
    if (source != nullptr) source->Shutdown();
    SafeRelease(descriptor);
    SafeRelease(source);
    SafeRelease(object);
    SafeRelease(resolver);
    return hr;
}

std::string messageOf(HRESULT hr) {
    wchar_t* text = nullptr;
    FormatMessageW(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                   static_cast<DWORD>(hr), 0, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    std::wstring wide = text ? text : L"";
    if (text) LocalFree(text);
    while (!wide.empty() && (wide.back() == L'\n' || wide.back() == L'\r')) wide.pop_back();
    return wide.empty() ? "unknown failure" : WideToMultiByte(CP_UTF8, wide);
}

int streams(lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    int audio = 0;
    int video = 0;
    HRESULT hr = MFStartup(MF_VERSION, MFSTARTUP_FULL);
    if (SUCCEEDED(hr)) {
        hr = countStreams(path, &audio, &video);
        MFShutdown();
    }
    if (FAILED(hr)) {
        lua_pushnil(L);
        lua_pushstring(L, messageOf(hr).c_str());
        return 2;
    }
    lua_createtable(L, 0, 2);
    lua_pushinteger(L, audio);
    lua_setfield(L, -2, "audio");
    lua_pushinteger(L, video);
    lua_setfield(L, -2, "video");
    return 1;
}

void setText(lua_State* L, const char* name, const std::string& value) {
    if (value.empty()) return;
    lua_pushlstring(L, value.data(), value.size());
    lua_setfield(L, -2, name);
}

void setCount(lua_State* L, const char* name, int64_t value) {
    if (value <= 0) return;
    lua_pushnumber(L, static_cast<lua_Number>(value));
    lua_setfield(L, -2, name);
}

void pushStream(lua_State* L, const KyStreamDescription& stream) {
    lua_createtable(L, 0, 7);
    setText(L, "codec", stream.codec);
    setText(L, "profile", stream.profile);
    setText(L, "pixel_format", stream.pixelFormat);
    setCount(L, "bit_depth", stream.bitDepth);
    setCount(L, "channels", stream.channels);
    setCount(L, "sample_rate", stream.sampleRate);
    setCount(L, "bit_rate", stream.bitRate);
}

int describe(lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    KyMediaDescription description;
    const HRESULT hr = KyDescribeMedia(path.c_str(), &description);
    if (FAILED(hr)) return luaL_error(L, "%s", messageOf(hr).c_str());
    lua_createtable(L, 0, 4);
    setText(L, "container", description.container);
    setCount(L, "bit_rate", description.bitRate);
    if (description.hasVideo) {
        pushStream(L, description.video);
        lua_setfield(L, -2, "video");
    }
    lua_createtable(L, static_cast<int>(description.audio.size()), 0);
    for (size_t i = 0; i < description.audio.size(); ++i) {
        pushStream(L, description.audio[i]);
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    lua_setfield(L, -2, "audio");
    return 1;
}

constexpr double kHundredNanoseconds = kHundredNanosecondsPerSecond;

// A GDI+ bitmap holding the grabbed pixels; null when memory is short.
Gdiplus::Bitmap* bitmapOf(const KyGrabbedFrame& frame) {
    auto* bitmap = new Gdiplus::Bitmap(frame.width, frame.height, PixelFormat32bppRGB);
    if (bitmap == nullptr || bitmap->nativeImage() == nullptr) {
        delete bitmap;
        return nullptr;
    }
    const GpRect rect{0, 0, frame.width, frame.height};
    BitmapData locked{};
    if (GdipBitmapLockBits(bitmap->nativeImage(), &rect, ImageLockModeWrite, PixelFormat32bppRGB, &locked) != Ok) {
        delete bitmap;
        return nullptr;
    }
    const size_t rowBytes = static_cast<size_t>(frame.width) * 4;
    for (int row = 0; row < frame.height; ++row) {
        std::memcpy(static_cast<BYTE*>(locked.Scan0) + static_cast<ptrdiff_t>(row) * locked.Stride,
                    frame.pixels.data() + row * rowBytes, rowBytes);
    }
    GdipBitmapUnlockBits(bitmap->nativeImage(), &locked);
    return bitmap;
}

int grab(lua_State* L) {
    const KyNativeString path = KyLua_checkNativeString(L, 1);
    const double seconds = luaL_checknumber(L, 2);
    const lua_Integer width = luaL_optinteger(L, 3, 0);
    const lua_Integer height = luaL_optinteger(L, 4, 0);
    luaL_argcheck(L, seconds >= 0 && seconds < 1e9, 2, "seconds must be 0 or more");
    luaL_argcheck(L, width >= 0 && width <= kLargestPictureSide, 3,
                  lua_pushfstring(L, "width must be 0 to %d", kLargestPictureSide));
    luaL_argcheck(L, height >= 0 && height <= kLargestPictureSide, 4,
                  lua_pushfstring(L, "height must be 0 to %d", kLargestPictureSide));
    KyGrabbedFrame frame;
    const HRESULT hr = KyGrabFrame(path.c_str(), static_cast<LONGLONG>(seconds * kHundredNanoseconds + 0.5),
                                   static_cast<int>(width), static_cast<int>(height), &frame);
    if (FAILED(hr)) return luaL_error(L, "%s", messageOf(hr).c_str());
    Gdiplus::Bitmap* bitmap = bitmapOf(frame);
    if (bitmap == nullptr) return luaL_error(L, "%s", messageOf(E_OUTOFMEMORY).c_str());
    KyImageRef_pushToLua(L, KyGdiPlusImage::Make(bitmap, RCPtr<KyColorSpace>()));
    lua_createtable(L, 0, 2);
    lua_pushnumber(L, frame.time / kHundredNanoseconds);
    lua_setfield(L, -2, "time");
    if (frame.duration >= 0) {
        lua_pushnumber(L, frame.duration / kHundredNanoseconds);
        lua_setfield(L, -2, "duration");
    }
    return 2;
}

}  // namespace

extern "C" KY_EXPORT int KyMediaProbe_open(lua_State* L) {
    static const luaL_Reg functions[] = {{"streams", streams}, {"describe", describe}, {"grab", grab}, {nullptr, nullptr}};
    lua_newtable(L);
    luaL_register(L, nullptr, functions);
    return 1;
}
