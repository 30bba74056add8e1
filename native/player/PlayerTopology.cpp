// Opening a URL: a new session, the source resolved on the calling thread, one topology branch for
// each selected stream, handed to the session, which resolves it by itself.
#include "NativePlayer.h"

HRESULT NativePlayer::createSession() {
    if (session != nullptr) {
        const HRESULT hr = closeSession();
        if (FAILED(hr)) return hr;
    }
    HRESULT hr = MFCreateMediaSession(nullptr, &session);
    if (FAILED(hr)) return hr;
    ++sessionSerial;
    hr = session->BeginGetEvent(this, session);
    if (FAILED(hr)) return hr;
    setState(session_ready);
    return S_OK;
}

HRESULT NativePlayer::openURL(const std::wstring& url) {
    IMFPresentationDescriptor* descriptor = nullptr;
    IMFTopology* topology = nullptr;
    HRESULT hr = createSession();
    if (SUCCEEDED(hr)) hr = createMediaSource(url, &source);
    if (SUCCEEDED(hr)) hr = source->CreatePresentationDescriptor(&descriptor);
    if (SUCCEEDED(hr)) hr = createPlaybackTopology(source, descriptor, videoWindow, &topology);
    if (SUCCEEDED(hr)) hr = session->SetTopology(0, topology);
    if (SUCCEEDED(hr)) {
        setState(open_pending);
    } else {
        setState(closed);
        reportFailure(hr);
    }
    SafeRelease(descriptor);
    SafeRelease(topology);
    return hr;
}

HRESULT NativePlayer::createMediaSource(const std::wstring& url, IMFMediaSource** mediaSource) {
    IMFSourceResolver* resolver = nullptr;
    IUnknown* object = nullptr;
    MF_OBJECT_TYPE objectType = MF_OBJECT_INVALID;
    HRESULT hr = MFCreateSourceResolver(&resolver);
    if (SUCCEEDED(hr)) hr = resolver->CreateObjectFromURL(url.c_str(), kResolveAnyMediaSource, nullptr, &objectType, &object);
    if (SUCCEEDED(hr)) hr = object->QueryInterface(IID_IMFMediaSource, reinterpret_cast<void**>(mediaSource));
    SafeRelease(object);
    SafeRelease(resolver);
    return hr;
}

HRESULT NativePlayer::createPlaybackTopology(IMFMediaSource* mediaSource, IMFPresentationDescriptor* descriptor,
                                             HWND window, IMFTopology** topology) {
    IMFTopology* made = nullptr;
    DWORD count = 0;
    HRESULT hr = MFCreateTopology(&made);
    if (SUCCEEDED(hr)) hr = descriptor->GetStreamDescriptorCount(&count);
    for (DWORD index = 0; SUCCEEDED(hr) && index < count; ++index) {
        hr = addBranchToTopology(made, mediaSource, descriptor, index, window);
    }
    if (SUCCEEDED(hr)) {
        *topology = made;
        made = nullptr;
    }
    SafeRelease(made);
    return hr;
}

HRESULT NativePlayer::addBranchToTopology(IMFTopology* topology, IMFMediaSource* mediaSource,
                                          IMFPresentationDescriptor* descriptor, DWORD index, HWND window) {
    IMFStreamDescriptor* streamDescriptor = nullptr;
    IMFTopologyNode* sourceNode = nullptr;
    IMFTopologyNode* outputNode = nullptr;
    BOOL selected = FALSE;
    HRESULT hr = descriptor->GetStreamDescriptorByIndex(index, &selected, &streamDescriptor);
    if (SUCCEEDED(hr) && selected) {
        hr = addSourceNode(topology, mediaSource, descriptor, streamDescriptor, &sourceNode);
        if (SUCCEEDED(hr)) hr = addOutputNode(topology, streamDescriptor, window, &outputNode);
        if (SUCCEEDED(hr)) hr = sourceNode->ConnectOutput(0, outputNode, 0);
    }
    SafeRelease(sourceNode);
    SafeRelease(outputNode);
    SafeRelease(streamDescriptor);
    return hr;
}

