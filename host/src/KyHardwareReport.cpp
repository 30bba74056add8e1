// The host's hardware sniff: what SDL2 says of displays and audio output (asked on the main thread,
// where SDL's video belongs), then on a thread of its own what sysfs, procfs and an offscreen
// OpenGL context say, written as the XML description <configuration> that Tessera delivers.
//   local sniff = KyHardwareSniffer.start(action)  -- triggers the action when the XML is ready
//   local ok, xml = sniff:result()                 -- nil until then
// Values are plain text that an XSLT stylesheet may quote into Lua source, so they hold no double
// quote, backslash or line break.
#include <SDL.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "KyAlsaMessages.h"
#include "KyHardwareSniffer.h"
#include "KyHostModules.h"
#include "KyLoop.h"
#include "KyTransit.h"
#include "Win32Window.h"

namespace {

constexpr const char* kSniffMeta = "KyHardwareSniff";
constexpr const char* kNone = "none";

struct Field {
    std::string name;
    std::string value;
};

// What SDL reports, gathered on the main thread.
struct SdlFacts {
    std::vector<Field> fields;
};

struct Job {
    std::mutex lock;
    std::optional<std::string> description;
    bool delivered = false;
};

std::string plain(const std::string& text) {
    std::string out;
    for (const char c : text) {
        if (c == '"') out += '\'';
        else if (c == '\\') out += '/';
        else if (static_cast<unsigned char>(c) < 0x20) out += ' ';
        else out += c;
    }
    return out;
}

std::string xmlEscaped(const std::string& text) {
    std::string out;
    for (const char c : plain(text)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '\'': out += "&apos;"; break;
            default: out += c;
        }
    }
    return out;
}

std::string named(const std::string& id, const std::string& name) { return name.empty() ? id : id + " " + name; }

std::string megabytes(uint64_t bytes) {
    return bytes == 0 ? "unknown" : std::to_string(bytes / (1024 * 1024)) + " MB";
}

SdlFacts sdlFacts() {
    KySdl_quitAtExit();
    SdlFacts facts;
    auto add = [&facts](const std::string& name, const std::string& value) { facts.fields.push_back({name, value}); };
    // Without a display server SDL would fall back to its offscreen driver, which is no display;
    // probing the servers' libraries also prints their complaints, so it is not tried.
    const bool server = std::getenv("DISPLAY") || std::getenv("WAYLAND_DISPLAY") || std::getenv("SDL_VIDEODRIVER");
    const char* driver = nullptr;
    if (!server) {
        add("DisplayCount", "0");
        add("Displays", "none: no display server (neither DISPLAY nor WAYLAND_DISPLAY is set)");
    } else if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0) {
        add("DisplayCount", "0");
        add("Displays", std::string("none: ") + SDL_GetError());
    } else if (driver = SDL_GetCurrentVideoDriver(); std::string(driver) == "offscreen" || std::string(driver) == "dummy") {
        add("DisplayCount", "0");
        add("Displays", std::string("none: SDL draws offscreen (") + driver + ")");
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
    } else {
        add("DisplayDriver", SDL_GetCurrentVideoDriver());
        const int count = SDL_GetNumVideoDisplays();
        add("DisplayCount", std::to_string(count < 0 ? 0 : count));
        for (int i = 0; i < count; ++i) {
            SDL_DisplayMode mode{};
            if (SDL_GetCurrentDisplayMode(i, &mode) != 0) continue;
            std::ostringstream text;
            text << mode.w << "x" << mode.h;
            if (mode.refresh_rate > 0) text << " @ " << mode.refresh_rate << " Hz";
            add("Display" + std::to_string(i + 1), text.str());
        }
        SDL_QuitSubSystem(SDL_INIT_VIDEO);
    }
    const KyAlsaMessages alsa;
    if (SDL_InitSubSystem(SDL_INIT_AUDIO) == 0) {
        add("AudioDriver", SDL_GetCurrentAudioDriver());
        char* name = nullptr;
        SDL_AudioSpec format{};
        if (SDL_GetDefaultAudioInfo(&name, &format, 0) == 0) {
            add("AudioOutput", name ? name : "default");
            add("AudioSampleRate", std::to_string(format.freq));
            add("AudioChannels", std::to_string(format.channels));
            SDL_free(name);
        } else {
            add("AudioOutput", kNone);
        }
        SDL_QuitSubSystem(SDL_INIT_AUDIO);
    } else {
        add("AudioOutput", std::string("none: ") + SDL_GetError());
    }
    if (const std::string said = KyAlsaMessages::taken(); !said.empty()) add("AudioMessages", "ALSA: " + said);
    return facts;
}

