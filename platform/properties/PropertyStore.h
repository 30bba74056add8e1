// A read-only IPropertyStore over a fixed list of properties.
#ifndef KY_PLATFORM_PROPERTY_STORE_H
#define KY_PLATFORM_PROPERTY_STORE_H

#include <vector>

#include "PropertyValue.h"

namespace kyplatform {

/* A new store (one reference) answering properties; E_OUTOFMEMORY when it cannot be made. */
HRESULT createPropertyStore(std::vector<Property> properties, IPropertyStore** store);

}  // namespace kyplatform

#endif