HRESULT NativePlayer::addSourceNode(IMFTopology* topology, IMFMediaSource* mediaSource,
                                    IMFPresentationDescriptor* descriptor, IMFStreamDescriptor* streamDescriptor,
                                    IMFTopologyNode** node) {
    IMFTopologyNode* made = nullptr;
    HRESULT hr = MFCreateTopologyNode(MF_TOPOLOGY_SOURCESTREAM_NODE, &made);
    if (SUCCEEDED(hr)) hr = made->SetUnknown(MF_TOPONODE_SOURCE, mediaSource);
    if (SUCCEEDED(hr)) hr = made->SetUnknown(MF_TOPONODE_PRESENTATION_DESCRIPTOR, descriptor);
    if (SUCCEEDED(hr)) hr = made->SetUnknown(MF_TOPONODE_STREAM_DESCRIPTOR, streamDescriptor);
    if (SUCCEEDED(hr)) hr = topology->AddNode(made);
    if (SUCCEEDED(hr)) {
        *node = made;
        made = nullptr;
    }
    SafeRelease(made);
    return hr;
}

HRESULT NativePlayer::addOutputNode(IMFTopology* topology, IMFStreamDescriptor* streamDescriptor, HWND window,
                                    IMFTopologyNode** node) {
    IMFMediaTypeHandler* handler = nullptr;
    IMFActivate* renderer = nullptr;
    IMFTopologyNode* made = nullptr;
    GUID majorType = GUID_NULL;
    HRESULT hr = streamDescriptor->GetMediaTypeHandler(&handler);
    if (SUCCEEDED(hr)) hr = handler->GetMajorType(&majorType);
    if (SUCCEEDED(hr)) {
        if (majorType == MFMediaType_Video) {
            hr = MFCreateVideoRendererActivate(window, &renderer);
        } else if (majorType == MFMediaType_Audio) {
            hr = MFCreateAudioRendererActivate(&renderer);
        } else {
            hr = E_FAIL;
        }
    }
    if (SUCCEEDED(hr)) hr = MFCreateTopologyNode(MF_TOPOLOGY_OUTPUT_NODE, &made);
    if (SUCCEEDED(hr)) hr = made->SetObject(renderer);
    if (SUCCEEDED(hr)) hr = made->SetUINT32(MF_TOPONODE_STREAMID, 0);
    if (SUCCEEDED(hr)) hr = made->SetUINT32(MF_TOPONODE_NOSHUTDOWN_ON_REMOVE, FALSE);
    if (SUCCEEDED(hr)) hr = topology->AddNode(made);
    if (SUCCEEDED(hr)) {
        *node = made;
        made = nullptr;
    }
    SafeRelease(made);
    SafeRelease(handler);
    SafeRelease(renderer);
    return hr;
}

HRESULT NativePlayer::onNewPresentation(IMFMediaEvent* event) {
    if (source == nullptr) return S_OK;
    IMFPresentationDescriptor* descriptor = nullptr;
    IMFTopology* topology = nullptr;
    PROPVARIANT value;
    PropVariantInit(&value);
    HRESULT hr = event->GetValue(&value);
    if (SUCCEEDED(hr)) {
        hr = value.vt == VT_UNKNOWN && value.punkVal != nullptr
                 ? value.punkVal->QueryInterface(IID_IMFPresentationDescriptor, reinterpret_cast<void**>(&descriptor))
                 : MF_E_INVALIDTYPE;
    }
    PropVariantClear(&value);
    if (SUCCEEDED(hr)) hr = createPlaybackTopology(source, descriptor, videoWindow, &topology);
    if (SUCCEEDED(hr)) hr = session->SetTopology(0, topology);
    if (SUCCEEDED(hr)) setState(open_pending);
    SafeRelease(descriptor);
    SafeRelease(topology);
    return S_OK;
}
