/* KyColorSpace: a colour profile, an ICC profile (in memory or in a file) or a standard space.
 * Colour spaces are RCObjects shared by RCPtr. A colour space belongs to one thread at a time;
 * only its count is atomic. A profile that cannot be read or is no ICC profile fails Verify. */
#ifndef KY_COLOR_SPACE_H
#define KY_COLOR_SPACE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "KyDataProvider.h"
#include "KyKernel.h"
#include "RCObject.h"

/* The standard spaces, whose profiles are built in. */
enum KyColorSpaceEnum {
    kKyColorSpaceSRGB = 0,
};

class KY_EXPORT KyColorSpace : public RCObject {
public:
    /* The ICC profile in the file at profilePath: UTF-8 when utf8, else the ANSI code page. */
    static RCPtr<KyColorSpace> Make(char* profilePath, bool utf8);
    /* A copy of the ICC profile in memory. */
    static RCPtr<KyColorSpace> Make(const void* profile, size_t size);
    static RCPtr<KyColorSpace> Make(wchar_t* profilePath);
    static RCPtr<KyColorSpace> Make(KyColorSpaceEnum standard);
    /* A copy of the provider's data as an ICC profile; a null provider gives a space without one. */
    static RCPtr<KyColorSpace> Make(const RCPtr<KyDataProvider>& provider);

    std::wstring GetProfilePath() const { return profilePath_; }
    /* True when the space can be used: a standard space, or an ICC profile of at most
     * kMaxProfileBytes (a file is read at the first call). */
    bool Verify() { return MakeLogicalColorSpace() && GetColorProfile() != nullptr; }

    static constexpr size_t kMaxProfileBytes = size_t{4} << 20;

private:
    KyColorSpace(std::wstring profilePath, std::vector<unsigned char> profile,
                 std::optional<KyColorSpaceEnum> standard)
        : profilePath_(std::move(profilePath)), profile_(std::move(profile)), standard_(standard) {}

    /* Sets the space up: reads the profile file when there is one to read; true when the space
     * is a standard one or its profile is an ICC profile. */
    bool MakeLogicalColorSpace();
    /* The profile: the standard space's value, or the ICC bytes; null when there is none. */
    const void* GetColorProfile() const;

    std::wstring profilePath_;
    std::vector<unsigned char> profile_;
    std::optional<KyColorSpaceEnum> standard_;
};

#endif
