#include "core/takeover/startup_mutation_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "core/support/files.h"

namespace holdenmere {

StartupMutationLock::StartupMutationLock(const std::filesystem::path& configURL)
    : url_(configURL.string() + ".startup-lock") {}

StartupMutationLock::Lease StartupMutationLock::acquire(bool wait) const {
    if (url_.has_parent_path()) files::createDirectories(url_.parent_path());

    int fd = ::open(url_.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) files::throwErrno(errno, "open", url_);

    const int operation = wait ? LOCK_EX : (LOCK_EX | LOCK_NB);
    while (::flock(fd, operation) != 0) {
        if (errno == EINTR) continue;
        const int failure = errno;
        ::close(fd);
        files::throwErrno(failure, "flock", url_);
    }
    return Lease(fd);
}

StartupMutationLock::Lease::Lease(Lease&& other) noexcept {
    std::lock_guard lock(other.guard_);
    fd_ = other.fd_;
    other.fd_ = -1;
}

StartupMutationLock::Lease& StartupMutationLock::Lease::operator=(Lease&& other) noexcept {
    if (this == &other) return *this;
    release();
    std::scoped_lock lock(guard_, other.guard_);
    fd_ = other.fd_;
    other.fd_ = -1;
    return *this;
}

void StartupMutationLock::Lease::release() {
    std::lock_guard lock(guard_);
    if (fd_ < 0) return;
    // Closing the descriptor drops the advisory lock; the file stays for the next holder.
    ::close(fd_);
    fd_ = -1;
}

bool StartupMutationLock::Lease::isHeld() const {
    std::lock_guard lock(guard_);
    return fd_ >= 0;
}

}  // namespace holdenmere
