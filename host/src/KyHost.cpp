#include "KyHost.h"

#include <unistd.h>

#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "KyEmbedded.h"
#include "KyHostModules.h"
#include "KyNativeCall.h"

extern const KyEmbeddedFile kyHostPrelude[];
extern const KyEmbeddedFile kyHostModules[];

namespace fs = std::filesystem;

namespace {

struct NativeModule {
    const char* name;
    const luaL_Reg* functions;
};

const NativeModule kNativeModules[] = {
    {"KyAlternateUniverseSupport", ky::kAlternateUniverseSupportFunctions},
    {"KyCanvas", ky::kCanvasFunctions},
    {"KyEventLoop", ky::kEventLoopFunctions},
    {"KyHardwareSniffer", ky::kHardwareSnifferFunctions},
    {"KyView", ky::kViewFunctions},
    {"KyWorkerThreads", ky::kWorkerThreadsFunctions},
    {"KyXML", ky::kXMLFunctions},
};

// The loader of a native module: a new table of the functions in its upvalue.
int openNativeModule(lua_State* L) {
    lua_newtable(L);
    luaL_register(L, nullptr, static_cast<const luaL_Reg*>(lua_touserdata(L, lua_upvalueindex(1))));
    return 1;
}

// Registry key of the prelude's hooks table.
char hooksKey;

// _BUNDLE: a direct object whose record points at the host's KyToolkitWin.
KyToolkitWin* bundleOf(void* record) { return *static_cast<KyToolkitWin**>(record); }

int bundleGetCFunction(void* record, lua_State* L) { return bundleOf(record)->getCFunction(L); }
int bundleFileNamed(void* record, lua_State* L) { return bundleOf(record)->fileNamed(L); }

int bundleHasResource(void* record, lua_State* L) {
    lua_pushboolean(L, bundleOf(record)->hasResource(ky::checkWholeName(L, 2)));
    return 1;
}

int bundleToString(void* record, lua_State* L) {
    lua_pushfstring(L, "KyToolkitWin( %s )", bundleOf(record)->path().c_str());
    return 1;
}

const KyDirectObjectMethodRow kBundleMethods[] = {
    {"getCFunction", bundleGetCFunction},
    {"fileNamed", bundleFileNamed},
    {"hasResource", bundleHasResource},
    // The same answer: a resource's bytes by its file name.
    {"getResourceByName", bundleFileNamed},
    {"__tostring", bundleToString},
    {nullptr, nullptr},
};

const KyDirectObjectPropertyRow kNoProperties[] = {{nullptr, nullptr, nullptr}};

KyDirectObjectClass bundleClass = {
    0, "KyToolkitWin", sizeof(KyToolkitWin*), nullptr, nullptr, nullptr, kBundleMethods, kNoProperties,
};

// A method of a type that ky::pushMetatable makes. Upvalues: the type's name, the function.
void* userdataReceiver(lua_State* L) { return luaL_checkudata(L, 1, lua_tostring(L, lua_upvalueindex(1))); }

lua_CFunction functionOf(lua_State* L) {
    return reinterpret_cast<lua_CFunction>(lua_touserdata(L, lua_upvalueindex(2)));
}

int callUserdataMethod(lua_State* L) {
    const ky::NativeCallScope scope(L, userdataReceiver(L));
    return functionOf(L)(L);
}

int finaliseUserdata(lua_State* L) {
    const lua_CFunction finalise = functionOf(L);
    return ky::finaliseOnce(L, userdataReceiver(L), [&] { finalise(L); });
}

std::string popError(lua_State* L) {
    const char* text = lua_tostring(L, -1);
    std::string message = text ? text : std::string("(error object is a ") + luaL_typename(L, -1) + ")";
    lua_pop(L, 1);
    return message;
}

bool loadEmbedded(lua_State* L, const KyEmbeddedFile& file) {
    const std::string chunkName = std::string("=") + file.name + ".lua";
    return luaL_loadbuffer(L, reinterpret_cast<const char*>(file.bytes), file.size, chunkName.c_str()) == 0;
}

// Calls the function under the arguments on the stack, keeping a traceback-free message.
bool protectedCall(lua_State* L, int argumentCount, int resultCount, std::string* error) {
    if (lua_pcall(L, argumentCount, resultCount, 0) == 0) return true;
    if (error) *error = popError(L);
    else lua_pop(L, 1);
    return false;
}

void setArgTable(lua_State* L, const std::string& name, const std::vector<std::string>& args) {
    lua_createtable(L, static_cast<int>(args.size()), 1);
    lua_pushstring(L, name.c_str());
    lua_rawseti(L, -2, 0);
    for (size_t i = 0; i < args.size(); ++i) {
        lua_pushlstring(L, args[i].data(), args[i].size());
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    lua_setglobal(L, "arg");
}

}  // namespace

void ky::pushMetatable(lua_State* L, const char* name, const luaL_Reg* methods) {
    if (!luaL_newmetatable(L, name)) return;
    const int metatable = lua_gettop(L);
    lua_pushstring(L, name);
    lua_setfield(L, metatable, "__metatable");
    lua_newtable(L);
    for (const luaL_Reg* row = methods; row->name != nullptr; ++row) {
        const bool finaliser = std::strcmp(row->name, "__gc") == 0;
        lua_pushstring(L, name);
        lua_pushlightuserdata(L, reinterpret_cast<void*>(row->func));
        lua_pushcclosure(L, finaliser ? finaliseUserdata : callUserdataMethod, 2);
        lua_setfield(L, std::strncmp(row->name, "__", 2) == 0 ? metatable : metatable + 1, row->name);
    }
    lua_setfield(L, metatable, "__index");
}

KyHost::KyHost() : L_(luaL_newstate()) {
    luaL_openlibs(L_);

    lua_newtable(L_);
    for (const NativeModule& module : kNativeModules) {
        lua_pushlightuserdata(L_, const_cast<luaL_Reg*>(module.functions));
        lua_pushcclosure(L_, openNativeModule, 1);
        lua_setfield(L_, -2, module.name);
    }
    lua_pushcfunction(L_, ky::openMediaProbe);
    lua_setfield(L_, -2, "KyMediaProbe");
    for (const KyEmbeddedFile* file = kyHostModules; file->name != nullptr; ++file) {
        if (!loadEmbedded(L_, *file)) {
            lua_error(L_);
        }
        lua_setfield(L_, -2, file->name);
    }
    if (!loadEmbedded(L_, kyHostPrelude[0])) lua_error(L_);
    lua_insert(L_, -2);
    lua_call(L_, 1, 1);
    lua_pushlightuserdata(L_, &hooksKey);
    lua_insert(L_, -2);
    lua_rawset(L_, LUA_REGISTRYINDEX);
}

KyHost::~KyHost() {
    // Close Lua first: finalisers may still call into the bundle's library.
    lua_close(L_);
    bundle_.reset();
}

bool KyHost::loadBundle(const std::string& folder, std::string* error) {
    auto bundle = std::make_unique<KyToolkitWin>();
    if (!bundle->initWithPath(folder.c_str())) {
        if (error) *error = bundle->error();
        return false;
    }
    lua_pushlightuserdata(L_, &hooksKey);
    lua_rawget(L_, LUA_REGISTRYINDEX);
    lua_getfield(L_, -1, "setBundle");
    lua_remove(L_, -2);
    *static_cast<KyToolkitWin**>(KyDirectObject_checkPushAllocToLua(L_, &bundleClass)) = bundle.get();
    if (!protectedCall(L_, 1, 0, error)) return false;
    bundle_ = std::move(bundle);
    return true;
}

bool KyHost::runChunk(const std::string& bytes, const std::string& name, const std::vector<std::string>& args,
                      std::string* error) {
    const std::string chunkName = "@" + name;
    if (luaL_loadbuffer(L_, bytes.data(), bytes.size(), chunkName.c_str()) != 0) {
        if (error) *error = popError(L_);
        else lua_pop(L_, 1);
        return false;
    }
    setArgTable(L_, name, args);
    // Lua guarantees a native only a few free stack slots: room for every argument is asked for.
    if (args.size() > static_cast<size_t>(INT32_MAX - 8) || !lua_checkstack(L_, static_cast<int>(args.size()) + 1)) {
        lua_pop(L_, 1);
        if (error) *error = "too many arguments for " + name;
        return false;
    }
    for (const std::string& a : args) lua_pushlstring(L_, a.data(), a.size());
    return protectedCall(L_, static_cast<int>(args.size()), LUA_MULTRET, error);
}

bool KyHost::runFile(const std::string& path, const std::vector<std::string>& args, std::string* error) {
    std::ifstream in(path, std::ios::binary);
    std::error_code ec;
    if (!in || fs::is_directory(path, ec)) {
        if (error) *error = "cannot open " + path + ": " + (ec ? ec.message() : std::strerror(errno));
        return false;
    }
    std::ostringstream bytes;
    bytes << in.rdbuf();
    std::string text = bytes.str();
    // A script may start with a #! line, as lua(1) allows.
    if (text.rfind("#", 0) == 0) text.insert(0, "--");
    return runChunk(text, path, args, error);
}

std::string KyHost::defaultBundleFolder() {
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (ec) return {};
    for (const char* relative : {"../video_toolkit", KY_INSTALLED_BUNDLE}) {
        const fs::path folder = exe.parent_path() / relative;
        if (fs::is_directory(folder, ec)) return fs::weakly_canonical(folder, ec).string();
    }
    return {};
}
