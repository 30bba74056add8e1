#include "VideoSourceReader.h"

#include <chrono>
#include <cstdio>

namespace {

constexpr auto kReadTimeLimit = std::chrono::seconds(5);


}  // namespace

VideoSourceReader::~VideoSourceReader() {
    SafeRelease(sourceReader);
    if (pendingRead != nullptr) {
        SafeRelease(pendingRead->sample);
        delete pendingRead;
    }
}

HRESULT VideoSourceReader::open(LPCWSTR path) {
    IMFAttributes* attributes = nullptr;
    HRESULT hr = MFCreateAttributes(&attributes, 1);
    if (SUCCEEDED(hr)) hr = attributes->SetUINT32(MF_SOURCE_READER_ENABLE_VIDEO_PROCESSING, 1);
    if (SUCCEEDED(hr)) hr = attributes->SetUnknown(MF_SOURCE_READER_ASYNC_CALLBACK, this);
    if (SUCCEEDED(hr)) hr = MFCreateSourceReaderFromURL(path, attributes, &sourceReader);
    SafeRelease(attributes);
    return sourceReader == nullptr ? MF_E_NOT_INITIALIZED : hr;
}

HRESULT VideoSourceReader::selectVideoOutput() {
    IMFMediaType* type = nullptr;
    HRESULT hr = MFCreateMediaType(&type);
    if (SUCCEEDED(hr)) hr = type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
    if (SUCCEEDED(hr)) hr = type->SetGUID(MF_MT_SUBTYPE, MFVideoFormat_RGB32);
    if (SUCCEEDED(hr)) hr = sourceReader->SetCurrentMediaType(MF_SOURCE_READER_FIRST_VIDEO_STREAM, nullptr, type);
    if (SUCCEEDED(hr)) hr = sourceReader->SetStreamSelection(MF_SOURCE_READER_FIRST_VIDEO_STREAM, TRUE);
    SafeRelease(type);
    return hr;
}

HRESULT VideoSourceReader::closeReader() {
    SafeRelease(sourceReader);
    return S_OK;
}

HRESULT VideoSourceReader::readFirstSample(VideoStreamInfo& info, IMFSample** sample) {
    std::unique_lock<std::mutex> guard(lock);
    HRESULT hr = sourceReader->ReadSample(MF_SOURCE_READER_FIRST_VIDEO_STREAM, 0, nullptr, nullptr, nullptr, nullptr);
    if (FAILED(hr)) return hr;

    // One period from one deadline: a wake-up without a result waits for what is left of it.
    const auto deadline = std::chrono::system_clock::now() + kReadTimeLimit;
    while (pendingRead == nullptr) {
        if (readDone.wait_until(guard, deadline) == std::cv_status::timeout) break;
    }
    if (pendingRead == nullptr) {
        std::fputs("Timed out at waiting for ReadSample callback\n", stdout);
        std::fflush(stdout);
        // The late callback must find the reader, and through it this object, alive: that
        // reference is never given back.
        sourceReader->AddRef();
        return MF_E_END_OF_STREAM;
    }
    if (pendingRead->sample == nullptr) return MF_E_END_OF_STREAM;

    const DWORD streamFlags = pendingRead->streamFlags;
    *sample = pendingRead->sample;
    (*sample)->AddRef();
    SafeRelease(pendingRead->sample);
    delete pendingRead;
    pendingRead = nullptr;
    guard.unlock();

    if (streamFlags & MF_SOURCE_READERF_CURRENTMEDIATYPECHANGED) {
        hr = readStreamInfo(info);
        if (FAILED(hr)) SafeRelease(*sample);
    }
    return hr;
}

HRESULT VideoSourceReader::QueryInterface(REFIID riid, void** ppv) {
    *ppv = nullptr;
    if (riid != IID_IMFSourceReaderCallback) return E_NOINTERFACE;
    *ppv = static_cast<IMFSourceReaderCallback*>(this);
    AddRef();
    return S_OK;
}

ULONG VideoSourceReader::AddRef() { return ++refCount; }

ULONG VideoSourceReader::Release() {
    const ULONG count = --refCount;
    if (count == 0) delete this;
    return count;
}

HRESULT VideoSourceReader::OnReadSample(HRESULT, DWORD, DWORD streamFlags, LONGLONG, IMFSample* sample) {
    std::lock_guard<std::mutex> guard(lock);
    auto* result = new ReadResult{streamFlags, sample};
    if (sample != nullptr) sample->AddRef();
    if (pendingRead != nullptr) {
        SafeRelease(pendingRead->sample);
        delete pendingRead;
    }
    pendingRead = result;
    readDone.notify_all();
    return S_OK;
}

HRESULT VideoSourceReader::OnFlush(DWORD) { return S_OK; }

HRESULT VideoSourceReader::OnEvent(DWORD, IMFMediaEvent*) { return S_OK; }
