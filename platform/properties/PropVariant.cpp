// PROPVARIANT life cycle and conversions. Texts are made with to_chars and snprintf of integers only,
// so that they do not change with the process's numeric locale. Strings and vectors are allocated
// with malloc, which PropVariantClear pairs with free.
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "PropertyValue.h"

namespace {

constexpr ULONGLONG kTicksPerMillisecond = 10000;
// Days from 1601-01-01, where FILETIME counts from, to 1970-01-01.
constexpr int64_t kDaysFrom1601To1970 = 134774;

std::wstring widen(const char* text, size_t length) { return std::wstring(text, text + length); }

// "%.15g": the shortest of fixed or exponent form, 15 significant digits, no trailing zeros.
std::wstring doubleText(double value) {
    char text[64];
    const auto result = std::to_chars(text, text + sizeof(text), value, std::chars_format::general, 15);
    return widen(text, result.ptr - text);
}

template <class Integer>
std::wstring integerText(Integer value) {
    char text[32];
    const auto result = std::to_chars(text, text + sizeof(text), value);
    return widen(text, result.ptr - text);
}

// The proleptic Gregorian date of a day count from 1970-01-01.
void civilFromDays(int64_t days, int64_t& year, unsigned& month, unsigned& day) {
    days += 719468;
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const unsigned dayOfEra = static_cast<unsigned>(days - era * 146097);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned shiftedMonth = (5 * dayOfYear + 2) / 153;
    day = dayOfYear - (153 * shiftedMonth + 2) / 5 + 1;
    month = shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9;
    year = static_cast<int64_t>(yearOfEra) + era * 400 + (month <= 2 ? 1 : 0);
}

std::wstring fileTimeText(const FILETIME& time) {
    const ULONGLONG ticks = static_cast<ULONGLONG>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
    const ULONGLONG milliseconds = ticks / kTicksPerMillisecond;
    const ULONGLONG seconds = milliseconds / 1000;
    const unsigned secondOfDay = static_cast<unsigned>(seconds % 86400);
    int64_t year = 0;
    unsigned month = 0, day = 0;
    civilFromDays(static_cast<int64_t>(seconds / 86400) - kDaysFrom1601To1970, year, month, day);
    char text[64];
    const int length = std::snprintf(text, sizeof(text), "%04lld/%02u/%02u:%02u:%02u:%02u.%03u",
                                     static_cast<long long>(year), month, day, secondOfDay / 3600,
                                     secondOfDay / 60 % 60, secondOfDay % 60,
                                     static_cast<unsigned>(milliseconds % 1000));
    return widen(text, static_cast<size_t>(length));
}

// The text of value; false for a type without one.
bool valueText(const PROPVARIANT& value, std::wstring& text) {
    switch (value.vt) {
        case VT_EMPTY: text.clear(); return true;
        case VT_LPWSTR: text = value.pwszVal != nullptr ? value.pwszVal : L""; return true;
        case VT_R8: text = doubleText(value.dblVal); return true;
        case VT_I4: text = integerText(value.lVal); return true;
        case VT_UI4: text = integerText(value.ulVal); return true;
        case VT_I8: text = integerText(value.hVal); return true;
        case VT_UI8: text = integerText(value.uhVal); return true;
        case VT_FILETIME: text = fileTimeText(value.filetime); return true;
        case VT_VECTOR | VT_R8:
            if (value.cadbl.cElems > 0 && value.cadbl.pElems == nullptr) return false;
            text.clear();
            for (ULONG i = 0; i < value.cadbl.cElems; ++i) {
                if (i > 0) text += L"; ";
                text += doubleText(value.cadbl.pElems[i]);
            }
            return true;
        default: return false;
    }
}

}  // namespace

void PropVariantInit(PROPVARIANT* value) {
    if (value != nullptr) std::memset(value, 0, sizeof(*value));
}

HRESULT PropVariantClear(PROPVARIANT* value) {
    if (value == nullptr) return S_OK;
    if (value->vt == VT_LPWSTR) std::free(value->pwszVal);
    if (value->vt == (VT_VECTOR | VT_R8)) std::free(value->cadbl.pElems);
    if (value->vt == VT_UNKNOWN && value->punkVal != nullptr) value->punkVal->Release();
    PropVariantInit(value);
    return S_OK;
}

// As the platform does, a text too long for the buffer is also left there cut short, with its NUL.
HRESULT PropVariantToString(const PROPVARIANT& value, PWSTR buffer, UINT size) {
    if (buffer == nullptr || size == 0) return E_INVALIDARG;
    buffer[0] = L'\0';
    std::wstring text;
    if (!valueText(value, text)) return E_INVALIDARG;
    const size_t copied = text.size() < size ? text.size() : size - 1;
    text.copy(buffer, copied);
    buffer[copied] = L'\0';
    return copied == text.size() ? S_OK : E_NOT_SUFFICIENT_BUFFER;
}

HRESULT PropVariantToInt64(const PROPVARIANT& value, LONGLONG* result) {
    if (result == nullptr) return E_POINTER;
    *result = 0;
    switch (value.vt) {
        case VT_I4: *result = value.lVal; return S_OK;
        case VT_UI4: *result = value.ulVal; return S_OK;
        case VT_I8: *result = value.hVal; return S_OK;
        case VT_UI8:
            if (value.uhVal > static_cast<ULONGLONG>(std::numeric_limits<LONGLONG>::max())) return E_INVALIDARG;
            *result = static_cast<LONGLONG>(value.uhVal);
            return S_OK;
        case VT_R8: {
            // -2^63 is a double exactly; 2^63 is the first one past the range. NaN fails both tests.
            const double limit = 9223372036854775808.0;
            if (!(value.dblVal >= -limit && value.dblVal < limit) || std::trunc(value.dblVal) != value.dblVal)
                return E_INVALIDARG;
            *result = static_cast<LONGLONG>(value.dblVal);
            return S_OK;
        }
        default: return E_INVALIDARG;
    }
}

namespace kyplatform {

namespace {

struct Filler {
    PROPVARIANT* value;

    HRESULT operator()(const std::wstring& text) const {
        auto* copy = static_cast<wchar_t*>(std::malloc((text.size() + 1) * sizeof(wchar_t)));
        if (copy == nullptr) return E_OUTOFMEMORY;
        text.copy(copy, text.size());
        copy[text.size()] = L'\0';
        value->vt = VT_LPWSTR;
        value->pwszVal = copy;
        return S_OK;
    }
    HRESULT operator()(double number) const {
        value->vt = VT_R8;
        value->dblVal = number;
        return S_OK;
    }
    HRESULT operator()(const std::vector<double>& numbers) const {
        double* copy = nullptr;
        if (!numbers.empty()) {
            copy = static_cast<double*>(std::malloc(numbers.size() * sizeof(double)));
            if (copy == nullptr) return E_OUTOFMEMORY;
            std::memcpy(copy, numbers.data(), numbers.size() * sizeof(double));
        }
        value->vt = VT_VECTOR | VT_R8;
        value->cadbl.cElems = static_cast<ULONG>(numbers.size());
        value->cadbl.pElems = copy;
        return S_OK;
    }
    HRESULT operator()(const FILETIME& time) const {
        value->vt = VT_FILETIME;
        value->filetime = time;
        return S_OK;
    }
    HRESULT operator()(UINT32 number) const {
        value->vt = VT_UI4;
        value->ulVal = number;
        return S_OK;
    }
};

}  // namespace

HRESULT copyToPropVariant(const PropertyData& data, PROPVARIANT* value) {
    PropVariantInit(value);
    return std::visit(Filler{value}, data);
}

}  // namespace kyplatform
