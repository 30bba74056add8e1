#include "KyFileBytes.h"

#include <cstdint>
#include <fstream>

bool KyReadFileBytes(const std::string& path, size_t limit, std::vector<unsigned char>& bytes) {
    bytes.clear();
    std::ifstream file(path, std::ios::binary | std::ios::ate);
    if (!file) return false;
    const std::streamoff length = file.tellg();
    // The size is checked before anything is allocated, so a huge file costs nothing.
    if (length <= 0 || static_cast<uint64_t>(length) > limit) return false;
    bytes.resize(static_cast<size_t>(length));
    file.seekg(0);
    if (!file.read(reinterpret_cast<char*>(bytes.data()), length)) {
        bytes.clear();
        return false;
    }
    return true;
}
