/* IUnknown, the root of every platform interface, and ComPtr, a small owning pointer for code of
 * this layer. Reference counts are atomic: AddRef and Release may be called from any thread. An
 * object is freed by the Release that takes its count to zero. */
#ifndef KY_COM_BASE_H
#define KY_COM_BASE_H

#include <atomic>
#include <utility>

#include "PlatformTypes.h"
#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

extern const IID IID_IUnknown;

struct IUnknown {
    virtual HRESULT QueryInterface(REFIID riid, void** ppv) = 0;
    virtual ULONG AddRef() = 0;
    virtual ULONG Release() = 0;

protected:
    virtual ~IUnknown() = default;
};

/* Gives up the reference a pointer field or local holds, if any, and sets it to null. */
template <class T>
void SafeRelease(T*& pointer) {
    if (pointer != nullptr) {
        pointer->Release();
        pointer = nullptr;
    }
}

/* Holds one reference; null when empty. Not itself thread-safe. */
template <class T>
class ComPtr {
public:
    ComPtr() = default;
    ComPtr(T* p) : p_(p) { if (p_) p_->AddRef(); }  // NOLINT: implicit like the platform's own
    ComPtr(const ComPtr& other) : ComPtr(other.p_) {}
    ComPtr(ComPtr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
    ~ComPtr() { reset(); }
    ComPtr& operator=(ComPtr other) noexcept { std::swap(p_, other.p_); return *this; }

    /* Takes over a reference the caller already holds. */
    static ComPtr adopt(T* p) { ComPtr c; c.p_ = p; return c; }

    T* get() const { return p_; }
    T* operator->() const { return p_; }
    explicit operator bool() const { return p_ != nullptr; }
    /* Gives the reference to the caller (for out-parameters). */
    T* detach() { return std::exchange(p_, nullptr); }
    void reset() { if (p_) std::exchange(p_, nullptr)->Release(); }
    /* For out-parameters: releases what is held and gives the slot. */
    T** put() { reset(); return &p_; }

private:
    T* p_ = nullptr;
};

/* The counting half of IUnknown for implementations: derive, and forward AddRef/Release. */
class ComRefCount {
public:
    ULONG addRef() { return ++count_; }
    ULONG release() { return --count_; }
    /* Release for an owner that lives on the heap: the last one deletes it. */
    template <class Owner>
    ULONG releaseOwner(Owner* owner) {
        const ULONG count = release();
        if (count == 0) delete owner;
        return count;
    }

private:
    std::atomic<ULONG> count_{1};
};

KY_PLATFORM_EXPORTS_END

#endif
