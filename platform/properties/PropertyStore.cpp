#include "PropertyStore.h"

#include <new>

namespace kyplatform {

namespace {

// Immutable once made, so any number of threads may read it at once.
class PropertyStore final : public IPropertyStore {
public:
    explicit PropertyStore(std::vector<Property> properties) : properties_(std::move(properties)) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        if (riid != IID_IUnknown && riid != IID_IPropertyStore) {
            *ppv = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        *ppv = static_cast<IPropertyStore*>(this);
        return S_OK;
    }
    ULONG AddRef() override { return count_.addRef(); }
    ULONG Release() override { return count_.releaseOwner(this); }

    HRESULT GetCount(DWORD* count) override {
        if (count == nullptr) return E_POINTER;
        *count = static_cast<DWORD>(properties_.size());
        return S_OK;
    }

    HRESULT GetAt(DWORD index, PROPERTYKEY* key) override {
        if (key == nullptr) return E_POINTER;
        if (index >= properties_.size()) return E_INVALIDARG;
        *key = properties_[index].key;
        return S_OK;
    }

    HRESULT GetValue(REFPROPERTYKEY key, PROPVARIANT* value) override {
        if (value == nullptr) return E_POINTER;
        for (const Property& property : properties_) {
            if (property.key == key) return copyToPropVariant(property.value, value);
        }
        PropVariantInit(value);
        return S_OK;
    }

private:
    ComRefCount count_;
    const std::vector<Property> properties_;
};

}  // namespace

HRESULT createPropertyStore(std::vector<Property> properties, IPropertyStore** store) {
    if (store == nullptr) return E_POINTER;
    *store = new (std::nothrow) PropertyStore(std::move(properties));
    return *store != nullptr ? S_OK : E_OUTOFMEMORY;
}

}  // namespace kyplatform
