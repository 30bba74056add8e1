/* KyToolkitWin: an opened toolkit bundle, the native object behind the Lua global _BUNDLE.
 *
 * A bundle is a folder holding the toolkit's shared library and its resources, each stored under
 * resources/<TYPE>/<stored name>, where the stored name follows the resource rule: every letter
 * upper case, and a '$' before each letter that was upper case ("KyVideoPlayerWin.lua" is
 * "$KY$VIDEO$PLAYER$WIN.LUA" of type "LUA"). Owned by the KyHost that opened it; used on the
 * thread that runs that host's Lua state. */
#ifndef KY_TOOLKIT_WIN_H
#define KY_TOOLKIT_WIN_H

#include <lua.hpp>

#include <optional>
#include <string>

#include "KyKernel.h"

class KY_EXPORT KyToolkitWin {
public:
    KyToolkitWin() = default;
    KyToolkitWin(const KyToolkitWin&) = delete;
    KyToolkitWin& operator=(const KyToolkitWin&) = delete;

    /* Opens the bundle folder and finds its library (the one *.so at its top), which is loaded at
     * the first getCFunction. False, with error() saying why, without folder or library. */
    virtual bool initWithPath(const char* path);
    virtual ~KyToolkitWin();

    /* Whether a resource of that file name ("Info.lua", "VID_CLOSE_D@2X.png") is stored. */
    virtual bool hasResource(const char* fileName) const;
    /* The resource's bytes, or nothing when it is not stored or unreadable. */
    virtual std::optional<std::string> getResourceByName(const char* fileName) const;
    /* Lua: fileNamed(self, name) -> the stored resource's bytes (an image's PNG file), or nil. In
     * both Lua lookups the whole string is the name: one holding a NUL names nothing. */
    virtual int fileNamed(lua_State* L);
    /* Lua: getCFunction(self, name) -> the library's exported function of that name as a Lua C
     * function, or nil when the library exports no such name; a Lua error when the library
     * cannot be loaded at all. */
    virtual int getCFunction(lua_State* L);

    const std::string& path() const { return path_; }
    const std::string& error() const { return error_; }

    /* The stored name and type of a resource's file name: "Info.lua" -> "$INFO.LUA", "LUA". */
    static std::string storedName(const std::string& fileName);
    static std::string resourceType(const std::string& fileName);

private:
    std::optional<std::string> resourcePath(const char* fileName) const;
    bool openLibrary();
    void* ownSymbol(const char* name);

    std::string path_;
    std::string error_;
    std::string libraryPath_;
    void* library_ = nullptr;
};

#endif
