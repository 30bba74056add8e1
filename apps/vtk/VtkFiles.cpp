#include "VtkFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "KySafeFile.h"

extern "C" {
#include <lauxlib.h>
#include <lua.h>
}

namespace {

int failure(lua_State* L, int error) {
    lua_pushnil(L);
    lua_pushstring(L, std::strerror(error));
    return 2;
}

std::string pathArgument(lua_State* L) {
    size_t length = 0;
    const char* path = luaL_checklstring(L, 1, &length);
    return std::string(path, length);
}

int inputProblem(lua_State* L) {
    const std::string path = pathArgument(L);
    int error = EINVAL;
    const int descriptor = path.find('\0') == std::string::npos ? open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC) : -1;
    struct stat info {};
    if (descriptor >= 0) {
        error = fstat(descriptor, &info) != 0 ? errno : S_ISDIR(info.st_mode) ? EISDIR : 0;
        close(descriptor);
    } else if (path.find('\0') == std::string::npos) {
        error = errno;
    }
    if (error != 0) {
        lua_pushstring(L, std::strerror(error));
    } else if (!S_ISREG(info.st_mode)) {
        lua_pushstring(L, "Not a regular file");
    } else {
        lua_pushnil(L);
    }
    return 1;
}

int writeFile(lua_State* L) {
    const std::string path = pathArgument(L);
    size_t size = 0;
    const char* bytes = luaL_checklstring(L, 2, &size);
    if (path.find('\0') != std::string::npos) return failure(L, EINVAL);
    if (!KySafeFile_writeAll(path, bytes, size)) return failure(L, errno);
    lua_pushboolean(L, 1);
    return 1;
}

int identity(lua_State* L) {
    const std::string path = pathArgument(L);
    struct stat info {};
    if (path.find('\0') != std::string::npos) return failure(L, EINVAL);
    if (stat(path.c_str(), &info) != 0) return failure(L, errno);
    lua_pushfstring(L, "%s:%s", std::to_string(info.st_dev).c_str(), std::to_string(info.st_ino).c_str());
    return 1;
}

int makeFolders(lua_State* L) {
    const std::string path = pathArgument(L);
    if (path.find('\0') != std::string::npos) return failure(L, EINVAL);
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
        const std::string folder = path.substr(0, end);
        struct stat info {};
        if (!folder.empty() && stat(folder.c_str(), &info) != 0 && mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST) {
            return failure(L, errno);
        }
        if (end == std::string::npos) break;
    }
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return failure(L, errno);
    if (!S_ISDIR(info.st_mode)) return failure(L, ENOTDIR);
    lua_pushboolean(L, 1);
    return 1;
}

int isFolder(lua_State* L) {
    const std::string path = pathArgument(L);
    struct stat info {};
    lua_pushboolean(L, path.find('\0') == std::string::npos && stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode));
    return 1;
}

// The regular files in a folder's tree (links to files included, linked folders not entered, so
// that a loop of links ends), sorted by their bytes; subfolders that cannot be read are passed by.
int filesUnder(lua_State* L) {
    namespace fs = std::filesystem;
    const std::string root = pathArgument(L);
    std::error_code error;
    fs::recursive_directory_iterator walk(root, fs::directory_options::skip_permission_denied, error);
    if (error) return failure(L, error.value());
    std::vector<std::string> files;
    const std::string prefix = root.empty() || root.back() == '/' ? root : root + "/";
    for (const fs::recursive_directory_iterator end; walk != end; walk.increment(error)) {
        if (error) break;
        std::error_code kindError;
        if (walk->is_regular_file(kindError)) {
            files.push_back(prefix + walk->path().lexically_relative(root).string());
        }
    }
    std::sort(files.begin(), files.end());
    lua_createtable(L, static_cast<int>(files.size()), 0);
    for (size_t i = 0; i < files.size(); ++i) {
        lua_pushlstring(L, files[i].data(), files[i].size());
        lua_rawseti(L, -2, static_cast<int>(i + 1));
    }
    return 1;
}

int cores(lua_State* L) {
    lua_pushinteger(L, std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    return 1;
}

}  // namespace

const luaL_Reg kVtkFileFunctions[] = {
    {"isFolder", isFolder}, {"filesUnder", filesUnder}, {"cores", cores},
    {"inputProblem", inputProblem}, {"writeFile", writeFile}, {"identity", identity},
    {"makeFolders", makeFolders},   {nullptr, nullptr},
};
