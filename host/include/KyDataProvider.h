/* Blocks of memory that images are made from: KyDataProvider, any block with the function that
 * releases it, and KyPNGProviderWin, a block of PNG data. Providers are RCObjects shared by RCPtr;
 * the release function runs once, when the last pointer goes, on that pointer's thread. Counts are
 * atomic; nothing else here is shared between threads. */
#ifndef KY_DATA_PROVIDER_H
#define KY_DATA_PROVIDER_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "KyKernel.h"
#include "RCObject.h"

/* What kind of data a provider holds. */
enum WinDataProviderType {
    kWinDataProviderMemory = 0,
    kWinDataProviderPNG = 2,
};

class KY_EXPORT KyDataProvider : public RCObject {
public:
    /* Called with info, data and size when the provider goes; null when nothing is to be released. */
    typedef void (*ReleaseFunction)(void* info, const void* data, size_t size);

    /* A provider over data, which stays the caller's until release is called. */
    static RCPtr<KyDataProvider> Make(void* info, const void* data, size_t size, ReleaseFunction release);
    ~KyDataProvider() override;

    const char* getTypeName() const override { return "KyDataProvider"; }
    virtual WinDataProviderType GetProviderType() { return kWinDataProviderMemory; }
    void GetDataAndSize(void*& data, size_t& size) const {
        data = data_;
        size = static_cast<size_t>(size_);
    }

protected:
    KyDataProvider(void* info, const void* data, size_t size, ReleaseFunction release);

private:
    void* info_;
    ReleaseFunction release_;
    void* data_;
    uint64_t size_;
};

/* A data provider for PNG data, given in memory or read from a file. */
class KY_EXPORT KyPNGProviderWin : public KyDataProvider {
public:
    static RCPtr<KyPNGProviderWin, KyDataProvider> Make(void* info, const void* data, size_t size,
                                                        ReleaseFunction release);
    /* Reads the PNG file at path (UTF-8) whole; null when it cannot be read, is larger than
     * kMaxPNGBytes or holds no PNG signature. */
    static RCPtr<KyPNGProviderWin, KyDataProvider> Make(char* path);

    const char* getTypeName() const override { return "KyPNGProviderWin"; }
    WinDataProviderType GetProviderType() override { return kWinDataProviderPNG; }
    /* The file the data was read from; empty for data given in memory. */
    std::wstring GetSourcePath() const { return sourcePath_; }

    static constexpr size_t kMaxPNGBytes = size_t{256} << 20;

protected:
    ~KyPNGProviderWin() override = default;

private:
    KyPNGProviderWin(void* info, const void* data, size_t size, ReleaseFunction release, std::wstring sourcePath)
        : KyDataProvider(info, data, size, release), sourcePath_(std::move(sourcePath)) {}

    std::wstring sourcePath_;
};

#endif
