/* How the fuzz targets read an input (text fields cut at newlines, numbers spelled in a field, and
 * raw numbers taken from the input's bytes), and where they put the media they make of one. */
#ifndef VIDEO_TOOLKIT_FUZZ_FIELDS_H
#define VIDEO_TOOLKIT_FUZZ_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

/* The input cut at each '\n', which is dropped; always at least one field. */
std::vector<std::string> splitLines(const uint8_t* data, size_t size);

/* The field at index, or an empty text past the last. */
const std::string& fieldAt(const std::vector<std::string>& fields, size_t index);

/* The whole of text read as a number, or fallback when it is not one. */
double numberIn(const std::string& text, double fallback);
int64_t integerIn(const std::string& text, int64_t fallback);

/* Where a target writes the media it makes of an input: TMPDIR, else memory (/dev/shm), else /tmp. */
std::string scratchFolder();

/* The bytes at offset as a T, zeros where the input ends first. */
template <class T>
T rawAt(const uint8_t* data, size_t size, size_t offset) {
    unsigned char bytes[sizeof(T)] = {};
    if (offset < size) std::memcpy(bytes, data + offset, size - offset < sizeof(T) ? size - offset : sizeof(T));
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

#endif
