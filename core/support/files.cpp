#include "core/support/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

namespace holdenmere::files {
namespace {

// Closes a descriptor on scope exit unless released.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&&) = delete;
    ~FileDescriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    int get() const { return fd_; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

void flushToDisk(int fd, const std::filesystem::path& path) {
#if defined(__APPLE__)
    // fsync on macOS only reaches the drive's cache; F_FULLFSYNC reaches the platter.
    if (::fcntl(fd, F_FULLFSYNC) == 0) return;
#endif
    if (::fsync(fd) != 0) throwErrno(errno, "fsync", path);
}

void flushFolder(const std::filesystem::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    // The rename already happened; a folder that cannot be flushed (some file
    // systems refuse) leaves the new file in place all the same.
    (void)::fsync(fd);
    ::close(fd);
}

}  // namespace

static Stamp stampFrom(const struct stat& info) {
    Stamp stamp;
    stamp.exists = true;
    stamp.device = info.st_dev;
    stamp.inode = info.st_ino;
    stamp.size = info.st_size;
#if defined(__APPLE__)
    stamp.modifiedNanoseconds = info.st_mtimespec.tv_sec * 1'000'000'000LL + info.st_mtimespec.tv_nsec;
    stamp.changedNanoseconds = info.st_ctimespec.tv_sec * 1'000'000'000LL + info.st_ctimespec.tv_nsec;
#else
    stamp.modifiedNanoseconds = info.st_mtim.tv_sec * 1'000'000'000LL + info.st_mtim.tv_nsec;
    stamp.changedNanoseconds = info.st_ctim.tv_sec * 1'000'000'000LL + info.st_ctim.tv_nsec;
#endif
    return stamp;
}

namespace {

class ReadFailureCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "holdenmere.read"; }
    std::string message(int value) const override {
        switch (static_cast<ReadFailure>(value)) {
            case ReadFailure::notRegularFile:
                return "not a regular file";
            case ReadFailure::tooLarge:
                return "file too large";
        }
        return "unknown failure";
    }
};

std::string described(std::string_view call, const std::filesystem::path& path) {
    std::string what;
    what.reserve(call.size() + path.native().size() + 2);
    what.append(call).append(1, '(').append(path.native()).append(1, ')');
    return what;
}

[[noreturn]] void throwRead(std::error_code code, std::string_view call, const std::filesystem::path& path) {
    throw ReadError(code, call, path);
}

// Opens a regular file for reading. O_NONBLOCK makes the open itself return
// at once whatever stands at the path (opening a pipe for reading otherwise
// waits for a writer, a serial device for its carrier); fstat on the opened
// descriptor then tells what it is, with no window for a swap in between.
FileDescriptor openRegular(const std::filesystem::path& path, Stamp* stamp) {
    int raw = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (raw < 0) throwRead({errno, std::generic_category()}, "open", path);
    FileDescriptor fd(raw);
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) throwRead({errno, std::generic_category()}, "fstat", path);
    if (!S_ISREG(info.st_mode)) throwRead(ReadFailure::notRegularFile, "read", path);
    // A regular file never blocks; reads go back to ordinary ones all the same.
    const int flags = ::fcntl(fd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(fd.get(), F_SETFL, flags & ~O_NONBLOCK) != 0) {
        throwRead({errno, std::generic_category()}, "fcntl", path);
    }
    if (stamp != nullptr) *stamp = stampFrom(info);
    return fd;
}

// Up to `size` bytes; 0 at the end of the file.
std::size_t readSome(const FileDescriptor& fd, char* buffer, std::size_t size, const std::filesystem::path& path) {
    for (;;) {
        ssize_t count = ::read(fd.get(), buffer, size);
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno != EINTR) throwRead({errno, std::generic_category()}, "read", path);
    }
}

constexpr std::size_t kChunk = 64 * 1024;

}  // namespace

void throwErrno(int code, std::string_view call, const std::filesystem::path& path) {
    throw std::system_error(code, std::generic_category(), described(call, path));
}

const std::error_category& readFailureCategory() {
    static const ReadFailureCategory category;
    return category;
}

std::error_code make_error_code(ReadFailure failure) { return {static_cast<int>(failure), readFailureCategory()}; }

ReadError::ReadError(std::error_code code, std::string_view call, const std::filesystem::path& path)
    : std::system_error(code, described(call, path)) {}

std::string read(const std::filesystem::path& path, Stamp* stamp, std::size_t limit) {
    Stamp opened;
    const FileDescriptor fd = openRegular(path, &opened);
    if (opened.size < 0 || static_cast<std::uintmax_t>(opened.size) > limit) {
        throwRead(ReadFailure::tooLarge, "read", path);
    }
    std::string contents;
    contents.reserve(static_cast<std::size_t>(opened.size));
    std::vector<char> buffer(kChunk);
    // The file may grow while it is read: never more than one byte past the limit.
    for (;;) {
        const std::size_t room = limit - contents.size();
        const std::size_t wanted = room < buffer.size() ? room + 1 : buffer.size();
        const std::size_t count = readSome(fd, buffer.data(), wanted, path);
        if (count == 0) break;
        contents.append(buffer.data(), count);
        if (contents.size() > limit) throwRead(ReadFailure::tooLarge, "read", path);
    }
    if (stamp != nullptr) *stamp = opened;
    return contents;
}

