// Gives the memory that decoding threads freed back to the system. glibc keeps what a thread frees
// in that thread's arena; with decoders on threads of their own, every closed video would otherwise
// leave its frame buffers' pages resident, and the process would grow with each video played.
// Any thread; costs a walk over the heap, so it is called when a video closes, not per frame.
#ifndef KY_PLATFORM_FREED_MEMORY_H
#define KY_PLATFORM_FREED_MEMORY_H

#include <malloc.h>

namespace kyplatform {

inline void returnFreedMemory() { malloc_trim(0); }

}  // namespace kyplatform

#endif
