// Splitting a fuzz input into text fields, reading numbers from them, and where media go.
#include "FuzzFields.h"

#include <unistd.h>

#include <charconv>
#include <cstdlib>

std::vector<std::string> splitLines(const uint8_t* data, size_t size) {
    std::vector<std::string> fields(1);
    for (size_t i = 0; i < size; ++i) {
        if (data[i] == '\n') fields.emplace_back();
        else fields.back() += static_cast<char>(data[i]);
    }
    return fields;
}

const std::string& fieldAt(const std::vector<std::string>& fields, size_t index) {
    static const std::string kEmpty;
    return index < fields.size() ? fields[index] : kEmpty;
}

template <class Number>
static Number readWhole(const std::string& text, Number fallback) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    return result.ec == std::errc() && result.ptr == end ? value : fallback;
}

double numberIn(const std::string& text, double fallback) { return readWhole(text, fallback); }

int64_t integerIn(const std::string& text, int64_t fallback) { return readWhole(text, fallback); }

std::string scratchFolder() {
    const char* folder = std::getenv("TMPDIR");
    if (folder != nullptr && *folder != '\0') return folder;
    return access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
}
