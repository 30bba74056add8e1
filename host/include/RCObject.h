/* Counted objects of the host's view layer: ReferenceCount (the counter), RCObject (the base with
 * a counter inside), RCPtrBase (the untyped pointer), RCPtr<T, Base> (the typed pointer) and
 * RCPtrNull (the null marker). The pointers that hold an object own it together; the last one to
 * go destroys it through the virtual destructor.
 *
 * Counts change atomically, so two threads may hold separate pointers to one object; one pointer
 * object may not be changed by two threads at once. Nothing here fails or throws. */
#ifndef KY_RC_OBJECT_H
#define KY_RC_OBJECT_H

#include <atomic>
#include <cstdint>

#include "KyKernel.h"

class KY_EXPORT ReferenceCount {
public:
    ReferenceCount() = default;
    /* A copy starts afresh: nothing is taken from the source. */
    ReferenceCount(const ReferenceCount&) {}
    /* The target keeps its count and flag. */
    ReferenceCount& operator=(const ReferenceCount&) { return *this; }

    bool IsUnreferenced() const { return count_.load(std::memory_order_relaxed) < 1; }
    bool IsUniquelyReferenced() const { return count_.load(std::memory_order_relaxed) == 1; }
    bool IsShared() const { return count_.load(std::memory_order_relaxed) > 1; }
    void Increment() const { count_.fetch_add(1, std::memory_order_seq_cst); }
    /* True exactly when the count before the subtraction was 1. */
    bool Decrement() const { return count_.fetch_sub(1, std::memory_order_seq_cst) == 1; }
    void AllowMultipleDestruct() { multipleDestruct_ = true; }
    bool MultipleDestructAllowed() const { return multipleDestruct_; }

private:
    mutable std::atomic<int32_t> count_{0};
    bool multipleDestruct_ = false;
};

class KY_EXPORT RCObject {
public:
    RCObject() = default;
    RCObject(const RCObject&) {}
    RCObject& operator=(const RCObject&) { return *this; }
    virtual ~RCObject() = 0;
    virtual const char* getTypeName() const { return "RCObject"; }

    bool IsShared() const { return refCount_.IsShared(); }
    void AllowMultipleDestruct() { refCount_.AllowMultipleDestruct(); }
    const ReferenceCount& referenceCount() const { return refCount_; }

private:
    // Taking an object's address through the operator is barred: objects live in pointers.
    RCObject* operator&();

    ReferenceCount refCount_;
};

class KY_EXPORT RCPtrNull {
public:
    RCPtrNull() = default;
    static RCPtrNull Instance();
};

class KY_EXPORT RCPtrBase {
public:
    ~RCPtrBase();
    bool operator!() const { return pointer_ == nullptr; }

protected:
    RCPtrBase() = default;
    RCPtrBase(RCPtrNull) {}
    RCPtrBase(const RCPtrBase& other) : pointer_(other.pointer_) { CountIt(); }
    explicit RCPtrBase(RCObject* pointer) : pointer_(pointer) { CountIt(); }

    /* Holds pointer with one reference counted on it and gives up the one held before;
     * assigning the held object again keeps it alive. */
    void ResetBase(RCObject* pointer);
    void ResetBase(const RCPtrBase& other) { ResetBase(other.pointer_); }
    bool CompareNull() const { return pointer_ == nullptr; }
    RCObject* Pointer() const { return pointer_; }
    RCObject* UsePointer() const { return pointer_; }
    bool Compare(const RCPtrBase& other) const { return pointer_ == other.pointer_; }
    bool ComparePointer(const RCObject* pointer) const { return pointer_ == pointer; }

private:
    RCPtrBase& operator=(const RCPtrBase& other) {
        ResetBase(other.pointer_);
        return *this;
    }
    /* Counts the pointer just stored, if any. */
    void CountIt();

    RCObject* pointer_ = nullptr;
};

/* The typed pointer. Base is the class that T derives from directly on the way to RCObject. */
template <class T, class Base = RCObject>
class RCPtr : public RCPtrBase {
public:
    RCPtr() = default;
    RCPtr(RCPtrNull null) : RCPtrBase(null) {}  // NOLINT: a null marker converts implicitly
    explicit RCPtr(T* pointer) : RCPtrBase(static_cast<RCObject*>(pointer)) {}
    RCPtr(const RCPtr& other) : RCPtrBase(other) {}
    template <class U, class UBase>
    RCPtr(const RCPtr<U, UBase>& other) : RCPtrBase(static_cast<RCObject*>(other.get())) {}  // NOLINT
    RCPtr& operator=(const RCPtr& other) {
        ResetBase(other);
        return *this;
    }
    RCPtr& operator=(RCPtrNull) {
        ResetBase(nullptr);
        return *this;
    }

    T* get() const { return static_cast<T*>(Pointer()); }
    T* operator->() const { return get(); }
    T& operator*() const { return *get(); }
    explicit operator bool() const { return !CompareNull(); }
    bool operator==(const RCPtr& other) const { return Compare(other); }
    bool operator!=(const RCPtr& other) const { return !Compare(other); }
    bool operator==(RCPtrNull) const { return CompareNull(); }
};

#endif
