#include "KySafeFile.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// Temporary files being written, so that an interrupt removes them on its way out. Fixed slots of
// plain characters: the signal handler may only read memory and call unlink.
constexpr int kSlots = 16;
char pending[kSlots][PATH_MAX];
std::atomic<bool> used[kSlots];

void removePending(int signal) {
    for (int i = 0; i < kSlots; ++i) {
        if (used[i].load()) unlink(pending[i]);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

// Installed once, and only over the default action: a program with handlers of its own keeps them.
void installCleanup() {
    static std::once_flag installed;
    std::call_once(installed, [] {
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction current {};
            if (sigaction(signal, nullptr, &current) == 0 && current.sa_handler == SIG_DFL) {
                std::signal(signal, removePending);
            }
        }
    });
}

int remember(const std::string& path) {
    if (path.size() >= PATH_MAX) return -1;
    for (int i = 0; i < kSlots; ++i) {
        bool expected = false;
        if (used[i].load() || !used[i].compare_exchange_strong(expected, true)) continue;
        std::memcpy(pending[i], path.c_str(), path.size() + 1);
        return i;
    }
    return -1;
}

void forget(const std::string& path) {
    for (int i = 0; i < kSlots; ++i) {
        if (used[i].load() && path == pending[i]) used[i].store(false);
    }
}

std::string folderOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// The file a name stands for: a symbolic link's target (made absolute when it is relative, even
// when it does not exist yet), else the name.
std::string targetOf(const std::string& path) {
    std::string target = path;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat info {};
        if (lstat(target.c_str(), &info) != 0 || !S_ISLNK(info.st_mode)) return target;
        char link[PATH_MAX];
        const ssize_t length = readlink(target.c_str(), link, sizeof link - 1);
        if (length < 0) return target;
        const std::string next(link, static_cast<size_t>(length));
        target = next[0] == '/' ? next : folderOf(target) + "/" + next;
    }
    return target;
}

bool isDeviceName(const std::string& path) {
    return path.compare(0, 5, "/dev/") == 0 || path.compare(0, 6, "/proc/") == 0;
}

mode_t newFileMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

KySafeFile::~KySafeFile() { discard(); }

bool KySafeFile::fail() {
    if (error_ == 0) error_ = errno != 0 ? errno : EIO;
    return false;
}

void KySafeFile::discard() {
    if (stream_ != nullptr) std::fclose(stream_);
    stream_ = nullptr;
    if (!temporary_.empty()) {
        unlink(temporary_.c_str());
        forget(temporary_);
        temporary_.clear();
    }
}

bool KySafeFile::open(const std::string& path) {
    discard();
    error_ = 0;
    if (path.empty()) {
        errno = ENOENT;
        return fail();
    }
    final_ = targetOf(path);
    struct stat info {};
    const bool exists = stat(final_.c_str(), &info) == 0;
    if ((exists && !S_ISREG(info.st_mode)) || isDeviceName(path) || isDeviceName(final_)) {
        if (exists && S_ISDIR(info.st_mode)) {
            errno = EISDIR;
            return fail();
        }
        // A FIFO without a reader fails at once instead of blocking.
        const int descriptor = ::open(final_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        if (descriptor < 0) return fail();
        fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
        stream_ = fdopen(descriptor, "wb");
        if (stream_ == nullptr) {
            ::close(descriptor);
            return fail();
        }
        return true;
    }
    installCleanup();
    std::string name = final_.substr(final_.find_last_of('/') + 1);
    std::string pattern = folderOf(final_) + "/." + name + ".XXXXXX";
    const int descriptor = mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor < 0) return fail();
    temporary_ = pattern;
    remember(temporary_);
    // The new file gets the old one's permissions, or those of a file made the usual way.
    fchmod(descriptor, exists ? (info.st_mode & 07777) : newFileMode());
    stream_ = fdopen(descriptor, "wb");
    if (stream_ == nullptr) {
        ::close(descriptor);
        return fail();
    }
    return true;
}

bool KySafeFile::write(const void* bytes, size_t size) {
    if (stream_ == nullptr) return fail();
    if (size > 0 && std::fwrite(bytes, 1, size, stream_) != size) return fail();
    return true;
}

bool KySafeFile::commit() {
    if (stream_ == nullptr) return fail();
    errno = 0;
    const bool flushed = std::fflush(stream_) == 0 && std::ferror(stream_) == 0;
    if (!flushed) fail();
    // A device or FIFO has nothing to sync; a regular file's data must be on disk before the
    // rename makes it the file.
    if (flushed && !temporary_.empty() && fsync(fileno(stream_)) != 0) fail();
    FILE* stream = stream_;
    stream_ = nullptr;
    if (std::fclose(stream) != 0) fail();
    if (error_ != 0) {
        discard();
        return false;
    }
    if (temporary_.empty()) return true;
    if (std::rename(temporary_.c_str(), final_.c_str()) != 0) {
        fail();
        discard();
        return false;
    }
    forget(temporary_);
    temporary_.clear();
    // The rename itself is on disk once the folder is.
    const int folder = ::open(folderOf(final_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        fsync(folder);
        ::close(folder);
    }
    return true;
}

bool KySafeFile_writeAll(const std::string& path, const void* bytes, size_t size) {
    KySafeFile file;
    if (file.open(path) && file.write(bytes, size) && file.commit()) return true;
    errno = file.error();
    return false;
}
