// A property's value held as C++ data, turned into a PROPVARIANT only when a caller asks for it, so
// that stores and tag readers need no manual memory handling.
#ifndef KY_PLATFORM_PROPERTY_VALUE_H
#define KY_PLATFORM_PROPERTY_VALUE_H

#include <string>
#include <variant>
#include <vector>

#include "PropertySystem.h"

namespace kyplatform {

/* VT_LPWSTR, VT_R8, VT_VECTOR | VT_R8, VT_FILETIME and VT_UI4, in that order. */
using PropertyData = std::variant<std::wstring, double, std::vector<double>, FILETIME, UINT32>;

struct Property {
    PROPERTYKEY key;
    PropertyData value;
};

/* Fills value (which the caller clears with PropVariantClear) with a copy of data; E_OUTOFMEMORY
 * leaves it VT_EMPTY. */
HRESULT copyToPropVariant(const PropertyData& data, PROPVARIANT* value);

}  // namespace kyplatform

#endif
