#include "ErrorText.h"

#include <cwchar>

#include "Win32.h"

namespace {

constexpr DWORD kLanguageUserDefault = 0x0400;
constexpr size_t kFallbackLength = 32;

}  // namespace

std::wstring errorText(HRESULT code) {
    LPWSTR message = nullptr;
    const DWORD length = FormatMessageW(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(code), kLanguageUserDefault, reinterpret_cast<LPWSTR>(&message), 0, nullptr);
    if (length > 0 && message != nullptr) {
        std::wstring text(message, length);
        LocalFree(message);
        // One line end goes: the line feed, and a carriage return right before it.
        if (text.size() >= 2 && text.back() == L'\n') {
            text.pop_back();
            if (text.back() == L'\r') text.pop_back();
        }
        return text;
    }
    wchar_t fallback[kFallbackLength];
    const uint32_t value = static_cast<uint32_t>(code);
    if (value > 0x80040200u && value <= 0x8004FFFFu) {
        std::swprintf(fallback, kFallbackLength, L"IDispatch error #%d", static_cast<int>((value & 0xFFFF) - 0x0200));
    } else {
        std::swprintf(fallback, kFallbackLength, L"Unknown error 0x%0lX", static_cast<unsigned long>(value));
    }
    return fallback;
}
