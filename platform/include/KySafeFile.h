/* KySafeFile: writing a file that a user asked for, so that no failure loses what was there. A
 * regular file (or a new one) is written to a temporary file in the same folder, flushed and
 * fsync'ed with every write and the close checked, and renamed over the final name only at
 * commit: a full disk, an error, a kill or Ctrl-C leaves the old file whole, or the new one, never
 * a part. A symbolic link at the name is followed, so the file it names is replaced and the link
 * kept. A name that exists and is no regular file (/dev/null, /dev/stdout, a FIFO), or any name
 * under /dev or /proc, is written directly, every write checked, and never replaced: a device node
 * never becomes a file. A folder fails with EISDIR.
 *
 * One owner, one thread; each object writes one file. Failures return false and keep errno's
 * value in error(), so that the caller can say the system's reason ("No space left on device"). */
#ifndef KY_SAFE_FILE_H
#define KY_SAFE_FILE_H

#include <cstddef>
#include <cstdio>
#include <string>

#include "PlatformExport.h"

KY_PLATFORM_EXPORTS_BEGIN

class KySafeFile {
public:
    KySafeFile() = default;
    /* Removes the temporary file when commit() did not happen. */
    ~KySafeFile();

    /* Opens path for writing as the header says. */
    bool open(const std::string& path);
    /* The stream to write to, for writers that take a FILE* (libpng); null unless open. */
    FILE* stream() const { return stream_; }
    bool write(const void* bytes, size_t size);
    /* Flushes, fsyncs and closes, then renames into place and fsyncs the folder. */
    bool commit();
    /* The errno of the first failure, 0 if none. */
    int error() const { return error_; }

    KySafeFile(const KySafeFile&) = delete;
    KySafeFile& operator=(const KySafeFile&) = delete;

private:
    bool fail();
    void discard();

    FILE* stream_ = nullptr;
    std::string final_;
    std::string temporary_;  // empty when written directly
    int error_ = 0;
};

/* Writes bytes to path through a KySafeFile; false with errno set on failure. */
bool KySafeFile_writeAll(const std::string& path, const void* bytes, size_t size);

KY_PLATFORM_EXPORTS_END

#endif
