// ALSA's error lines kept in memory instead of standard error (libasound by dlopen: no build
// dependency, nothing to do where it is missing).
#include "KyAlsaMessages.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <vector>

namespace {

// A broken configuration repeats itself: the first few say it.
constexpr size_t kKept = 4;

std::mutex& mutex() {
    static std::mutex instance;
    return instance;
}

std::vector<std::string>& messages() {
    static std::vector<std::string> instance;
    return instance;
}

void collect(const char*, int, const char*, int, const char* format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    std::lock_guard<std::mutex> hold(mutex());
    if (messages().size() < kKept) messages().push_back(text);
}

}  // namespace

KyAlsaMessages::KyAlsaMessages() {
    library_ = dlopen("libasound.so.2", RTLD_NOW | RTLD_LOCAL);
    if (library_ != nullptr) {
        setHandler_ = reinterpret_cast<decltype(setHandler_)>(dlsym(library_, "snd_lib_error_set_handler"));
    }
    if (setHandler_ != nullptr) setHandler_(collect);
}

KyAlsaMessages::~KyAlsaMessages() {
    if (setHandler_ != nullptr) setHandler_(nullptr);
    if (library_ != nullptr) dlclose(library_);
}

std::string KyAlsaMessages::taken() {
    std::lock_guard<std::mutex> hold(mutex());
    std::string text;
    for (const std::string& message : messages()) text += (text.empty() ? "" : "; ") + message;
    messages().clear();
    return text;
}
