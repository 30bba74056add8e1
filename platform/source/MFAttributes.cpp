#include "MFAttributes.h"

#include <algorithm>
#include <new>
#include <utility>

namespace kyplatform {

MFAttributes* MFAttributes::create() { return new (std::nothrow) MFAttributes(); }

HRESULT MFAttributes::QueryInterface(REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    if (riid != IID_IUnknown) return E_NOINTERFACE;
    *ppv = static_cast<IUnknown*>(this);
    AddRef();
    return S_OK;
}

ULONG MFAttributes::AddRef() { return refs_.addRef(); }

ULONG MFAttributes::Release() { return refs_.releaseOwner(this); }

MFAttributes::Item* MFAttributes::find(REFGUID key) {
    const auto item = std::find_if(items_.begin(), items_.end(), [&key](const Item& i) { return i.key == key; });
    return item == items_.end() ? nullptr : &*item;
}

template <class T>
HRESULT MFAttributes::get(REFGUID key, T* value) {
    if (value == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(mutex_);
    const Item* item = find(key);
    if (item == nullptr) return MF_E_ATTRIBUTENOTFOUND;
    const T* held = std::get_if<T>(&item->value);
    if (held == nullptr) return MF_E_INVALIDTYPE;
    *value = *held;
    return S_OK;
}

HRESULT MFAttributes::set(REFGUID key, Value value) {
    // The replaced value is dropped after unlocking: releasing an object it held may run code
    // that comes back to this store.
    Value replaced;
    try {
        std::lock_guard<std::mutex> guard(mutex_);
        if (Item* item = find(key)) {
            replaced = std::exchange(item->value, std::move(value));
        } else {
            items_.push_back(Item{key, std::move(value)});
        }
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

HRESULT MFAttributes::GetUINT32(REFGUID key, UINT32* value) { return get(key, value); }

HRESULT MFAttributes::GetUINT64(REFGUID key, UINT64* value) { return get(key, value); }

HRESULT MFAttributes::GetGUID(REFGUID key, GUID* value) { return get(key, value); }

HRESULT MFAttributes::GetBlobSize(REFGUID key, UINT32* size) {
    if (size == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(mutex_);
    const Item* item = find(key);
    if (item == nullptr) return MF_E_ATTRIBUTENOTFOUND;
    const auto* blob = std::get_if<std::vector<UINT8>>(&item->value);
    if (blob == nullptr) return MF_E_INVALIDTYPE;
    *size = static_cast<UINT32>(blob->size());
    return S_OK;
}

HRESULT MFAttributes::GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* blobSize) {
    if (buffer == nullptr && bufferSize != 0) return E_POINTER;
    std::lock_guard<std::mutex> guard(mutex_);
    const Item* item = find(key);
    if (item == nullptr) return MF_E_ATTRIBUTENOTFOUND;
    const auto* blob = std::get_if<std::vector<UINT8>>(&item->value);
    if (blob == nullptr) return MF_E_INVALIDTYPE;
    if (blob->size() > bufferSize) return E_NOT_SUFFICIENT_BUFFER;
    std::copy(blob->begin(), blob->end(), buffer);
    if (blobSize != nullptr) *blobSize = static_cast<UINT32>(blob->size());
    return S_OK;
}

HRESULT MFAttributes::GetUnknown(REFGUID key, REFIID riid, void** ppv) {
    if (ppv == nullptr) return E_POINTER;
    *ppv = nullptr;
    ComPtr<IUnknown> object;
    if (HRESULT hr = get(key, &object); FAILED(hr)) return hr;
    // Asked outside the lock: the object's QueryInterface is foreign code.
    return object->QueryInterface(riid, ppv);
}

HRESULT MFAttributes::SetUINT32(REFGUID key, UINT32 value) { return set(key, value); }

HRESULT MFAttributes::SetUINT64(REFGUID key, UINT64 value) { return set(key, value); }

HRESULT MFAttributes::SetGUID(REFGUID key, REFGUID value) { return set(key, GUID(value)); }

HRESULT MFAttributes::SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) {
    if (buffer == nullptr && size != 0) return E_POINTER;
    try {
        return set(key, std::vector<UINT8>(buffer, buffer + size));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT MFAttributes::SetUnknown(REFGUID key, IUnknown* value) {
    if (value == nullptr) return E_POINTER;
    return set(key, ComPtr<IUnknown>(value));
}

HRESULT MFAttributes::DeleteItem(REFGUID key) {
    Value removed;
    std::lock_guard<std::mutex> guard(mutex_);
    if (Item* item = find(key)) {
        removed = std::move(item->value);
        items_.erase(items_.begin() + (item - items_.data()));
    }
    return S_OK;
}

HRESULT MFAttributes::GetCount(UINT32* count) {
    if (count == nullptr) return E_POINTER;
    std::lock_guard<std::mutex> guard(mutex_);
    *count = static_cast<UINT32>(items_.size());
    return S_OK;
}

HRESULT MFAttributes::GetMajorType(GUID* majorType) { return GetGUID(MF_MT_MAJOR_TYPE, majorType); }

}  // namespace kyplatform

HRESULT MFCreateAttributes(IMFAttributes** attributes, UINT32) {
    if (attributes == nullptr) return E_POINTER;
    *attributes = kyplatform::MFAttributes::create();
    return *attributes == nullptr ? E_OUTOFMEMORY : S_OK;
}

HRESULT MFCreateMediaType(IMFMediaType** mediaType) {
    if (mediaType == nullptr) return E_POINTER;
    *mediaType = kyplatform::MFAttributes::create();
    return *mediaType == nullptr ? E_OUTOFMEMORY : S_OK;
}
