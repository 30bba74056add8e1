#include "KyToolkitWin.h"

#include <dlfcn.h>
#include <link.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "KyNativeCall.h"

namespace fs = std::filesystem;

bool KyToolkitWin::initWithPath(const char* path) {
    std::error_code ec;
    if (path == nullptr || !fs::is_directory(path, ec)) {
        error_ = std::string("not a bundle folder: ") + (path ? path : "(null)");
        return false;
    }
    path_ = path;
    for (const auto& entry : fs::directory_iterator(path_, ec)) {
        if (entry.path().extension() == ".so") {
            libraryPath_ = entry.path().string();
            return true;
        }
    }
    error_ = "no library in bundle folder " + path_;
    return false;
}

// The library is opened at the first lookup: reading the manifest and resources needs no code,
// and the library brings the media frameworks with it. It stays mapped until the process ends:
// the media framework's threads may still be finishing a call-back into the toolkit's objects
// (which they hold counted references to) when the host lets the bundle go.
bool KyToolkitWin::openLibrary() {
    if (library_ == nullptr && !libraryPath_.empty()) {
        library_ = dlopen(libraryPath_.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
        if (library_ == nullptr) error_ = dlerror();
    }
    return library_ != nullptr;
}

KyToolkitWin::~KyToolkitWin() {
    if (library_ != nullptr) dlclose(library_);
}

std::string KyToolkitWin::storedName(const std::string& fileName) {
    std::string stored;
    for (unsigned char c : fileName) {
        if (std::isupper(c)) stored += '$';
        stored += static_cast<char>(std::toupper(c));
    }
    return stored;
}

std::string KyToolkitWin::resourceType(const std::string& fileName) {
    const size_t dot = fileName.rfind('.');
    std::string type = dot == std::string::npos ? std::string() : fileName.substr(dot + 1);
    for (char& c : type) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return type;
}

std::optional<std::string> KyToolkitWin::resourcePath(const char* fileName) const {
    if (fileName == nullptr || path_.empty()) return std::nullopt;
    const std::string name(fileName);
    // A name with a separator could leave the resource folder.
    if (name.empty() || name.find('/') != std::string::npos) return std::nullopt;
    const std::string type = resourceType(name);
    if (type.empty()) return std::nullopt;
    std::string file = path_ + "/resources/" + type + "/" + storedName(name);
    std::error_code ec;
    if (!fs::is_regular_file(file, ec)) return std::nullopt;
    return file;
}

bool KyToolkitWin::hasResource(const char* fileName) const { return resourcePath(fileName).has_value(); }

std::optional<std::string> KyToolkitWin::getResourceByName(const char* fileName) const {
    const auto file = resourcePath(fileName);
    if (!file) return std::nullopt;
    std::ifstream in(*file, std::ios::binary);
    if (!in) return std::nullopt;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return bytes.str();
}

int KyToolkitWin::fileNamed(lua_State* L) {
    const auto bytes = getResourceByName(ky::checkWholeName(L, 2));
    if (bytes) {
        lua_pushlstring(L, bytes->data(), bytes->size());
    } else {
        lua_pushnil(L);
    }
    return 1;
}

// dlsym also finds the names of the library's dependencies (Lua's own API among them); only the
// library's own exports count.
void* KyToolkitWin::ownSymbol(const char* name) {
    if (!openLibrary()) return nullptr;
    void* symbol = dlsym(library_, name);
    link_map* map = nullptr;
    Dl_info info{};
    if (symbol == nullptr || dlinfo(library_, RTLD_DI_LINKMAP, &map) != 0 || dladdr(symbol, &info) == 0) return nullptr;
    return reinterpret_cast<uintptr_t>(info.dli_fbase) == map->l_addr ? symbol : nullptr;
}

int KyToolkitWin::getCFunction(lua_State* L) {
    const char* name = ky::checkWholeName(L, 2);
    if (!openLibrary()) return luaL_error(L, "cannot load the toolkit library: %s", error_.c_str());
    void* symbol = name ? ownSymbol(name) : nullptr;
    if (symbol == nullptr) {
        lua_pushnil(L);
    } else {
        ky::pushNativeFunction(L, reinterpret_cast<lua_CFunction>(symbol));
    }
    return 1;
}
