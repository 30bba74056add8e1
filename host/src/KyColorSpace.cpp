#include "KyColorSpace.h"

#include <cstring>

#include "KyFileBytes.h"
#include "Win32.h"

namespace {

constexpr size_t kICCHeaderBytes = 128;
constexpr size_t kICCSignatureOffset = 36;

// An ICC profile starts with a 128-byte header holding its size (big-endian) and "acsp" at 36.
bool isICCProfile(const std::vector<unsigned char>& bytes) {
    if (bytes.size() < kICCHeaderBytes) return false;
    const uint64_t declared = uint64_t{bytes[0]} << 24 | uint64_t{bytes[1]} << 16 | uint64_t{bytes[2]} << 8 | bytes[3];
    return declared >= kICCHeaderBytes && declared <= bytes.size() &&
           std::memcmp(bytes.data() + kICCSignatureOffset, "acsp", 4) == 0;
}

std::vector<unsigned char> copyOf(const void* data, size_t size) {
    if (data == nullptr || size > KyColorSpace::kMaxProfileBytes) return {};
    const auto* bytes = static_cast<const unsigned char*>(data);
    return std::vector<unsigned char>(bytes, bytes + size);
}

}  // namespace

RCPtr<KyColorSpace> KyColorSpace::Make(char* profilePath, bool utf8) {
    std::wstring path = profilePath != nullptr ? MultiByteToWide(utf8 ? CP_UTF8 : CP_ACP, profilePath) : std::wstring();
    return RCPtr<KyColorSpace>(new KyColorSpace(std::move(path), {}, std::nullopt));
}

RCPtr<KyColorSpace> KyColorSpace::Make(const void* profile, size_t size) {
    return RCPtr<KyColorSpace>(new KyColorSpace(std::wstring(), copyOf(profile, size), std::nullopt));
}

RCPtr<KyColorSpace> KyColorSpace::Make(wchar_t* profilePath) {
    std::wstring path = profilePath != nullptr ? std::wstring(profilePath) : std::wstring();
    return RCPtr<KyColorSpace>(new KyColorSpace(std::move(path), {}, std::nullopt));
}

RCPtr<KyColorSpace> KyColorSpace::Make(KyColorSpaceEnum standard) {
    return RCPtr<KyColorSpace>(new KyColorSpace(std::wstring(), {}, standard));
}

RCPtr<KyColorSpace> KyColorSpace::Make(const RCPtr<KyDataProvider>& provider) {
    void* data = nullptr;
    size_t size = 0;
    if (provider) provider->GetDataAndSize(data, size);
    return Make(static_cast<const void*>(data), size);
}

bool KyColorSpace::MakeLogicalColorSpace() {
    if (standard_) return true;
    if (profile_.empty() && !profilePath_.empty()) {
        KyReadFileBytes(WideToMultiByte(CP_UTF8, profilePath_), kMaxProfileBytes, profile_);
    }
    return isICCProfile(profile_);
}

const void* KyColorSpace::GetColorProfile() const {
    if (standard_) return &*standard_;
    return profile_.empty() ? nullptr : profile_.data();
}
