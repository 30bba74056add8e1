// FormatMessageW from this layer's message table, and LocalFree for the texts it allocates. The
// texts are the system's English ones, each a single line ending in CR LF, without inserts.
#include <cstdlib>
#include <cwchar>

#include "Win32.h"

namespace {

struct Message {
    HRESULT code;
    const wchar_t* text;
};

constexpr Message kMessages[] = {
    {S_OK, L"The operation completed successfully.\r\n"},
    // S_FALSE is 1, which the system table knows as the Win32 error of that number.
    {S_FALSE, L"Incorrect function.\r\n"},
    {E_NOTIMPL, L"Not implemented\r\n"},
    {E_NOINTERFACE, L"No such interface supported\r\n"},
    {E_POINTER, L"Invalid pointer\r\n"},
    {E_ABORT, L"Operation aborted\r\n"},
    {E_FAIL, L"Unspecified error\r\n"},
    {E_UNEXPECTED, L"Catastrophic failure\r\n"},
    {E_ACCESSDENIED, L"Access is denied.\r\n"},
    {E_HANDLE, L"The handle is invalid.\r\n"},
    {E_OUTOFMEMORY, L"Not enough memory resources are available to complete this operation.\r\n"},
    {E_INVALIDARG, L"The parameter is incorrect.\r\n"},
    {HRESULT_FROM_WIN32_FILE_NOT_FOUND, L"The system cannot find the file specified.\r\n"},
    {HRESULT_FROM_WIN32_PATH_NOT_FOUND, L"The system cannot find the path specified.\r\n"},
    {HRESULT_FROM_WIN32_HANDLE_EOF, L"Reached the end of the file.\r\n"},
    {E_NOT_SUFFICIENT_BUFFER, L"The data area passed to a system call is too small.\r\n"},
    {HRESULT_FROM_WIN32_INVALID_NAME, L"The filename, directory name, or volume label syntax is incorrect.\r\n"},
    {MF_E_INVALIDREQUEST, L"The request is invalid in the current state.\r\n"},
    {MF_E_INVALIDSTREAMNUMBER, L"The stream number provided was invalid.\r\n"},
    {MF_E_INVALIDMEDIATYPE,
     L"The data specified for the media type is invalid, inconsistent, or not supported by this object.\r\n"},
    {MF_E_NOT_INITIALIZED,
     L"This object needs to be initialized before the requested operation can be carried out.\r\n"},
    {MF_E_NO_MORE_TYPES,
     L"An object ran out of media types to suggest therefore the requested chain of streaming "
     L"objects cannot be completed.\r\n"},
    {MF_E_INVALIDTYPE, L"Invalid type.\r\n"},
    {MF_E_UNSUPPORTED_SCHEME, L"The scheme of the given URL is unsupported.\r\n"},
    {MF_E_UNSUPPORTED_BYTESTREAM_TYPE, L"The byte stream type of the given URL is unsupported.\r\n"},
    {MF_E_INVALID_POSITION, L"The operation on the current offset is not permitted.\r\n"},
    {MF_E_ATTRIBUTENOTFOUND, L"The requested attribute was not found.\r\n"},
    {MF_E_SESSION_PAUSEWHILESTOPPED, L"The media session cannot pause from a stopped state.\r\n"},
    {MF_E_END_OF_STREAM, L"The end of the stream has been reached.\r\n"},
    {MF_E_SHUTDOWN, L"The request is invalid because Shutdown() has been called.\r\n"},
    {MF_E_INVALID_FORMAT, L"The Media format is recognized but is invalid.\r\n"},
    {MF_E_TOPO_CODEC_NOT_FOUND, L"No suitable transform was found to encode or decode the content.\r\n"},
};

const wchar_t* textOf(DWORD id) {
    for (const Message& message : kMessages) {
        if (static_cast<DWORD>(message.code) == id) return message.text;
    }
    return nullptr;
}

// The table is English: the neutral language (user or system default) and every English
// sublanguage find it; other languages have no text, as on a system without their resources.
bool english(DWORD languageId) {
    const DWORD primary = languageId & 0x3FF;
    return languageId <= 0xFFFF && (primary == 0x00 || primary == 0x09);
}

}  // namespace

DWORD FormatMessageW(DWORD flags, const void*, DWORD messageId, DWORD languageId, LPWSTR buffer, DWORD size, va_list*) {
    if (buffer == nullptr) return 0;
    const bool allocate = (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) != 0;
    // A failed call leaves no pointer behind to free.
    if (allocate) *reinterpret_cast<LPWSTR*>(buffer) = nullptr;
    if ((flags & FORMAT_MESSAGE_FROM_SYSTEM) == 0 || !english(languageId)) return 0;
    const wchar_t* text = textOf(messageId);
    if (text == nullptr) return 0;
    const size_t length = std::wcslen(text);
    if (allocate) {
        // size is then the least number of characters to allocate.
        const size_t characters = length + 1 > size ? length + 1 : size;
        auto* allocated = static_cast<wchar_t*>(std::malloc(characters * sizeof(wchar_t)));
        if (allocated == nullptr) return 0;
        std::wmemcpy(allocated, text, length + 1);
        *reinterpret_cast<LPWSTR*>(buffer) = allocated;
        return static_cast<DWORD>(length);
    }
    if (size < length + 1) return 0;
    std::wmemcpy(buffer, text, length + 1);
    return static_cast<DWORD>(length);
}

void* LocalFree(void* memory) {
    std::free(memory);
    return nullptr;
}
