// The hardware sniffer against fixture sysfs/procfs trees and id databases, against broken files,
// and once against this machine as lspci, aplay and EGL see it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "KyHardwareSniffer.h"

namespace {

namespace fs = std::filesystem;

auto fields(const ky::GraphicsAdapter& a) {
    return std::make_tuple(a.address, a.vendorId, a.deviceId, a.subsystemVendorId, a.subsystemDeviceId, a.revision,
                           a.vendorName, a.deviceName, a.subsystemName, a.driver, a.driverVersion, a.videoMemoryBytes);
}

auto fields(const ky::SoundCard& c) {
    return std::make_tuple(c.index, c.id, c.driver, c.name, c.longName, c.playbackDevices);
}

const char* const kPciIds =
    "# pci.ids fixture\n"
    "#\tcomments may look like entries: 10de  Not a vendor\n"
    "\n"
    "1002  Advanced Micro Devices, Inc. [AMD/ATI]\n"
    "\t67df  Ellesmere [Radeon RX 470/480/570/570X/580/580X/590]\n"
    "\t\t1462 3416  Radeon RX 570\n"
    "\t\t1462 3417  Radeon RX 580 Armor 4G OC\n"
    "\t67ef  Baffin\n"
    "8086  Intel Corporation\n"
    "\t15bb  Ethernet Connection (7) I219-LM\n"
    "\t\t1028 0869  Belongs to the network device only\n"
    "\t3e91  CoffeeLake-S GT2\n"
    "C 03  Display controller\n"
    "\t00  VGA compatible controller\n"
    "1234  Below the class section, so never a vendor\n";

class HardwareSnifferTest : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        root = fs::temp_directory_path() /
               ("ky-hardware-" + std::to_string(getpid()) + "-" + info->name());
        fs::remove_all(root);
        fs::create_directories(root);
        roots.sys = (root / "sys").string();
        roots.proc = (root / "proc").string();
        roots.pciIds = {(root / "missing.ids").string(), (root / "pci.ids").string()};
    }

    void TearDown() override {
        std::error_code ec;
        fs::remove_all(root, ec);
    }

    void write(const fs::path& relative, const std::string& text) {
        fs::create_directories((root / relative).parent_path());
        std::ofstream(root / relative, std::ios::binary) << text;
    }

    void link(const fs::path& relativeTarget, const fs::path& relativeLink) {
        fs::create_directories((root / relativeLink).parent_path());
        fs::create_directory_symlink(root / relativeTarget, root / relativeLink);
    }

    // A PCI device as sysfs lays it out: under devices/, named by bus/pci/devices/.
    void pciDevice(const std::string& address, const std::string& cls, const std::string& vendor,
                   const std::string& device, const std::string& subVendor, const std::string& subDevice) {
        const fs::path dir = fs::path("sys/devices/pci0000:00") / address;
        for (const auto& [file, value] : {std::pair{"class", cls}, {"vendor", vendor}, {"device", device},
                                          {"subsystem_vendor", subVendor}, {"subsystem_device", subDevice},
                                          {"revision", std::string("0xE7")}}) {
            write(dir / file, value + "\n");
        }
        link(dir, fs::path("sys/bus/pci/devices") / address);
    }

    // Two display adapters (one driven, one not), a network device, and a device that only the DRM
    // class says is a display.
    void machine() {
        pciDevice("0000:01:00.0", "0x030000", "0x1002", "0x67DF", "0x1462", "0x3416");
        write("sys/devices/pci0000:00/0000:01:00.0/mem_info_vram_total", "8589934592\n");
        link("sys/bus/pci/drivers/amdgpu", "sys/devices/pci0000:00/0000:01:00.0/driver");
        write("sys/module/amdgpu/version", "3.57.0\n");
        pciDevice("0000:00:02.0", "0x038000", "0x8086", "0x3e92", "0x1028", "0x0869");
        pciDevice("0000:00:1f.6", "0x020000", "0x8086", "0x15bb", "0x1028", "0x0869");
        pciDevice("0000:00:05.0", "0x048000", "0x1234", "0x1111", "0x1af4", "0x1100");
        link("sys/devices/pci0000:00/0000:01:00.0", "sys/class/drm/card0/device");
        link("sys/devices/pci0000:00/0000:00:05.0", "sys/class/drm/card1/device");
        link("sys/devices/pci0000:00/0000:00:1f.6", "sys/class/drm/card0-HDMI-A-1/device");
        link("sys/devices/pci0000:00/0000:00:1f.6", "sys/class/drm/renderD128/device");
        link("sys/devices/platform/simple-framebuffer.0", "sys/class/drm/card2/device");
        fs::create_directories(root / "sys/devices/platform/simple-framebuffer.0");
    }

    fs::path root;
    ky::SniffRoots roots;
};