void forEachLine(const std::filesystem::path& path, const std::function<void(std::string_view)>& line,
                 std::size_t lineLimit) {
    const FileDescriptor fd = openRegular(path, nullptr);
    std::string pending;
    std::vector<char> buffer(kChunk);
    for (;;) {
        const std::size_t count = readSome(fd, buffer.data(), buffer.size(), path);
        if (count == 0) break;
        std::string_view chunk(buffer.data(), count);
        for (auto end = chunk.find('\n'); end != std::string_view::npos; end = chunk.find('\n')) {
            if (pending.size() + end > lineLimit) throwRead(ReadFailure::tooLarge, "read", path);
            if (pending.empty()) {
                line(chunk.substr(0, end));
            } else {
                pending.append(chunk.substr(0, end));
                line(pending);
                pending.clear();
            }
            chunk.remove_prefix(end + 1);
        }
        if (pending.size() + chunk.size() > lineLimit) throwRead(ReadFailure::tooLarge, "read", path);
        pending.append(chunk);
    }
    if (!pending.empty()) line(pending);
}

std::optional<Stamp> stampOf(const std::filesystem::path& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) return stampFrom(info);
    if (errno == ENOENT || errno == ENOTDIR) return Stamp{};
    return std::nullopt;
}

bool exists(const std::filesystem::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0;
}

void createDirectories(const std::filesystem::path& folder) {
    if (folder.empty()) return;
    struct stat info {};
    if (::stat(folder.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode)) return;
        throwErrno(ENOTDIR, "mkdir", folder);
    }
    auto parent = folder.parent_path();
    if (!parent.empty() && parent != folder) createDirectories(parent);
    if (::mkdir(folder.c_str(), 0755) != 0 && errno != EEXIST) throwErrno(errno, "mkdir", folder);
    if (::stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) throwErrno(ENOTDIR, "mkdir", folder);
}

namespace {

// Writes `bytes` to a new temporary file in `folder`, named after `path`,
// and flushes it to disk; its path. Nothing is left behind on failure.
std::filesystem::path writeTemporary(const std::filesystem::path& path, const std::filesystem::path& folder,
                                     std::string_view bytes, mode_t mode) {
    std::string name(1, '.');
    name.append(path.filename().native()).append(".XXXXXX");
    std::string pattern = (folder / name).string();
    std::vector<char> temporary(pattern.begin(), pattern.end());
    temporary.push_back('\0');
    int raw = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (raw < 0) throwErrno(errno, "mkstemp", pattern);
    const std::filesystem::path temporaryPath(temporary.data());
    FileDescriptor fd(raw);

    try {
        if (::fchmod(fd.get(), mode) != 0) throwErrno(errno, "fchmod", temporaryPath);
        std::size_t written = 0;
        while (written < bytes.size()) {
            ssize_t count = ::write(fd.get(), bytes.data() + written, bytes.size() - written);
            if (count < 0) {
                if (errno == EINTR) continue;
                throwErrno(errno, "write", temporaryPath);
            }
            written += static_cast<std::size_t>(count);
        }
        flushToDisk(fd.get(), temporaryPath);
        if (::close(fd.release()) != 0) throwErrno(errno, "close", temporaryPath);
    } catch (...) {
        ::unlink(temporaryPath.c_str());
        throw;
    }
    return temporaryPath;
}

// rename() that fails with EEXIST instead of replacing an existing target.
// A file system without an exclusive rename gets a hard link, which never
// replaces anything either, and the temporary name is removed by the caller.
int renameWithoutReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
#if defined(__APPLE__)
    if (::renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0) return 0;
#else
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
#endif
    if (errno != EINVAL && errno != ENOTSUP && errno != ENOSYS) return -1;
    return ::link(from.c_str(), to.c_str());
}

std::filesystem::path folderOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path() : std::filesystem::path(".");
}

}  // namespace

void writeAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode) {
    const auto folder = folderOf(path);
    createDirectories(folder);
    const auto temporaryPath = writeTemporary(path, folder, bytes, mode);
    if (::rename(temporaryPath.c_str(), path.c_str()) != 0) {
        const int error = errno;
        ::unlink(temporaryPath.c_str());
        throwErrno(error, "rename", path);
    }
    flushFolder(folder);
}

bool createAtomically(const std::filesystem::path& path, std::string_view bytes, mode_t mode) {
    const auto folder = folderOf(path);
    createDirectories(folder);
    const auto temporaryPath = writeTemporary(path, folder, bytes, mode);
    const int renamed = renameWithoutReplacing(temporaryPath, path);
    const int error = errno;
    // Gone already after a rename; the second name after a link.
    ::unlink(temporaryPath.c_str());
    if (renamed != 0) {
        if (error == EEXIST) return false;
        throwErrno(error, "rename", path);
    }
    flushFolder(folder);
    return true;
}

void append(const std::filesystem::path& path, std::string_view bytes, mode_t mode) {
    if (path.has_parent_path()) createDirectories(path.parent_path());
    int raw = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, mode);
    if (raw < 0) throwErrno(errno, "open", path);
    FileDescriptor fd(raw);
    std::size_t written = 0;
    while (written < bytes.size()) {
        ssize_t count = ::write(fd.get(), bytes.data() + written, bytes.size() - written);
        if (count < 0) {
            if (errno == EINTR) continue;
            throwErrno(errno, "write", path);
        }
        written += static_cast<std::size_t>(count);
    }
    if (::close(fd.release()) != 0) throwErrno(errno, "close", path);
}

}  // namespace holdenmere::files
