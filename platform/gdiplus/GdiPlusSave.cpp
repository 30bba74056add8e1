#include "GdiPlusSave.h"

#include <cerrno>

#include "KySafeFile.h"

GpStatus kyplatform::saveSafely(const std::string& path, const std::function<bool(FILE*)>& write) {
    KySafeFile file;
    if (!file.open(path)) {
        errno = file.error();
        return Win32Error;
    }
    errno = 0;
    if (!write(file.stream())) {
        errno = errno != 0 ? errno : EIO;
        return Win32Error;
    }
    if (!file.commit()) {
        errno = file.error();
        return Win32Error;
    }
    return Ok;
}
