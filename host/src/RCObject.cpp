#include "RCObject.h"

RCObject::~RCObject() = default;

RCPtrNull RCPtrNull::Instance() { return RCPtrNull(); }

void RCPtrBase::CountIt() {
    if (pointer_ != nullptr) pointer_->referenceCount().Increment();
}

void RCPtrBase::ResetBase(RCObject* pointer) {
    // Count the new object first, so that assigning the held object to itself cannot free it.
    if (pointer != nullptr) pointer->referenceCount().Increment();
    RCObject* previous = pointer_;
    pointer_ = pointer;
    if (previous != nullptr && previous->referenceCount().Decrement()) delete previous;
}

RCPtrBase::~RCPtrBase() {
    if (pointer_ != nullptr && pointer_->referenceCount().Decrement()) delete pointer_;
}
