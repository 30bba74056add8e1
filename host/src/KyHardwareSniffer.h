// What the machine's graphics and audio hardware is, read without root and without running any
// program: PCI display adapters from sysfs named through the PCI id database, ALSA cards from
// procfs, and OpenGL from an offscreen EGL context. Roots are parameters so that tests can point
// the readers at fixture trees. Any thread; nothing here throws, a missing file only means less
// is known.
#ifndef KY_HARDWARE_SNIFFER_H
#define KY_HARDWARE_SNIFFER_H

#include <cstdint>
#include <string>
#include <vector>

#include "KyKernel.h"

namespace ky {

// NVIDIA's PCI vendor id, as the sniff spells ids.
constexpr const char* kNvidiaVendorId = "0x10de";

struct SniffRoots {
    std::string sys = "/sys";
    std::string proc = "/proc";
    // The first of these that exists is the PCI id database.
    std::vector<std::string> pciIds = {"/usr/share/misc/pci.ids", "/usr/share/hwdata/pci.ids"};
    // NVIDIA's management library, loaded at run time where an NVIDIA adapter's driver does not
    // tell its memory through sysfs (the proprietary driver has no DRM memory node).
    std::string nvml = "libnvidia-ml.so.1";
};

// One display controller (PCI class 0x03xxxx). Ids are lower-case hex with 0x ("0x10de"); names
// are empty where the database has none.
struct GraphicsAdapter {
    std::string address;  // "0000:01:00.0"
    std::string vendorId, deviceId, subsystemVendorId, subsystemDeviceId, revision;
    std::string vendorName, deviceName, subsystemName;
    std::string driver, driverVersion;  // empty when no driver is bound or it has no version
    uint64_t videoMemoryBytes = 0;      // sysfs, else NVML for NVIDIA; 0 where nothing tells
};

// One ALSA card and its playback devices.
struct SoundCard {
    int index = 0;
    std::string id;        // "PCH"
    std::string driver;    // "HDA-Intel"
    std::string name;      // "HDA Intel PCH"
    std::string longName;  // "HDA Intel PCH at 0xf7f10000 irq 32"
    std::vector<std::string> playbackDevices;  // "ALC892 Analog" per device that can play
};

struct OpenGLInfo {
    bool available = false;
    std::string vendor, renderer, version, extensions;
    bool software = false;  // a software rasteriser (llvmpipe, softpipe, swrast)
    // Dedicated video memory from GL_NVX_gpu_memory_info; 0 without it. (GL_ATI_meminfo tells
    // only free memory, not the size, and AMD's drivers give the size through sysfs.)
    uint64_t videoMemoryBytes = 0;
    std::string failure;    // why there is none, when unavailable
};

// Adapters in PCI address order.
std::vector<GraphicsAdapter> sniffGraphicsAdapters(const SniffRoots& roots);
// Cards in index order.
std::vector<SoundCard> sniffSoundCards(const SniffRoots& roots);
// From a surfaceless EGL context with desktop OpenGL; any thread, but one call at a time. The
// context is current on the calling thread only during the call, which leaves none current.
OpenGLInfo sniffOpenGL();

}  // namespace ky

#endif
