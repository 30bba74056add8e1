// Win32 message texts and MulDiv as the toolkit relies on them.
#include <gtest/gtest.h>

#include <climits>
#include <cwchar>
#include <cwctype>
#include <string>

#include "Win32.h"

namespace {

constexpr DWORD kSystem = FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
constexpr DWORD kNeutral = 0x0400;  // MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT)

// FormatMessageW's allocating form, as the toolkit calls it; empty when there is no text.
std::wstring messageText(HRESULT code, DWORD language = kNeutral) {
    LPWSTR text = nullptr;
    const DWORD length = FormatMessageW(kSystem | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, static_cast<DWORD>(code),
                                        language, reinterpret_cast<LPWSTR>(&text), 0, nullptr);
    if (length == 0 || text == nullptr) {
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(length, 0u);
        return {};
    }
    EXPECT_EQ(std::wcslen(text), length);
    std::wstring result(text, length);
    EXPECT_EQ(LocalFree(text), nullptr);
    return result;
}

TEST(Win32FormatMessage, GivesTheSystemTexts) {
    const std::pair<HRESULT, const wchar_t*> cases[] = {
        {S_OK, L"The operation completed successfully.\r\n"},
        {HRESULT_FROM_WIN32_FILE_NOT_FOUND, L"The system cannot find the file specified.\r\n"},
        {HRESULT_FROM_WIN32_PATH_NOT_FOUND, L"The system cannot find the path specified.\r\n"},
        {E_ACCESSDENIED, L"Access is denied.\r\n"}, {E_INVALIDARG, L"The parameter is incorrect.\r\n"},
        {E_OUTOFMEMORY, L"Not enough memory resources are available to complete this operation.\r\n"},
        {E_UNEXPECTED, L"Catastrophic failure\r\n"}, {E_FAIL, L"Unspecified error\r\n"},
        {E_NOTIMPL, L"Not implemented\r\n"}, {E_NOINTERFACE, L"No such interface supported\r\n"},
        {E_POINTER, L"Invalid pointer\r\n"}, {E_ABORT, L"Operation aborted\r\n"},
        {MF_E_UNSUPPORTED_BYTESTREAM_TYPE, L"The byte stream type of the given URL is unsupported.\r\n"},
        {MF_E_INVALIDSTREAMNUMBER, L"The stream number provided was invalid.\r\n"},
        {MF_E_END_OF_STREAM, L"The end of the stream has been reached.\r\n"},
    };
    for (const auto& [code, text] : cases) EXPECT_EQ(messageText(code), text) << std::hex << code;
}

TEST(Win32FormatMessage, HasOneLineForEveryCodeOfTheLayer) {
    const HRESULT codes[] = {S_OK, S_FALSE, E_NOTIMPL, E_NOINTERFACE, E_POINTER, E_ABORT, E_FAIL, E_UNEXPECTED,
        E_ACCESSDENIED, E_HANDLE, E_OUTOFMEMORY, E_INVALIDARG, HRESULT_FROM_WIN32_FILE_NOT_FOUND,
        HRESULT_FROM_WIN32_PATH_NOT_FOUND, HRESULT_FROM_WIN32_HANDLE_EOF, E_NOT_SUFFICIENT_BUFFER,
        HRESULT_FROM_WIN32_INVALID_NAME, MF_E_INVALIDREQUEST, MF_E_INVALIDSTREAMNUMBER, MF_E_INVALIDMEDIATYPE,
        MF_E_NOT_INITIALIZED, MF_E_NO_MORE_TYPES, MF_E_INVALIDTYPE, MF_E_UNSUPPORTED_SCHEME,
        MF_E_UNSUPPORTED_BYTESTREAM_TYPE, MF_E_INVALID_POSITION, MF_E_ATTRIBUTENOTFOUND,
        MF_E_SESSION_PAUSEWHILESTOPPED, MF_E_END_OF_STREAM, MF_E_SHUTDOWN, MF_E_INVALID_FORMAT,
        MF_E_TOPO_CODEC_NOT_FOUND};
    for (HRESULT code : codes) {
        const std::wstring text = messageText(code);
        ASSERT_GE(text.size(), 4u) << std::hex << code;
        const std::wstring line = text.substr(0, text.size() - 2);
        EXPECT_EQ(text.substr(line.size()), L"\r\n") << std::hex << code;
        EXPECT_EQ(line.find_first_of(L"\r\n%"), std::wstring::npos) << std::hex << code;
        EXPECT_TRUE(std::iswupper(line.front()) && line.back() != L' ') << std::hex << code;
    }
}

TEST(Win32FormatMessage, FillsTheCallersBufferOnlyWhenTheTextFits) {
    const std::wstring expected = L"Access is denied.\r\n";
    const DWORD id = static_cast<DWORD>(E_ACCESSDENIED);
    wchar_t buffer[64];
    for (DWORD size : {static_cast<DWORD>(expected.size() + 1), 64u}) {
        std::wmemset(buffer, L'#', 64);
        EXPECT_EQ(FormatMessageW(kSystem, nullptr, id, 0, buffer, size, nullptr), expected.size());
        EXPECT_EQ(std::wstring(buffer), expected);
    }
    EXPECT_EQ(FormatMessageW(kSystem, nullptr, id, 0, buffer, static_cast<DWORD>(expected.size()), nullptr), 0u);
    EXPECT_EQ(FormatMessageW(kSystem, nullptr, id, 0, nullptr, 64, nullptr), 0u);
    EXPECT_EQ(FormatMessageW(FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, id, 0, buffer, 64, nullptr), 0u);

    // The allocating form gives at least the size asked for.
    LPWSTR text = nullptr;
    ASSERT_EQ(FormatMessageW(kSystem | FORMAT_MESSAGE_ALLOCATE_BUFFER, nullptr, id, 0, reinterpret_cast<LPWSTR>(&text),
                             200, nullptr),
              expected.size());
    text[199] = L'x';
    EXPECT_EQ(std::wstring(text), expected);
    EXPECT_EQ(LocalFree(text), nullptr);
    EXPECT_EQ(LocalFree(nullptr), nullptr);
}

TEST(Win32FormatMessage, UnknownIdsAndOtherLanguagesHaveNoText) {
    for (uint32_t id : {0x80070001u, 0xC00D36B0u, 0x12345678u}) EXPECT_EQ(messageText(MakeHResult(id)), L"") << id;
    for (DWORD english : {0x0000u, 0x0409u, 0x0809u}) EXPECT_EQ(messageText(E_FAIL, english), L"Unspecified error\r\n");
    EXPECT_EQ(messageText(E_FAIL, 0x0407), L"");
}

TEST(Win32MulDiv, RoundsHalfAwayFromZeroThroughSixtyFourBits) {
    struct Case {
        INT number, numerator, denominator, expected;
    };
    // Halves go away from zero in every sign combination; INT_MAX squared needs 62 bits; results past
    // 32 bits, -2147483648 included (as on Windows), and a zero denominator give -1.
    const Case cases[] = {{720, 32, 27, 853}, {480, 9, 8, 540}, {1080, 4, 3, 1440}, {720, 9, 8, 810},
        {480, 40, 33, 582}, {5, 1, 2, 3}, {-5, 1, 2, -3}, {5, -1, 2, -3}, {5, 1, -2, -3}, {-5, 1, -2, 3},
        {7, 1, 3, 2}, {-7, 1, 3, -2}, {8, 1, 3, 3}, {-8, 1, 3, -3}, {0, 12345, 7, 0},
        {INT_MAX, INT_MAX, INT_MAX, INT_MAX}, {INT_MIN, -1, 2, 1073741824}, {-INT_MAX, 1, 1, -INT_MAX},
        {INT_MAX, 2, 1, -1}, {INT_MIN, 1, 1, -1}, {1, 2, 0, -1}, {0, 0, 0, -1}};
    for (const Case& c : cases) {
        EXPECT_EQ(MulDiv(c.number, c.numerator, c.denominator), c.expected)
            << c.number << " * " << c.numerator << " / " << c.denominator;
    }
}

}  // namespace

// File names are bytes: every byte string survives the trip through wide text, and text that is
// UTF-8 reads as its characters.
TEST(Win32TextConversion, NamesSurviveWideTextWhateverTheirBytes) {
    const struct {
        std::string bytes;
        std::wstring wide;
    } cases[] = {
        {"clip \xE6\x97\xA5\xE6\x9C\xAC.mp4", L"clip \u65E5\u672C.mp4"}, {"bad\xFF name", L"bad\xDCFF name"},
        {"latin1 caf\xE9", L"latin1 caf\xDCE9"}, {"cut \xE6\x97", L"cut \xDCE6\xDC97"},
        {"overlong \xC0\xAF", L"overlong \xDCC0\xDCAF"}, {"surrogate \xED\xA0\x80", L"surrogate \xDCED\xDCA0\xDC80"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(MultiByteToWide(CP_UTF8, c.bytes), c.wide) << c.bytes;
        EXPECT_EQ(WideToMultiByte(CP_UTF8, c.wide), c.bytes) << c.bytes;
    }
    // A surrogate that stands for no byte is no character.
    EXPECT_EQ(WideToMultiByte(CP_UTF8, std::wstring(L"a") + wchar_t(0xD800)), "a\xEF\xBF\xBD");
}
