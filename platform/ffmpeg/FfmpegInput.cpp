#include "FfmpegInput.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <vector>

#include "FrameConverter.h"

#include "Win32.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/mem.h>
}

namespace kyplatform {

namespace {

// The largest single allocation FFmpeg may make: an 8K picture in 32-bit colour is 133 MB.
constexpr size_t kLargestAllocation = size_t{512} << 20;

int hexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string percentDecoded(const std::string& text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 && hexDigit(text[i + 2]) >= 0) {
            decoded += static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2]));
            i += 2;
        } else {
            decoded += text[i];
        }
    }
    return decoded;
}

// A missing file in a missing folder is a missing path, as the platform tells the two apart.
HRESULT fromErrno(int error, const std::string& path) {
    switch (error) {
        case ENOENT: {
            const size_t slash = path.find_last_of('/');
            const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
            struct stat info {};
            return stat(folder.c_str(), &info) == 0 ? HRESULT_FROM_WIN32_FILE_NOT_FOUND : HRESULT_FROM_WIN32_PATH_NOT_FOUND;
        }
        case ENOTDIR: return HRESULT_FROM_WIN32_PATH_NOT_FOUND;
        case ENAMETOOLONG: return HRESULT_FROM_WIN32_INVALID_NAME;
        case ENOMEM: return E_OUTOFMEMORY;
        default: return E_ACCESSDENIED;
    }
}

// A path that is missing, unreadable or not a regular file fails before FFmpeg sees it: opening
// a FIFO would block, and a folder or device is no media file.
HRESULT checkRegularFile(const std::string& path) {
    struct stat info {};
    if (stat(path.c_str(), &info) != 0) return fromErrno(errno, path);
    if (!S_ISREG(info.st_mode)) return E_ACCESSDENIED;
    if (access(path.c_str(), R_OK) != 0) return fromErrno(errno, path);
    return S_OK;
}

HRESULT fromAverror(int error) {
    if (error == AVERROR(ENOENT)) return HRESULT_FROM_WIN32_FILE_NOT_FOUND;
    if (error == AVERROR(EACCES) || error == AVERROR(EPERM)) return E_ACCESSDENIED;
    if (error == AVERROR(ENOMEM)) return E_OUTOFMEMORY;
    if (error == AVERROR_EOF || error == AVERROR_INVALIDDATA) return MF_E_UNSUPPORTED_BYTESTREAM_TYPE;
    return MF_E_INVALID_FORMAT;
}

// Failures reach callers as HRESULTs; FFmpeg's own diagnostics would only clutter the host's
// standard error. No one allocation may pass what a picture needs: a header claiming hundreds of
// millions of entries (an MP4 "keys" box, say) would otherwise have FFmpeg allocate and clear
// gigabytes before it finds the file short.
void configureFfmpeg() {
    static std::once_flag configured;
    std::call_once(configured, [] {
        av_log_set_level(AV_LOG_QUIET);
        av_max_alloc(kLargestAllocation);
    });
}

}  // namespace

std::string localPathFromUrl(LPCWSTR url) {
    if (url == nullptr || *url == L'\0') return {};
    const std::string text = WideToMultiByte(CP_UTF8, url);
    static const std::string kFileScheme = "file://";
    if (text.compare(0, kFileScheme.size(), kFileScheme) == 0) {
        std::string rest = text.substr(kFileScheme.size());
        // file://localhost/path and file:///path both name /path.
        if (rest.compare(0, 9, "localhost") == 0) rest.erase(0, 9);
        return rest.empty() || rest[0] != '/' ? std::string() : percentDecoded(rest);
    }
    return text.find("://") == std::string::npos ? text : std::string();
}

HRESULT openInput(LPCWSTR url, bool probeStreams, AVFormatContext** context) {
    *context = nullptr;
    const std::string path = localPathFromUrl(url);
    if (path.empty()) return MF_E_UNSUPPORTED_SCHEME;
    return openPath(path, probeStreams, context);
}

HRESULT openPath(const std::string& path, bool probeStreams, AVFormatContext** context) {
    configureFfmpeg();
    *context = nullptr;
    if (HRESULT hr = checkRegularFile(path); FAILED(hr)) return hr;

    AVFormatContext* opened = nullptr;
    // "file:" keeps a name with a colon in it from being read as a protocol.
    const int status = avformat_open_input(&opened, ("file:" + path).c_str(), nullptr, nullptr);
    if (status < 0) return fromAverror(status);
    if (probeStreams && findStreamInfo(opened) < 0) {
        avformat_close_input(&opened);
        return MF_E_INVALID_FORMAT;
    }
    *context = opened;
    return S_OK;
}

int findStreamInfo(AVFormatContext* context) {
    std::vector<AVDictionary*> options(context->nb_streams, nullptr);
    for (AVDictionary*& streamOptions : options) av_dict_set_int(&streamOptions, "max_pixels", kLargestPicturePixels, 0);
    const int status = avformat_find_stream_info(context, options.empty() ? nullptr : options.data());
    for (AVDictionary*& streamOptions : options) av_dict_free(&streamOptions);
    return status;
}

}  // namespace kyplatform
