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

void throwErrno(int code, std::string_view call, const std::filesystem::path& path) {
    const std::string& where = path.native();
    std::string what;
    what.reserve(call.size() + where.size() + 2);
    what.append(call).append(1, '(').append(where).append(1, ')');
    throw std::system_error(code, std::generic_category(), what);
}

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

std::string read(const std::filesystem::path& path, Stamp* stamp) {
    int raw = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (raw < 0) throwErrno(errno, "open", path);
    FileDescriptor fd(raw);
    std::string contents;
    struct stat info {};
    if (::fstat(fd.get(), &info) != 0) throwErrno(errno, "fstat", path);
    if (stamp != nullptr) *stamp = stampFrom(info);
    if (info.st_size > 0) contents.reserve(static_cast<std::size_t>(info.st_size));
    std::vector<char> buffer(64 * 1024);
    for (;;) {
        ssize_t count = ::read(fd.get(), buffer.data(), buffer.size());
        if (count < 0) {
            if (errno == EINTR) continue;
            throwErrno(errno, "read", path);
        }
        if (count == 0) break;
        contents.append(buffer.data(), static_cast<std::size_t>(count));
    }
    return contents;
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
