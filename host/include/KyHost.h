/* KyHost: the embedding host. One Lua 5.1 state with the standard library, the host globals
 * (_BUNDLE, import, export, ZSTR, WIN_ENV, MAC_ENV) and the host's Lua modules, plus at most one
 * toolkit bundle. Create, use and destroy it on one thread. Failures come back as false with the
 * reason in the error string; nothing here throws. */
#ifndef KY_HOST_H
#define KY_HOST_H

#include <memory>
#include <string>
#include <vector>

#include "KyKernel.h"
#include "KyToolkitWin.h"

class KY_EXPORT KyHost {
public:
    KyHost();
    ~KyHost();
    KyHost(const KyHost&) = delete;
    KyHost& operator=(const KyHost&) = delete;

    lua_State* state() const { return L_; }

    /* Opens the bundle folder, reads its manifest (Info.lua) and publishes _BUNDLE. */
    bool loadBundle(const std::string& folder, std::string* error);

    /* Runs the Lua file with the arguments as its `...` and in the global `arg` (arg[0] is the
     * path). On success the chunk's results are left on the stack. */
    bool runFile(const std::string& path, const std::vector<std::string>& args, std::string* error);
    /* Runs a chunk of Lua source or precompiled bytes under the given name, as runFile does. */
    bool runChunk(const std::string& bytes, const std::string& name, const std::vector<std::string>& args,
                  std::string* error);

    /* The bundle folder that ships beside the running program: <exe>/../video_toolkit in the build
     * tree, <exe>/../<libdir>/video_toolkit when installed. Empty when neither exists. */
    static std::string defaultBundleFolder();

private:
    lua_State* L_;
    std::unique_ptr<KyToolkitWin> bundle_;
};

#endif
