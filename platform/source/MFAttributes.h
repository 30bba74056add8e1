// The attribute store behind MFCreateAttributes and MFCreateMediaType: typed values under GUID
// keys, as MediaFoundation.h describes them. One mutex guards the items, since a store handed to
// a reader may be read on a work-queue thread while its creator still holds it.
#ifndef KY_PLATFORM_MF_ATTRIBUTES_H
#define KY_PLATFORM_MF_ATTRIBUTES_H

#include <mutex>
#include <variant>
#include <vector>

#include "MediaFoundation.h"

namespace kyplatform {

class MFAttributes final : public IMFMediaType {
public:
    /* A new empty store with one reference; null when memory is short. */
    static MFAttributes* create();

    HRESULT QueryInterface(REFIID riid, void** ppv) override;
    ULONG AddRef() override;
    ULONG Release() override;

    HRESULT GetUINT32(REFGUID key, UINT32* value) override;
    HRESULT GetUINT64(REFGUID key, UINT64* value) override;
    HRESULT GetGUID(REFGUID key, GUID* value) override;
    HRESULT GetBlobSize(REFGUID key, UINT32* size) override;
    HRESULT GetBlob(REFGUID key, UINT8* buffer, UINT32 bufferSize, UINT32* blobSize) override;
    HRESULT GetUnknown(REFGUID key, REFIID riid, void** ppv) override;
    HRESULT SetUINT32(REFGUID key, UINT32 value) override;
    HRESULT SetUINT64(REFGUID key, UINT64 value) override;
    HRESULT SetGUID(REFGUID key, REFGUID value) override;
    HRESULT SetBlob(REFGUID key, const UINT8* buffer, UINT32 size) override;
    HRESULT SetUnknown(REFGUID key, IUnknown* value) override;
    HRESULT DeleteItem(REFGUID key) override;
    HRESULT GetCount(UINT32* count) override;

    HRESULT GetMajorType(GUID* majorType) override;

private:
    using Value = std::variant<UINT32, UINT64, GUID, std::vector<UINT8>, ComPtr<IUnknown>>;
    struct Item {
        GUID key;
        Value value;
    };

    MFAttributes() = default;
    friend class ::ComRefCount;  // deletes the object at its last Release
    ~MFAttributes() override = default;

    /* Copies the value of key when it holds a T. */
    template <class T>
    HRESULT get(REFGUID key, T* value);
    HRESULT set(REFGUID key, Value value);
    Item* find(REFGUID key);

    ComRefCount refs_;
    std::mutex mutex_;
    std::vector<Item> items_;
};

}  // namespace kyplatform

#endif