TEST_F(HardwareSnifferTest, AdaptersAreDisplayDevicesAndDrmCardsNamedThroughTheDatabase) {
    machine();
    write("pci.ids", kPciIds);
    const std::vector<ky::GraphicsAdapter> adapters = ky::sniffGraphicsAdapters(roots);
    ASSERT_EQ(adapters.size(), 3u);
    EXPECT_EQ(fields(adapters[0]), fields(ky::GraphicsAdapter{"0000:00:02.0", "0x8086", "0x3e92", "0x1028", "0x0869",
                                                             "0xe7", "Intel Corporation", "", "", "", "", 0}));
    EXPECT_EQ(fields(adapters[1]), fields(ky::GraphicsAdapter{"0000:00:05.0", "0x1234", "0x1111", "0x1af4", "0x1100",
                                                             "0xe7", "", "", "", "", "", 0}));
    EXPECT_EQ(fields(adapters[2]),
              fields(ky::GraphicsAdapter{"0000:01:00.0", "0x1002", "0x67df", "0x1462", "0x3416", "0xe7",
                                         "Advanced Micro Devices, Inc. [AMD/ATI]",
                                         "Ellesmere [Radeon RX 470/480/570/570X/580/580X/590]", "Radeon RX 570",
                                         "amdgpu", "3.57.0", 8589934592u}));
}

// An NVIDIA adapter under the proprietary driver has no memory node: NVML tells, where it loads.
TEST_F(HardwareSnifferTest, NvidiaMemoryComesFromNvmlWhereSysfsIsSilent) {
    pciDevice("0000:02:00.0", "0x030000", "0x10de", "0x2204", "0x10de", "0x1454");
    pciDevice("0000:03:00.0", "0x030200", "0x10de", "0x20b0", "0x10de", "0x134f");
    pciDevice("0000:04:00.0", "0x030000", "0x10de", "0x2204", "0x10de", "0x1454");
    write("sys/devices/pci0000:00/0000:04:00.0/mem_info_vram_total", "1048576\n");
    const struct {
        std::string library;
        std::vector<uint64_t> bytes;
    } cases[] = {
        {FAKE_NVML, {24ull << 30, 0, 1048576}},  // known, unknown to NVML, told by sysfs
        {(root / "no-such-nvml.so").string(), {0, 0, 1048576}},
    };
    for (const auto& c : cases) {
        roots.nvml = c.library;
        std::vector<uint64_t> bytes;
        for (const ky::GraphicsAdapter& adapter : ky::sniffGraphicsAdapters(roots)) bytes.push_back(adapter.videoMemoryBytes);
        EXPECT_EQ(bytes, c.bytes) << c.library;
    }
}

