// The attribute methods of the session's objects (events, topologies, nodes, descriptors,
// activation objects), answered by an embedded MFAttributes store, so each object only adds what
// is its own.
#ifndef KY_PLATFORM_ATTRIBUTE_STORE_H
#define KY_PLATFORM_ATTRIBUTE_STORE_H

#include <new>
#include <utility>

#include "MFAttributes.h"

namespace kyplatform {

template <class Interface>
class AttributeStore : public Interface {
public:
    HRESULT GetUINT32(REFGUID key, UINT32* value) override { return store()->GetUINT32(key, value); }
    HRESULT GetUINT64(REFGUID key, UINT64* value) override { return store()->GetUINT64(key, value); }
    HRESULT GetGUID(REFGUID key, GUID* value) override { return store()->GetGUID(key, value); }
    HRESULT GetBlobSize(REFGUID key, UINT32* size) override { return store()->GetBlobSize(key, size); }
    HRESULT GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* blobSize) override {
        return store()->GetBlob(key, buffer, bufferSize, blobSize);
    }
    HRESULT GetUnknown(REFGUID key, REFIID riid, void** ppv) override { return store()->GetUnknown(key, riid, ppv); }
    HRESULT SetUINT32(REFGUID key, UINT32 value) override { return store()->SetUINT32(key, value); }
    HRESULT SetUINT64(REFGUID key, UINT64 value) override { return store()->SetUINT64(key, value); }
    HRESULT SetGUID(REFGUID key, REFGUID value) override { return store()->SetGUID(key, value); }
    HRESULT SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) override {
        return store()->SetBlob(key, buffer, size);
    }
    HRESULT SetUnknown(REFGUID key, IUnknown* value) override { return store()->SetUnknown(key, value); }
    HRESULT DeleteItem(REFGUID key) override { return store()->DeleteItem(key); }
    HRESULT GetCount(UINT32* count) override { return store()->GetCount(count); }

    ULONG AddRef() override { return refs_.addRef(); }
    ULONG Release() override { return refs_.releaseOwner(this); }

    /* False when the store could not be made; the owner then fails its creation. */
    bool valid() const { return static_cast<bool>(store_); }

protected:
    AttributeStore() : store_(ComPtr<MFAttributes>::adopt(MFAttributes::create())) {}
    virtual ~AttributeStore() = default;
    friend class ::ComRefCount;  // deletes the object at its last Release

    /* QueryInterface for IUnknown and iid naming Interface itself (IMFAttributes has no IID). */
    HRESULT queryOwn(REFIID riid, REFIID iid, void** ppv) {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        if (riid != IID_IUnknown && riid != iid) return E_NOINTERFACE;
        *ppv = static_cast<Interface*>(this);
        AddRef();
        return S_OK;
    }

private:
    MFAttributes* store() const { return store_.get(); }

    ComRefCount refs_;
    ComPtr<MFAttributes> store_;
};

/* A new object of T with one reference, null when memory is short. */
template <class T, class... Arguments>
T* createWithStore(Arguments&&... arguments) {
    T* object = new (std::nothrow) T(std::forward<Arguments>(arguments)...);
    if (object != nullptr && !object->valid()) {
        object->Release();
        return nullptr;
    }
    return object;
}

}  // namespace kyplatform

#endif
