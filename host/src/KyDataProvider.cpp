#include "KyDataProvider.h"

#include <cstring>
#include <memory>
#include <vector>

#include "KyFileBytes.h"
#include "Win32.h"

namespace {

constexpr unsigned char kPNGSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};

// A file's bytes live in a vector that the provider's info points to.
void releaseFileBytes(void* info, const void*, size_t) { delete static_cast<std::vector<unsigned char>*>(info); }

}  // namespace

RCPtr<KyDataProvider> KyDataProvider::Make(void* info, const void* data, size_t size, ReleaseFunction release) {
    return RCPtr<KyDataProvider>(new KyDataProvider(info, data, size, release));
}

KyDataProvider::KyDataProvider(void* info, const void* data, size_t size, ReleaseFunction release)
    : info_(info), release_(release), data_(const_cast<void*>(data)), size_(size) {}

KyDataProvider::~KyDataProvider() {
    if (release_ != nullptr) release_(info_, data_, static_cast<size_t>(size_));
}

RCPtr<KyPNGProviderWin, KyDataProvider> KyPNGProviderWin::Make(void* info, const void* data, size_t size,
                                                               ReleaseFunction release) {
    return RCPtr<KyPNGProviderWin, KyDataProvider>(new KyPNGProviderWin(info, data, size, release, std::wstring()));
}

RCPtr<KyPNGProviderWin, KyDataProvider> KyPNGProviderWin::Make(char* path) {
    if (path == nullptr) return RCPtr<KyPNGProviderWin, KyDataProvider>();
    auto bytes = std::make_unique<std::vector<unsigned char>>();
    if (!KyReadFileBytes(path, kMaxPNGBytes, *bytes) || bytes->size() < sizeof kPNGSignature ||
        std::memcmp(bytes->data(), kPNGSignature, sizeof kPNGSignature) != 0) {
        return RCPtr<KyPNGProviderWin, KyDataProvider>();
    }
    const void* data = bytes->data();
    const size_t size = bytes->size();
    return RCPtr<KyPNGProviderWin, KyDataProvider>(
        new KyPNGProviderWin(bytes.release(), data, size, releaseFileBytes, MultiByteToWide(CP_UTF8, path)));
}