TEST_F(HardwareSnifferTest, BrokenSysfsAndDatabasesOnlyLeaveFieldsEmpty) {
    const struct {
        const char* label;
        const char* cls;
        const char* database;
        size_t adapters;
        const char* deviceName;
    } cases[] = {
        {"empty class and database", "", "", 0, ""},
        {"garbage class", "display\n", "garbage\n\t\t\t\n\xff\xfe\n", 0, ""},
        {"truncated class", "0x0", kPciIds, 0, ""},
        {"unterminated class", "0x0300", kPciIds, 1, "Ellesmere [Radeon RX 470/480/570/570X/580/580X/590]"},
        {"truncated database lines", "0x030000\n", "1002\n\t67df\n\t\t1462\n1002 \n\t67\n\t67df", 1, ""},
        {"database with only a class section", "0x030000\n", "C 03  Display controller\n1002  x\n", 1, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        fs::remove_all(root / "sys");
        write("sys/bus/pci/devices/0000:01:00.0/class", c.cls);
        write("sys/bus/pci/devices/0000:01:00.0/vendor", "0x1002");
        write("sys/bus/pci/devices/0000:01:00.0/device", "0x67df\n");
        fs::create_directories(root / "sys/bus/pci/devices/0000:01:00.0/driver");  // not a link
        write("sys/bus/pci/devices/0000:01:00.0/mem_info_vram_total", "lots\n");
        link("sys/nowhere", "sys/class/drm/card0/device");
        write("pci.ids", c.database);
        const std::vector<ky::GraphicsAdapter> adapters = ky::sniffGraphicsAdapters(roots);
        ASSERT_EQ(adapters.size(), c.adapters);
        if (adapters.empty()) continue;
        EXPECT_EQ(adapters[0].deviceId, "0x67df");
        EXPECT_EQ(adapters[0].deviceName, c.deviceName);
        EXPECT_EQ(adapters[0].subsystemVendorId + adapters[0].subsystemName, "");
        EXPECT_EQ(adapters[0].driver, "");
        EXPECT_EQ(adapters[0].videoMemoryBytes, 0u);
    }
    roots.sys = (root / "absent").string();
    EXPECT_TRUE(ky::sniffGraphicsAdapters(roots).empty());
}

TEST_F(HardwareSnifferTest, SoundCardsCarryTheirPlaybackDevicesInIndexOrder) {
    write("proc/asound/cards",
          " 3 [Device         ]: USB-Audio - USB Audio Device\n"
          " 0 [PCH            ]: HDA-Intel - HDA Intel PCH\n"
          "                      HDA Intel PCH at 0xf7f10000 irq 32\n");
    write("proc/asound/pcm",
          "00-00: ALC892 Analog : ALC892 Analog : playback 1 : capture 1\n"
          "00-02: ALC892 Alt Analog : ALC892 Alt Analog : capture 1\n"
          "00-03: HDMI 0 : HDMI 0 : playback 1\n"
          "03-00: USB Audio : USB Audio : capture 1\n"
          "07-00: Gone : Gone : playback 1\n");
    const std::vector<ky::SoundCard> cards = ky::sniffSoundCards(roots);
    ASSERT_EQ(cards.size(), 2u);
    EXPECT_EQ(fields(cards[0]), fields(ky::SoundCard{0, "PCH", "HDA-Intel", "HDA Intel PCH",
                                                     "HDA Intel PCH at 0xf7f10000 irq 32",
                                                     {"ALC892 Analog", "HDMI 0"}}));
    EXPECT_EQ(fields(cards[1]), fields(ky::SoundCard{3, "Device", "USB-Audio", "USB Audio Device", "", {}}));
}

TEST_F(HardwareSnifferTest, BrokenAsoundFilesGiveFewerCardsOrNone) {
    const struct {
        const char* label;
        const char* cards;
        const char* pcm;
        size_t cardCount;
        size_t playbackCount;
    } cases[] = {
        {"empty files", "", "", 0, 0},
        {"no cards", "--- no soundcards ---\n", "", 0, 0},
        {"garbage", "\xff\xfe]:[ \n  indented before any card\n[]:\n", "::::\n-:\n\xff-\xfe: a : b : playback\n", 0,
         0},
        {"truncated header", " 0 [PCH   ", "00-00: A : A : playback 1\n", 0, 0},
        {"negative index", "-1 [PCH ]: HDA-Intel - HDA Intel PCH\n", "", 0, 0},
        {"header without a name", " 0 [PCH ]: HDA-Intel\n", "00-00: A : A : playback 1\n", 1, 1},
        {"truncated pcm lines", " 0 [PCH ]: HDA-Intel - PCH\n", "00-00: ALC892\n00-0\n00\n00-01: A : playb", 1, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        write("proc/asound/cards", c.cards);
        write("proc/asound/pcm", c.pcm);
        const std::vector<ky::SoundCard> cards = ky::sniffSoundCards(roots);
        ASSERT_EQ(cards.size(), c.cardCount);
        size_t playback = 0;
        for (const ky::SoundCard& card : cards) playback += card.playbackDevices.size();
        EXPECT_EQ(playback, c.playbackCount);
    }
    fs::remove_all(root / "proc");
    EXPECT_TRUE(ky::sniffSoundCards(roots).empty());
}

// ---- This machine ----

bool onPath(const std::string& program) {
    return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

std::vector<std::string> outputLines(const char* command) {
    std::vector<std::string> lines;
    FILE* pipe = popen(command, "r");
    if (!pipe) return lines;
    for (char line[4096]; fgets(line, sizeof line, pipe);) lines.emplace_back(line);
    pclose(pipe);
    return lines;
}

std::string bare(const std::string& id) { return id.substr(id.rfind('x') + 1); }

TEST(HardwareSnifferMachineTest, AdaptersAreTheDisplayDevicesLspciLists) {
    if (!onPath("lspci")) GTEST_SKIP() << "no lspci";
    // "01:00.0 VGA compatible controller [0300]: NVIDIA Corporation GP104 [10de:1b81] (rev a1)"
    std::multiset<std::string> listed;
    for (const std::string& line : outputLines("lspci -nn 2>/dev/null")) {
        const size_t classEnd = line.find("]: "), ids = line.rfind('[', line.rfind(':'));
        if (classEnd == std::string::npos || ids == std::string::npos || ids < classEnd) continue;
        if (line.compare(line.rfind('[', classEnd) + 1, 2, "03") == 0) listed.insert(line.substr(ids + 1, 9));
    }
    std::multiset<std::string> sniffed;
    for (const ky::GraphicsAdapter& a : ky::sniffGraphicsAdapters({})) {
        sniffed.insert(bare(a.vendorId) + ":" + bare(a.deviceId));
    }
    EXPECT_EQ(sniffed, listed);
}

TEST(HardwareSnifferMachineTest, CardsWithPlaybackAreTheCardsAplayLists) {
    if (!onPath("aplay")) GTEST_SKIP() << "no aplay";
    // "card 0: PCH [HDA Intel PCH], device 0: ALC892 Analog [ALC892 Analog]"
    std::set<std::string> listed;
    for (const std::string& line : outputLines("aplay -l 2>/dev/null")) {
        if (line.starts_with("card ")) listed.insert(line.substr(5, line.find(':') - 5));
    }
    size_t playing = 0;
    for (const ky::SoundCard& card : ky::sniffSoundCards({})) playing += card.playbackDevices.empty() ? 0 : 1;
    EXPECT_EQ(playing, listed.size());
}

TEST(HardwareSnifferMachineTest, OpenGLIsEitherDescribedOrExplainedAndCanBeAskedAgain) {
    const ky::OpenGLInfo first = ky::sniffOpenGL();
    if (first.available) {
        EXPECT_FALSE(first.vendor.empty());
        EXPECT_FALSE(first.renderer.empty());
        EXPECT_FALSE(first.version.empty());
        EXPECT_TRUE(first.software || !first.renderer.starts_with("llvmpipe"));
    } else {
        EXPECT_FALSE(first.failure.empty());
    }
    // Everything was released: another thread gets the same answer.
    ky::OpenGLInfo second;
    std::thread([&] { second = ky::sniffOpenGL(); }).join();
    EXPECT_EQ(std::tie(second.available, second.renderer, second.failure),
              std::tie(first.available, first.renderer, first.failure));
}

}  // namespace
