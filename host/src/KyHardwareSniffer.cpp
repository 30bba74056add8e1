// Display adapters from sysfs named through the PCI id database, ALSA cards from procfs, OpenGL
// from an offscreen EGL context. Files are read with error codes and bounds checks throughout, so
// a missing or malformed file only leaves fields empty.
#include "KyHardwareSniffer.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <dlfcn.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string_view>
#include <system_error>

namespace ky {
namespace {

namespace fs = std::filesystem;

std::string_view trimmed(std::string_view text) {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

std::string lowered(std::string_view text) {
    std::string out(text);
    std::transform(out.begin(), out.end(), out.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return out;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> fields;
    for (size_t start = 0;;) {
        const size_t end = text.find(separator, start);
        fields.push_back(trimmed(text.substr(start, end - start)));
        if (end == std::string_view::npos) return fields;
        start = end + 1;
    }
}

// The first line of a small sysfs or procfs file, trimmed; empty when there is none.
std::string firstLine(const fs::path& file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return std::string(trimmed(line));
}

std::vector<std::string> linesOf(const fs::path& file) {
    std::ifstream in(file);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(std::move(line));
    return lines;
}

std::vector<fs::path> entriesOf(const fs::path& dir) {
    std::vector<fs::path> entries;
    std::error_code ec;
    for (fs::directory_iterator it(dir, ec), end; !ec && it != end; it.increment(ec)) entries.push_back(it->path());
    return entries;
}

template <typename Number>
std::optional<Number> numberIn(std::string_view text) {
    Number value{};
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// ---- PCI display adapters ----

struct PciNames {
    std::string vendor, device, subsystem;
};

std::string_view bareHex(std::string_view id) { return id.starts_with("0x") ? id.substr(2) : id; }

// Whether `line` holds `id` at `at`, followed by the whitespace that separates it from the name.
bool idAt(std::string_view line, size_t at, std::string_view id) {
    const size_t end = at + id.size();
    return !id.empty() && line.size() > end && line.substr(at, id.size()) == id &&
           (line[end] == ' ' || line[end] == '\t');
}

std::string nameAfter(std::string_view line, size_t at) { return std::string(trimmed(line.substr(at))); }

// Vendors are unindented, their devices indented once and a device's subsystems twice; the class
// section ("C xx") follows all vendors. One pass that stops at the end of the vendor's block, as
// the database is over a megabyte and only one vendor matters.
PciNames pciNames(const fs::path& database, const GraphicsAdapter& adapter) {
    PciNames names;
    const std::string_view vendor = bareHex(adapter.vendorId), device = bareHex(adapter.deviceId);
    const std::string subsystem =
        std::string(bareHex(adapter.subsystemVendorId)) + " " + std::string(bareHex(adapter.subsystemDeviceId));
    std::ifstream in(database);
    bool inVendor = false, inDevice = false;
    for (std::string text; std::getline(in, text);) {
        const std::string_view line = text;
        if (line.empty() || line[0] == '#') continue;
        if (line[0] != '\t') {
            if (inVendor || line.starts_with("C ")) break;
            if (idAt(line, 0, vendor)) {
                names.vendor = nameAfter(line, vendor.size());
                inVendor = true;
            }
        } else if (inVendor && !line.starts_with("\t\t")) {
            if (inDevice) break;
            if (idAt(line, 1, device)) {
                names.device = nameAfter(line, 1 + device.size());
                inDevice = true;
            }
        } else if (inDevice && idAt(line, 2, subsystem)) {
            names.subsystem = nameAfter(line, 2 + subsystem.size());
            break;
        }
    }
    return names;
}

std::optional<fs::path> pciDatabase(const SniffRoots& roots) {
    for (const std::string& candidate : roots.pciIds) {
        std::error_code ec;
        if (fs::is_regular_file(candidate, ec)) return candidate;
    }
    return std::nullopt;
}

// "card0" but not its connectors ("card0-HDMI-A-1").
bool isDrmCard(const std::string& name) {
    return name.size() > 4 && name.starts_with("card") &&
           std::all_of(name.begin() + 4, name.end(), [](unsigned char c) { return std::isdigit(c); });
}

// The memory NVML reports for the device at a PCI address, or 0. The library is loaded for the
// call and let go after: no build dependency, and nothing of it stays without a driver.
uint64_t nvmlMemoryBytes(const std::string& library, const std::string& address) {
    struct Memory {
        unsigned long long total, free, used;
    };
    using Init = int (*)();
    using Shutdown = int (*)();
    using ByBusId = int (*)(const char*, void**);
    using MemoryInfo = int (*)(void*, Memory*);
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return 0;
    const auto init = reinterpret_cast<Init>(dlsym(handle, "nvmlInit_v2"));
    const auto shutdown = reinterpret_cast<Shutdown>(dlsym(handle, "nvmlShutdown"));
    const auto byBusId = reinterpret_cast<ByBusId>(dlsym(handle, "nvmlDeviceGetHandleByPciBusId_v2"));
    const auto memoryInfo = reinterpret_cast<MemoryInfo>(dlsym(handle, "nvmlDeviceGetMemoryInfo"));
    uint64_t bytes = 0;
    if (init != nullptr && shutdown != nullptr && byBusId != nullptr && memoryInfo != nullptr && init() == 0) {
        void* device = nullptr;
        Memory memory{};
        if (byBusId(address.c_str(), &device) == 0 && memoryInfo(device, &memory) == 0) bytes = memory.total;
        shutdown();
    }
    dlclose(handle);
    return bytes;
}

GraphicsAdapter adapterAt(const std::string& address, const fs::path& dir, const SniffRoots& roots,
                          const std::optional<fs::path>& database) {
    GraphicsAdapter adapter;
    adapter.address = address;
    adapter.vendorId = lowered(firstLine(dir / "vendor"));
    adapter.deviceId = lowered(firstLine(dir / "device"));
    adapter.subsystemVendorId = lowered(firstLine(dir / "subsystem_vendor"));
    adapter.subsystemDeviceId = lowered(firstLine(dir / "subsystem_device"));
    adapter.revision = lowered(firstLine(dir / "revision"));
    std::error_code ec;
    const fs::path driver = fs::read_symlink(dir / "driver", ec);
    if (!ec) {
        adapter.driver = driver.filename().string();
        // sysfs spells module names with underscores where driver names may have hyphens.
        std::string module = adapter.driver;
        std::replace(module.begin(), module.end(), '-', '_');
        adapter.driverVersion = firstLine(fs::path(roots.sys) / "module" / module / "version");
    }
    adapter.videoMemoryBytes = numberIn<uint64_t>(firstLine(dir / "mem_info_vram_total")).value_or(0);
    if (adapter.videoMemoryBytes == 0 && adapter.vendorId == kNvidiaVendorId) {
        adapter.videoMemoryBytes = nvmlMemoryBytes(roots.nvml, address);
    }
    if (database) {
        PciNames names = pciNames(*database, adapter);
        adapter.vendorName = std::move(names.vendor);
        adapter.deviceName = std::move(names.device);
        adapter.subsystemName = std::move(names.subsystem);
    }
    return adapter;
}

// ---- ALSA cards ----

// " 0 [PCH            ]: HDA-Intel - HDA Intel PCH"
std::optional<SoundCard> cardHeader(std::string_view line) {
    line = trimmed(line);
    const size_t open = line.find('['), close = line.find("]:");
    if (open == std::string_view::npos || close == std::string_view::npos || close < open) return std::nullopt;
    const std::optional<int> index = numberIn<int>(trimmed(line.substr(0, open)));
    if (!index || *index < 0) return std::nullopt;
    SoundCard card;
    card.index = *index;
    card.id = trimmed(line.substr(open + 1, close - open - 1));
    const std::string_view description = trimmed(line.substr(close + 2));
    const size_t dash = description.find(" - ");
    card.driver = trimmed(description.substr(0, dash));
    if (dash != std::string_view::npos) card.name = trimmed(description.substr(dash + 3));
    return card;
}

// "00-03: HDMI 0 : HDMI 0 : playback 1": card-device, then id, name and the directions it has.
void addPlaybackDevice(std::string_view line, std::vector<SoundCard>& cards) {
    const size_t dash = line.find('-'), colon = line.find(':');
    if (dash == std::string_view::npos || colon == std::string_view::npos || colon < dash) return;
    const std::optional<int> index = numberIn<int>(trimmed(line.substr(0, dash)));
    const auto card = std::find_if(cards.begin(), cards.end(), [&](const SoundCard& c) { return index == c.index; });
    if (card == cards.end()) return;
    const std::vector<std::string_view> fields = split(line.substr(colon + 1), ':');
    if (fields.size() < 3) return;
    const bool plays =
        std::any_of(fields.begin() + 2, fields.end(), [](std::string_view f) { return f.starts_with("playback"); });
    if (plays) card->playbackDevices.emplace_back(fields[1].empty() ? fields[0] : fields[1]);
}

// ---- OpenGL ----

std::string eglFailure(std::string_view what) {
    char hex[16];
    const auto [end, ec] = std::to_chars(hex, hex + sizeof hex, eglGetError(), 16);
    return std::string(what) + " (error 0x" + std::string(hex, end) + ")";
}

bool hasExtension(const char* extensions, std::string_view name) {
    if (!extensions) return false;
    const std::vector<std::string_view> names = split(extensions, ' ');
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Releases whatever readOpenGL got as far as creating, but for the display itself: terminating it
// unloads the driver (llvmpipe takes a good part of a second to load again), and what the driver
// keeps for the process would then show as lost memory of no module. An EGL display belongs to the
// process anyway, and the next sniff finds it initialised.
struct EglSession {
    EGLDisplay display = EGL_NO_DISPLAY;
    EGLContext context = EGL_NO_CONTEXT;
    EGLSurface surface = EGL_NO_SURFACE;

    ~EglSession() {
        if (display != EGL_NO_DISPLAY) {
            eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
            if (context != EGL_NO_CONTEXT) eglDestroyContext(display, context);
            if (surface != EGL_NO_SURFACE) eglDestroySurface(display, surface);
        }
        eglReleaseThread();
    }
};

constexpr unsigned kGlVendor = 0x1F00, kGlRenderer = 0x1F01, kGlVersion = 0x1F02, kGlExtensions = 0x1F03;
constexpr unsigned kGlDedicatedVideoMemoryNvx = 0x9047;  // GL_GPU_MEMORY_INFO_DEDICATED_VIDMEM_NVX, in KiB
constexpr std::string_view kSoftwareRenderers[] = {"llvmpipe", "softpipe", "swrast"};

// Fills `info` and returns why there is no OpenGL, or nothing when there is.
std::string readOpenGL(OpenGLInfo& info) {
    EglSession egl;
    EGLDisplay display = EGL_NO_DISPLAY;
    const auto platformDisplay =
        reinterpret_cast<PFNEGLGETPLATFORMDISPLAYEXTPROC>(eglGetProcAddress("eglGetPlatformDisplayEXT"));
    if (platformDisplay) display = platformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    // Without Mesa's surfaceless platform the default display may still render offscreen.
    if (display == EGL_NO_DISPLAY) display = eglGetDisplay(EGL_DEFAULT_DISPLAY);
    if (display == EGL_NO_DISPLAY) return "no EGL display";
    if (!eglInitialize(display, nullptr, nullptr)) return eglFailure("EGL cannot be initialised");
    egl.display = display;
    if (!eglBindAPI(EGL_OPENGL_API)) return eglFailure("EGL has no desktop OpenGL");

    const char* extensions = eglQueryString(display, EGL_EXTENSIONS);
    const bool surfaceless = hasExtension(extensions, "EGL_KHR_surfaceless_context");
    EGLConfig config = EGL_NO_CONFIG_KHR;
    if (!surfaceless || !hasExtension(extensions, "EGL_KHR_no_config_context")) {
        const EGLint wanted[] = {EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_NONE};
        EGLint count = 0;
        if (!eglChooseConfig(display, wanted, &config, 1, &count)) return eglFailure("EGL cannot choose a config");
        if (count < 1) return "no EGL config for desktop OpenGL";
    }
    // No attributes: a compatibility context, where GL_EXTENSIONS is still one string.
    egl.context = eglCreateContext(display, config, EGL_NO_CONTEXT, nullptr);
    if (egl.context == EGL_NO_CONTEXT) return eglFailure("EGL cannot create an OpenGL context");
    if (!surfaceless) {
        const EGLint size[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
        egl.surface = eglCreatePbufferSurface(display, config, size);
        if (egl.surface == EGL_NO_SURFACE) return eglFailure("EGL cannot create a pbuffer");
    }
    if (!eglMakeCurrent(display, egl.surface, egl.surface, egl.context)) {
        return eglFailure("EGL cannot make the OpenGL context current");
    }

    // Through EGL rather than linking libGL, which may be absent or belong to another vendor.
    using GetString = const unsigned char*(EGLAPIENTRY*)(unsigned);
    const auto getString = reinterpret_cast<GetString>(eglGetProcAddress("glGetString"));
    if (!getString) return "no glGetString";
    const auto text = [&](unsigned name) {
        const unsigned char* value = getString(name);
        return value ? std::string(reinterpret_cast<const char*>(value)) : std::string();
    };
    info.vendor = text(kGlVendor);
    info.renderer = text(kGlRenderer);
    info.version = text(kGlVersion);
    info.extensions = text(kGlExtensions);
    if (hasExtension(info.extensions.c_str(), "GL_NVX_gpu_memory_info")) {
        using GetIntegerv = void(EGLAPIENTRY*)(unsigned, int*);
        const auto getIntegerv = reinterpret_cast<GetIntegerv>(eglGetProcAddress("glGetIntegerv"));
        int kilobytes = 0;
        if (getIntegerv) getIntegerv(kGlDedicatedVideoMemoryNvx, &kilobytes);
        info.videoMemoryBytes = kilobytes > 0 ? static_cast<uint64_t>(kilobytes) * 1024 : 0;
    }
    if (info.renderer.empty() || info.version.empty()) return "OpenGL names no renderer";
    const std::string renderer = lowered(info.renderer);
    info.software = std::any_of(std::begin(kSoftwareRenderers), std::end(kSoftwareRenderers),
                                [&](std::string_view name) { return renderer.find(name) != std::string::npos; });
    return {};
}

}  // namespace

std::vector<GraphicsAdapter> sniffGraphicsAdapters(const SniffRoots& roots) {
    const fs::path pciDevices = fs::path(roots.sys) / "bus" / "pci" / "devices";
    std::map<std::string, fs::path> displays;  // by address: ordered, and each device once
    for (const fs::path& device : entriesOf(pciDevices)) {
        if (firstLine(device / "class").starts_with("0x03")) displays.emplace(device.filename().string(), device);
    }
    // A device the kernel drives as a DRM card counts whatever its class says.
    for (const fs::path& card : entriesOf(fs::path(roots.sys) / "class" / "drm")) {
        if (!isDrmCard(card.filename().string())) continue;
        std::error_code ec;
        const fs::path target = fs::canonical(card / "device", ec);
        if (ec) continue;
        const fs::path pci = pciDevices / target.filename();
        if (fs::equivalent(target, pci, ec)) displays.emplace(target.filename().string(), pci);
    }
    const std::optional<fs::path> database = pciDatabase(roots);
    std::vector<GraphicsAdapter> adapters;
    for (const auto& [address, dir] : displays) adapters.push_back(adapterAt(address, dir, roots, database));
    return adapters;
}

std::vector<SoundCard> sniffSoundCards(const SniffRoots& roots) {
    const fs::path asound = fs::path(roots.proc) / "asound";
    std::vector<SoundCard> cards;
    for (const std::string& line : linesOf(asound / "cards")) {
        if (std::optional<SoundCard> card = cardHeader(line)) {
            cards.push_back(std::move(*card));
        } else if (!cards.empty() && cards.back().longName.empty() && line.starts_with(' ')) {
            // The indented line under a card's header is its long name.
            cards.back().longName = trimmed(line);
        }
    }
    for (const std::string& line : linesOf(asound / "pcm")) addPlaybackDevice(line, cards);
    std::stable_sort(cards.begin(), cards.end(),
                     [](const SoundCard& a, const SoundCard& b) { return a.index < b.index; });
    return cards;
}

OpenGLInfo sniffOpenGL() {
    OpenGLInfo info;
    info.failure = readOpenGL(info);
    info.available = info.failure.empty();
    return info;
}

}  // namespace ky
