// Wide text to and from UTF-8 and the ANSI code page. wchar_t holds one code point here.
// File names on Linux are bytes, not always UTF-8: a byte that is no part of well-formed UTF-8
// becomes the lone surrogate U+DC80..U+DCFF of its value and turns back into that byte, so that
// every name survives the trip through wide text (the scheme of Python's surrogateescape).
#include <array>

#include "Win32.h"

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

// Windows-1252 bytes 0x80..0x9F; the rest of the page is Latin-1. Undefined bytes map to U+FFFD.
constexpr std::array<char32_t, 32> kCp1252High = {
    0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD, 0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178,
};

constexpr char32_t kEscapedByteBase = 0xDC00;

bool isEscapedByte(char32_t c) { return c >= kEscapedByteBase + 0x80 && c <= kEscapedByteBase + 0xFF; }

void appendUtf8(std::string& out, char32_t c) {
    if (isEscapedByte(c)) {
        out += static_cast<char>(c - kEscapedByteBase);
        return;
    }
    if (c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) c = kReplacement;
    if (c < 0x80) {
        out += static_cast<char>(c);
    } else if (c < 0x800) {
        out += static_cast<char>(0xC0 | (c >> 6));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        out += static_cast<char>(0xE0 | (c >> 12));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (c >> 18));
        out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (c & 0x3F));
    }
}

std::wstring decodeUtf8(const std::string& text) {
    std::wstring out;
    size_t i = 0;
    while (i < text.size()) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        int length = lead < 0x80 ? 1 : (lead >> 5) == 0x6 ? 2 : (lead >> 4) == 0xE ? 3 : (lead >> 3) == 0x1E ? 4 : 0;
        char32_t c = length == 1 ? lead : length == 2 ? lead & 0x1F : length == 3 ? lead & 0x0F : lead & 0x07;
        bool valid = length > 0 && i + length <= text.size();
        for (int k = 1; valid && k < length; ++k) {
            const unsigned char next = static_cast<unsigned char>(text[i + k]);
            valid = (next & 0xC0) == 0x80;
            c = c << 6 | (next & 0x3F);
        }
        // Overlong forms, surrogates and values past U+10FFFF are not characters.
        static constexpr char32_t kMinimum[] = {0, 0, 0x80, 0x800, 0x10000};
        if (valid && (c < kMinimum[length] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF))) valid = false;
        out += valid ? static_cast<wchar_t>(c) : static_cast<wchar_t>(kEscapedByteBase + lead);
        i += valid ? length : 1;
    }
    return out;
}

char toCp1252(wchar_t c) {
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF)) return static_cast<char>(c);
    for (size_t i = 0; i < kCp1252High.size(); ++i) {
        if (kCp1252High[i] == static_cast<char32_t>(c) && c != kReplacement) return static_cast<char>(0x80 + i);
    }
    return '?';
}

}  // namespace

std::string WideToMultiByte(UINT codePage, const std::wstring& text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) {
        if (codePage == CP_UTF8) {
            appendUtf8(out, static_cast<char32_t>(c));
        } else {
            out += toCp1252(c);
        }
    }
    return out;
}

std::wstring MultiByteToWide(UINT codePage, const std::string& text) {
    if (codePage == CP_UTF8) return decodeUtf8(text);
    std::wstring out;
    out.reserve(text.size());
    for (unsigned char byte : text) {
        out += byte >= 0x80 && byte < 0xA0 ? static_cast<wchar_t>(kCp1252High[byte - 0x80]) : static_cast<wchar_t>(byte);
    }
    return out;
}
