// metadataPacket: the properties read one lookup at a time, rearranged by the XMP text functions
// and filled into the packet's template.
#include "MetadataPacket.h"

#include <new>

#include "MediaFoundation.h"
#include "PropertySystem.h"
#include "Win32.h"
#include "XmpPacket.h"

namespace {

constexpr UINT kPropertyTextLength = 8192;
constexpr DWORD kResolveFlags = kResolveAnyMediaSource | MF_RESOLUTION_READ;
const wchar_t kNotFound[] = L"not found";

std::wstring readPropertyText(const std::wstring& path, const PROPERTYKEY& key) {
    std::wstring answer = kNotFound;
    IMFSourceResolver* resolver = nullptr;
    IUnknown* object = nullptr;
    IMFMediaSource* source = nullptr;
    IMFGetService* service = nullptr;
    IPropertyStore* store = nullptr;
    MF_OBJECT_TYPE objectType = MF_OBJECT_INVALID;
    PROPVARIANT value;
    PropVariantInit(&value);

    HRESULT hr = MFCreateSourceResolver(&resolver);
    if (SUCCEEDED(hr)) hr = resolver->CreateObjectFromURL(path.c_str(), kResolveFlags, nullptr, &objectType, &object);
    if (SUCCEEDED(hr)) hr = object->QueryInterface(IID_IMFMediaSource, reinterpret_cast<void**>(&source));
    if (SUCCEEDED(hr)) hr = source->QueryInterface(IID_IMFGetService, reinterpret_cast<void**>(&service));
    if (SUCCEEDED(hr)) hr = service->GetService(MF_PROPERTY_HANDLER_SERVICE, IID_IPropertyStore, reinterpret_cast<void**>(&store));
    if (SUCCEEDED(hr)) hr = store->GetValue(key, &value);
    if (SUCCEEDED(hr)) {
        auto* buffer = new (std::nothrow) wchar_t[kPropertyTextLength]();
        if (buffer != nullptr && SUCCEEDED(PropVariantToString(value, buffer, kPropertyTextLength))) answer = buffer;
        delete[] buffer;
    }
    PropVariantClear(&value);
    if (source != nullptr) source->Shutdown();
    SafeRelease(store);
    SafeRelease(service);
    SafeRelease(source);
    SafeRelease(object);
    SafeRelease(resolver);
    return answer;
}

}  // namespace

std::string metadataPacket(const std::wstring& path, const VideoStreamInfo& info) {
    XmpValues values;
    values.creationDate = formatCreationDate(readPropertyText(path, PKEY_Media_DateEncoded));
    std::wstring latitude = removeZeroTriples(readPropertyText(path, PKEY_GPS_Latitude));
    std::wstring longitude = removeZeroTriples(readPropertyText(path, PKEY_GPS_Longitude));
    const std::wstring latitudeRef = latitude.empty() ? std::wstring() : readPropertyText(path, PKEY_GPS_LatitudeRef);
    const std::wstring longitudeRef = longitude.empty() ? std::wstring() : readPropertyText(path, PKEY_GPS_LongitudeRef);
    const std::wstring altitude = readPropertyText(path, PKEY_GPS_Altitude);
    values.gpsAltitudeRef = readPropertyText(path, PKEY_GPS_AltitudeRef);
    values.gpsLatitude = formatCoordinate(latitude, latitudeRef);
    values.gpsLongitude = formatCoordinate(longitude, longitudeRef);
    values.gpsAltitude1000ths = formatAltitude(altitude);
    values.durationInTicks = durationTicksText(info.duration);
    values.model = readPropertyText(path, PKEY_Photo_CameraModel);
    values.orientation = orientationText(info.rotation);
    return WideToMultiByte(CP_ACP, fillXmpPacket(values));
}
