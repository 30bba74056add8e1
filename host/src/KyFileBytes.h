// Whole files read into memory, with a bound on their size.
#ifndef KY_FILE_BYTES_H
#define KY_FILE_BYTES_H

#include <cstddef>
#include <string>
#include <vector>

/* The whole file at path (UTF-8) into bytes; false when it cannot be read, is empty or is larger
 * than limit bytes (bytes is then left empty). */
bool KyReadFileBytes(const std::string& path, size_t limit, std::vector<unsigned char>& bytes);

#endif
