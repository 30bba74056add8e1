/* The Windows property system as the toolkit reads it: PROPERTYKEY, PROPVARIANT, IPropertyStore
 * and the conversions PropVariantToString and PropVariantToInt64, with the platform's text forms:
 * a vector of doubles as its elements joined by "; " ("48; 51; 29.6"), a FILETIME as
 * "yyyy/mm/dd:hh:mm:ss.fff" in UTC, numbers as decimal text. Plain functions; any thread. */
#ifndef KY_PROPERTY_SYSTEM_H
#define KY_PROPERTY_SYSTEM_H

#include "ComBase.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

typedef uint16_t VARTYPE;
enum : VARTYPE {
    VT_EMPTY = 0,
    VT_I4 = 3,
    VT_R8 = 5,
    VT_UNKNOWN = 13,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_LPWSTR = 31,
    VT_FILETIME = 64,
    VT_VECTOR = 0x1000,
};

/* 100-nanosecond intervals since 1601-01-01 UTC. */
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
typedef const PROPERTYKEY& REFPROPERTYKEY;

inline bool operator==(const PROPERTYKEY& a, const PROPERTYKEY& b) { return a.fmtid == b.fmtid && a.pid == b.pid; }

struct CADOUBLE {
    ULONG cElems;
    double* pElems;
};

/* A tagged value. Owns what it points to (pwszVal, cadbl.pElems): PropVariantClear frees it. */
struct PROPVARIANT {
    VARTYPE vt;
    union {
        LONG lVal;
        ULONG ulVal;
        LONGLONG hVal;
        ULONGLONG uhVal;
        double dblVal;
        LPWSTR pwszVal;
        FILETIME filetime;
        CADOUBLE cadbl;
        IUnknown* punkVal;  // VT_UNKNOWN: one reference, released by PropVariantClear
    };
};

void PropVariantInit(PROPVARIANT* value);
HRESULT PropVariantClear(PROPVARIANT* value);
/* The value as text in the forms above, into buffer of size characters with its NUL; a text that
 * does not fit is left there cut short and fails with 0x8007007A (insufficient buffer). VT_EMPTY
 * gives "". E_INVALIDARG for a type without a text form (VT_UNKNOWN), a null buffer or size 0. */
HRESULT PropVariantToString(const PROPVARIANT& value, PWSTR buffer, UINT size);
/* Integer types, and whole doubles in range; E_INVALIDARG for the others. */
HRESULT PropVariantToInt64(const PROPVARIANT& value, LONGLONG* result);

extern const IID IID_IPropertyStore;

/* A read-only bag of properties. GetValue gives a copy the caller clears with PropVariantClear;
 * a key the store lacks gives VT_EMPTY and S_OK. GetAt past the count gives E_INVALIDARG. */
struct IPropertyStore : IUnknown {
    virtual HRESULT GetCount(DWORD* count) = 0;
    virtual HRESULT GetAt(DWORD index, PROPERTYKEY* key) = 0;
    virtual HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) = 0;
};

extern const PROPERTYKEY PKEY_Media_DateEncoded;   // VT_FILETIME
extern const PROPERTYKEY PKEY_GPS_Latitude;        // VT_VECTOR | VT_R8: degrees, minutes, seconds
extern const PROPERTYKEY PKEY_GPS_Longitude;       // VT_VECTOR | VT_R8
extern const PROPERTYKEY PKEY_GPS_LatitudeRef;     // VT_LPWSTR: "N" or "S"
extern const PROPERTYKEY PKEY_GPS_LongitudeRef;    // VT_LPWSTR: "E" or "W"
extern const PROPERTYKEY PKEY_GPS_Altitude;        // VT_R8: metres
extern const PROPERTYKEY PKEY_GPS_AltitudeRef;     // VT_UI4: 0 above sea level, 1 below
extern const PROPERTYKEY PKEY_Photo_CameraModel;   // VT_LPWSTR
extern const PROPERTYKEY PKEY_Photo_CameraManufacturer;  // VT_LPWSTR

KY_PLATFORM_EXPORTS_END

#endif
