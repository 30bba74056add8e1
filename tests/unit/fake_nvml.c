/* A stand-in for NVIDIA's management library on machines without an NVIDIA GPU: one device, at
 * PCI address 0000:02:00.0, with 24 GiB of memory. */
#include <string.h>

typedef struct {
    unsigned long long total, free, used;
} Memory;

static int device;

int nvmlInit_v2(void) { return 0; }
int nvmlShutdown(void) { return 0; }

int nvmlDeviceGetHandleByPciBusId_v2(const char* busId, void** handle) {
    if (strcmp(busId, "0000:02:00.0") != 0) return 13; /* NVML_ERROR_NOT_FOUND */
    *handle = &device;
    return 0;
}

int nvmlDeviceGetMemoryInfo(void* handle, Memory* memory) {
    if (handle != &device) return 2; /* NVML_ERROR_INVALID_ARGUMENT */
    memory->total = 24ull << 30;
    memory->free = memory->total;
    memory->used = 0;
    return 0;
}
