// The activation objects of the two renderers: the output node's object, turned into the renderer
// when the session resolves the topology. The renderer is made once and shared by later calls.
#include <mutex>

#include "source/AttributeStore.h"
#include "AudioRenderer.h"
#include "VideoRenderer.h"

namespace kyplatform {

namespace {

const IID kIidActivate = {0x1e6b7a90, 0x3f2d, 0x48c1, {0x97, 0x5e, 0x6a, 0x0b, 0xd8, 0x14, 0x2c, 0x7f}};

class RendererActivate final : public AttributeStore<IMFActivate> {
public:
    explicit RendererActivate(HWND window, bool video) : window_(window), video_(video) {}

    HRESULT QueryInterface(REFIID riid, void** ppv) override { return queryOwn(riid, kIidActivate, ppv); }
    HRESULT ActivateObject(REFIID riid, void** ppv) override {
        if (ppv == nullptr) return E_POINTER;
        *ppv = nullptr;
        std::lock_guard<std::mutex> lock(mutex_);
        if (!renderer_) {
            renderer_ = video_ ? ComPtr<IUnknown>::adopt(VideoRenderer::create(window_))
                               : ComPtr<IUnknown>::adopt(AudioRenderer::create());
            if (!renderer_) return E_OUTOFMEMORY;
        }
        return renderer_->QueryInterface(riid, ppv);
    }

private:
    ~RendererActivate() override = default;

    const HWND window_;
    const bool video_;
    std::mutex mutex_;
    ComPtr<IUnknown> renderer_;
};

}  // namespace

}  // namespace kyplatform

HRESULT MFCreateVideoRendererActivate(HWND window, IMFActivate** activate) {
    if (activate == nullptr) return E_POINTER;
    *activate = nullptr;
    if (!IsWindow(window)) return E_INVALIDARG;
    *activate = kyplatform::createWithStore<kyplatform::RendererActivate>(window, true);
    return *activate != nullptr ? S_OK : E_OUTOFMEMORY;
}

HRESULT MFCreateAudioRendererActivate(IMFActivate** activate) {
    if (activate == nullptr) return E_POINTER;
    *activate = kyplatform::createWithStore<kyplatform::RendererActivate>(nullptr, false);
    return *activate != nullptr ? S_OK : E_OUTOFMEMORY;
}