std::string describe(const SdlFacts& facts) {
    std::vector<Field> fields;
    utsname system{};
    if (uname(&system) == 0) fields.push_back({"OperatingSystem", std::string(system.sysname) + " " + system.release});
    fields.insert(fields.end(), facts.fields.begin(), facts.fields.end());

    const ky::OpenGLInfo gl = ky::sniffOpenGL();
    if (gl.available) {
        fields.push_back({"GL_VENDOR", gl.vendor});
        fields.push_back({"GL_RENDERER", gl.renderer});
        fields.push_back({"GL_VERSION", gl.version});
        fields.push_back({"GL_EXTENSIONS", gl.extensions});
        fields.push_back({"SoftwareRendering", gl.software ? "true" : "false"});
    } else {
        fields.push_back({"OpenGL", "none: " + gl.failure});
    }

    std::vector<ky::GraphicsAdapter> adapters = ky::sniffGraphicsAdapters(ky::SniffRoots());
    // The OpenGL context's figure belongs to the NVIDIA adapter when there is just one.
    const auto nvidia = std::count_if(adapters.begin(), adapters.end(), [](const ky::GraphicsAdapter& a) {
        return a.vendorId == ky::kNvidiaVendorId;
    });
    for (ky::GraphicsAdapter& a : adapters) {
        if (a.videoMemoryBytes == 0 && nvidia == 1 && a.vendorId == ky::kNvidiaVendorId) {
            a.videoMemoryBytes = gl.videoMemoryBytes;
        }
    }
    fields.push_back({"AdapterCount", std::to_string(adapters.size())});
    for (size_t i = 0; i < adapters.size(); ++i) {
        const ky::GraphicsAdapter& a = adapters[i];
        const std::string driver = a.driver.empty() ? kNone : named(a.driver, a.driverVersion);
        fields.push_back({"Adapter" + std::to_string(i + 1) + "Driver", driver + " at " + a.address});
    }
    const std::vector<ky::SoundCard> cards = ky::sniffSoundCards(ky::SniffRoots());
    fields.push_back({"SoundCardCount", std::to_string(cards.size())});
    for (const ky::SoundCard& card : cards) {
        std::string text = card.name + " (" + card.driver + ")";
        for (size_t i = 0; i < card.playbackDevices.size(); ++i) text += (i == 0 ? ": " : ", ") + card.playbackDevices[i];
        fields.push_back({"SoundCard" + std::to_string(card.index), text});
    }

    std::ostringstream xml;
    xml << "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<configuration>\n";
    for (const Field& field : fields) {
        xml << "  <" << field.name << ">" << xmlEscaped(field.value) << "</" << field.name << ">\n";
    }
    xml << "  <Adapters>\n";
    for (const ky::GraphicsAdapter& a : adapters) {
        xml << "    <Adapter VendorId='" << xmlEscaped(named(a.vendorId, a.vendorName)) << "' DeviceId='"
            << xmlEscaped(named(a.deviceId, a.deviceName)) << "' SubSysId='"
            << xmlEscaped(named(a.subsystemVendorId + ":" + a.subsystemDeviceId, a.subsystemName)) << "' Revision='"
            << xmlEscaped(a.revision) << "' videoMemory='" << xmlEscaped(megabytes(a.videoMemoryBytes)) << "'/>\n";
    }
    xml << "  </Adapters>\n</configuration>\n";
    return xml.str();
}

std::shared_ptr<Job>& jobAt(lua_State* L, int index) {
    return *static_cast<std::shared_ptr<Job>*>(luaL_checkudata(L, index, kSniffMeta));
}

// sniff:result() -> true and the XML once it is ready (once: the sniff then counts as done for
// the event loop), else nil.
int result(lua_State* L) {
    const std::shared_ptr<Job> job = jobAt(L, 1);
    std::lock_guard<std::mutex> hold(job->lock);
    if (!job->description) {
        lua_pushnil(L);
        return 1;
    }
    if (!job->delivered) {
        job->delivered = true;
        if (const std::shared_ptr<ky::LoopState> loop = ky::loopOf(L)) --loop->backgroundJobs;
    }
    lua_pushboolean(L, 1);
    lua_pushlstring(L, job->description->data(), job->description->size());
    return 2;
}

int collect(lua_State* L) {
    jobAt(L, 1).~shared_ptr<Job>();
    return 0;
}

// start(action): the action is kept by the sniff object, which the caller keeps until the result.
int start(lua_State* L) {
    KyMainThreadAction action = KyMainThreadAction_copy(L, 1);
    auto job = std::make_shared<Job>();
    new (lua_newuserdata(L, sizeof(std::shared_ptr<Job>))) std::shared_ptr<Job>(job);
    static const luaL_Reg methods[] = {{"result", result}, {"__gc", collect}, {nullptr, nullptr}};
    ky::pushMetatable(L, kSniffMeta, methods);
    lua_setmetatable(L, -2);
    KyDirectObject_keepLuaValue(L, -1, 1);
    ++ky::loopOf(L)->backgroundJobs;
    std::thread([job, action, facts = sdlFacts()] {
        std::string description = describe(facts);
        {
            std::lock_guard<std::mutex> hold(job->lock);
            job->description = std::move(description);
        }
        KyMainThreadAction_trigger(action);
        KyMainThreadAction_release(action);
    }).detach();
    return 1;
}

}  // namespace

const luaL_Reg ky::kHardwareSnifferFunctions[] = {{"start", start}, {nullptr, nullptr}};
